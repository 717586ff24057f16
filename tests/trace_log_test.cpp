// The bundled host's trace log.
#include "host/trace_log.h"
#include "tests/process.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <fstream>
#include <regex>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

using kivclaim::host::makeTraceLog;
using kivclaim::host::TraceLogPointer;
using kivclaim::host::traceToFile;
using kivclaim::host::traceToFunction;
using kivclaim::host::traceToStandardError;
using kivclaim::host::traceToSystemLog;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

// What reached the system log, which this program plays.
std::vector<std::string> systemLog;

constexpr std::size_t manyBytes = 1UL << 30U;

std::vector<std::string> linesOf(const std::string& path)
{
    std::vector<std::string> lines;
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        lines.push_back(line);
    }
    return lines;
}

class TraceLogFile : public testing::Test {
protected:
    TraceLogPointer log(int threshold) const { return makeTraceLog({traceToFile(threshold, path, manyBytes, 1)}); }

    tests::TemporaryFolder folder;
    std::string path = folder.path() + "/trace.log";
};

// What is written to standard error meanwhile.
class StandardError {
public:
    StandardError() { testing::internal::CaptureStderr(); }
    static std::string text() { return testing::internal::GetCapturedStderr(); }
};

}  // namespace

extern "C" {

void openlog(const char* identity, int /*options*/, int /*facility*/)
{
    systemLog.push_back(std::string("opened as ") + identity);
}

void syslog(int priority, const char* format, ...)
{
    char text[1024];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    systemLog.push_back(std::to_string(priority) + " " + text);
}

}  // extern "C"

TEST_F(TraceLogFile, WritesTimeLevelProcessThreadAndText)
{
    const TraceLogPointer traceLog = log(6);
    EXPECT_EQ(traceLog->getCount(), 1U);
    traceLog->trace(1, "first %d", 1);
    traceLog->trace(2, "second %s", "two");
    traceLog->trace(3, "third");
    traceLog->trace(6, "fourth");
    const std::string form = R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} )";
    const std::string ids = std::to_string(getpid()) + ":" + std::to_string(gettid());
    const std::vector<std::string> expected = {
        form + "error    " + ids + " first 1", form + "warning  " + ids + " second two",
        form + "info     " + ids + " third", form + "detail   " + ids + " fourth"};
    const std::vector<std::string> lines = linesOf(path);
    ASSERT_EQ(lines.size(), expected.size());
    for (std::size_t i = 0; i < lines.size(); ++i) {
        EXPECT_TRUE(std::regex_match(lines[i], std::regex(expected[i]))) << lines[i];
    }
}

TEST_F(TraceLogFile, DropsRecordsAboveTheThreshold)
{
    const TraceLogPointer traceLog = log(2);
    traceLog->trace(3, "dropped");
    traceLog->trace(2, "kept");
    traceLog->trace(6, "dropped");
    ASSERT_EQ(linesOf(path).size(), 1U);
    EXPECT_THAT(linesOf(path).front(), testing::EndsWith(" kept"));
}

TEST_F(TraceLogFile, DropsBeforeAnyFormatting)
{
    const TraceLogPointer traceLog = log(2);
    // Formatting it would read from an address that cannot be read.
    traceLog->trace(6, "%s", reinterpret_cast<const char*>(1));
    EXPECT_THAT(linesOf(path), ElementsAre());
}

TEST_F(TraceLogFile, WritesLongTextsWhole)
{
    const std::string device = "/dev/" + std::string(65536, 'x') + "end";
    const TraceLogPointer traceLog = log(6);
    for (const std::size_t length : {510U, 511U, 512U, 513U}) {
        traceLog->trace(3, "%s", std::string(length, 'y').c_str());
    }
    traceLog->trace(3, "[%s]", device.c_str());
    const std::vector<std::string> lines = linesOf(path);
    ASSERT_EQ(lines.size(), 5U);
    EXPECT_THAT(lines[0], testing::EndsWith(" " + std::string(510, 'y')));
    EXPECT_THAT(lines[1], testing::EndsWith(" " + std::string(511, 'y')));
    EXPECT_THAT(lines[2], testing::EndsWith(" " + std::string(512, 'y')));
    EXPECT_THAT(lines[3], testing::EndsWith(" " + std::string(513, 'y')));
    EXPECT_THAT(lines[4], testing::EndsWith(" [" + device + "]"));
}

TEST_F(TraceLogFile, ADeviceNameCanNeitherForgeARecordNorControlATerminal)
{
    const TraceLogPointer traceLog = log(6);
    traceLog->trace(3, "[%s]", "/dev/x\n2026-01-01 00:00:00.000 error forged\x1b[2J\r");
    ASSERT_EQ(linesOf(path).size(), 1U);
    EXPECT_THAT(linesOf(path).front(),
                testing::EndsWith(" [/dev/x\\x0a2026-01-01 00:00:00.000 error forged\\x1b[2J\\x0d]"));
}

TEST_F(TraceLogFile, BracesInATextAreNotAFormat)
{
    log(6)->trace(3, "%s", "{} {0} %v %s");
    EXPECT_THAT(linesOf(path).front(), testing::EndsWith(" {} {0} %v %s"));
}

TEST_F(TraceLogFile, EachLogAppendsToTheFileThatIsThere)
{
    log(6)->trace(3, "first");
    log(6)->trace(3, "second");
    EXPECT_EQ(linesOf(path).size(), 2U);
}

TEST_F(TraceLogFile, IsRotatedWhenItHasReachedItsSize)
{
    const TraceLogPointer traceLog = makeTraceLog({traceToFile(6, path, 4096, 2)});
    const std::string text(1000, 'x');
    for (int i = 0; i < 40; ++i) {
        traceLog->trace(3, "%s", text.c_str());
    }
    for (const char* const name : {"/trace.log", "/trace.1.log", "/trace.2.log"}) {
        struct stat status {};
        ASSERT_EQ(stat((folder.path() + name).c_str(), &status), 0) << name;
        EXPECT_LE(status.st_size, 4096) << name;
    }
    EXPECT_NE(access((folder.path() + "/trace.3.log").c_str(), F_OK), 0);
}

TEST_F(TraceLogFile, SeveralThreadsMayWriteAtOnce)
{
    const TraceLogPointer traceLog = log(6);
    const auto write = [&](char character) {
        const std::string text(2000, character);
        for (int i = 0; i < 200; ++i) {
            traceLog->trace(3, "[%s]", text.c_str());
        }
    };
    std::thread first(write, 'a');
    std::thread second(write, 'b');
    first.join();
    second.join();
    const std::vector<std::string> lines = linesOf(path);
    ASSERT_EQ(lines.size(), 400U);
    for (const std::string& line : lines) {
        const std::string text = line.substr(line.size() - 2002);
        EXPECT_TRUE(text == "[" + std::string(2000, 'a') + "]" || text == "[" + std::string(2000, 'b') + "]");
    }
}

TEST_F(TraceLogFile, AThreadThatIsCancelledWhileItTracesJustEnds)
{
    const TraceLogPointer traceLog = log(6);
    std::atomic<bool> isTracing{false};
    std::pair<const TraceLogPointer&, std::atomic<bool>&> shared{traceLog, isTracing};
    pthread_t thread{};
    const auto traceForEver = [](void* argument) -> void* {
        const auto& [log, started] = *static_cast<decltype(shared)*>(argument);
        for (;;) {
            log->trace(3, "again");
            started = true;
            pthread_testcancel();
        }
    };
    ASSERT_EQ(pthread_create(&thread, nullptr, traceForEver, &shared), 0);
    while (!isTracing) {
        std::this_thread::yield();
    }
    pthread_cancel(thread);
    void* end = nullptr;
    pthread_join(thread, &end);
    EXPECT_EQ(end, PTHREAD_CANCELED);
    traceLog->trace(3, "the last");
    EXPECT_THAT(linesOf(path).back(), testing::EndsWith(" the last")) << "the log is not left locked";
}

TEST(TraceLogFailure, AnUnwritableFileIsReportedOnceAndTheTracedCallGoesOn)
{
    const StandardError errors;
    const TraceLogPointer traceLog = makeTraceLog({traceToFile(6, "/dev/null/no\nfile", manyBytes, 1)});
    for (int i = 0; i < 3; ++i) {
        traceLog->trace(1, "lost");
    }
    const std::string text = StandardError::text();
    EXPECT_THAT(text, testing::StartsWith("kivclaim: trace records for /dev/null/no\\x0afile are lost: "));
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1) << text;
}

TEST(TraceLogFailure, AFullDiskIsReportedOnceAndTheTracedCallGoesOn)
{
    const tests::TemporaryFolder folder;
    const std::string path = folder.path() + "/full.log";
    ASSERT_EQ(symlink("/dev/full", path.c_str()), 0);
    const StandardError errors;
    {
        const TraceLogPointer traceLog = makeTraceLog({traceToFile(6, path, manyBytes, 1)});
        for (int i = 0; i < 3; ++i) {
            traceLog->trace(1, "lost");
        }
    }
    const std::string text = StandardError::text();
    EXPECT_THAT(text, HasSubstr("are lost: "));
    EXPECT_THAT(text, HasSubstr("No space left on device"));
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1) << text;
}

TEST(TraceLogStandardError, WritesWithoutColourWhenItIsNoTerminal)
{
    const StandardError errors;
    makeTraceLog({traceToStandardError(3)})->trace(1, "to standard error");
    const std::string text = StandardError::text();
    EXPECT_THAT(text, HasSubstr(" error    "));
    EXPECT_THAT(text, testing::EndsWith(" to standard error\n"));
    EXPECT_THAT(text, testing::Not(HasSubstr("\x1b")));
}

TEST(TraceLogFunction, GetsLevelAndTextAsTheyAre)
{
    std::vector<std::string> received;
    const TraceLogPointer traceLog = makeTraceLog({traceToFunction(
        3, [&](int level, const std::string& text) { received.push_back(std::to_string(level) + " " + text); })});
    traceLog->trace(3, "%s", "a\nb");
    traceLog->trace(4, "dropped");
    EXPECT_THAT(received, ElementsAre("3 a\nb"));
}

TEST(TraceLogFunction, WhatItThrowsDoesNotReachTheTracedCall)
{
    const TraceLogPointer traceLog = makeTraceLog({traceToFunction(
        6, [](int /*level*/, const std::string& /*text*/) { throw std::runtime_error("from the receiver"); })});
    EXPECT_NO_THROW(traceLog->trace(1, "x"));
}

TEST(TraceLogDestinations, EachHasItsOwnThreshold)
{
    std::vector<std::string> all;
    std::vector<std::string> errors;
    const TraceLogPointer traceLog =
        makeTraceLog({traceToFunction(6, [&](int /*level*/, const std::string& text) { all.push_back(text); }),
                      traceToFunction(1, [&](int /*level*/, const std::string& text) { errors.push_back(text); })});
    traceLog->trace(1, "one");
    traceLog->trace(2, "two");
    traceLog->trace(6, "six");
    EXPECT_THAT(all, ElementsAre("one", "two", "six"));
    EXPECT_THAT(errors, ElementsAre("one"));
}

TEST(TraceLogDestinations, ALogWithoutAnyWritesNothing)
{
    const StandardError errors;
    makeTraceLog({})->trace(1, "nowhere");
    EXPECT_EQ(StandardError::text(), "");
}

TEST(TraceLogDestinations, ALogThatTheFactoryDidNotMakeWritesNothing)
{
    const StandardError errors;
    ztfi_pdk_4_4::CFiTraceLog plain;
    plain.trace(1, "nowhere");
    EXPECT_EQ(StandardError::text(), "");
}

TEST(TraceLogSystemLog, GetsTheWholeRecordWithItsPriority)
{
    systemLog.clear();
    const TraceLogPointer traceLog = makeTraceLog({traceToSystemLog(3, "kivclaim-test")});
    traceLog->trace(1, "an %s", "error");
    traceLog->trace(2, "a warning");
    traceLog->trace(3, "an information");
    traceLog->trace(6, "dropped");
    ASSERT_EQ(systemLog.size(), 4U);
    EXPECT_EQ(systemLog[0], "opened as kivclaim-test");
    EXPECT_THAT(systemLog[1], testing::StartsWith(std::to_string(LOG_ERR) + " "));
    EXPECT_THAT(systemLog[1], HasSubstr(" error    " + std::to_string(getpid()) + ":"));
    EXPECT_THAT(systemLog[1], testing::EndsWith(" an error"));
    EXPECT_THAT(systemLog[2], testing::StartsWith(std::to_string(LOG_WARNING) + " "));
    EXPECT_THAT(systemLog[3], testing::StartsWith(std::to_string(LOG_INFO) + " "));
}
