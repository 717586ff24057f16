// The multipathing tool of the volume manager for tests:
//     ztkivadm getkivnode nodename=DISK          the node of a disk
//     ztkivadm getsubpaths kivnodename=NODE      the paths of a node
#include "tests/volume_manager/volume_manager.h"

#include <algorithm>

using volume_manager::Answer;
using volume_manager::Path;
using volume_manager::State;
using volume_manager::table;
using volume_manager::Words;

namespace {

// The text after "key=" in the argument; empty for another argument.
std::string valueOf(const std::string& argument, const std::string& key)
{
    const std::string start = key + "=";
    return argument.compare(0, start.size(), start) == 0 ? argument.substr(start.size()) : "";
}

Answer failure(const std::string& error)
{
    Answer answer;
    answer.error = error + "\n";
    answer.exitCode = 1;
    return answer;
}

Answer getNode(const State& state, const std::string& argument)
{
    const std::string disk = valueOf(argument, "nodename");
    const std::vector<Path> paths = state.paths();
    const auto owner = std::find_if(paths.begin(), paths.end(), [&](const Path& path) { return path.disk == disk; });
    if (owner == paths.end()) {
        return failure("no node has a path [" + disk + "]");
    }
    const auto count = std::count_if(paths.begin(), paths.end(), [&](const Path& p) { return p.node == owner->node; });
    Answer answer;
    answer.output = table({"NAME", "STATE", "PATHS"}, {{owner->node, "ENABLED", std::to_string(count)}});
    return answer;
}

Answer getPaths(const State& state, const std::string& argument)
{
    const std::string node = valueOf(argument, "kivnodename");
    std::vector<Words> rows;
    for (const Path& path : state.paths()) {
        if (path.node == node) {
            rows.push_back({path.disk, path.state, path.type, path.node});
        }
    }
    if (rows.empty()) {
        return failure("no node is named [" + node + "]");
    }
    Answer answer;
    answer.output = table({"NAME", "STATE", "TYPE", "NODE"}, rows);
    return answer;
}

}  // namespace

int main(int argc, char** argv)
{
    return volume_manager::play(argc, argv, {{"getkivnode", getNode}, {"getsubpaths", getPaths}});
}
