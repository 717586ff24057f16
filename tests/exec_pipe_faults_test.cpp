// The command runner under faults of the system: calls that fail or lie, tools that interfere, a host that is stopped.
#include "tests/faults/system_call_faults.h"
#include "tests/runner_fixture.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>

#include <atomic>
#include <thread>

#include <gmock/gmock.h>

using kivclaim::host_internal::CommandResult;
using kivclaim::host_internal::runCommand;
using kivclaim::host_internal::RunLimits;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using tests::fails;
using tests::gives;
using tests::givesDescriptor;
using tests::goesOn;
using tests::passesUnder;
using tests::Reply;
using tests::SystemCall;
using namespace std::chrono_literals;

class ExecPipeFaults : public RunnerTest {};

namespace {

// The text at an address of the caller's, as far as it lies in the same page.
std::string textOf(const SystemCall& call, std::uint64_t address)
{
    char text[64] = {};
    const std::size_t left = 4096 - address % 4096;
    const iovec local{text, std::min(left, sizeof text - 1)};
    const iovec remote{reinterpret_cast<void*>(address), local.iov_len};
    ::process_vm_readv(call.process, &local, 1, &remote, 1, 0);
    return text;
}

bool opensTheNullDevice(const SystemCall& call)
{
    return textOf(call, call.arguments[1]) == "/dev/null";
}

}  // namespace

// --- Hostile tools and calls that lie ---

TEST_F(ExecPipeFaults, EndsTheReadingWhenThereIsLessInThePipeThanTheKernelSaid)
{
    const auto lie = [](const SystemCall& call) {
        if (!call.isOfHost() || call.arguments[1] != FIONREAD) {
            return goesOn();
        }
        constexpr int muchMore = 1000000;
        tests::writeForCaller(call, call.arguments[2], &muchMore, sizeof muchMore);
        return gives(0);
    };
    EXPECT_TRUE(passesUnder({SYS_ioctl}, lie, [] {
        Lines lines;
        EXPECT_LT(timeOf([&] {
                      // Somebody out of reach keeps the pipe open.
                      const std::string words = " print out@n in-grandchild-while-waiting leave-session sleep 2000";
                      EXPECT_EQ(runCommand(probe + words, limitedTo(100ms), lines).result, 128 + SIGTERM);
                  }),
                  muchTooLong);
        EXPECT_THAT(lines, ElementsAre("out"));
    }));
}

TEST_F(ExecPipeFaults, IsNotHeldByADescendantThatReadsTheOutputItself)
{
    Lines lines;
    EXPECT_LT(timeOf([&] { runCommand(probe + " in-grandchild ignore 15 steal-output", limitedTo(300ms), lines); }),
              muchTooLong);
}

// --- A host that is stopped ---

namespace {

// Stops the host at its first wait until the limit of 300 ms has passed.
tests::Judge stoppingTheHost()
{
    return [isStopped = false](const SystemCall& call) mutable {
        if (call.isOfHost() && !isStopped) {
            isStopped = true;
            ::kill(call.host, SIGSTOP);
            std::this_thread::sleep_for(600ms);
            ::kill(call.host, SIGCONT);
        }
        return goesOn();
    };
}

}  // namespace

TEST_F(ExecPipeFaults, JudgesAToolThatEndedWhileTheHostWasStoppedByHowItEnded)
{
    EXPECT_TRUE(passesUnder({SYS_poll}, stoppingTheHost(), [] {
        Lines lines;
        const CommandResult result = runCommand(probe + " sleep 100 print out@n exit 0", limitedTo(300ms), lines);
        EXPECT_EQ(result.result, 0) << result.failure.message;
        EXPECT_THAT(lines, ElementsAre("out"));
    }));
    EXPECT_TRUE(passesUnder({SYS_poll}, stoppingTheHost(), [] {
        Lines lines;
        const CommandResult result = runCommand(probe + " print-bytes 60000 exit 4", limitedTo(300ms), lines);
        EXPECT_EQ(result.result, 4);
        EXPECT_EQ(result.failure.errorNumber, 0) << result.failure.message;
        EXPECT_THAT(lines, ElementsAre(std::string(60000, 'o')));
    }));
}

TEST_F(ExecPipeFaults, JudgesAToolWhoseEndIsNoticedAtTheLimitByHowItEnded)
{
    // Somebody else holds the pipes, silently: the limit comes before the second of silence is over.
    Lines lines;
    const CommandResult result = runCommand(probe + " print out@n in-grandchild sleep 2000", limitedTo(200ms), lines);
    EXPECT_EQ(result.result, 0) << result.failure.message;
    EXPECT_THAT(lines, ElementsAre("out"));
}

// --- The null device ---

TEST_F(ExecPipeFaults, SaysThatTheNullDeviceIsMissing)
{
    const auto missing = [](const SystemCall& call) { return opensTheNullDevice(call) ? fails(ENOENT) : goesOn(); };
    EXPECT_TRUE(passesUnder({SYS_openat, SYS_open}, missing, [] {
        const Outcome outcome = exec(probe + " print out");
        EXPECT_TRUE(outcome.wasThrown);
        EXPECT_EQ(outcome.failure.errorNumber, ENOENT);
        EXPECT_THAT(outcome.failure.message, HasSubstr("/dev/null"));
        EXPECT_THAT(outcome.failure.message, Not(HasSubstr("it cannot be started")));
        EXPECT_TRUE(hasNoChildren());
    }));
}

namespace {

void expectOtherNullDeviceIsRefused(int descriptor)
{
    const auto other = [&](const SystemCall& call) {
        return opensTheNullDevice(call) ? givesDescriptor(descriptor) : goesOn();
    };
    EXPECT_TRUE(passesUnder({SYS_openat, SYS_open}, other, [] {
        const Outcome outcome = exec(probe + " read-input");
        EXPECT_TRUE(outcome.wasThrown);
        EXPECT_EQ(outcome.failure.errorNumber, ENODEV);
        EXPECT_THAT(outcome.failure.message, HasSubstr("/dev/null"));
        EXPECT_THAT(outcome.lines, IsEmpty());
    }));
}

}  // namespace

TEST_F(ExecPipeFaults, AcceptsNoOtherFileInThePlaceOfTheNullDevice)
{
    const TemporaryFile file;
    std::ofstream(file.path) << "input";
    const int regular = ::open(file.path.c_str(), O_RDONLY | O_CLOEXEC);
    expectOtherNullDeviceIsRefused(regular);
    ::close(regular);
    const int device = ::open("/dev/zero", O_RDONLY | O_CLOEXEC);
    expectOtherNullDeviceIsRefused(device);
    ::close(device);
}

TEST_F(ExecPipeFaults, IsNotHeldByAFifoInThePlaceOfTheNullDevice)
{
    const TemporaryFile file;
    ::unlink(file.path.c_str());
    ASSERT_EQ(::mkfifo(file.path.c_str(), 0600), 0);
    const int fifo = ::open(file.path.c_str(), O_RDWR | O_CLOEXEC);
    expectOtherNullDeviceIsRefused(fifo);
    ::close(fifo);
}

// --- Waiting for the child ---

namespace {

// Runs a command while waitid fails at its `count`th call.
void expectFailureOfWaiting(int count, int errorNumber)
{
    int made = 0;
    EXPECT_TRUE(passesUnder({SYS_waitid}, tests::failingAt(SYS_waitid, count, errorNumber, made), [=] {
        const auto time = timeOf([&] {
            const Outcome outcome = exec(probe + " print out@n exit 3");
            EXPECT_TRUE(outcome.wasThrown);
            EXPECT_EQ(outcome.failure.errorNumber, errorNumber);
            EXPECT_THAT(outcome.failure.message, Not(HasSubstr("SIGCHLD")));
            EXPECT_THAT(outcome.lines, IsEmpty());
        });
        EXPECT_LT(time, muchTooLong);
        EXPECT_TRUE(hasNoChildren());
    }));
    EXPECT_GE(made, count);
}

}  // namespace

TEST_F(ExecPipeFaults, LeavesNoChildWhenItsEndCannotBeAskedFor)
{
    expectFailureOfWaiting(1, EINVAL);
    expectFailureOfWaiting(1, EPERM);
}
