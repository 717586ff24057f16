// What `kivclaim list` costs as a process, in turns with lsblk on the same directory, and how its cost and memory grow
// with the machine. The directories are written first; TMPDIR=/dev/shm makes that several times as fast.
//
// "ratio" is the time of the list, or of the audit, by that of lsblk; the shortest of each are the least disturbed by
// other processes. The goals: at most 0.25 for the list, 0.6 for all columns, 0.4 for the audit, and for 100,000
// devices 2 s and 2 KiB a device.
#include <benchmark/benchmark.h>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <fcntl.h>

namespace {

constexpr std::int64_t devicesOfTheGoals = 2042;

struct Cost {
    double seconds = 0;
    double processorSeconds = 0;
    double kibibytes = 0;
};

double secondsOf(const timeval& time)
{
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

[[noreturn]] void become(std::vector<std::string> words)
{
    std::vector<char*> arguments(words.size() + 1);  // the last one is null
    std::transform(words.begin(), words.end(), arguments.begin(), [](std::string& word) { return word.data(); });
    const int nothing = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    ::dup2(nothing, STDOUT_FILENO);
    ::dup2(nothing, STDERR_FILENO);
    ::execv(arguments[0], arguments.data());
    ::_exit(127);
}

Cost run(const std::vector<std::string>& words)
{
    const auto start = std::chrono::steady_clock::now();
    const pid_t child = ::fork();
    if (child == 0) {
        become(words);
    }
    int status = -1;
    rusage usage{};
    if (::wait4(child, &status, 0, &usage) != child || status != 0) {
        std::fprintf(stderr, "%s failed\n", words[0].c_str());
        std::exit(1);
    }
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
    return {elapsed.count(), secondsOf(usage.ru_utime) + secondsOf(usage.ru_stime),
            static_cast<double>(usage.ru_maxrss)};
}

// A machine in a directory, removed at the end.
class RecordedMachine {
public:
    explicit RecordedMachine(std::int64_t devices)
        : place(std::filesystem::temp_directory_path() /
                ("list_bench." + std::to_string(::getpid()) + "." + std::to_string(devices)))
    {
        run({KIVCLAIM_MACHINE_GENERATOR, place, std::to_string(devices)});
    }
    ~RecordedMachine() { std::filesystem::remove_all(place); }
    RecordedMachine(const RecordedMachine&) = delete;
    RecordedMachine& operator=(const RecordedMachine&) = delete;

    const std::string& path() const { return place; }

private:
    std::string place;
};

// Written once.
const std::string& machineOf(std::int64_t devices)
{
    static std::map<std::int64_t, std::unique_ptr<RecordedMachine>> machines;
    std::unique_ptr<RecordedMachine>& machine = machines[devices];
    if (machine == nullptr) {
        machine = std::make_unique<RecordedMachine>(devices);
    }
    return machine->path();
}

std::vector<std::string> command(std::int64_t devices, const std::vector<std::string>& options)
{
    std::vector<std::string> words = {KIVCLAIM_COMMAND, "--sysroot", machineOf(devices)};
    words.insert(words.end(), options.begin(), options.end());
    return words;
}

void besideLsblk(benchmark::State& state, const std::vector<std::string>& options,
                 const std::vector<std::string>& lsblkOptions)
{
    const std::vector<std::string> ours = command(devicesOfTheGoals, options);
    std::vector<std::string> theirs = {"/usr/bin/lsblk", "--sysroot", machineOf(devicesOfTheGoals)};
    theirs.insert(theirs.end(), lsblkOptions.begin(), lsblkOptions.end());
    Cost list{1e9, 1e9, 0};
    Cost lsblk{1e9, 1e9, 0};
    for (auto _ : state) {
        const Cost one = run(ours);
        const Cost other = run(theirs);
        state.SetIterationTime(one.seconds);
        list = {std::min(list.seconds, one.seconds), std::min(list.processorSeconds, one.processorSeconds), 0};
        lsblk = {std::min(lsblk.seconds, other.seconds), std::min(lsblk.processorSeconds, other.processorSeconds), 0};
    }
    state.counters["list_ms"] = list.seconds * 1e3;
    state.counters["lsblk_ms"] = lsblk.seconds * 1e3;
    state.counters["ratio"] = list.seconds / lsblk.seconds;
    state.counters["cpu_ratio"] = list.processorSeconds / lsblk.processorSeconds;
}
BENCHMARK_CAPTURE(besideLsblk, list, {"list"}, {"-o", "NAME,MAJ:MIN,SIZE,TYPE"})
    ->UseManualTime()
    ->Iterations(20)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(besideLsblk, listTheSameColumns, {"list", "-a", "-o", "DEVICE,MAJ:MIN,SIZE,TYPE"},
                  {"-o", "NAME,MAJ:MIN,SIZE,TYPE"})
    ->UseManualTime()
    ->Iterations(20)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(besideLsblk, listAllColumns, {"list", "-O"}, {"-O"})
    ->UseManualTime()
    ->Iterations(5)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(besideLsblk, audit, {"audit"}, {"-o", "NAME,MAJ:MIN,SIZE,TYPE"})
    ->UseManualTime()
    ->Iterations(20)
    ->Unit(benchmark::kMillisecond);

void byDevices(benchmark::State& state, const std::vector<std::string>& options)
{
    const std::vector<std::string> words = command(state.range(0), options);
    double kibibytes = 0;
    for (auto _ : state) {
        const Cost cost = run(words);
        kibibytes = cost.kibibytes;
        state.SetIterationTime(cost.processorSeconds);
    }
    state.counters["KiB/device"] = kibibytes / static_cast<double>(state.range(0));
    state.SetComplexityN(state.range(0));
}
BENCHMARK_CAPTURE(byDevices, list, {"list"})
    ->UseManualTime()
    ->Iterations(3)
    ->Arg(1000)
    ->Arg(10000)
    ->Arg(100000)
    ->Unit(benchmark::kMillisecond)
    ->Complexity(benchmark::oN);
BENCHMARK_CAPTURE(byDevices, listAllColumns, {"list", "-O"})
    ->UseManualTime()
    ->Iterations(3)
    ->Arg(1000)
    ->Arg(10000)
    ->Arg(100000)
    ->Unit(benchmark::kMillisecond)
    ->Complexity(benchmark::oN);
BENCHMARK_CAPTURE(byDevices, luns, {"list", "--luns"})
    ->UseManualTime()
    ->Iterations(3)
    ->Arg(1000)
    ->Arg(10000)
    ->Arg(100000)
    ->Unit(benchmark::kMillisecond)
    ->Complexity(benchmark::oN);

}  // namespace
