// The machine's own failures: the kernel's release, device nodes and names that cannot be.
#include "modules/kiv_linux_device_mapper_claim.h"
#include "modules/kiv_nativepath_claim.h"
#include "tests/recording_host.h"

#include <gtest/gtest.h>

#include <cerrno>

using recording::Host;
using recording::lines;

namespace {

constexpr unsigned int untouched = 77;
using namespace std::string_literals;

}  // namespace

TEST(FailingMachine, AReleaseThatCannotBeReadIsAnUnknownOne)
{
    Host host;
    CKivDeviceMapperClaim module;
    module.registerTraceLog(host.log());
    host.unameFails = true;
    EXPECT_EQ(module.getSuSEVersion(), -1);
    EXPECT_EQ(module.appendPartitionSuffix("/dev/mapper/mpath0", 2), "/dev/mapper/mpath0p2");
    EXPECT_EQ(host.trace(1), lines({}));
}

TEST(FailingMachine, ANodeThatCannotBeOpenedIsAbsentWhateverTheError)
{
    for (const int error : {ENOENT, EACCES, EPERM, EMFILE, ENFILE, EINTR, ENOMEM, ENXIO, ENODEV, EIO, EBUSY, ELOOP}) {
        Host host;
        host.kernelRelease("3.5.0");
        host.device("/dev/mapper/a");
        host.device("/dev/mapper/a1");
        CKivDeviceMapperClaim module;
        module.registerTraceLog(host.log());
        host.openError = error;
        unsigned int partition = untouched;
        EXPECT_EQ(module.isPartition("/dev/mapper/a1"), 0) << error;
        EXPECT_EQ(module.appendPartitionSuffix("/dev/mapper/a", 1), "/dev/mapper/a") << error;
        EXPECT_EQ(module.removePartitionSuffix("/dev/mapper/a-part1", partition), "/dev/mapper/a-part1") << error;
        EXPECT_EQ(partition, 0U);
        EXPECT_EQ(host.trace(1), lines({}));
        EXPECT_EQ(host.trace(2), lines({})) << "the error is not traced";
    }
}

TEST(FailingMachine, ANativePartitionPathEndsAtTheNulOfItsDevice)
{
    CNativePathClaim module;
    EXPECT_EQ(module.appendPartitionSuffix("/dev/sda\0x"s, 1), "/dev/sda1");
}

TEST(FailingMachine, ACommandEndsAtTheNulOfItsDiskName)
{
    Host host;
    CZtKIVSupport support;
    std::string node;
    host.prints("/usr/sbin/ztkivadm   getkivnode  nodename=sdc", lines({"NAME", "====", "kiv0_1"}));
    EXPECT_EQ(support.getZtVMDiskForOSDiskHandler("sdc\0x"s, node), 0);
    EXPECT_EQ(node, "kiv0_1");
}
