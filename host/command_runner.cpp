#include "host/command_runner.h"

#include "host/cancellation_hold.h"
#include "host/runner/governor.h"
#include "host/runner/replayed_run.h"
#include "host/runner/thread_scopes.h"

#include <utility>

namespace kivclaim::host {

using host_internal::CommandResult;
using host_internal::Governor;
using host_internal::RunLimits;
using Scopes = host_internal::ThreadScopes<std::shared_ptr<Governor>>;

class CommandRunner::State : public Governor {
public:
    using Governor::Governor;
};

class CommandRunnerScope::Scope {
public:
    explicit Scope(std::shared_ptr<Governor> governor) : opened(Scopes::open(std::move(governor))) {}
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;
    ~Scope() { Scopes::close(opened); }

private:
    std::shared_ptr<Scopes::Scope> opened;
};

namespace {

std::string joined(const std::vector<std::string>& words)
{
    std::string text;
    for (const std::string& word : words) {
        text += text.empty() ? word : " " + word;
    }
    return text;
}

RunOutcome outcomeOf(Governor& governor, const std::vector<std::string>& words)
{
    RunOutcome outcome;
    const std::string command = joined(words);
    CommandResult result = governor.run(command, std::chrono::milliseconds(0), [&](const RunLimits& limits) {
        std::optional<CommandResult> replayed = host_internal::replayed(command, outcome.lines);
        return replayed ? *std::move(replayed) : runWords(words, command, limits, outcome.lines);
    });
    if (!result.hasRun) {
        throw std::move(result.failure);
    }
    outcome.result = result.result;
    outcome.failure = std::move(result.failure);
    return outcome;
}

}  // namespace

CommandRunner::CommandRunner(const CommandLimits& limits) : state(std::make_shared<State>(limits))
{
}

CommandRunner::~CommandRunner() = default;

RunOutcome CommandRunner::run(const std::vector<std::string>& words)
{
    const std::shared_ptr<Governor> governor = state;
    return host_internal::withoutCancellation([&] { return outcomeOf(*governor, words); });
}

void CommandRunner::cancel() noexcept
{
    state->cancel();
}

bool CommandRunner::isCancelled() const noexcept
{
    return state->isCancelled();
}

std::vector<RunningCommand> CommandRunner::running() const
{
    return state->running();
}

CommandRunnerScope::CommandRunnerScope(const CommandRunner& runner) : scope(std::make_unique<Scope>(runner.state))
{
}

CommandRunnerScope::~CommandRunnerScope() = default;

}  // namespace kivclaim::host

std::shared_ptr<kivclaim::host_internal::Governor> kivclaim::host_internal::governorOfThread()
{
    const auto scope = host::Scopes::find([](const auto&) { return true; });
    return scope == nullptr ? nullptr : scope->state;
}
