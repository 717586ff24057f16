// Prints which file supplies each operation of the host framework, as a claim library tells it.
//
//     operation_report [--global FILE]... [--deepbind] [FILE]
//
// Without FILE, the library that the program is linked with. FILE is opened, with RTLD_DEEPBIND when that is asked for,
// after those of --global, which are opened with RTLD_GLOBAL.
#include "claim/kiv_host_operations.h"

#include <dlfcn.h>

#include <iostream>

namespace {

void* open(const std::string& file, int flags)
{
    void* const library = dlopen(file.c_str(), RTLD_NOW | flags);
    if (library == nullptr) {
        std::cerr << dlerror() << std::endl;
        std::exit(2);
    }
    return library;
}

void print(KivHostOperation* ask)
{
    for (const kivclaim::HostOperation& operation : kivclaim::hostOperations(ask)) {
        std::cout << operation.name << " " << operation.file << '\n';
    }
}

}  // namespace

int main(int argc, char** argv)
{
    [[maybe_unused]] int flags = RTLD_LOCAL;
    std::string file;
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        if (argument == "--global") {
            open(argv[++i], RTLD_GLOBAL);
        } else if (argument == "--deepbind") {
            flags |= RTLD_DEEPBIND;
        } else {
            file = argument;
        }
    }
#ifdef LINKED_WITH_THE_PLUGIN
    print(kivclaim_host_operation);
#else
    print(reinterpret_cast<KivHostOperation*>(dlsym(open(file, flags), kivHostOperationName)));
#endif
    return 0;
}
