#include "ClockService.h"

#include "SampleServiceTraits.h"

#include <time.h>

#include <cstdio>

namespace apps::legacyagent {

using agent::core::transport::Message;

ClockService::ClockService(const std::string& namePrefix)
    : NativeLegacyServiceBase(namePrefix + kName, kSampleServiceVersion, sampleServiceMetadata(),
                              kDirectoryCallTimeout) {
    addMethod("now", [](const Message&) { return Message(formatUtc(std::chrono::system_clock::now())); });
    addMethod("echo", [](const Message& request) { return request; });
}

std::string ClockService::formatUtc(std::chrono::system_clock::time_point time) {
    const auto sinceEpoch = std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch());
    const std::time_t seconds = static_cast<std::time_t>(sinceEpoch.count() / 1000);
    const int milliseconds = static_cast<int>(sinceEpoch.count() % 1000);
    std::tm utc{};
    ::gmtime_r(&seconds, &utc);
    char text[96];  // room for any int in every field, as the compiler checks
    std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ", utc.tm_year + 1900, utc.tm_mon + 1,
                  utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec, milliseconds);
    return text;
}

}  // namespace apps::legacyagent
