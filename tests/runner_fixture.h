// The fixture of all tests of the command runner: checks that a run leaves no descriptor and no child.
#ifndef KIVCLAIM_TESTS_RUNNER_FIXTURE_H
#define KIVCLAIM_TESTS_RUNNER_FIXTURE_H

#include "framework/cfiexecpipe.h"
#include "host/runner/command_run.h"
#include "tests/process_status.h"

#include <dirent.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <iterator>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

// How many times longer everything may take than natively: under an emulator, a child needs longer for its first steps.
#if defined(KIVCLAIM_TEST_SLOWNESS)
constexpr int slowness = KIVCLAIM_TEST_SLOWNESS;
#else
constexpr int slowness = 1;
#endif

inline const std::string probe = KIVCLAIM_COMMAND_PROBE;

inline std::set<int> openDescriptors()
{
    std::set<int> descriptors;
    DIR* const directory = ::opendir("/proc/self/fd");
    while (const dirent* const entry = ::readdir(directory)) {
        if (entry->d_name[0] != '.') {
            descriptors.insert(std::atoi(entry->d_name));
        }
    }
    descriptors.erase(::dirfd(directory));
    ::closedir(directory);
    return descriptors;
}

// Does not collect the child, and sees every kind of child.
inline bool hasNoChildren()
{
    siginfo_t information;
    return ::waitid(P_ALL, 0, &information, WEXITED | WNOHANG | WNOWAIT | __WALL) == -1 && errno == ECHILD;
}

class RunnerTest : public testing::Test {
protected:
    RunnerTest() : descriptorsBefore(openDescriptors()) { EXPECT_TRUE(hasNoChildren()); }
    ~RunnerTest() override
    {
        EXPECT_EQ(openDescriptors(), descriptorsBefore);
        EXPECT_TRUE(hasNoChildren());
    }

private:
    std::set<int> descriptorsBefore;
};

using Lines = std::vector<std::string>;

// One Exec and its outcome.
struct Outcome {
    Lines lines;
    int result = 0;
    bool wasThrown = false;
    ztfi_pdk_4_4::EFiExecPipe failure;  // the thrown one, or the runner's record
};

inline Outcome execWith(ztfi_pdk_4_4::CFiExecPipePosix& runner, const std::string& command, unsigned long timeout = 0)
{
    Outcome outcome;
    try {
        outcome.result = runner.Exec(command, outcome.lines, "", timeout, "", "", "");
        outcome.failure = runner.getLastFailure();
    } catch (const ztfi_pdk_4_4::EFiExecPipe& thrown) {
        outcome.wasThrown = true;
        outcome.failure = thrown;
    }
    return outcome;
}

inline Outcome exec(const std::string& command, unsigned long timeout = 0)
{
    ztfi_pdk_4_4::CFiExecPipePosix runner(1);
    return execWith(runner, command, timeout);
}

template <class Work>
std::chrono::milliseconds timeOf(Work work)
{
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start);
}

// No run of these tests takes this long unless it hangs.
constexpr auto muchTooLong = slowness * std::chrono::seconds(8);

// A file that is removed at the end.
class TemporaryFile {
public:
    TemporaryFile()
    {
        char name[] = "/tmp/runner_test.XXXXXX";
        ::close(::mkstemp(name));
        path = name;
    }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;
    ~TemporaryFile() { ::unlink(path.c_str()); }

    std::string path;
};

class DescriptorLimit {
public:
    explicit DescriptorLimit(rlim_t soft)
    {
        ::getrlimit(RLIMIT_NOFILE, &before);
        const rlimit lowered{soft, before.rlim_max};
        ::setrlimit(RLIMIT_NOFILE, &lowered);
    }
    DescriptorLimit(const DescriptorLimit&) = delete;
    DescriptorLimit& operator=(const DescriptorLimit&) = delete;
    ~DescriptorLimit() { ::setrlimit(RLIMIT_NOFILE, &before); }

private:
    rlimit before{};
};

// Sets the handling of one signal and restores it at the end.
class SignalHandling {
public:
    SignalHandling(int number, void (*handler)(int)) : signal(number)
    {
        struct sigaction action = {};
        action.sa_handler = handler;
        ::sigaction(signal, &action, &before);
    }
    SignalHandling(const SignalHandling&) = delete;
    SignalHandling& operator=(const SignalHandling&) = delete;
    ~SignalHandling() { ::sigaction(signal, &before, nullptr); }

private:
    int signal;
    struct sigaction before = {};
};

inline kivclaim::host_internal::RunLimits quickLimits()
{
    kivclaim::host_internal::RunLimits limits;
    limits.fromTermToKill = slowness * std::chrono::milliseconds(100);
    limits.fromKillToLeave = slowness * std::chrono::milliseconds(5000);
    limits.silenceAfterEnd = slowness * std::chrono::milliseconds(400);
    return limits;
}

inline kivclaim::host_internal::RunLimits limitedTo(std::chrono::milliseconds time)
{
    kivclaim::host_internal::RunLimits limits = quickLimits();
    limits.wholeRun = slowness * time;
    return limits;
}

#endif
