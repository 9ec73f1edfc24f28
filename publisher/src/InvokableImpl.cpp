#include "agent/spf/legacyservicepublisher/InvokableImpl.h"

#include "CurrentExceptionMessage.h"
#include "LegacyMessageFraming.h"

#include "agent/spf/core/ExportedCallback.h"
#include "agent/spf/core/ExportedCallbackReference.h"
#include "agent/spf/core/ExportedDataSink.h"
#include "agent/spf/core/ExportedDataSource.h"
#include "agent/spf/legacyservicepublisher/Logger.h"
#include "agent/spf/serialisation/avro/Avro.h"

#include "foundation/log/Severity.h"

#include <stdexcept>
#include <utility>

namespace agent::spf::legacyservicepublisher {

using agent::core::transport::Address;
using agent::core::transport::Message;
using agent::spf::core::CompletionHandler;
using agent::spf::core::ExportedCallbackSharedState;
using agent::spf::core::GenericPayload;

namespace {

const std::string kDefaultWireFormat = "application/octet-stream+spf/avro+spf/multipart";
const std::string kMultipartSuffix = "+spf/multipart";
const char* const kNoLongerValid = "Service is no longer valid";
const char* const kStreamGone = "Exported stream is no longer active";

// Exported callbacks always speak Avro, whatever the service's own wire format.
const std::string& callbackContentType() {
    return agent::spf::serialisation::avroContentType;
}

// Hands the failure over outside any catch block: the last reference to the exception is then
// dropped by the exception_ptr, not by the end of a catch, whichever thread holds the other.
// Nothing leaves: a failure function that throws has completed the call all the same.
void fail(const CompletionHandler& handler, std::exception_ptr failure) noexcept {
    try {
        handler(std::move(failure));
    } catch (...) {
    }
}

template <class Exported, class Replace>
void replaceEach(GenericPayload& args, const Replace& replace) {
    for (std::size_t i = 0; i < args.size(); ++i) {
        if (!args.isEmptyAt(i) && args.holds<Exported>(i)) {
            args.set(i, replace(args.get<Exported>(i)));
        }
    }
}

}  // namespace

InvokableImpl::InvokableImpl(agent::core::serviceutils::ServiceStub stub, agent::core::serviceutils::Context context,
                             std::shared_ptr<agent::spf::serialisation::SerialisationCatalogue> catalogue,
                             std::shared_ptr<CallStatistics> statistics)
    : stub(std::move(stub)),
      context(std::move(context)),
      catalogue(std::move(catalogue)),
      statistics(std::move(statistics)),
      multipart(false) {
    const auto wireFormat = this->stub.getMetadata("spf.wireFormat").value_or(kDefaultWireFormat);
    const auto suffix = wireFormat.find(kMultipartSuffix);
    multipart = suffix != std::string::npos;
    contentType = multipart ? wireFormat.substr(0, suffix) : wireFormat;
}

InvokableImpl::~InvokableImpl() {
    forceCleanup();
}

std::vector<std::string> InvokableImpl::getSupportedNames() const {
    std::lock_guard<std::mutex> lock(mutex);
    if (!valid) {
        throw std::runtime_error(kNoLongerValid);
    }
    std::vector<std::string> names;
    for (const auto& method : stub.getMethods()) {
        names.push_back(method.first);
    }
    return names;
}

void InvokableImpl::invokeAsync(std::optional<std::chrono::milliseconds> timeout, std::string name,
                                CompletionHandler handler, GenericPayload args) {
    // Copies share one completion, so this one can still fail the call once the other has moved.
    const CompletionHandler failure = handler;
    const auto started = std::chrono::steady_clock::now();
    try {
        std::lock_guard<std::mutex> lock(mutex);
        if (!valid) {
            throw std::runtime_error(kNoLongerValid);
        }
        // The pool's work items must be copyable; the arguments may not be.
        auto arguments = std::make_shared<GenericPayload>(std::move(args));
        context.getThreadPool().postWork(
            [self = shared_from_this(), timeout, name = std::move(name), handler = std::move(handler), arguments,
             started] { self->invoke(timeout, name, handler, *arguments, started); });
    } catch (...) {
        count(CallStatistics::Outcome::failed, started);
        fail(failure, std::current_exception());
    }
}

void InvokableImpl::count(CallStatistics::Outcome outcome, std::chrono::steady_clock::time_point started) const noexcept {
    if (statistics) {
        statistics->record(outcome, std::chrono::steady_clock::now() - started);
    }
}

void InvokableImpl::invoke(const std::optional<std::chrono::milliseconds>& timeout, const std::string& name,
                           const CompletionHandler& handler, GenericPayload& args,
                           std::chrono::steady_clock::time_point started) {
    std::exception_ptr failure;
    auto outcome = CallStatistics::Outcome::failed;
    try {
        handleAnyExportedCallbacksInArgs(args);
        handleAnyExportedDataSinkInArgs(args);
        handleAnyExportedDataSourceInArgs(args);
        const auto method = stub.getMethod(name);
        auto request = LegacyMessageFraming::frameRequest(std::move(args), *catalogue, contentType, multipart);
        auto reply = method(std::move(request));
        const auto deserialiser = catalogue->getDeserialiser(contentType, handler.getReturnTypeID());
        if (timeout) {
            const auto deadline = std::chrono::steady_clock::now() + *timeout;
            if (reply.wait_until(deadline) == std::future_status::timeout) {
                outcome = CallStatistics::Outcome::timedOut;
                throw std::runtime_error("Timeout");
            }
        }
        const auto message = reply.get();
        auto result = LegacyMessageFraming::readReply(message.makeView(0, 0), deserialiser, multipart);
        count(CallStatistics::Outcome::succeeded, started);
        outcome = CallStatistics::Outcome::succeeded;
        handler(std::move(result));
        return;
    } catch (...) {
        failure = std::current_exception();
    }
    if (outcome != CallStatistics::Outcome::succeeded) {  // a handler that throws was counted already
        count(outcome, started);
    }
    fail(handler, std::move(failure));
}

void InvokableImpl::forceCleanup() noexcept {
    {
        std::lock_guard<std::mutex> lock(mutex);
        if (!valid) {
            return;
        }
        valid = false;
    }
    auto* transport = context.getTransport();
    Address removal;
    std::map<boost::uuids::uuid, std::shared_ptr<ExportedCallbackSharedState>> callbacks;
    {
        std::lock_guard<std::mutex> lock(callbacksMutex);
        std::swap(removal, removalMethodAddress);
        callbacks.swap(exportedCallbacks);
    }
    if (transport && removal.isValid()) {
        transport->unregisterHandler(removal);
    }
    for (const auto& callback : callbacks) {
        try {
            if (transport) {
                transport->unregisterHandler(Address(callback.first));
            }
            callback.second->serviceSideHasRemovedCallback();
        } catch (...) {
            // One callback that cannot be withdrawn must not keep the others registered.
        }
    }
    std::map<boost::uuids::uuid, std::shared_ptr<streambuf::StreamBuffer>> streams;
    {
        std::lock_guard<std::mutex> lock(streamsMutex);
        streams.swap(exportedStreams);
    }
    for (const auto& stream : streams) {
        try {
            if (transport) {
                transport->unregisterHandler(Address(stream.first));
            }
        } catch (...) {
        }
    }
    streams.clear();  // releases the devices: sinks are flushed
    if (transport) {
        transport->rejectRequestsFor(context.getServiceInstance());
    }
    try {
        context.getThreadPool().wait();
    } catch (const std::logic_error&) {
        // Called from one of this invokable's own calls (a handler giving the invokable back):
        // that call cannot be waited for from inside, and the others still end on their own.
    }
}

void InvokableImpl::handleAnyExportedCallbacksInArgs(GenericPayload& args) {
    for (std::size_t i = 0; i < args.size(); ++i) {
        if (args.isEmptyAt(i) || !args.holds<agent::spf::core::ExportedCallback>(i)) {
            continue;
        }
        auto state = args.get<agent::spf::core::ExportedCallback>(i).getSharedState();
        const auto id = state->getCallbackUUID();
        auto* transport = context.getTransport();
        if (!transport) {
            throw std::runtime_error(kNoLongerValid);
        }
        const std::weak_ptr<InvokableImpl> weak = weak_from_this();
        Address removal;
        {
            std::lock_guard<std::mutex> lock(callbacksMutex);
            removal = ensureRemovalMethodIsRegistered();
            transport->registerHandler(
                Address(id),
                [weak, state](const Message& request) {
                    const auto self = weak.lock();
                    if (!self) {
                        throw std::runtime_error("Exported callback is no longer active");
                    }
                    return self->serveCallback(state, request);
                },
                context.getServiceInstance());
            exportedCallbacks[id] = state;
        }
        state->setLastInvokeHandler([weak, id] {
            if (const auto self = weak.lock()) {
                self->clientSideHasRemovedCallback(id);
            }
        });
        state->setClientSideRemovedHandler([weak, id] {
            if (const auto self = weak.lock()) {
                self->clientSideHasRemovedCallback(id);
            }
        });
        args.set(i, agent::spf::core::ExportedCallbackReference{id, removal.getUUID()});
    }
}

void InvokableImpl::handleAnyExportedDataSinkInArgs(GenericPayload& args) {
    replaceEach<agent::spf::core::ExportedDataSink>(args, [this](const agent::spf::core::ExportedDataSink& sink) {
        return returnMessageBytesForStreamMarkerTypes(context.generateUUID(),
                                                      streambuf::makeDevice(sink.getExportedOutputStream()));
    });
}

void InvokableImpl::handleAnyExportedDataSourceInArgs(GenericPayload& args) {
    replaceEach<agent::spf::core::ExportedDataSource>(args, [this](const agent::spf::core::ExportedDataSource& source) {
        return returnMessageBytesForStreamMarkerTypes(context.generateUUID(),
                                                      streambuf::makeDevice(source.getExportedInputStream()));
    });
}

agent::spf::core::ExportedStreamReference InvokableImpl::returnMessageBytesForStreamMarkerTypes(
    const boost::uuids::uuid& stream, std::unique_ptr<streambuf::StreamBuffer> device) {
    auto* transport = context.getTransport();
    if (!transport) {
        throw std::runtime_error(kNoLongerValid);
    }
    const std::weak_ptr<InvokableImpl> weak = weak_from_this();
    std::lock_guard<std::mutex> lock(streamsMutex);
    transport->registerHandler(
        Address(stream),
        [weak, stream](const Message& request) {
            const auto self = weak.lock();
            if (!self) {
                throw std::runtime_error(kStreamGone);
            }
            return self->serveStream(stream, request);
        },
        context.getServiceInstance());
    exportedStreams[stream] = std::move(device);
    return agent::spf::core::ExportedStreamReference{stream};
}

Message InvokableImpl::serveStream(const boost::uuids::uuid& stream, const Message& request) {
    std::shared_ptr<streambuf::StreamBuffer> device;
    {
        std::lock_guard<std::mutex> lock(streamsMutex);
        const auto found = exportedStreams.find(stream);
        if (found == exportedStreams.end()) {
            throw std::runtime_error(kStreamGone);
        }
        device = found->second;
    }
    auto reply = device->serve(request);
    if (device->isClosed()) {
        bool withdrawn = false;
        {
            std::lock_guard<std::mutex> lock(streamsMutex);
            withdrawn = exportedStreams.erase(stream) != 0;
        }
        auto* transport = context.getTransport();
        if (withdrawn && transport) {
            transport->unregisterHandler(Address(stream));
        }
    }
    return reply;
}

Address InvokableImpl::ensureRemovalMethodIsRegistered() {
    if (!removalMethodAddress.isValid()) {
        const Address address(context.generateUUID());
        const std::weak_ptr<InvokableImpl> weak = weak_from_this();
        context.getTransport()->registerHandler(
            address,
            [weak](const Message& request) {
                const auto self = weak.lock();
                if (!self) {
                    throw std::runtime_error(kNoLongerValid);
                }
                return self->serveRemoval(request);
            },
            context.getServiceInstance());
        removalMethodAddress = address;
    }
    return removalMethodAddress;
}

Message InvokableImpl::serveCallback(const std::shared_ptr<ExportedCallbackSharedState>& callback,
                                     const Message& request) const {
    auto arguments = LegacyMessageFraming::readRequest(request, callback->getImplementation().argumentTypes(),
                                                       *catalogue, callbackContentType());
    return LegacyMessageFraming::frameReply(callback->invoke(std::move(arguments)), *catalogue,
                                            callbackContentType());
}

Message InvokableImpl::serveRemoval(const Message& request) {
    auto arguments =
        LegacyMessageFraming::readRequest(request, {typeid(boost::uuids::uuid)}, *catalogue, callbackContentType());
    serviceSideHasRemovedCallback(arguments.get<boost::uuids::uuid>(0));
    return LegacyMessageFraming::frameReply(GenericPayload(), *catalogue, callbackContentType());
}

std::shared_ptr<ExportedCallbackSharedState> InvokableImpl::withdrawCallback(const boost::uuids::uuid& callback) {
    std::shared_ptr<ExportedCallbackSharedState> state;
    {
        std::lock_guard<std::mutex> lock(callbacksMutex);
        const auto found = exportedCallbacks.find(callback);
        if (found == exportedCallbacks.end()) {
            return nullptr;
        }
        state = std::move(found->second);
        exportedCallbacks.erase(found);
    }
    if (auto* transport = context.getTransport()) {
        transport->unregisterHandler(Address(callback));
    }
    return state;
}

void InvokableImpl::serviceSideHasRemovedCallback(const boost::uuids::uuid& callback) {
    if (const auto state = withdrawCallback(callback)) {
        state->serviceSideHasRemovedCallback();
    }
}

void InvokableImpl::clientSideHasRemovedCallback(const boost::uuids::uuid& callback) {
    if (!withdrawCallback(callback)) {
        return;
    }
    const auto method = stub.getMethod(agent::spf::core::kCallbackRemovalMethodUUID);
    if (!method) {
        return;  // the service does not ask to hear of removals
    }
    try {
        auto notice = LegacyMessageFraming::frameRequest(GenericPayload::make(callback), *catalogue,
                                                         callbackContentType(), true);
        // Told from the pool, so that a client removing a callback never waits for the service;
        // posted under `mutex`, so that forceCleanup waits for it.
        auto request = std::make_shared<Message>(std::move(notice));
        std::lock_guard<std::mutex> lock(mutex);
        if (!valid) {
            return;
        }
        context.getThreadPool().postWork([method, request] {
            auto reply = method(std::move(*request));
            reply.wait();
        });
    } catch (...) {
        logCurrentException(foundation::log::severity::warning,
                            "Unable to tell the service that an exported callback was removed");
    }
}

}  // namespace agent::spf::legacyservicepublisher
