#pragma once

#include "AvroMethod.h"

#include "agent/core/service/NativeLegacyServiceBase.h"
#include "agent/core/transport/RequestHandler.h"
#include "agent/spf/core/MethodSignature.h"

#include <map>
#include <string>
#include <utility>

namespace apps::legacyagent {

// What the sample services share: version kSampleServiceVersion, kDirectoryCallTimeout, and
// a directory entry whose metadata holds the wire format the methods speak, the major
// version ("spf::servicemajor") and each method's signature ("spf.signature.<method>"),
// which tell a client how to frame its calls and convert its values.
//
// The entry's metadata is fixed when the service is built, so a subclass gathers its methods
// in a Methods first and hands them over whole.
class SampleService : public agent::core::service::NativeLegacyServiceBase {
public:
    // The handlers of one service and their signatures, by method name. Built on one thread.
    class Methods {
    public:
        explicit Methods(std::string service) : service_(std::move(service)) {}

        const std::string& service() const noexcept { return service_; }

        // A method of Avro values (see AvroMethod), say avro<std::string(std::string)>("echo", f);
        // its signature follows from Signature.
        template <class Signature, class F>
        Methods& avro(const std::string& method, F&& function) {
            return add(method, AvroMethod<Signature>(service_, method, std::forward<F>(function)),
                       AvroMethod<Signature>::signature());
        }
        // Any handler, with the signature it serves by.
        Methods& add(const std::string& method, agent::core::transport::RequestHandler handler,
                     agent::spf::core::MethodSignature signature);

    private:
        friend class SampleService;

        std::string service_;
        std::map<std::string, agent::core::transport::RequestHandler> handlers_;
        std::map<std::string, agent::spf::core::MethodSignature> signatures_;
    };

protected:
    SampleService(const Methods& methods, const std::string& wireFormat);
};

}  // namespace apps::legacyagent
