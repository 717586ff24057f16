// The test kit as its users see it: what it finds wrong, and whom it tells.
#include "testkit/recording_host.h"

#include "claim/kiv_claim_manager.h"
#include "claim/kiv_host_operations.h"
#include "modules/kiv_nativepath_claim.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <fcntl.h>

namespace testkit = kivclaim::testkit;
using testkit::lines;

namespace {

class Testkit : public testing::Test {
protected:
    Testkit()
    {
        testkit::onFailure([this](const std::string& what) { failures.push_back(what); });
    }
    ~Testkit() override { testkit::onFailure({}); }

    testkit::Lines failures;
};

}  // namespace

TEST_F(Testkit, SuppliesEveryOperationFromTheTestProgram)
{
    for (const kivclaim::HostOperation& operation : kivclaim::hostOperations()) {
        EXPECT_NE(operation.file.find("testkit_test"), std::string::npos) << operation.name << operation.file;
    }
}

TEST_F(Testkit, PlaysLvdisplay)
{
    testkit::Host host;
    host.prints("/sbin/lvdisplay", testkit::volumeListing({{"vg00", "root"}, {"data", "home"}}));
    CKivClaimManager manager;
    EXPECT_EQ(manager.claim("/dev/mapper/vg00-root"), 0U);
    EXPECT_EQ(manager.claim("/dev/mapper/data-home"), 0U);
    EXPECT_EQ(manager.claim("/dev/mapper/mpatha"), 16U);
    EXPECT_EQ(host.calls(), lines({"runner without a log", "run [/sbin/lvdisplay]"}));
    EXPECT_EQ(failures, lines({}));
}

TEST_F(Testkit, PlaysTheVolumeManager)
{
    testkit::Host host;
    host.executable("/usr/sbin/ztkivadm");
    host.prints("/usr/sbin/ztkivadm   getkivnode  nodename=sdc", testkit::volumeManagerTable({"kiv0_1 ENABLED DISK"}));
    host.prints("/usr/sbin/ztkivadm   getsubpaths  kivnodename=kiv0_1",
                testkit::volumeManagerTable({"sdc DISABLED SECONDARY", "sdd ENABLED(A) PRIMARY"}));
    CNativePathClaim module;
    EXPECT_EQ(module.getActivePath(std::string("/dev/sdc"), true), "/dev/sdd");
    EXPECT_EQ(failures, lines({}));
}

TEST_F(Testkit, FailsForACommandWithoutAScript)
{
    testkit::Host host;
    CKivClaimManager manager;
    manager.claim("/dev/mapper/mpatha");
    EXPECT_EQ(failures, lines({"unscripted command [/sbin/lvdisplay]"}));
}

TEST_F(Testkit, FailsForAScriptThatWasNotUsed)
{
    {
        testkit::Host host;
        host.prints("/sbin/lvdisplay", {});
    }
    EXPECT_EQ(failures, lines({"[/sbin/lvdisplay] was not run as often as scripted"}));
}

TEST_F(Testkit, FailsForADescriptorThatStaysOpen)
{
    {
        testkit::Host host;
        host.device("/dev/sdb");
        EXPECT_GE(open("/dev/sdb", O_RDONLY), 0);
    }
    EXPECT_EQ(failures, lines({"[/dev/sdb] was opened and never closed"}));
}

TEST_F(Testkit, FailsForAPauseWhileNoHostExists)
{
    sleep(1);
    EXPECT_EQ(failures, lines({"a test must not sleep"}));
}

TEST(TestkitDeathTest, WithoutAHandlerAFailureEndsTheProgram)
{
    testkit::onFailure({});
    EXPECT_DEATH(testkit::fail("this and that"), "^kivclaim testkit: this and that");
}
