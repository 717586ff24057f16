// Sizes and alignments of the shared types, as numbers for each architecture. They are what compiled hosts and modules
// rely on, and docs/contract.md shows the same table.
#include "claim/kiv_claim_manager.h"
#include "claim/kiv_device_claim_base.h"
#include "framework/cfiexecpipe.h"
#include "framework/cfitracelog.h"
#include "modules/kiv_linux_device_mapper_claim.h"
#include "modules/kiv_nativepath_claim.h"
#include "modules/kiv_powerpath_claim.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

using namespace ztfi_pdk_4_4;

namespace {

constexpr int unknownArchitecture = -1;

// The place of this architecture among the sizes of a row.
constexpr int thisArchitecture()
{
#if defined(__x86_64__)
    return 0;
#elif defined(__aarch64__)
    return 1;
#elif defined(__powerpc64__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
    return 2;
#elif defined(__s390x__)
    return 3;
#else
    return unknownArchitecture;
#endif
}

struct SharedType {
    const char* name;
    std::size_t size;
    std::size_t alignment;
    std::size_t sizeOn[4];  // x86-64, arm64, ppc64el, s390x
    std::size_t alignmentEverywhere;
};

#define SHARED_TYPE(type) #type, sizeof(type), alignof(type)

// A mutex is what differs, and with it whatever holds one.
const SharedType sharedTypes[] = {
    {SHARED_TYPE(std::string), {32, 32, 32, 32}, 8},
    {SHARED_TYPE(std::wstring), {32, 32, 32, 32}, 8},
    {SHARED_TYPE(std::vector<std::string>), {24, 24, 24, 24}, 8},
    {SHARED_TYPE(wchar_t), {4, 4, 4, 4}, 4},
    {SHARED_TYPE(long), {8, 8, 8, 8}, 8},
    {SHARED_TYPE(ACE_String_Base<char>), {40, 40, 40, 40}, 8},
    {SHARED_TYPE(ACE_Thread_Mutex), {48, 56, 48, 48}, 8},
    {SHARED_TYPE(CFiRefCount), {64, 72, 64, 64}, 8},
    {SHARED_TYPE(CFiSmartPtr<CFiTraceLog>), {8, 8, 8, 8}, 8},
    {SHARED_TYPE(CFiMessage), {72, 80, 72, 72}, 8},
    {SHARED_TYPE(CFiErrorManager), {128, 136, 128, 128}, 8},
    {SHARED_TYPE(CFiTraceLog), {280, 288, 280, 280}, 8},
    {SHARED_TYPE(CFiTraceable), {16, 16, 16, 16}, 8},
    {SHARED_TYPE(CFiTraceLogFunction), {40, 40, 40, 40}, 8},
    {SHARED_TYPE(EFiExecPipe), {80, 80, 80, 80}, 8},
    {SHARED_TYPE(CFiExecPipeBase), {96, 96, 96, 96}, 8},
    {SHARED_TYPE(CFiExecPipePosix), {96, 96, 96, 96}, 8},
    {SHARED_TYPE(ZTFI_TRACE_LEVEL), {4, 4, 4, 4}, 4},
    {SHARED_TYPE(ZTFI_DEVICE_CLAIM_LEVEL), {4, 4, 4, 4}, 4},
    {SHARED_TYPE(CKivDeviceClaimBase), {16, 16, 16, 16}, 8},
    {SHARED_TYPE(CNativePathClaim), {16, 16, 16, 16}, 8},
    {SHARED_TYPE(CKivPowerPathClaim), {16, 16, 16, 16}, 8},
    {SHARED_TYPE(CKivDeviceMapperClaim), {64, 64, 64, 64}, 8},
    {SHARED_TYPE(CZtKIVSupport), {16, 16, 16, 16}, 8},
    {SHARED_TYPE(CKivClaimManager), {48, 48, 48, 48}, 8},
};

// As docs/contract.md has it.
std::string rowOf(const SharedType& type)
{
    std::ostringstream row;
    row << "| `" << type.name << "` |";
    for (const std::size_t size : type.sizeOn) {
        row << ' ' << size << " |";
    }
    row << ' ' << type.alignmentEverywhere << " |";
    return row.str();
}

std::vector<std::string> rowsOfThePage()
{
    std::ifstream page(KIVCLAIM_SOURCE "/docs/contract.md");
    std::vector<std::string> rows;
    std::string line;
    while (std::getline(page, line) && line != "| Type | x86-64 | arm64 | ppc64el | s390x | alignment |") {
    }
    std::getline(page, line);  // the rule below the heads
    while (std::getline(page, line) && !line.empty()) {
        rows.push_back(line);
    }
    return rows;
}

}  // namespace

TEST(Layout, SizesAreThoseOfThisArchitecture)
{
    ASSERT_NE(thisArchitecture(), unknownArchitecture)
        << "no sizes are known for this architecture: add a column to this table and to docs/contract.md";
    for (const SharedType& type : sharedTypes) {
        EXPECT_EQ(type.size, type.sizeOn[thisArchitecture()]) << type.name;
        EXPECT_EQ(type.alignment, type.alignmentEverywhere) << type.name;
    }
}

TEST(Layout, TheContractPageHasTheSizesOfEveryArchitecture)
{
    std::vector<std::string> rows;
    for (const SharedType& type : sharedTypes) {
        rows.push_back(rowOf(type));
    }
    EXPECT_EQ(rowsOfThePage(), rows);
}
