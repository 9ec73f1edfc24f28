// One call in flight, echo of 1 B, 1 KiB and 64 KiB:
//   RawPair1RoundTrip   nng pair1 socket pair, one echo thread, no broker
//   RawReqRepRoundTrip  nng REQ/REP socket pair, one echo thread, no broker
//   NngDeviceRoundTrip  REQ → nng's own forwarder (raw REP | raw REQ) → echo REP: a broker
//                       with none of our code, the floor for the exchange
//   Pair1ForwarderRoundTrip  pair1 → a forwarding thread each way → pair1 echo: a broker
//                       without the raw protocols' queues, one client and one server only
//   ExchangeRoundTrip   container → exchange → container handler → exchange → container
// on inproc:// and ipc://. bench/ratios.py prints ExchangeRoundTrip over each raw row of the
// same transport and size; the target is at most 2.2 times the pair1 round trip.

#include "agent/core/container/ServiceContainer.h"
#include "agent/nanomsgtransport/Exchange.h"
#include "agent/nanomsgtransport/NanomsgTransport.h"

#include "foundation/log/Sink.h"

#include <benchmark/benchmark.h>
#include <boost/uuid/random_generator.hpp>
#include <nng/nng.h>
#include <nng/protocol/pair1/pair.h>
#include <nng/protocol/reqrep0/rep.h>
#include <nng/protocol/reqrep0/req.h>

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>

namespace {

using namespace std::chrono_literals;
using agent::core::transport::Address;
using agent::core::transport::Message;

std::string url(std::int64_t transport, const char* name) {
    static std::atomic<int> counter{0};
    const auto n = std::to_string(::getpid()) + "-" + std::to_string(counter++);
    return transport == 0 ? std::string("inproc://bench-") + name + n
                          : std::string("ipc:///tmp/bench-") + name + n + ".sock";
}

// Echoes `size`-byte messages from `client` through `server`, which an echo thread answers.
// `server` listens on `address` unless it is already connected (listen = false).
void RawRoundTrip(benchmark::State& state, nng_socket server, nng_socket client, const std::string& address,
                  bool listen = true) {
    if (listen) {
        nng_listen(server, address.c_str(), nullptr, 0);
    }
    nng_dial(client, address.c_str(), nullptr, 0);
    std::thread echo([&] {
        nng_msg* msg = nullptr;
        while (nng_recvmsg(server, &msg, 0) == 0) {
            if (nng_sendmsg(server, msg, 0) != 0) {
                nng_msg_free(msg);
            }
        }
    });
    const auto size = static_cast<std::size_t>(state.range(1));
    std::string payload(size, 'x');
    for (auto _ : state) {
        nng_msg* msg = nullptr;
        nng_msg_alloc(&msg, 0);
        nng_msg_append(msg, payload.data(), payload.size());
        nng_sendmsg(client, msg, 0);
        nng_recvmsg(client, &msg, 0);
        benchmark::DoNotOptimize(nng_msg_len(msg));
        nng_msg_free(msg);
    }
    nng_close(client);
    nng_close(server);
    echo.join();
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * size * 2));
}

// A round trip between a fresh `openServer` socket and a fresh `openClient` one, no broker.
void RawSocketRoundTrip(benchmark::State& state, int (*openServer)(nng_socket*), int (*openClient)(nng_socket*),
                        const char* name) {
    nng_socket server;
    nng_socket client;
    openServer(&server);
    openClient(&client);
    RawRoundTrip(state, server, client, url(state.range(0), name));
}

void RawPair1RoundTrip(benchmark::State& state) {
    RawSocketRoundTrip(state, nng_pair1_open, nng_pair1_open, "pair");
}

void RawReqRepRoundTrip(benchmark::State& state) {
    RawSocketRoundTrip(state, nng_rep0_open, nng_req0_open, "reqrep");
}

// The floor for any broker on nng: nng's own forwarder (nng_device between a raw REP front
// and a raw REQ back) in the middle, an echo REP server behind it. Same four transits as the
// exchange, none of our code.
void NngDeviceRoundTrip(benchmark::State& state) {
    const auto front = url(state.range(0), "front");
    const auto back = url(state.range(0), "back");
    nng_socket frontSocket;
    nng_socket backSocket;
    nng_rep0_open_raw(&frontSocket);
    nng_req0_open_raw(&backSocket);
    nng_listen(frontSocket, front.c_str(), nullptr, 0);
    nng_listen(backSocket, back.c_str(), nullptr, 0);
    std::thread device([&] { nng_device(frontSocket, backSocket); });
    nng_socket server;
    nng_rep0_open(&server);
    nng_dial(server, back.c_str(), nullptr, 0);
    nng_socket client;
    nng_req0_open(&client);
    RawRoundTrip(state, server, client, front, false);
    nng_close(frontSocket);
    nng_close(backSocket);
    device.join();
}

// A broker on pair1 sockets, one per side, with a thread forwarding each way: what a broker
// that avoids the raw protocols' queue hand-offs could reach, for one client and one server.
void Pair1ForwarderRoundTrip(benchmark::State& state) {
    const auto front = url(state.range(0), "pfront");
    const auto back = url(state.range(0), "pback");
    nng_socket frontSocket;
    nng_socket backSocket;
    nng_pair1_open(&frontSocket);
    nng_pair1_open(&backSocket);
    nng_listen(frontSocket, front.c_str(), nullptr, 0);
    nng_listen(backSocket, back.c_str(), nullptr, 0);
    const auto forward = [](nng_socket from, nng_socket to) {
        nng_msg* msg = nullptr;
        while (nng_recvmsg(from, &msg, 0) == 0) {
            if (nng_sendmsg(to, msg, 0) != 0) {
                nng_msg_free(msg);
            }
        }
    };
    std::thread forwards(forward, frontSocket, backSocket);
    std::thread backwards(forward, backSocket, frontSocket);
    nng_socket server;
    nng_pair1_open(&server);
    nng_dial(server, back.c_str(), nullptr, 0);
    nng_socket client;
    nng_pair1_open(&client);
    RawRoundTrip(state, server, client, front, false);
    nng_close(frontSocket);
    nng_close(backSocket);
    forwards.join();
    backwards.join();
}

std::shared_ptr<agent::core::container::ServiceContainer> container(const std::string& endpoint) {
    auto c = std::make_shared<agent::core::container::ServiceContainer>();
    c->setNewMaximumPoolSize(4);
    c->createTransport(agent::nanomsgtransport::getTransport(*c, 5000ms, 5000ms));
    c->connectTransport(endpoint);
    return c;
}

void ExchangeRoundTrip(benchmark::State& state) {
    agent::nanomsgtransport::Exchange exchange;
    const auto endpoint = exchange.listen(url(state.range(0), "exchange"));
    auto server = container(endpoint);
    auto client = container(endpoint);
    const Address address{boost::uuids::random_generator()()};
    server->getTransport()->registerHandler(address, [](const Message& request) { return request; });
    const auto size = static_cast<std::size_t>(state.range(1));
    const std::string payload(size, 'x');
    for (auto _ : state) {
        auto reply = client->getTransport()->sendRequest(address, Message(std::string_view(payload))).get();
        benchmark::DoNotOptimize(reply.size());
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * size * 2));
}

void sizes(benchmark::internal::Benchmark* b) {
    for (std::int64_t transport : {0, 1}) {
        for (std::int64_t size : {1, 1024, 65536}) {
            b->Args({transport, size});
        }
    }
    b->ArgNames({"ipc", "bytes"})->UseRealTime()->Unit(benchmark::kMicrosecond);
}

}  // namespace

BENCHMARK(RawPair1RoundTrip)->Apply(sizes);
BENCHMARK(RawReqRepRoundTrip)->Apply(sizes);
BENCHMARK(NngDeviceRoundTrip)->Apply(sizes);
BENCHMARK(Pair1ForwarderRoundTrip)->Apply(sizes);
BENCHMARK(ExchangeRoundTrip)->Apply(sizes);

int main(int argc, char** argv) {
    foundation::log::removeSink(foundation::log::defaultStderrSink());
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
