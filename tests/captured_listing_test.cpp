// What /sbin/lvdisplay printed in the lab, on each release.
#include "modules/kiv_linux_device_mapper_claim.h"
#include "tests/captured_releases.h"
#include "tests/recording_host.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

using recording::Lines;
using testing::ElementsAre;
using testing::UnorderedElementsAre;

namespace {

Lines linesOf(const std::string& text)
{
    std::istringstream stream(text);
    Lines lines;
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

class CapturedListing : public testing::TestWithParam<std::string> {
protected:
    // The paths that the library's list takes from a captured listing.
    static Lines listed(const std::string& name, bool mayBeEmpty = false)
    {
        recording::Host host;
        CKivDeviceMapperClaim module;
        module.registerTraceLog(host.log());
        host.prints("/sbin/lvdisplay", linesOf(tests::captured(GetParam(), "lvdisplay/" + name, mayBeEmpty)));
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
};

}  // namespace

INSTANTIATE_TEST_SUITE_P(Lab, CapturedListing, testing::ValuesIn(tests::capturedReleases()),
                         [](const auto& release) { return release.param; });

TEST_P(CapturedListing, WithoutAVolumeNothingIsPrinted)
{
    EXPECT_THAT(listed("no_volume.txt", true), ElementsAre());
}

TEST_P(CapturedListing, EveryVolumeIsTakenWithItsDashesAsTheyAre)
{
    EXPECT_THAT(listed("four_volumes.txt"),
                UnorderedElementsAre("/dev/mapper/local-root", "/dev/mapper/vg-a-lv1", "/dev/mapper/vg00-lvol1",
                                     "/dev/mapper/vg00-home-dir"));
}

TEST_P(CapturedListing, ASnapshotAndItsOriginAreTakenOnceEach)
{
    EXPECT_THAT(listed("snapshot.txt"),
                UnorderedElementsAre("/dev/mapper/local-root", "/dev/mapper/vg-a-lv1", "/dev/mapper/vg00-lvol1",
                                     "/dev/mapper/vg00-home-dir", "/dev/mapper/vg00-snap"));
}
