// What all tests of the command runner watch: that a run leaves no descriptor and no child behind.
#ifndef KIVCLAIM_TESTS_RUNNER_FIXTURE_H
#define KIVCLAIM_TESTS_RUNNER_FIXTURE_H

#include "framework/cfiexecpipe.h"
#include "host/runner/command_run.h"

#include <dirent.h>
#include <sys/wait.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

// How many times as long everything takes as on a machine of its own: an emulator needs longer until a child has done
// its first words.
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

inline bool hasNoChildren()
{
    return ::waitpid(-1, nullptr, WNOHANG) == -1 && errno == ECHILD;
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

// One Exec with everything that comes of it.
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

#endif
