// The kernel's events about block devices.
#ifndef KIVCLAIM_TOOLS_EVENTS_DEVICE_EVENTS_H
#define KIVCLAIM_TOOLS_EVENTS_DEVICE_EVENTS_H

#include <chrono>
#include <memory>

struct udev;
struct udev_monitor;

namespace kivclaim::tools {

// What for: to learn that the machine may have changed, not what. Reports events from its construction on.
// Threads: one. Ownership: owns its socket. Failure: CommandError where the kernel's events cannot be received.
class DeviceEvents {
public:
    DeviceEvents();

    // Waits for an event, then takes all that come within `gathering`. True when some were lost, because they came
    // faster than they were taken.
    bool await(std::chrono::milliseconds gathering);

private:
    struct Release {
        void operator()(udev* freed) const;
        void operator()(udev_monitor* freed) const;
    };

    void wait(std::chrono::milliseconds longest) const;
    bool take();

    std::unique_ptr<udev, Release> context;
    std::unique_ptr<udev_monitor, Release> monitor;
};

}  // namespace kivclaim::tools

#endif
