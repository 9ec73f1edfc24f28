#include "RawEchoService.h"

#include "SampleServiceTraits.h"

namespace apps::legacyagent {

using agent::core::transport::Message;

namespace {

SampleService::Methods rawEchoMethods(std::string service) {
    SampleService::Methods methods(std::move(service));
    // Raw bytes, whatever they hold: to a client converting values, bytes both ways.
    methods.add("echo", [](const Message& request) { return request; }, {{"bytes"}, "bytes"});
    return methods;
}

}  // namespace

RawEchoService::RawEchoService(const std::string& namePrefix)
    : SampleService(rawEchoMethods(namePrefix + kName), kRawBytesWireFormat) {}

}  // namespace apps::legacyagent
