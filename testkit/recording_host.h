// The test kit: a host that is played, for tests of programs and modules that use kivclaim. No root, no preload.
//
// One host for all scenarios: it plays the host framework (trace log, command runner, string tools) and the C
// library's calls that the claim library makes, and writes down each effect as one line of text, in order:
//
//     6 Entering Function claim [60, kiv_linux_device_mapper_claim.cpp]     a record, after its level
//     run [/sbin/lvdisplay]                                                 a command
//     uname                                                                 the C library's calls
//     open /dev/sdb: yes
//     close /dev/sdb
//     access /usr/sbin/ztkivadm: no
//     sleep 5
//
// Link kivclaim::testkit (pkg-config: kivclaim_testkit), and neither a host framework of your own nor the bundled one:
// the operations are in the test program, and the claim library takes them from there when it is loaded. A command that
// no script covers, a script that nobody used and a descriptor that stays open fail the test, see onFailure.
//
// Threads: the host, and what it plays, belong to one. While it plays, the calls of the whole program go to it: a
// program that opens files of its own meanwhile does so through streams, which do not pass here.
// Ownership: the host lends its log. Failure: as said above; std::bad_alloc.
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

// What is printed, recorded and compared.
using Lines = std::vector<std::string>;
// A trace log, counted for as long as the pointer holds it.
using LogPointer = ztfi_pdk_4_4::CFiSmartPtr<ztfi_pdk_4_4::CFiTraceLog>;

// A literal list of lines.
inline Lines lines(std::initializer_list<const char*> texts)
{
    return {texts.begin(), texts.end()};
}

// Who hears what was wrong. Without a handler, it is written on standard error and the program is aborted. With
// GoogleTest:
//
//     kivclaim::testkit::onFailure([](const std::string& what) { ADD_FAILURE() << what; });
void onFailure(std::function<void(const std::string& what)> handler);

// Fails the test, as the kit itself does.
void fail(const std::string& what);

// What lvdisplay prints about volumes, each a volume group and a name: for Host::prints("/sbin/lvdisplay", ...).
Lines volumeListing(const std::vector<std::pair<std::string, std::string>>& volumes);

// What the volume manager's tool prints: its two heading lines and these rows, such as "sdd ENABLED(A) PRIMARY". The
// commands are those of the records "ExecuteCommand command: ...", to the letter.
Lines volumeManagerTable(const Lines& rows);

// What one scripted command does.
struct Script {
    std::string command;            // to the letter
    Lines output;                   // of the command
    int result = 0;                 // of Exec
    std::int64_t waitStatus = 0;    // of a failure
    std::function<void()> thrower;  // called behind the output, when set
    int timesLeft = 1;              // how often it is still to be run
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

// The host that plays, see the head of this header: what it does is scripted, what happens is written down.
class Host {
public:
    // It plays while it lives; one at a time.
    Host();
    ~Host();
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;
    // The host that plays now, or null.
    static Host* current();

    // The host's trace log. The host holds one reference; `logCount` is the number of all holders.
    const LogPointer& log() const { return heldLog; }
    // How many hold the log.
    unsigned int logCount() const;
    // A further log, whose records are written down as "NAME: level text".
    LogPointer anotherLog(const std::string& name);

    // What happened so far.
    const Lines& effects() const { return written; }
    // The texts of the records of one level.
    Lines trace(int level) const;
    // All effects but the entry and exit records.
    Lines effectsInside() const;
    // All effects, with "[FILE]" for "[LINE, FILE]" in the entry and exit records.
    Lines effectsWithoutLineNumbers() const;
    // All effects but records.
    Lines calls() const;
    // Forgets what happened so far.
    void forget() { written.clear(); }
    // Takes the scripts back that nobody used.
    void dropScripts() { scripts.clear(); }

    // A command that succeeds. A command line is taken to the letter; scripts of one command line are used up in order.
    Script& prints(const std::string& command, const Lines& output);
    // A command that fails: the result of Exec, and the raw wait status, such as 5 << 8 for exit status 5.
    Script& fails(const std::string& command, int result, std::int64_t waitStatus, const Lines& output);
    // A command for which the runner throws what `thrower` throws.
    Script& throws(const std::string& command, std::function<void()> thrower, const Lines& output = {});

    // What uname tells; without it, 6.1.0.
    void kernelRelease(const std::string& release) { release_ = release; }
    // A node that can be opened.
    void device(const std::string& path) { devices.insert(path); }
    // A program that is installed.
    void executable(const std::string& path) { executables.insert(path); }

    // Accidents. Each record whose text begins with `text` throws std::runtime_error("trace failed"), or whatever
    // `thrower` throws.
    void failsTracing(const std::string& text, std::function<void()> thrower = {})
    {
        failingRecord = text;
        recordThrower = std::move(thrower);
    }
    // What a search without a hit leaves in the line index; the contract is to leave it alone.
    std::optional<unsigned long> indexAfterMiss;
    // Called by the constructor of the command runner, when set.
    std::function<void()> onRunner;
    // What the next pauses leave over; a pause that is not listed ends by itself. Only such a pause leaves errno alone.
    std::vector<unsigned int> leftOverByPauses;
    // What errno is after such a pause, and after one that a signal cuts short.
    int errnoOfPauses = EINTR;
    // A signal that arrives so many milliseconds after the beginning of each pause, on a clock of the host's own that
    // pauses alone move on; what a pause leaves over is cut to whole seconds, as sleep() does. 0: no signal.
    long signalMilliseconds = 0;
    // That clock.
    long clockMilliseconds = 0;
    // uname fails and writes nothing.
    bool unameFails = false;
    // The descriptor of the first node that is opened.
    int firstDescriptor = 100000;
    // The error of every open, instead of the truth.
    int openError = 0;
    // A line that every search claims to contain its text, at its beginning, whatever it contains.
    std::string falseHit;
    // Where a search with a hit says that the hit is, instead of the truth.
    std::optional<unsigned long> indexAfterHit;
    // Accepts any time limit of a command, instead of 600 seconds only; `limitGiven` is that of the last one.
    bool acceptsAnyLimit = false;
    // See acceptsAnyLimit.
    unsigned long limitGiven = 0;
    // Called by each search through lines, when set.
    std::function<void()> onSearch;
    // Called before each record is written down.
    std::function<void()> onTrace;

    // What the played operations call.
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

// While it lives, locking a framework mutex fails on this thread: the next `successes` calls still work.
class FailingLocks {
public:
    // From now on.
    explicit FailingLocks(int successes = 0);
    ~FailingLocks();
};

// While it lives, locking a framework mutex fails on this thread once: behind the next `successes` calls.
class OneFailingLock {
public:
    // From now on.
    explicit OneFailingLock(int successes);
    ~OneFailingLock();
    // Whether that call has been made.
    static bool hasFailed();
};

// Takes the C library's calls out of the kit's archive; called by each host.
void playCalls();

// How many framework mutexes this thread holds now.
int locksHeld();

// While it lives, this thread is inside one of the played operations: what happens there is the host's affair.
class InsideHost {
public:
    InsideHost();
    ~InsideHost();
    InsideHost(const InsideHost&) = delete;
    InsideHost& operator=(const InsideHost&) = delete;
    // Whether one lives on this thread.
    static bool isHere();
};

}  // namespace kivclaim::testkit

#endif
