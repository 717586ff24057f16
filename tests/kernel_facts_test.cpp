// What the kernel says about devices, as hosts ask it: on a recorded machine, and on this one.
#include "machine/kiv_kernel_facts.h"
#include "tests/process.h"
#include "tests/sysfs_directory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <thread>
#include <vector>

using kivclaim::KernelDevice;
using kivclaim::KernelFacts;
using kivclaim::KernelReading;
using kivclaim::KernelVerdict;
using testing::HasSubstr;

namespace {

class KernelFactsTest : public testing::Test {
protected:
    void SetUp() override
    {
        machine.scsiDisk("sda", "0:0:0:1").scsiDisk("sdb", "1:0:0:1").scsiDisk("sdc", "2:0:0:0").partition("sdc", 2);
        machine.partition("sda", 1).virtualDisk("emcpowera").virtualDisk("xvda").partition("emcpowera", 7);
        machine.multipathMap("dm-0", "mpatha", "36001405a", {"sda", "sdb"}).multipathPartition("dm-1", "dm-0", 12);
        machine.volume("dm-2", "ubuntu--vg-ubuntu--lv", {"sdc2"})
            .mapping("dm-3", "luks", "CRYPT-LUKS2-aa-luks", {"sdc"});
        machine.link("/dev/disk/by-id/wwn-0x1", "../../sdc").file("dev/null", "");
    }

    KernelFacts ask(const std::string& path) const { return KernelReading(folder.path()).ask(path); }
    KernelVerdict verdict(const std::string& path, const std::string& stack) const
    {
        return ask(path).verdictOn(stack);
    }

    tests::TemporaryFolder folder;
    tests::SysfsDirectory machine{folder.path()};
};

}  // namespace

TEST_F(KernelFactsTest, MultipathMapIsRecognised)
{
    const KernelFacts map = ask("/dev/mapper/mpatha");
    EXPECT_EQ(map.path(), "/dev/mapper/mpatha");
    EXPECT_EQ(map.device(), KernelDevice::multipathMap);
    EXPECT_EQ(map.stack(), "device-mapper");
    EXPECT_EQ(map.partition(), 0U);
    EXPECT_EQ(map.map(), "");
    EXPECT_EQ(map.description(), "multipath map");
    EXPECT_TRUE(map.isComplete());
}

TEST_F(KernelFactsTest, PartitionOfAMapHasItsNumberAndItsMap)
{
    const KernelFacts part = ask("/dev/dm-1");
    EXPECT_EQ(part.device(), KernelDevice::multipathPartition);
    EXPECT_EQ(part.name(), "/dev/mapper/mpatha-part12");
    EXPECT_EQ(part.partition(), 12U);
    EXPECT_EQ(part.wholeDevice(), "/dev/mapper/mpatha");
    EXPECT_EQ(part.description(), "partition 12 of /dev/mapper/mpatha");
}

TEST_F(KernelFactsTest, PathOfAMapAndItsPartitionNameTheMap)
{
    const KernelFacts path = ask("/dev/sda");
    EXPECT_EQ(path.device(), KernelDevice::disk);
    EXPECT_EQ(path.map(), "/dev/mapper/mpatha");
    EXPECT_EQ(path.stack(), "none");
    EXPECT_EQ(path.description(), "SCSI disk, path of /dev/mapper/mpatha");
    EXPECT_EQ(ask("/dev/sda1").device(), KernelDevice::partition);
    EXPECT_EQ(ask("/dev/sda1").description(), "partition 1 of /dev/sda, path of /dev/mapper/mpatha");
}

TEST_F(KernelFactsTest, DiskWithoutAMapIsNativeByAnyOfItsNames)
{
    const KernelFacts disk = ask("/dev/disk/by-id/wwn-0x1");
    EXPECT_EQ(disk.device(), KernelDevice::disk);
    EXPECT_EQ(disk.name(), "/dev/sdc");
    EXPECT_EQ(disk.stack(), "native");
    EXPECT_EQ(ask("/dev/sdc2").wholeDevice(), "/dev/sdc");
    EXPECT_EQ(ask("/dev/sdc2").stack(), "native");
}

TEST_F(KernelFactsTest, OtherDevicesHaveTheirDescriptions)
{
    EXPECT_EQ(ask("/dev/mapper/ubuntu--vg-ubuntu--lv").description(), "logical volume");
    EXPECT_EQ(ask("/dev/mapper/luks").description(), "other mapping");
    EXPECT_EQ(ask("/dev/emcpowera").description(), "PowerPath device");
    EXPECT_EQ(ask("/dev/emcpowera7").stack(), "powerpath");
    EXPECT_EQ(ask("/dev/xvda").description(), "other disk");
    EXPECT_EQ(ask("/dev/null").description(), "no block device");
    EXPECT_EQ(ask("/dev/sdzzz").description(), "no such device");
    EXPECT_EQ(ask("/dev/sdzzz").name(), "");
}

TEST_F(KernelFactsTest, ClaimThatFitsTheDeviceIsAgreedWith)
{
    EXPECT_EQ(verdict("/dev/mapper/mpatha", "device-mapper"), KernelVerdict::agrees);
    EXPECT_EQ(verdict("/dev/mapper/mpatha-part12", "device-mapper"), KernelVerdict::agrees);
    EXPECT_EQ(verdict("/dev/sdc2", "native"), KernelVerdict::agrees);
    EXPECT_EQ(verdict("/dev/emcpowera", "powerpath"), KernelVerdict::agrees);
    EXPECT_EQ(verdict("/dev/mapper/ubuntu--vg-ubuntu--lv", "none"), KernelVerdict::agrees);
    EXPECT_EQ(verdict("/dev/null", "none"), KernelVerdict::agrees);
}

TEST_F(KernelFactsTest, ClaimThatTheNameAloneGetsWrongIsContradicted)
{
    EXPECT_EQ(verdict("/dev/mapper/ubuntu--vg-ubuntu--lv", "device-mapper"), KernelVerdict::contradicts);
    EXPECT_EQ(verdict("/dev/mapper/luks", "device-mapper"), KernelVerdict::contradicts);
    EXPECT_EQ(verdict("/dev/sda", "native"), KernelVerdict::contradicts);
    EXPECT_EQ(verdict("/dev/dm-0", "none"), KernelVerdict::contradicts);
    EXPECT_EQ(verdict("/dev/null", "native"), KernelVerdict::contradicts);
}

TEST_F(KernelFactsTest, NothingIsSaidAboutAbsentDevicesAndModulesOfTheHosts)
{
    EXPECT_EQ(verdict("/dev/mapper/none", "device-mapper"), KernelVerdict::cannotTell);
    EXPECT_EQ(verdict("/dev/mapper/none", "none"), KernelVerdict::cannotTell);
    EXPECT_EQ(verdict("/dev/sda", "CNvmeClaim"), KernelVerdict::cannotTell);
}

TEST_F(KernelFactsTest, DeviceThatWasReadInPartCannotBeJudged)
{
    machine.attribute("dm-0", "dev", "not a number\n");
    EXPECT_FALSE(ask("/dev/mapper/mpatha").isComplete());
    EXPECT_EQ(verdict("/dev/mapper/mpatha", "native"), KernelVerdict::cannotTell);
}

TEST_F(KernelFactsTest, ManyPathsAreAnsweredInTheirOrderAndOutliveTheReading)
{
    std::vector<KernelFacts> all;
    {
        const KernelReading reading(folder.path());
        all = reading.askAll({"/dev/sdb", "/dev/none", "/dev/mapper/mpatha"});
    }
    ASSERT_EQ(all.size(), 3U);
    EXPECT_EQ(all[0].map(), "/dev/mapper/mpatha");
    EXPECT_EQ(all[1].device(), KernelDevice::absent);
    EXPECT_EQ(all[2].device(), KernelDevice::multipathMap);
}

TEST_F(KernelFactsTest, ManyThreadsAskOneReading)
{
    const KernelReading reading(folder.path());
    std::vector<std::thread> threads;
    std::vector<int> right(4);
    for (int& count : right) {
        threads.emplace_back([&reading, &count] {
            for (int i = 0; i < 200; ++i) {
                count += reading.ask("/dev/mapper/mpatha").device() == KernelDevice::multipathMap ? 1 : 0;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_THAT(right, testing::Each(200));
}

TEST(KernelFactsWithoutSysfs, AreUnknownAndSayWhy)
{
    const tests::TemporaryFolder empty;
    const KernelReading reading(empty.path());
    EXPECT_FALSE(reading.isRead());
    EXPECT_THAT(reading.problem(), HasSubstr(empty.path()));
    EXPECT_EQ(reading.ask("/dev/sda").device(), KernelDevice::unknown);
    EXPECT_EQ(reading.ask("/dev/sda").description(), "not known");
    EXPECT_EQ(reading.ask("/dev/sda").verdictOn("native"), KernelVerdict::cannotTell);
    EXPECT_EQ(reading.ask("/dev/sda").verdictOn("none"), KernelVerdict::cannotTell);
}

TEST(KernelFactsLive, AreThoseOfThisMachine)
{
    const KernelReading reading;
    EXPECT_EQ(reading.isRead(), std::filesystem::exists("/sys/class/block")) << reading.problem();
    if (reading.isRead()) {
        EXPECT_EQ(reading.problem(), "");
        EXPECT_EQ(reading.ask("/dev/null").device(), KernelDevice::noDevice);
        EXPECT_EQ(reading.ask("/dev/no such device").device(), KernelDevice::absent);
    }
}
