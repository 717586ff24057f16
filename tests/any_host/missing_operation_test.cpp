// A host that lacks one of the operations that the plug-in needs: the plug-in must not load, however late the host lets
// symbols be bound. Otherwise the process would end at the first call, in the middle of an answer.
#include "tests/process.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;
using tests::Ended;
using tests::Process;

namespace {

struct Operation {
    const char* name;
    const char* symbol;
};

void PrintTo(const Operation& operation, std::ostream* stream)
{
    *stream << operation.name;
}

class MissingOperation : public testing::TestWithParam<Operation> {
protected:
    // Opens `plugin` with RTLD_LAZY, in a process that has every operation but this one.
    static Ended open(const char* plugin)
    {
        return Process(std::string(PROCESS_WITHOUT) + GetParam().name, {}).environment("PLUGIN", plugin).run();
    }
};

std::string nameOf(const testing::TestParamInfo<Operation>& info)
{
    return info.param.name;
}

}  // namespace

INSTANTIATE_TEST_SUITE_P(OfTheHost, MissingOperation,
                         testing::Values(Operation{"trace", "_ZN12ztfi_pdk_4_411CFiTraceLog5traceEiPKcz"},
                                         Operation{"Exec", "_ZN12ztfi_pdk_4_415CFiExecPipeBase4ExecE"},
                                         Operation{"CFiExecPipePosix", "_ZN12ztfi_pdk_4_416CFiExecPipePosixC1Ei"},
                                         Operation{"tokenize", "_ZN12ztfi_pdk_4_413CFiStringTool8tokenizeE"},
                                         Operation{"trim", "_ZN12ztfi_pdk_4_413CFiStringTool4trimE"},
                                         Operation{"find", "_ZN12ztfi_pdk_4_413CFiStringTool4findE"},
                                         Operation{"str2tstr", "_ZN12ztfi_pdk_4_413CFiStringTool8str2tstrE"},
                                         Operation{"tstr2str", "_ZN12ztfi_pdk_4_413CFiStringTool8tstr2strB5cxx11E"}),
                         nameOf);

TEST_P(MissingOperation, KeepsThePluginFromLoading)
{
    const Ended ended = open(PLUGIN_WITHOUT_HOST);
    EXPECT_EQ(ended.status, 2);
    EXPECT_EQ(ended.output, "");
    EXPECT_THAT(ended.errors, AllOf(StartsWith(PLUGIN_WITHOUT_HOST), HasSubstr(": undefined symbol: "),
                                    HasSubstr(GetParam().symbol)));
}

// Also when the library is built to be bound lazily, because it contains the address of each operation.
TEST_P(MissingOperation, KeepsALibraryThatIsBoundLazilyFromLoading)
{
    const Ended ended = open(PLUGIN_BOUND_LAZILY);
    EXPECT_EQ(ended.status, 2);
    EXPECT_THAT(ended.errors, AllOf(StartsWith(PLUGIN_BOUND_LAZILY), HasSubstr(": undefined symbol: "),
                                    HasSubstr(GetParam().symbol)));
}
