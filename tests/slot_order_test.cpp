// The binary contract: slot order, sizes and alignments. A host that was compiled long ago calls through these slots.
#include "claim/kiv_claim_manager.h"
#include "claim/kiv_claim_module_entry.h"
#include "claim/kiv_device_claim_base.h"
#include "claim/kiv_host_operations.h"
#include "claim/kiv_manager_functions.h"
#include "claim/kiv_release.h"
#include "claim/kiv_version.h"
#include "framework/cfiexecpipe.h"
#include "framework/cfitracelog.h"
#include "modules/kiv_linux_device_mapper_claim.h"
#include "modules/kiv_nativepath_claim.h"
#include "modules/kiv_powerpath_claim.h"
#include "tests/recording_host.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

using recording::Host;
using recording::lines;
using recording::LogPointer;
using namespace ztfi_pdk_4_4;

namespace {

// The 0-based place of a virtual operation in its table. A pointer to member is two words. The C++ ABI keeps the offset
// in bytes in the first one, and marks it as virtual with the lowest bit: of that word, but on arm64 of the second one.
template <class Class, class Result, class... Arguments>
std::size_t slotOf(Result (Class::*operation)(Arguments...))
{
    std::size_t encoded[2] = {};
    static_assert(sizeof operation == sizeof encoded, "a pointer to member is a pair of words");
    std::memcpy(encoded, &operation, sizeof encoded);
#if defined(__aarch64__)
    const std::size_t mark = encoded[1] & 1U;
    const std::size_t offset = encoded[0];
#else
    const std::size_t mark = encoded[0] & 1U;
    const std::size_t offset = encoded[0] - mark;
#endif
    EXPECT_EQ(mark, 1U) << "not a virtual operation";
    return offset / sizeof(void*);
}

// Calls the operation in one slot of an object's primary table, as a host does that knows nothing but the contract.
template <class Result, class... Arguments>
#if defined(__clang__)
__attribute__((no_sanitize("function")))
#endif
Result
callSlot(void* object, std::size_t slot, Arguments... arguments)
{
    void* const* table = nullptr;
    std::memcpy(&table, object, sizeof table);
    Result (*operation)(void*, Arguments...) = nullptr;
    std::memcpy(&operation, &table[slot], sizeof operation);
    return operation(object, arguments...);
}

template <class T>
constexpr std::size_t words = sizeof(T) / sizeof(void*);

// Its own slot follows the last slot of a claim module.
class OneSlotMore : public CKivDeviceClaimBase {
public:
    virtual void oneMore() {}
};

}  // namespace

// Destructors take two slots, a complete and a deleting one; what follows starts at place 2.

TEST(SlotOrder, OfTheReferenceCount)
{
    EXPECT_EQ(slotOf(&CFiRefCount::increment), 2U);
    EXPECT_EQ(slotOf(&CFiRefCount::decrement), 3U);
    EXPECT_EQ(slotOf(&CFiRefCount::getCount), 4U);
}

TEST(SlotOrder, OfTheSharedObjectsIsThatOfTheReferenceCount)
{
    // Reached through the virtual base, whose table keeps the order.
    const auto countThroughSlots = [](CFiRefCount* object) {
        EXPECT_EQ(callSlot<unsigned int>(object, 2), 1U);
        EXPECT_EQ(callSlot<unsigned int>(object, 3), 0U);
        EXPECT_EQ(callSlot<unsigned int>(object, 4), 0U);
        callSlot<void>(object, 1);
    };
    countThroughSlots(new CFiMessage);
    countThroughSlots(new CFiErrorManager);
    const int destroyedBefore = recording::RecordingLog::destroyed;
    countThroughSlots(new recording::RecordingLog("x"));
    EXPECT_EQ(recording::RecordingLog::destroyed, destroyedBefore + 1) << "through the deleting destructor";
}

TEST(SlotOrder, OfTheScopeTracerIsItsDestructors)
{
    Host host;
    auto* const scope = new CFiTraceLogFunction(host.log(), "claim", 1, "a/b");
    callSlot<void>(scope, 1);
    EXPECT_EQ(host.effects().back(), "6 Exiting Function claim [1, b]");
    EXPECT_EQ(host.logCount(), 1U);
}

TEST(Layout, FieldsOfTheScopeTracerAreInOrder)
{
    Host host;
    const char* const function = "claim";
    const char* const file = "a/b";
    const CFiTraceLogFunction scope(host.log(), function, 7, file);
    const auto fieldAt = [&](std::size_t offset, auto field) {
        std::memcpy(&field, reinterpret_cast<const char*>(&scope) + offset, sizeof field);
        return field;
    };
    EXPECT_EQ(fieldAt(8, static_cast<CFiTraceLog*>(nullptr)), host.log().get());
    EXPECT_EQ(fieldAt(16, static_cast<const char*>(nullptr)), function);
    EXPECT_EQ(fieldAt(24, 0), 7);
    EXPECT_EQ(fieldAt(32, static_cast<const char*>(nullptr)), file + 2);
}

TEST(SlotOrder, OfTheTraceableBaseAndTheRunner)
{
    EXPECT_EQ(slotOf(&CFiTraceable::registerTraceLog), 2U);
    EXPECT_EQ(slotOf(&CFiExecPipeBase::registerTraceLog), 2U);
    EXPECT_EQ(slotOf(&CFiExecPipePosix::registerTraceLog), 2U);
}

TEST(SlotOrder, OfAClaimModule)
{
    EXPECT_EQ(slotOf(&CKivDeviceClaimBase::registerTraceLog), 2U);
    EXPECT_EQ(slotOf(&CKivDeviceClaimBase::getDeviceClaimStrings), 3U);
    EXPECT_EQ(slotOf(&CKivDeviceClaimBase::claim), 4U);
    EXPECT_EQ(slotOf(&CKivDeviceClaimBase::isPartition), 5U);
    EXPECT_EQ(slotOf(&CKivDeviceClaimBase::appendPartitionSuffix), 6U);
    EXPECT_EQ(slotOf(&CKivDeviceClaimBase::removePartitionSuffix), 7U);
    EXPECT_EQ(slotOf(&CKivDeviceClaimBase::clearLvmDeviceNameList), 8U);
    EXPECT_EQ(slotOf(&CKivDeviceClaimBase::getActivePath), 9U);
    EXPECT_EQ(slotOf(&CKivDeviceClaimBase::isRawDevice), 10U);
    EXPECT_EQ(slotOf(&CKivDeviceClaimBase::removeDevPrefix), 11U);
}

TEST(SlotOrder, OfTheDeviceMapperModuleIsThatOfAClaimModule)
{
    EXPECT_EQ(slotOf(&CKivDeviceMapperClaim::registerTraceLog), 2U);
    EXPECT_EQ(slotOf(&CKivDeviceMapperClaim::getDeviceClaimStrings), 3U);
    EXPECT_EQ(slotOf(&CKivDeviceMapperClaim::claim), 4U);
    EXPECT_EQ(slotOf(&CKivDeviceMapperClaim::isPartition), 5U);
    EXPECT_EQ(slotOf(&CKivDeviceMapperClaim::appendPartitionSuffix), 6U);
    EXPECT_EQ(slotOf(&CKivDeviceMapperClaim::removePartitionSuffix), 7U);
    EXPECT_EQ(slotOf(&CKivDeviceMapperClaim::clearLvmDeviceNameList), 8U);
    EXPECT_EQ(slotOf(&CKivDeviceMapperClaim::getActivePath), 9U);
    EXPECT_EQ(slotOf(&CKivDeviceMapperClaim::isRawDevice), 10U);
    EXPECT_EQ(slotOf(&CKivDeviceMapperClaim::removeDevPrefix), 11U);
}

TEST(SlotOrder, OfTheNativePathModuleWithTheSecondGetActivePathAfterTheBase)
{
    class Further : public CNativePathClaim {
    public:
        virtual void next() {}
    };
    EXPECT_EQ(slotOf(&CNativePathClaim::registerTraceLog), 2U);
    EXPECT_EQ(slotOf(&CNativePathClaim::getDeviceClaimStrings), 3U);
    EXPECT_EQ(slotOf(&CNativePathClaim::claim), 4U);
    EXPECT_EQ(slotOf(&CNativePathClaim::isPartition), 5U);
    EXPECT_EQ(slotOf(&CNativePathClaim::appendPartitionSuffix), 6U);
    EXPECT_EQ(slotOf(&CNativePathClaim::removePartitionSuffix), 7U);
    EXPECT_EQ(slotOf(&CNativePathClaim::clearLvmDeviceNameList), 8U);
    EXPECT_EQ(slotOf(&CNativePathClaim::isRawDevice), 10U);
    EXPECT_EQ(slotOf(&CNativePathClaim::removeDevPrefix), 11U);
    using SecondGetActivePath = std::string (CNativePathClaim::*)(const std::string&, bool);
    EXPECT_EQ(slotOf(static_cast<SecondGetActivePath>(&CNativePathClaim::getActivePath)), 12U);
    EXPECT_EQ(slotOf(&Further::next), 13U) << "and no slot after it";
}

TEST(SlotOrder, OfTheVolumeManagerSupport)
{
    class Further : public CZtKIVSupport {
    public:
        virtual void next() {}
    };
    EXPECT_EQ(slotOf(&CZtKIVSupport::registerTraceLog), 2U);
    EXPECT_EQ(slotOf(&Further::next), 3U) << "its own operations are not virtual";
}

TEST(SlotOrder, OfTheClaimManager)
{
    EXPECT_EQ(slotOf(&CKivClaimManager::registerClaimModule), 2U);
    EXPECT_EQ(slotOf(&CKivClaimManager::registerTraceLog), 3U);
    EXPECT_EQ(slotOf(&CKivClaimManager::getDeviceClaimStrings), 4U);
    EXPECT_EQ(slotOf(&CKivClaimManager::claim), 5U);
    EXPECT_EQ(slotOf(&CKivClaimManager::isPartition), 6U);
    EXPECT_EQ(slotOf(&CKivClaimManager::appendPartitionSuffix), 7U);
    EXPECT_EQ(slotOf(&CKivClaimManager::removePartitionSuffix), 8U);
    EXPECT_EQ(slotOf(&CKivClaimManager::clearLvmDeviceNameList), 9U);
}

TEST(RawSlots, OfTheReferenceCountAnswer)
{
    CFiRefCount count;
    EXPECT_EQ(callSlot<unsigned int>(&count, 2), 1U);
    EXPECT_EQ(callSlot<unsigned int>(&count, 2), 2U);
    EXPECT_EQ(callSlot<unsigned int>(&count, 3), 1U);
    EXPECT_EQ(callSlot<unsigned int>(&count, 4), 1U);
}

TEST(RawSlots, OfAClaimModuleAnswer)
{
    Host host;
    CKivDeviceClaimBase* const module = new CKivPowerPathClaim;
    const std::string path = "/dev/emcpowera5";
    const LogPointer& log = host.log();
    unsigned int partition = 0;
    callSlot<void, const LogPointer&>(module, 2, log);
    EXPECT_EQ(host.logCount(), 2U);
    EXPECT_EQ(callSlot<std::vector<std::string>>(module, 3), lines({"/dev/emcpower"}));
    EXPECT_EQ((callSlot<std::uint32_t, const std::string&>(module, 4, path)), 16U);
    EXPECT_EQ((callSlot<int, const std::string&>(module, 5, path)), 1);
    EXPECT_EQ((callSlot<std::string, const std::string&, unsigned int>(module, 6, path, 3)), "/dev/emcpowera53");
    EXPECT_EQ((callSlot<std::string, const std::string&, unsigned int&>(module, 7, path, partition)), "/dev/emcpowera");
    EXPECT_EQ(partition, 5U);
    callSlot<void>(module, 8);
    EXPECT_EQ((callSlot<std::string, std::string, bool>(module, 9, path, true)), path);
    EXPECT_TRUE((callSlot<bool, std::string>(module, 10, path)));
    EXPECT_EQ((callSlot<std::string, std::string>(module, 11, path)), "emcpowera5");
    callSlot<void>(module, 1);
    EXPECT_EQ(host.logCount(), 1U) << "the deleting destructor releases the log";
}

TEST(RawSlots, OfTheDeviceMapperModuleAnswer)
{
    Host host;
    host.prints("/sbin/lvdisplay", {"  LV Name lvol1", "  VG Name vg00"});
    CKivDeviceClaimBase* const module = new CKivDeviceMapperClaim;
    const std::string path = "/dev/mapper/mpatha-part3";
    unsigned int partition = 0;
    EXPECT_EQ(callSlot<std::vector<std::string>>(module, 3), lines({"/dev/mapper/"}));
    EXPECT_EQ((callSlot<std::uint32_t, const std::string&>(module, 4, path)), 16U);
    EXPECT_EQ((callSlot<int, const std::string&>(module, 5, path)), 1);
    EXPECT_EQ((callSlot<std::string, const std::string&, unsigned int>(module, 6, path, 3)),
              "/dev/mapper/mpatha-part3-part3");
    EXPECT_EQ((callSlot<std::string, const std::string&, unsigned int&>(module, 7, path, partition)),
              "/dev/mapper/mpatha");
    EXPECT_EQ(partition, 3U);
    host.prints("/sbin/lvdisplay", {"  LV Name lvol2", "  VG Name vg00"});
    callSlot<void>(module, 8);
    EXPECT_EQ((callSlot<std::uint32_t, const std::string&>(module, 4, path)), 16U) << "the list is built anew";
    EXPECT_EQ((callSlot<std::string, std::string, bool>(module, 9, path, true)), path);
    callSlot<void>(module, 1);
}

TEST(RawSlots, OfTheNativePathModuleAnswer)
{
    Host host;
    CKivDeviceClaimBase* const module = new CNativePathClaim;
    const std::string path = "/dev/sda5";
    const LogPointer& log = host.log();
    unsigned int partition = 0;
    callSlot<void, const LogPointer&>(module, 2, log);
    EXPECT_EQ(host.logCount(), 2U);
    EXPECT_EQ(callSlot<std::vector<std::string>>(module, 3), lines({"/dev/sd"}));
    EXPECT_EQ((callSlot<std::uint32_t, const std::string&>(module, 4, path)), 2U);
    EXPECT_EQ((callSlot<int, const std::string&>(module, 5, path)), 1);
    EXPECT_EQ((callSlot<std::string, const std::string&, unsigned int>(module, 6, path, 3)), "/dev/sda53");
    EXPECT_EQ((callSlot<std::string, const std::string&, unsigned int&>(module, 7, path, partition)), "/dev/sda");
    EXPECT_EQ(partition, 5U);
    callSlot<void>(module, 8);
    EXPECT_EQ((callSlot<std::string, std::string, bool>(module, 9, path, true)), path);
    EXPECT_TRUE((callSlot<bool, std::string>(module, 10, path)));
    EXPECT_EQ((callSlot<std::string, std::string>(module, 11, path)), "sda5");
    EXPECT_EQ(host.calls(), lines({})) << "slot 9 looks nothing up";
    EXPECT_EQ((callSlot<std::string, const std::string&, bool>(module, 12, path, true)), path);
    EXPECT_EQ(host.calls(), lines({"access /usr/sbin/ztkivadm: no"}));
    callSlot<void>(module, 1);
    EXPECT_EQ(host.logCount(), 1U);
}

TEST(RawSlots, OfTheVolumeManagerSupportAnswer)
{
    Host host;
    auto* const support = new CZtKIVSupport;
    const LogPointer& log = host.log();
    callSlot<void, const LogPointer&>(support, 2, log);
    EXPECT_EQ(host.logCount(), 2U);
    callSlot<void>(support, 1);
    EXPECT_EQ(host.logCount(), 1U) << "the deleting destructor releases the log";
}

TEST(RawSlots, OfTheClaimManagerAnswer)
{
    Host host;
    auto* const manager = new CKivClaimManager;
    const std::string path = "/dev/emcpowera5";
    const LogPointer& log = host.log();
    unsigned int partition = 0;
    const std::size_t modulesBefore = manager->claimModules().size();
    callSlot<void, CKivDeviceClaimBase*>(manager, 2, new CKivPowerPathClaim);
    EXPECT_EQ(manager->claimModules().size(), modulesBefore + 1);
    callSlot<void, const LogPointer&>(manager, 3, log);
    EXPECT_EQ(host.logCount(), 3U + modulesBefore);
    EXPECT_EQ(callSlot<std::vector<std::string>>(manager, 4).front(), "/dev/emcpower");
    EXPECT_EQ((callSlot<std::uint32_t, const std::string&>(manager, 5, path)), 16U);
    EXPECT_EQ((callSlot<int, const std::string&>(manager, 6, path)), 1);
    EXPECT_EQ((callSlot<std::string, const std::string&, unsigned int>(manager, 7, path, 3)), "/dev/emcpowera53");
    EXPECT_EQ((callSlot<std::string, const std::string&, unsigned int&>(manager, 8, path, partition)),
              "/dev/emcpowera");
    EXPECT_EQ(partition, 5U);
    callSlot<void>(manager, 9);
    callSlot<void>(manager, 1);
    EXPECT_EQ(host.logCount(), 1U);
}

TEST(Layout, ContractTypesHaveNoMembersBesidesThoseListed)
{
    EXPECT_EQ(words<CFiSmartPtr<CFiTraceLog>>, 1U);
    EXPECT_EQ(words<CFiTraceable>, 2U) << "table, log";
    EXPECT_EQ(words<CKivDeviceClaimBase>, words<CFiTraceable>) << "no members of its own";
    EXPECT_EQ(words<CKivPowerPathClaim>, words<CFiTraceable>);
    EXPECT_EQ(sizeof(CKivDeviceMapperClaim), sizeof(CFiTraceable) + 48U) << "one ordered set";
    EXPECT_EQ(words<CNativePathClaim>, words<CFiTraceable>);
    EXPECT_EQ(words<CZtKIVSupport>, words<CFiTraceable>);
    EXPECT_EQ(words<CKivClaimManager>, 1U + 3U + words<CFiTraceable>) << "table, list, virtual base";
    EXPECT_EQ(words<CFiTraceLogFunction>, 5U) << "table, log, function, line, file";
    EXPECT_EQ(sizeof(CFiRefCount), 8U + 8U + sizeof(ACE_Thread_Mutex)) << "table, count, lock";
    EXPECT_EQ(sizeof(CFiTraceLog), 8U + 5U * sizeof(ACE_String_Base<char>) + 8U + sizeof(CFiRefCount));
    EXPECT_EQ(sizeof(CFiErrorManager), 8U + 48U + 8U + sizeof(CFiRefCount)) << "table, map, buffer, virtual base";
    EXPECT_EQ(sizeof(CFiMessage), 8U + sizeof(CFiRefCount));
    EXPECT_EQ(sizeof(EFiExecPipe), 32U + 32U + 8U + 8U);
    EXPECT_EQ(sizeof(CFiExecPipeBase), sizeof(CFiTraceable) + sizeof(EFiExecPipe));
    EXPECT_EQ(sizeof(CFiExecPipePosix), sizeof(CFiExecPipeBase));
    EXPECT_EQ(sizeof(ZTFI_DEVICE_CLAIM_LEVEL), 4U);
}

TEST(Layout, AlignmentIsThatOfAPointer)
{
    EXPECT_EQ(alignof(CFiRefCount), alignof(void*));
    EXPECT_EQ(alignof(CFiTraceLog), alignof(void*));
    EXPECT_EQ(alignof(CFiErrorManager), alignof(void*));
    EXPECT_EQ(alignof(CFiTraceable), alignof(void*));
    EXPECT_EQ(alignof(CFiTraceLogFunction), alignof(void*));
    EXPECT_EQ(alignof(EFiExecPipe), alignof(void*));
    EXPECT_EQ(alignof(CFiExecPipePosix), alignof(void*));
    EXPECT_EQ(alignof(CKivClaimManager), alignof(void*));
    EXPECT_EQ(alignof(CKivDeviceClaimBase), alignof(void*));
    EXPECT_EQ(alignof(CNativePathClaim), alignof(void*));
    EXPECT_EQ(alignof(CZtKIVSupport), alignof(void*));
}

TEST(Layout, FieldsOfTheExecutionFailureAreInOrder)
{
    EXPECT_EQ(offsetof(EFiExecPipe, message), 0U);
    EXPECT_EQ(offsetof(EFiExecPipe, wideMessage), 32U);
    EXPECT_EQ(offsetof(EFiExecPipe, errorNumber), 64U);
    EXPECT_EQ(offsetof(EFiExecPipe, waitStatus), 72U);
    EXPECT_FALSE(std::is_polymorphic_v<EFiExecPipe>);
}

TEST(Layout, ClaimLevelsAreUnsignedNumbers)
{
    static_assert(std::is_same_v<std::underlying_type_t<ZTFI_DEVICE_CLAIM_LEVEL>, std::uint32_t>);
    EXPECT_EQ(ZTFI_DEVICE_CLAIM_LEVEL_NONE, 0U);
    EXPECT_EQ(ZTFI_DEVICE_CLAIM_LEVEL_NATIVE, 2U);
    EXPECT_EQ(ZTFI_DEVICE_CLAIM_LEVEL_KIV_SECONDARY, 16U);
}

TEST(Contract, OnlyTheManagerDerivesVirtuallyFromTheTraceableBase)
{
    // A pointer to a virtual base cannot be cast down statically; to a plain one it can.
    EXPECT_TRUE((std::is_base_of_v<CFiTraceable, CKivClaimManager>));
    CKivClaimManager manager;
    EXPECT_EQ(static_cast<void*>(static_cast<CFiTraceable*>(&manager)),
              static_cast<void*>(reinterpret_cast<char*>(&manager) + 32));
    CKivPowerPathClaim module;
    EXPECT_EQ(static_cast<void*>(static_cast<CFiTraceable*>(&module)), static_cast<void*>(&module));
    CZtKIVSupport support;
    EXPECT_EQ(static_cast<void*>(static_cast<CFiTraceable*>(&support)), static_cast<void*>(&support));
}

TEST(Contract, OfModulesInFilesCoversTheseSlotsAndTypes)
{
    EXPECT_EQ(kivClaimModuleContract, (1U << 8) + 32U) << "increase it when one of the following changes";
    EXPECT_EQ(slotOf(&OneSlotMore::oneMore), 12U);
    EXPECT_EQ(sizeof(CKivDeviceClaimBase), 16U);
    EXPECT_EQ(sizeof(CFiTraceable), 16U);
    EXPECT_EQ(sizeof(CFiTraceLog), 232U + sizeof(ACE_Thread_Mutex));
    EXPECT_EQ(sizeof(std::string), 32U);
}

TEST(Contract, OfModulesInFilesCountsDeviationsBesideTheNumberOfEarlierReleases)
{
    EXPECT_EQ(kivClaimModuleContract, 288U);
    EXPECT_EQ(kivclaim::contractMismatch(288, 288), "");
    EXPECT_EQ(kivclaim::contractMismatch(288, 288 | kivContractNoExceptions),
              "it was compiled with -fno-exceptions and the host without");
    EXPECT_EQ(kivclaim::contractMismatch(288, 264 | kivContractOldStrings),
              "it was compiled with -D_GLIBCXX_USE_CXX11_ABI=0 and the host without");
    EXPECT_EQ(kivclaim::contractMismatch(288 | kivContractDebugMode, 288),
              "it was compiled without -D_GLIBCXX_DEBUG and the host with");
    EXPECT_EQ(kivclaim::contractMismatch(288, 544),
              "it was built against contract 544, and the host is of contract 288");
}

TEST(Contract, TheFunctionsForOpenedLibrariesMakeAndDeleteAManager)
{
    unsigned int libraryContract = 0;
    CKivClaimManager* const manager = kivclaim_create_claim_manager(kivClaimManagerContract, &libraryContract);
    ASSERT_NE(manager, nullptr);
    EXPECT_EQ(libraryContract, 288U);
    EXPECT_EQ(manager->claim("/dev/emcpowera"), 16U);
    kivclaim_delete_claim_manager(manager);
    kivclaim_delete_claim_manager(nullptr);
}

TEST(Contract, TheFunctionForOpenedLibrariesRefusesAnotherContractAndTellsItsOwn)
{
    for (const unsigned int other : {0U, 287U, 544U, 288U | kivContractNoRtti}) {
        unsigned int libraryContract = 0;
        EXPECT_EQ(kivclaim_create_claim_manager(other, &libraryContract), nullptr);
        EXPECT_EQ(libraryContract, 288U);
    }
}

TEST(Contract, TheFunctionsForOpenedLibrariesKeepTheirNames)
{
    EXPECT_STREQ(kivCreateClaimManagerName, "kivclaim_create_claim_manager");
    EXPECT_STREQ(kivDeleteClaimManagerName, "kivclaim_delete_claim_manager");
    EXPECT_STREQ(kivHostOperationName, "kivclaim_host_operation");
}

TEST(Contract, TheLibraryTellsTheFileOfEachOperationOfTheHost)
{
    const char* name = nullptr;
    const char* file = nullptr;
    EXPECT_EQ(kivclaim_host_operation(0, &name, &file), 1);
    std::vector<std::string> names;
    for (const kivclaim::HostOperation& operation : kivclaim::hostOperations()) {
        names.push_back(operation.name);
        EXPECT_NE(operation.file, "") << operation.name;
    }
    EXPECT_EQ(names, lines({"CFiTraceLog::trace", "CFiExecPipePosix::CFiExecPipePosix", "CFiExecPipeBase::Exec",
                            "CFiStringTool::find", "CFiStringTool::trim", "CFiStringTool::tokenize",
                            "CFiStringTool::str2tstr", "CFiStringTool::tstr2str"}));
}

TEST(Contract, AFailureBeginsWithoutNumbers)
{
    const EFiExecPipe failure;
    EXPECT_EQ(failure.errorNumber, 0);
    EXPECT_EQ(failure.waitStatus, 0);
}

TEST(Contract, OfModulesInFilesNamesTheSameFunctionInEveryRelease)
{
    EXPECT_STREQ(kivCreateClaimModuleName, "kivclaim_create_claim_module")
        << "modules that are out there have this one";
    EXPECT_TRUE((std::is_same_v<KivCreateClaimModule, CKivDeviceClaimBase*(unsigned int, unsigned int*)>));
}

TEST(Contract, TheReleaseIdentificationNamesLibraryVersionAndRevision)
{
    const std::string versionText = std::to_string(KIVCLAIM_VERSION_MAJOR) + "." +
                                    std::to_string(KIVCLAIM_VERSION_MINOR) + "." +
                                    std::to_string(KIVCLAIM_VERSION_PATCH);
    const std::string text = kivclaim_release_identification;
    EXPECT_EQ(text.find("kivclaim " + versionText + " (revision "), 0U) << text;
    EXPECT_EQ(text.back(), ')');
}

TEST(Contract, TheVersionOfTheLibraryIsThatOfItsHeaders)
{
    EXPECT_EQ(kivclaim_version(), KIVCLAIM_VERSION);
    EXPECT_EQ(KIVCLAIM_VERSION_NUMBER(1, 2, 3), 10203);
}
