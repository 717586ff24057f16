// Foreign texts in the bundled host: what is shown is safe to show, and command lines fall into the same words again.
#include "fuzz/scripted_runner.h"
#include "host/printable_text.h"
#include "host/runner/command_words.h"
#include "host/runner/run_problem.h"

#include <string>
#include <vector>

namespace {

std::string joined(const std::vector<std::string>& words)
{
    std::string text;
    for (const std::string& word : words) {
        text += (text.empty() ? "" : "  ") + word;
    }
    return text;
}

void checkWords(const std::string& text)
{
    using kivclaim::host_internal::commandWords;
    try {
        const std::vector<std::string> words = commandWords(text);
        fuzz::check(!words.empty() && words.front().front() == '/', "a program is named by its absolute path");
        fuzz::check(commandWords(joined(words)) == words, "words that are joined fall apart into themselves");
    } catch (const kivclaim::host_internal::RunProblem&) {
        return;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);
    const std::string shown = kivclaim::host::printableText(text);
    for (const char character : shown) {
        const auto byte = static_cast<unsigned char>(character);
        fuzz::check(byte >= 0x20 && byte != 0x7f, "no control character is shown");
    }
    fuzz::check(kivclaim::host::printableText(shown) == shown, "what is shown is printable");
    checkWords(text);
    return 0;
}
