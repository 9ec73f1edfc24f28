// example.Greeter 1.0: greet(string) -> string and count(array<string>) -> int. A host runs it
// once a publisher configuration asks for it, e.g.
//   {"config": {"endpointsToConnectTo": ["inprocess"]},
//    "serviceConfigurations": [{"name": "example.Greeter", "version": {"major": 1},
//                               "requestedProperties": {}, "uniqueID": "greeter"}]}

#include <agent/spf/bundles/ServiceInterfacePublishingActivator.h>
#include <agent/spf/core/ServiceInterface.h>

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using agent::spf::core::APIVersion;
using agent::spf::core::ServiceInterface;

class GreeterActivator : public agent::spf::bundles::ServiceInterfacePublishingActivator {
    std::vector<ServiceInterface> makeInterfaces() override {
        ServiceInterface greeter("example.Greeter", APIVersion(1, 0));
        greeter
            .addMethod("greet",
                       [](std::string name) {
                           // What a method throws reaches the caller as the call's error.
                           if (name.empty()) {
                               throw std::invalid_argument("Whom should I greet?");
                           }
                           return "Hello, " + name;
                       })
            .addMethod("count", [](std::vector<std::string> names) { return static_cast<std::int32_t>(names.size()); });
        return {greeter};
    }
};

}  // namespace

CPPMICROSERVICES_EXPORT_BUNDLE_ACTIVATOR(GreeterActivator)
