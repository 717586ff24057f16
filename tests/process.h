// Runs a program as a process and collects its output and status.
#ifndef KIVCLAIM_TESTS_PROCESS_H
#define KIVCLAIM_TESTS_PROCESS_H

#include <sys/types.h>

#include <string>
#include <utility>
#include <vector>

namespace tests {

struct Ended {
    std::string output;
    std::string errors;
    int status = -1;  // the exit status; -1 when a signal ended the process
    int signal = 0;
};

class Process {
public:
    Process(std::string program, std::vector<std::string> arguments);
    ~Process();
    Process(Process&& notYetStarted) = default;
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    // How to run it; call these before start().
    Process& reads(std::string text);
    Process& readsFile(const std::string& path);
    Process& writesFile(const std::string& path);
    Process& environment(const std::string& name, const std::string& value);
    // The process, and the programs that it starts, see `folder` at `path`; other processes do not. It needs no
    // privileges: tests/seen_paths is preloaded.
    Process& sees(const std::string& folder, const std::string& path);

    // Runs it to its end.
    Ended run();

    // Step by step.
    void start();
    void write(const std::string& text) const;
    void writeIgnoringClosedPipe(const std::string& text) const;
    std::string readLine();
    // Waits until standard error contains `text`.
    void awaitError(const std::string& text);
    void closeOutput();
    void signal(int number) const;
    // The running process's peak memory so far.
    long peakKilobytes() const;
    Ended finish();
    pid_t pid() const { return child; }

private:
    void drain(Ended& ended);

    std::string program;
    std::vector<std::string> arguments;
    std::vector<std::pair<std::string, std::string>> variables;
    std::vector<std::pair<std::string, std::string>> seenPaths;
    std::string input;
    std::string inputFile;
    std::string outputFile;
    pid_t child = -1;
    int toInput = -1;
    int fromOutput = -1;
    int fromErrors = -1;
    std::string pendingOutput;
    std::string pendingErrors;
};

// A temporary directory, removed with the object.
class TemporaryFolder {
public:
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    const std::string& path() const { return folder; }
    // Puts a shell script there, for a Process that sees this directory.
    void addScript(const std::string& name, const std::string& body) const;
    void addFile(const std::string& name, const std::string& content) const;
    std::string contentOf(const std::string& name) const;

private:
    std::string folder;
};

}  // namespace tests

#endif
