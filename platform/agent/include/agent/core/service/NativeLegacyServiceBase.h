#pragma once

#include "agent/core/service/ServiceBase.h"
#include "agent/core/serviceutils/APIVersion.h"
#include "agent/core/transport/Address.h"
#include "agent/core/transport/RequestHandler.h"

#include <boost/uuid/uuid.hpp>

#include <map>
#include <memory>
#include <mutex>
#include <string>

namespace agent::directory {
class DirectoryServiceClient;
}

namespace agent::core::service {

// A helper base for legacy services written natively against the platform: subclasses
// name their methods with addMethod; start serves each at an address of its own and
// enters the service into the exchange's directory (name, the context's service instance,
// version, metadata, method table); stop withdraws the entry and the handlers.
//
// addMethod before start. start and stop from one thread at a time; the rest from any.
class NativeLegacyServiceBase : public ServiceBase {
public:
    ~NativeLegacyServiceBase() override;

    // Registers the handlers, then the directory entry. Blocks on the exchange. Returns
    // false (after logging why, and undoing what was done) when the context has no
    // transport, the exchange refuses an address, or the directory refuses the entry.
    bool start(const StartupConfiguration& configuration) override;
    // Withdraws the entry and the handlers; requests still arriving are refused. Idempotent.
    void stop() override;
    std::string name() const override { return name_; }

    // The instance uuid while started (nil otherwise).
    boost::uuids::uuid serviceInstance() const;

protected:
    // `timeout` bounds each directory call.
    NativeLegacyServiceBase(std::string name, serviceutils::APIVersion version,
                            std::map<std::string, std::string> metadata,
                            std::chrono::milliseconds timeout = std::chrono::seconds(5));

    // Throws std::invalid_argument("Method needs a name and a handler") and
    // std::logic_error("Methods are added before start").
    void addMethod(const std::string& method, transport::RequestHandler handler);

    // The transport the service runs on while started, null otherwise: for handlers that
    // send requests of their own (to a callback a client passed, say). Borrowed from the
    // container, which outlives its services. Any thread; takes the lifecycle lock briefly.
    transport::Transport* getTransport() const;

private:
    // Needs lifecycleMutex_ held. Return the failure's text, empty on success.
    std::string startLocked(const serviceutils::Context& context);
    // Needs lifecycleMutex_ held.
    std::string withdrawLocked();

    const std::string name_;
    const serviceutils::APIVersion version_;
    const std::map<std::string, std::string> metadata_;
    const std::chrono::milliseconds timeout_;

    mutable std::mutex lifecycleMutex_;
    std::map<std::string, transport::RequestHandler> handlers_;
    std::map<std::string, transport::Address> addresses_;
    transport::Transport* transport_ = nullptr;
    boost::uuids::uuid instance_{};
    std::unique_ptr<directory::DirectoryServiceClient> directory_;
    bool registered_ = false;
};

}  // namespace agent::core::service
