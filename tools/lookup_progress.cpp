#include "tools/lookup_progress.h"

#include <string_view>

namespace kivclaim::tools {

namespace {

constexpr int attempts = 4;
constexpr std::chrono::seconds waitedPause{5};
constexpr std::chrono::seconds refreshedPause{10};

// An answer without a node leads to a question without a name.
constexpr char queryWithoutNode[] = "ExecuteCommand command: /usr/sbin/ztkivadm   getsubpaths  kivnodename=";

bool startsWith(const std::string& text, std::string_view start)
{
    return text.compare(0, start.size(), start) == 0;
}

bool enters(const std::string& record, const std::string& operation)
{
    return startsWith(record, "Entering Function " + operation + " [");
}

}  // namespace

void LookupProgress::startQuery()
{
    if (isRefreshing && !hasAskedForOldNode) {
        hasAskedForOldNode = true;
        activity = "asking for the node that is to be forgotten";
        return;
    }
    // The refreshed lookup counts its attempts from their rescan on.
    attempt += isRefreshing ? 0 : 1;
    activity = "asking for the node";
}

bool LookupProgress::take(const std::string& record, Clock::time_point now)
{
    const std::lock_guard<std::mutex> guard(lock);
    const int attemptBefore = attempt;
    if (startsWith(record, "Obtaining kiv nodes failed. need to retry.")) {
        pausing = true;
        pauseEnd = now + (isRefreshing ? refreshedPause : waitedPause);
        return false;
    }
    if (startsWith(record, "Entering Function ")) {
        pausing = false;
    }
    if (enters(record, "getZtVMDiskForOSDiskHandler_Waited")) {
        current = Step::nodeLookup;
    } else if (enters(record, "getZtVMDiskForOSDiskHandler_Refreshed")) {
        current = Step::nodeLookup;
        isRefreshing = true;
    } else if (enters(record, "getZtVMDiskForOSDiskHandler")) {
        startQuery();
    } else if (enters(record, "removeDisksFromZtVM")) {
        activity = "having the volume manager remove the node";
    } else if (enters(record, "ztvmScanDisks")) {
        attempt += isRefreshing ? 1 : 0;
        activity = isRefreshing ? "rescanning all disks" : "rescanning the disk";
    } else if (enters(record, "getOSDiskHandleForZtVMDisk")) {
        current = Step::pathLookup;
        activity = "asking for the paths of the node";
    } else if (record == queryWithoutNode) {
        isNodeEmpty = true;
    } else if (startsWith(record, "Got active path [")) {
        current = Step::answered;
    }
    return attempt != attemptBefore;
}

LookupProgress::Step LookupProgress::step() const
{
    const std::lock_guard<std::mutex> guard(lock);
    return isNodeEmpty && current == Step::pathLookup ? Step::nodeLookup : current;
}

bool LookupProgress::isPausing() const
{
    const std::lock_guard<std::mutex> guard(lock);
    return pausing;
}

std::string LookupProgress::description(Clock::time_point now) const
{
    const std::lock_guard<std::mutex> guard(lock);
    std::string text;
    if (attempt > 0 && current == Step::nodeLookup) {
        text = "attempt " + std::to_string(attempt) + " of " + std::to_string(attempts) + ": ";
    }
    if (!pausing) {
        return text + activity;
    }
    const auto left = std::chrono::ceil<std::chrono::seconds>(pauseEnd - now);
    return text + "no node yet, pausing for " + std::to_string(left.count() > 0 ? left.count() : 0) + " s";
}

}  // namespace kivclaim::tools
