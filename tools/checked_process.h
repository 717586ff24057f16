// Processes that run the code of checked files.
#ifndef KIVCLAIM_TOOLS_CHECKED_PROCESS_H
#define KIVCLAIM_TOOLS_CHECKED_PROCESS_H

#include <string>
#include <utility>
#include <vector>

namespace kivclaim::tools {

constexpr int checkReportDescriptor = 3;  // where a checked process writes what it found

struct CheckedProcess {
    std::string program;
    std::vector<std::string> arguments;
    std::vector<std::pair<std::string, std::string>> variables;  // besides those of this process
    bool reportsOnStandardError = false;  // its standard error and standard output are part of the report
    std::string shownAs{};                // what the user is told to wait for
    int seconds = 60;                     // how long it may take; then it is killed, with its group
};

struct CheckedEnd {
    std::string report;
    std::string ending;  // how it ended otherwise than with status 0, after "it": "was ended by signal 11"; else empty
};

// Runs it to its end, whoever else keeps the report open. Its standard input is empty; its standard output is this
// process's standard error. A signal that ends the command ends it too. Throws CommandError when it cannot be started.
CheckedEnd run(const CheckedProcess& process);

}  // namespace kivclaim::tools

#endif
