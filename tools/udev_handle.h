// Owners of libudev's handles.
#ifndef KIVCLAIM_TOOLS_UDEV_HANDLE_H
#define KIVCLAIM_TOOLS_UDEV_HANDLE_H

#include <libudev.h>

#include <memory>

namespace kivclaim::tools {

struct UdevUnref {
    void operator()(udev* handle) const { udev_unref(handle); }
    void operator()(udev_enumerate* handle) const { udev_enumerate_unref(handle); }
    void operator()(udev_device* handle) const { udev_device_unref(handle); }
};

using UdevContext = std::unique_ptr<udev, UdevUnref>;
using UdevEnumeration = std::unique_ptr<udev_enumerate, UdevUnref>;
using UdevDevice = std::unique_ptr<udev_device, UdevUnref>;

}  // namespace kivclaim::tools

#endif
