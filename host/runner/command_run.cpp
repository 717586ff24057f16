// The steps of a run: start the child, read its output, end it if necessary, and determine the result.
#include "host/runner/command_run.h"

#include "host/printable_text.h"
#include "host/runner/abandoned_children.h"
#include "host/runner/command_words.h"
#include "host/runner/output_streams.h"
#include "host/runner/run_problem.h"
#include "host/runner/wide_text.h"
#include "host/utf8.h"

#include <poll.h>
#include <sys/wait.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <iterator>
#include <string_view>
#include <utility>

using ztfi_pdk_4_4::EFiExecPipe;

namespace kivclaim::host_internal {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr Clock::time_point never = Clock::time_point::max();
constexpr milliseconds longestWait = std::chrono::hours(1);  // poll counts milliseconds in an int
constexpr milliseconds shortestPause{1};
constexpr milliseconds longestPause{20};
constexpr milliseconds pauseBeforeDescriptor{10};  // to wait for a tool that takes longer, a descriptor is opened
constexpr int signalResultBase = 128;
constexpr int exitCodeUnit = 256;  // of a wait status

// How a run ended that was neither cancelled nor ended at its limit.
struct RunEnd {
    int waitStatus;
    bool wasTimedOut;
    std::string errorTail;
};

// Threads, ownership, failure: those of runCommand; failures are thrown as RunProblem.
class CommandRun {
public:
    CommandRun(const std::vector<std::string>& words, const RunLimits& runLimits, std::vector<std::string>& output,
               const SystemCalls& calls)
        : CommandRun(words, runLimits, output, calls, makePipe(), makePipe())
    {
    }

    RunEnd toItsEnd();

private:
    enum class Stage { running, askedToEnd, killed };

    CommandRun(const std::vector<std::string>& words, const RunLimits& runLimits, std::vector<std::string>& output,
               const SystemCalls& calls, Pipe outputPipe, Pipe errorPipe);

    bool isOver() const;
    void hear();
    milliseconds timeToWait() const;
    Clock::time_point silenceDeadline() const;
    void noticeOutput(std::size_t count);
    void noticeEnd(bool isAnnounced);
    void waitOn(bool wasAnnounced);
    void askForEnd();
    void noticeSilence(bool heardSomething, bool hasLooked);
    void noticeEmptyGroup();
    void actOnTime();
    void proceed(Clock::time_point now);
    void endAtLimit(Clock::time_point now);
    void signalGroup(int signal);
    RunEnd conclude();

    RunLimits limits;
    Clock::time_point deadline;  // of the stage
    ChildProcess child;
    OutputStreams streams;
    Stage stage = Stage::running;
    bool hasChildEnded = false;
    bool isSilent = false;
    bool isGroupEmpty = false;
    bool isCancelled = false;
    bool wasDueBefore = false;      // the child was polled when its pipes had ended
    bool hasHeardSinceEnd = false;  // other processes that hold its pipes have written after its end
    Clock::time_point start = Clock::now();
    milliseconds pause = pauseBeforeDescriptor;  // between two polls, when the kernel does not announce the end
    Clock::time_point lastHeard;
};

CommandRun::CommandRun(const std::vector<std::string>& words, const RunLimits& runLimits,
                       std::vector<std::string>& output, const SystemCalls& calls, Pipe outputPipe, Pipe errorPipe)
    : limits(runLimits),
      deadline(limits.wholeRun.count() == 0 ? limits.latestEnd
                                            : std::min(limits.latestEnd, Clock::now() + limits.wholeRun)),
      child(words, outputPipe, errorPipe, calls, limits.fromKillToLeave),
      streams(std::move(outputPipe.readEnd), std::move(errorPipe.readEnd), output, limits.outputBytes,
              limits.outputLines)
{
    if (!child.canOpenEndDescriptor()) {
        pause = shortestPause;
    }
    // While our own write ends are open, the pipes would never report end of file.
    outputPipe.writeEnd.reset();
    errorPipe.writeEnd.reset();
}

RunEnd CommandRun::toItsEnd()
{
    while (!isOver()) {
        hear();
    }
    return conclude();
}

// After SIGTERM, every process of the group gets the time to end, even if the child itself ended at once.
bool CommandRun::isOver() const
{
    if (!hasChildEnded) {
        return false;
    }
    switch (stage) {
        case Stage::running:
            return !streams.anyOpen() || isSilent;
        case Stage::askedToEnd:
            return isGroupEmpty;
        case Stage::killed:
            break;
    }
    return true;
}

// Waits until something happens, and records what.
void CommandRun::hear()
{
    const int endDescriptor = hasChildEnded ? -1 : child.endDescriptor();
    const int cancellation = isCancelled ? -1 : limits.cancellation;
    pollfd sources[] = {{streams.outputDescriptor(), POLLIN, 0},
                        {streams.errorDescriptor(), POLLIN, 0},
                        {endDescriptor, POLLIN, 0},
                        {cancellation, POLLIN, 0}};
    const int ready = ::poll(sources, std::size(sources), static_cast<int>(timeToWait().count()));
    if (ready < 0 && errno != EINTR) {
        throw RunProblem{errno, "its output cannot be waited for"};
    }
    const auto isReady = [&](std::size_t source) { return ready > 0 && sources[source].revents != 0; };
    if (isReady(0)) {
        noticeOutput(streams.readOutput());
    }
    // Mostly both pipes end together: another read is cheaper than another poll.
    const bool hasOutputEnded = isReady(0) && streams.outputDescriptor() < 0;
    if (isReady(1) || (hasOutputEnded && streams.errorDescriptor() >= 0)) {
        noticeOutput(streams.readError());
    }
    isCancelled = isCancelled || isReady(3);
    noticeEnd(isReady(2));
    noticeSilence(isReady(0) || isReady(1), ready >= 0);
    noticeEmptyGroup();
    actOnTime();
}

milliseconds CommandRun::timeToWait() const
{
    const Clock::time_point next = std::min(deadline, silenceDeadline());
    const auto left = std::chrono::ceil<milliseconds>(next - Clock::now());
    const bool mustAsk = hasChildEnded ? stage == Stage::askedToEnd : child.endDescriptor() < 0;
    return std::clamp(left, milliseconds(0), mustAsk ? pause : longestWait);
}

// Processes that outlive the child may continue to write; the run ends when they have been silent for long enough.
Clock::time_point CommandRun::silenceDeadline() const
{
    return hasChildEnded && stage == Stage::running ? lastHeard + limits.silenceAfterEnd : never;
}

void CommandRun::noticeOutput(std::size_t count)
{
    hasHeardSinceEnd = hasHeardSinceEnd || (hasChildEnded && count > 0);
}

void CommandRun::noticeEnd(bool isAnnounced)
{
    // When both pipes have ended, the child is about to end: polling it is cheaper than waiting.
    const bool isDue = !streams.anyOpen() && !wasDueBefore;
    if (hasChildEnded || (!isAnnounced && !isDue && child.endDescriptor() >= 0)) {
        return;
    }
    wasDueBefore = wasDueBefore || isDue;
    askForEnd();
    if (!hasChildEnded) {
        waitOn(isAnnounced);
    }
}

// The child runs: chooses how to notice its end next time.
void CommandRun::waitOn(bool wasAnnounced)
{
    if (wasAnnounced) {
        child.closeEndDescriptor();  // spurious readiness: poll the child from now on
        pause = shortestPause;
    } else if (!child.canOpenEndDescriptor()) {
        pause = std::min(2 * pause, longestPause);
    } else if (wasDueBefore || Clock::now() >= start + pauseBeforeDescriptor) {
        child.openEndDescriptor();
        pause = shortestPause;
    }
}

// When the child has ended, everything that it wrote is in the pipes; later output is from other processes.
void CommandRun::askForEnd()
{
    hasChildEnded = child.hasEnded();
    if (hasChildEnded) {
        streams.drain();
        lastHeard = Clock::now();
        pause = shortestPause;
    }
}

// Ask the pipes, not only the clock: output may have arrived while this thread slept.
void CommandRun::noticeSilence(bool heardSomething, bool hasLooked)
{
    const Clock::time_point now = Clock::now();
    if (heardSomething) {
        lastHeard = now;
    } else if (hasLooked && now >= silenceDeadline()) {
        isSilent = true;
    }
}

void CommandRun::noticeEmptyGroup()
{
    if (hasChildEnded && stage == Stage::askedToEnd) {
        isGroupEmpty = !child.hasRunningGroup();
        pause = std::min(2 * pause, longestPause);
    }
}

void CommandRun::actOnTime()
{
    const Clock::time_point now = Clock::now();
    const bool mustEnd = stage == Stage::running && (streams.areOverLimit() || isCancelled);
    if (!isOver() && (now >= deadline || mustEnd)) {
        proceed(now);
    }
}

// The next step of ending a run by force.
void CommandRun::proceed(Clock::time_point now)
{
    switch (stage) {
        case Stage::running:
            endAtLimit(now);
            break;
        case Stage::askedToEnd:
            signalGroup(SIGKILL);
            stage = Stage::killed;
            deadline = now + limits.fromKillToLeave;
            break;
        case Stage::killed:
            child.leaveBehind();
            throw RunProblem{ETIMEDOUT, "not even SIGKILL ended it, so it was abandoned", unknownWaitStatus,
                             streams.errorTail()};
    }
}

// The child may have ended long ago, while this process was stopped or the machine slept. Then only processes that
// still write to its output are ended; those that hold it open without writing are left alone, as at the end of any
// run.
void CommandRun::endAtLimit(Clock::time_point now)
{
    if (!hasChildEnded) {
        askForEnd();
    }
    if (hasChildEnded && !hasHeardSinceEnd && !streams.areOverLimit()) {
        isSilent = true;
        return;
    }
    signalGroup(SIGTERM);
    signalGroup(SIGCONT);  // a stopped process cannot end
    stage = Stage::askedToEnd;
    deadline = now + limits.fromTermToKill;
}

void CommandRun::signalGroup(int signal)
{
    if (!child.signalGroup(signal) && !hasChildEnded) {
        child.leaveBehind();
        throw RunProblem{EPERM, "it runs as another user, so it could not be ended and was abandoned",
                         unknownWaitStatus, streams.errorTail()};
    }
}

RunEnd CommandRun::conclude()
{
    if (stage != Stage::running) {
        // Processes of the group that outlived the child, before its process ID can be reused.
        child.signalGroup(SIGKILL);
        streams.drain();
    }
    const int waitStatus = child.collect();
    streams.finish();
    if (streams.areOverLimit()) {
        throw RunProblem{EFBIG,
                         "it wrote more than " + std::to_string(limits.outputBytes) + " bytes or " +
                             std::to_string(limits.outputLines) + " lines and was ended",
                         waitStatus, streams.errorTail()};
    }
    if (isCancelled && stage != Stage::running) {
        throw RunProblem{ECANCELED, "it was cancelled and ended", waitStatus, streams.errorTail()};
    }
    return {waitStatus, stage != Stage::running, streams.errorTail()};
}

int resultOf(const RunEnd& end)
{
    if (WIFSIGNALED(end.waitStatus)) {
        return signalResultBase + WTERMSIG(end.waitStatus);
    }
    const int exitCode = WEXITSTATUS(end.waitStatus);
    return exitCode == 0 && end.wasTimedOut ? signalResultBase + SIGTERM : exitCode;
}

std::string describe(const RunEnd& end)
{
    std::string text;
    if (WIFSIGNALED(end.waitStatus)) {
        const int signal = WTERMSIG(end.waitStatus);
        const char* const name = ::sigdescr_np(signal);
        text = "was ended by signal " + std::to_string(signal);
        text += name != nullptr ? std::string(" (") + name + ")" : "";
    } else {
        text = "ended with exit code " + std::to_string(WEXITSTATUS(end.waitStatus));
    }
    return end.wasTimedOut ? text + " after its time limit" : text;
}

// The command, or its beginning: at most 4 KiB, whatever its bytes are.
std::string shown(const std::string& command)
{
    constexpr std::size_t mostBytes = 1024;
    if (command.size() <= mostBytes) {
        return host::printableText(command);
    }
    std::size_t length = mostBytes;
    while (length > 0 && isUtf8Continuation(static_cast<unsigned char>(command[length]))) {
        --length;
    }
    return host::printableText(std::string_view(command).substr(0, length)) + "...";
}

// At most 64 KiB: a wide text takes four bytes for each character, and four characters for a byte that is not UTF-8.
EFiExecPipe failureRecord(std::string message, const std::string& errorTail, int errorNumber, int waitStatus)
{
    if (!errorTail.empty()) {
        message += ": " + errorTail;
    }
    constexpr std::size_t mostWideCharacters = 12288;
    EFiExecPipe record;
    record.wideMessage = wideText(message).substr(0, mostWideCharacters);
    record.message = std::move(message);
    record.errorNumber = errorNumber;
    record.waitStatus = waitStatus;
    return record;
}

CommandResult judged(const std::string& command, const RunEnd& end)
{
    CommandResult result;
    result.hasRun = true;
    result.result = resultOf(end);
    if (result.result != 0) {
        result.failure = failureRecord("The command [" + shown(command) + "] " + describe(end), end.errorTail,
                                       end.wasTimedOut ? ETIMEDOUT : 0, end.waitStatus);
    }
    return result;
}

CommandResult notRun(const std::string& command, const RunProblem& problem)
{
    const char* const name = ::strerrordesc_np(problem.errorNumber);
    CommandResult result;
    result.result = -1;
    result.failure = failureRecord("Cannot run [" + shown(command) + "]: " + problem.reason + " (" +
                                       (name != nullptr ? name : "unknown error") + ")",
                                   problem.errorTail, problem.errorNumber, problem.waitStatus);
    return result;
}

bool isReadable(int descriptor)
{
    pollfd source{descriptor, POLLIN, 0};
    return ::poll(&source, 1, 0) > 0;
}

void requireTimeToStart(const RunLimits& limits)
{
    if (limits.cancellation >= 0 && isReadable(limits.cancellation)) {
        throw RunProblem{ECANCELED, "it was cancelled before it was started"};
    }
    if (Clock::now() >= limits.latestEnd) {
        throw RunProblem{ETIMEDOUT, "its deadline had passed before it was started"};
    }
}

CommandResult run(const std::vector<std::string>& words, const std::string& command, const RunLimits& limits,
                  std::vector<std::string>& output, const SystemCalls& calls)
{
    collectAbandonedChildren();
    requireTimeToStart(limits);
    LinesUntilKept lines(output);
    const RunEnd end = CommandRun(words, limits, output, calls).toItsEnd();
    CommandResult result = judged(command, end);
    lines.keep();
    return result;
}

}  // namespace

CommandResult runCommand(const std::string& command, const RunLimits& limits, std::vector<std::string>& output,
                         const SystemCalls& calls)
{
    try {
        return run(commandWords(command), command, limits, output, calls);
    } catch (const RunProblem& problem) {
        return notRun(command, problem);
    }
}

CommandResult runWords(const std::vector<std::string>& words, const std::string& shownAs, const RunLimits& limits,
                       std::vector<std::string>& output)
{
    try {
        requireRunnable(words);
        return run(words, shownAs, limits, output, realSystemCalls());
    } catch (const RunProblem& problem) {
        return notRun(shownAs, problem);
    }
}

CommandResult resultOfEnded(const std::string& command, int exitStatus, int signal, const std::string& errors)
{
    TailCollector tail(keptErrorBytes);
    tail.add(errors.data(), errors.size());
    return judged(command, {signal != 0 ? signal : exitStatus * exitCodeUnit, false, tail.tail()});
}

CommandResult resultOfMissing(const std::string& command)
{
    return notRun(command, {ENOENT, "it cannot be started"});
}

}  // namespace kivclaim::host_internal
