// kivclaim: asks the claim library from a shell.
#include "claim/kiv_release.h"
#include "tools/check.h"
#include "tools/commands.h"
#include "tools/listing/luns.h"
#include "tools/output.h"
#include "tools/recording/replayed_root.h"
#include "tools/stack_table.h"
#include "tools/watch.h"

#include <unistd.h>
#include <CLI/CLI.hpp>

#include <algorithm>
#include <clocale>
#include <csignal>
#include <cstdio>
#include <functional>
#include <optional>

namespace kivclaim::tools {

namespace {

constexpr char statusHelp[] =
    "Exit status: 0 yes or done, 1 some answer is no, 2 wrong usage, unreadable input or unwritable output, "
    "3 answered, but some answer is unsure: standard error says why.";

// CLI11's own range check has another message in each release.
std::string checkTraceLevel(const std::string& level)
{
    const bool isKnown = level.size() == 1 && level >= "0" && level <= "6";
    return isKnown ? "" : "'" + level + "' is no level; take 0 to 6";
}

// An unset variable of a script must not choose everything. CLI11 shows the answer after the option's name.
std::function<std::string(const std::string&)> notEmpty(const std::string& complaint)
{
    return [complaint](const std::string& text) { return text.empty() ? complaint : std::string(); };
}

// Writes each command's usage as this manual words it.
class HelpFormatter : public CLI::Formatter {
public:
    explicit HelpFormatter(const std::map<std::string, std::string>& usages) : usages(usages) {}

    std::string make_usage(const CLI::App* app, std::string /*name*/) const override
    {
        const auto usage = usages.find(app->get_name());
        return "Usage: " + (usage != usages.end() ? usage->second : "kivclaim [OPTIONS] [COMMAND]") + "\n";
    }

private:
    const std::map<std::string, std::string>& usages;
};

// The command line, and the command that it chooses.
class CommandLine {
public:
    CommandLine() : app("Tells which multipathing stack claims a block-device path.", "kivclaim")
    {
        app.set_version_flag("--version", std::string(kivclaim_release_identification),
                             "Print the release of the claim library and exit");
        app.set_help_flag("-h,--help", "Print this help and exit");
        app.add_option("--trace", session.traceLevel,
                       "Show the library's trace records up to LEVEL on standard error "
                       "(1 errors, 2 warnings, 3 information, 6 everything)")
            ->type_name("LEVEL")
            ->check(checkTraceLevel);
        app.add_option("--trace-file", session.traceFile,
                       "Write the trace records to FILE, all of them unless --trace selects fewer")
            ->type_name("FILE")
            ->check(notEmpty("names no file"));
        app.add_flag(
            "--no-snapshot", session.noSnapshot,
            "Run /sbin/lvdisplay again for every question that needs it; otherwise it runs once for all of them");
        app.add_flag("--resolve", session.resolve,
                     "Ask about the kernel's own name of each device, such as /dev/mapper/plain for /dev/dm-0");
        app.add_flag("--no-warn", session.noWarnings,
                     "Print no warnings about unsure answers and misleading names; the exit status stays the same");
        app.add_option("--module", session.moduleFiles,
                       "Ask the claim module in FILE as well, after the built-in ones; may be given several times. "
                       "FILE is a shared library; a name without a slash means one in the current directory. Its code "
                       "runs with your privileges")
            ->type_name("FILE")
            ->allow_extra_args(false)
            ->check(notEmpty("names no file"));
        app.add_option("--sysroot", session.sysroot,
                       "Ask about the machine that was recorded in PLACE: a file or directory that 'record' made, or a "
                       "directory laid out as for lsblk --sysroot; what it does not hold makes an answer unsure")
            ->type_name("PLACE")
            ->check(notEmpty("names no directory"));
        addCheck();
        app.footer(std::string("Example: kivclaim --tree\nPATH of '-' reads paths from standard input, one a line.\n") +
                   statusHelp);
        app.formatter(std::make_shared<HelpFormatter>(usages));
        app.require_subcommand(0, 1);
        app.fallthrough();
        addList();
        addQuestions();
        addExplain();
        addAudit();
        addActivePath();
        addRecord();
        addDiff();
        addReport();
        addWatch();
        chosen = [this] { return list(session, listOptions); };
    }

    ExitStatus run(int argc, char** argv)
    {
        try {
            app.parse(withCommand({argv + 1, argv + argc}));
        } catch (const CLI::Success& request) {  // help or version
            app.exit(request);
            flushOutput();
            return answeredYes;
        } catch (const CLI::ExtrasError&) {
            throw CommandError(unexpected(app.remaining(true)) + "; " + usage());
        } catch (const CLI::ParseError& error) {
            throw CommandError(std::string(error.what()) + "; " + usage());
        }
        // A module that is checked gets the signal handling that the command was started with.
        std::optional<Watch> watch;
        if (checkOptions.inside == "host") {
            watch.emplace(Watch::Shown::no);
        } else if (checkOptions.inside.empty()) {
            // The active path has a line of its own, and trace records tell what is waited for.
            const bool hasNoOther = !session.traceLevel && !app.got_subcommand("active-path");
            watch.emplace(hasNoOther && isatty(STDERR_FILENO) != 0 ? Watch::Shown::yes : Watch::Shown::no);
        }
        return checkOptions.isWanted() ? checkFile() : choose();
    }

private:
    static std::string unexpected(const std::vector<std::string>& arguments)
    {
        std::string text;
        for (const std::string& argument : arguments) {
            text += (text.empty() ? "'" : ", '") + argument + "'";
        }
        return text + (arguments.size() == 1 ? " was not expected" : " were not expected");
    }

    // What a check would not look at is no part of it: no command, and one PATH at most.
    ExitStatus checkFile()
    {
        const std::vector<CLI::App*> commands = app.get_subcommands();
        std::vector<std::string> others(listOptions.paths);
        if (!others.empty()) {
            checkOptions.path = others.front();
            others.erase(others.begin());
        }
        if (!commands.empty() && commands.front()->get_name() != "list") {
            others.insert(others.begin(), commands.front()->get_name());
        }
        if (!others.empty()) {
            throw CommandError(unexpected(others) + "; usage: kivclaim --check-module|--check-host FILE [-J] [PATH]");
        }
        checkOptions.json = listOptions.json;
        return check(checkOptions);
    }

    // A recording that is one file is unpacked while the command runs.
    ExitStatus choose()
    {
        std::optional<ReplayedRoot> root;
        if (!session.sysroot.empty()) {
            root.emplace(session.sysroot);
            session.sysrootDirectory = root->directory();
        }
        return chosen();
    }

    CLI::App& command(const std::string& name, const std::string& arguments, const std::string& description,
                      const std::string& example, std::function<ExitStatus()> action)
    {
        CLI::App& sub = *app.add_subcommand(name, description);
        sub.footer("Example: " + example + "\nThe options of 'kivclaim --help' work here too.\n" + statusHelp);
        sub.callback([this, action] { chosen = action; });
        usages[name] = "kivclaim " + name + " [OPTIONS]" + (arguments.empty() ? "" : " " + arguments);
        return sub;
    }

    void addCheck()
    {
        auto* const module = app.add_option(
            "--check-module", checkOptions.module,
            "Check the claim module in FILE, in a separate process, with a question about PATH if it is given; "
            "exit status 1: there is a problem");
        auto* const host = app.add_option(
            "--check-host", checkOptions.host,
            "Check which host framework the program FILE would get, or try the library FILE as a host framework");
        module->type_name("FILE")->excludes(host);
        host->type_name("FILE");
        app.add_option("--check-inside", checkOptions.inside)->group("");  // for the process that a check starts
    }

    void addList()
    {
        CLI::App& sub = command("list", "[PATH...]",
                                "List this machine's block devices with the stacks that claim them, or the device "
                                "that each PATH names (the default)",
                                "kivclaim list --tree -o DEVICE,STACK", [this] { return list(session, listOptions); });
        sub.add_option("PATH", listOptions.paths, "Names of devices, '-' for standard input (default: all devices)")
            ->type_name("");
        addListChoice(sub);
        addListForm(sub);
    }

    // Which rows and columns.
    void addListChoice(CLI::App& sub)
    {
        sub.add_flag("-a,--all", listOptions.all, "Show unclaimed devices as well");
        sub.add_flag("-m,--marked", listOptions.markedOnly, "Show only marked devices, claimed or not");
        sub.add_option("-S,--stacks", listOptions.stacks,
                       "Show only the devices of these stacks, separated by commas: " + knownStacks())
            ->type_name("STACKS")
            ->check(notEmpty("names no stack"));
        auto* const output =
            sub.add_option("-o,--output", listOptions.columns,
                           "Print only these columns: " + listColumnNames() +
                               ", separated by commas; with a leading plus sign, in addition to the default ones");
        output->type_name("COLUMNS")->check(notEmpty("names no column"));
        sub.add_flag("-O,--output-all", listOptions.allColumns, "Print all columns")->excludes(output);
        sub.add_flag("--strict", listOptions.strict, "Exit with status 3 when an answer is unsure");
        sub.add_flag("-b,--bytes", listOptions.bytes, "Print sizes in bytes");
        sub.add_option("-x,--sort", listOptions.sortColumn, "Sort by a column, which need not be printed")
            ->type_name("COLUMN")
            ->check(notEmpty("names no column"));
        sub.add_flag("--luns", listOptions.luns,
                     "Print one row for each LUN, whatever claims it, with the columns " + lunColumnNames());
    }

    void addListForm(CLI::App& sub)
    {
        auto* const luns = sub.get_option("--luns");
        sub.add_flag("-T,--tree", listOptions.tree,
                     "Show under each device its partitions and the devices on top of it")
            ->excludes(luns);
        sub.add_flag("-s,--inverse", listOptions.inverse, "Show under each device those that it consists of")
            ->excludes(luns);
        auto* const json = sub.add_flag("-J,--json", listOptions.json, "Print JSON");
        auto* const raw = sub.add_flag("-r,--raw", listOptions.raw,
                                       "Print unaligned columns, blanks as \\x20 and backslashes as \\x5c");
        raw->excludes(json);
        sub.add_flag("-P,--pairs", listOptions.pairs, "Print NAME=\"text\" for each column")
            ->excludes(json)
            ->excludes(raw);
        sub.add_flag("-n,--noheadings", listOptions.noHeadings, "Print no heading line");
        sub.add_option(
               "--color", listOptions.color,
               "Show stacks and marks in colors: always, never or auto, which is on a terminal without NO_COLOR")
            ->type_name("WHEN");
    }

    void addPaths(CLI::App& sub)
    {
        sub.add_option("PATH", paths, "Device paths, '-' for standard input")->required()->type_name("");
    }

    void addQuestions()
    {
        addPaths(command("claim", "PATH...", "Print claim level, stack and path of each PATH",
                         "kivclaim claim /dev/emcpowera1 /dev/mapper/mpatha",
                         [this] { return claim(session, paths); }));
        addPaths(command("is-partition", "PATH...", "Print yes or no and the path, for each PATH",
                         "kivclaim is-partition /dev/emcpowera1", [this] { return isPartition(session, paths); }));
        CLI::App& sub =
            command("partition", "PATH N", "Print the path of partition N, 0 to 4294967295, of the whole device PATH",
                    "kivclaim partition /dev/emcpowera 1", [this] { return partition(session, path, number); });
        sub.add_option("PATH", path, "Path of the whole device")->required()->type_name("");
        sub.add_option("N", number, "Partition number, 0 to 4294967295")->required()->type_name("");
        addPaths(command("whole", "PATH...", "Print whole device and partition number of each PATH",
                         "kivclaim whole /dev/emcpowerb15", [this] { return whole(session, paths); }));
        command("prefixes", "", "Print the path patterns of all stacks", "kivclaim prefixes",
                [this] { return prefixes(session); });
    }

    void addExplain()
    {
        CLI::App& sub = command("explain", "PATH",
                                "Print which modules were asked about PATH, which one claims it and why, and the trace "
                                "records of the request",
                                "kivclaim explain /dev/emcpowera1", [this] { return explain(session, path); });
        sub.add_option("PATH", path, "Device path")->required()->type_name("");
    }

    void addAudit()
    {
        CLI::App& sub = command(
            "audit", "[PATH...]",
            "Compare the answers about each PATH, or about every block device, with what the "
            "kernel says, and give a reason for each difference. Exit status 1: some difference is no known quirk",
            "kivclaim audit --only-differences", [this] { return audit(session, auditOptions); });
        sub.add_option("PATH", auditOptions.paths, "Device paths, '-' for standard input; none: every block device")
            ->type_name("");
        auto* const json = sub.add_flag("-J,--json", auditOptions.json, "Print JSON");
        auto* const only = sub.add_flag("-d,--only-differences", auditOptions.onlyDifferences,
                                        "Leave out the devices that agree, and show the paths of a map in one row");
        sub.add_flag("--no-fold", auditOptions.noFold, "Show each path of a map in its own row");
        sub.add_option("--quirk", auditOptions.quirks,
                       "Show only the differences that this quirk explains; may be given several times")
            ->type_name("NAME")
            ->allow_extra_args(false);
        sub.add_option("--no-quirk", auditOptions.quirksLeftOut,
                       "Leave out the differences that this quirk explains; may be given several times")
            ->type_name("NAME")
            ->allow_extra_args(false);
        sub.add_flag("--openmetrics", auditOptions.metrics, "Print the counts for a monitoring system")
            ->excludes(json)
            ->excludes(only);
    }

    void addActivePath()
    {
        CLI::App& sub =
            command("active-path", "PATH...",
                    "Print the path that the volume manager uses now for each native disk PATH. Has the volume "
                    "manager remove the disk's node and rescan all disks; may take 40 seconds for each",
                    "kivclaim active-path /dev/sdc", [this] { return activePath(session, activePathOptions); });
        sub.add_option("PATH", activePathOptions.paths, "Paths of disks, such as /dev/sdc, '-' for standard input")
            ->required()
            ->type_name("");
        sub.add_flag("-w,--waited", activePathOptions.waited,
                     "Remove nothing: wait for the node and rescan only this disk; may take 20 seconds");
        sub.add_flag("-y,--yes", activePathOptions.yes, "Do not ask on a terminal before the node is removed");
        sub.add_flag("-v,--verbose", activePathOptions.verbose,
                     "Print a line for each attempt when standard error is no terminal");
    }

    void addRecord()
    {
        CLI::App& sub =
            command("record", "FILE",
                    "Record this machine in FILE, whose name ends with .tar.zst, or in a new directory: "
                    "everything that the answers depend on, for --sysroot",
                    "kivclaim record /tmp/machine.tar.zst", [this] { return record(session, recordOptions); });
        sub.add_option("FILE", recordOptions.path, "Where to write it")
            ->required()
            ->type_name("")
            ->check(notEmpty("names no file"));
        sub.add_flag("--redact", recordOptions.redact,
                     "Replace serial numbers, WWIDs, UUIDs and the names of hosts, groups, volumes and maps with "
                     "stand-ins; the answers stay the same");
        sub.add_option("--volume-manager", recordOptions.disks,
                       "Ask the volume manager about this disk, such as sdc, and record its answers; changes nothing; "
                       "may be given several times")
            ->type_name("DISK")
            ->allow_extra_args(false);
    }

    void addDiff()
    {
        CLI::App& sub = command(
            "diff", "OLD NEW",
            "Print the devices that were added, were removed, or changed size, state, map, name or claim between "
            "two recordings; '-' is this machine. Exit status 1: there are some",
            "kivclaim diff before.tar.zst -", [this] { return diff(session, diffOptions); });
        sub.add_option("OLD", diffOptions.before, "The machine before")->required()->type_name("");
        sub.add_option("NEW", diffOptions.after, "The machine after")->required()->type_name("");
        sub.add_flag("-J,--json", diffOptions.json, "Print JSON");
    }

    void addReport()
    {
        CLI::App& sub = command(
            "report", "-o FILE",
            "Write a page about this machine for people to read: a diagram of the stacked devices, the LUNs, the audit "
            "and versions. It is one HTML file that needs nothing else",
            "kivclaim report -o /tmp/machine.html", [this] { return report(session, reportOptions); });
        sub.add_option("-o,--output", reportOptions.path, "Write the page to FILE; '-' is standard output")
            ->required()
            ->type_name("FILE")
            ->check(notEmpty("names no file"));
    }

    void addWatch()
    {
        CLI::App& sub = command("watch", "",
                                "Print a line for each device of this machine that comes, goes, or changes size, "
                                "state, map, name or claim, until it is interrupted",
                                "kivclaim watch --json", [this] { return watchDevices(session, watchOptions); });
        sub.add_flag("-J,--json", watchOptions.json, "Print one JSON object a line");
    }

    // Options without a command are those of the default one. In reverse order, as CLI11 wants them.
    std::vector<std::string> withCommand(std::vector<std::string> arguments) const
    {
        const auto isCommand = [&](const std::string& argument) { return usages.count(argument) != 0; };
        const auto isOwnOption = [](const std::string& argument) {
            return argument == "--help" || argument == "-h" || argument == "--version";
        };
        if (!arguments.empty() && arguments.front().compare(0, 1, "-") == 0 &&
            std::none_of(arguments.begin(), arguments.end(), isCommand) &&
            std::none_of(arguments.begin(), arguments.end(), isOwnOption)) {
            arguments.insert(arguments.begin(), "list");
        }
        return {arguments.rbegin(), arguments.rend()};
    }

    // The correct usage, for an error message.
    std::string usage() const
    {
        for (const CLI::App* const sub : app.get_subcommands()) {
            const std::string& name = sub->get_name();
            return "usage: " + usages.at(name) + ", see 'kivclaim " + name + " --help'";
        }
        std::string names;
        for (const auto& [name, text] : usages) {
            names += (names.empty() ? "" : ", ") + name;
        }
        return "the commands are " + names + ", see 'kivclaim --help'";
    }

    CLI::App app;
    std::map<std::string, std::string> usages;
    SessionOptions session;
    ListOptions listOptions;
    AuditOptions auditOptions;
    ActivePathOptions activePathOptions;
    CheckOptions checkOptions;
    RecordOptions recordOptions;
    DiffOptions diffOptions;
    ReportOptions reportOptions;
    WatchOptions watchOptions;
    std::vector<std::string> paths;
    std::string path;
    std::string number;
    std::function<ExitStatus()> chosen;
};

int runCommandLine(int argc, char** argv)
{
    // SIGPIPE ends the command quietly, even if the parent process ignores it.
    std::signal(SIGPIPE, SIG_DFL);
    std::setlocale(LC_CTYPE, "");
    try {
        CommandLine commandLine;
        const ExitStatus status = commandLine.run(argc, argv);
        flushOutput();
        return status;
    } catch (const std::exception& error) {
        complain(error.what());
        return failed;
    } catch (...) {  // a claim module may throw anything
        complain("a claim module threw an unknown exception; leave out --module to ask the built-in ones alone");
        return failed;
    }
}

}  // namespace

}  // namespace kivclaim::tools

int main(int argc, char** argv)
{
    return kivclaim::tools::runCommandLine(argc, argv);
}
