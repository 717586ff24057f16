#include "tools/audit/audited_device.h"

namespace kivclaim::tools {

namespace {

LibraryAnswer libraryAnswer(const kivclaim::ClaimAnswer& claimed, const KernelTruth& kernel)
{
    LibraryAnswer answer;
    answer.level = claimed.level();
    answer.stack = claimed.stack();
    if (claimed.module() == nullptr) {
        return answer;
    }
    answer.isPartition = claimed.isPartition();
    answer.wholeDevice = claimed.wholeDevice();
    answer.partition = claimed.number();
    for (const PartitionPath& partition : kernel.partitions()) {
        answer.partitions.push_back(
            {partition.number, claimed.module()->appendPartitionSuffix(claimed.path(), partition.number)});
    }
    return answer;
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
        const bool partition = kernel.partition() != 0;
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
        if (library.stack == kernel.stack()) {
            return;
        }
        const bool otherName = kernel.exists() && kernel.path() != device.path;
        add(Question::claim, library.stack, kernel.description() + (otherName ? ", " + kernel.path() : ""));
    }

    void compareNumber()
    {
        const std::string other = kernel.otherNumberAt(device.path);
        if (!other.empty()) {
            add(Question::number, other, kernel.number());
        }
    }

    void compareWholeDevice()
    {
        const std::string expected = kernel.partition() != 0 ? kernel.wholeDevice() : device.path;
        if (library.partition != kernel.partition() || !kernel.sameDevice(library.wholeDevice, expected)) {
            add(Question::whole, wholeAndNumber(library.wholeDevice, library.partition),
                wholeAndNumber(expected, kernel.partition()));
        }
    }

    void comparePartitions()
    {
        const std::vector<PartitionPath> partitions = kernel.partitions();
        for (std::size_t i = 0; i < partitions.size(); ++i) {
            const PartitionPath& real = partitions[i];
            if (!kernel.sameDevice(library.partitions[i].path, real.path)) {
                add(Question::partition, library.partitions[i].path, real.path, real.number);
            }
        }
    }

    AuditedDevice& device;
    const LibraryAnswer& library = device.library;
    const KernelTruth& kernel = device.kernel;
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

AuditedDevice audited(const kivclaim::ClaimAnswer& answer, const KernelTruth& kernel)
{
    AuditedDevice device;
    device.path = answer.path();
    device.kernel = kernel;
    device.library = libraryAnswer(answer, device.kernel);
    Comparison(device).compare();
    return device;
}

std::string description(const LibraryAnswer& answer)
{
    return answer.stack +
           (answer.isPartition ? ", partition " + std::to_string(answer.partition) + " of " + answer.wholeDevice : "");
}

}  // namespace kivclaim::tools
