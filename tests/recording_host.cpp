#include "tests/recording_host.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <stdexcept>
#include <utility>

using ztfi_pdk_4_4::CFiExecPipeBase;
using ztfi_pdk_4_4::CFiExecPipePosix;
using ztfi_pdk_4_4::CFiTraceLog;
using ztfi_pdk_4_4::EFiExecPipe;

namespace recording {

namespace {

Host* currentHost = nullptr;

thread_local int depthInsideHost = 0;

bool startsWith(const std::string& text, const std::string& start)
{
    return text.compare(0, start.size(), start) == 0;
}

bool isRecord(const std::string& line)
{
    return line.size() > 1 && line[0] >= '0' && line[0] <= '9' && line[1] == ' ';
}

bool isScopeRecord(const std::string& line)
{
    return startsWith(line, "6 Entering Function ") || startsWith(line, "6 Exiting Function ");
}

Lines without(const Lines& all, bool (*unwanted)(const std::string&))
{
    Lines rest;
    std::remove_copy_if(all.begin(), all.end(), std::back_inserter(rest), unwanted);
    return rest;
}

}  // namespace

int RecordingLog::destroyed = 0;

InsideHost::InsideHost()
{
    ++depthInsideHost;
}

InsideHost::~InsideHost()
{
    --depthInsideHost;
}

bool InsideHost::isHere()
{
    return depthInsideHost > 0;
}

Host::Host() : rawLog(new RecordingLog(""))
{
    heldLog.acquire(rawLog);
    if (currentHost != nullptr) {
        ADD_FAILURE() << "a second host was started while one plays";
    }
    currentHost = this;
}

Host::~Host()
{
    currentHost = nullptr;
    for (const auto& script : scripts) {
        EXPECT_EQ(script->timesLeft, 0) << "nobody ran [" << script->command << "] as often as scripted";
    }
    for (const std::string& path : openPaths) {
        EXPECT_EQ(path, "") << "was opened and never closed";
    }
}

Host* Host::current()
{
    return currentHost;
}

unsigned int Host::logCount() const
{
    return rawLog->getCount();
}

LogPointer Host::anotherLog(const std::string& name)
{
    LogPointer log;
    log.acquire(new RecordingLog(name));
    return log;
}

Lines Host::trace(int level) const
{
    const std::string start = std::to_string(level) + " ";
    Lines texts;
    for (const std::string& line : written) {
        if (startsWith(line, start)) {
            texts.push_back(line.substr(start.size()));
        }
    }
    return texts;
}

Lines Host::effectsInside() const
{
    return without(written, isScopeRecord);
}

Lines Host::effectsWithoutLineNumbers() const
{
    Lines rest = written;
    for (std::string& line : rest) {
        const std::size_t bracket = line.rfind(" [");
        const std::size_t comma = line.find(", ", bracket);
        if (isScopeRecord(line) && comma != std::string::npos) {
            line.erase(bracket + 2, comma - bracket);
        }
    }
    return rest;
}

Lines Host::calls() const
{
    return without(written, isRecord);
}

Script& Host::script(Script script)
{
    scripts.push_back(std::make_unique<Script>(std::move(script)));
    return *scripts.back();
}

Script& Host::prints(const std::string& command, const Lines& output)
{
    return script({command, output, 0, 0, {}, 1, ""});
}

Script& Host::fails(const std::string& command, int result, std::int64_t waitStatus, const Lines& output)
{
    return script({command, output, result, waitStatus, {}, 1, ""});
}

Script& Host::throws(const std::string& command, std::function<void()> thrower, const Lines& output)
{
    return script({command, output, 0, 0, std::move(thrower), 1, ""});
}

void Host::traced(const RecordingLog& log, int level, const std::string& text)
{
    if (onTrace) {
        onTrace();
    }
    write((log.name.empty() ? "" : log.name + ": ") + std::to_string(level) + " " + text);
    if (!failingRecord.empty() && startsWith(text, failingRecord)) {
        if (recordThrower) {
            recordThrower();
        }
        throw std::runtime_error("trace failed");
    }
}

int Host::run(const std::string& command, Lines& output, EFiExecPipe& lastFailure)
{
    write("run [" + command + "]");
    const auto found = std::find_if(scripts.begin(), scripts.end(), [&](const std::unique_ptr<Script>& script) {
        return script->command == command && script->timesLeft > 0;
    });
    if (found == scripts.end()) {
        ADD_FAILURE() << "unscripted command [" << command << "]";
        return 127;
    }
    Script& script = **found;
    --script.timesLeft;
    output.insert(output.end(), script.output.begin(), script.output.end());
    if (script.thrower) {
        script.thrower();
    }
    if (script.result != 0) {
        lastFailure.waitStatus = script.waitStatus;
        lastFailure.message = script.message;
    }
    return script.result;
}

void Host::noteLimit(unsigned long seconds)
{
    if (currentHost == nullptr || !currentHost->acceptsAnyLimit) {
        EXPECT_EQ(seconds, 600U);
    }
    if (currentHost != nullptr) {
        currentHost->limitGiven = seconds;
    }
}

int Host::openDescriptor(const std::string& path)
{
    openPaths.push_back(path);
    return firstDescriptor + static_cast<int>(openPaths.size()) - 1;
}

bool Host::closeDescriptor(int descriptor)
{
    const int index = descriptor - firstDescriptor;
    if (index < 0 || index >= static_cast<int>(openPaths.size())) {
        return false;
    }
    std::string& path = openPaths[static_cast<std::size_t>(index)];
    EXPECT_NE(path, "") << "closed twice";
    write("close " + path);
    path.clear();
    return true;
}

}  // namespace recording

void CFiTraceLog::trace(int level, const char* format, ...)
{
    const recording::InsideHost inside;
    auto* const log = dynamic_cast<recording::RecordingLog*>(this);
    ASSERT_NE(log, nullptr) << "a record for a log that this host did not make";
    va_list arguments;
    va_start(arguments, format);
    char* text = nullptr;
    const int length = vasprintf(&text, format, arguments);
    va_end(arguments);
    ASSERT_GE(length, 0);
    const std::string copy(text, static_cast<std::size_t>(length));
    std::free(text);
    if (recording::currentHost != nullptr) {
        recording::currentHost->traced(*log, level, copy);
    }
}

CFiExecPipePosix::CFiExecPipePosix(int selector)
{
    const recording::InsideHost inside;
    EXPECT_EQ(selector, 1);
    const recording::Host* const host = recording::Host::current();
    if (host != nullptr && host->onRunner) {
        host->onRunner();
    }
}

int CFiExecPipeBase::Exec(std::string command, std::vector<std::string>& output, std::string third,
                          unsigned long timeoutSeconds, std::string fifth, std::string sixth, std::string seventh)
{
    const recording::InsideHost inside;
    EXPECT_TRUE(output.empty()) << "the list for the output must come empty";
    recording::Host::noteLimit(timeoutSeconds);
    EXPECT_EQ(third + fifth + sixth + seventh, "");
    recording::Host* const host = recording::Host::current();
    if (host == nullptr) {
        ADD_FAILURE() << "[" << command << "] is run while no host plays";
        return 127;
    }
    // The runner is handed its caller's log: seen as the record that a real runner would write.
    host->write(traceLog.get() != nullptr ? "runner with a log" : "runner without a log");
    return host->run(command, output, lastFailure);
}
