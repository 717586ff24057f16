// Shared by the tests of CZtKIVSupport: the commands that it runs, and one object with a mock host.
#ifndef KIVCLAIM_TESTS_VOLUME_MANAGER_FIXTURE_H
#define KIVCLAIM_TESTS_VOLUME_MANAGER_FIXTURE_H

#include "modules/kiv_nativepath_claim.h"
#include "tests/recording_host.h"

#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>
#include <string>

inline constexpr char nodeOfSdc[] = "/usr/sbin/ztkivadm   getkivnode  nodename=sdc";
inline constexpr char pathsOfNode[] = "/usr/sbin/ztkivadm   getsubpaths  kivnodename=kiv0_1";
inline constexpr char rescanSdc[] = "/usr/sbin/ztdisk   scandisks  device=sdc";
inline constexpr char rescanAll[] = "/usr/sbin/ztdisk   scandisks ";
inline constexpr char removeNode[] = "/usr/sbin/ztdisk   rm kiv0_1";

class VolumeManagerSupport : public testing::Test {
protected:
    void SetUp() override { support.registerTraceLog(host.log()); }
    // Whatever happened, only the host and the support object hold the log.
    void TearDown() override { EXPECT_EQ(host.logCount(), 2U); }

    // Looks up the node of sdc in a table of these rows; the result must be 0.
    std::string nodeIn(const recording::Lines& rows)
    {
        recording::Lines table = recording::lines({"NAME   STATE", "============"});
        table.insert(table.end(), rows.begin(), rows.end());
        host.prints(nodeOfSdc, table);
        std::string node = "left over";
        EXPECT_EQ(support.getZtVMDiskForOSDiskHandler("sdc", node), 0);
        return node;
    }

    // Looks up the path of kiv0_1 in a table of these rows; the result must match the answer.
    std::string pathIn(const recording::Lines& rows)
    {
        recording::Lines table = recording::lines({"NAME STATE TYPE", "==============="});
        table.insert(table.end(), rows.begin(), rows.end());
        host.prints(pathsOfNode, table);
        std::string path = "left over";
        const int result = support.getOSDiskHandleForZtVMDisk("kiv0_1", path);
        EXPECT_EQ(result, path.empty() ? 1 : 0);
        return path;
    }

    // The result of the operation, run while the record that begins with `text` cannot be written.
    void expectThePassageOf(const std::string& text, const std::function<void()>& operation)
    {
        host.failsTracing(text);
        EXPECT_THROW(operation(), std::runtime_error) << text;
        EXPECT_EQ(host.logCount(), 2U) << text;
        host.failsTracing("");
    }

    recording::Host host;
    CZtKIVSupport support;
    recording::Lines output = recording::lines({"left over"});
    std::string name = "left over";
};

inline void append(recording::Lines& all, const recording::Lines& more)
{
    all.insert(all.end(), more.begin(), more.end());
}

#endif
