// Tests a host's code with the test kit: a machine, its tools and its failures are scripted, and neither root nor a
// device is needed. Use any test framework, or none, as here.
#include "multipath_paths.h"

#include "testkit/recording_host.h"

#include <cstdlib>
#include <iostream>

namespace testkit = kivclaim::testkit;

namespace {

bool hasFailed = false;

void expect(bool isSo, const char* what)
{
    if (!isSo) {
        std::cerr << "not so: " << what << '\n';
        hasFailed = true;
    }
}

void logicalVolumesAreLeftOut()
{
    testkit::Host host;
    host.prints("/sbin/lvdisplay", testkit::volumeListing({{"vg00", "root"}}));
    CKivClaimManager manager;
    expect(multipathDevices(manager, {"/dev/mapper/vg00-root", "/dev/mapper/mpatha", "/dev/emcpowerb", "/dev/sdc"}) ==
               testkit::lines({"/dev/mapper/mpatha", "/dev/emcpowerb"}),
           "logical volumes and single disks are left out");
}

void partitionsAreLeftOut()
{
    testkit::Host host;
    host.prints("/sbin/lvdisplay", testkit::volumeListing({{"vg00", "root"}}));
    host.device("/dev/mapper/mpatha");
    CKivClaimManager manager;
    expect(multipathDevices(manager, {"/dev/mapper/mpatha1", "/dev/emcpowerb1"}).empty(), "partitions are left out");
    expect(host.calls() == testkit::lines({"runner without a log", "run [/sbin/lvdisplay]",
                                           "open /dev/mapper/mpatha: yes", "close /dev/mapper/mpatha"}),
           "the parent of a device-mapper partition is opened, and closed again");
}

void aFailedListingIsInTheLog()
{
    testkit::Host host;
    // While the list cannot be read, every question runs the tool: the claim, and again the claim for the partition.
    host.fails("/sbin/lvdisplay", 5, 5 << 8, {}).times(2);
    CKivClaimManager manager;
    manager.registerTraceLog(host.log());
    expect(multipathDevices(manager, {"/dev/mapper/vg00-root"}).size() == 1,
           "without the list, volumes count as claimed");
    expect(!host.trace(1).empty(), "an error tells of it");
}

}  // namespace

int main()
{
    logicalVolumesAreLeftOut();
    partitionsAreLeftOut();
    aFailedListingIsInTheLog();
    return hasFailed ? EXIT_FAILURE : EXIT_SUCCESS;
}
