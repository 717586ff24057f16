// Each operation of the library, while each of its allocations fails in turn.
#include "claim/kiv_claim_query.h"
#include "modules/kiv_linux_device_mapper_claim.h"
#include "modules/kiv_nativepath_claim.h"
#include "modules/kiv_powerpath_claim.h"
#include "tests/faults/questions.h"

#include <gtest/gtest.h>

using faults::entersAndIsRightOrThrows;
using faults::failEachAllocation;
using faults::nothingSpecial;
using faults::Outcome;
using recording::Host;
using recording::lines;
using recording::Lines;
using ztfi_pdk_4_4::EFiExecPipe;

namespace {

// Texts that are too long for a string's own buffer, so that each copy of them allocates.
const std::string map = "/dev/mapper/a-map-with-a-long-name";
const std::string mapPartition = "/dev/mapper/a-map-with-a-long-name-part7";
const std::string pseudo = "/dev/emcpowerabcdefghijklmnop";
const std::string pseudoPartition = "/dev/emcpowerabcdefghijklmnop7";
const std::string disk = "/dev/sdabcdefghijklmnopqrstuvwxyz";
const std::string diskPartition = "/dev/sdabcdefghijklmnopqrstuvwxyz7";
constexpr char nodeOfDisk[] = "/usr/sbin/ztkivadm   getkivnode  nodename=sdabcdefghijklmnopqrstuvwxyz";
constexpr char pathsOfNode[] = "/usr/sbin/ztkivadm   getsubpaths  kivnodename=a_node_with_a_long_name";

void volumeManager(Host& host)
{
    host.executable("/usr/sbin/ztkivadm");
    host.prints(nodeOfDisk, lines({"NAME", "====", "a_node_with_a_long_name ENABLED"}));
    host.prints(pathsOfNode, lines({"NAME", "====", "an_active_path_with_a_long_name ENABLED(A) PRIMARY"}));
}

// A manager as the question needs it.
struct AskedManager {
    CKivClaimManager manager;

    void registerTraceLog(const recording::LogPointer& log) { manager.registerTraceLog(log); }
};

}  // namespace

TEST(FailingAllocation, AnUnsureAnswerOfAQueryIsCompleteOrTheFailureReachesTheCaller)
{
    constexpr char oneVolume[] =
        "The path was printed as a logical volume but is not treated as one, because "
        "/sbin/lvdisplay exited with status 5 after printing 1 volume.";
    const int failures = failEachAllocation<AskedManager>(
        [](Host& host) {
            host.fails("/sbin/lvdisplay", 5, 5 << 8,
                       lines({"LV Name a-volume-with-a-long-name", "VG Name a_group_with_a_long_name"}));
        },
        [](AskedManager& asked) {
            kivclaim::ClaimQuery query(asked.manager);
            return query.ask("/dev/mapper/a_group_with_a_long_name-a-volume-with-a-long-name").whyUnsure();
        },
        [&](const Outcome& outcome) { EXPECT_TRUE(outcome.threw || outcome.answer == oneVolume) << outcome.answer; });
    EXPECT_GE(failures, 10);
}

TEST(FailingAllocation, ADeviceMapperPartitionPathBecomesTheDeviceWithARecordOfTheFailure)
{
    const struct {
        const char* release;
        std::string device;
        std::string right;
    } cases[] = {{"3.0.0", map, map + "_part7"},
                 {"6.1.0", map, map + "-part7"},
                 {"3.5.0", map + "0", map + "0p7"},
                 {"3.5.0", map, map}};
    for (const auto& [release, device, right] : cases) {
        const int failures = failEachAllocation<CKivDeviceMapperClaim>(
            [&, text = release](Host& host) { host.kernelRelease(text); },
            [&, &path = device](CKivDeviceMapperClaim& module) { return module.appendPartitionSuffix(path, 7); },
            [&, &path = device](const Outcome& outcome) {
                EXPECT_FALSE(outcome.threw);
                EXPECT_EQ(outcome.answer, path);
                EXPECT_EQ(outcome.errors,
                          lines({"INFO: CKivDeviceMapperClaim::appendPartitionSuffix: Unknown exception caught"}));
                ASSERT_FALSE(outcome.effects.empty());
                EXPECT_EQ(outcome.effects.front(),
                          "6 Entering Function appendPartitionSuffix [242, kiv_linux_device_mapper_claim.cpp]");
            });
        EXPECT_GE(failures, 2) << release;
    }
}

TEST(FailingAllocation, ADeviceMapperPartitionTakenApartBecomesThePathItselfWithARecordOfTheFailure)
{
    for (const char* const release : {"6.1.0", "3.5.0"}) {
        unsigned int partition = 77;
        const int failures = failEachAllocation<CKivDeviceMapperClaim>(
            [&](Host& host) {
                host.kernelRelease(release);
                host.device("/dev/mapper/a-map-with-a-long-name-part");
            },
            [&](CKivDeviceMapperClaim& module) {
                partition = 77;
                return module.removePartitionSuffix(mapPartition, partition);
            },
            [&](const Outcome& outcome) {
                EXPECT_FALSE(outcome.threw);
                EXPECT_EQ(outcome.answer, mapPartition);
                EXPECT_EQ(outcome.errors,
                          lines({"CKivDeviceMapperClaim::removePartitionSuffix: Unknown exception caught"}));
                ASSERT_FALSE(outcome.effects.empty());
                EXPECT_EQ(outcome.effects.front(),
                          "6 Entering Function removePartitionSuffix [152, kiv_linux_device_mapper_claim.cpp]");
            });
        EXPECT_GE(failures, 2) << release;
    }
}

TEST(FailingAllocation, APowerPathPartitionPathIsEnteredBeforeItAllocates)
{
    EXPECT_GE(failEachAllocation<CKivPowerPathClaim>(
                  nothingSpecial, [](CKivPowerPathClaim& module) { return module.appendPartitionSuffix(pseudo, 7); },
                  entersAndIsRightOrThrows("appendPartitionSuffix", pseudoPartition)),
              1);
}

TEST(FailingAllocation, APowerPathPartitionTakenApartIsEnteredBeforeItAllocates)
{
    unsigned int partition = 0;
    EXPECT_GE(failEachAllocation<CKivPowerPathClaim>(
                  nothingSpecial,
                  [&](CKivPowerPathClaim& module) { return module.removePartitionSuffix(pseudoPartition, partition); },
                  entersAndIsRightOrThrows("removePartitionSuffix", pseudo)),
              1);
}

TEST(FailingAllocation, ANativePartitionTakenApartIsEnteredBeforeItAllocates)
{
    unsigned int partition = 0;
    EXPECT_GE(failEachAllocation<CNativePathClaim>(
                  nothingSpecial,
                  [&](CNativePathClaim& module) { return module.removePartitionSuffix(diskPartition, partition); },
                  entersAndIsRightOrThrows("removePartitionSuffix", disk)),
              1);
}

TEST(FailingAllocation, AnActivePathIsEnteredBeforeItAllocates)
{
    EXPECT_GE(failEachAllocation<CNativePathClaim>(
                  volumeManager, [](CNativePathClaim& module) { return module.getActivePath(disk, true); },
                  entersAndIsRightOrThrows("getActivePath", "/dev/an_active_path_with_a_long_name")),
              20);
}

TEST(FailingAllocation, AMissingToolIsNeverTakenForItsDirectory)
{
    // The directory itself may be "executed".
    EXPECT_GE(failEachAllocation<CZtKIVSupport>(
                  [](Host& host) { host.executable("/usr/sbin/"); },
                  [](CZtKIVSupport& support) { return std::to_string(support.isZtKIVInstalled() ? 1 : 0); },
                  entersAndIsRightOrThrows("isZtKIVInstalled", "0")),
              4);
}

TEST(FailingAllocation, AnInstalledToolIsNeverTakenForAMissingOne)
{
    EXPECT_GE(failEachAllocation<CZtKIVSupport>(
                  [](Host& host) { host.executable("/usr/sbin/ztkivadm"); },
                  [](CZtKIVSupport& support) { return std::to_string(support.isZtKIVInstalled() ? 1 : 0); },
                  entersAndIsRightOrThrows("isZtKIVInstalled", "1")),
              4);
}

TEST(FailingAllocation, ARunnersExceptionThatCannotBeCopiedEndsNoProcess)
{
    Lines output;
    EXPECT_GE(failEachAllocation<CZtKIVSupport>(
                  [](Host& host) {
                      host.throws("/bin/x", [] {
                          throw EFiExecPipe{"a text that is longer than a string's own buffer",
                                            L"a text that is longer than a string's own buffer", 13, 256};
                      });
                  },
                  [&](CZtKIVSupport& support) { return std::to_string(support.executeCommand("/bin/x", output)); },
                  entersAndIsRightOrThrows("executeCommand", "1")),
              0);
}
