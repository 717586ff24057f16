// Facts about a process from /proc, for tests. They do not use the runner's own code, because they test it.
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

// Whether the process exists and is not a zombie.
inline bool isRunning(const std::string& process)
{
    const std::string state = processStatus(process, "State");
    return !state.empty() && state.front() != 'Z';
}

#endif
