// The disk tool of the volume manager for tests:
//     ztdisk scandisks [device=DISK,DISK...]     finds lost nodes again: those of the disks, or all
//     ztdisk rm NODE                             loses a node
#include "tests/volume_manager/volume_manager.h"

#include <algorithm>

using volume_manager::Answer;
using volume_manager::Path;
using volume_manager::State;

namespace {

constexpr char deviceArgument[] = "device=";

bool covers(const std::string& argument, const std::string& disk)
{
    const std::string start = deviceArgument;
    if (argument.empty()) {
        return true;
    }
    const std::string disks = "," + argument.substr(std::min(start.size(), argument.size())) + ",";
    return argument.compare(0, start.size(), start) == 0 && disks.find("," + disk + ",") != std::string::npos;
}

Answer scanDisks(State& state, const std::string& argument)
{
    for (const Path& path : state.allPaths()) {
        if (covers(argument, path.disk)) {
            state.find(path.node);
        }
    }
    return {};
}

Answer removeNode(State& state, const std::string& node)
{
    const std::vector<Path> paths = state.paths();
    Answer answer;
    if (std::any_of(paths.begin(), paths.end(), [&](const Path& path) { return path.node == node; })) {
        state.lose(node);
    } else {
        answer.error = "no node is named [" + node + "]\n";
        answer.exitCode = 1;
    }
    return answer;
}

}  // namespace

int main(int argc, char** argv)
{
    return volume_manager::play(argc, argv, {{"scandisks", scanDisks}, {"rm", removeNode}});
}
