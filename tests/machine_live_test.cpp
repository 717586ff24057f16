// The model of the machine that a process runs on. A library that redirects the C library's calls plays the machine.
#include "tests/mock_machine.h"

#include <gtest/gtest.h>

TEST(MachineLiveTest, IsReadThroughTheCLibrary)
{
    tests::MockMachine machine;
    machine.disk("sda").partition("sda", "sda1", 1).disk("cciss!c0d0").disk("sdb");
    machine.mapped("dm-0", "mpatha", "mpath-36001", {"sda", "sdb"});
    machine.mapped("dm-1", "mpatha-part2", "part2-mpath-36001", {"dm-0"}).node("other", "sdb");
    const tests::Ended ended =
        machine.process(KIVCLAIM_LIVE_MACHINE, {"/dev/sda1", "/dev/mapper/mpatha", "/dev/other", "/dev/none", "/dev"})
            .run();
    EXPECT_EQ(ended.output,
              "cciss/c0d0 /dev/cciss/c0d0 240:2 disk\n"
              "dm-0 /dev/mapper/mpatha 240:4 mpath slave=sda slave=sdb\n"
              "dm-1 /dev/mapper/mpatha-part2 240:5 part partition=2 whole=dm-0 slave=dm-0\n"
              "sda /dev/sda 240:0 disk\n"
              "sda1 /dev/sda1 240:1 part partition=1 whole=sda\n"
              "sdb /dev/sdb 240:3 disk\n"
              "/dev/sda1: sda1\n"
              "/dev/mapper/mpatha: dm-0\n"
              "/dev/other: sdb\n"
              "/dev/none: none\n"
              "/dev: none\n");
    EXPECT_EQ(ended.status, 0);
}
