// The command runner against the other ways of running a command, in one run: starting a command from a small and from
// a large process, and taking in a large output.
#include "framework/cfiexecpipe.h"

#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <string>
#include <vector>

namespace {

constexpr char smallCommand[] = "/bin/true";
constexpr std::size_t lineBytes = 80;
constexpr std::size_t outputBytes = 1000UL * 1000 * 1000;
const std::string largeCommand = KIVCLAIM_LINE_WRITER " " + std::to_string(outputBytes / lineBytes);

// Memory that the process uses beside: as many GiB as the benchmark's argument says, in pages of the smallest size.
class UsedMemory {
public:
    explicit UsedMemory(std::int64_t gibibytes) : size(static_cast<std::size_t>(gibibytes) << 30)
    {
        if (size == 0) {
            return;
        }
        memory = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (memory == MAP_FAILED || ::madvise(memory, size, MADV_NOHUGEPAGE) != 0 ||
            ::madvise(memory, size, MADV_POPULATE_WRITE) != 0) {
            std::perror("no memory to use");
            std::abort();
        }
    }
    UsedMemory(const UsedMemory&) = delete;
    UsedMemory& operator=(const UsedMemory&) = delete;
    ~UsedMemory()
    {
        if (size != 0) {
            ::munmap(memory, size);
        }
    }

private:
    std::size_t size;
    void* memory = nullptr;
};

void require(bool condition, const char* what)
{
    if (!condition) {
        std::perror(what);
        std::abort();
    }
}

void readToItsEnd(int descriptor)
{
    char buffer[4096];
    while (::read(descriptor, buffer, sizeof buffer) > 0) {
    }
    ::close(descriptor);
}

void awaitSuccess(pid_t process)
{
    int status = -1;
    require(::waitpid(process, &status, 0) == process && status == 0, "the command failed");
}

void runByRunner(const std::string& command, std::vector<std::string>& lines)
{
    ztfi_pdk_4_4::CFiExecPipePosix runner(1);
    require(runner.Exec(command, lines, "", 0, "", "", "") == 0, "the command failed");
}

void runByRunner()
{
    std::vector<std::string> lines;
    runByRunner(smallCommand, lines);
}

// The least that starting a program and reading its output takes.
void runByBareSpawn()
{
    int ends[2];
    require(::pipe2(ends, O_CLOEXEC) == 0, "no pipe");
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    char program[] = "/bin/true";
    char* arguments[] = {program, nullptr};
    pid_t process = 0;
    require(::posix_spawn(&process, program, &actions, nullptr, arguments, environ) == 0, "no process");
    ::posix_spawn_file_actions_destroy(&actions);
    ::close(ends[1]);
    readToItsEnd(ends[0]);
    awaitSuccess(process);
}

void runByPopen()
{
    std::FILE* const pipe = ::popen(smallCommand, "re");
    require(pipe != nullptr, "no process");
    char buffer[4096];
    while (std::fread(buffer, 1, sizeof buffer, pipe) > 0) {
    }
    require(::pclose(pipe) == 0, "the command failed");
}

void runByFork()
{
    int ends[2];
    require(::pipe2(ends, O_CLOEXEC) == 0, "no pipe");
    const pid_t process = ::fork();
    require(process >= 0, "no process");
    if (process == 0) {
        ::dup2(ends[1], STDOUT_FILENO);
        ::execl(smallCommand, smallCommand, nullptr);
        ::_exit(127);
    }
    ::close(ends[1]);
    readToItsEnd(ends[0]);
    awaitSuccess(process);
}

// One way of running the small command, with the time that each of its runs took, and what of it this process computed
// itself, its children left out.
struct Way {
    const char* name;
    void (*run)();
    std::vector<double> microseconds;
    std::vector<double> ownMicroseconds;
};

double ownTime()
{
    timespec time{};
    ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_nsec) / 1e3;
}

double medianOf(std::vector<double> values)
{
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

void measure(Way& way)
{
    const double ownStart = ownTime();
    const auto start = std::chrono::steady_clock::now();
    way.run();
    const std::chrono::duration<double, std::micro> time = std::chrono::steady_clock::now() - start;
    way.microseconds.push_back(time.count());
    way.ownMicroseconds.push_back(ownTime() - ownStart);
}

void compare(benchmark::State& state, const Way& runner, const Way& other)
{
    const double median = medianOf(other.microseconds);
    state.counters[std::string(other.name) + "_us"] = median;
    state.counters[std::string("runner/") + other.name] = medianOf(runner.microseconds) / median;
}

// The ways take turns, so that whatever else the machine does meets them alike. Forking comes after all of them: it
// leaves the process pages that the next one would have to copy. What counts is the medians and their ratios.
void startCommand(benchmark::State& state)
{
    constexpr int forks = 50;
    const UsedMemory memory(state.range(0));
    Way runner{"runner", &runByRunner, {}, {}};
    Way spawn{"spawn", &runByBareSpawn, {}, {}};
    Way popen{"popen", &runByPopen, {}, {}};
    Way fork{"fork", &runByFork, {}, {}};
    for (auto _ : state) {
        measure(runner);
        measure(spawn);
        measure(popen);
    }
    for (int i = 0; i < forks; ++i) {
        measure(fork);
    }
    state.counters["runner_us"] = medianOf(runner.microseconds);
    state.counters["runner_own_us"] = medianOf(runner.ownMicroseconds);
    state.counters["runner/spawn_own"] = medianOf(runner.ownMicroseconds) / medianOf(spawn.ownMicroseconds);
    compare(state, runner, spawn);
    compare(state, runner, popen);
    compare(state, runner, fork);
}

BENCHMARK(startCommand)->ArgName("GiB")->Arg(0)->Arg(4)->Iterations(2000)->UseRealTime();

void requireAllLines(const std::vector<std::string>& lines)
{
    require(lines.size() == outputBytes / lineBytes && lines.back().size() == lineBytes - 1, "lines are missing");
}

void readLines(const std::string& path, std::vector<std::string>& lines)
{
    std::ifstream stream(path);
    std::string line;
    while (std::getline(stream, line)) {
        lines.push_back(line);
    }
}

void takeOutputByRunner()
{
    std::vector<std::string> lines;
    runByRunner(largeCommand, lines);
    requireAllLines(lines);
}

void takeOutputByGetlineFromPipe()
{
    std::FILE* const pipe = ::popen(largeCommand.c_str(), "re");
    require(pipe != nullptr, "no process");
    std::vector<std::string> lines;
    readLines("/dev/fd/" + std::to_string(::fileno(pipe)), lines);
    require(::pclose(pipe) == 0, "the command failed");
    requireAllLines(lines);
}

char outputFile[] = "/tmp/exec_pipe_bench.XXXXXX";

void writeOutputFile()
{
    const int file = ::mkstemp(outputFile);
    require(file >= 0, "no file");
    ::close(file);
    require(std::system((largeCommand + " >" + outputFile).c_str()) == 0, "the command failed");
}

// Without a process that writes meanwhile, and from the page cache: what reading alone takes.
void takeOutputByGetlineFromFile()
{
    std::vector<std::string> lines;
    readLines(outputFile, lines);
    requireAllLines(lines);
}

// The ways take turns here too.
void takeOutput(benchmark::State& state)
{
    Way runner{"runner", &takeOutputByRunner, {}, {}};
    Way pipe{"getline_pipe", &takeOutputByGetlineFromPipe, {}, {}};
    Way file{"getline_file", &takeOutputByGetlineFromFile, {}, {}};
    writeOutputFile();
    for (auto _ : state) {
        measure(runner);
        measure(pipe);
        measure(file);
    }
    ::unlink(outputFile);
    state.counters["runner_us"] = medianOf(runner.microseconds);
    compare(state, runner, pipe);
    compare(state, runner, file);
}

BENCHMARK(takeOutput)->Unit(benchmark::kMillisecond)->Iterations(9)->UseRealTime();

}  // namespace
