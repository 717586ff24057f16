// Feeds every file of a directory to a fuzzer's function once: seed_runner DIRECTORY. The function aborts when
// something does not hold.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size);

int main(int count, char** arguments)
{
    if (count != 2) {
        std::fprintf(stderr, "give the directory of the seeds\n");
        return 2;
    }
    int fed = 0;
    for (const auto& entry : std::filesystem::directory_iterator(arguments[1])) {
        std::ostringstream content;
        content << std::ifstream(entry.path(), std::ios::binary).rdbuf();
        const std::string text = content.str();
        LLVMFuzzerTestOneInput(reinterpret_cast<const unsigned char*>(text.data()), text.size());
        ++fed;
    }
    std::printf("%d seeds\n", fed);
    return fed > 0 ? 0 : 1;
}
