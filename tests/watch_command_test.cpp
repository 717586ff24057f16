// `kivclaim watch`: the machine is umockdev's, and the events are sent to the socket that umockdev puts in the place of
// the kernel's.
#include "tests/mock_machine.h"
#include "tests/process.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;
using tests::Ended;

namespace {

constexpr char timeForm[] = "20[0-9]{2}-[0-9]{2}-[0-9]{2}T[0-9:]{8}Z";
constexpr char event[] =
    "change@/devices/virtual/block/sda\0ACTION=change\0DEVPATH=/devices/virtual/block/sda\0"
    "SUBSYSTEM=block\0DEVTYPE=disk\0SEQNUM=1";

class WatchedMachine : public testing::Test {
protected:
    void SetUp() override { machine.disk("sda").disk("sdb"); }

    void start(const std::vector<std::string>& options = {})
    {
        std::vector<std::string> arguments = {"-c",
                                              "echo \"$UMOCKDEV_DIR $$\"; LD_PRELOAD=\"$0:$LD_PRELOAD\" exec \"$@\"",
                                              KIVCLAIM_TOLD_LOSS,
                                              KIVCLAIM_COMMAND,
                                              "--no-warn",
                                              "watch"};
        arguments.insert(arguments.end(), options.begin(), options.end());
        process.emplace(machine.process("/bin/sh", std::move(arguments)));
        process->environment("LC_ALL", "C").environment("KIVCLAIM_LOSS", place.path() + "/loss");
        process->start();
        const std::string line = process->readLine();
        directory = line.substr(0, line.find(' '));
        pid = std::stoi(line.substr(line.find(' ') + 1));
        process->awaitError("watching 2 devices");
    }

    void resize(const std::string& disk, const std::string& sectors) const
    {
        std::ofstream(directory + "/sys/devices/virtual/block/" + disk + "/size") << sectors << "\n";
    }

    void send(int events) const
    {
        const int socket = ::socket(AF_UNIX, SOCK_RAW, 0);
        for (const auto& file : std::filesystem::directory_iterator(directory)) {
            if (file.path().filename().string().compare(0, 5, "event") != 0) {
                continue;
            }
            sockaddr_un address{};
            address.sun_family = AF_UNIX;
            std::strncpy(address.sun_path, file.path().c_str(), sizeof address.sun_path - 1);
            for (int i = 0; i < events; ++i) {
                if (::sendto(socket, event, sizeof event, 0, reinterpret_cast<const sockaddr*>(&address),
                             sizeof address) < 0) {
                    throw std::runtime_error(std::strerror(errno));
                }
            }
        }
        ::close(socket);
    }

    Ended end()
    {
        ::kill(pid, SIGTERM);
        return process->finish();
    }

    tests::MockMachine machine;
    tests::TemporaryFolder place;
    std::optional<tests::Process> process;
    std::string directory;
    pid_t pid = 0;
};

}  // namespace

TEST_F(WatchedMachine, AChangedDeviceIsPrintedAsALine)
{
    start();
    resize("sda", "16");
    send(1);
    EXPECT_THAT(process->readLine(), MatchesRegex(std::string(timeForm) + " /dev/sda size: none -> 8192"));
    resize("sda", "32");
    send(1);
    EXPECT_THAT(process->readLine(), MatchesRegex(std::string(timeForm) + " /dev/sda size: 8192 -> 16384"));
    EXPECT_EQ(end().output, "");
}

TEST_F(WatchedMachine, JsonHasOneObjectALine)
{
    start({"--json"});
    resize("sdb", "16");
    send(1);
    const auto change = nlohmann::json::parse(process->readLine());
    EXPECT_THAT(change["time"].get<std::string>(), MatchesRegex(timeForm));
    EXPECT_EQ(change["change"], "changed");
    EXPECT_EQ(change["device"], "/dev/sdb");
    EXPECT_EQ(change["fact"], "size");
    EXPECT_TRUE(change["before"].is_null());
    EXPECT_EQ(change["after"], "8192");
    end();
}

TEST_F(WatchedMachine, AThousandEventsAtOnceCauseOneReading)
{
    start();
    resize("sda", "16");
    send(1000);
    EXPECT_THAT(process->readLine(), HasSubstr("/dev/sda size: none -> 8192"));
    resize("sdb", "16");
    send(1);
    EXPECT_THAT(process->readLine(), HasSubstr("/dev/sdb size: none -> 8192"));
    const Ended ended = end();
    EXPECT_EQ(ended.output, "");
    EXPECT_THAT(ended.errors, Not(HasSubstr("lost")));
}

TEST_F(WatchedMachine, LostEventsAreReportedAndTheChangeIsStillPrinted)
{
    start();
    resize("sda", "16");
    place.addFile("loss", "");
    send(1);
    EXPECT_THAT(process->readLine(), HasSubstr("/dev/sda size: none -> 8192"));
    EXPECT_THAT(end().errors, HasSubstr("kivclaim: events were lost, but the machine is read anew: only changes that "
                                        "were undone are missing\n"));
}

TEST(Watch, EndsWithItsSignal)
{
    for (const int signal : {SIGTERM, SIGINT}) {
        tests::Process process(KIVCLAIM_COMMAND, {"--no-warn", "watch"});
        process.start();
        process.awaitError("watching");
        process.signal(signal);
        EXPECT_EQ(process.finish().signal, signal);
    }
}

TEST(Watch, FollowsThisMachineOnly)
{
    const Ended ended = tests::Process(KIVCLAIM_COMMAND, {"--sysroot", "/tmp", "watch"}).run();
    EXPECT_EQ(ended.errors, "kivclaim: watch follows this machine; leave out --sysroot\n");
    EXPECT_EQ(ended.status, 2);
}
