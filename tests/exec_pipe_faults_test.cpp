// The command runner under faults of the system: calls that fail or lie, tools that interfere, a host that is stopped.
#include "host/command_runner.h"
#include "tests/faults/signal_storm.h"
#include "tests/faults/stopped_host.h"
#include "tests/faults/system_call_faults.h"
#include "tests/runner_fixture.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>

#include <atomic>
#include <new>
#include <set>
#include <system_error>
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
using tests::pollCall;
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
    const iovec remote{tests::addressOf(address), local.iov_len};
    ::process_vm_readv(call.process, &local, 1, &remote, 1, 0);
    return text;
}

bool opensTheNullDevice(const SystemCall& call)
{
    return textOf(call, call.arguments[1]) == "/dev/null";
}

}  // namespace

// --- Hostile tools and calls that lie ---

TEST_F(ExecPipeFaults, StopsReadingWhenThePipeHoldsLessThanTheKernelSaid)
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
                      // A process outside the group keeps the pipe open.
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

TEST_F(ExecPipeFaults, GivesTheStatusOfAToolThatEndedWhileTheHostWasStopped)
{
    EXPECT_TRUE(passesUnder({pollCall}, tests::stoppingTheHostFor(600ms), [] {
        Lines lines;
        const CommandResult result = runCommand(probe + " sleep 100 print out@n exit 0", limitedTo(300ms), lines);
        EXPECT_EQ(result.result, 0) << result.failure.message;
        EXPECT_THAT(lines, ElementsAre("out"));
    }));
    EXPECT_TRUE(passesUnder({pollCall}, tests::stoppingTheHostFor(600ms), [] {
        Lines lines;
        const CommandResult result = runCommand(probe + " print-bytes 60000 exit 4", limitedTo(300ms), lines);
        EXPECT_EQ(result.result, 4);
        EXPECT_EQ(result.failure.errorNumber, 0) << result.failure.message;
        EXPECT_THAT(lines, ElementsAre(std::string(60000, 'o')));
    }));
}

TEST_F(ExecPipeFaults, GivesTheStatusOfAToolWhoseEndIsNoticedAtTheLimit)
{
    // Another process holds the pipes without writing: the limit comes before the second of silence is over.
    Lines lines;
    const CommandResult result = runCommand(probe + " print out@n in-grandchild sleep 2000", limitedTo(200ms), lines);
    EXPECT_EQ(result.result, 0) << result.failure.message;
    EXPECT_THAT(lines, ElementsAre("out"));
}

TEST_F(ExecPipeFaults, EndsAToolThatStillRunsWhenTheHostGoesOnAfterTheLimit)
{
    EXPECT_TRUE(passesUnder({pollCall}, tests::stoppingTheHostFor(600ms), [] {
        Lines lines;
        const CommandResult result = runCommand(probe + " sleep 60000", limitedTo(300ms), lines);
        EXPECT_EQ(result.result, 128 + SIGTERM);
        EXPECT_EQ(result.failure.errorNumber, ETIMEDOUT);
    }));
}

// --- Signals ---

TEST_F(ExecPipeFaults, KeepsTheStatusWhileSignalsInterruptAHostThatIgnoresTheEndOfChildren)
{
    const SignalHandling ignoring(SIGCHLD, SIG_IGN);
    const tests::SignalStorm storm;
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(exec(probe + " sleep 10 exit 3").result, 3);
    }
    EXPECT_GT(tests::SignalStorm::signals(), 20);
}

// --- Ending tools ---

namespace {

void expectFailureOfKill(int errorNumber, int expected)
{
    const auto judge = [=](const SystemCall& call) { return call.isOfHost() ? fails(errorNumber) : goesOn(); };
    EXPECT_TRUE(passesUnder({SYS_kill}, judge, [=] {
        RunLimits limits = limitedTo(100ms);
        limits.fromTermToKill = 100ms;
        limits.fromKillToLeave = 100ms;
        Lines lines{"earlier"};
        const CommandResult result = runCommand(probe + " print lost sleep 2000", limits, lines);
        EXPECT_FALSE(result.hasRun);
        EXPECT_EQ(result.failure.errorNumber, expected);
        EXPECT_THAT(result.failure.message, HasSubstr("abandoned"));
        EXPECT_THAT(lines, ElementsAre("earlier"));
    }));
}

}  // namespace

TEST_F(ExecPipeFaults, SaysWhyAToolCannotBeSignalled)
{
    expectFailureOfKill(EPERM, EPERM);
    expectFailureOfKill(EINVAL, ETIMEDOUT);
}

TEST_F(ExecPipeFaults, WaitsForTheGroupWhenTheProcessesCannotBeListed)
{
    const auto judge = [](const SystemCall& call) {
        return call.isOfHost() && textOf(call, call.arguments[1]).rfind("/proc", 0) == 0 ? fails(EMFILE) : goesOn();
    };
    EXPECT_TRUE(passesUnder({SYS_openat}, judge, [] {
        RunLimits limits = limitedTo(100ms);
        limits.fromTermToKill = 700ms;
        Lines lines;
        const auto time =
            timeOf([&] { EXPECT_EQ(runCommand(probe + " sleep 60000", limits, lines).failure.waitStatus, SIGTERM); });
        EXPECT_GE(time, 800ms);
        EXPECT_LT(time, muchTooLong);
        EXPECT_TRUE(hasNoChildren());
    }));
}

// --- Reading ---

TEST_F(ExecPipeFaults, ReadsOnWhenThePipeCannotBeEnlarged)
{
    int made = 0;
    const auto judge = [&](const SystemCall& call) {
        const bool isWanted = call.isOfHost() && call.arguments[1] == F_SETPIPE_SZ;
        made += isWanted ? 1 : 0;
        return isWanted ? fails(EPERM) : goesOn();
    };
    EXPECT_TRUE(passesUnder({SYS_fcntl}, judge, [] {
        EXPECT_THAT(exec(probe + " print-bytes 3000000").lines, ElementsAre(std::string(3000000, 'o')));
    }));
    EXPECT_EQ(made, 1);
}

TEST_F(ExecPipeFaults, StopsReadingWhenTheKernelCannotSayWhatThePipeHolds)
{
    const auto judge = [](const SystemCall& call) {
        return call.isOfHost() && call.arguments[1] == FIONREAD ? fails(ENOTTY) : goesOn();
    };
    EXPECT_TRUE(passesUnder({SYS_ioctl}, judge, [] {
        const Outcome outcome = exec(probe + " print out@n exit 3");
        EXPECT_EQ(outcome.result, 3);
        EXPECT_THAT(outcome.lines, ElementsAre("out"));
    }));
}

// --- The null device ---

TEST_F(ExecPipeFaults, SaysThatTheNullDeviceIsMissing)
{
    const auto missing = [](const SystemCall& call) { return opensTheNullDevice(call) ? fails(ENOENT) : goesOn(); };
    EXPECT_TRUE(passesUnder({SYS_openat}, missing, [] {
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
    EXPECT_TRUE(passesUnder({SYS_openat}, other, [] {
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

TEST_F(ExecPipeFaults, LeavesNoChildWhenWaitingForItFails)
{
    expectFailureOfWaiting(1, EINVAL);
    expectFailureOfWaiting(1, EPERM);
}

// --- A host whose children begin a namespace of process numbers: there, the host has number 0 ---

namespace {

Reply parentIsNotSeen(const SystemCall& call)
{
    return call.isOfHost() ? goesOn() : gives(0);
}

}  // namespace

TEST_F(ExecPipeFaults, RunsInAHostThatItsToolsDoNotSee)
{
    EXPECT_TRUE(passesUnder({SYS_getppid}, &parentIsNotSeen, [] {
        const Outcome outcome = exec(probe + " print out@n exit 3");
        EXPECT_EQ(outcome.result, 3) << outcome.failure.message;
        EXPECT_THAT(outcome.lines, ElementsAre("out"));
    }));
}

// The keeper could tell the tool's number in its own namespace only, and the host would signal somebody else.
TEST_F(ExecPipeFaults, RunsNothingUnderAKeeperThatDoesNotSeeItsHost)
{
    EXPECT_TRUE(passesUnder({SYS_getppid}, &parentIsNotSeen, [] {
        const SignalHandling ignoring(SIGCHLD, SIG_IGN);
        const Outcome outcome = exec(probe + " print out@n exit 3");
        EXPECT_TRUE(outcome.wasThrown);
        EXPECT_EQ(outcome.failure.errorNumber, ECHILD);
        EXPECT_THAT(outcome.failure.message, HasSubstr("the process that should keep its status has ended"));
        EXPECT_THAT(outcome.lines, IsEmpty());
        EXPECT_TRUE(hasNoChildren());
    }));
}

// --- Each system call of a run, failing each time that it is made ---

namespace {

// What the test and the child that runs the command tell each other.
struct Arrangement {
    std::atomic<bool> isArmed{false};    // the calls of the run may fail
    std::atomic<bool> hasFailed{false};  // one did
};

Arrangement& arrangement()
{
    static auto* const shared =
        new (::mmap(nullptr, sizeof(Arrangement), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0))
            Arrangement;
    return *shared;
}

enum class Maker { host, startedProcess };
enum class Expected { rightResult, reason, either };

struct FailingCall {
    const char* name;
    int number;
    int errorNumber;
    Maker maker;
    Expected expected;
    void (*handlingOfChildren)(int) = SIG_DFL;
};

std::ostream& operator<<(std::ostream& stream, const FailingCall& call)
{
    return stream << call.name;
}

// Lets the `count`th call fail that the host makes, or a process it started before it becomes the tool.
tests::Judge judgeOf(const FailingCall& row, int count, int& made)
{
    made = 0;
    return [=, &made, tools = std::set<pid_t>()](const SystemCall& call) mutable {
        const bool isWanted = call.number == row.number && call.isOfHost() == (row.maker == Maker::host) &&
                              tools.count(call.process) == 0 && arrangement().isArmed;
        const bool fails = isWanted && ++made == count;
        arrangement().hasFailed = arrangement().hasFailed || fails;
        if (call.number == SYS_execve && !fails) {
            tools.insert(call.process);
        }
        return fails ? tests::fails(row.errorNumber) : goesOn();
    };
}

void expectOutcome(const Outcome& outcome, const FailingCall& row)
{
    if (outcome.wasThrown) {
        EXPECT_NE(row.expected, Expected::rightResult) << outcome.failure.message;
        EXPECT_NE(outcome.failure.errorNumber, 0);
        EXPECT_THAT(outcome.failure.message, HasSubstr("Cannot run ["));
        EXPECT_THAT(outcome.lines, IsEmpty());
        return;
    }
    EXPECT_TRUE(row.expected != Expected::reason || !arrangement().hasFailed);
    EXPECT_EQ(outcome.result, 3);
    EXPECT_EQ(outcome.failure.waitStatus, 3 << 8);
    EXPECT_THAT(outcome.lines, ElementsAre("out"));
}

void runUnderFault(const FailingCall& row)
{
    std::signal(SIGCHLD, row.handlingOfChildren);
    exec("/bin/true");  // what is made once and kept is made now
    const std::set<int> descriptorsBefore = openDescriptors();
    Outcome outcome;
    arrangement().isArmed = true;
    const auto time = timeOf([&] { outcome = exec(probe + " print out@n complain why exit 3"); });
    arrangement().isArmed = false;
    EXPECT_LT(time, muchTooLong);
    expectOutcome(outcome, row);
    EXPECT_EQ(exec(probe + " exit 0").result, 0) << "the next run";
    EXPECT_TRUE(hasNoChildren());
    EXPECT_EQ(openDescriptors(), descriptorsBefore);
}

}  // namespace

class ExecPipeSystemCall : public RunnerTest, public testing::WithParamInterface<FailingCall> {};

TEST_P(ExecPipeSystemCall, FailsAndTheRunGivesTheRightResultOrTheReason)
{
    int made = 0;
    int count = 0;
    do {
        ++count;
        arrangement().hasFailed = false;
        EXPECT_TRUE(passesUnder({GetParam().number, SYS_execve}, judgeOf(GetParam(), count, made),
                                [] { runUnderFault(GetParam()); }))
            << "at call " << count;
    } while (made >= count && !HasFailure());
    EXPECT_GT(count, 1) << "the call is made";
}

INSTANTIATE_TEST_SUITE_P(
    Of, ExecPipeSystemCall,
    testing::Values(
        FailingCall{"pipe2_EMFILE", SYS_pipe2, EMFILE, Maker::host, Expected::reason},
        FailingCall{"pipe2_ENFILE", SYS_pipe2, ENFILE, Maker::host, Expected::reason},
        FailingCall{"fcntl_EPERM", SYS_fcntl, EPERM, Maker::host, Expected::reason},
        FailingCall{"writev_EINTR", SYS_writev, EINTR, Maker::host, Expected::rightResult},
        FailingCall{"writev_EFAULT", SYS_writev, EFAULT, Maker::host, Expected::rightResult},
        FailingCall{"writev_EIO", SYS_writev, EIO, Maker::host, Expected::reason},
        FailingCall{"read_EINTR", SYS_read, EINTR, Maker::host, Expected::rightResult},
        FailingCall{"read_EAGAIN", SYS_read, EAGAIN, Maker::host, Expected::either},
        FailingCall{"read_EIO", SYS_read, EIO, Maker::host, Expected::reason},
        FailingCall{"clone_EAGAIN", SYS_clone, EAGAIN, Maker::host, Expected::reason},
        FailingCall{"clone_ENOMEM", SYS_clone, ENOMEM, Maker::host, Expected::reason},
        FailingCall{"clone_EPERM", SYS_clone, EPERM, Maker::host, Expected::reason},
        FailingCall{"clone_EMFILE", SYS_clone, EMFILE, Maker::host, Expected::rightResult},
        FailingCall{"poll_EINTR", pollCall, EINTR, Maker::host, Expected::rightResult},
        FailingCall{"poll_ENOMEM", pollCall, ENOMEM, Maker::host, Expected::reason},
        FailingCall{"waitid_EINTR", SYS_waitid, EINTR, Maker::host, Expected::rightResult},
        FailingCall{"waitid_EINVAL", SYS_waitid, EINVAL, Maker::host, Expected::reason},
        FailingCall{"waitid_EPERM", SYS_waitid, EPERM, Maker::host, Expected::reason},
        FailingCall{"waitid_ENOSYS", SYS_waitid, ENOSYS, Maker::host, Expected::reason},
        FailingCall{"wait4_EINTR", SYS_wait4, EINTR, Maker::host, Expected::rightResult},
        FailingCall{"wait4_EINVAL", SYS_wait4, EINVAL, Maker::host, Expected::rightResult},
        FailingCall{"ChildsPrctl_EPERM", SYS_prctl, EPERM, Maker::startedProcess, Expected::reason},
        FailingCall{"ChildsSetpgid_EPERM", SYS_setpgid, EPERM, Maker::startedProcess, Expected::reason},
        FailingCall{"ChildsOpenat_ENOENT", SYS_openat, ENOENT, Maker::startedProcess, Expected::either},
        FailingCall{"ChildsOpenat_EACCES", SYS_openat, EACCES, Maker::startedProcess, Expected::either},
        FailingCall{"ChildsOpenat_EMFILE", SYS_openat, EMFILE, Maker::startedProcess, Expected::either},
        FailingCall{"ChildsFstat_EIO", SYS_fstat, EIO, Maker::startedProcess, Expected::reason},
        FailingCall{"ChildsDup3_EMFILE", SYS_dup3, EMFILE, Maker::startedProcess, Expected::reason},
        FailingCall{"ChildsDup3_EBADF", SYS_dup3, EBADF, Maker::startedProcess, Expected::reason},
        FailingCall{"ChildsFcntl_EPERM", SYS_fcntl, EPERM, Maker::startedProcess, Expected::reason},
        FailingCall{"ChildsCloseRange_ENOSYS", SYS_close_range, ENOSYS, Maker::startedProcess, Expected::rightResult},
        FailingCall{"ChildsCloseRange_EPERM", SYS_close_range, EPERM, Maker::startedProcess, Expected::rightResult},
        FailingCall{"ChildsExecve_ENOENT", SYS_execve, ENOENT, Maker::startedProcess, Expected::reason},
        FailingCall{"ChildsExecve_EACCES", SYS_execve, EACCES, Maker::startedProcess, Expected::reason},
        FailingCall{"ChildsExecve_ENOMEM", SYS_execve, ENOMEM, Maker::startedProcess, Expected::reason},
        FailingCall{"ChildsExecve_ETXTBSY", SYS_execve, ETXTBSY, Maker::startedProcess, Expected::reason},
        FailingCall{"ChildsExecve_EIO", SYS_execve, EIO, Maker::startedProcess, Expected::reason},
        FailingCall{"ChildsExecve_EFAULT", SYS_execve, EFAULT, Maker::startedProcess, Expected::rightResult}),
    [](const auto& parameter) { return std::string(parameter.param.name); });

// In a host that ignores the end of its children: the keeper's calls as well.
INSTANTIATE_TEST_SUITE_P(
    WithAKeeper, ExecPipeSystemCall,
    testing::Values(
        FailingCall{"socketpair_EMFILE", SYS_socketpair, EMFILE, Maker::host, Expected::reason, SIG_IGN},
        FailingCall{"socketpair_EACCES", SYS_socketpair, EACCES, Maker::host, Expected::reason, SIG_IGN},
        FailingCall{"clone_EAGAIN", SYS_clone, EAGAIN, Maker::host, Expected::reason, SIG_IGN},
        FailingCall{"clone_ENOMEM", SYS_clone, ENOMEM, Maker::host, Expected::reason, SIG_IGN},
        FailingCall{"read_EINTR", SYS_read, EINTR, Maker::host, Expected::rightResult, SIG_IGN},
        FailingCall{"read_EIO", SYS_read, EIO, Maker::host, Expected::reason, SIG_IGN},
        FailingCall{"poll_EINTR", pollCall, EINTR, Maker::host, Expected::rightResult, SIG_IGN},
        FailingCall{"recvfrom_EINTR", SYS_recvfrom, EINTR, Maker::host, Expected::rightResult, SIG_IGN},
        FailingCall{"recvfrom_EIO", SYS_recvfrom, EIO, Maker::host, Expected::reason, SIG_IGN},
        FailingCall{"wait4_EINTR", SYS_wait4, EINTR, Maker::host, Expected::rightResult, SIG_IGN},
        FailingCall{"KeepersPrctl_EPERM", SYS_prctl, EPERM, Maker::startedProcess, Expected::reason, SIG_IGN},
        FailingCall{"KeepersFcntl_EMFILE", SYS_fcntl, EMFILE, Maker::startedProcess, Expected::reason, SIG_IGN},
        FailingCall{"KeepersDup3_EMFILE", SYS_dup3, EMFILE, Maker::startedProcess, Expected::reason, SIG_IGN},
        FailingCall{"KeepersCloseRange_ENOSYS", SYS_close_range, ENOSYS, Maker::startedProcess, Expected::rightResult,
                    SIG_IGN},
        FailingCall{"KeepersClone_EAGAIN", SYS_clone, EAGAIN, Maker::startedProcess, Expected::reason, SIG_IGN},
        FailingCall{"KeepersSendto_EPERM", SYS_sendto, EPERM, Maker::startedProcess, Expected::reason, SIG_IGN},
        FailingCall{"KeepersWaitid_EINTR", SYS_waitid, EINTR, Maker::startedProcess, Expected::rightResult, SIG_IGN},
        FailingCall{"KeepersWaitid_EINVAL", SYS_waitid, EINVAL, Maker::startedProcess, Expected::reason, SIG_IGN},
        FailingCall{"KeepersRead_EINTR", SYS_read, EINTR, Maker::startedProcess, Expected::rightResult, SIG_IGN}),
    [](const auto& parameter) { return std::string(parameter.param.name); });

// --- A runner of a host's own ---

TEST_F(ExecPipeFaults, SaysThatThereIsNoDescriptorForACommandRunner)
{
    int made = 0;
    EXPECT_TRUE(passesUnder({SYS_eventfd2}, tests::failingAt(SYS_eventfd2, 1, EMFILE, made),
                            [] { EXPECT_THROW(kivclaim::host::CommandRunner{}, std::system_error); }));
}

// --- A keeper that cannot begin, or is lost ---

TEST_F(ExecPipeFaults, SaysThatThereIsNoDescriptorForAKeeper)
{
    const auto judge = [](const SystemCall& call) {
        return !call.isOfHost() && call.arguments[1] == F_DUPFD ? fails(EMFILE) : goesOn();
    };
    EXPECT_TRUE(passesUnder({SYS_fcntl}, judge, [] {
        const SignalHandling ignoring(SIGCHLD, SIG_IGN);
        const Outcome outcome = exec(probe + " print out@n");
        EXPECT_TRUE(outcome.wasThrown);
        EXPECT_EQ(outcome.failure.errorNumber, EMFILE);
    }));
}

TEST_F(ExecPipeFaults, SaysThatTheStatusIsLostWhenTheKeeperIsKilled)
{
    const SignalHandling ignoring(SIGCHLD, SIG_IGN);
    const TemporaryFile file;
    std::string tool;
    std::thread killer([&] {
        const auto end = std::chrono::steady_clock::now() + muchTooLong;
        while (tool.empty() && std::chrono::steady_clock::now() < end) {
            std::ifstream(file.path) >> tool;
        }
        // Without a tool there is no keeper, and no field: to kill process 0 would end the tests themselves.
        if (const pid_t keeper = std::atoi(processStatus(tool, "PPid").c_str()); keeper > 1) {
            ::kill(keeper, SIGKILL);
        }
    });
    const Outcome outcome = exec(probe + " print lost append-number-to " + file.path + " sleep 60000");
    killer.join();
    EXPECT_TRUE(outcome.wasThrown);
    EXPECT_EQ(outcome.failure.errorNumber, ECHILD);
    EXPECT_THAT(outcome.lines, IsEmpty());
    const auto end = std::chrono::steady_clock::now() + muchTooLong;
    while (isRunning(tool) && std::chrono::steady_clock::now() < end) {
        std::this_thread::yield();
    }
    EXPECT_FALSE(isRunning(tool)) << "it ends with its keeper";
}
