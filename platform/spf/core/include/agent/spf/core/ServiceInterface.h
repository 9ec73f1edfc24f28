#pragma once

#include "agent/spf/core/APIVersion.h"
#include "agent/spf/core/MethodImplementation.h"

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace agent::spf::core {

// An SPF service described for publication: its interface name, version, metadata (string
// properties such as "spf.wireFormat") and its methods by name, each a typed
// MethodImplementation.
//
// A value type. Copies (and clone()) share the method implementations, which are
// immutable; name, version and metadata are copied. Not synchronised: build it on one
// thread; afterwards its const members may be called from any number of threads.
class ServiceInterface {
public:
    using Metadata = std::map<std::string, std::string>;

    ServiceInterface(std::string interfaceName, APIVersion version, Metadata metadata = {});

    const std::string& getInterfaceName() const noexcept { return interfaceName_; }
    const APIVersion& getVersion() const noexcept { return version_; }
    const Metadata& getMetadata() const noexcept { return metadata_; }
    // Adds or replaces one metadata entry.
    void setMetadata(std::string key, std::string value);

    // Adds a method made from an ordinary callable:
    //   addMethod("add", [](std::int32_t a, std::int32_t b) { return a + b; });
    // Throws std::invalid_argument "Method already defined " + name for a name in use.
    template <class F>
    ServiceInterface& addMethod(std::string name, F&& callable) {
        return addMethod(std::move(name), MethodImplementation::fromCallable(std::forward<F>(callable)));
    }
    ServiceInterface& addMethod(std::string name, MethodImplementation method);

    // Method names in ascending order.
    std::vector<std::string> methodNames() const;
    bool hasMethod(const std::string& name) const;
    // Throws std::runtime_error "Unknown method " + name.
    const MethodImplementation& method(const std::string& name) const;

    // An independent copy: changing its metadata or methods leaves this one alone.
    ServiceInterface clone() const;

private:
    std::string interfaceName_;
    APIVersion version_;
    Metadata metadata_;
    std::map<std::string, std::shared_ptr<const MethodImplementation>> methods_;
};

}  // namespace agent::spf::core
