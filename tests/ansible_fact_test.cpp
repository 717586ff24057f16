// The local fact for Ansible: one JSON object, whatever the machine.
#include "tests/mock_machine.h"
#include "tests/process.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <filesystem>
#include <string>

using nlohmann::json;
using tests::Ended;
using tests::Process;

namespace {

constexpr char fact[] = KIVCLAIM_SOURCE "/examples/ansible/kivclaim.fact";

json factOf(Process process, const std::string& path)
{
    const Ended ended = process.environment("PATH", path).run();
    EXPECT_EQ(ended.status, 0) << "Ansible drops the output of a fact that fails";
    EXPECT_EQ(ended.errors, "");
    return json::parse(ended.output, nullptr, false);
}

// The fact with a command that does `body`.
json factWithCommand(const std::string& body)
{
    const tests::TemporaryFolder folder;
    folder.addScript("kivclaim", body);
    return factOf({fact, {}}, folder.path() + ":/usr/bin:/bin");
}

}  // namespace

TEST(AnsibleFact, HoldsTheListAndTheAuditOfTheMachine)
{
    tests::TemporaryFolder tools;
    tools.addScript("lvdisplay", "echo '  LV Path /dev/vg-a/lv1'\necho '  LV Name lv1'\necho '  VG Name vg-a'\n");
    tests::MockMachine machine;
    machine.disk("sda").partition("sda", "sda1", 1).disk("xvda");
    machine.mapped("dm-0", "mpatha", "mpath-36001").mapped("dm-1", "vg--a-lv1", "LVM-AbCd");
    const std::string command = std::filesystem::path(KIVCLAIM_COMMAND).parent_path();
    Process process = machine.process(fact, {});
    process.sees(tools.path(), "/usr/sbin");
    const json facts = factOf(std::move(process), command + ":/usr/bin:/bin");
    ASSERT_TRUE(facts.is_object()) << facts;
    EXPECT_EQ(facts["installed"], true);
    EXPECT_EQ(facts["release"].get<std::string>().substr(0, 9), "kivclaim ");
    EXPECT_EQ(facts["error"], nullptr);
    const json mpatha = {{"device", "/dev/mapper/mpatha"},
                         {"stack", "device-mapper"},
                         {"level", 16},
                         {"part", nullptr},
                         {"whole", nullptr}};
    EXPECT_EQ(facts["list"]["blockdevices"].size(), 4U);
    EXPECT_EQ(facts["list"]["blockdevices"][0], mpatha);
    EXPECT_EQ(facts["audit"]["summary"],
              json({{"devices", 5}, {"agree", 4}, {"quirks", 1}, {"unknown", 0}, {"unsure", 0}}));
    EXPECT_EQ(facts["audit"]["devices"][0]["differences"][0]["quirk"], "dashed-volume");
}

TEST(AnsibleFact, SaysThatTheCommandIsNotInstalled)
{
    const json facts = factOf({fact, {}}, "/usr/bin:/bin");
    ASSERT_TRUE(facts.is_object()) << facts;
    EXPECT_EQ(facts["installed"], false);
    EXPECT_EQ(facts["list"], nullptr);
    EXPECT_EQ(facts["audit"], nullptr);
    EXPECT_EQ(facts["error"], "kivclaim is not installed");
}

TEST(AnsibleFact, TreatsADifferenceAsAnAnswer)
{
    const json facts = factWithCommand("echo '{\"summary\": 1}'\nexit 1\n");
    ASSERT_TRUE(facts.is_object()) << facts;
    EXPECT_EQ(facts["audit"], json({{"summary", 1}}));
    EXPECT_EQ(facts["error"], nullptr);
}

TEST(AnsibleFact, TreatsAnUnsureAnswerAsAnAnswer)
{
    const json facts = factWithCommand("echo '{\"summary\": 1}'\necho 'kivclaim: unsure' >&2\nexit 3\n");
    ASSERT_TRUE(facts.is_object()) << facts;
    EXPECT_EQ(facts["audit"], json({{"summary", 1}}));
    EXPECT_EQ(facts["error"], nullptr);
}

TEST(AnsibleFact, HoldsTheErrorMessageOfACommandThatFails)
{
    const json facts =
        factWithCommand("echo half an answer\nprintf 'kivclaim: \"odd\" \\\\ \\t text\\nmore\\n' >&2\nexit 2\n");
    ASSERT_TRUE(facts.is_object()) << facts;
    EXPECT_EQ(facts["installed"], true);
    EXPECT_EQ(facts["list"], nullptr);
    EXPECT_EQ(facts["audit"], nullptr);
    EXPECT_EQ(facts["error"], "kivclaim: \"odd\" \\   text");
}

TEST(AnsibleFact, SaysHowACommandEndedThatFailsSilently)
{
    const json facts = factWithCommand("exit 3\n");
    ASSERT_TRUE(facts.is_object()) << facts;
    EXPECT_EQ(facts["error"], "kivclaim list ended with status 3");
}
