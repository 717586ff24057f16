#include "tools/events/device_events.h"

#include "tools/exit_status.h"

#include <libudev.h>
#include <poll.h>

#include <cerrno>
#include <cstring>
#include <string>

namespace kivclaim::tools {

namespace {

using Clock = std::chrono::steady_clock;

// Room in the socket's buffer for some thousand events; an ordinary user gets less.
constexpr int bytesOfEvents = 16 * 1024 * 1024;

[[noreturn]] void fail(int error)
{
    throw CommandError(std::string("cannot follow the kernel's events: ") + std::strerror(error) +
                       "; compare two recordings with 'kivclaim diff' instead");
}

}  // namespace

void DeviceEvents::Release::operator()(udev* freed) const
{
    udev_unref(freed);
}

void DeviceEvents::Release::operator()(udev_monitor* freed) const
{
    udev_monitor_unref(freed);
}

// The kernel's events, not udev's, so that no daemon is needed: links that udev makes later do not change an answer.
DeviceEvents::DeviceEvents()
    : context(udev_new()),
      monitor(context != nullptr ? udev_monitor_new_from_netlink(context.get(), "kernel") : nullptr)
{
    if (monitor == nullptr) {
        fail(errno);
    }
    udev_monitor_set_receive_buffer_size(monitor.get(), bytesOfEvents);
    int error = udev_monitor_filter_add_match_subsystem_devtype(monitor.get(), "block", nullptr);
    error = error < 0 ? error : udev_monitor_enable_receiving(monitor.get());
    if (error < 0) {
        fail(-error);
    }
}

bool DeviceEvents::await(std::chrono::milliseconds gathering)
{
    wait(std::chrono::milliseconds(-1));
    bool isLost = take();
    const Clock::time_point end = Clock::now() + gathering;
    for (Clock::time_point now = Clock::now(); now < end; now = Clock::now()) {
        wait(std::chrono::ceil<std::chrono::milliseconds>(end - now));
        isLost = take() || isLost;
    }
    return isLost;
}

void DeviceEvents::wait(std::chrono::milliseconds longest) const
{
    pollfd source = {udev_monitor_get_fd(monitor.get()), POLLIN, 0};
    if (poll(&source, 1, static_cast<int>(longest.count())) < 0 && errno != EINTR) {
        fail(errno);
    }
}

bool DeviceEvents::take()
{
    bool isLost = false;
    while (true) {
        errno = 0;
        udev_device* const device = udev_monitor_receive_device(monitor.get());
        if (device != nullptr) {
            udev_device_unref(device);
        } else if (errno == ENOBUFS) {
            isLost = true;
        } else {
            return isLost;
        }
    }
}

}  // namespace kivclaim::tools
