// The test kit: a mock host, for tests of programs and modules that use kivclaim. It needs neither root nor a preload.
//
// One host for all scenarios: it replaces the host framework (trace log, command runner, string tools) and the C
// library's functions that the claim library calls, and records each effect as one line of text, in order:
//
//     6 Entering Function claim [60, kiv_linux_device_mapper_claim.cpp]     a record, after its level
//     run [/sbin/lvdisplay]                                                 a command
//     uname                                                                 the C library's calls
//     open /dev/sdb: yes
//     close /dev/sdb
//     access /usr/sbin/ztkivadm: no
//     sleep 5
//
// Link kivclaim::testkit (pkg-config: kivclaim_testkit), and no other host framework, neither your own nor the bundled
// one: the operations are in the test program, and the loader binds the claim library to them. A command without a
// script, a script that was not used and a descriptor that stays open fail the test, see onFailure.
//
// Threads: use the host and everything it replaces on one thread. While it exists, it gets these calls of the whole
// program: to open files of your own meanwhile, use streams, which do not go through it.
// Ownership: the host owns its log and lends it. Failure: see above; std::bad_alloc.
#ifndef KIVCLAIM_TESTKIT_RECORDING_HOST_H
#define KIVCLAIM_TESTKIT_RECORDING_HOST_H

#include "framework/cfiexecpipe.h"
#include "framework/cfitracelog.h"

#include <cerrno>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace kivclaim::testkit {

// Lines of text: printed by a command, recorded, or expected.
using Lines = std::vector<std::string>;
// A trace log, counted for as long as the pointer holds it.
using LogPointer = ztfi_pdk_4_4::CFiSmartPtr<ztfi_pdk_4_4::CFiTraceLog>;

// A literal list of lines.
inline Lines lines(std::initializer_list<const char*> texts)
{
    return {texts.begin(), texts.end()};
}

// Sets the handler of failures. Without one, a failure is printed on standard error and the program is aborted. With
// GoogleTest:
//
//     kivclaim::testkit::onFailure([](const std::string& what) { ADD_FAILURE() << what; });
void onFailure(std::function<void(const std::string& what)> handler);

// Reports a failure, as the kit itself does.
void fail(const std::string& what);

// The output of lvdisplay for these volumes, each a volume group and a name: for Host::prints("/sbin/lvdisplay", ...).
Lines volumeListing(const std::vector<std::pair<std::string, std::string>>& volumes);

// The output of the volume manager's tool: its two heading lines and these rows, such as "sdd ENABLED(A) PRIMARY".
// Script the commands exactly as they are in the records "ExecuteCommand command: ...".
Lines volumeManagerTable(const Lines& rows);

// The script of one command.
struct Script {
    std::string command;            // exactly as the library gives it to Exec
    Lines output;                   // of the command
    int result = 0;                 // of Exec
    std::int64_t waitStatus = 0;    // of a failure
    std::function<void()> thrower;  // called after the output, if set
    int timesLeft = 1;              // how often it must still be run
    std::string message;            // of the failure's record

    // Sets the message of the failure.
    Script& says(const std::string& text)
    {
        message = text;
        return *this;
    }
    // Sets how often the command is run.
    Script& times(int count)
    {
        timesLeft = count;
        return *this;
    }
};

class RecordingLog;

// The mock host, see the top of this header: its behaviour is scripted, and effects are recorded.
class Host {
public:
    // It replaces the functions while it exists; one at a time.
    Host();
    ~Host();
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;
    // The host that exists now, or null.
    static Host* current();

    // The host's trace log. The host holds one reference; `logCount` is the number of all holders.
    const LogPointer& log() const { return heldLog; }
    // The number of the log's holders.
    unsigned int logCount() const;
    // Another log, whose records appear as "NAME: level text".
    LogPointer anotherLog(const std::string& name);

    // All effects so far.
    const Lines& effects() const { return written; }
    // The texts of the records of one level.
    Lines trace(int level) const;
    // All effects but the entry and exit records.
    Lines effectsInside() const;
    // All effects, with "[FILE]" for "[LINE, FILE]" in the entry and exit records.
    Lines effectsWithoutLineNumbers() const;
    // All effects but records.
    Lines calls() const;
    // Clears the effects so far.
    void forget() { written.clear(); }
    // Removes the scripts that were not used.
    void dropScripts() { scripts.clear(); }

    // A command that succeeds. The command line must match exactly; several scripts of one command line are used in
    // order.
    Script& prints(const std::string& command, const Lines& output);
    // A command that fails: the result of Exec, and the raw wait status, such as 5 << 8 for exit status 5.
    Script& fails(const std::string& command, int result, std::int64_t waitStatus, const Lines& output);
    // A command for which the runner throws what `thrower` throws.
    Script& throws(const std::string& command, std::function<void()> thrower, const Lines& output = {});

    // The kernel release that uname returns; 6.1.0 by default.
    void kernelRelease(const std::string& release) { release_ = release; }
    // A node that can be opened.
    void device(const std::string& path) { devices.insert(path); }
    // A program that is installed.
    void executable(const std::string& path) { executables.insert(path); }

    // Faults. Each record whose text begins with `text` throws std::runtime_error("trace failed"), or calls `thrower`
    // instead.
    void failsTracing(const std::string& text, std::function<void()> thrower = {})
    {
        failingRecord = text;
        recordThrower = std::move(thrower);
    }
    // The value that a search without a hit leaves in the line index; by contract it is not changed.
    std::optional<unsigned long> indexAfterMiss;
    // Called by the constructor of the command runner, when set.
    std::function<void()> onRunner;
    // The results of the next calls of sleep; a call that is not listed sleeps its whole time. Only such a call leaves
    // errno as it is.
    std::vector<unsigned int> leftOverByPauses;
    // The value of errno after such a call, and after one that a signal cuts short.
    int errnoOfPauses = EINTR;
    // A signal that arrives so many milliseconds after the beginning of each pause, on the host's own clock, which only
    // pauses advance; sleep returns the rest cut to whole seconds, as the real one does. 0: no signal.
    long signalMilliseconds = 0;
    // That clock.
    long clockMilliseconds = 0;
    // uname fails and writes nothing.
    bool unameFails = false;
    // The descriptor of the first node that is opened.
    int firstDescriptor = 100000;
    // The error of every open, instead of the truth.
    int openError = 0;
    // Every search reports a hit at the beginning of this line, whatever the line contains.
    std::string falseHit;
    // The line that a search with a hit reports, instead of the right one.
    std::optional<unsigned long> indexAfterHit;
    // Accepts any time limit of a command, instead of 600 seconds only; `limitGiven` is that of the last one.
    bool acceptsAnyLimit = false;
    // See acceptsAnyLimit.
    unsigned long limitGiven = 0;
    // Called by each search through lines, when set.
    std::function<void()> onSearch;
    // Called before each record is recorded.
    std::function<void()> onTrace;

    // The replaced functions call the following ones.
    void write(const std::string& line) { written.push_back(line); }
    // A record.
    void traced(const RecordingLog& log, int level, const std::string& text);
    // A command.
    int run(const std::string& command, Lines& output, ztfi_pdk_4_4::EFiExecPipe& lastFailure);
    // The limit of a command.
    static void noteLimit(unsigned long seconds);
    // The kernel's release.
    const std::string& release() const { return release_; }
    // Whether there is such a node.
    bool hasDevice(const std::string& path) const { return devices.count(path) != 0; }
    // Whether there is such a program.
    bool hasExecutable(const std::string& path) const { return executables.count(path) != 0; }
    // A descriptor for it.
    int openDescriptor(const std::string& path);
    // False for one that is not the host's.
    bool closeDescriptor(int descriptor);

private:
    Script& script(Script script);

    LogPointer heldLog;
    RecordingLog* rawLog;
    Lines written;
    std::vector<std::unique_ptr<Script>> scripts;
    std::string release_ = "6.1.0";
    std::set<std::string> devices;
    std::set<std::string> executables;
    std::vector<std::string> openPaths;
    std::string failingRecord;
    std::function<void()> recordThrower;
};

// The trace log of this host.
class RecordingLog : public ztfi_pdk_4_4::CFiTraceLog {
public:
    // Its records begin with this name.
    explicit RecordingLog(std::string start) : name(std::move(start)) {}
    ~RecordingLog() override { ++destroyed; }

    std::string name;      // empty for the host's own
    static int destroyed;  // how many logs have been deleted so far
};

// While it exists, locking a framework mutex fails on this thread; the next `successes` calls still work.
class FailingLocks {
public:
    // From now on.
    explicit FailingLocks(int successes = 0);
    ~FailingLocks();
};

// While it exists, locking a framework mutex fails once on this thread, after the next `successes` calls.
class OneFailingLock {
public:
    // From now on.
    explicit OneFailingLock(int successes);
    ~OneFailingLock();
    // Whether that call has been made.
    static bool hasFailed();
};

// Makes the linker take the C library's functions out of the kit's archive; each host calls it.
void playCalls();

// The number of framework mutexes that this thread holds now.
int locksHeld();

// While it exists, this thread is inside one of the replaced functions: its effects there are not recorded.
class InsideHost {
public:
    InsideHost();
    ~InsideHost();
    InsideHost(const InsideHost&) = delete;
    InsideHost& operator=(const InsideHost&) = delete;
    // Whether one exists on this thread.
    static bool isHere();
};

}  // namespace kivclaim::testkit

#endif
