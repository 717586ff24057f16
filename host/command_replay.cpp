#include "host/command_replay.h"

#include "host/runner/line_collector.h"
#include "host/runner/replayed_run.h"
#include "host/runner/thread_scopes.h"

#include <utility>

namespace kivclaim::host {

namespace {

struct Replayed {
    CommandReplay::Recorded outcomeOf;
};
using Scopes = host_internal::ThreadScopes<Replayed>;

void appendLines(const std::string& bytes, std::vector<std::string>& output)
{
    host_internal::LinesUntilKept kept(output);
    host_internal::LineCollector lines(output);
    lines.add(bytes.data(), bytes.size());
    lines.finish();
    kept.keep();
}

}  // namespace

class CommandReplay::Scope {
public:
    explicit Scope(Recorded recorded) : opened(Scopes::open({std::move(recorded)})) {}
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;
    ~Scope() { Scopes::close(opened); }

private:
    std::shared_ptr<Scopes::Scope> opened;
};

CommandReplay::CommandReplay(Recorded recorded) : scope(std::make_unique<Scope>(std::move(recorded)))
{
}

CommandReplay::~CommandReplay() = default;

}  // namespace kivclaim::host

namespace kivclaim::host_internal {

std::optional<CommandResult> replayed(const std::string& command, std::vector<std::string>& output)
{
    // Held until the function returns, because `outcomeOf` may close the replay.
    const auto replay = host::Scopes::find([](const host::Replayed&) { return true; });
    if (replay == nullptr) {
        return std::nullopt;
    }
    const std::optional<host::CommandOutcome> outcome = replay->state.outcomeOf(command);
    if (!outcome) {
        return resultOfMissing(command);
    }
    host::appendLines(outcome->output, output);
    return resultOfEnded(command, outcome->exitStatus, outcome->signal, outcome->errors);
}

CommandResult runOrReplay(const std::string& command, const RunLimits& limits, std::vector<std::string>& output)
{
    std::optional<CommandResult> result = replayed(command, output);
    return result ? *std::move(result) : runCommand(command, limits, output);
}

}  // namespace kivclaim::host_internal
