#include "RawEchoService.h"

#include "SampleServiceTraits.h"

namespace apps::legacyagent {

using agent::core::transport::Message;

RawEchoService::RawEchoService(const std::string& namePrefix)
    : NativeLegacyServiceBase(namePrefix + kName, kSampleServiceVersion, sampleServiceMetadata(kRawBytesWireFormat),
                              kDirectoryCallTimeout) {
    addMethod("echo", [](const Message& request) { return request; });
}

}  // namespace apps::legacyagent
