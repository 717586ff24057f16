// The claim module for device-mapper devices: claims, partitions, releases and the decoding of a wait status.
#include "modules/kiv_linux_device_mapper_claim.h"
#include "tests/recording_host.h"

#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>
#include <thread>
#include <utility>

using recording::Host;
using recording::lines;

namespace {

constexpr unsigned int untouched = 77;

class DeviceMapper : public testing::Test {
protected:
    void SetUp() override { module.registerTraceLog(host.log()); }

    // A machine with one logical volume, so that the list is built once.
    void haveOneVolume()
    {
        host.prints("/sbin/lvdisplay", {"  LV Name                /dev/vg00/lvol1", "  VG Name                vg00"});
    }

    Host host;
    CKivDeviceMapperClaim module;
};

// A module that overrides the partition test.
class EverythingIsAPartition : public CKivDeviceMapperClaim {
public:
    int isPartition(const std::string& /*path*/) override { return 1; }
};

}  // namespace

TEST_F(DeviceMapper, HasOneClaimString)
{
    EXPECT_EQ(module.getDeviceClaimStrings(), lines({"/dev/mapper/"}));
    EXPECT_EQ(host.effects(),
              lines({"6 Entering Function getDeviceClaimStrings [51, kiv_linux_device_mapper_claim.cpp]",
                     "6 Exiting Function getDeviceClaimStrings [51, kiv_linux_device_mapper_claim.cpp]"}));
}

TEST_F(DeviceMapper, ClaimsANodeThatIsNoLogicalVolume)
{
    haveOneVolume();
    EXPECT_EQ(module.claim("/dev/mapper/mpatha"), 16U);
    EXPECT_EQ(
        host.effects(),
        lines({"6 Entering Function claim [60, kiv_linux_device_mapper_claim.cpp]",
               "3 CKivDeviceMapperClaim::isLinuxLogicalVolume: Checking for device:[/dev/mapper/mpatha]",
               "6 CKivDeviceMapperClaim::createLvmDeviceNamesList: Command:[/sbin/lvdisplay]", "runner with a log",
               "run [/sbin/lvdisplay]",
               "6 CKivDeviceMapperClaim::createLvmDeviceNamesList: Output:[/dev/mapper/vg00-lvol1]",
               "6 CKivDeviceMapperClaim::isLinuxLogicalVolume: The device path:[/dev/mapper/mpatha] is not logical "
               "volume.",
               "3 INFO: CKivDeviceMapperClaim::claim - returning ZTFI_DEVICE_CLAIM_LEVEL_KIV_SECONDARY",
               "6 Exiting Function claim [60, kiv_linux_device_mapper_claim.cpp]"}));
}

TEST_F(DeviceMapper, DoesNotClaimALogicalVolume)
{
    haveOneVolume();
    EXPECT_EQ(module.claim("/dev/mapper/vg00-lvol1"), 0U);
    EXPECT_EQ(host.trace(3),
              lines({"CKivDeviceMapperClaim::isLinuxLogicalVolume: Checking for device:[/dev/mapper/vg00-lvol1]",
                     "INFO: CKivDeviceMapperClaim::claim - returning ZTFI_DEVICE_CLAIM_LEVEL_NONE"}));
}

TEST_F(DeviceMapper, DoesNotClaimTheBareDirectoryAndBuildsNoListForIt)
{
    EXPECT_EQ(module.claim("/dev/mapper"), 0U);
    EXPECT_EQ(module.claim("/dev/sda"), 0U);
    EXPECT_EQ(module.claim(""), 0U);
    EXPECT_EQ(host.calls(), lines({}));
    EXPECT_EQ(host.trace(3), lines({"INFO: CKivDeviceMapperClaim::claim - returning ZTFI_DEVICE_CLAIM_LEVEL_NONE",
                                    "INFO: CKivDeviceMapperClaim::claim - returning ZTFI_DEVICE_CLAIM_LEVEL_NONE",
                                    "INFO: CKivDeviceMapperClaim::claim - returning ZTFI_DEVICE_CLAIM_LEVEL_NONE"}));
}

TEST_F(DeviceMapper, ClaimsEveryPathWhenTheListCannotBeBuilt)
{
    host.fails("/sbin/lvdisplay", 5, 5 << 8, {}).times(2);
    EXPECT_EQ(module.claim("/dev/mapper/mpatha"), 16U);
    EXPECT_EQ(module.claim("/dev/mapper/vg00-lvol1"), 16U);
}

TEST_F(DeviceMapper, ClaimsAPathThatContainsTheDirectoryAnywhere)
{
    haveOneVolume();
    EXPECT_EQ(module.claim("/host/dev/mapper/x"), 16U);
}

TEST_F(DeviceMapper, ANameThatEndsInPartAndOneDigitIsAPartitionWithoutAnyProbe)
{
    EXPECT_EQ(module.isPartition("/dev/mapper/mpatha-part1"), 1);
    EXPECT_EQ(
        host.effects(),
        lines({"6 Entering Function isPartition [78, kiv_linux_device_mapper_claim.cpp]",
               "3 INFO:  CKivDeviceMapperClaim::isPartition: Device path:[/dev/mapper/mpatha-part1] is a partition",
               "6 Exiting Function isPartition [78, kiv_linux_device_mapper_claim.cpp]"}));
    EXPECT_EQ(module.isPartition("/dev/mapper/mpatha_part9"), 1);
    EXPECT_EQ(module.isPartition("/dev/mapper/mpathapart0"), 1);
    EXPECT_EQ(host.calls(), lines({}));
}

TEST_F(DeviceMapper, TheNameRuleDoesNotAskForASlashAfterTheDirectory)
{
    EXPECT_EQ(module.isPartition("/dev/mapperpart1"), 1);
    EXPECT_EQ(module.isPartition("/host/dev/mapper/x-part1"), 1);
    EXPECT_EQ(host.calls(), lines({}));
}

TEST_F(DeviceMapper, ForATwoDigitPartitionTheProbeDecides)
{
    EXPECT_EQ(module.isPartition("/dev/mapper/mpatha-part12"), 0);
    EXPECT_EQ(host.effectsInside(),
              lines({"open /dev/mapper/mpatha-part1: no", "open /dev/mapper/mpatha-part: no",
                     "6 CKivDeviceMapperClaim::isPartition: [/dev/mapper/mpatha-part12] is not a partition"}));
    host.forget();
    host.device("/dev/mapper/mpatha-part1");
    EXPECT_EQ(module.isPartition("/dev/mapper/mpatha-part12"), 1);
    EXPECT_EQ(host.effectsInside(),
              lines({"open /dev/mapper/mpatha-part1: yes",
                     "6 CKivDeviceMapperClaim::isPartition: [/dev/mapper/mpatha-part12] is a partition and "
                     "[/dev/mapper/mpatha-part1] is the possible parent device",
                     "close /dev/mapper/mpatha-part1"}));
}

TEST_F(DeviceMapper, TheProbeTriesTheLongerParentFirst)
{
    host.device("/dev/mapper/mpath");
    EXPECT_EQ(module.isPartition("/dev/mapper/mpathp1"), 1);
    EXPECT_EQ(host.effectsInside(),
              lines({"open /dev/mapper/mpathp: no", "open /dev/mapper/mpath: yes",
                     "6 CKivDeviceMapperClaim::isPartition: [/dev/mapper/mpathp1] is a partition and "
                     "[/dev/mapper/mpath] is the possible parent device",
                     "close /dev/mapper/mpath"}));
}

TEST_F(DeviceMapper, TheProbeAppliesToAnyPath)
{
    host.device("/dev/sdb");
    EXPECT_EQ(module.isPartition("/dev/sdb1"), 1);
    EXPECT_EQ(host.calls(), lines({"open /dev/sdb: yes", "close /dev/sdb"}));
}

TEST_F(DeviceMapper, ANameWithoutATrailingDigitIsNoPartition)
{
    EXPECT_EQ(module.isPartition("/dev/mapper/mpatha"), 0);
    EXPECT_EQ(host.effectsInside(),
              lines({"6 CKivDeviceMapperClaim::isPartition: [/dev/mapper/mpatha] is not a partition"}));
    EXPECT_EQ(module.isPartition("/dev/mapper/mpatha-part:"), 0) << "the character after '9'";
    EXPECT_EQ(module.isPartition("/dev/mapper/mpatha-part/"), 0) << "the character before '0'";
    EXPECT_EQ(host.calls(), lines({}));
}

TEST_F(DeviceMapper, AnEmptyPathIsNoPartitionAndSaysSoTwice)
{
    EXPECT_EQ(module.isPartition(""), 0);
    EXPECT_EQ(host.effectsInside(), lines({"6 CKivDeviceMapperClaim::isPartition: Partition name is empty: []",
                                           "6 CKivDeviceMapperClaim::isPartition:  is not a partition"}));
}

TEST_F(DeviceMapper, AShortPathIsProbedWithWhatIsLeftOfIt)
{
    EXPECT_EQ(module.isPartition("5"), 0);
    EXPECT_EQ(host.calls(), lines({"open : no", "open : no"}));
    host.forget();
    EXPECT_EQ(module.isPartition("a5"), 0);
    EXPECT_EQ(host.calls(), lines({"open a: no", "open : no"}));
}

TEST_F(DeviceMapper, AnExceptionInThePartitionTestIsTracedAndAnsweredWithNo)
{
    host.failsTracing("CKivDeviceMapperClaim::isPartition: [", [] { throw std::out_of_range("position"); });
    EXPECT_EQ(module.isPartition("/dev/mapper/x"), 0);
    EXPECT_EQ(host.trace(1),
              lines({"CKivDeviceMapperClaim::isPartition: Out of Range exception thrown in string function"}));
    host.forget();
    host.failsTracing("CKivDeviceMapperClaim::isPartition: [", [] { throw 42; });
    EXPECT_EQ(module.isPartition("/dev/mapper/x"), 0);
    EXPECT_EQ(host.trace(2), lines({"CKivDeviceMapperClaim::isPartition: Unknown exception caught"}));
}

TEST_F(DeviceMapper, OnRelease11AppendsAnUnderscorePartAndTheNumber)
{
    host.kernelRelease("3.0.101-63-default");
    EXPECT_EQ(module.appendPartitionSuffix("/dev/mapper/mpatha", 1), "/dev/mapper/mpatha_part1");
    EXPECT_EQ(host.effects(),
              lines({"6 Entering Function appendPartitionSuffix [242, kiv_linux_device_mapper_claim.cpp]",
                     "3 INFO: CKivDeviceMapperClaim::appendPartitionSuffix: device: [/dev/mapper/mpatha], partition "
                     "number :[1]",
                     "uname", "3 INFO: getSuSEVersion: SuSE version 11",
                     "3 INFO: CKivDeviceMapperClaim::appendPartitionSuffix: device: [/dev/mapper/mpatha], partition: "
                     "[/dev/mapper/mpatha_part1], partition number: [1]",
                     "6 Exiting Function appendPartitionSuffix [242, kiv_linux_device_mapper_claim.cpp]"}));
}

TEST_F(DeviceMapper, AppendAsksTwiceForTheReleaseUnlessItIs11)
{
    host.kernelRelease("4.12.14-120-default");
    EXPECT_EQ(module.appendPartitionSuffix("/dev/mapper/mpatha", 1), "/dev/mapper/mpatha-part1");
    EXPECT_EQ(host.effectsInside(),
              lines({"3 INFO: CKivDeviceMapperClaim::appendPartitionSuffix: device: [/dev/mapper/mpatha], partition "
                     "number :[1]",
                     "uname", "3 INFO: getSuSEVersion: SuSE version 12 or more", "uname",
                     "3 INFO: getSuSEVersion: SuSE version 12 or more",
                     "3 INFO: CKivDeviceMapperClaim::appendPartitionSuffix: device: [/dev/mapper/mpatha], partition: "
                     "[/dev/mapper/mpatha-part1], partition number: [1]"}));
}

TEST_F(DeviceMapper, AppendsNumbersOfAnySizeInSignedDecimal)
{
    EXPECT_EQ(module.appendPartitionSuffix("/dev/mapper/mpatha", 128), "/dev/mapper/mpatha-part128");
    EXPECT_EQ(module.appendPartitionSuffix("/dev/mapper/mpatha", 2147483648U), "/dev/mapper/mpatha-part-2147483648");
    EXPECT_EQ(host.trace(3)[4],
              "INFO: CKivDeviceMapperClaim::appendPartitionSuffix: device: [/dev/mapper/mpatha], partition number "
              ":[-2147483648]");
    EXPECT_EQ(module.appendPartitionSuffix("/dev/mapper/mpatha", 0), "/dev/mapper/mpatha-part0");
    EXPECT_EQ(module.appendPartitionSuffix("/dev/sda", 1), "/dev/sda-part1") << "the directory is not asked for";
}

TEST_F(DeviceMapper, AppendsPAndTheNumberAfterADigitWhenTheReleaseIsUnknown)
{
    host.kernelRelease("3.5.0");
    EXPECT_EQ(module.appendPartitionSuffix("/dev/mapper/mpath0", 2), "/dev/mapper/mpath0p2");
    EXPECT_EQ(host.calls(), lines({"uname", "uname"}));
}

TEST_F(DeviceMapper, AppendsWhicheverNameExistsWhenTheReleaseIsUnknown)
{
    host.kernelRelease("3.5.0");
    EXPECT_EQ(module.appendPartitionSuffix("/dev/mapper/mpatha", 1), "/dev/mapper/mpatha");
    EXPECT_EQ(host.calls(), lines({"uname", "uname", "open /dev/mapper/mpatha1: no", "open /dev/mapper/mpathap1: no"}));
    EXPECT_EQ(host.trace(3).back(),
              "INFO: CKivDeviceMapperClaim::appendPartitionSuffix: device: [/dev/mapper/mpatha], partition: "
              "[/dev/mapper/mpatha], partition number: [1]");
    host.device("/dev/mapper/mpathap1");
    EXPECT_EQ(module.appendPartitionSuffix("/dev/mapper/mpatha", 1), "/dev/mapper/mpathap1");
    host.device("/dev/mapper/mpatha1");
    host.forget();
    EXPECT_EQ(module.appendPartitionSuffix("/dev/mapper/mpatha", 1), "/dev/mapper/mpatha1");
    EXPECT_EQ(host.calls(), lines({"uname", "uname", "open /dev/mapper/mpatha1: yes", "close /dev/mapper/mpatha1"}));
}

TEST_F(DeviceMapper, AppendingToAnEmptyPathGivesAnEmptyPath)
{
    EXPECT_EQ(module.appendPartitionSuffix("", 1), "");
    EXPECT_EQ(host.effectsInside(),
              lines({"3 INFO: CKivDeviceMapperClaim::appendPartitionSuffix: device: [], partition number :[1]",
                     "3 INFO: CKivDeviceMapperClaim::appendPartitionSuffix: Partition name is empty []"}));
}

TEST_F(DeviceMapper, AnExceptionWhileAppendingGivesTheDeviceBack)
{
    for (const char* const record :
         {"INFO: CKivDeviceMapperClaim::appendPartitionSuffix: device: [/dev/mapper/a], partition: ",
          "INFO: getSuSEVersion"}) {
        host.forget();
        host.failsTracing(record, [] { throw std::out_of_range("x"); });
        EXPECT_EQ(module.appendPartitionSuffix("/dev/mapper/a", 1), "/dev/mapper/a");
        EXPECT_EQ(host.trace(1),
                  lines({"INFO: CKivDeviceMapperClaim::appendPartitionSuffix: Unknown exception caught"}));
    }
}

TEST_F(DeviceMapper, ALogThatKeepsThrowingChangesNoAnswerOfAHandler)
{
    const auto answers = [&](const std::function<void()>& thrower) {
        unsigned int partition = untouched;
        host.failsTracing("CKivDeviceMapperClaim::isPartition: ", thrower);
        EXPECT_EQ(module.isPartition("/dev/mapper/x"), 0);
        host.failsTracing("INFO: CKivDeviceMapperClaim::appendPartitionSuffix: ", thrower);
        EXPECT_EQ(module.appendPartitionSuffix("/dev/mapper/a", 1), "/dev/mapper/a");
        host.failsTracing("CKivDeviceMapperClaim::removePartitionSuffix: ", thrower);
        EXPECT_EQ(module.removePartitionSuffix("/dev/mapper/a-part1", partition), "/dev/mapper/a-part1");
        EXPECT_EQ(partition, untouched);
        EXPECT_EQ(module.removePartitionSuffix("/dev/sda1", partition), "/dev/sda1");
        EXPECT_EQ(partition, untouched);
    };
    answers([] { throw 42; });
    EXPECT_EQ(host.trace(2), lines({"CKivDeviceMapperClaim::isPartition: Unknown exception caught"}));
    EXPECT_EQ(host.trace(1), lines({"INFO: CKivDeviceMapperClaim::appendPartitionSuffix: Unknown exception caught",
                                    "CKivDeviceMapperClaim::removePartitionSuffix: Unknown exception caught",
                                    "CKivDeviceMapperClaim::removePartitionSuffix: [/dev/sda1] is a Wrong partition "
                                    "name",
                                    "CKivDeviceMapperClaim::removePartitionSuffix: Unknown exception caught"}));
    answers([] { throw std::out_of_range("position"); });
    EXPECT_EQ(host.logCount(), 2U);
}

TEST_F(DeviceMapper, TheEndOfAThreadInsideTheRecordOfAHandlerPropagates)
{
    unsigned int partition = 0;
    const std::pair<const char*, std::function<void()>> operations[] = {
        {"CKivDeviceMapperClaim::isPartition: ", [&] { module.isPartition("/dev/x"); }},
        {"INFO: CKivDeviceMapperClaim::appendPartitionSuffix: ", [&] { module.appendPartitionSuffix("/dev/x", 1); }},
        {"CKivDeviceMapperClaim::removePartitionSuffix: ", [&] { module.removePartitionSuffix("/dev/x", partition); }},
        {"CKivDeviceMapperClaim::createLvmDeviceNamesList: ", [&] { module.createLvmDeviceNamesList(); }}};
    for (const bool outOfRange : {false, true}) {
        for (const auto& [record, operation] : operations) {
            int records = 0;
            bool wentOn = false;
            host.failsTracing(record, [&records, outOfRange] {
                if (++records == 2) {
                    pthread_exit(nullptr);
                }
                outOfRange ? throw std::out_of_range("position") : throw 42;
            });
            std::thread([&, &run = operation] {
                run();
                wentOn = true;
            }).join();
            EXPECT_FALSE(wentOn) << record;
            EXPECT_EQ(host.logCount(), 2U) << record;
        }
    }
}

TEST_F(DeviceMapper, ACandidateWithANulCannotBeOpened)
{
    host.kernelRelease("3.5.0");
    host.device("/dev/sdb");
    host.device("/dev/mapper/a");
    using namespace std::string_literals;
    unsigned int partition = untouched;
    EXPECT_EQ(module.isPartition("/dev/sdb\000x1"s), 0);
    EXPECT_EQ(module.isPartition("/dev/sdb\0"s + "1"), 1) << "the second candidate has none";
    EXPECT_EQ(module.removePartitionSuffix("/dev/mapper/a\000-part1"s, partition), "/dev/mapper/a\000-part1"s);
    EXPECT_EQ(partition, 0U);
    EXPECT_EQ(module.appendPartitionSuffix("/dev/mapper/a\000x"s, 1), "/dev/mapper/a\000x"s);
    EXPECT_EQ(host.calls(), lines({"open /dev/sdb: yes", "close /dev/sdb", "uname", "uname", "uname"}));
}

TEST_F(DeviceMapper, TakesAOneDigitPartitionApart)
{
    for (const char* const release : {"3.0.0", "5.3.18"}) {
        host.kernelRelease(release);
        unsigned int partition = untouched;
        EXPECT_EQ(module.removePartitionSuffix("/dev/mapper/mpatha-part3", partition), "/dev/mapper/mpatha");
        EXPECT_EQ(partition, 3U);
    }
    EXPECT_EQ(
        Host::current()->effectsInside(),
        lines({"3 CKivDeviceMapperClaim::removePartitionSuffix: device: [/dev/mapper/mpatha-part3], partition: "
               "[/dev/mapper/mpatha-part3]",
               "3 INFO:  CKivDeviceMapperClaim::isPartition: Device path:[/dev/mapper/mpatha-part3] is a partition",
               "uname", "3 INFO: getSuSEVersion: SuSE version 11",
               "6 CKivDeviceMapperClaim::removePartitionSuffix: Partition no is [3]",
               "3 CKivDeviceMapperClaim::removePartitionSuffix: device: [/dev/mapper/mpatha-part3], partition: "
               "[/dev/mapper/mpatha-part3]",
               "3 INFO:  CKivDeviceMapperClaim::isPartition: Device path:[/dev/mapper/mpatha-part3] is a partition",
               "uname", "3 INFO: getSuSEVersion: SuSE version 12 or more",
               "6 CKivDeviceMapperClaim::removePartitionSuffix: Partition no is [3]"}));
}

TEST_F(DeviceMapper, RemovalRecordsItsScopeAroundThatOfThePartitionTest)
{
    unsigned int partition = untouched;
    module.removePartitionSuffix("/dev/mapper/mpatha-part3", partition);
    const recording::Lines details = host.trace(6);
    EXPECT_EQ(details, lines({"Entering Function removePartitionSuffix [152, kiv_linux_device_mapper_claim.cpp]",
                              "Entering Function isPartition [78, kiv_linux_device_mapper_claim.cpp]",
                              "Exiting Function isPartition [78, kiv_linux_device_mapper_claim.cpp]",
                              "CKivDeviceMapperClaim::removePartitionSuffix: Partition no is [3]",
                              "Exiting Function removePartitionSuffix [152, kiv_linux_device_mapper_claim.cpp]"}));
}

TEST_F(DeviceMapper, TwoDigitPartitionsComeBackWithTheirLastDigit)
{
    host.device("/dev/mapper/mpatha-part1");
    unsigned int partition = untouched;
    EXPECT_EQ(module.removePartitionSuffix("/dev/mapper/mpatha-part12", partition), "/dev/mapper/mpatha-");
    EXPECT_EQ(partition, 2U);
    host.kernelRelease("3.5.0");
    host.device("/dev/mapper/mpathb");
    EXPECT_EQ(module.removePartitionSuffix("/dev/mapper/mpathb12", partition), "/dev/mapper/mpathb");
    EXPECT_EQ(partition, 2U);
}

TEST_F(DeviceMapper, APathWithTheDirectoryInTheMiddleIsTakenApartAsWell)
{
    unsigned int partition = untouched;
    EXPECT_EQ(module.removePartitionSuffix("/host/dev/mapper/x-part3", partition), "/host/dev/mapper/x");
    EXPECT_EQ(partition, 3U);
}

TEST_F(DeviceMapper, ARecordThatThrowsLeavesNoNodeOpen)
{
    host.kernelRelease("3.5.0");
    host.device("/dev/mapper/mpatha");
    unsigned int partition = untouched;
    host.failsTracing("CKivDeviceMapperClaim::isPartition: [/dev/mapper/mpathap4] is a partition");
    EXPECT_EQ(module.isPartition("/dev/mapper/mpathap4"), 0);
    EXPECT_EQ(host.calls().back(), "close /dev/mapper/mpatha");
    host.failsTracing("CKivDeviceMapperClaim::removePartitionSuffix: [/dev/mapper/mpatha] is the parent");
    EXPECT_EQ(module.removePartitionSuffix("/dev/mapper/mpathap4", partition), "/dev/mapper/mpathap4");
    EXPECT_EQ(host.calls().back(), "close /dev/mapper/mpatha");
    EXPECT_EQ(partition, untouched);
}

TEST_F(DeviceMapper, ANodeMayBeOpenedUnderTheFirstDescriptor)
{
    host.kernelRelease("3.5.0");
    host.firstDescriptor = 0;
    host.device("/dev/mapper/mpath");
    EXPECT_EQ(module.isPartition("/dev/mapper/mpath1"), 1);
    EXPECT_EQ(host.calls(), lines({"open /dev/mapper/mpath: yes", "close /dev/mapper/mpath"}));
}

TEST_F(DeviceMapper, ACandidateMayBeOpenedUnderTheFirstDescriptor)
{
    host.kernelRelease("3.5.0");
    host.firstDescriptor = 0;
    host.device("/dev/mapper/mpath1");
    EXPECT_EQ(module.appendPartitionSuffix("/dev/mapper/mpath", 1), "/dev/mapper/mpath1");
    EXPECT_EQ(host.calls(), lines({"uname", "uname", "open /dev/mapper/mpath1: yes", "close /dev/mapper/mpath1"}));
}

TEST_F(DeviceMapper, TheMessageOfAnExceptionIsReadWhileTheExceptionLives)
{
    static char message[] = "the position";
    class Position : public std::out_of_range {
    public:
        Position() : std::out_of_range("") {}
        ~Position() override { message[0] = 'X'; }
        const char* what() const noexcept override { return message; }
    };
    unsigned int partition = untouched;
    host.failsTracing("CKivDeviceMapperClaim::removePartitionSuffix: device", [] { throw Position(); });
    EXPECT_EQ(module.removePartitionSuffix("/dev/mapper/a-part1", partition), "/dev/mapper/a-part1");
    EXPECT_EQ(host.trace(1),
              lines({"CKivDeviceMapperClaim::removePartitionSuffix: Out of Range exception thrown : the position"}));
    EXPECT_EQ(message[0], 'X');
}

TEST_F(DeviceMapper, APathOutsideTheDirectoryComesBackWithTheCallersNumber)
{
    unsigned int partition = untouched;
    EXPECT_EQ(module.removePartitionSuffix("/dev/sda1", partition), "/dev/sda1");
    EXPECT_EQ(partition, untouched);
    EXPECT_EQ(host.effectsInside(),
              lines({"1 CKivDeviceMapperClaim::removePartitionSuffix: [/dev/sda1] is a Wrong partition name"}));
    EXPECT_EQ(module.removePartitionSuffix("/dev/mapper", partition), "/dev/mapper");
    EXPECT_EQ(module.removePartitionSuffix("", partition), "");
    EXPECT_EQ(partition, untouched);
}

TEST_F(DeviceMapper, AWholeDeviceComesBackWithPartitionZero)
{
    unsigned int partition = untouched;
    EXPECT_EQ(module.removePartitionSuffix("/dev/mapper/mpatha", partition), "/dev/mapper/mpatha");
    EXPECT_EQ(partition, 0U);
    EXPECT_EQ(host.effectsInside(),
              lines({"3 CKivDeviceMapperClaim::removePartitionSuffix: device: [/dev/mapper/mpatha], partition: "
                     "[/dev/mapper/mpatha]",
                     "6 CKivDeviceMapperClaim::isPartition: [/dev/mapper/mpatha] is not a partition"}));
}

TEST_F(DeviceMapper, AnUnknownReleaseTakesTheParentThatExists)
{
    host.kernelRelease("3.5.0");
    host.device("/dev/mapper/mpatha");
    unsigned int partition = untouched;
    EXPECT_EQ(module.removePartitionSuffix("/dev/mapper/mpathap4", partition), "/dev/mapper/mpatha");
    EXPECT_EQ(partition, 4U);
    EXPECT_EQ(
        host.effectsInside(),
        lines({"3 CKivDeviceMapperClaim::removePartitionSuffix: device: [/dev/mapper/mpathap4], partition: "
               "[/dev/mapper/mpathap4]",
               "open /dev/mapper/mpathap: no", "open /dev/mapper/mpatha: yes",
               "6 CKivDeviceMapperClaim::isPartition: [/dev/mapper/mpathap4] is a partition and "
               "[/dev/mapper/mpatha] is the possible parent device",
               "close /dev/mapper/mpatha", "uname", "open /dev/mapper/mpathap: no", "open /dev/mapper/mpatha: yes",
               "6 CKivDeviceMapperClaim::removePartitionSuffix: [/dev/mapper/mpatha] is the parent device",
               "close /dev/mapper/mpatha", "6 CKivDeviceMapperClaim::removePartitionSuffix: Partition no is [4]"}));
    host.forget();
    host.device("/dev/mapper/mpathap");
    EXPECT_EQ(module.removePartitionSuffix("/dev/mapper/mpathap4", partition), "/dev/mapper/mpathap");
    EXPECT_EQ(host.trace(6)[4],
              "CKivDeviceMapperClaim::removePartitionSuffix: [/dev/mapper/mpathap] is the parent device");
}

TEST_F(DeviceMapper, AnUnknownReleaseWithoutAnyParentGivesPartitionZero)
{
    // By its name it is a partition, but neither parent exists.
    host.kernelRelease("3.5.0");
    unsigned int partition = untouched;
    EXPECT_EQ(module.removePartitionSuffix("/dev/mapper/mpatha-part3", partition), "/dev/mapper/mpatha-part3");
    EXPECT_EQ(partition, 0U);
    EXPECT_EQ(host.trace(6)[3],
              "CKivDeviceMapperClaim::removePartitionSuffix: [/dev/mapper/mpatha-part3] is not a partition");
    EXPECT_EQ(host.calls(), lines({"uname", "open /dev/mapper/mpatha-part: no", "open /dev/mapper/mpatha-par: no"}));
}

TEST_F(DeviceMapper, AnUnknownReleaseLeavesTheNumberOfANameWithoutADigit)
{
    EverythingIsAPartition derived;
    derived.registerTraceLog(host.log());
    host.kernelRelease("3.5.0");
    unsigned int partition = untouched;
    EXPECT_EQ(derived.removePartitionSuffix("/dev/mapper/x", partition), "/dev/mapper/x");
    EXPECT_EQ(partition, untouched);
    EXPECT_EQ(host.effectsInside(),
              lines({"3 CKivDeviceMapperClaim::removePartitionSuffix: device: [/dev/mapper/x], partition: "
                     "[/dev/mapper/x]",
                     "uname", "6 CKivDeviceMapperClaim::removePartitionSuffix: [/dev/mapper/x] is not a partition"}));
}

TEST_F(DeviceMapper, AnExceptionWhileRemovingGivesTheWorkingCopyBack)
{
    unsigned int partition = untouched;
    host.failsTracing("CKivDeviceMapperClaim::removePartitionSuffix: device",
                      [] { throw std::out_of_range("the position"); });
    EXPECT_EQ(module.removePartitionSuffix("/dev/mapper/a-part1", partition), "/dev/mapper/a-part1");
    EXPECT_EQ(partition, untouched);
    EXPECT_EQ(host.trace(1),
              lines({"CKivDeviceMapperClaim::removePartitionSuffix: Out of Range exception thrown : the position"}));
    host.forget();
    host.failsTracing("CKivDeviceMapperClaim::removePartitionSuffix: Partition no", [] { throw 42; });
    EXPECT_EQ(module.removePartitionSuffix("/dev/mapper/a-part1", partition), "/dev/mapper/a");
    EXPECT_EQ(host.trace(1), lines({"CKivDeviceMapperClaim::removePartitionSuffix: Unknown exception caught"}));
}

TEST_F(DeviceMapper, TheEndOfAThreadInsideAnOperationPropagates)
{
    unsigned int partition = 0;
    const std::pair<const char*, std::function<void()>> operations[] = {
        {"CKivDeviceMapperClaim::isPartition: [/dev/x]", [&] { module.isPartition("/dev/x"); }},
        {"INFO: CKivDeviceMapperClaim::appendPartitionSuffix: dev", [&] { module.appendPartitionSuffix("/dev/x", 1); }},
        {"CKivDeviceMapperClaim::removePartitionSuffix: [/dev/x]",
         [&] { module.removePartitionSuffix("/dev/x", partition); }},
        {"CKivDeviceMapperClaim::createLvmDeviceNamesList: Comm", [&] { module.createLvmDeviceNamesList(); }}};
    for (const auto& [record, operation] : operations) {
        bool wentOn = false;
        host.failsTracing(record, [] { pthread_exit(nullptr); });
        std::thread([&, &run = operation] {
            run();
            wentOn = true;
        }).join();
        EXPECT_FALSE(wentOn) << record;
        EXPECT_EQ(host.logCount(), 2U) << record;
    }
}

TEST_F(DeviceMapper, AThreadThatIsCancelledWhileANodeIsOpenEndsAfterClosingIt)
{
    host.device("/dev/x");
    host.failsTracing("CKivDeviceMapperClaim::isPartition: [/dev/x1] is a partition", [] {
        pthread_cancel(pthread_self());
        throw std::runtime_error("the node is closed while this is on its way");
    });
    int answer = -1;
    bool wentOn = false;
    std::thread([&] {
        answer = module.isPartition("/dev/x1");
        pthread_testcancel();
        wentOn = true;
    }).join();
    EXPECT_EQ(answer, 0);
    EXPECT_FALSE(wentOn) << "the cancellation is kept";
    EXPECT_EQ(host.calls(), lines({"open /dev/x: yes", "close /dev/x"}));
}

TEST_F(DeviceMapper, ClaimLetsExceptionsThrough)
{
    host.failsTracing("INFO: CKivDeviceMapperClaim::claim");
    EXPECT_THROW(module.claim("/dev/sda"), std::runtime_error);
    EXPECT_EQ(host.logCount(), 2U);
}

TEST_F(DeviceMapper, AThrowingExitRecordLosesNoResult)
{
    const std::string device = "/dev/mapper/a-name-that-is-long-enough-for-the-heap-part1";
    unsigned int partition = 0;
    host.failsTracing("Exiting Function");
    EXPECT_THROW(module.getDeviceClaimStrings(), std::runtime_error);
    EXPECT_THROW(module.appendPartitionSuffix(device, 1), std::runtime_error);
    host.failsTracing("Exiting Function removePartitionSuffix");
    EXPECT_THROW(module.removePartitionSuffix(device, partition), std::runtime_error);
    EXPECT_EQ(host.logCount(), 2U);
}

TEST_F(DeviceMapper, ReadsTheReleaseFamilyFromTheKernelRelease)
{
    const struct {
        const char* release;
        int family;
    } cases[] = {{"2.6", -1},       {"2.6.26", -1},     {"2.6.27", 11},  {"2.6.32.12-0.7-default", 11},
                 {"2.6.61", 11},    {"2.6-27", 11},     {"2.7.30", -1},  {"2.4.30", -1},
                 {"2.5.99", -1},    {"3", 11},          {"3.0", 11},     {"3.0.101-63-default", 11},
                 {"3-0", 11},       {"3.1.0", -1},      {"3.5.0", -1},   {"3.11.0", -1},
                 {"3.11.99-x", -1}, {"3.12.0", 12},     {"3.12", 12},    {"3.19.8", 12},
                 {"4.0", 12},       {"4.18.0-305", 12}, {"5.3.18", 12},  {"6.1.0-13-amd64", 12},
                 {"10.0", 12},      {"", -1},           {"x", -1},       {"3.x", 11},
                 {"x.12.3", -1},    {"..--3..0", 11},   {"1.99.99", -1}, {"2.6.x", -1},
                 {"4", 12},         {"0", -1},          {"3~5.0", 11},   {"3.~12", 11},
                 {"2.6.~27", -1}};
    for (const auto& [release, family] : cases) {
        host.forget();
        host.kernelRelease(release);
        EXPECT_EQ(module.getSuSEVersion(), family) << release;
        recording::Lines expected = lines({"uname"});
        if (family == 11) {
            expected.emplace_back("3 INFO: getSuSEVersion: SuSE version 11");
        } else if (family == 12) {
            expected.emplace_back("3 INFO: getSuSEVersion: SuSE version 12 or more");
        }
        EXPECT_EQ(host.effects(), expected) << release;
    }
}

TEST_F(DeviceMapper, DecodesAWaitStatus)
{
    const struct {
        long status;
        long value;
        const char* record;
    } cases[] = {
        {0, 0, "CKivDeviceMapperClaim::getExecPipeWaitPidStatus: exited, status= [0]"},
        {256, 1, "CKivDeviceMapperClaim::getExecPipeWaitPidStatus: exited, status= [1]"},
        {0xFF00, 255, "CKivDeviceMapperClaim::getExecPipeWaitPidStatus: exited, status= [255]"},
        {0x80, 0, "CKivDeviceMapperClaim::getExecPipeWaitPidStatus: exited, status= [0]"},
        {9, 9, "CKivDeviceMapperClaim::getExecPipeWaitPidStatus: killed by signal [9]"},
        {0x8B, 11, "CKivDeviceMapperClaim::getExecPipeWaitPidStatus: killed by signal [11]"},
        {126, 126, "CKivDeviceMapperClaim::getExecPipeWaitPidStatus: killed by signal [126]"},
        {(19 << 8) | 127, 19, "CKivDeviceMapperClaim::getExecPipeWaitPidStatus: stopped by signal:[19]"},
        {65535, 65535, "CKivDeviceMapperClaim::getExecPipeWaitPidStatus: continued:[65535]"},
        {0x10000FFFFL, 0x10000FFFFL, "CKivDeviceMapperClaim::getExecPipeWaitPidStatus: continued:[4295032831]"},
        {0x100000100L, 1, "CKivDeviceMapperClaim::getExecPipeWaitPidStatus: exited, status= [1]"}};
    for (const auto& [status, value, record] : cases) {
        host.forget();
        EXPECT_EQ(module.getExecPipeWaitPidStatus(status), value) << status;
        EXPECT_EQ(host.effects(), recording::Lines{std::string("2 ") + record}) << status;
    }
}

TEST_F(DeviceMapper, AWaitStatusOfNoKnownClassIsReturnedWithoutARecord)
{
    EXPECT_EQ(module.getExecPipeWaitPidStatus(511), 511);
    EXPECT_EQ(module.getExecPipeWaitPidStatus(0x1FFFF), 0x1FFFF);
    EXPECT_EQ(module.getExecPipeWaitPidStatus(-1), -1);
    EXPECT_EQ(host.effects(), lines({}));
}

TEST(DeviceMapperWithoutALog, FailsTheSame)
{
    Host host;
    CKivDeviceMapperClaim module;
    host.fails("/sbin/lvdisplay", 5, 5 << 8, {"  one"}).times(2);
    EXPECT_EQ(module.createLvmDeviceNamesList(), 6);
    EXPECT_EQ(module.isLinuxLogicalVolume("/dev/mapper/mpatha"), 0);
    host.throws("/sbin/lvdisplay", [] { throw 42; });
    EXPECT_EQ(module.createLvmDeviceNamesList(), 1);
    EXPECT_EQ(host.effects(), host.calls()) << "no record";
}

TEST(DeviceMapperWithoutALog, FollowsEveryReleaseTheSame)
{
    Host host;
    CKivDeviceMapperClaim module;
    unsigned int partition = untouched;
    host.kernelRelease("3.0.0");
    EXPECT_EQ(module.getSuSEVersion(), 11);
    EXPECT_EQ(module.appendPartitionSuffix("/dev/mapper/mpatha", 1), "/dev/mapper/mpatha_part1");
    EXPECT_EQ(module.appendPartitionSuffix("", 1), "");
    host.kernelRelease("3.5.0");
    host.device("/dev/mapper/mpatha");
    EXPECT_EQ(module.removePartitionSuffix("/dev/mapper/mpatha1", partition), "/dev/mapper/mpatha");
    EXPECT_EQ(partition, 1U);
    EXPECT_EQ(module.removePartitionSuffix("/dev/mapper/mpathb-part1", partition), "/dev/mapper/mpathb-part1");
    EXPECT_EQ(partition, 0U);
    EXPECT_EQ(module.removePartitionSuffix("/dev/mapper/mpatha", partition), "/dev/mapper/mpatha");
    EXPECT_EQ(EverythingIsAPartition().removePartitionSuffix("/dev/mapper/x", partition), "/dev/mapper/x");
    EXPECT_EQ(host.effects(), host.calls()) << "no record";
}

TEST(DeviceMapperWithoutALog, AnswersTheSame)
{
    Host host;
    host.prints("/sbin/lvdisplay", {"  LV Name lvol1", "  VG Name vg00"});
    CKivDeviceMapperClaim module;
    unsigned int partition = untouched;
    EXPECT_EQ(module.claim("/dev/mapper/mpatha"), 16U);
    EXPECT_EQ(module.claim("/dev/mapper/vg00-lvol1"), 0U);
    EXPECT_EQ(module.isPartition("/dev/mapper/mpatha-part1"), 1);
    EXPECT_EQ(module.isPartition(""), 0);
    EXPECT_EQ(module.appendPartitionSuffix("/dev/mapper/mpatha", 1), "/dev/mapper/mpatha-part1");
    EXPECT_EQ(module.removePartitionSuffix("/dev/mapper/mpatha-part1", partition), "/dev/mapper/mpatha");
    EXPECT_EQ(partition, 1U);
    EXPECT_EQ(module.removePartitionSuffix("/dev/sda1", partition), "/dev/sda1");
    EXPECT_EQ(module.getExecPipeWaitPidStatus(0), 0);
    EXPECT_EQ(module.getExecPipeWaitPidStatus(256), 1);
    EXPECT_EQ(module.getExecPipeWaitPidStatus(9), 9);
    EXPECT_EQ(module.getExecPipeWaitPidStatus((19 << 8) | 127), 19);
    EXPECT_EQ(module.getExecPipeWaitPidStatus(65535), 65535);
    EXPECT_EQ(module.getExecPipeWaitPidStatus(511), 511);
    EXPECT_EQ(host.effects(), lines({"runner without a log", "run [/sbin/lvdisplay]", "uname", "uname", "uname"}));
}
