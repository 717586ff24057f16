// Runs a command under a filter that refuses the same system calls as container engines by default: refuse_calls
// COMMAND [ARGUMENT...]. All processes of the command inherit the filter, which cannot be removed.
//
// It needs CAP_SYS_ADMIN, so that it works without no_new_privs: set-user-ID programs work in a container, too.
#include <sched.h>
#include <seccomp.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <string>

namespace {

void check(int result, const std::string& what)
{
    if (result < 0) {
        throw std::runtime_error(what + ": " + std::strerror(-result));
    }
}

// System calls that the rules below do not name are allowed.
class Filter {
public:
    Filter() : context(seccomp_init(SCMP_ACT_ALLOW))
    {
        if (context == nullptr) {
            throw std::runtime_error("no filter of system calls can be made");
        }
        check(seccomp_attr_set(context, SCMP_FLTATR_CTL_NNP, 0), "no_new_privs");
        check(seccomp_attr_set(context, SCMP_FLTATR_ACT_BADARCH, SCMP_ACT_ERRNO(ENOSYS)), "other architectures");
    }
    Filter(const Filter&) = delete;
    Filter& operator=(const Filter&) = delete;
    ~Filter() { seccomp_release(context); }

    void refuse(const char* call, int error) { add(call, error, 0, {}); }
    void refuse(const char* call, const scmp_arg_cmp& argument) { add(call, EPERM, 1, argument); }
    void load() { check(seccomp_load(context), "loading the filter of system calls, which needs CAP_SYS_ADMIN"); }

private:
    void add(const char* call, int error, unsigned int conditions, const scmp_arg_cmp& argument)
    {
        const int number = seccomp_syscall_resolve_name(call);
        if (number == __NR_SCMP_ERROR) {
            throw std::runtime_error(std::string(call) + ": libseccomp does not know this system call");
        }
        check(seccomp_rule_add_array(context, SCMP_ACT_ERRNO(static_cast<std::uint32_t>(error)), number, conditions,
                                     &argument),
              call);
    }

    scmp_filter_ctx context;
};

constexpr const char* refusedCalls[] = {
    // Namespaces and mounts.
    "unshare", "setns", "mount", "umount2", "pivot_root", "fsopen", "fsconfig", "fsmount", "fspick", "open_tree",
    "move_mount", "mount_setattr", "open_by_handle_at",
    // The kernel's keys, which belong to no namespace.
    "keyctl", "add_key", "request_key",
    // Calls that inspect or control the kernel.
    "bpf", "perf_event_open", "userfaultfd", "io_uring_setup", "io_uring_enter", "io_uring_register", "init_module",
    "finit_module", "delete_module", "kexec_load", "kexec_file_load", "swapon", "swapoff", "reboot"};

constexpr int namespaceFlags[] = {CLONE_NEWNS,   CLONE_NEWCGROUP, CLONE_NEWUTS, CLONE_NEWIPC,
                                  CLONE_NEWUSER, CLONE_NEWPID,    CLONE_NEWNET};

// The argument of clone that holds its flags.
#ifdef __s390x__
constexpr unsigned int cloneFlags = 1;
#else
constexpr unsigned int cloneFlags = 0;
#endif

void refuseCalls()
{
    Filter filter;
    for (const char* call : refusedCalls) {
        filter.refuse(call, EPERM);
    }
    for (const int flag : namespaceFlags) {
        const auto bit = static_cast<scmp_datum_t>(flag);
        filter.refuse("clone", scmp_arg_cmp{cloneFlags, SCMP_CMP_MASKED_EQ, bit, bit});
    }
    // Its flags are in memory, which a filter cannot read: callers fall back to clone.
    filter.refuse("clone3", ENOSYS);
    // Reading the personality changes nothing.
    constexpr scmp_datum_t query = 0xffffffff;
    filter.refuse("personality", scmp_arg_cmp{0, SCMP_CMP_NE, query, 0});
    filter.load();
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc < 2) {
        std::fputs("usage: refuse_calls COMMAND [ARGUMENT...]\n", stderr);
        return 2;
    }
    try {
        refuseCalls();
    } catch (const std::exception& problem) {
        std::fprintf(stderr, "refuse_calls: %s\n", problem.what());
        return 2;
    }
    execvp(argv[1], argv + 1);
    std::perror(argv[1]);
    return 127;
}
