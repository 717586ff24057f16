// A mock volume manager: the common part of `ztkivadm` and `ztdisk`. Its disks and its behaviour are the lines of the
// text file that the environment variable KIVCLAIM_VM_STATE names:
//
//     path NODE DISK STATE TYPE          a path of a node; a later line for the same node and disk replaces an earlier
//     lost NODE                          the node is unknown until a scan that covers one of its disks
//     fail COMMAND CODE [TEXT...]        prints the text, if any, and exits with the code; nothing is carried out
//     hang COMMAND                       prints its answer, then never ends
//     warn COMMAND TEXT...               prints the text before its answer
//     garbage COMMAND TEXT...            prints the text instead of its answer
//     once LINE                          LINE for the next command that it applies to; then the line disappears
//     then LINE                          becomes LINE after the next command, one such line for each command
//     # TEXT                             a comment
//
// COMMAND is getkivnode, getsubpaths, scandisks, rm, or * for all of them.
#ifndef KIVCLAIM_TESTS_VOLUME_MANAGER_VOLUME_MANAGER_H
#define KIVCLAIM_TESTS_VOLUME_MANAGER_VOLUME_MANAGER_H

#include <functional>
#include <map>
#include <string>
#include <vector>

namespace volume_manager {

using Words = std::vector<std::string>;

struct Path {
    std::string node;
    std::string disk;
    std::string state;
    std::string type;
};

// The output of a command and its exit code.
struct Answer {
    std::string output;
    std::string error;
    int exitCode = 0;
    bool hangs = false;
};

// The lines of the state file, in their order.
class State {
public:
    std::vector<Words> lines;

    // The paths of all nodes that are not lost.
    std::vector<Path> paths() const;
    // The same including the lost nodes.
    std::vector<Path> allPaths() const;
    bool isLost(const std::string& node) const;
    void lose(const std::string& node);
    void find(const std::string& node);
};

using Command = std::function<Answer(State&, const std::string& argument)>;

// A table as the tools print it: a header line, a rule, one line for each row, columns aligned with blanks.
std::string table(const Words& header, const std::vector<Words>& rows);

// Runs the command that argv names: reads the state, answers as the behaviour lines say, writes the state back, prints.
// Returns the exit code.
int play(int argc, char** argv, const std::map<std::string, Command>& commands);

}  // namespace volume_manager

#endif
