#include "host/command_snapshot.h"

#include "host/runner/snapshot_place.h"

#include <unordered_map>

namespace kivclaim::host {

using host_internal::SnapshotPlace;

// The open scopes of a thread form a chain, innermost first.
class CommandSnapshot::Scope {
public:
    explicit Scope(const std::vector<std::string>& commands) : outer(innermost)
    {
        for (const std::string& command : commands) {
            places[command];
        }
        innermost = this;
    }
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;

    // Not only the innermost one may go: two snapshots need not be destroyed in the reverse order of their making.
    ~Scope()
    {
        Scope** link = &innermost;
        while (*link != this) {
            link = &(*link)->outer;
        }
        *link = outer;
    }

    static SnapshotPlace* find(const std::string& command)
    {
        for (Scope* scope = innermost; scope != nullptr; scope = scope->outer) {
            const auto place = scope->places.find(command);
            if (place != scope->places.end()) {
                return &place->second;
            }
        }
        return nullptr;
    }

private:
    static thread_local Scope* innermost;

    Scope* outer;
    std::unordered_map<std::string, SnapshotPlace> places;
};

thread_local CommandSnapshot::Scope* CommandSnapshot::Scope::innermost = nullptr;

// Lets the runner at the scopes without showing them to anybody else.
struct SnapshotAccess {
    static SnapshotPlace* find(const std::string& command) { return CommandSnapshot::Scope::find(command); }
};

CommandSnapshot::CommandSnapshot(const std::vector<std::string>& commands) : scope(std::make_unique<Scope>(commands))
{
}

CommandSnapshot::~CommandSnapshot() = default;

}  // namespace kivclaim::host

kivclaim::host_internal::SnapshotPlace* kivclaim::host_internal::snapshotPlaceOf(const std::string& command)
{
    return host::SnapshotAccess::find(command);
}
