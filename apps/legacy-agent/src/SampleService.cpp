#include "SampleService.h"

#include "SampleServiceTraits.h"

namespace apps::legacyagent {

namespace {

std::map<std::string, std::string> metadataOf(const std::string& wireFormat,
                                              const std::map<std::string, agent::spf::core::MethodSignature>& signatures) {
    std::map<std::string, std::string> metadata{
        {"spf.wireFormat", wireFormat}, {"spf::servicemajor", std::to_string(kSampleServiceVersion.getMajor())}};
    for (const auto& [method, signature] : signatures) {
        metadata.emplace(agent::spf::core::methodSignatureKey(method), signature.toString());
    }
    return metadata;
}

}  // namespace

SampleService::Methods& SampleService::Methods::add(const std::string& method,
                                                    agent::core::transport::RequestHandler handler,
                                                    agent::spf::core::MethodSignature signature) {
    handlers_.insert_or_assign(method, std::move(handler));
    signatures_.insert_or_assign(method, std::move(signature));
    return *this;
}

SampleService::SampleService(const Methods& methods, const std::string& wireFormat)
    : NativeLegacyServiceBase(methods.service_, kSampleServiceVersion, metadataOf(wireFormat, methods.signatures_),
                              kDirectoryCallTimeout) {
    for (const auto& [method, handler] : methods.handlers_) {
        addMethod(method, handler);
    }
}

}  // namespace apps::legacyagent
