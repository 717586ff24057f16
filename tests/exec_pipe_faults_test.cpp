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
