// Makes system calls fail, lie or wait, selected by their number and by how often they were made. Needs no privileges.
#ifndef KIVCLAIM_TESTS_FAULTS_SYSTEM_CALL_FAULTS_H
#define KIVCLAIM_TESTS_FAULTS_SYSTEM_CALL_FAULTS_H

#include <sys/syscall.h>
#include <sys/types.h>

#include <array>
#include <cstdint>
#include <functional>
#include <vector>

namespace tests {

// The number of the system call that libc's poll makes: newer architectures have only ppoll.
#ifdef SYS_poll
constexpr int pollCall = SYS_poll;
#else
constexpr int pollCall = SYS_ppoll;
#endif

// A system call that waits for its reply.
struct SystemCall {
    pid_t host;     // the process that runs the work
    pid_t process;  // the process that made the call: the host, or one that it started
    int number;
    std::array<std::uint64_t, 6> arguments;

    bool isOfHost() const { return process == host; }
};

// The outcome of the call.
struct Reply {
    enum class Kind { goesOn, fails, gives, givesDescriptor };

    Kind kind = Kind::goesOn;
    long value = 0;  // the error number, the result, or the descriptor of the test that the caller gets a copy of
};

inline Reply goesOn()
{
    return {};
}

inline Reply fails(int errorNumber)
{
    return {Reply::Kind::fails, errorNumber};
}

inline Reply gives(long result)
{
    return {Reply::Kind::gives, result};
}

inline Reply givesDescriptor(int ofTest)
{
    return {Reply::Kind::givesDescriptor, ofTest};
}

using Judge = std::function<Reply(const SystemCall&)>;

// Runs `work` in a child of the test. For each system call of the given numbers that the child or a process of it
// makes, calls `judge` in the test. Google Test's checks work in both; if one in `work` fails, this returns false.
// Needs seccomp with user notification, which every kernel since 5.5 has.
bool passesUnder(const std::vector<int>& numbers, const Judge& judge, const std::function<void()>& work);

// A judge that makes the `count`th call (from 1) with this number fail; `made` counts those of the host.
Judge failingAt(int number, int count, int errorNumber, int& made);

// An argument that is an address in the waiting process.
void* addressOf(std::uint64_t address);

// Writes to the memory of the process that waits in `call`.
void writeForCaller(const SystemCall& call, std::uint64_t address, const void* bytes, std::size_t size);

}  // namespace tests

#endif
