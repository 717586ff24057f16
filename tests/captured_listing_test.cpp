// A machine that was captured in the lab, tests/captured: its devices as sysfs has them, and what its own tools print.
#include "modules/kiv_linux_device_mapper_claim.h"
#include "tests/recording_host.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

using recording::Lines;
using testing::ElementsAre;
using testing::UnorderedElementsAre;

namespace {

const std::string folder = KIVCLAIM_CAPTURED;

Lines linesOf(const std::string& text)
{
    std::istringstream stream(text);
    Lines lines;
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

std::string contentOf(const std::string& name)
{
    std::ostringstream text;
    text << std::ifstream(folder + "/" + name).rdbuf();
    return text.str();
}

// The paths that the library's list takes from a captured listing.
Lines listed(const std::string& name)
{
    recording::Host host;
    CKivDeviceMapperClaim module;
    module.registerTraceLog(host.log());
    host.prints("/sbin/lvdisplay", linesOf(contentOf("lvdisplay/" + name)));
    EXPECT_EQ(module.createLvmDeviceNamesList(), 0);
    const std::string start = "CKivDeviceMapperClaim::createLvmDeviceNamesList: Output:[";
    Lines paths;
    for (const std::string& text : host.trace(6)) {
        if (text.find(start) == 0) {
            paths.push_back(text.substr(start.size(), text.size() - start.size() - 1));
        }
    }
    return paths;
}

}  // namespace

TEST(CapturedListing, WithoutAVolumeNothingIsPrinted)
{
    EXPECT_THAT(listed("no_volume.txt"), ElementsAre());
}

TEST(CapturedListing, EveryVolumeIsTakenWithItsDashesAsTheyAre)
{
    EXPECT_THAT(listed("four_volumes.txt"),
                UnorderedElementsAre("/dev/mapper/local-root", "/dev/mapper/vg-a-lv1", "/dev/mapper/vg00-lvol1",
                                     "/dev/mapper/vg00-home-dir"));
}

TEST(CapturedListing, ASnapshotAndItsOriginAreTakenOnceEach)
{
    EXPECT_THAT(listed("snapshot.txt"),
                UnorderedElementsAre("/dev/mapper/local-root", "/dev/mapper/vg-a-lv1", "/dev/mapper/vg00-lvol1",
                                     "/dev/mapper/vg00-home-dir", "/dev/mapper/vg00-snap"));
}
