// Tells a program once that the kernel had to drop events: before the first event that comes while the file
// $KIVCLAIM_LOSS is there, which is removed.
#include <dlfcn.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

struct udev_device;
struct udev_monitor;

extern "C" udev_device* udev_monitor_receive_device(udev_monitor* monitor)
{
    const char* const loss = std::getenv("KIVCLAIM_LOSS");
    if (loss != nullptr && unlink(loss) == 0) {
        errno = ENOBUFS;
        return nullptr;
    }
    using Receive = udev_device* (*)(udev_monitor*);
    static const Receive receive = reinterpret_cast<Receive>(dlsym(RTLD_NEXT, "udev_monitor_receive_device"));
    return receive(monitor);
}
