#include "tools/audit/audited_device.h"

#include "tools/stack_name.h"

#include <sys/stat.h>

namespace kivclaim::tools {

namespace {

LibraryAnswer ask(CKivClaimManager& manager, const std::string& path, const KernelDevice& kernel)
{
    LibraryAnswer answer;
    CKivDeviceClaimBase* module = nullptr;
    answer.level = manager.getClaimModule(module, path);
    answer.stack = stackName(module);
    if (module == nullptr) {
        return answer;
    }
    answer.isPartition = manager.isPartition(path) != 0;
    answer.wholeDevice = manager.removePartitionSuffix(path, answer.partition);
    for (const KernelPartition& partition : kernel.partitions) {
        answer.partitions.push_back({partition.number, manager.appendPartitionSuffix(path, partition.number)});
    }
    return answer;
}

// Two names of one device are the same answer.
bool nameTheSameDevice(const std::string& one, const std::string& other)
{
    struct stat first {};
    struct stat second {};
    return one == other || (stat(one.c_str(), &first) == 0 && stat(other.c_str(), &second) == 0 &&
                            S_ISBLK(first.st_mode) && S_ISBLK(second.st_mode) && first.st_rdev == second.st_rdev);
}

std::string yesOrNo(bool answer)
{
    return answer ? "yes" : "no";
}

std::string wholeAndNumber(const std::string& wholeDevice, unsigned int partition)
{
    return wholeDevice + " " + std::to_string(partition);
}

// Collects the differences, question by question.
class Comparison {
public:
    explicit Comparison(AuditedDevice& device) : device(device) {}

    void compare()
    {
        compareClaim();
        if (library.level == 0 || !kernel.exists()) {
            return;
        }
        compareNumber();
        const bool partition = kernel.partition != 0;
        if (partition != library.isPartition) {
            // What the library then calls the whole device follows from this answer.
            add(Question::isPartition, yesOrNo(library.isPartition), yesOrNo(partition));
        } else {
            compareWholeDevice();
        }
        comparePartitions();
    }

private:
    void add(Question question, const std::string& libraryText, const std::string& kernelText,
             unsigned int partition = 0)
    {
        Difference difference;
        difference.question = question;
        difference.partition = partition;
        difference.library = libraryText;
        difference.kernel = kernelText;
        device.differences.push_back(std::move(difference));
    }

    void compareClaim()
    {
        if (library.stack == kernelStack(kernel)) {
            return;
        }
        const bool otherName = kernel.exists() && kernel.path != device.path;
        add(Question::claim, library.stack, description(kernel) + (otherName ? ", " + kernel.path : ""));
    }

    void compareNumber()
    {
        struct stat node {};
        if (stat(device.path.c_str(), &node) == 0 && S_ISBLK(node.st_mode) && node.st_rdev != kernel.number) {
            add(Question::number, numberText(node.st_rdev), numberText(kernel.number));
        }
    }

    void compareWholeDevice()
    {
        const std::string& expected = kernel.partition != 0 ? kernel.wholeDevice : device.path;
        if (library.partition != kernel.partition || !nameTheSameDevice(library.wholeDevice, expected)) {
            add(Question::whole, wholeAndNumber(library.wholeDevice, library.partition),
                wholeAndNumber(expected, kernel.partition));
        }
    }

    void comparePartitions()
    {
        for (std::size_t i = 0; i < kernel.partitions.size(); ++i) {
            const KernelPartition& real = kernel.partitions[i];
            if (!nameTheSameDevice(library.partitions[i].path, real.path)) {
                add(Question::partition, library.partitions[i].path, real.path, real.number);
            }
        }
    }

    AuditedDevice& device;
    const LibraryAnswer& library = device.library;
    const KernelDevice& kernel = device.kernel;
};

}  // namespace

const char* name(Question question)
{
    switch (question) {
        case Question::claim:
            return "claim";
        case Question::isPartition:
            return "is-partition";
        case Question::whole:
            return "whole";
        case Question::partition:
            return "partition";
        case Question::number:
            break;
    }
    return "number";
}

AuditedDevice audited(CKivClaimManager& manager, const std::string& path, KernelDevice kernel)
{
    AuditedDevice device;
    device.path = path;
    device.kernel = std::move(kernel);
    device.library = ask(manager, path, device.kernel);
    Comparison(device).compare();
    return device;
}

std::string description(const LibraryAnswer& answer)
{
    return answer.stack +
           (answer.isPartition ? ", partition " + std::to_string(answer.partition) + " of " + answer.wholeDevice : "");
}

}  // namespace kivclaim::tools
