// What reading a machine costs, with 1,000 to 100,000 devices, beside lsblk on the same directory. The directories are
// written first; TMPDIR=/dev/shm makes that several times as fast.
#include "machine/machine.h"
#include "tests/process.h"

#include <benchmark/benchmark.h>

#include <malloc.h>

#include <cstdlib>
#include <map>
#include <memory>
#include <string>

using namespace kivclaim::machine;

namespace {

constexpr std::int64_t devicesOfTheGoals = 2042;

// Written once, removed at the end.
const std::string& machineOf(std::int64_t devices)
{
    static std::map<std::int64_t, std::unique_ptr<tests::TemporaryFolder>> machines;
    std::unique_ptr<tests::TemporaryFolder>& folder = machines[devices];
    if (folder == nullptr) {
        folder = std::make_unique<tests::TemporaryFolder>();
        const tests::Ended ended =
            tests::Process(KIVCLAIM_MACHINE_GENERATOR, {folder->path(), std::to_string(devices)}).run();
        if (ended.status != 0) {
            std::fputs(ended.errors.c_str(), stderr);
            std::exit(1);
        }
    }
    return folder->path();
}

void readFacts(benchmark::State& state, Facts facts)
{
    const Root root = Root::recorded(machineOf(state.range(0)));
    std::size_t bytes = 0;
    for (auto _ : state) {
        const std::size_t before = mallinfo2().uordblks + mallinfo2().hblkhd;
        const Machine machine = Machine::read(root, facts);
        bytes = mallinfo2().uordblks + mallinfo2().hblkhd - before;
        benchmark::DoNotOptimize(machine.devices().data());
    }
    state.counters["bytes/device"] = static_cast<double>(bytes) / static_cast<double>(state.range(0));
    state.SetComplexityN(state.range(0));
}

void readNamesAndStacks(benchmark::State& state)
{
    readFacts(state, stacking);
}
BENCHMARK(readNamesAndStacks)
    ->Arg(devicesOfTheGoals)
    ->Arg(1000)
    ->Arg(10000)
    ->Arg(100000)
    ->Unit(benchmark::kMillisecond)
    ->Complexity(benchmark::oN);

void readNumbersSizesAndTypes(benchmark::State& state)
{
    readFacts(state, numbers | sizes | types);
}
BENCHMARK(readNumbersSizesAndTypes)->Arg(devicesOfTheGoals)->Unit(benchmark::kMillisecond);

void readAllFacts(benchmark::State& state)
{
    readFacts(state, allFacts);
}
BENCHMARK(readAllFacts)
    ->Arg(devicesOfTheGoals)
    ->Arg(1000)
    ->Arg(10000)
    ->Arg(100000)
    ->Unit(benchmark::kMillisecond)
    ->Complexity(benchmark::oN);

void lsblk(benchmark::State& state, const std::vector<std::string>& columns)
{
    std::vector<std::string> arguments = {"--sysroot", machineOf(devicesOfTheGoals)};
    arguments.insert(arguments.end(), columns.begin(), columns.end());
    for (auto _ : state) {
        if (tests::Process("/usr/bin/lsblk", arguments).run().status != 0) {
            state.SkipWithError("lsblk failed");
        }
    }
}
BENCHMARK_CAPTURE(lsblk, fourColumns, {"-o", "NAME,MAJ:MIN,SIZE,TYPE"})->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(lsblk, allColumns, {"-O"})->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
