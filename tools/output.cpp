#include "tools/output.h"

#include "host/printable_text.h"
#include "tools/exit_status.h"
#include "tools/watch.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace kivclaim::tools {

namespace {

void checkOutput(bool written)
{
    if (!written) {
        throw CommandError(std::string("cannot write to standard output: ") + std::strerror(errno) +
                           "; the answers up to here may be incomplete");
    }
}

}  // namespace

void printLine(std::string_view line)
{
    Watch::beforeOutput();
    checkOutput(std::fwrite(line.data(), 1, line.size(), stdout) == line.size() && std::putc('\n', stdout) != EOF);
}

void flushOutput()
{
    Watch::beforeOutput();
    checkOutput(std::fflush(stdout) == 0);
}

void complain(const std::string& text)
{
    Watch::beforeOutput();
    std::fprintf(stderr, "kivclaim: %s\n", kivclaim::host::printableText(text).c_str());
}

}  // namespace kivclaim::tools
