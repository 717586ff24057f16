// The claim manager: selection, forwarding, ownership and the way of the trace log.
#include "claim/kiv_claim_manager.h"
#include "tests/recording_host.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <map>
#include <memory>
#include <stdexcept>
#include <thread>

using recording::Host;
using recording::lines;
using recording::LogPointer;
using ztfi_pdk_4_4::ZTFI_DEVICE_CLAIM_LEVEL;

namespace {

// A module of the host's own: answers as told and writes down what it is asked.
class HostModule : public CKivDeviceClaimBase {
public:
    HostModule(Host& host, std::string name, std::map<std::string, unsigned int> levels)
        : host(host), name(std::move(name)), levels(std::move(levels))
    {
    }
    ~HostModule() override { say("deleted"); }

    void registerTraceLog(const LogPointer& log) override
    {
        say(log.get() == nullptr ? "gets no log" : "gets a log");
        fail("registerTraceLog");
        CKivDeviceClaimBase::registerTraceLog(log);
    }
    std::vector<std::string> getDeviceClaimStrings() override
    {
        say("getDeviceClaimStrings");
        fail("getDeviceClaimStrings");
        return {name + "/1", name + "/2"};
    }
    ZTFI_DEVICE_CLAIM_LEVEL claim(const std::string& path) override
    {
        say("claim " + path);
        fail("claim");
        const auto level = levels.find(path);
        return static_cast<ZTFI_DEVICE_CLAIM_LEVEL>(level != levels.end() ? level->second : 0);
    }
    int isPartition(const std::string& path) override
    {
        say("isPartition " + path);
        fail("isPartition");
        return 1;
    }
    std::string appendPartitionSuffix(const std::string& device, unsigned int partition) override
    {
        say("append " + device + " " + std::to_string(partition));
        fail("appendPartitionSuffix");
        return device + "#" + std::to_string(partition);
    }
    std::string removePartitionSuffix(const std::string& device, unsigned int& partition) override
    {
        say("remove " + device + " " + std::to_string(partition));
        fail("removePartitionSuffix");
        partition = 42;
        return "whole of " + device;
    }
    void clearLvmDeviceNameList() override { say("clear"); }

    // Called once by the operation `callingBack`, in the middle of it.
    std::string callingBack;
    std::function<void()> callback;

    LogPointer held() const { return traceLog; }
    std::string failing;  // the operation that throws

private:
    void say(const std::string& what) const { host.write(name + ": " + what); }
    void fail(const char* operation)
    {
        if (callingBack == operation) {
            callingBack.clear();
            callback();
        }
        if (failing == operation) {
            throw std::runtime_error(operation);
        }
    }

    Host& host;
    std::string name;
    std::map<std::string, unsigned int> levels;
};

// Shows its own pointer to the log.
class OpenManager : public CKivClaimManager {
public:
    const LogPointer& held() const { return traceLog; }
};

class ClaimManager : public testing::Test {
protected:
    // Makes `module` register so many others in the middle of one of its operations that the list must move.
    void registerOthersDuring(HostModule* module, const std::string& operation)
    {
        module->callingBack = operation;
        module->callback = [this] {
            for (int i = 0; i < 20; ++i) {
                manager->registerClaimModule(new HostModule(host, "new", {{"x", 99}}));
            }
        };
    }

    // How often a module that was registered meanwhile was asked.
    std::ptrdiff_t asked(const std::string& what) const
    {
        return std::count(host.effects().begin(), host.effects().end(), "new: " + what);
    }

    HostModule* add(const std::string& name, std::map<std::string, unsigned int> levels)
    {
        auto* const module = new HostModule(host, name, std::move(levels));
        manager->registerClaimModule(module);
        host.forget();
        return module;
    }

    Host host;
    std::unique_ptr<CKivClaimManager> manager = std::make_unique<CKivClaimManager>();
};

constexpr unsigned int untouched = 77;

}  // namespace

TEST_F(ClaimManager, StartsWithTheBuiltInModulesAndWithoutALog)
{
    EXPECT_EQ(manager->claim("/dev/emcpowera"), 16U);
    EXPECT_EQ(host.calls(), lines({}));
    EXPECT_EQ(host.effects(), lines({}));
    EXPECT_EQ(host.logCount(), 1U);
}

TEST_F(ClaimManager, PowerPathWinsTheTieAgainstDeviceMapper)
{
    host.prints("/sbin/lvdisplay", {"  LV Name lvol1", "  VG Name vg00"});
    EXPECT_EQ(manager->appendPartitionSuffix("/dev/mapper/dev/emcpowera", 1), "/dev/mapper/dev/emcpowera1");
}

TEST_F(ClaimManager, ClearingTheListOnTheManagerLeavesTheLogicalVolumesAsTheyWere)
{
    host.prints("/sbin/lvdisplay", {"  LV Name lvol1", "  VG Name vg00"});
    EXPECT_EQ(manager->claim("/dev/mapper/vg00-lvol1"), 0U);
    manager->clearLvmDeviceNameList();
    EXPECT_EQ(manager->claim("/dev/mapper/vg00-lvol1"), 0U) << "the command was run once only";
}

TEST_F(ClaimManager, TheBuiltInModulesClaimTheirPaths)
{
    host.prints("/sbin/lvdisplay", {"  LV Name lvol1", "  VG Name vg00"});
    EXPECT_EQ(manager->claim("/dev/mapper/mpatha"), 16U);
    EXPECT_EQ(manager->claim("/dev/mapper/vg00-lvol1"), 0U);
    EXPECT_EQ(manager->claim("/dev/null"), 0U);
    EXPECT_EQ(manager->claim("/dev/sda"), 2U);
    EXPECT_EQ(manager->claim("/dev/sdab3"), 2U);
    EXPECT_EQ(manager->claim("/dev/emcpowera"), 16U);
    EXPECT_EQ(manager->claim("/dev/sd"), 0U);
    EXPECT_EQ(manager->isPartition("/dev/sda1"), 1);
    EXPECT_EQ(manager->appendPartitionSuffix("/dev/sda", 7), "/dev/sda7");
    unsigned int partition = 0;
    EXPECT_EQ(manager->removePartitionSuffix("/dev/sda12", partition), "/dev/sda");
    EXPECT_EQ(partition, 12U);
}

TEST_F(ClaimManager, ANativeDiskLosesToEveryOtherStackAndWinsATieOverLaterModules)
{
    EXPECT_EQ(manager->claim("/dev/sda/dev/emcpowera"), 16U);
    add("equal", {{"/dev/sda", 2}});
    auto* const stronger = add("stronger", {{"/dev/sdb", 3}});
    CKivDeviceClaimBase* module = nullptr;
    EXPECT_EQ(manager->getClaimModule(module, "/dev/sda"), 2U);
    EXPECT_EQ(module, manager->claimModules().front());
    EXPECT_EQ(manager->getClaimModule(module, "/dev/sdb"), 3U);
    EXPECT_EQ(module, stronger);
}

TEST_F(ClaimManager, AsksEveryModuleInListOrderWithoutEarlyExit)
{
    add("first", {{"x", 5}});
    add("second", {{"x", 4294967295U}});
    add("third", {{"x", 5}});
    EXPECT_EQ(manager->claim("x"), 4294967295U);
    EXPECT_EQ(host.effects(), lines({"first: claim x", "second: claim x", "third: claim x"}));
}

TEST_F(ClaimManager, TheFirstModuleWinsATie)
{
    add("first", {{"x", 5}});
    auto* const second = add("second", {{"x", 9}});
    add("third", {{"x", 9}});
    CKivDeviceClaimBase* module = nullptr;
    EXPECT_EQ(manager->getClaimModule(module, "x"), 9U);
    EXPECT_EQ(module, second);
}

TEST_F(ClaimManager, AModuleOfTheHostNeedsAStrongerClaimThanTheBuiltInOnes)
{
    auto* const stronger = add("stronger", {{"/dev/emcpowera", 17}});
    add("equal", {{"/dev/emcpowerb", 16}});
    CKivDeviceClaimBase* module = nullptr;
    EXPECT_EQ(manager->getClaimModule(module, "/dev/emcpowera"), 17U);
    EXPECT_EQ(module, stronger);
    EXPECT_EQ(manager->appendPartitionSuffix("/dev/emcpowerb", 2), "/dev/emcpowerb2");
}

TEST_F(ClaimManager, LevelsAreComparedAsUnsignedNumbers)
{
    add("first", {{"x", 1}});
    auto* const second = add("second", {{"x", 0x80000000U}});
    CKivDeviceClaimBase* module = nullptr;
    EXPECT_EQ(manager->getClaimModule(module, "x"), 0x80000000U);
    EXPECT_EQ(module, second);
}

TEST_F(ClaimManager, TheCallersModuleStaysWhenNoModuleClaims)
{
    auto* const mine = add("mine", {});
    CKivDeviceClaimBase* module = mine;
    EXPECT_EQ(manager->getClaimModule(module, "x"), 0U);
    EXPECT_EQ(module, mine);
}

TEST_F(ClaimManager, AnUnclaimedPathGetsTheNeutralAnswers)
{
    add("first", {});
    unsigned int partition = untouched;
    EXPECT_EQ(manager->claim("x"), 0U);
    EXPECT_EQ(manager->isPartition("x"), 0);
    EXPECT_EQ(manager->appendPartitionSuffix("x", 1), "");
    EXPECT_EQ(manager->removePartitionSuffix("x", partition), "");
    EXPECT_EQ(partition, untouched);
    EXPECT_EQ(host.effects(), lines({"first: claim x", "first: claim x", "first: claim x", "first: claim x"}));
}

TEST_F(ClaimManager, ForwardsToTheWinnerOnly)
{
    add("first", {{"x", 5}});
    add("second", {{"x", 6}});
    unsigned int partition = untouched;
    EXPECT_EQ(manager->isPartition("x"), 1);
    EXPECT_EQ(manager->appendPartitionSuffix("x", 3), "x#3");
    EXPECT_EQ(manager->removePartitionSuffix("x", partition), "whole of x");
    EXPECT_EQ(partition, 42U);
    EXPECT_EQ(host.effects(),
              lines({"first: claim x", "second: claim x", "second: isPartition x", "first: claim x", "second: claim x",
                     "second: append x 3", "first: claim x", "second: claim x", "second: remove x 77"}));
}

TEST_F(ClaimManager, ClaimStringsOfLaterModulesComeFirst)
{
    EXPECT_EQ(manager->getDeviceClaimStrings(), lines({"/dev/mapper/", "/dev/emcpower", "/dev/sd"}));
    add("first", {});
    add("second", {});
    EXPECT_EQ(manager->getDeviceClaimStrings(),
              lines({"second/1", "second/2", "first/1", "first/2", "/dev/mapper/", "/dev/emcpower", "/dev/sd"}));
    EXPECT_EQ(host.effects(), lines({"first: getDeviceClaimStrings", "second: getDeviceClaimStrings"}));
}

TEST_F(ClaimManager, ClaimStringsThatOccurTwiceStayTwice)
{
    add("same", {});
    add("same", {});
    EXPECT_EQ(manager->getDeviceClaimStrings(),
              lines({"same/1", "same/2", "same/1", "same/2", "/dev/mapper/", "/dev/emcpower", "/dev/sd"}));
}

TEST_F(ClaimManager, ANullModuleIsIgnored)
{
    manager->registerTraceLog(host.log());
    const std::size_t modulesBefore = manager->claimModules().size();
    manager->registerClaimModule(nullptr);
    EXPECT_EQ(manager->claimModules().size(), modulesBefore);
    EXPECT_EQ(host.effects(), lines({"6 Entering Function registerClaimModule [81, kiv_claim_manager.cpp]",
                                     "6 Exiting Function registerClaimModule [81, kiv_claim_manager.cpp]"}));
}

TEST_F(ClaimManager, AModuleGetsTheCurrentLogBeforeItIsAppended)
{
    manager->registerTraceLog(host.log());
    auto* const module = new HostModule(host, "mine", {});
    manager->registerClaimModule(module);
    EXPECT_EQ(host.effectsInside(), lines({"mine: gets a log"}));
    EXPECT_EQ(module->held().get(), host.log().get());
    EXPECT_EQ(manager->claimModules().back(), module);
}

TEST_F(ClaimManager, AModuleRegisteredBeforeAnyLogStartsTracingAtTheNextRegistration)
{
    auto* const module = new HostModule(host, "mine", {});
    manager->registerClaimModule(module);
    EXPECT_EQ(host.effects(), lines({"mine: gets no log"}));
    EXPECT_EQ(module->held().get(), nullptr);
    manager->registerTraceLog(host.log());
    EXPECT_EQ(host.effects(), lines({"mine: gets no log", "mine: gets a log"}));
    EXPECT_EQ(module->held().get(), host.log().get());
}

TEST_F(ClaimManager, TheFirstRegistrationOfALogWritesNoRecordsTheSecondWritesIntoTheFirst)
{
    manager->registerTraceLog(host.log());
    EXPECT_EQ(host.effects(), lines({}));
    const LogPointer other = host.anotherLog("other");
    manager->registerTraceLog(other);
    EXPECT_EQ(host.effects(), lines({"6 Entering Function registerTraceLog [69, kiv_claim_manager.cpp]",
                                     "6 Exiting Function registerTraceLog [69, kiv_claim_manager.cpp]"}));
    EXPECT_EQ(host.logCount(), 1U);
    host.forget();
    manager->claim("x");
    EXPECT_EQ(host.effects().front(), "other: 6 Entering Function claim [109, kiv_claim_manager.cpp]");
}

TEST_F(ClaimManager, RegisteringThroughTheTraceableBaseReachesTheManagersOwn)
{
    add("mine", {});
    ztfi_pdk_4_4::CFiTraceable& base = *manager;
    base.registerTraceLog(host.log());
    EXPECT_EQ(host.effects(), lines({"mine: gets a log"}));
}

TEST_F(ClaimManager, ALogThatTheManagerCannotLockIsStillPassedToTheModules)
{
    add("mine", {});
    {
        const recording::FailingLocks failing;
        manager->registerTraceLog(host.log());
    }
    EXPECT_EQ(host.effects(), lines({"mine: gets a log"}));
    EXPECT_EQ(host.logCount(), 1U) << "its reference could not be counted";
}

TEST_F(ClaimManager, EveryModuleHoldsTheLogAndReleasesItAtTheEnd)
{
    const auto builtIn = static_cast<unsigned int>(manager->claimModules().size());
    add("mine", {});
    manager->registerTraceLog(host.log());
    EXPECT_EQ(host.logCount(), 1U + 1U + builtIn + 1U) << "host, manager, built-in modules, module of the host";
    unsigned int during = 0;
    host.onTrace = [&] { during = std::max(during, host.logCount()); };
    manager->getDeviceClaimStrings();
    EXPECT_EQ(during, 3U + builtIn + 2U) << "two scopes more: the manager's and a module's";
    EXPECT_EQ(host.logCount(), 3U + builtIn);
    manager->registerTraceLog(host.log());
    EXPECT_EQ(host.logCount(), 3U + builtIn);
    manager.reset();
    EXPECT_EQ(host.logCount(), 1U);
}

TEST_F(ClaimManager, CountsAreTheSameBeforeAndAfterEveryOperation)
{
    add("mine", {{"x", 3}});
    manager->registerTraceLog(host.log());
    const unsigned int before = host.logCount();
    unsigned int partition = 0;
    unsigned int during = 0;
    host.onTrace = [&] { during = std::max(during, host.logCount()); };
    manager->claim("x");
    // The scopes of claim, of getClaimModule, of a module's claim and of its question for its claim strings.
    EXPECT_EQ(during, before + 4);
    EXPECT_EQ(host.logCount(), before);
    manager->isPartition("x");
    EXPECT_EQ(host.logCount(), before);
    manager->appendPartitionSuffix("x", 1);
    EXPECT_EQ(host.logCount(), before);
    manager->removePartitionSuffix("x", partition);
    EXPECT_EQ(host.logCount(), before);
    manager->getDeviceClaimStrings();
    EXPECT_EQ(host.logCount(), before);
    manager->clearLvmDeviceNameList();
    EXPECT_EQ(host.logCount(), before);
    manager->registerClaimModule(nullptr);
    EXPECT_EQ(host.logCount(), before);
}

TEST_F(ClaimManager, RecordsEachOperationUnderItsFixedLine)
{
    manager->registerTraceLog(host.log());
    const auto outerRecords = [&] {
        const recording::Lines all = host.trace(6);
        host.forget();
        return recording::Lines{all.front(), all.back()};
    };
    unsigned int partition = 0;
    manager->getDeviceClaimStrings();
    EXPECT_EQ(outerRecords(), lines({"Entering Function getDeviceClaimStrings [92, kiv_claim_manager.cpp]",
                                     "Exiting Function getDeviceClaimStrings [92, kiv_claim_manager.cpp]"}));
    manager->claim("x");
    EXPECT_EQ(outerRecords(), lines({"Entering Function claim [109, kiv_claim_manager.cpp]",
                                     "Exiting Function claim [109, kiv_claim_manager.cpp]"}));
    manager->isPartition("x");
    EXPECT_EQ(outerRecords(), lines({"Entering Function isPartition [117, kiv_claim_manager.cpp]",
                                     "Exiting Function isPartition [117, kiv_claim_manager.cpp]"}));
    manager->appendPartitionSuffix("x", 1);
    EXPECT_EQ(outerRecords(), lines({"Entering Function appendPartitionSuffix [132, kiv_claim_manager.cpp]",
                                     "Exiting Function appendPartitionSuffix [132, kiv_claim_manager.cpp]"}));
    manager->removePartitionSuffix("x", partition);
    EXPECT_EQ(outerRecords(), lines({"Entering Function removePartitionSuffix [144, kiv_claim_manager.cpp]",
                                     "Exiting Function removePartitionSuffix [144, kiv_claim_manager.cpp]"}));
    CKivDeviceClaimBase* module = nullptr;
    manager->getClaimModule(module, "x");
    EXPECT_EQ(outerRecords(), lines({"Entering Function getClaimModule [48, kiv_claim_manager.cpp]",
                                     "Exiting Function getClaimModule [48, kiv_claim_manager.cpp]"}));
    manager->clearLvmDeviceNameList();
    EXPECT_EQ(host.effects(), lines({}));
}

TEST_F(ClaimManager, TheSelectionIsRecordedInsideTheRequest)
{
    manager->registerTraceLog(host.log());
    manager->isPartition("nobody's");
    const recording::Lines all = host.trace(6);
    ASSERT_GT(all.size(), 3U);
    EXPECT_EQ(all[1], "Entering Function getClaimModule [48, kiv_claim_manager.cpp]");
    EXPECT_EQ(all[all.size() - 2], "Exiting Function getClaimModule [48, kiv_claim_manager.cpp]");
}

TEST_F(ClaimManager, ClearingTheListOnTheManagerReachesNoModule)
{
    add("mine", {});
    manager->clearLvmDeviceNameList();
    EXPECT_EQ(host.effects(), lines({}));
}

TEST_F(ClaimManager, DeletesEveryModuleInListOrder)
{
    add("first", {});
    add("second", {});
    manager.reset();
    EXPECT_EQ(host.effects(), lines({"first: deleted", "second: deleted"}));
}

TEST_F(ClaimManager, LetsAModulesExceptionThroughAndStaysUsable)
{
    manager->registerTraceLog(host.log());
    auto* const module = add("mine", {{"x", 9}});
    const unsigned int countBefore = host.logCount();
    unsigned int partition = untouched;
    const auto expectThrow = [&](const char* operation, const std::function<void()>& request) {
        module->failing = operation;
        host.forget();
        EXPECT_THROW(request(), std::runtime_error) << operation;
        EXPECT_EQ(host.logCount(), countBefore) << operation;
        EXPECT_EQ(host.effects().back().find("6 Exiting Function "), 0U) << operation;
    };
    expectThrow("claim", [&] { manager->claim("x"); });
    expectThrow("claim", [&] { manager->isPartition("x"); });
    expectThrow("claim", [&] { manager->appendPartitionSuffix("x", 1); });
    expectThrow("claim", [&] { manager->removePartitionSuffix("x", partition); });
    expectThrow("isPartition", [&] { manager->isPartition("x"); });
    expectThrow("appendPartitionSuffix", [&] { manager->appendPartitionSuffix("x", 1); });
    expectThrow("removePartitionSuffix", [&] { manager->removePartitionSuffix("x", partition); });
    expectThrow("getDeviceClaimStrings", [&] { manager->getDeviceClaimStrings(); });
    EXPECT_EQ(partition, untouched);
    module->failing.clear();
    EXPECT_EQ(manager->claim("x"), 9U);
}

TEST_F(ClaimManager, AModuleThatRefusesTheLogLeavesTheLaterOnesWithTheOld)
{
    auto* const first = add("first", {});
    auto* const second = add("second", {});
    auto* const third = add("third", {});
    second->failing = "registerTraceLog";
    EXPECT_THROW(manager->registerTraceLog(host.log()), std::runtime_error);
    EXPECT_EQ(first->held().get(), host.log().get());
    EXPECT_EQ(second->held().get(), nullptr);
    EXPECT_EQ(third->held().get(), nullptr);
    host.forget();
    manager->claim("x");
    EXPECT_EQ(host.effects().front(), "6 Entering Function claim [109, kiv_claim_manager.cpp]");
}

TEST_F(ClaimManager, AModuleThatRefusesTheLogIsNotRegistered)
{
    const auto module = std::make_unique<HostModule>(host, "mine", std::map<std::string, unsigned int>{});
    module->failing = "registerTraceLog";
    const std::size_t modulesBefore = manager->claimModules().size();
    EXPECT_THROW(manager->registerClaimModule(module.get()), std::runtime_error);
    EXPECT_EQ(manager->claimModules().size(), modulesBefore);
}

TEST_F(ClaimManager, AModuleThatIsRegisteredTwiceIsRefusedAndDeletedOnce)
{
    auto* const module = add("mine", {{"x", 5}});
    manager->registerTraceLog(host.log());
    host.forget();
    const std::size_t modulesBefore = manager->claimModules().size();
    manager->registerClaimModule(module);
    EXPECT_EQ(host.effects(), lines({"6 Entering Function registerClaimModule [81, kiv_claim_manager.cpp]",
                                     "1 CKivClaimManager::registerClaimModule: refused a module that a manager owns "
                                     "already; register each module once",
                                     "6 Exiting Function registerClaimModule [81, kiv_claim_manager.cpp]"}));
    EXPECT_EQ(manager->claimModules().size(), modulesBefore);
    host.forget();
    manager.reset();
    EXPECT_EQ(host.effects(), lines({"mine: deleted"}));
}

TEST_F(ClaimManager, AModuleOfAnotherManagerIsRefusedAndStaysThere)
{
    auto* const module = add("mine", {{"x", 5}});
    CKivClaimManager other;
    other.registerTraceLog(host.log());
    other.registerClaimModule(module);
    EXPECT_EQ(host.trace(1), lines({"CKivClaimManager::registerClaimModule: refused a module that a manager owns "
                                    "already; register each module once"}));
    EXPECT_EQ(other.claim("x"), 0U);
    EXPECT_EQ(manager->claim("x"), 5U);
}

TEST_F(ClaimManager, AModuleWithTheAddressOfADeletedOneIsAccepted)
{
    alignas(HostModule) static unsigned char storage[sizeof(HostModule)];
    struct InStorage : HostModule {
        using HostModule::HostModule;
        static void* operator new(std::size_t /*size*/) { return storage; }
        static void operator delete(void* /*object*/) {}
    };
    for (int i = 0; i < 3; ++i) {
        CKivClaimManager own;
        own.registerClaimModule(new InStorage(host, "mine", {{"x", 5}}));
        EXPECT_EQ(own.claim("x"), 5U);
    }
}

TEST_F(ClaimManager, AModuleOnTheStackIsRefusedOnEveryThread)
{
    manager->registerTraceLog(host.log());
    const auto registerOne = [&] {
        HostModule module(host, "mine", {{"x", 5}});
        manager->registerClaimModule(&module);
    };
    registerOne();
    std::thread(registerOne).join();
    const std::string refusal =
        "CKivClaimManager::registerClaimModule: refused a module on the stack, which no manager "
        "can delete; make it with new";
    EXPECT_EQ(host.trace(1), (recording::Lines{refusal, refusal}));
    EXPECT_EQ(manager->claim("x"), 0U);
}

TEST_F(ClaimManager, ARefusedModuleNeedsNoLog)
{
    auto* const module = add("mine", {});
    manager->registerClaimModule(module);
    HostModule onTheStack(host, "mine", {});
    manager->registerClaimModule(&onTheStack);
    EXPECT_EQ(manager->claimModules().size(), 4U);
}

TEST_F(ClaimManager, AModuleRegisteredDuringAQuestionIsAskedFromTheNextOneOn)
{
    auto* const first = add("first", {{"x", 5}});
    add("second", {{"x", 6}});
    registerOthersDuring(first, "claim");
    EXPECT_EQ(manager->claim("x"), 6U) << "the later modules of the list are asked all the same";
    EXPECT_EQ(asked("claim x"), 0);
    EXPECT_EQ(manager->claim("x"), 99U);
    EXPECT_EQ(asked("claim x"), 20);
}

TEST_F(ClaimManager, AModuleRegisteredWhileTheClaimStringsAreMergedIsAskedFromTheNextTimeOn)
{
    auto* const first = add("first", {});
    add("second", {});
    registerOthersDuring(first, "getDeviceClaimStrings");
    EXPECT_EQ(manager->getDeviceClaimStrings(),
              lines({"second/1", "second/2", "first/1", "first/2", "/dev/mapper/", "/dev/emcpower", "/dev/sd"}));
    EXPECT_EQ(manager->getDeviceClaimStrings().size(), 47U);
}

TEST_F(ClaimManager, AModuleRegisteredWhileALogIsHandedOutGetsThatLogOnce)
{
    auto* const first = add("first", {});
    auto* const second = add("second", {});
    registerOthersDuring(first, "registerTraceLog");
    manager->registerTraceLog(host.log());
    EXPECT_EQ(second->held().get(), host.log().get());
    EXPECT_EQ(asked("gets a log"), 20);
    EXPECT_EQ(asked("gets no log"), 0);
}

TEST_F(ClaimManager, AModuleRegisteredWhileTheWinnerAnswersChangesNothing)
{
    auto* const first = add("first", {{"x", 5}});
    unsigned int partition = untouched;
    registerOthersDuring(first, "isPartition");
    EXPECT_EQ(manager->isPartition("x"), 1);
    auto* const stronger = add("stronger", {{"x", 100}});
    registerOthersDuring(stronger, "appendPartitionSuffix");
    EXPECT_EQ(manager->appendPartitionSuffix("x", 3), "x#3");
    registerOthersDuring(stronger, "removePartitionSuffix");
    EXPECT_EQ(manager->removePartitionSuffix("x", partition), "whole of x");
}

TEST_F(ClaimManager, AModuleRegisteredByOneThatIsBeingRegisteredComesBeforeIt)
{
    auto* const outer = new HostModule(host, "outer", {});
    registerOthersDuring(outer, "registerTraceLog");
    manager->registerClaimModule(outer);
    EXPECT_EQ(manager->claimModules().back(), outer);
    EXPECT_EQ(manager->claimModules().size(), 24U);
}

TEST_F(ClaimManager, AModuleRegisteredWhileTheManagerEndsIsDeletedAsWell)
{
    class LeavesAnotherBehind : public HostModule {
    public:
        LeavesAnotherBehind(Host& host, CKivClaimManager* manager)
            : HostModule(host, "last words", {}), host(host), manager(manager)
        {
        }
        ~LeavesAnotherBehind() override
        {
            for (int i = 0; i < 20; ++i) {
                manager->registerClaimModule(new HostModule(host, "new", {}));
            }
        }

    private:
        Host& host;
        CKivClaimManager* manager;
    };
    manager->registerClaimModule(new LeavesAnotherBehind(host, manager.get()));
    add("second", {});
    manager.reset();
    EXPECT_EQ(asked("deleted"), 20);
    EXPECT_EQ(std::count(host.effects().begin(), host.effects().end(), "second: deleted"), 1);
}

TEST_F(ClaimManager, ItsOwnLogPointerIsStillPassedToTheModules)
{
    OpenManager own;
    own.registerTraceLog(host.log());
    own.registerClaimModule(new HostModule(host, "mine", {}));
    host.forget();
    own.registerTraceLog(own.held());
    EXPECT_EQ(host.effectsInside(), lines({"mine: gets a log"}));
    EXPECT_EQ(own.held().get(), host.log().get());
}

TEST(ClaimManagerTracing, AThrowingExitRecordPassesThroughEveryOperation)
{
    Host host;
    CKivClaimManager manager;
    manager.registerTraceLog(host.log());
    const unsigned int before = host.logCount();
    host.failsTracing("Exiting Function getDeviceClaimStrings [92,");
    EXPECT_THROW(manager.getDeviceClaimStrings(), std::runtime_error);
    host.failsTracing("Exiting Function claim [109,");
    EXPECT_THROW(manager.claim("x"), std::runtime_error);
    host.failsTracing("Exiting Function appendPartitionSuffix [132,");
    EXPECT_THROW(manager.appendPartitionSuffix("/dev/emcpowerabcdefghijklmnopqrstuvwxyz", 1), std::runtime_error);
    host.failsTracing("Exiting Function removePartitionSuffix [144,");
    unsigned int partition = 0;
    EXPECT_THROW(manager.removePartitionSuffix("/dev/emcpowerabcdefghijklmnopqrstuvwxyz1", partition),
                 std::runtime_error);
    EXPECT_EQ(host.logCount(), before);
}
