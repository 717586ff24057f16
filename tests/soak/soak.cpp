// Runs commands and asks for claims until a leak must show: soak [PERCENT]. Without an argument 50,000 runs of the
// bundled runner and 10 million claims.
//
// Prints memory, descriptors, threads and children before and after. Exit status: 0 when nothing grew, 1 when something
// did, 2 for a wrong call.
#include "claim/kiv_claim_manager.h"
#include "framework/cfiexecpipe.h"
#include "host/trace_log.h"
#include "modules/kiv_linux_device_mapper_claim.h"
#include "modules/kiv_nativepath_claim.h"
#include "tests/process_status.h"

#include <malloc.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

using ztfi_pdk_4_4::CFiExecPipePosix;
using ztfi_pdk_4_4::EFiExecPipe;

namespace {

constexpr long runsAtAll = 50000;
constexpr long claimsAtAll = 10000000;
constexpr int hundred = 100;

// What may be more afterwards: the allocator's and the log's own buffers. A leak of one byte a run is far beyond it.
constexpr long heapBytesAllowed = 16L * 1024;
constexpr long residentKilobytesAllowed = 2048;

struct Use {
    long heapBytes = 0;
    long residentKilobytes = 0;
    long descriptors = 0;
    long threads = 0;
    long children = 0;
};

long childrenOf(pid_t process)
{
    const std::string path = "/proc/self/task/" + std::to_string(process) + "/children";
    std::ifstream file(path);
    long count = 0;
    for (long child = 0; file >> child;) {
        ++count;
    }
    return count;
}

Use use()
{
    Use now;
    now.heapBytes = static_cast<long>(mallinfo2().uordblks);
    now.residentKilobytes = std::stol(processStatus("self", "VmRSS"));
    now.threads = std::stol(processStatus("self", "Threads"));
    now.children = childrenOf(getpid());
    const std::filesystem::directory_iterator open("/proc/self/fd");
    now.descriptors = std::distance(begin(open), end(open));
    return now;
}

void print(const char* when, const Use& now)
{
    std::printf("%-7s heap %ld bytes, resident %ld KiB, %ld descriptors, %ld threads, %ld children\n", when,
                now.heapBytes, now.residentKilobytes, now.descriptors, now.threads, now.children);
    std::fflush(stdout);
}

bool grew(const Use& before, const Use& after)
{
    return after.heapBytes > before.heapBytes + heapBytesAllowed ||
           after.residentKilobytes > before.residentKilobytes + residentKilobytesAllowed ||
           after.descriptors != before.descriptors || after.threads != before.threads || after.children != 0;
}

class Soak {
public:
    Soak() : log(kivclaim::host::makeTraceLog({kivclaim::host::traceToStandardError(0)}))
    {
        manager.registerTraceLog(log);
        mapper.registerTraceLog(log);
        support.registerTraceLog(log);
    }

    // Commands that print, that print nothing, that fail, and that cannot be started.
    void run(long count)
    {
        static const std::vector<std::string> commands = {"/bin/echo some   words", "/bin/true", "/bin/false",
                                                          "/nonexistent/tool -x", "/bin/ls /proc/self/fd"};
        for (long i = 0; i < count; ++i) {
            const std::string& command = commands[static_cast<std::size_t>(i) % commands.size()];
            std::vector<std::string> output;
            if (i % 2 == 0) {
                support.executeCommand(command.c_str(), output);
                continue;
            }
            try {
                CFiExecPipePosix runner(1);
                runner.registerTraceLog(log);
                runner.Exec(command, output, "", 600, "", "", "");
            } catch (const EFiExecPipe&) {
                continue;  // what could not be started is thrown
            }
        }
    }

    // Claims, and with each of them one of the other questions. None of them runs a command.
    void claim(long count)
    {
        static const std::vector<std::string> paths = {
            "/dev/sdabcdefghijklmnopqrstuvwxyz12", "/dev/emcpowerabcdefghijklmnopqrstuvwxyz3", "/dev/null", "/dev/sda"};
        static const std::string map = "/dev/mapper/a-map-with-a-long-name-part7";
        for (long i = 0; i < count; ++i) {
            const std::string& path = paths[static_cast<std::size_t>(i) % paths.size()];
            unsigned int partition = 0;
            levels += manager.claim(path);
            switch (i % 5) {
                case 0:
                    levels += static_cast<unsigned long>(manager.isPartition(path));
                    break;
                case 1:
                    levels += manager.appendPartitionSuffix(path, 7).size();
                    break;
                case 2:
                    levels += manager.removePartitionSuffix(path, partition).size();
                    break;
                case 3:
                    levels += manager.getDeviceClaimStrings().size();
                    break;
                default:
                    levels += mapper.removePartitionSuffix(map, partition).size();
                    break;
            }
        }
    }

    unsigned long levels = 0;  // so that no answer is left out

private:
    kivclaim::host::TraceLogPointer log;
    CKivClaimManager manager;
    CKivDeviceMapperClaim mapper;
    CZtKIVSupport support;
};

int soak(long percent)
{
    const long runs = runsAtAll * percent / hundred;
    const long claims = claimsAtAll * percent / hundred;
    Soak soak;
    // What is made once stays: the first questions are not measured.
    soak.run(runs / hundred + 10);
    soak.claim(claims / hundred + 10);
    const Use before = use();
    print("before:", before);
    soak.run(runs);
    print("runs:", use());
    soak.claim(claims);
    const Use after = use();
    print("after:", after);
    const bool failed = grew(before, after);
    std::printf("%ld runs and %ld claims: %s\n", runs, claims, failed ? "something grew" : "nothing grew");
    return failed ? 1 : 0;
}

}  // namespace

int main(int count, char** arguments)
{
    char* end = nullptr;
    const long percent = count == 2 ? std::strtol(arguments[1], &end, 10) : hundred;
    if (count > 2 || (count == 2 && (end == arguments[1] || *end != '\0')) || percent < 1 || percent > hundred) {
        std::fprintf(stderr, "soak: the only argument is the percentage of the whole, 1 to 100: soak 5\n");
        return 2;
    }
    return soak(percent);
}
