// What a claim costs, and what tracing adds to it.
#include "claim/kiv_claim_manager.h"
#include "host/trace_log.h"
#include "tests/process.h"

#include <benchmark/benchmark.h>

#include <string>

using kivclaim::host::makeTraceLog;
using kivclaim::host::TraceLogPointer;
using kivclaim::host::traceToFile;

namespace {

constexpr std::size_t maximumBytes = 64UL * 1024 * 1024;
constexpr int everything = 6;
constexpr int noDetail = 3;
constexpr int onlyWarnings = 2;

const std::string path = "/dev/emcpowera1";

// A log as a host has one: into a file, rotated.
class FileLog {
public:
    explicit FileLog(int threshold)
        : log(makeTraceLog({traceToFile(threshold, folder.path() + "/bench.log", maximumBytes, 1)}))
    {
    }

private:
    tests::TemporaryFolder folder;

public:
    TraceLogPointer log;
};

void claimThrough(benchmark::State& state, const TraceLogPointer& log)
{
    CKivClaimManager manager;
    manager.registerTraceLog(log);
    for (auto _ : state) {
        benchmark::DoNotOptimize(manager.claim(path));
    }
}

void claimWithoutALog(benchmark::State& state)
{
    claimThrough(state, TraceLogPointer());
}
BENCHMARK(claimWithoutALog);

void claimWithALogThatDropsAll(benchmark::State& state)
{
    const FileLog file(onlyWarnings);
    claimThrough(state, file.log);
}
BENCHMARK(claimWithALogThatDropsAll);

void claimWithALogThatDropsDetail(benchmark::State& state)
{
    const FileLog file(noDetail);
    claimThrough(state, file.log);
}
BENCHMARK(claimWithALogThatDropsDetail);

void claimWithALogThatKeepsAll(benchmark::State& state)
{
    const FileLog file(everything);
    claimThrough(state, file.log);
}
BENCHMARK(claimWithALogThatKeepsAll);

void scopeTracer(benchmark::State& state, const TraceLogPointer& log)
{
    for (auto _ : state) {
        const ztfi_pdk_4_4::CFiTraceLogFunction scope(log, "claim", 1, "bench/claim_bench.cpp");
        benchmark::DoNotOptimize(&scope);
    }
}

void scopeTracerWithoutALog(benchmark::State& state)
{
    scopeTracer(state, TraceLogPointer());
}
BENCHMARK(scopeTracerWithoutALog);

void scopeTracerWithALogThatDropsDetail(benchmark::State& state)
{
    const FileLog file(noDetail);
    scopeTracer(state, file.log);
}
BENCHMARK(scopeTracerWithALogThatDropsDetail);

void scopeTracerWithALogThatKeepsAll(benchmark::State& state)
{
    const FileLog file(everything);
    scopeTracer(state, file.log);
}
BENCHMARK(scopeTracerWithALogThatKeepsAll);

void trace(benchmark::State& state, int threshold)
{
    const FileLog file(threshold);
    for (auto _ : state) {
        file.log->trace(everything, "Entering Function %s [%d, %s]", "claim", 1, "claim_bench.cpp");
    }
}

void logDropped(benchmark::State& state)
{
    trace(state, noDetail);
}
BENCHMARK(logDropped);

void logKept(benchmark::State& state)
{
    trace(state, everything);
}
BENCHMARK(logKept);

void commandOnAMillionPaths(benchmark::State& state)
{
    constexpr int million = 1000000;
    std::string input;
    for (int i = 0; i < million; ++i) {
        input += "/dev/emcpowera" + std::to_string(i) + "\n";
    }
    for (auto _ : state) {
        const tests::Ended ended = tests::Process(KIVCLAIM_COMMAND, {"claim", "-"}).reads(input).run();
        if (ended.status != 0) {
            state.SkipWithError("the command failed");
        }
    }
    state.SetItemsProcessed(state.iterations() * million);
}
BENCHMARK(commandOnAMillionPaths)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
