#pragma once

// Hands out invokables through factories that others register. The host offers one
// InvokablePublisher<agent::spf::core::Invokable> as the service
// "agent::spf::servicepublisher::InvokablePublisher<agent::spf::core::Invokable>".
//
//   auto handle = publisher.registerInvokableFactory(get, unget, "Greeter", uuid, APIVersion(2, 1),
//                                                    {{"endpointAddress", std::string("inproc://x")}}, {});
//   for (auto& factory : publisher.findInvokableFactories("Greeter", 2, LDAPFilter("(region=eu)"))) {
//       auto invokable = publisher.getInvokable(factory.handle);   // unget-callback runs when the
//       ...                                                        // last copy goes
//   }
//   publisher.withdrawInvokableFactory(handle);
//
// Thread safety and the withdrawal contract: see InvokablePublisherCommon.h.

#include "agent/spf/core/Invokable.h"
#include "agent/spf/servicepublisher/InvokablePublisherCommon.h"

#include <cppmicroservices/ServiceInterface.h>

#include <functional>
#include <memory>
#include <string>
#include <utility>

namespace agent::spf::servicepublisher {

template <class InvokableType>
class InvokablePublisher : public InvokablePublisherCommon {
public:
    // Makes an invokable for one client; may throw, and the client then gets that exception.
    // Runs on the client's thread, concurrently with other calls of both callbacks.
    using GetCallback = std::function<std::shared_ptr<InvokableType>()>;
    // Takes back an invokable that getCallback made; runs on the thread that gives it back
    // (ungetInvokable, or wherever the client's last copy is dropped).
    using UngetCallback = std::function<void(std::shared_ptr<InvokableType>)>;

    // Registers a factory and tells the listeners (Added). The publisher keeps copies of the
    // callbacks until the factory is withdrawn and its callbacks have returned, then releases
    // them. Property maps are copied; keep values that LDAP filters can compare (std::string,
    // numbers, bool). Non-blocking apart from the listener calls it may make.
    // Throws std::invalid_argument with one of these texts:
    //   "An invokable factory needs a get callback", "An invokable factory needs an unget callback",
    //   "An invokable factory needs a name",
    //   "Invokable factory properties contain case variants of the key: <key>" (within one map).
    InvokableFactoryHandle registerInvokableFactory(GetCallback getCallback, UngetCallback ungetCallback,
                                                    std::string name, const boost::uuids::uuid& uuid,
                                                    const core::APIVersion& version,
                                                    const cppmicroservices::AnyMap& endpointProperties,
                                                    const cppmicroservices::AnyMap& serviceProperties) {
        UntypedGetCallback untypedGet;
        if (getCallback) {
            untypedGet = [get = std::move(getCallback)]() -> std::shared_ptr<void> { return get(); };
        }
        UntypedUngetCallback untypedUnget;
        if (ungetCallback) {
            untypedUnget = [unget = std::move(ungetCallback)](std::shared_ptr<void> invokable) {
                unget(std::static_pointer_cast<InvokableType>(std::move(invokable)));
            };
        }
        return registerUntypedInvokableFactory(std::move(untypedGet), std::move(untypedUnget), std::move(name), uuid,
                                               version, endpointProperties, serviceProperties);
    }

    // A new invokable from the factory's get-callback, called on this thread. When the last copy
    // of the returned pointer goes, the invokable is given back through the unget-callback
    // (unless ungetInvokable did so before, or the factory has been withdrawn). Blocking for as
    // long as the get-callback runs.
    // Throws std::invalid_argument("Unknown invokable factory: <handle>"),
    // std::runtime_error("Invokable factory withdrawn: <handle>") when withdrawn meanwhile,
    // std::runtime_error("Invokable factory returned no invokable: <name>") for a null result,
    // or whatever the get-callback throws.
    std::shared_ptr<InvokableType> getInvokable(const InvokableFactoryHandle& handle) {
        return std::static_pointer_cast<InvokableType>(getUntypedInvokable(handle));
    }

    // Gives an invokable back now, through the unget-callback on this thread; the client's copies
    // stay valid objects, and dropping them later gives nothing back again. True if it was given
    // back by this call; false if it had been already, or the factory is withdrawn. Throws
    // std::invalid_argument("Not an invokable handed out by an invokable publisher") for any
    // other pointer (also null), or what the unget-callback throws (the invokable then counts as
    // given back).
    bool ungetInvokable(const std::shared_ptr<InvokableType>& invokable) {
        return ungetUntypedInvokable(invokable);
    }
};

}  // namespace agent::spf::servicepublisher

CPPMICROSERVICES_DECLARE_SERVICE_INTERFACE(
    agent::spf::servicepublisher::InvokablePublisher<agent::spf::core::Invokable>,
    "agent::spf::servicepublisher::InvokablePublisher<agent::spf::core::Invokable>")
