// The commands of kivclaim, each with its options. --help and kivclaim(1) say what they print.
#ifndef KIVCLAIM_TOOLS_COMMANDS_H
#define KIVCLAIM_TOOLS_COMMANDS_H

#include "tools/exit_status.h"
#include "tools/session.h"

#include <string>
#include <vector>

namespace kivclaim::tools {

struct ListOptions {
    std::vector<std::string> paths;  // empty: every block device
    bool all = false;
    bool luns = false;  // a row for each LUN
    bool json = false;
    bool raw = false;
    bool pairs = false;
    bool noHeadings = false;
    bool tree = false;
    bool inverse = false;
    bool bytes = false;
    bool markedOnly = false;
    bool strict = false;  // an unsure answer counts in the exit status
    bool allColumns = false;
    std::string columns;     // names separated by commas; empty: the default ones; with a plus sign: those as well
    std::string sortColumn;  // empty: by device
    std::string stacks;      // names separated by commas; empty: any that claims
    std::string color = "auto";
};

// The column names, as kivclaim's help and messages list them.
std::string listColumnNames();

struct ActivePathOptions {
    std::vector<std::string> paths;
    bool waited = false;
    bool yes = false;
    bool verbose = false;
};

struct AuditOptions {
    std::vector<std::string> paths;  // empty: every block device of this machine
    bool json = false;
    bool onlyDifferences = false;
    bool noFold = false;                     // a row for each path of a map
    std::vector<std::string> quirks;         // show only differences that these explain; empty: all
    std::vector<std::string> quirksLeftOut;  // leave out differences that these explain
    bool metrics = false;                    // for a monitoring system
};

struct RecordOptions {
    std::string path;                // ends with .tar.zst, or is a directory
    std::vector<std::string> disks;  // about which the volume manager is asked
    bool redact = false;
};

struct DiffOptions {
    std::string before;  // a recording, or "-" for this machine
    std::string after;
    bool json = false;
};

struct ReportOptions {
    std::string path;  // "-" is standard output
};

struct WatchOptions {
    bool json = false;  // an object a line
};

ExitStatus list(const SessionOptions& session, const ListOptions& options);
ExitStatus claim(const SessionOptions& options, const std::vector<std::string>& paths);
ExitStatus isPartition(const SessionOptions& options, const std::vector<std::string>& paths);
ExitStatus partition(const SessionOptions& options, const std::string& path, const std::string& number);
ExitStatus whole(const SessionOptions& options, const std::vector<std::string>& paths);
ExitStatus prefixes(const SessionOptions& options);
ExitStatus explain(const SessionOptions& options, const std::string& path);
ExitStatus audit(const SessionOptions& options, const AuditOptions& request);
ExitStatus record(const SessionOptions& options, const RecordOptions& request);
ExitStatus diff(const SessionOptions& options, const DiffOptions& request);
ExitStatus report(const SessionOptions& options, const ReportOptions& request);
// Ends by a signal only.
ExitStatus watchDevices(const SessionOptions& options, const WatchOptions& request);
ExitStatus activePath(const SessionOptions& options, const ActivePathOptions& request);

}  // namespace kivclaim::tools

#endif
