// A machine with mock block devices: umockdev provides its sysfs and its nodes.
#ifndef KIVCLAIM_TESTS_MOCK_MACHINE_H
#define KIVCLAIM_TESTS_MOCK_MACHINE_H

#include "tests/process.h"

#include <map>
#include <string>
#include <vector>

namespace tests {

class MockMachine {
public:
    // A disk without partitions, and partition `number` of one. Kernel names such as "sda" and "sda1".
    MockMachine& disk(const std::string& name);
    MockMachine& partition(const std::string& diskName, const std::string& name, unsigned int number);

    // A device-mapper device with its node under /dev/mapper, on top of others of this machine (kernel names).
    MockMachine& mapped(const std::string& kernelName, const std::string& name, const std::string& uuid,
                        const std::vector<std::string>& slaves = {});
    // The same, with its node under its kernel name only.
    MockMachine& mappedWithoutName(const std::string& kernelName, const std::string& name, const std::string& uuid);

    // Another node, under /dev, for an existing device.
    MockMachine& node(const std::string& name, const std::string& kernelName);

    // A process that runs `program` on this machine.
    Process process(const std::string& program, std::vector<std::string> arguments) const;

private:
    struct Device {
        std::string place;  // in sysfs
        std::string node;
        std::string type = "disk";
        std::string lines;
        std::vector<std::string> otherNodes;
        int minor = 0;
    };
    Device& add(const std::string& kernelName, const std::string& place, const std::string& node);
    static std::string number(const Device& device);
    std::string description() const;
    std::string makeOtherNodes() const;
    void hold(const std::string& slave, const std::string& holder);

    TemporaryFolder folder;
    std::map<std::string, Device> devices;
};

}  // namespace tests

#endif
