// The directory's queries as it fills up: 100, 1,000 and 10,000 instances registered in a
// DirectoryCore (no transport), spread over 100 service names, each with metadata
// {"spf.wireFormat": "avro", "group": "<index % 10>"}.
//   QueryAll          queryByName("*"): every uuid, ordered by name then uuid
//   QueryByName       queryByName("service-42"): one name's instances
//   QueryByMetadata   queryByMetadata("*", {"group": "3"}): a tenth of them
//   LookupByUuid      lookup(uuid, 0.0.0.0) of registered instances, round robin
// items_per_second counts instances returned (queries) or lookups.

#include "agent/directory/DirectoryCore.h"

#include <benchmark/benchmark.h>
#include <boost/uuid/random_generator.hpp>

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace {

using agent::directory::DirectoryCore;

struct FilledDirectory {
    DirectoryCore core;
    std::vector<boost::uuids::uuid> uuids;
};

// One directory per size, kept for the whole run, so registration is not timed.
FilledDirectory& filled(std::int64_t count) {
    static std::map<std::int64_t, std::unique_ptr<FilledDirectory>> directories;
    auto& slot = directories[count];
    if (!slot) {
        slot = std::make_unique<FilledDirectory>();
        boost::uuids::random_generator generator;
        for (std::int64_t i = 0; i < count; ++i) {
            agent::directoryinterfaces::ServiceInstanceInfo info;
            info.name = "service-" + std::to_string(i % 100);
            info.instance = generator();
            info.version = agent::core::serviceutils::APIVersion(1, 2);
            info.metadata = {{"spf.wireFormat", "avro"}, {"group", std::to_string(i % 10)}};
            info.methods = {{"call", agent::core::transport::Address(generator())}};
            slot->uuids.push_back(info.instance);
            slot->core.registerInstance(std::move(info));
        }
    }
    return *slot;
}

void QueryAll(benchmark::State& state) {
    auto& directory = filled(state.range(0));
    std::size_t returned = 0;
    for (auto _ : state) {
        auto found = directory.core.queryByName("*");
        returned += found.size();
        benchmark::DoNotOptimize(found.data());
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(returned));
}

void QueryByName(benchmark::State& state) {
    auto& directory = filled(state.range(0));
    std::size_t returned = 0;
    for (auto _ : state) {
        auto found = directory.core.queryByName("service-42");
        returned += found.size();
        benchmark::DoNotOptimize(found.data());
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(returned));
}

void QueryByMetadata(benchmark::State& state) {
    auto& directory = filled(state.range(0));
    const DirectoryCore::Metadata wanted{{"group", "3"}};
    std::size_t returned = 0;
    for (auto _ : state) {
        auto found = directory.core.queryByMetadata("*", wanted);
        returned += found.size();
        benchmark::DoNotOptimize(found.data());
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(returned));
}

void LookupByUuid(benchmark::State& state) {
    auto& directory = filled(state.range(0));
    const agent::core::serviceutils::APIVersion any;
    std::size_t next = 0;
    for (auto _ : state) {
        auto found = directory.core.lookup(directory.uuids[next], any);
        benchmark::DoNotOptimize(found);
        next = (next + 1) % directory.uuids.size();
    }
    state.SetItemsProcessed(state.iterations());
}

BENCHMARK(QueryAll)->Arg(100)->Arg(1000)->Arg(10000)->Unit(benchmark::kMicrosecond);
BENCHMARK(QueryByName)->Arg(100)->Arg(1000)->Arg(10000)->Unit(benchmark::kMicrosecond);
BENCHMARK(QueryByMetadata)->Arg(100)->Arg(1000)->Arg(10000)->Unit(benchmark::kMicrosecond);
BENCHMARK(LookupByUuid)->Arg(100)->Arg(1000)->Arg(10000)->Unit(benchmark::kNanosecond);

}  // namespace

BENCHMARK_MAIN();
