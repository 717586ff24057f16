#include "tools/listing/asked_device.h"

#include "tools/exit_status.h"
#include "tools/listing/marks.h"
#include "tools/stack_table.h"

#include <algorithm>

namespace kivclaim::tools {

namespace {

SessionOptions withKnown(SessionOptions options, const kivclaim::machine::Machine& machine)
{
    options.known = &machine;
    return options;
}

}  // namespace

DeviceQuestions::DeviceQuestions(const SessionOptions& options, const kivclaim::machine::Machine& machine,
                                 bool withMarks)
    : machine(machine),
      options(withKnown(options, machine)),
      session(this->options),
      keepsList(!options.noSnapshot),
      withMarks(withMarks)
{
    query.emplace(session.manager);
}

DeviceAnswer DeviceQuestions::ask(const kivclaim::machine::Device& device)
{
    if (!keepsList) {
        query.emplace(session.manager);
    }
    const std::string path(device.node);
    const kivclaim::ClaimAnswer claimed = query->ask(path, kivclaim::ClaimFacts::isPartition);
    if (claimed.basis() == kivclaim::ClaimBasis::threw) {
        throw CommandError("asking about " + path + ": " + claimed.whyUnsure() +
                           (claimed.message().empty() ? "" : " (" + claimed.message() + ")") +
                           "; leave out --module to ask the built-in ones alone");
    }
    DeviceAnswer answer;
    answer.stack = claimed.stack();
    answer.level = claimed.level();
    answer.isPartition = claimed.isPartition();
    if (answer.isPartition) {
        answer.wholeDevice = claimed.module()->removePartitionSuffix(path, answer.number);
    }
    answer.doubt = doubtAbout(claimed, session);
    if (answer.doubt.isThere()) {
        if (!withoutVolumes) {
            withoutVolumes = isWithoutVolumes(claimed.listing(), machine, session);
        }
        if (*withoutVolumes) {
            answer.doubt = {};
        }
    }
    if (withMarks) {
        answer.marks = marksOf(claimed, answer, device, machine);
    }
    return answer;
}

std::vector<std::string> DeviceQuestions::stacks() const
{
    std::vector<std::string> names;
    for (const Stack* const stack : stackTable) {
        names.emplace_back(stack->name);
    }
    for (const CKivDeviceClaimBase* const module : session.manager.claimModules()) {
        const std::string name = kivclaim::stackName(module);
        if (std::find(names.begin(), names.end(), name) == names.end()) {
            names.push_back(name);
        }
    }
    names.emplace_back(noStack);
    return names;
}

}  // namespace kivclaim::tools
