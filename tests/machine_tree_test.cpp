// Nothing outside of a recorded root is opened, with the kernel's help and without.
#include "machine/tree.h"

#include "tests/process.h"
#include "tests/sysfs_directory.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <tuple>

using namespace kivclaim::machine;

namespace {

class TreeTest : public testing::TestWithParam<bool> {
protected:
    TreeTest()
    {
        outside.addFile("secret", "outside");
        directory.file("sys/inside", "inside").file("secret", "root").file("sys/dir/deep", "deep");
    }

    Tree tree() const { return Tree(Root::recorded(folder.path()), GetParam()); }

    static std::string content(const Descriptor& file)
    {
        if (!file.isOpen()) {
            return std::string("error ") + strerrorname_np(errno);
        }
        char text[32];
        const ssize_t size = ::read(file.get(), text, sizeof text);
        return {text, size > 0 ? static_cast<std::size_t>(size) : 0};
    }

    std::string contentOf(const std::string& name) const { return content(tree().open(Top::sys, name, O_RDONLY)); }
    void link(const std::string& place, const std::string& target) { directory.link("/" + place, target); }

private:
    tests::TemporaryFolder folder;

protected:
    tests::TemporaryFolder outside;
    tests::SysfsDirectory directory{folder.path()};
};

// The process answers each openat2 with `error` from now on: old kernels and the filters of old containers refuse it,
// and while others rename and mount all the time the kernel asks to try again.
void refuseOpenat2(int error)
{
    sock_filter rules[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_openat2, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | static_cast<unsigned>(error)),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    const sock_fprog program{std::size(rules), rules};
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 || prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) != 0) {
        _exit(3);
    }
}

class RefusedOpenat2Test : public testing::TestWithParam<int> {};

}  // namespace

TEST_P(TreeTest, OpensWhatIsThere)
{
    EXPECT_EQ(contentOf("inside"), "inside");
    EXPECT_EQ(contentOf("dir/../dir/./deep"), "deep");
    EXPECT_EQ(contentOf("missing"), "error ENOENT");
    EXPECT_EQ(contentOf("inside/x"), "error ENOTDIR");
    EXPECT_EQ(contentOf("inside/../inside"), "error ENOTDIR");
    EXPECT_EQ(contentOf("inside/."), "error ENOTDIR");
    EXPECT_EQ(contentOf("inside/"), "error ENOTDIR");
    EXPECT_EQ(contentOf("dir/../inside"), "inside");
}

TEST_P(TreeTest, AbsoluteLinkBeginsAtTheRoot)
{
    link("sys/absolute", "/sys/inside");
    link("sys/away", outside.path() + "/secret");
    EXPECT_EQ(contentOf("absolute"), "inside");
    EXPECT_EQ(contentOf("away"), "error ENOENT");
}

TEST_P(TreeTest, LinkUpwardsEndsAtTheRoot)
{
    link("sys/up", "../../../../../../../../../../secret");
    link("sys/root", "../..");
    link("sys/etc", "../../../../../../../../../../etc/passwd");
    EXPECT_EQ(contentOf("up"), "root");
    EXPECT_EQ(contentOf("root/sys/inside"), "inside");
    EXPECT_EQ(contentOf("etc"), "error ENOENT");
    EXPECT_EQ(contentOf("../../../../secret"), "root");
}

TEST_P(TreeTest, CircleOfLinksIsAnError)
{
    link("sys/a", "b");
    link("sys/b", "a");
    link("sys/self", "self/self");
    EXPECT_EQ(contentOf("a"), "error ELOOP");
    EXPECT_EQ(contentOf("self/x"), "error ELOOP");
}

TEST_P(TreeTest, LinksOfADirectoryAreNotFollowedBelowIt)
{
    link("sys/dir/link", outside.path());
    link("sys/dir/file", "/sys/inside");
    const Tree inTree = tree();
    const Descriptor dir = inTree.open(Top::sys, "dir", O_PATH | O_DIRECTORY);
    EXPECT_EQ(content(inTree.openBelow(dir.get(), "deep", O_RDONLY)), "deep");
    EXPECT_EQ(content(inTree.openBelow(dir.get(), "link/secret", O_RDONLY)), "error ELOOP");
    EXPECT_EQ(content(inTree.openBelow(dir.get(), "file", O_RDONLY)), "error ELOOP");
}

TEST_P(TreeTest, PathIsFollowedToItsEndOrAsFarAsItIsThere)
{
    link("dev/disk/x", "/dev/../sys/dir");
    const Tree inTree = tree();
    EXPECT_EQ(inTree.follow("/dev/disk/x/deep").path, "/sys/dir/deep");
    EXPECT_TRUE(inTree.follow("/dev/disk/x/deep").file.isOpen());
    EXPECT_EQ(inTree.follow("/dev/disk/x/none/../other").path, "/sys/dir/other");
    EXPECT_FALSE(inTree.follow("/dev/disk/x/none").file.isOpen());
    EXPECT_EQ(inTree.follow("../../..").path, "/");
}

TEST_P(TreeTest, PathWithoutLinksIsFollowedToWhatItSays)
{
    const Tree inTree = tree();
    EXPECT_TRUE(inTree.follow("/sys/dir/deep").file.isOpen());
    EXPECT_EQ(inTree.follow("/sys/dir/deep").path, "/sys/dir/deep");
    EXPECT_EQ(inTree.follow("//sys/./dir//deep").path, "/sys/dir/deep");
    EXPECT_EQ(inTree.follow("/sys/dir/none/below").path, "/sys/dir/none/below");
    EXPECT_FALSE(inTree.follow("/sys/dir/none/below").file.isOpen());
    EXPECT_FALSE(inTree.follow("/sys/dir/deep/below").file.isOpen()) << "below a file";
    EXPECT_EQ(inTree.follow("/sys/dir/..").path, "/sys");
    EXPECT_EQ(inTree.follow("/../sys/dir/../dir").path, "/sys/dir");
}

INSTANTIATE_TEST_SUITE_P(Confined, TreeTest, testing::Values(true, false),
                         [](const auto& value) { return value.param ? "ByTheKernel" : "ByHand"; });

TEST_P(RefusedOpenat2Test, MachineIsReadNonetheless)
{
    const tests::TemporaryFolder folder;
    tests::SysfsDirectory directory(folder.path());
    directory.scsiDisk("sda", "0:0:0:0").partition("sda", 1);
    const auto readRefused = [&] {
        refuseOpenat2(GetParam());
        const Machine machine = Machine::read(Root::recorded(folder.path()), allFacts);
        const Device* const disk = machine.byPath("/dev/sda");
        const bool whole = disk != nullptr && disk->marks == noMark && disk->state == "running" &&
                           disk->bytes == 1073741824U && disk->partitions.size() == 1;
        _exit(whole ? 0 : 1);
    };
    EXPECT_EXIT(readRefused(), testing::ExitedWithCode(0), "");
}

INSTANTIATE_TEST_SUITE_P(With, RefusedOpenat2Test, testing::Values(ENOSYS, EPERM, EAGAIN),
                         [](const auto& value) { return strerrorname_np(value.param); });
