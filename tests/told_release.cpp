// Preloaded into a program, tells it another kernel release: the one that the environment variable
// KIVCLAIM_KERNEL_RELEASE names.
#include <dlfcn.h>
#include <sys/utsname.h>

#include <cstdio>
#include <cstdlib>

extern "C" int uname(utsname* system) noexcept
{
    static const auto next = reinterpret_cast<decltype(&uname)>(dlsym(RTLD_NEXT, "uname"));
    const int result = next(system);
    if (const char* const release = std::getenv("KIVCLAIM_KERNEL_RELEASE"); release != nullptr && result == 0) {
        std::snprintf(system->release, sizeof system->release, "%s", release);
    }
    return result;
}
