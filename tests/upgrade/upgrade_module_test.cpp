// Claim modules and hosts of the kept release and of this one, each with each, on this release's library.
#include "tests/process.h"

#include <gtest/gtest.h>

using tests::Ended;
using tests::Process;

namespace {

void expectTheExamplesAnswers(const char* host, const char* module)
{
    const Ended ended = Process(host, {"--module", module, "/dev/nvme0n1p12", "/dev/emcpowera1"}).run();
    EXPECT_EQ(ended.output, "/dev/nvme0n1 12\n/dev/emcpowera 1\n");
    EXPECT_EQ(ended.errors, "");
    EXPECT_EQ(ended.status, 0);
}

}  // namespace

TEST(ModuleFiles, TheCommandAsksAModuleOfTheEarlierRelease)
{
    const Ended ended =
        Process(KIVCLAIM_COMMAND, {"--no-warn", "--module", MODULE_OF_BEFORE, "whole", "/dev/nvme0n1p2", "/dev/sda1"})
            .run();
    EXPECT_EQ(ended.output, "/dev/nvme0n1 2\n/dev/sda 1\n");
    EXPECT_EQ(ended.errors, "");
}

TEST(ModuleFiles, AHostAsksAModuleOfTheEarlierRelease)
{
    expectTheExamplesAnswers(EXAMPLE_HOST, MODULE_OF_BEFORE);
}

TEST(ModuleFiles, AHostOfTheEarlierReleaseAsksAModuleOfTheSame)
{
    expectTheExamplesAnswers(EXAMPLE_HOST_OF_BEFORE, MODULE_OF_BEFORE);
}

TEST(ModuleFiles, AHostOfTheEarlierReleaseAsksAModuleOfThisRelease)
{
    expectTheExamplesAnswers(EXAMPLE_HOST_OF_BEFORE, MODULE);
}
