// Has the name of a program of another architecture and runs it under qemu-user. So tests and the command runner can
// start the program by that name without binfmt_misc in the kernel. The build appends the path of the program to the
// launcher's file, so that copies of that file run the program as well.
#include <sys/auxv.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <string>
#include <vector>

namespace {

// The text after the last line feed of the file; empty when it cannot be read.
std::string lastLineOf(const char* path)
{
    std::FILE* const file = std::fopen(path, "rbe");
    if (file == nullptr) {
        return "";
    }
    std::string end(PATH_MAX, '\0');
    std::fseek(file, -static_cast<long>(end.size()), SEEK_END);
    end.resize(std::fread(end.data(), 1, end.size(), file));
    std::fclose(file);
    return end.substr(end.rfind('\n') + 1);
}

}  // namespace

int main(int /*count*/, char** arguments)
{
    // NOLINTNEXTLINE(performance-no-int-to-ptr): the kernel gives addresses as numbers.
    std::string program = lastLineOf(reinterpret_cast<const char*>(getauxval(AT_EXECFN)));
    std::string emulator = "/usr/local/bin/emulator";
    std::string keepName = "-0";
    std::vector<char*> words{emulator.data(), keepName.data(), arguments[0], program.data()};
    for (char** argument = arguments + 1; *argument != nullptr; ++argument) {
        words.push_back(*argument);
    }
    words.push_back(nullptr);
    execv(emulator.c_str(), words.data());
    std::perror(emulator.c_str());
    return 126;
}
