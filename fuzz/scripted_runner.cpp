#include "fuzz/scripted_runner.h"

#include "framework/cfiexecpipe.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

namespace {

std::vector<std::string> printedLines;
int printedResult = 0;
int runs = 0;

}  // namespace

namespace ztfi_pdk_4_4 {

int CFiExecPipeBase::Exec(std::string /*command*/, std::vector<std::string>& output, std::string /*text*/,
                          unsigned long /*timeoutSeconds*/, std::string /*text*/, std::string /*text*/,
                          std::string /*text*/)
{
    ++runs;
    output.insert(output.end(), printedLines.begin(), printedLines.end());
    return printedResult;
}

}  // namespace ztfi_pdk_4_4

extern "C" {

int access(const char* /*path*/, int /*mode*/)
{
    return 0;
}

unsigned int sleep(unsigned int /*seconds*/)
{
    return 0;
}

}  // extern "C"

namespace fuzz {

void commandsPrint(std::vector<std::string> lines, int result)
{
    printedLines = std::move(lines);
    printedResult = result;
    runs = 0;
}

int commandsRun()
{
    return runs;
}

std::vector<std::string> linesOf(std::string_view text)
{
    std::vector<std::string> lines;
    while (!text.empty()) {
        const std::size_t end = text.find('\n');
        lines.emplace_back(text.substr(0, end));
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    }
    return lines;
}

void check(bool holds, const char* what)
{
    if (!holds) {
        std::fprintf(stderr, "does not hold: %s\n", what);
        std::abort();
    }
}

}  // namespace fuzz
