// The claim module for native SCSI disks.
#include "modules/kiv_nativepath_claim.h"
#include "tests/recording_host.h"

#include <gtest/gtest.h>

#include <stdexcept>

using recording::Host;
using recording::lines;
using recording::Lines;
using ztfi_pdk_4_4::EFiExecPipe;

namespace {

constexpr char nodeOfSdc[] = "/usr/sbin/ztkivadm   getkivnode  nodename=sdc";
constexpr char pathsOfNode[] = "/usr/sbin/ztkivadm   getsubpaths  kivnodename=kiv0_1";
constexpr char rescanSdc[] = "/usr/sbin/ztdisk   scandisks  device=sdc";
constexpr char rescanAll[] = "/usr/sbin/ztdisk   scandisks ";
constexpr char removeNode[] = "/usr/sbin/ztdisk   rm kiv0_1";

class NativePath : public testing::Test {
protected:
    void SetUp() override { module.registerTraceLog(host.log()); }
    // Whatever happened, only the host and the module hold the log.
    void TearDown() override { EXPECT_EQ(host.logCount(), 2U); }

    Host host;
    CNativePathClaim module;
};

// A machine with the volume manager, whose tools find kiv0_1 for sdc and sdf for kiv0_1.
class NativePathUnderTheVolumeManager : public NativePath {
protected:
    NativePathUnderTheVolumeManager() { host.executable("/usr/sbin/ztkivadm"); }

    const Lines nodeTable = lines({"NAME", "====", "kiv0_1 ENABLED"});
    const Lines pathTable = lines({"NAME STATE TYPE", "====", "sdf ENABLED(A) PRIMARY"});
};

// A module with other claim strings, as a host may derive one.
class Derived : public CNativePathClaim {
public:
    explicit Derived(Lines strings) : strings(std::move(strings)) {}
    std::vector<std::string> getDeviceClaimStrings() override { return strings; }

private:
    Lines strings;
};

// A module with its own idea of a device's name.
class NamesEverythingSdx : public CNativePathClaim {
public:
    std::string removeDevPrefix(std::string /*device*/) override { return "sdx"; }
};

// Writes down the question and answers it in the negative.
class NeverRaw : public CNativePathClaim {
public:
    explicit NeverRaw(Host& host) : host(host) {}
    bool isRawDevice(std::string device) override
    {
        host.write("isRawDevice " + device);
        return false;
    }

private:
    Host& host;
};

}  // namespace

TEST_F(NativePath, HasOneClaimString)
{
    EXPECT_EQ(module.getDeviceClaimStrings(), lines({"/dev/sd"}));
    EXPECT_EQ(host.effectsInside(), lines({}));
}

TEST_F(NativePath, ClaimsAPathThatContainsItsStringAnywhere)
{
    for (const char* const path : {"/dev/sda", "/dev/sdab3", "/x/dev/sda", "x/dev/sd", "/dev/sd1", "/dev/sd/"}) {
        EXPECT_EQ(module.claim(path), 2U) << path;
    }
    EXPECT_EQ(host.effectsInside(), lines({})) << "nothing is said about it";
}

TEST_F(NativePath, APathThatIsNoLongerThanTheClaimStringIsNotClaimed)
{
    EXPECT_EQ(module.claim("/dev/sd"), 0U);
    EXPECT_EQ(module.claim("/dev/s"), 0U);
    EXPECT_EQ(module.claim(""), 0U);
}

TEST_F(NativePath, ClaimsNoOtherPath)
{
    for (const char* const path : {"/dev/emcpowera", "sda", "/dev/mapper/sda", "/dev/hda1", "/DEV/SDA"}) {
        EXPECT_EQ(module.claim(path), 0U) << path;
    }
    EXPECT_EQ(host.effectsInside(), lines({}));
}

TEST_F(NativePath, AsksADerivedModuleForItsClaimStrings)
{
    Derived derived({"/dev/quite-a-long-one", "/dev/fast"});
    EXPECT_EQ(derived.claim("/dev/fast1"), 2U) << "the first string is longer than the path, the second decides";
    EXPECT_EQ(derived.claim("/dev/fast"), 0U);
    EXPECT_EQ(derived.claim("/dev/quite-a-long-one/x"), 2U);
    EXPECT_EQ(derived.claim("/dev/sda"), 0U);
    EXPECT_EQ(Derived({}).claim("/dev/sda"), 0U);
    EXPECT_EQ(Derived({""}).claim("x"), 2U);
    EXPECT_EQ(Derived({""}).claim(""), 0U);
}

TEST_F(NativePath, APartitionIsAnyPathOfThreeCharactersOrMoreThatEndsInADigit)
{
    for (const char* const path : {"/dev/sdc1", "/dev/sdc0", "/dev/sdc9", "/dev/emcpowera1", "ab1", "123"}) {
        host.forget();
        EXPECT_EQ(module.isPartition(path), 1) << path;
        EXPECT_EQ(host.trace(3), Lines{"[" + std::string(path) + "] is a partition"});
    }
}

TEST_F(NativePath, APathThatIsTooShortOrEndsInNoDigitIsNoPartitionAndNothingIsRecorded)
{
    for (const char* const path : {"/dev/sdc", "/dev/sd", "a1", "12", "1", "", "/dev/sdc:", "/dev/sdc/", "/dev/sdc1x",
                                   "/dev/sdc\xB2", "/dev/sdc1 "}) {
        EXPECT_EQ(module.isPartition(path), 0) << path;
    }
    EXPECT_EQ(host.effectsInside(), lines({}));
}

TEST_F(NativePath, AppendsTheBareNumber)
{
    EXPECT_EQ(module.appendPartitionSuffix("/dev/sdc", 4), "/dev/sdc4");
    EXPECT_EQ(module.appendPartitionSuffix("/dev/sdc1", 12), "/dev/sdc112");
    EXPECT_EQ(module.appendPartitionSuffix("/dev/sdc", 0), "/dev/sdc0");
    EXPECT_EQ(module.appendPartitionSuffix("", 3), "3");
    EXPECT_EQ(module.appendPartitionSuffix("%s%n%d", 5), "%s%n%d5");
    EXPECT_EQ(host.effectsInside(), lines({}));
}

TEST_F(NativePath, AppendsANumberAboveTheSignedRangeAsNegative)
{
    EXPECT_EQ(module.appendPartitionSuffix("/dev/sdc", 2147483647U), "/dev/sdc2147483647");
    EXPECT_EQ(module.appendPartitionSuffix("/dev/sdc", 2147483648U), "/dev/sdc-2147483648");
    EXPECT_EQ(module.appendPartitionSuffix("/dev/sdc", 4294967295U), "/dev/sdc-1");
}

TEST_F(NativePath, APartitionPathIsCutToOneThousandAndTwentyThreeCharacters)
{
    EXPECT_EQ(module.appendPartitionSuffix(std::string(1018, 'a'), 12345), std::string(1018, 'a') + "12345");
    EXPECT_EQ(module.appendPartitionSuffix(std::string(1019, 'a'), 12345), std::string(1019, 'a') + "1234");
    EXPECT_EQ(module.appendPartitionSuffix(std::string(1023, 'a'), 12345), std::string(1023, 'a'));
    EXPECT_EQ(module.appendPartitionSuffix(std::string(5000, 'a'), 12345), std::string(1023, 'a'));
}

TEST_F(NativePath, EveryTrailingDigitIsThePartitionNumber)
{
    for (unsigned int digit = 0; digit < 10; ++digit) {
        unsigned int partition = 77;
        EXPECT_EQ(module.removePartitionSuffix("/dev/sdc" + std::to_string(digit), partition), "/dev/sdc");
        EXPECT_EQ(partition, digit);
    }
}

TEST_F(NativePath, ClearingTheLogicalVolumeListChangesNothing)
{
    module.clearLvmDeviceNameList();
    EXPECT_EQ(host.effects(), lines({}));
    EXPECT_EQ(module.claim("/dev/sda"), 2U);
    EXPECT_EQ(host.logCount(), 2U);
}

TEST_F(NativePath, TakesTheTrailingDigitsAway)
{
    unsigned int partition = 77;
    EXPECT_EQ(module.removePartitionSuffix("/dev/sdc12", partition), "/dev/sdc");
    EXPECT_EQ(partition, 12U);
    EXPECT_EQ(host.effectsInside(), lines({"6 devicename aftering removing partition suffix [/dev/sdc]."}));
    EXPECT_EQ(module.removePartitionSuffix("/dev/sdc007", partition), "/dev/sdc");
    EXPECT_EQ(partition, 7U);
    EXPECT_EQ(module.removePartitionSuffix("/dev/sdc010", partition), "/dev/sdc");
    EXPECT_EQ(partition, 10U) << "always to the base of ten";
    EXPECT_EQ(module.removePartitionSuffix("/dev/sdc0", partition), "/dev/sdc");
    EXPECT_EQ(partition, 0U);
    EXPECT_EQ(module.removePartitionSuffix("/dev/sd5", partition), "/dev/sd");
    EXPECT_EQ(partition, 5U);
    EXPECT_EQ(module.removePartitionSuffix("12/dev/sda3b45", partition), "12/dev/sda3b");
    EXPECT_EQ(partition, 45U);
    EXPECT_EQ(module.removePartitionSuffix("/dev/sda~6", partition), "/dev/sda~");
    EXPECT_EQ(partition, 6U);
}

TEST_F(NativePath, AWholeDiskComesBackWithTheCallersNumber)
{
    unsigned int partition = 77;
    EXPECT_EQ(module.removePartitionSuffix("/dev/sdc", partition), "/dev/sdc");
    EXPECT_EQ(partition, 77U);
    EXPECT_EQ(host.effectsInside(), lines({"6 devicename aftering removing partition suffix [/dev/sdc]."}));
    EXPECT_EQ(module.removePartitionSuffix("7/dev/sd", partition), "7/dev/sd");
    EXPECT_EQ(partition, 77U);
}

TEST_F(NativePath, AForeignPathComesBackWithTheCallersNumber)
{
    unsigned int partition = 77;
    EXPECT_EQ(module.removePartitionSuffix("/dev/emcpowera1", partition), "/dev/emcpowera1");
    EXPECT_EQ(host.effectsInside(), lines({"6 devicename aftering removing partition suffix [/dev/emcpowera1]."}));
    EXPECT_EQ(module.removePartitionSuffix("sdc1", partition), "sdc1");
    EXPECT_EQ(module.removePartitionSuffix("123", partition), "123");
    EXPECT_EQ(module.removePartitionSuffix("", partition), "");
    EXPECT_EQ(partition, 77U);
    EXPECT_EQ(host.trace(6)[4], "devicename aftering removing partition suffix [sdc1].");
}

TEST_F(NativePath, ANumberBeyondTheRangeIsCutToItsLowBits)
{
    unsigned int partition = 77;
    EXPECT_EQ(module.removePartitionSuffix("/dev/sda4294967297", partition), "/dev/sda");
    EXPECT_EQ(partition, 1U);
    EXPECT_EQ(module.removePartitionSuffix("/dev/sda99999999999999999999", partition), "/dev/sda");
    EXPECT_EQ(partition, 4294967295U) << "the low bits of the largest long";
}

TEST_F(NativePath, AMillionDigitsAreTakenAwayAtOnce)
{
    unsigned int partition = 77;
    const std::string disk = std::string(1000000, 'x') + "/dev/sdc";
    EXPECT_EQ(module.removePartitionSuffix(disk + std::string(1000000, '0') + "8", partition), disk);
    EXPECT_EQ(partition, 8U);
}

TEST_F(NativePath, EveryOperationRecordsItsEntryAndExit)
{
    unsigned int partition = 0;
    module.getDeviceClaimStrings();
    module.claim("/dev/sda");
    module.isPartition("/dev/sda");
    module.appendPartitionSuffix("/dev/sda", 1);
    module.removePartitionSuffix("/dev/sda1", partition);
    EXPECT_EQ(host.effectsWithoutLineNumbers(),
              lines({
                  "6 Entering Function getDeviceClaimStrings [kiv_nativepath_claim.cpp]",
                  "6 Exiting Function getDeviceClaimStrings [kiv_nativepath_claim.cpp]",
                  "6 Entering Function claim [kiv_nativepath_claim.cpp]",
                  "6 Entering Function getDeviceClaimStrings [kiv_nativepath_claim.cpp]",
                  "6 Exiting Function getDeviceClaimStrings [kiv_nativepath_claim.cpp]",
                  "6 Exiting Function claim [kiv_nativepath_claim.cpp]",
                  "6 Entering Function isPartition [kiv_nativepath_claim.cpp]",
                  "6 Exiting Function isPartition [kiv_nativepath_claim.cpp]",
                  "6 Entering Function appendPartitionSuffix [kiv_nativepath_claim.cpp]",
                  "6 Exiting Function appendPartitionSuffix [kiv_nativepath_claim.cpp]",
                  "6 Entering Function removePartitionSuffix [kiv_nativepath_claim.cpp]",
                  "6 devicename aftering removing partition suffix [/dev/sda].",
                  "6 Exiting Function removePartitionSuffix [kiv_nativepath_claim.cpp]",
              }));
}

TEST_F(NativePath, AThrowingExitRecordLosesNoResult)
{
    const std::string device = "/dev/sdabcdefghijklmnopqrstuvwxyz1";
    unsigned int partition = 0;
    host.failsTracing("Exiting Function");
    EXPECT_THROW(module.getDeviceClaimStrings(), std::runtime_error);
    EXPECT_THROW(module.appendPartitionSuffix(device, 1), std::runtime_error);
    EXPECT_THROW(module.removePartitionSuffix(device, partition), std::runtime_error);
    EXPECT_EQ(partition, 1U);
    host.failsTracing("Exiting Function getActivePath");
    EXPECT_THROW(module.getActivePath(device, true), std::runtime_error);
}

TEST_F(NativePath, WhatTheLogThrowsPassesThrough)
{
    unsigned int partition = 77;
    host.failsTracing("[/dev/sda1] is a partition");
    EXPECT_THROW(module.isPartition("/dev/sda1"), std::runtime_error);
    host.failsTracing("devicename aftering");
    EXPECT_THROW(module.removePartitionSuffix("/dev/sda1", partition), std::runtime_error);
    EXPECT_EQ(partition, 1U) << "written before the record";
    host.failsTracing("Entering Function getDeviceClaimStrings");
    EXPECT_THROW(module.claim("/dev/sda1"), std::runtime_error);
}

TEST_F(NativePath, CalledThroughTheBaseInterfaceItLooksNothingUp)
{
    host.executable("/usr/sbin/ztkivadm");
    CKivDeviceClaimBase& base = module;
    EXPECT_EQ(base.getActivePath("/dev/sdc", true), "/dev/sdc");
    EXPECT_EQ(base.getActivePath("/dev/sdc", false), "/dev/sdc");
    EXPECT_EQ(host.effects(), lines({}));
}

TEST_F(NativePath, WithoutTheVolumeManagerTheActivePathIsThePathItself)
{
    EXPECT_EQ(module.getActivePath("/dev/sdc", true), "/dev/sdc");
    EXPECT_EQ(host.effectsWithoutLineNumbers(), lines({
                                                    "6 Entering Function getActivePath [kiv_nativepath_claim.cpp]",
                                                    "6 Entering Function isZtKIVInstalled [kiv_nativepath_claim.cpp]",
                                                    "6 Entering Function isCommandAvailable [kiv_nativepath_claim.cpp]",
                                                    "access /usr/sbin/ztkivadm: no",
                                                    "6 Exiting Function isCommandAvailable [kiv_nativepath_claim.cpp]",
                                                    "6 Exiting Function isZtKIVInstalled [kiv_nativepath_claim.cpp]",
                                                    "6 Exiting Function getActivePath [kiv_nativepath_claim.cpp]",
                                                }));
    EXPECT_EQ(module.getActivePath("sdc", false), "sdc");
    EXPECT_EQ(module.getActivePath("", false), "");
}

TEST_F(NativePathUnderTheVolumeManager, TheWaitedLookupGoesFromTheDiskToItsNodeAndBackToAPath)
{
    host.prints(nodeOfSdc, nodeTable);
    host.prints(pathsOfNode, pathTable);
    EXPECT_EQ(module.getActivePath("/dev/sdc", true), "/dev/sdf");
    EXPECT_EQ(host.effectsWithoutLineNumbers(),
              lines({
                  "6 Entering Function getActivePath [kiv_nativepath_claim.cpp]",
                  "6 Entering Function isZtKIVInstalled [kiv_nativepath_claim.cpp]",
                  "6 Entering Function isCommandAvailable [kiv_nativepath_claim.cpp]",
                  "access /usr/sbin/ztkivadm: yes",
                  "6 Exiting Function isCommandAvailable [kiv_nativepath_claim.cpp]",
                  "6 Exiting Function isZtKIVInstalled [kiv_nativepath_claim.cpp]",
                  "6 Entering Function getZtVMDiskForOSDiskHandler_Waited [kiv_nativepath_claim.cpp]",
                  "6 Entering Function getZtVMDiskForOSDiskHandler [kiv_nativepath_claim.cpp]",
                  "6 Entering Function executeCommand [kiv_nativepath_claim.cpp]",
                  "3 ExecuteCommand command: /usr/sbin/ztkivadm   getkivnode  nodename=sdc",
                  "runner with a log",
                  "run [/usr/sbin/ztkivadm   getkivnode  nodename=sdc]",
                  "6 ExecuteCommand passed with output 'NAME====kiv0_1 ENABLED'",
                  "6 Exiting Function executeCommand [kiv_nativepath_claim.cpp]",
                  "6 Exiting Function getZtVMDiskForOSDiskHandler [kiv_nativepath_claim.cpp]",
                  "6 Exiting Function getZtVMDiskForOSDiskHandler_Waited [kiv_nativepath_claim.cpp]",
                  "6 Entering Function getOSDiskHandleForZtVMDisk [kiv_nativepath_claim.cpp]",
                  "6 Entering Function executeCommand [kiv_nativepath_claim.cpp]",
                  "3 ExecuteCommand command: /usr/sbin/ztkivadm   getsubpaths  kivnodename=kiv0_1",
                  "runner with a log",
                  "run [/usr/sbin/ztkivadm   getsubpaths  kivnodename=kiv0_1]",
                  "6 ExecuteCommand passed with output 'NAME STATE TYPE====sdf ENABLED(A) PRIMARY'",
                  "6 Exiting Function executeCommand [kiv_nativepath_claim.cpp]",
                  "6 Exiting Function getOSDiskHandleForZtVMDisk [kiv_nativepath_claim.cpp]",
                  "6 Got active path [/dev/sdf].",
                  "6 Exiting Function getActivePath [kiv_nativepath_claim.cpp]",
              }));
}

TEST_F(NativePathUnderTheVolumeManager, TheRefreshedLookupRemovesTheNodeAndFindsItAgain)
{
    host.prints(nodeOfSdc, nodeTable).times(2);
    host.prints(removeNode, {});
    host.prints(rescanAll, {});
    host.prints(pathsOfNode, pathTable);
    EXPECT_EQ(module.getActivePath("/dev/sdc", false), "/dev/sdf");
    EXPECT_EQ(host.effectsInside(),
              lines({
                  "access /usr/sbin/ztkivadm: yes",
                  "6 We will remove kiv node from ztvm and rescan to regenerate kiv node for disk [sdc].",
                  "3 ExecuteCommand command: /usr/sbin/ztkivadm   getkivnode  nodename=sdc",
                  "runner with a log",
                  "run [/usr/sbin/ztkivadm   getkivnode  nodename=sdc]",
                  "6 ExecuteCommand passed with output 'NAME====kiv0_1 ENABLED'",
                  "6 Obtained kiv nodes is [kiv0_1].",
                  "3 ExecuteCommand command: /usr/sbin/ztdisk   rm kiv0_1",
                  "runner with a log",
                  "run [/usr/sbin/ztdisk   rm kiv0_1]",
                  "3 ExecuteCommand command: /usr/sbin/ztdisk   scandisks ",
                  "runner with a log",
                  "run [/usr/sbin/ztdisk   scandisks ]",
                  "3 ExecuteCommand command: /usr/sbin/ztkivadm   getkivnode  nodename=sdc",
                  "runner with a log",
                  "run [/usr/sbin/ztkivadm   getkivnode  nodename=sdc]",
                  "6 ExecuteCommand passed with output 'NAME====kiv0_1 ENABLED'",
                  "6 After refresh, obtained kiv nodes is [kiv0_1].",
                  "3 ExecuteCommand command: /usr/sbin/ztkivadm   getsubpaths  kivnodename=kiv0_1",
                  "runner with a log",
                  "run [/usr/sbin/ztkivadm   getsubpaths  kivnodename=kiv0_1]",
                  "6 ExecuteCommand passed with output 'NAME STATE TYPE====sdf ENABLED(A) PRIMARY'",
                  "6 Got active path [/dev/sdf].",
              }));
}

TEST_F(NativePathUnderTheVolumeManager, TakesOnlyOneLeadingPrefixOffThePath)
{
    host.prints("/usr/sbin/ztkivadm   getkivnode  nodename=sdc2", nodeTable);
    host.prints("/usr/sbin/ztkivadm   getkivnode  nodename=/dev/sdc", nodeTable);
    host.prints("/usr/sbin/ztkivadm   getkivnode  nodename=x/dev/sdc", nodeTable);
    host.prints(pathsOfNode, pathTable).times(3);
    EXPECT_EQ(module.getActivePath("sdc2", true), "/dev/sdf") << "a path without the prefix is looked up as it is";
    EXPECT_EQ(module.getActivePath("/dev//dev/sdc", true), "/dev/sdf");
    EXPECT_EQ(module.getActivePath("x/dev/sdc", true), "/dev/sdf");
}

TEST_F(NativePathUnderTheVolumeManager, AFailedNodeLookupGivesThePathBack)
{
    host.fails(nodeOfSdc, 1, 256, {}).times(9);
    host.prints(rescanSdc, {}).times(4);
    host.prints(rescanAll, {}).times(4);
    EXPECT_EQ(module.getActivePath("/dev/sdc", true), "/dev/sdc");
    EXPECT_EQ(host.effectsInside().back(), "2 Warning - obtaining kiv nodes failed even after multiple retries.");
    host.forget();
    EXPECT_EQ(module.getActivePath("/dev/sdc", false), "/dev/sdc");
    EXPECT_EQ(host.effectsInside().back(), "2 Warning - obtaining kiv nodes failed even after multiple retries.");
}

TEST_F(NativePathUnderTheVolumeManager, AFailedReverseLookupGivesThePathBack)
{
    host.prints(nodeOfSdc, nodeTable).times(2);
    host.fails(pathsOfNode, 1, 256, {});
    EXPECT_EQ(module.getActivePath("/dev/sdc", true), "/dev/sdc");
    EXPECT_EQ(
        host.effectsInside().back(),
        "2 CZtKIVSupport::getOSDiskHandleForZtVMDisk : Command [/usr/sbin/ztkivadm   getsubpaths  kivnodename=kiv0_1] failed with error []");
    host.prints(pathsOfNode, lines({"NAME", "====", "sdf DISABLED SECONDARY"}));
    EXPECT_EQ(module.getActivePath("/dev/sdc", true), "/dev/sdc");
    EXPECT_EQ(host.effectsInside().back(), "2 Unable to get enabled disk path for kiv node 'kiv0_1'");
}

TEST_F(NativePathUnderTheVolumeManager, AnEmptyReverseAnswerGivesThePathBackWithoutARecord)
{
    host.prints(nodeOfSdc, nodeTable);
    host.prints(pathsOfNode, lines({"nothing", "here"}));
    EXPECT_EQ(module.getActivePath("/dev/sdc", true), "/dev/sdc");
    EXPECT_EQ(host.effectsInside().back(), "6 ExecuteCommand passed with output 'nothinghere'");
}

TEST_F(NativePathUnderTheVolumeManager, AnEmptyNodeIsStillLookedUp)
{
    constexpr char pathsOfNothing[] = "/usr/sbin/ztkivadm   getsubpaths  kivnodename=";
    host.prints(nodeOfSdc, lines({"NAME", "===="}));
    host.fails(pathsOfNothing, 1, 256, {});
    EXPECT_EQ(module.getActivePath("/dev/sdc", true), "/dev/sdc");
    host.prints(nodeOfSdc, lines({"no such", "disk"}));
    host.prints(pathsOfNothing, lines({"no such", "node"}));
    EXPECT_EQ(module.getActivePath("/dev/sdc", true), "/dev/sdc");
    host.prints(nodeOfSdc, lines({"NAME", "===="}));
    host.prints(pathsOfNothing, pathTable);
    EXPECT_EQ(module.getActivePath("/dev/sdc", true), "/dev/sdf") << "the answer counts";
    EXPECT_EQ(host.calls(), lines({
                                "access /usr/sbin/ztkivadm: yes",
                                "runner with a log",
                                "run [/usr/sbin/ztkivadm   getkivnode  nodename=sdc]",
                                "runner with a log",
                                "run [/usr/sbin/ztkivadm   getsubpaths  kivnodename=]",
                                "access /usr/sbin/ztkivadm: yes",
                                "runner with a log",
                                "run [/usr/sbin/ztkivadm   getkivnode  nodename=sdc]",
                                "runner with a log",
                                "run [/usr/sbin/ztkivadm   getsubpaths  kivnodename=]",
                                "access /usr/sbin/ztkivadm: yes",
                                "runner with a log",
                                "run [/usr/sbin/ztkivadm   getkivnode  nodename=sdc]",
                                "runner with a log",
                                "run [/usr/sbin/ztkivadm   getsubpaths  kivnodename=]",
                            }));
}

TEST_F(NativePathUnderTheVolumeManager, AsksWhetherTheDeviceIsRawAndIgnoresTheAnswer)
{
    NeverRaw neverRaw(host);
    host.prints(nodeOfSdc, nodeTable);
    host.prints(pathsOfNode, pathTable);
    EXPECT_EQ(neverRaw.getActivePath("/dev/sdc", true), "/dev/sdf");
    EXPECT_EQ(host.calls(), lines({
                                "access /usr/sbin/ztkivadm: yes",
                                "runner without a log",
                                "run [/usr/sbin/ztkivadm   getkivnode  nodename=sdc]",
                                "runner without a log",
                                "run [/usr/sbin/ztkivadm   getsubpaths  kivnodename=kiv0_1]",
                                "isRawDevice /dev/sdc",
                            }));
}

TEST_F(NativePathUnderTheVolumeManager, NamesTheDiskByTheBasesRuleWhateverADerivedModuleSays)
{
    NamesEverythingSdx derived;
    host.prints(nodeOfSdc, nodeTable);
    host.prints(pathsOfNode, pathTable);
    EXPECT_EQ(derived.getActivePath("/dev/sdc", true), "/dev/sdf");
}

TEST_F(NativePathUnderTheVolumeManager, TheSupportObjectReleasesTheLogAfterTheLookup)
{
    host.prints(nodeOfSdc, nodeTable);
    host.prints(pathsOfNode, pathTable);
    Lines counts;
    host.onTrace = [&] { counts.push_back(std::to_string(host.logCount())); };
    module.getActivePath("/dev/sdc", true);
    ASSERT_EQ(counts.size(), host.trace(6).size() + host.trace(3).size());
    EXPECT_EQ(counts[0], "3") << "host, module, scope";
    EXPECT_EQ(counts[1], "5") << "the support object and its scope more";
    EXPECT_EQ(counts[counts.size() - 2], "4") << "the active path is traced while the support object lives";
    EXPECT_EQ(counts.back(), "3") << "the exit is recorded after its end";
}

TEST_F(NativePathUnderTheVolumeManager, ARunnersExceptionIsAFailedLookup)
{
    host.prints(nodeOfSdc, nodeTable);
    host.throws(pathsOfNode, [] { throw EFiExecPipe(); });
    EXPECT_EQ(module.getActivePath("/dev/sdc", true), "/dev/sdc");
    EXPECT_EQ(host.trace(1), lines({"ExecuteCommand - exception thrown in command execution."}));
}

TEST_F(NativePathUnderTheVolumeManager, EveryOtherExceptionPassesThroughTheLookup)
{
    host.throws(nodeOfSdc, [] { throw std::out_of_range("of the host"); }).times(2);
    EXPECT_THROW(module.getActivePath("/dev/sdc", true), std::out_of_range);
    EXPECT_EQ(host.logCount(), 2U);
    EXPECT_THROW(module.getActivePath("/dev/sdc", false), std::out_of_range);
    EXPECT_EQ(host.logCount(), 2U);
    host.prints(nodeOfSdc, nodeTable);
    host.throws(pathsOfNode, [] { throw 42; });
    EXPECT_THROW(module.getActivePath("/dev/sdc", true), int);
    EXPECT_EQ(host.effectsWithoutLineNumbers().back(), "6 Exiting Function getActivePath [kiv_nativepath_claim.cpp]");
}

TEST_F(NativePathUnderTheVolumeManager, WhatTheLogThrowsPassesThroughTheLookup)
{
    host.prints(nodeOfSdc, nodeTable);
    host.prints(pathsOfNode, pathTable);
    host.failsTracing("Got active path");
    EXPECT_THROW(module.getActivePath("/dev/sdc", true), std::runtime_error);
    EXPECT_EQ(host.logCount(), 2U);
}

TEST(NativePathWithoutALog, AnswersTheSame)
{
    Host host;
    CNativePathClaim module;
    unsigned int partition = 77;
    EXPECT_EQ(module.getDeviceClaimStrings(), lines({"/dev/sd"}));
    EXPECT_EQ(module.claim("/dev/sda1"), 2U);
    EXPECT_EQ(module.isPartition("/dev/sda1"), 1);
    EXPECT_EQ(module.appendPartitionSuffix("/dev/sda", 1), "/dev/sda1");
    EXPECT_EQ(module.removePartitionSuffix("/dev/sda1", partition), "/dev/sda");
    EXPECT_EQ(partition, 1U);
    EXPECT_EQ(host.effects(), lines({}));
    host.executable("/usr/sbin/ztkivadm");
    host.prints(nodeOfSdc, lines({"NAME", "====", "kiv0_1"})).times(3);
    host.prints(removeNode, {});
    host.prints(rescanAll, {});
    host.prints(pathsOfNode, lines({"NAME", "====", "sdf ENABLED"})).times(2);
    EXPECT_EQ(module.getActivePath("/dev/sdc", true), "/dev/sdf");
    EXPECT_EQ(module.getActivePath("/dev/sdc", false), "/dev/sdf");
    EXPECT_EQ(host.effects(), host.calls()) << "no record";
}
