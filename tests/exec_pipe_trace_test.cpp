// The command runner with a trace log that throws. The bundled log never does, so this program supplies the operation
// itself, as another host would.
#include "tests/runner_fixture.h"

#include <cstdarg>
#include <cstdio>
#include <stdexcept>

#include <gmock/gmock.h>

using testing::ElementsAre;
using ztfi_pdk_4_4::CFiExecPipePosix;
using ztfi_pdk_4_4::CFiSmartPtr;
using ztfi_pdk_4_4::CFiTraceLog;

namespace {

std::vector<std::string> records;
std::size_t throwingRecord = 0;

}  // namespace

void CFiTraceLog::trace(int level, const char* format, ...)
{
    char text[512];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    records.push_back(std::to_string(level) + " " + text);
    if (records.size() == throwingRecord) {
        throw std::runtime_error("no trace");
    }
}

class ExecPipeTrace : public RunnerTest {
protected:
    ExecPipeTrace()
    {
        CFiSmartPtr<CFiTraceLog> log;
        log.acquire(new CFiTraceLog);
        runner.registerTraceLog(log);
        records.clear();
    }

    // Runs with a log that throws at its `number`th record.
    void expectThrowAt(std::size_t number, const std::string& words)
    {
        throwingRecord = number;
        Lines lines{"earlier"};
        EXPECT_THROW(runner.Exec(probe + " " + words, lines, "", 0, "", "", ""), std::runtime_error);
        EXPECT_EQ(records.size(), number);
        EXPECT_THAT(lines, ElementsAre("earlier")) << "Exec has thrown";
        EXPECT_TRUE(hasNoChildren());
    }

    CFiExecPipePosix runner{1};
};

TEST_F(ExecPipeTrace, RunsNothingWhenTheFirstRecordThrows)
{
    expectThrowAt(1, "exit 3");
    EXPECT_EQ(runner.getLastFailure().waitStatus, 0);
}

TEST_F(ExecPipeTrace, HasEndedTheCommandAndRecordedItsFailureWhenTheLastRecordsThrow)
{
    expectThrowAt(2, "exit 3");
    EXPECT_EQ(runner.getLastFailure().waitStatus, 3 << 8);
    records.clear();
    expectThrowAt(3, "exit 4");
    EXPECT_EQ(runner.getLastFailure().waitStatus, 4 << 8);
    EXPECT_THAT(records, ElementsAre("6 Running [" + probe + " exit 4]",
                                     "6 Finished [" + probe + " exit 4]: result 4, wait status 1024",
                                     "2 The command [" + probe + " exit 4] ended with exit code 4"));
}

TEST_F(ExecPipeTrace, GivesNoOutputWhenTheRecordOfTheEndThrows)
{
    expectThrowAt(2, "print out@n exit 0");
}
