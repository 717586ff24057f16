// What the kernel says of a process, for tests: read apart from the runner's own look, which they judge.
#ifndef KIVCLAIM_TESTS_PROCESS_STATUS_H
#define KIVCLAIM_TESTS_PROCESS_STATUS_H

#include <fstream>
#include <string>

// A field of /proc/PROCESS/status, such as "PPid"; empty when there is no such process or field.
inline std::string processStatus(const std::string& process, const std::string& field)
{
    const std::string label = field + ":\t";
    std::ifstream status("/proc/" + process + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.compare(0, label.size(), label) == 0) {
            return line.substr(label.size());
        }
    }
    return "";
}

// Whether the process is there and no zombie.
inline bool isRunning(const std::string& process)
{
    const std::string state = processStatus(process, "State");
    return !state.empty() && state.front() != 'Z';
}

#endif
