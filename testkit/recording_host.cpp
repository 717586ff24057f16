#include "testkit/recording_host.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <utility>

using ztfi_pdk_4_4::CFiExecPipeBase;
using ztfi_pdk_4_4::CFiExecPipePosix;
using ztfi_pdk_4_4::CFiTraceLog;
using ztfi_pdk_4_4::EFiExecPipe;

namespace kivclaim::testkit {

namespace {

Host* currentHost = nullptr;
std::function<void(const std::string& what)> failureHandler;

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

void onFailure(std::function<void(const std::string& what)> handler)
{
    failureHandler = std::move(handler);
}

void fail(const std::string& what)
{
    if (failureHandler) {
        failureHandler(what);
        return;
    }
    std::fprintf(stderr, "kivclaim testkit: %s\n", what.c_str());
    std::abort();
}

Lines volumeListing(const std::vector<std::pair<std::string, std::string>>& volumes)
{
    Lines listing;
    for (const auto& [group, name] : volumes) {
        listing.insert(listing.end(),
                       {"  --- Logical volume ---",
                        std::string("  LV Path                /dev/").append(group).append("/").append(name),
                        "  LV Name                " + name, "  VG Name                " + group, ""});
    }
    return listing;
}

Lines volumeManagerTable(const Lines& rows)
{
    Lines table = {"NAME STATE TYPE", "==============="};
    table.insert(table.end(), rows.begin(), rows.end());
    return table;
}

Host::Host() : rawLog(new RecordingLog(""))
{
    heldLog.acquire(rawLog);
    if (currentHost != nullptr) {
        fail("a second host was made while one exists");
    }
    currentHost = this;
    playCalls();
}

Host::~Host()
{
    currentHost = nullptr;
    for (const auto& script : scripts) {
        if (script->timesLeft != 0) {
            fail("[" + script->command + "] was not run as often as scripted");
        }
    }
    for (const std::string& path : openPaths) {
        if (!path.empty()) {
            fail("[" + path + "] was opened and never closed");
        }
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
        fail("unscripted command [" + command + "]");
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
    if (seconds != 600 && (currentHost == nullptr || !currentHost->acceptsAnyLimit)) {
        fail("a command is run with a limit of " + std::to_string(seconds) + " seconds");
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
    if (path.empty()) {
        fail("a descriptor is closed twice");
    }
    write("close " + path);
    path.clear();
    return true;
}

}  // namespace kivclaim::testkit

void CFiTraceLog::trace(int level, const char* format, ...)
{
    const kivclaim::testkit::InsideHost inside;
    auto* const log = dynamic_cast<kivclaim::testkit::RecordingLog*>(this);
    if (log == nullptr) {
        kivclaim::testkit::fail("a record for a log that this host did not make");
        return;
    }
    va_list arguments;
    va_start(arguments, format);
    char* text = nullptr;
    const int length = vasprintf(&text, format, arguments);
    va_end(arguments);
    if (length < 0) {
        kivclaim::testkit::fail(std::string("a record that cannot be formatted: ") + format);
        return;
    }
    const std::string copy(text, static_cast<std::size_t>(length));
    std::free(text);
    if (kivclaim::testkit::currentHost != nullptr) {
        kivclaim::testkit::currentHost->traced(*log, level, copy);
    }
}

CFiExecPipePosix::CFiExecPipePosix(int selector)
{
    const kivclaim::testkit::InsideHost inside;
    if (selector != 1) {
        kivclaim::testkit::fail("a runner is made with " + std::to_string(selector));
    }
    const kivclaim::testkit::Host* const host = kivclaim::testkit::Host::current();
    if (host != nullptr && host->onRunner) {
        host->onRunner();
    }
}

int CFiExecPipeBase::Exec(std::string command, std::vector<std::string>& output, std::string third,
                          unsigned long timeoutSeconds, std::string fifth, std::string sixth, std::string seventh)
{
    const kivclaim::testkit::InsideHost inside;
    if (!output.empty()) {
        kivclaim::testkit::fail("the list for the output must come empty");
    }
    kivclaim::testkit::Host::noteLimit(timeoutSeconds);
    if (!(third + fifth + sixth + seventh).empty()) {
        kivclaim::testkit::fail("[" + command + "] is run with more than its output and limit");
    }
    kivclaim::testkit::Host* const host = kivclaim::testkit::Host::current();
    if (host == nullptr) {
        kivclaim::testkit::fail("[" + command + "] is run while no host exists");
        return 127;
    }
    // Shows that the runner got its caller's log: by the record that a real runner would write.
    host->write(traceLog.get() != nullptr ? "runner with a log" : "runner without a log");
    return host->run(command, output, lastFailure);
}
