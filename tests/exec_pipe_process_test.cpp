// The process around the command runner: limits as a host gives them, state, threads and cancellation.
#include "framework/cfiexecpipe.h"

#include "tests/runner_fixture.h"

#include <pthread.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <csignal>
#include <iterator>
#include <thread>

#include <gmock/gmock.h>

using kivclaim::host_internal::runCommand;
using testing::ElementsAre;
using namespace std::chrono_literals;

class ExecPipe : public RunnerTest {};

TEST_F(ExecPipe, HonoursTheLimitOfTheCallInSeconds)
{
    Outcome outcome;
    EXPECT_GE(timeOf([&] { outcome = exec(probe + " sleep 60000", 1); }), 1000ms);
    EXPECT_EQ(outcome.result, 128 + SIGTERM);
    EXPECT_EQ(outcome.failure.waitStatus, SIGTERM);
}

TEST_F(ExecPipe, TreatsAnImmenseLimitAsNone)
{
    EXPECT_EQ(exec(probe + " exit 0", ULONG_MAX).result, 0);
    EXPECT_EQ(exec(probe + " exit 0", 1000000000).result, 0);
}

TEST_F(ExecPipe, WaitsASecondForDescendantsThatOutliveTheChild)
{
    Outcome outcome;
    const auto time = timeOf([&] { outcome = exec(probe + " in-grandchild sleep 700 print late@n sleep 4000"); });
    EXPECT_THAT(outcome.lines, ElementsAre("late"));
    EXPECT_GE(time, 1700ms);
    EXPECT_LT(time, 4000ms);
}

namespace {

// Everything of the process that a run might disturb.
struct ProcessState {
    std::vector<std::string> signalActions;
    std::string mask;
    mode_t fileMask = 0;
    std::string directory;
    std::vector<std::string> environment;
};

std::string membersOf(const sigset_t& signals)
{
    std::string members;
    for (int signal = 1; signal < NSIG; ++signal) {
        members += ::sigismember(&signals, signal) == 1 ? '1' : '0';
    }
    return members;
}

std::string textOf(const struct sigaction& action)
{
    return testing::PrintToString(reinterpret_cast<void*>(action.sa_handler)) + " " + std::to_string(action.sa_flags) +
           " " + membersOf(action.sa_mask);
}

ProcessState stateOfProcess()
{
    ProcessState state;
    for (int signal = 1; signal < NSIG; ++signal) {
        struct sigaction action = {};
        if (::sigaction(signal, nullptr, &action) == 0) {
            state.signalActions.push_back(textOf(action));
        }
    }
    sigset_t mask;
    ::pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    state.mask = membersOf(mask);
    state.fileMask = ::umask(0);
    ::umask(state.fileMask);
    char directory[PATH_MAX] = {};
    state.directory = ::getcwd(directory, sizeof directory);
    for (char** entry = environ; *entry != nullptr; ++entry) {
        state.environment.emplace_back(*entry);
    }
    return state;
}

}  // namespace

TEST_F(ExecPipe, ChangesNothingOfTheProcess)
{
    const ProcessState before = stateOfProcess();
    exec(probe + " exit 0");
    exec(probe + " exit 3");
    exec("/nonexistent/tool");
    Lines lines;
    runCommand(probe + " ignore 15 sleep 60000", limitedTo(50ms), lines);
    const ProcessState after = stateOfProcess();
    EXPECT_EQ(after.signalActions, before.signalActions);
    EXPECT_EQ(after.mask, before.mask);
    EXPECT_EQ(after.fileMask, before.fileMask);
    EXPECT_EQ(after.directory, before.directory);
    EXPECT_EQ(after.environment, before.environment);
}

namespace {

std::atomic<int> forks{0};

}  // namespace

TEST_F(ExecPipe, RunsNoForkHandlersOfTheProcess)
{
    ASSERT_EQ(::pthread_atfork([] { ++forks; }, nullptr, nullptr), 0);
    forks = 0;
    EXPECT_EQ(exec(probe + " exit 0").result, 0);
    EXPECT_EQ(forks, 0);
}

namespace {

std::chrono::microseconds quickestRun()
{
    auto quickest = std::chrono::microseconds::max();
    for (int i = 0; i < 20; ++i) {
        const auto start = std::chrono::steady_clock::now();
        exec(probe + " exit 0");
        const auto time = std::chrono::steady_clock::now() - start;
        quickest = std::min(quickest, std::chrono::duration_cast<std::chrono::microseconds>(time));
    }
    return quickest;
}

}  // namespace

TEST_F(ExecPipe, StartsACommandAsFastFromALargeProcessAsFromASmallOne)
{
    constexpr std::size_t bytes = std::size_t{1} << 30;
    const auto small = quickestRun();
    void* const memory = ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(memory, MAP_FAILED);
    ::madvise(memory, bytes, MADV_NOHUGEPAGE);  // the more pages, the longer a copy would take
    ::madvise(memory, bytes, MADV_POPULATE_WRITE);
    const auto large = quickestRun();
    ::munmap(memory, bytes);
    EXPECT_LT(large, small + 5ms) << "copying the page tables alone takes longer";
}

TEST_F(ExecPipe, RunsCommandsOfSeveralThreadsAtOnce)
{
    std::vector<std::thread> threads;
    threads.reserve(8);
    std::atomic<int> right{0};
    for (int number = 0; number < 8; ++number) {
        threads.emplace_back([&right, text = "thread" + std::to_string(number), number] {
            for (int i = 0; i < 20; ++i) {
                const Outcome outcome = exec(probe + " print " + text + "@n exit " + std::to_string(number));
                right += outcome.result == number && outcome.lines == Lines{text} ? 1 : 0;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(right, 8 * 20);
}

namespace {

struct CancelledRun {
    std::atomic<bool> isRunning{false};
    int result = -1;
    int cancelState = -1;
};

void* runWhileBeingCancelled(void* argument)
{
    auto& run = *static_cast<CancelledRun*>(argument);
    run.isRunning = true;
    run.result = exec(probe + " sleep 300 exit 6").result;
    ::pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &run.cancelState);
    return nullptr;
}

}  // namespace

TEST_F(ExecPipe, HasTheLimitsThatHostsRelyOn)
{
    const kivclaim::host_internal::RunLimits limits;
    EXPECT_EQ(limits.wholeRun.count(), 0);
    EXPECT_EQ(limits.fromTermToKill.count(), 2000);
    EXPECT_EQ(limits.fromKillToLeave.count(), 10000);
    EXPECT_EQ(limits.silenceAfterEnd.count(), 1000);
    EXPECT_EQ(limits.outputBytes, 1073741824U);
    EXPECT_EQ(limits.outputLines, 67108864U);
}

TEST_F(ExecPipe, KillsAChildThatIgnoresSigtermTwoSecondsAfterTheTimeLimit)
{
    const auto start = std::chrono::steady_clock::now();
    std::vector<std::string> output;
    ztfi_pdk_4_4::CFiExecPipePosix runner(1);
    EXPECT_EQ(runner.Exec(probe + " ignore 15 sleep 60000", output, "", 1, "", "", ""), 128 + SIGKILL);
    EXPECT_EQ(runner.getLastFailure().waitStatus, SIGKILL);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::seconds(3));
}

TEST_F(ExecPipe, FinishesARunWhoseThreadIsCancelled)
{
    CancelledRun run;
    pthread_t thread;
    ASSERT_EQ(::pthread_create(&thread, nullptr, &runWhileBeingCancelled, &run), 0);
    while (!run.isRunning || hasNoChildren()) {
        std::this_thread::yield();
    }
    ::pthread_cancel(thread);
    void* end = PTHREAD_CANCELED;
    ::pthread_join(thread, &end);
    EXPECT_EQ(end, nullptr);
    EXPECT_EQ(run.result, 6);
    EXPECT_EQ(run.cancelState, PTHREAD_CANCEL_ENABLE) << "from now on the thread can be cancelled again";
}
