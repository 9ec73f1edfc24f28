#include "ClockService.h"

#include "SampleServiceTraits.h"

#include <time.h>

#include <cstdint>
#include <cstdio>

namespace apps::legacyagent {

namespace {

SampleService::Methods clockMethods(std::string service) {
    SampleService::Methods methods(std::move(service));
    methods.avro<std::string()>("now", [] { return ClockService::formatUtc(std::chrono::system_clock::now()); });
    methods.avro<std::string(std::string)>("echo", [](std::string text) { return text; });
    methods.avro<std::int64_t()>("millisecondsSinceEpoch", [] {
        const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
        return static_cast<std::int64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(sinceEpoch).count());
    });
    return methods;
}

}  // namespace

ClockService::ClockService(const std::string& namePrefix)
    : SampleService(clockMethods(namePrefix + kName), kAvroMultipartWireFormat) {}

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
