// The claim query: its answers, what they rest on, and that it leaves everything else alone.
#include "claim/kiv_claim_query.h"
#include "modules/kiv_linux_device_mapper_claim.h"
#include "modules/kiv_nativepath_claim.h"
#include "modules/kiv_powerpath_claim.h"
#include "tests/recording_host.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <stdexcept>
#include <thread>

using kivclaim::ClaimAnswer;
using kivclaim::ClaimBasis;
using kivclaim::ClaimFacts;
using kivclaim::ClaimQuery;
using kivclaim::VolumeListing;
using recording::Host;
using recording::Lines;
using recording::lines;
using ztfi_pdk_4_4::EFiExecPipe;
using ztfi_pdk_4_4::ZTFI_DEVICE_CLAIM_LEVEL;
using State = kivclaim::VolumeListing::State;

namespace {

const char* const lvdisplay = "/sbin/lvdisplay";
constexpr int exitedWith5 = 5 << 8;

const Lines oneVolume = lines({"  LV Name                lvol1", "  VG Name                vg00"});
const Lines twoVolumes =
    lines({"  LV Path                /dev/vg00/lvol1", "  LV Name                lvol1",
           "  VG Name                vg00", "  LV Name                home", "  VG Name                data"});

// Claims whatever contains its text, and throws what it is told to.
class HostModule : public CKivDeviceClaimBase {
public:
    HostModule(std::string text, unsigned int level) : text(std::move(text)), level(level) {}

    std::vector<std::string> getDeviceClaimStrings() override { return {text}; }
    ZTFI_DEVICE_CLAIM_LEVEL claim(const std::string& path) override
    {
        if (thrower && path.find(text) != std::string::npos) {
            thrower();
        }
        return ZTFI_DEVICE_CLAIM_LEVEL(path.find(text) != std::string::npos ? level : 0);
    }
    int isPartition(const std::string& /*path*/) override { return 1; }
    std::string appendPartitionSuffix(const std::string& device, unsigned int /*partition*/) override { return device; }
    std::string removePartitionSuffix(const std::string& device, unsigned int& partition) override
    {
        partition = 7;
        return "whole of " + device;
    }

    std::function<void()> thrower;

private:
    std::string text;
    unsigned int level;
};

// A stronger kind of device-mapper module.
class StrongMapper : public CKivDeviceMapperClaim {
public:
    ZTFI_DEVICE_CLAIM_LEVEL claim(const std::string& path) override
    {
        const unsigned int claimed = CKivDeviceMapperClaim::claim(path);
        return ZTFI_DEVICE_CLAIM_LEVEL(claimed * 2);
    }
};

// Claims logical volumes, by a device-mapper module of its own.
class VolumeModule : public HostModule {
public:
    VolumeModule() : HostModule("/dev/mapper/", 40) {}
    ZTFI_DEVICE_CLAIM_LEVEL claim(const std::string& path) override
    {
        const bool isVolume = inner.isLinuxLogicalVolume(path) != 0;
        return isVolume ? HostModule::claim(path) : ztfi_pdk_4_4::ZTFI_DEVICE_CLAIM_LEVEL_NONE;
    }

private:
    CKivDeviceMapperClaim inner;
};

class Query : public testing::Test {
protected:
    template <class Module, class... Arguments>
    Module* add(Arguments... arguments)
    {
        auto* const module = new Module(arguments...);
        manager.registerClaimModule(module);
        host.forget();
        return module;
    }

    void registerLog()
    {
        manager.registerTraceLog(host.log());
        host.forget();
    }

    // Asks on a thread that is told to end meanwhile.
    bool goesOnAfterAsking(const std::string& path)
    {
        bool goesOn = false;
        std::thread([&] {
            query.ask(path);
            goesOn = true;
        }).join();
        return goesOn;
    }

    // The reason, after a listing that `host` was told to fail.
    std::string whyUnsure(const std::string& path = "/dev/mapper/mpatha")
    {
        const ClaimAnswer answer = query.ask(path, ClaimFacts::claimOnly);
        EXPECT_EQ(answer.basis(), ClaimBasis::listFailed);
        EXPECT_TRUE(answer.isUnsure());
        EXPECT_TRUE(answer.isAnswered());
        EXPECT_EQ(answer.level(), 16U);
        EXPECT_EQ(answer.stack(), "device-mapper");
        return answer.whyUnsure();
    }

    Host host;
    CKivClaimManager manager;
    ClaimQuery query{manager};
};

std::vector<std::string> mapperPaths(std::size_t count)
{
    std::vector<std::string> paths;
    for (std::size_t i = 1; i <= count; ++i) {
        paths.push_back("/dev/mapper/node" + std::to_string(i));
    }
    return paths;
}

void expectNoAnswer(const ClaimAnswer& answer, ClaimBasis basis)
{
    EXPECT_EQ(answer.basis(), basis) << answer.path();
    EXPECT_FALSE(answer.isAnswered());
    EXPECT_FALSE(answer.isUnsure());
    EXPECT_EQ(answer.level(), 0U);
    EXPECT_EQ(answer.module(), nullptr);
    EXPECT_EQ(answer.stack(), "none");
    EXPECT_FALSE(answer.isPartition());
    EXPECT_EQ(answer.wholeDevice(), "");
    EXPECT_EQ(answer.number(), 0U);
    EXPECT_EQ(answer.listing().state(), State::notRead);
}

}  // namespace

TEST_F(Query, AnswersBasedOnAListThatWasReadAreSure)
{
    host.prints(lvdisplay, twoVolumes);
    const auto before = std::chrono::system_clock::now();
    const ClaimAnswer volume = query.ask("/dev/mapper/vg00-lvol1");
    const ClaimAnswer map = query.ask("/dev/mapper/mpatha-part3");
    EXPECT_EQ(volume.path(), "/dev/mapper/vg00-lvol1");
    EXPECT_EQ(volume.basis(), ClaimBasis::listRead);
    EXPECT_EQ(volume.level(), 0U);
    EXPECT_EQ(volume.module(), nullptr);
    EXPECT_EQ(volume.stack(), "none");
    EXPECT_EQ(volume.wholeDevice(), "");
    EXPECT_EQ(map.basis(), ClaimBasis::listRead);
    EXPECT_TRUE(map.isAnswered());
    EXPECT_FALSE(map.isUnsure());
    EXPECT_EQ(map.whyUnsure(), "");
    EXPECT_EQ(map.level(), 16U);
    EXPECT_EQ(map.module(), manager.claimModules().at(2));
    EXPECT_EQ(map.stack(), "device-mapper");
    EXPECT_TRUE(map.isPartition());
    EXPECT_EQ(map.wholeDevice(), "/dev/mapper/mpatha");
    EXPECT_EQ(map.number(), 3U);
    const VolumeListing listing = map.listing();
    EXPECT_EQ(listing.state(), State::read);
    EXPECT_EQ(listing.volumes(), lines({"/dev/mapper/data-home", "/dev/mapper/vg00-lvol1"}));
    EXPECT_TRUE(listing.holds("/dev/mapper/data-home"));
    EXPECT_FALSE(listing.holds("/dev/mapper/data-hom"));
    EXPECT_GE(listing.when(), before);
    EXPECT_LE(listing.when(), std::chrono::system_clock::now());
    EXPECT_EQ(listing.exitCode(), -1);
    EXPECT_EQ(listing.signal(), 0);
    EXPECT_EQ(listing.message(), "");
    EXPECT_EQ(listing.problem(), "");
}

TEST_F(Query, AnswersFromNamesNeedNoList)
{
    const ClaimAnswer native = query.ask("/dev/sdc12");
    EXPECT_EQ(native.basis(), ClaimBasis::notNeeded);
    EXPECT_EQ(native.level(), 2U);
    EXPECT_EQ(native.stack(), "native");
    EXPECT_TRUE(native.isPartition());
    EXPECT_EQ(native.wholeDevice(), "/dev/sdc");
    EXPECT_EQ(native.number(), 12U);
    EXPECT_EQ(native.whyUnsure(), "");
    EXPECT_EQ(native.listing().state(), State::notRead);
    EXPECT_EQ(native.listing().problem(), "");
    const ClaimAnswer none = query.ask("/dev/mapper");
    EXPECT_EQ(none.basis(), ClaimBasis::notNeeded);
    EXPECT_TRUE(none.isAnswered());
    EXPECT_EQ(none.stack(), "none");
    EXPECT_EQ(query.ask("/dev/emcpowera").stack(), "powerpath");
    EXPECT_EQ(query.listing().state(), State::notRead);
    EXPECT_EQ(host.calls(), lines({}));
}

TEST_F(Query, AnAnswerFromANameNeedsNoListAfterAnotherPathNeededIt)
{
    host.prints(lvdisplay, oneVolume);
    EXPECT_EQ(query.ask("/dev/mapper/mpatha").basis(), ClaimBasis::listRead);
    const ClaimAnswer answer = query.ask("/dev/sda");
    EXPECT_EQ(answer.basis(), ClaimBasis::notNeeded);
    EXPECT_EQ(answer.listing().state(), State::notRead);
}

TEST_F(Query, OnlyTheRequestedFactsAreAskedFor)
{
    registerLog();
    const ClaimAnswer claim = query.ask("/dev/sdc1", ClaimFacts::claimOnly);
    EXPECT_FALSE(claim.isPartition());
    EXPECT_EQ(claim.wholeDevice(), "");
    EXPECT_EQ(claim.number(), 0U);
    EXPECT_EQ(host.trace(3), lines({"INFO: CKivDeviceMapperClaim::claim - returning ZTFI_DEVICE_CLAIM_LEVEL_NONE"}));
    const ClaimAnswer partition = query.ask("/dev/sdc1", ClaimFacts::isPartition);
    EXPECT_TRUE(partition.isPartition());
    EXPECT_EQ(partition.wholeDevice(), "");
    const ClaimAnswer whole = query.ask("/dev/sdc1", ClaimFacts::wholeDevice);
    EXPECT_FALSE(whole.isPartition());
    EXPECT_EQ(whole.wholeDevice(), "/dev/sdc");
    EXPECT_EQ(whole.number(), 1U);
}

TEST_F(Query, AFailedListingGivesItsExitCode)
{
    host.fails(lvdisplay, 5, exitedWith5, {}).says("The command failed: WARNING: no\x1b such disk");
    EXPECT_EQ(whyUnsure(),
              "The answer would be the same for a logical volume, because /sbin/lvdisplay exited with status 5.");
    const VolumeListing listing = query.listing();
    EXPECT_EQ(listing.state(), State::failed);
    EXPECT_EQ(listing.exitCode(), 5);
    EXPECT_EQ(listing.signal(), 0);
    EXPECT_EQ(listing.message(), "The command failed: WARNING: no\x1b such disk");
    EXPECT_EQ(listing.volumes(), lines({}));
    EXPECT_EQ(listing.problem(), "/sbin/lvdisplay exited with status 5");
}

TEST_F(Query, AFailedListingGivesTheSignalThatEndedIt)
{
    host.fails(lvdisplay, 137, SIGKILL, {});
    EXPECT_EQ(whyUnsure(),
              "The answer would be the same for a logical volume, because /sbin/lvdisplay was ended by signal 9.");
    EXPECT_EQ(query.listing().signal(), 9);
    EXPECT_EQ(query.listing().exitCode(), -1);
}

TEST_F(Query, AFailureWithoutAStatusIsReportedAsAFailure)
{
    for (const int waitStatus : {0, 0xFFFF, 0x137F, -1}) {
        host.fails(lvdisplay, -1, waitStatus, {});
        ClaimQuery another(manager);
        EXPECT_EQ(another.ask("/dev/mapper/mpatha").whyUnsure(),
                  "The answer would be the same for a logical volume, because /sbin/lvdisplay failed.");
        EXPECT_EQ(another.listing().signal(), 0);
    }
}

TEST_F(Query, VolumesThatAFailedListingPrintedAreReportedButNotUsed)
{
    host.fails(lvdisplay, 5, exitedWith5, twoVolumes);
    EXPECT_EQ(whyUnsure(),
              "The answer would be the same for a logical volume, because /sbin/lvdisplay exited with status 5 after "
              "printing 2 volumes.");
    EXPECT_EQ(whyUnsure("/dev/mapper/vg00-lvol1"),
              "The path was printed as a logical volume but is not treated as one, because /sbin/lvdisplay exited with "
              "status 5 after printing 2 volumes.");
    EXPECT_EQ(query.listing().volumes(), lines({"/dev/mapper/data-home", "/dev/mapper/vg00-lvol1"}));
}

TEST_F(Query, AFailedListingThatWasCutGivesWhatItPrintedUntilThen)
{
    host.indexAfterMiss = 1000;  // reading on is an exception
    host.fails(lvdisplay, 5, exitedWith5, lines({"LV Name lvol1", "VG Name vg00", "LV Name lvol2"}));
    EXPECT_EQ(whyUnsure(),
              "The answer would be the same for a logical volume, because /sbin/lvdisplay exited with status 5 after "
              "printing 1 volume.");
    EXPECT_EQ(query.listing().state(), State::failed);
}

TEST_F(Query, AListingThatCouldNotBeRunGivesTheRunnersMessage)
{
    host.throws(lvdisplay, [] { throw EFiExecPipe{"no such file", L"no such file", 2, -1}; });
    EXPECT_EQ(whyUnsure(),
              "The answer would be the same for a logical volume, because /sbin/lvdisplay could not be run.");
    EXPECT_EQ(query.listing().state(), State::notRun);
    EXPECT_EQ(query.listing().message(), "no such file");
    EXPECT_EQ(query.listing().exitCode(), -1);
}

TEST_F(Query, AnotherExceptionOfTheListingGivesItsText)
{
    host.throws(lvdisplay, [] { throw std::runtime_error("out of luck"); });
    EXPECT_EQ(whyUnsure(),
              "The answer would be the same for a logical volume, because reading the list of logical volumes threw an "
              "exception.");
    EXPECT_EQ(query.listing().state(), State::threw);
    EXPECT_EQ(query.listing().message(), "out of luck");
}

TEST_F(Query, AnExceptionWithoutATextIsReportedWithoutOne)
{
    host.throws(lvdisplay, [] { throw 5; });
    EXPECT_EQ(whyUnsure(),
              "The answer would be the same for a logical volume, because reading the list of logical volumes threw an "
              "exception.");
    EXPECT_EQ(query.listing().message(), "");
}

TEST_F(Query, AnExceptionWhileTheOutputIsReadLeavesTheVolumesBeforeIt)
{
    host.indexAfterMiss = 1000;
    host.prints(lvdisplay, lines({"LV Name lvol1", "VG Name vg00", "LV Name lvol2"}));
    EXPECT_EQ(whyUnsure("/dev/mapper/vg00-lvol1"),
              "The path was printed as a logical volume but is not treated as one, because reading the list of logical "
              "volumes threw an exception after printing 1 volume.");
    EXPECT_EQ(query.listing().state(), State::threw);
}

TEST_F(Query, AnOutputThatIsNotUnderstoodIsReported)
{
    host.falseHit = "LVName";  // has neither a blank nor a slash
    host.prints(lvdisplay, lines({"LV Name lvol1", "VG Name vg00", "LVName"}));
    EXPECT_EQ(whyUnsure(),
              "The answer would be the same for a logical volume, because the output of /sbin/lvdisplay was not "
              "understood after printing 1 volume.");
    EXPECT_EQ(query.listing().state(), State::notUnderstood);
    EXPECT_EQ(query.listing().volumes(), lines({"/dev/mapper/vg00-lvol1"}));
}

TEST_F(Query, TenThousandPathsAreAnsweredByOneRun)
{
    const std::vector<std::string> paths = mapperPaths(10000);
    host.prints(lvdisplay, {});
    const std::vector<ClaimAnswer> answers = query.askAll(paths, ClaimFacts::claimOnly);
    ASSERT_EQ(answers.size(), paths.size());
    for (std::size_t i = 0; i < paths.size(); ++i) {
        EXPECT_EQ(answers[i].path(), paths[i]);
        EXPECT_EQ(answers[i].level(), 16U);
        EXPECT_EQ(answers[i].basis(), ClaimBasis::listRead);
    }
    EXPECT_EQ(host.calls(), lines({"runner without a log", "run [/sbin/lvdisplay]"}));
}

TEST_F(Query, AFailedListingIsNotTriedAgainByTheSameQuery)
{
    host.fails(lvdisplay, 5, exitedWith5, {});
    const std::vector<ClaimAnswer> answers = query.askAll(mapperPaths(10000), ClaimFacts::claimOnly);
    EXPECT_TRUE(std::all_of(answers.begin(), answers.end(), [](const ClaimAnswer& each) { return each.isUnsure(); }));
    EXPECT_TRUE(query.ask("/dev/mapper/mpatha").isUnsure());
    EXPECT_EQ(host.calls(), lines({"runner without a log", "run [/sbin/lvdisplay]"}));
}

TEST_F(Query, TheModulesOwnListIsNeitherUsedNorChanged)
{
    host.prints(lvdisplay, oneVolume);
    EXPECT_EQ(manager.claim("/dev/mapper/vg00-lvol1"), 0U);
    // Renamed meanwhile.
    host.prints(lvdisplay, lines({"  LV Name                lvol2", "  VG Name                vg00"}));
    EXPECT_EQ(query.ask("/dev/mapper/vg00-lvol1").level(), 16U);
    EXPECT_EQ(query.ask("/dev/mapper/vg00-lvol2").level(), 0U);
    EXPECT_EQ(manager.claim("/dev/mapper/vg00-lvol1"), 0U);
    EXPECT_EQ(manager.claim("/dev/mapper/vg00-lvol2"), 16U);
}

TEST_F(Query, AnEmptyListOfTheModuleStaysEmpty)
{
    host.prints(lvdisplay, oneVolume).times(3);
    EXPECT_EQ(query.ask("/dev/mapper/vg00-lvol1").level(), 0U);
    EXPECT_EQ(manager.claim("/dev/mapper/vg00-lvol1"), 0U) << "the second run";
    EXPECT_EQ(ClaimQuery(manager).ask("/dev/mapper/vg00-lvol1").level(), 0U) << "the third";
}

TEST_F(Query, WritesTheRecordsOfARequestWithAnEmptyList)
{
    for (const bool fails : {false, true}) {
        CKivClaimManager asked;
        CKivClaimManager queried;
        asked.registerTraceLog(host.log());
        queried.registerTraceLog(host.log());
        (fails ? host.fails(lvdisplay, 5, exitedWith5, oneVolume) : host.prints(lvdisplay, twoVolumes)).times(2);
        host.forget();
        CKivDeviceClaimBase* module = nullptr;
        asked.getClaimModule(module, "/dev/mapper/mpatha");
        const Lines expected = host.effects();
        host.forget();
        ClaimQuery(queried).ask("/dev/mapper/mpatha", ClaimFacts::claimOnly);
        EXPECT_EQ(host.effects(), expected);
        EXPECT_GT(expected.size(), 10U);
    }
}

TEST_F(Query, TheSecondPathIsTracedWithoutARun)
{
    registerLog();
    host.prints(lvdisplay, {});
    query.ask("/dev/mapper/mpatha", ClaimFacts::claimOnly);
    host.forget();
    query.ask("/dev/mapper/mpathb", ClaimFacts::claimOnly);
    EXPECT_EQ(
        host.effectsInside(),
        lines({"3 CKivDeviceMapperClaim::isLinuxLogicalVolume: Checking for device:[/dev/mapper/mpathb]",
               "6 CKivDeviceMapperClaim::isLinuxLogicalVolume: The device path:[/dev/mapper/mpathb] is not logical "
               "volume.",
               "3 INFO: CKivDeviceMapperClaim::claim - returning ZTFI_DEVICE_CLAIM_LEVEL_KIV_SECONDARY"}));
}

namespace {

struct Scene {
    const char* name;
    Lines output;
    int result;
    int waitStatus;
};

const Scene scenes[] = {
    {"no volume", {}, 0, 0},
    {"one volume", oneVolume, 0, 0},
    {"two volumes", twoVolumes, 0, 0},
    {"a volume with a dash", lines({"LV Name a-b", "VG Name c-d"}), 0, 0},
    {"a volume called like a partition", lines({"LV Name mpatha-part1", "VG Name x"}), 0, 0},
    {"a group is missing", lines({"LV Name mpatha"}), 0, 0},
    {"no listing", lines({"", "LV", "\xff\xfe", "LV NameVG Name"}), 0, 0},
    {"failed", {}, 5, exitedWith5},
    {"failed after two volumes", twoVolumes, 5, exitedWith5},
    {"killed", oneVolume, 137, SIGKILL},
};

const char* const pathsOfScenes[] = {"",
                                     "/",
                                     "/dev/mapper",
                                     "/dev/mapper/",
                                     "/dev/mapper/vg00-lvol1",
                                     "/dev/mapper/data-home",
                                     "/dev/mapper/c-d-a-b",
                                     "/dev/mapper/x-mpatha-part1",
                                     "/dev/mapper/e mpatha-mpatha",
                                     "/dev/mapper/mpatha",
                                     "/dev/mapper/mpatha1",
                                     "/dev/mapper/mpatha-part1",
                                     "/dev/mapper/mpatha-part12",
                                     "/dev/mapper/mpathb_part9",
                                     "/x/dev/mapper/vg00-lvol1",
                                     "/dev/mapper/dev/emcpowera3",
                                     "/dev/mapper/dev/sda3",
                                     "/dev/mapper/\x1b\xff",
                                     "/dev/emcpowera",
                                     "/dev/emcpowerb15",
                                     "/dev/sda",
                                     "/dev/sdab12",
                                     "/dev/sd",
                                     "/dev/site5",
                                     "/dev/null",
                                     "relative"};

}  // namespace

TEST_F(Query, AnswersAsAManagerThatHasReadTheSameList)
{
    host.device("/dev/mapper/mpatha");
    host.device("/dev/mapper/mpatha-part1");
    for (const char* const release : {"2.6.32", "3.5.0", "6.1.0"}) {
        host.kernelRelease(release);
        for (const Scene& scene : scenes) {
            CKivClaimManager queried;
            queried.registerClaimModule(new HostModule("/dev/site", 32));
            ClaimQuery fresh(queried);
            bool hasRun = false;
            for (const std::string path : pathsOfScenes) {
                SCOPED_TRACE(scene.name + (": " + path) + " on " + release);
                const bool runs = path.find("/dev/mapper/") != std::string::npos;
                // A manager of its own for each request, so that none has read anything before.
                const int runsOfManagers = runs ? 3 : 0;
                const int runsOfQuery = runs && !hasRun ? 1 : 0;
                hasRun = hasRun || runs;
                host.fails(lvdisplay, scene.result, scene.waitStatus, scene.output).times(runsOfManagers + runsOfQuery);
                CKivClaimManager managers[3];
                for (CKivClaimManager& each : managers) {
                    each.registerClaimModule(new HostModule("/dev/site", 32));
                }
                const ClaimAnswer answer = fresh.ask(path);
                CKivDeviceClaimBase* module = nullptr;
                unsigned int number = 0;
                EXPECT_EQ(answer.level(), managers[0].getClaimModule(module, path));
                EXPECT_EQ(answer.stack(), kivclaim::stackName(module));
                EXPECT_EQ(answer.isPartition(), managers[1].isPartition(path) != 0);
                EXPECT_EQ(answer.wholeDevice(), managers[2].removePartitionSuffix(path, number));
                EXPECT_EQ(answer.number(), number);
            }
        }
    }
}

TEST_F(Query, AModuleOfTheHostsIsAskedAndWinsWithAHigherLevel)
{
    CKivDeviceClaimBase* const module = add<HostModule>("/dev/mapper/site", 32U);
    host.fails(lvdisplay, 5, exitedWith5, {});
    const ClaimAnswer answer = query.ask("/dev/mapper/site1");
    EXPECT_EQ(answer.level(), 32U);
    EXPECT_EQ(answer.module(), module);
    EXPECT_NE(answer.stack().find("HostModule"), std::string::npos) << answer.stack();
    EXPECT_TRUE(answer.isPartition());
    EXPECT_EQ(answer.wholeDevice(), "whole of /dev/mapper/site1");
    EXPECT_EQ(answer.number(), 7U);
    EXPECT_EQ(answer.basis(), ClaimBasis::notNeeded) << "level 32 wins whatever the list holds";
    EXPECT_TRUE(query.ask("/dev/mapper/other").isUnsure());
}

TEST_F(Query, AWinnerAtTheSameLevelIsSureIfItWasAskedEarlier)
{
    add<HostModule>("/dev/mapper/site", 16U);
    host.fails(lvdisplay, 5, exitedWith5, {});
    const ClaimAnswer first = query.ask("/dev/mapper/dev/emcpowera");
    EXPECT_EQ(first.stack(), "powerpath");
    EXPECT_EQ(first.basis(), ClaimBasis::notNeeded);
    const ClaimAnswer later = query.ask("/dev/mapper/site1");
    EXPECT_EQ(later.stack(), "device-mapper");
    EXPECT_TRUE(later.isUnsure()) << "a volume of this name would be the host's";
}

TEST_F(Query, AWeakerClaimThatWinsBecauseThePathIsAVolumeIsBasedOnTheList)
{
    host.prints(lvdisplay, lines({"LV Name dev/sda", "VG Name x", "LV Name /dev/x/sda", "VG Name /dev/sdz"}));
    const ClaimAnswer answer = query.ask("/dev/mapper//dev/sdz-sda");
    EXPECT_EQ(answer.stack(), "native");
    EXPECT_EQ(answer.basis(), ClaimBasis::listRead);
}

TEST_F(Query, AModuleDerivedFromTheDeviceMappersUsesTheSameList)
{
    auto* const derived = add<StrongMapper>();
    host.prints(lvdisplay, oneVolume);
    const ClaimAnswer answer = query.ask("/dev/mapper/mpatha");
    EXPECT_EQ(answer.level(), 32U);
    EXPECT_EQ(answer.module(), derived);
    EXPECT_NE(answer.stack().find("StrongMapper"), std::string::npos) << answer.stack();
    EXPECT_EQ(answer.basis(), ClaimBasis::listRead);
    EXPECT_EQ(query.ask("/dev/mapper/vg00-lvol1").level(), 0U);
    EXPECT_EQ(host.calls().size(), 2U) << "one run for both modules and both paths";
}

TEST_F(Query, AModuleDerivedFromTheDeviceMappersIsUnsureWithoutTheList)
{
    add<StrongMapper>();
    host.fails(lvdisplay, 5, exitedWith5, {});
    EXPECT_TRUE(query.ask("/dev/mapper/mpatha").isUnsure());
}

TEST_F(Query, AModuleInsideAModuleOfTheHostsUsesTheSameList)
{
    add<VolumeModule>();
    host.prints(lvdisplay, oneVolume);
    EXPECT_EQ(query.ask("/dev/mapper/vg00-lvol1").level(), 40U);
    EXPECT_EQ(query.ask("/dev/mapper/mpatha").level(), 16U);
    host.fails(lvdisplay, 5, exitedWith5, {});
    ClaimQuery failing(manager);
    const ClaimAnswer answer = failing.ask("/dev/mapper/vg00-lvol1");
    EXPECT_EQ(answer.level(), 16U);
    EXPECT_TRUE(answer.isUnsure());
}

TEST_F(Query, AQueryInsideAQueryKeepsItsOwnList)
{
    auto* const module = add<HostModule>("/dev/mapper/", 1U);
    add<StrongMapper>();  // asked after the inner query has ended
    host.prints(lvdisplay, oneVolume);
    host.prints(lvdisplay, {});
    unsigned int innerLevel = 77;
    bool isInside = false;
    module->thrower = [&] {
        if (isInside) {
            return;
        }
        isInside = true;
        innerLevel = ClaimQuery(manager).ask("/dev/mapper/vg00-lvol1").level();
    };
    EXPECT_EQ(query.ask("/dev/mapper/vg00-lvol1").level(), 1U) << "the outer list holds it";
    EXPECT_EQ(innerLevel, 32U) << "the inner one does not";
    EXPECT_EQ(query.ask("/dev/mapper/vg00-lvol1").level(), 1U);
}

TEST_F(Query, AModuleThatThrowsAffectsItsOwnPathOnly)
{
    auto* const module = add<HostModule>("/dev/sdb", 1U);
    module->thrower = [] { throw std::runtime_error("no such site"); };
    const std::vector<ClaimAnswer> answers = query.askAll({"/dev/sda", "/dev/sdb", "/dev/sdc"});
    ASSERT_EQ(answers.size(), 3U);
    EXPECT_EQ(answers[0].level(), 2U);
    expectNoAnswer(answers[1], ClaimBasis::threw);
    EXPECT_EQ(answers[1].path(), "/dev/sdb");
    EXPECT_EQ(answers[1].message(), "no such site");
    EXPECT_EQ(answers[1].whyUnsure(), "There is no answer, because a module or the trace log threw an exception.");
    EXPECT_EQ(answers[2].level(), 2U);
    module->thrower = [] { throw EFiExecPipe{"not run", L"", 2, 0}; };
    EXPECT_EQ(query.ask("/dev/sdb").message(), "not run");
    module->thrower = [] { throw 5; };
    EXPECT_EQ(query.ask("/dev/sdb").message(), "");
    module->thrower = [] { throw std::bad_alloc(); };
    EXPECT_THROW(query.ask("/dev/sdb"), std::bad_alloc);
    module->thrower = {};
    EXPECT_EQ(query.ask("/dev/sdb").level(), 2U);
}

TEST_F(Query, ALogThatThrowsInTheListingLeavesItFailedNotRepeated)
{
    registerLog();
    host.throws(lvdisplay, [] { throw std::runtime_error("out of luck"); });
    host.failsTracing("CKivDeviceMapperClaim::createLvmDeviceNamesList: Unknown exception caught");
    const std::vector<ClaimAnswer> answers = query.askAll(mapperPaths(3), ClaimFacts::claimOnly);
    for (const ClaimAnswer& answer : answers) {
        EXPECT_TRUE(answer.isUnsure());
        EXPECT_EQ(answer.listing().state(), State::threw);
    }
}

TEST_F(Query, RunningOutOfMemoryInTheListingReachesTheCallerAndIsTriedAgain)
{
    host.throws(lvdisplay, [] { throw std::bad_alloc(); });
    EXPECT_THROW(query.ask("/dev/mapper/mpatha"), std::bad_alloc);
    EXPECT_EQ(query.listing().state(), State::notRead);
    host.prints(lvdisplay, oneVolume);
    EXPECT_EQ(query.ask("/dev/mapper/vg00-lvol1").level(), 0U);
}

TEST_F(Query, RunningOutOfMemoryOverTheOutputOfAFailedListingReachesTheCaller)
{
    host.fails(lvdisplay, 5, exitedWith5, oneVolume);
    host.onSearch = [] { throw std::bad_alloc(); };
    EXPECT_THROW(query.ask("/dev/mapper/mpatha"), std::bad_alloc);
    EXPECT_EQ(query.listing().state(), State::notRead);
}

TEST_F(Query, AThreadThatEndsOverTheOutputOfAFailedListingIsNotKeptAlive)
{
    host.fails(lvdisplay, 5, exitedWith5, oneVolume);
    host.onSearch = [] { pthread_exit(nullptr); };
    EXPECT_FALSE(goesOnAfterAsking("/dev/mapper/mpatha"));
}

TEST_F(Query, AThreadThatEndsInsideAModuleIsNotKeptAlive)
{
    add<HostModule>("/dev/own", 20U)->thrower = [] { pthread_exit(nullptr); };
    EXPECT_FALSE(goesOnAfterAsking("/dev/own1"));
}

// The reading registers the log with a module of its own, and a failed lock leaves that one without a log.
TEST_F(Query, AListingThatCannotLockTheLogIsReadWithoutItsRecords)
{
    registerLog();
    host.log()->increment();  // a copy that could not count gives this one back
    const unsigned int holders = host.logCount();
    int readWithoutRecords = 0;
    for (int lock = 0;; ++lock) {
        host.forget();
        host.prints(lvdisplay, oneVolume);
        const recording::OneFailingLock failing(lock);
        EXPECT_EQ(ClaimQuery(manager).ask("/dev/mapper/vg00-lvol1").level(), 0U) << "at lock " << lock;
        const Lines records = host.trace(6);
        const std::string ofReading = "CKivDeviceMapperClaim::createLvmDeviceNamesList: Command:[/sbin/lvdisplay]";
        readWithoutRecords += std::count(records.begin(), records.end(), ofReading) == 0 ? 1 : 0;
        while (host.logCount() > holders) {
            host.log()->decrement();
        }
        while (host.logCount() < holders) {
            host.log()->increment();
        }
        if (!recording::OneFailingLock::hasFailed()) {
            break;
        }
    }
    host.log()->decrement();
    EXPECT_EQ(readWithoutRecords, 1);
}

TEST_F(Query, NothingIsStartedAfterTheDeadline)
{
    query.setDeadline(std::chrono::steady_clock::now());
    const std::vector<ClaimAnswer> answers = query.askAll({"/dev/mapper/mpatha", "/dev/sda"});
    for (const ClaimAnswer& answer : answers) {
        expectNoAnswer(answer, ClaimBasis::deadlinePassed);
        EXPECT_EQ(answer.whyUnsure(), "There is no answer, because the deadline passed.");
    }
    EXPECT_EQ(host.calls(), lines({}));
    query.setDeadline(std::chrono::steady_clock::time_point::max());
    EXPECT_EQ(query.ask("/dev/sda").level(), 2U) << "a later deadline lets it go on";
}

TEST_F(Query, TheLimitOfTheRunIsTheTimeUntilTheDeadline)
{
    host.acceptsAnyLimit = true;
    host.prints(lvdisplay, {}).times(3);
    query.setDeadline(std::chrono::steady_clock::now() + std::chrono::seconds(90));
    query.ask("/dev/mapper/mpatha");
    EXPECT_LE(host.limitGiven, 90U);
    EXPECT_GE(host.limitGiven, 60U);
    for (const auto deadline :
         {std::chrono::steady_clock::now() + std::chrono::hours(2), std::chrono::steady_clock::time_point::max()}) {
        ClaimQuery patient(manager);
        patient.setDeadline(deadline);
        patient.ask("/dev/mapper/mpatha");
        EXPECT_EQ(host.limitGiven, 600U);
    }
}

TEST_F(Query, ALimitBelowASecondIsRoundedUp)
{
    host.acceptsAnyLimit = true;
    host.prints(lvdisplay, {});
    // Until one begins before its deadline.
    bool isAnswered = false;
    while (!isAnswered) {
        ClaimQuery hasty(manager);
        hasty.setDeadline(std::chrono::steady_clock::now() + std::chrono::milliseconds(50));
        isAnswered = hasty.ask("/dev/mapper/mpatha").isAnswered();
    }
    EXPECT_EQ(host.limitGiven, 1U);
}

namespace {

void passDeadlineOf(ClaimQuery& query)
{
    query.setDeadline(std::chrono::steady_clock::now());
}

}  // namespace

TEST_F(Query, AListingThatFailsAfterTheDeadlineGivesNoAnswerAndIsNotKept)
{
    host.acceptsAnyLimit = true;
    host.throws(lvdisplay, [&] {
        passDeadlineOf(query);
        throw EFiExecPipe{"ended", L"", 0, 15};
    });
    const std::vector<ClaimAnswer> answers = query.askAll({"/dev/sda", "/dev/mapper/mpatha1", "/dev/sdb"});
    EXPECT_EQ(answers.at(0).level(), 2U);
    expectNoAnswer(answers.at(1), ClaimBasis::deadlinePassed);
    expectNoAnswer(answers.at(2), ClaimBasis::deadlinePassed);
    EXPECT_EQ(query.listing().state(), State::notRead);
    EXPECT_EQ(host.calls().size(), 2U) << "the nodes of a path without an answer are left alone";
    host.prints(lvdisplay, oneVolume);
    query.setDeadline(std::chrono::steady_clock::time_point::max());
    EXPECT_EQ(query.ask("/dev/mapper/vg00-lvol1").basis(), ClaimBasis::listRead);
}

TEST_F(Query, AListThatWasReadInSpiteOfTheDeadlineIsKept)
{
    host.throws(
        lvdisplay, [&] { passDeadlineOf(query); }, oneVolume);
    const std::vector<ClaimAnswer> answers = query.askAll({"/dev/mapper/vg00-lvol1", "/dev/mapper/mpatha"});
    EXPECT_EQ(answers.at(0).basis(), ClaimBasis::listRead);
    expectNoAnswer(answers.at(1), ClaimBasis::deadlinePassed);
    query.setDeadline(std::chrono::steady_clock::time_point::max());
    EXPECT_EQ(query.ask("/dev/mapper/mpatha").level(), 16U) << "without a second run";
}

TEST_F(Query, AnotherThreadCancelsItWhileTheToolRuns)
{
    host.throws(lvdisplay, [&] {
        std::thread([&] { query.cancel(); }).join();
        throw EFiExecPipe{"ended", L"", 0, 15};
    });
    const std::vector<ClaimAnswer> answers = query.askAll({"/dev/sda", "/dev/mapper/mpatha", "/dev/sdb"});
    EXPECT_EQ(answers.at(0).level(), 2U);
    expectNoAnswer(answers.at(1), ClaimBasis::cancelled);
    EXPECT_EQ(answers.at(1).whyUnsure(), "There is no answer, because the query was cancelled.");
    expectNoAnswer(answers.at(2), ClaimBasis::cancelled);
    query.setDeadline(std::chrono::steady_clock::time_point::max());
    expectNoAnswer(query.ask("/dev/sda"), ClaimBasis::cancelled);
}

TEST_F(Query, AnotherThreadCancelsItBetweenTwoPaths)
{
    std::thread canceller;
    auto* const module = add<HostModule>("/dev/sdb", 1U);
    module->thrower = [&] { canceller = std::thread([&] { query.cancel(); }); };
    std::vector<std::string> paths(3000, "/dev/sdc");
    paths[1000] = "/dev/sdb";
    const std::vector<ClaimAnswer> answers = query.askAll(paths, ClaimFacts::claimOnly);
    canceller.join();
    const auto isAnswered = [](const ClaimAnswer& answer) { return answer.isAnswered(); };
    EXPECT_TRUE(std::all_of(answers.begin(), answers.begin() + 1001, isAnswered));
    EXPECT_TRUE(std::is_partitioned(answers.begin(), answers.end(), isAnswered));
    expectNoAnswer(query.ask("/dev/sdc"), ClaimBasis::cancelled);
}

TEST_F(Query, ACancelledQueryStartsNoTool)
{
    auto* const module = add<HostModule>("/dev/mapper/", 1U);
    query.cancel();
    expectNoAnswer(query.ask("/dev/mapper/mpatha"), ClaimBasis::cancelled);
    // Between the check for the path and the run.
    registerLog();
    ClaimQuery late(manager);
    host.onTrace = [&] { late.cancel(); };
    expectNoAnswer(late.ask("/dev/mapper/mpatha"), ClaimBasis::cancelled);
    EXPECT_EQ(host.calls(), lines({}));
    EXPECT_NE(module, nullptr);
}

namespace {

ClaimQuery* queryOfHandler = nullptr;

}  // namespace

TEST_F(Query, ASignalHandlerCancelsIt)
{
    queryOfHandler = &query;
    std::signal(SIGUSR1, [](int) { queryOfHandler->cancel(); });
    auto* const module = add<HostModule>("/dev/sdb", 1U);
    module->thrower = [] { std::raise(SIGUSR1); };
    const std::vector<ClaimAnswer> answers = query.askAll({"/dev/sdb", "/dev/sdc"});
    std::signal(SIGUSR1, SIG_DFL);
    EXPECT_TRUE(answers.at(0).isAnswered());
    expectNoAnswer(answers.at(1), ClaimBasis::cancelled);
}

TEST_F(Query, AnswersOutliveTheQuery)
{
    host.fails(lvdisplay, 5, exitedWith5, oneVolume);
    std::vector<ClaimAnswer> kept;
    {
        ClaimQuery brief(manager);
        kept = brief.askAll({"/dev/mapper/vg00-lvol1"});
    }
    const ClaimAnswer moved = std::move(kept.front());
    EXPECT_EQ(moved.whyUnsure(),
              "The path was printed as a logical volume but is not treated as one, because /sbin/lvdisplay exited with "
              "status 5 after printing 1 volume.");
    EXPECT_EQ(moved.listing().volumes(), lines({"/dev/mapper/vg00-lvol1"}));
}

TEST_F(Query, QueriesOfSeveralThreadsAreIndependent)
{
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([] {
            CKivClaimManager own;
            ClaimQuery cancelled(own);
            std::thread canceller([&] { cancelled.cancel(); });
            cancelled.askAll(std::vector<std::string>(500, "/dev/sda1"));
            canceller.join();
            EXPECT_EQ(ClaimQuery(own).ask("/dev/emcpowera1").number(), 1U);
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

TEST_F(Query, NoPathsGiveNoAnswers)
{
    EXPECT_TRUE(query.askAll({}).empty());
    EXPECT_EQ(query.listing().message(), "");
}

TEST(StackName, IsThatOfTheStackOrOfTheClass)
{
    const CKivDeviceMapperClaim mapper;
    const CKivPowerPathClaim powerPath;
    const CNativePathClaim native;
    const HostModule module("x", 1);
    EXPECT_EQ(kivclaim::stackName(nullptr), "none");
    EXPECT_EQ(kivclaim::stackName(&mapper), "device-mapper");
    EXPECT_EQ(kivclaim::stackName(&powerPath), "powerpath");
    EXPECT_EQ(kivclaim::stackName(&native), "native");
    EXPECT_EQ(kivclaim::stackName(&module), "(anonymous namespace)::HostModule");
}

#ifdef HAS_UNTYPED_MODULE
// Of untyped_module.cpp.
std::unique_ptr<CKivDeviceClaimBase> makeUntypedModule();

TEST_F(Query, AModuleThatWasCompiledWithoutTypeInformationIsUnnamed)
{
    manager.registerClaimModule(makeUntypedModule().release());
    const ClaimAnswer answer = query.ask("/dev/loop0");
    EXPECT_EQ(answer.level(), 2U);
    EXPECT_EQ(answer.stack(), "unnamed");
    EXPECT_EQ(answer.whyUnsure(), "");
}
#endif
