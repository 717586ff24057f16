#include "host/command_snapshot.h"

#include "host/runner/snapshot_place.h"
#include "host/runner/thread_scopes.h"

#include <unordered_map>

namespace kivclaim::host {

using host_internal::SnapshotPlace;
using Places = std::unordered_map<std::string, SnapshotPlace>;
using Scopes = host_internal::ThreadScopes<Places>;

class CommandSnapshot::Scope {
public:
    explicit Scope(Places places) : opened(Scopes::open(std::move(places))) {}
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;
    ~Scope() { Scopes::close(opened); }

private:
    std::shared_ptr<Scopes::Scope> opened;
};

namespace {

Places placesFor(const std::vector<std::string>& commands)
{
    Places places;
    for (const std::string& command : commands) {
        places[command];
    }
    return places;
}

}  // namespace

CommandSnapshot::CommandSnapshot(const std::vector<std::string>& commands)
    : scope(std::make_unique<Scope>(placesFor(commands)))
{
}

CommandSnapshot::~CommandSnapshot() = default;

}  // namespace kivclaim::host

std::shared_ptr<kivclaim::host_internal::SnapshotPlace> kivclaim::host_internal::snapshotPlaceOf(
    const std::string& command)
{
    const auto scope =
        host::Scopes::find([&](const host::Places& places) { return places.find(command) != places.end(); });
    if (scope == nullptr) {
        return nullptr;
    }
    return {scope, &scope->state.at(command)};
}
