#pragma once

// The SPF invokable that stands for one legacy service instance: a call becomes a request
// message to the instance's method, its reply the result handed to the caller's completion
// handler. Made by the publisher's invokable factory for each client, with a context of its own
// on the exchange connection that found the instance.

#include "agent/core/serviceutils/Context.h"
#include "agent/core/serviceutils/ServiceStub.h"
#include "agent/core/transport/Address.h"
#include "agent/spf/core/CompletionHandler.h"
#include "agent/spf/legacyservicepublisher/CallStatistics.h"
#include "agent/spf/core/ExportedCallbackSharedState.h"
#include "agent/spf/core/GenericPayload.h"
#include "agent/spf/core/Invokable.h"
#include "agent/spf/core/ExportedStreamReference.h"
#include "agent/spf/serialisation/SerialisationCatalogue.h"
#include "agent/spf/streambuf/StreamBuffer.h"

#include <boost/uuid/uuid.hpp>

#include <chrono>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace agent::spf::legacyservicepublisher {

class InvokableImpl final : public agent::spf::core::Invokable,
                            public std::enable_shared_from_this<InvokableImpl> {
public:
    // Reads the wire format from the stub's "spf.wireFormat" (default
    // "application/octet-stream+spf/avro+spf/multipart"): the text before "+spf/multipart" is the
    // content type and makes the framing multipart; without the suffix the whole text is the
    // content type, with single framing. Make it with std::make_shared: calls keep it alive
    // through shared_from_this while they run.
    // Each call's outcome and latency (from invokeAsync to its handler) go to `statistics` when
    // given.
    InvokableImpl(agent::core::serviceutils::ServiceStub stub, agent::core::serviceutils::Context context,
                  std::shared_ptr<agent::spf::serialisation::SerialisationCatalogue> catalogue,
                  std::shared_ptr<CallStatistics> statistics = nullptr);
    // Cleans up as forceCleanup does, unless that has happened.
    ~InvokableImpl() override;
    InvokableImpl(const InvokableImpl&) = delete;
    InvokableImpl& operator=(const InvokableImpl&) = delete;

    // The instance's method names, in the order of its method table. Throws std::runtime_error
    // "Service is no longer valid" once cleaned up.
    std::vector<std::string> getSupportedNames() const override;
    // Posts the call to the context's pool and returns. There the exported arguments are
    // replaced, the arguments framed and sent, the reply awaited (up to `timeout`: "Timeout"),
    // read and handed to `handler`; every failure goes to `handler` too, exactly once. Once
    // cleaned up, `handler` gets "Service is no longer valid" at once, on this thread.
    void invokeAsync(std::optional<std::chrono::milliseconds> timeout, std::string name,
                     agent::spf::core::CompletionHandler handler, agent::spf::core::GenericPayload args) override;

    // Makes the invokable invalid for good, withdraws the transport handlers it serves (the
    // callback-removal method, every exported callback, whose clients learn that the service
    // side dropped them, and every exported stream, whose sink is flushed), rejects further requests for its context's instance and waits until the
    // calls already posted have ended. Idempotent; blocking; any thread (from one of its own calls
    // it cannot wait for that call, and does not). Never throws.
    void forceCleanup() noexcept;

    // Exported arguments, rewritten in place before a call is framed (pool threads).
    // Each exported callback becomes an ExportedCallbackReference: its handler is registered at
    // the callback's uuid and served until either side removes it or the invokable is cleaned up.
    void handleAnyExportedCallbacksInArgs(agent::spf::core::GenericPayload& args);
    // Each exported data sink and source becomes an ExportedStreamReference to a stream device
    // registered at a fresh uuid, served until the service closes it or the invokable is cleaned
    // up.
    void handleAnyExportedDataSinkInArgs(agent::spf::core::GenericPayload& args);
    void handleAnyExportedDataSourceInArgs(agent::spf::core::GenericPayload& args);
    // Registers `device` at `stream` and keeps it; returns what stands for it in the request.
    agent::spf::core::ExportedStreamReference returnMessageBytesForStreamMarkerTypes(
        const boost::uuids::uuid& stream, std::unique_ptr<agent::spf::streambuf::StreamBuffer> device);
    // Registers the callback-removal method at a fresh address unless it is registered already;
    // returns that address. Throws what the transport throws.
    // Call with callbacksMutex held.
    agent::core::transport::Address ensureRemovalMethodIsRegistered();
    // The service has dropped the callback: its handler goes and its client is told. Unknown
    // uuids are ignored.
    void serviceSideHasRemovedCallback(const boost::uuids::uuid& callback);
    // The client has dropped the callback: its handler goes and the service is told through its
    // removal method, on the context's pool. Unknown uuids are ignored.
    void clientSideHasRemovedCallback(const boost::uuids::uuid& callback);

private:
    // The call itself, on a pool thread; every outcome goes to `handler`.
    void invoke(const std::optional<std::chrono::milliseconds>& timeout, const std::string& name,
                const agent::spf::core::CompletionHandler& handler, agent::spf::core::GenericPayload& args,
                std::chrono::steady_clock::time_point started);
    void count(CallStatistics::Outcome outcome, std::chrono::steady_clock::time_point started) const noexcept;
    // Serves one invocation of an exported callback by the service.
    agent::core::transport::Message serveCallback(
        const std::shared_ptr<agent::spf::core::ExportedCallbackSharedState>& callback,
        const agent::core::transport::Message& request) const;
    // Serves the service's removal of one of this invokable's callbacks.
    agent::core::transport::Message serveRemoval(const agent::core::transport::Message& request);
    // Serves one request of the service to an exported stream; a close withdraws the stream.
    agent::core::transport::Message serveStream(const boost::uuids::uuid& stream,
                                                const agent::core::transport::Message& request);
    // Takes the callback's record out and withdraws its handler; null when it had none.
    std::shared_ptr<agent::spf::core::ExportedCallbackSharedState> withdrawCallback(const boost::uuids::uuid& callback);

    agent::core::serviceutils::ServiceStub stub;
    agent::core::serviceutils::Context context;
    std::shared_ptr<agent::spf::serialisation::SerialisationCatalogue> catalogue;
    const std::shared_ptr<CallStatistics> statistics;
    std::string contentType;
    bool multipart;

    mutable std::mutex mutex;  // guards valid
    bool valid = true;

    std::mutex callbacksMutex;  // guards removalMethodAddress and exportedCallbacks
    agent::core::transport::Address removalMethodAddress;
    std::map<boost::uuids::uuid, std::shared_ptr<agent::spf::core::ExportedCallbackSharedState>> exportedCallbacks;

    std::mutex streamsMutex;  // guards exportedStreams
    // Shared with the requests being served, so that a withdrawal never frees a device in use.
    std::map<boost::uuids::uuid, std::shared_ptr<agent::spf::streambuf::StreamBuffer>> exportedStreams;
};

}  // namespace agent::spf::legacyservicepublisher
