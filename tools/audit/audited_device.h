// Compares the library's answers about one device with the kernel's.
#ifndef KIVCLAIM_TOOLS_AUDIT_AUDITED_DEVICE_H
#define KIVCLAIM_TOOLS_AUDIT_AUDITED_DEVICE_H

#include "claim/kiv_claim_query.h"
#include "tools/audit/kernel_truth.h"
#include "tools/unsure.h"

#include <string>
#include <vector>

namespace kivclaim::tools {

// What the library answers about a device. Beyond level and stack only for a claimed one.
struct LibraryAnswer {
    unsigned int level = 0;
    std::string stack;  // by the names of tools/stack_table.h
    bool isPartition = false;
    std::string wholeDevice;
    unsigned int partition = 0;             // the number that comes with wholeDevice
    std::vector<PartitionPath> partitions;  // the path that it gives each partition known to the kernel
};

// The first four are named after the commands that ask the same.
enum class Question {
    claim,
    isPartition,
    whole,
    partition,
    number  // has the node of the device's name the device's number?
};

const char* name(Question question);

// One answer of the library that differs from the kernel's.
struct Difference {
    Question question = Question::claim;
    unsigned int partition = 0;  // for Question::partition: which one
    std::string library;
    std::string kernel;
    std::string quirk;   // its name in docs/quirks.md; empty: no known quirk explains it
    std::string reason;  // one line
};

struct AuditedDevice {
    std::string path;  // as it was asked
    LibraryAnswer library;
    KernelTruth kernel;
    std::vector<Difference> differences;
    Doubt doubt;  // why the answers, or the kernel's, may be wrong
};

// Compares the complete answer with what the kernel says, and asks its module about the partitions that the kernel
// knows; explains nothing yet.
AuditedDevice audited(const kivclaim::ClaimAnswer& answer, const KernelTruth& kernel);

// What the library answers, in a few words.
std::string description(const LibraryAnswer& answer);

}  // namespace kivclaim::tools

#endif
