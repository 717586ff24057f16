// --check-module and --check-host: what a file is, whether it works, and which file supplies what.
#include "tools/check.h"

#include "claim/kiv_claim_module_entry.h"
#include "claim/kiv_host_symbols.h"
#include "claim/kiv_version.h"
#include "host/printable_text.h"
#include "tools/check_inside.h"
#include "tools/checked_process.h"
#include "tools/elf_file.h"
#include "tools/module_file.h"
#include "tools/output.h"

#include <dlfcn.h>
#include <sys/auxv.h>
#include <unistd.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <regex>
#include <sstream>
#include <vector>

namespace kivclaim::tools {

namespace {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;
using kivclaim::host::printableText;

struct Operation {
    const char* name;
    const char* symbol;
};

#define KIV_OPERATION(function, name, symbol) {name, symbol},
constexpr Operation operations[] = {KIV_HOST_SYMBOLS(KIV_OPERATION)};

// The keys of a report, in their order.
Json emptyReport(const char* kind, const std::string& file)
{
    return {{"check", kind}, {"file", file}, {"ok", false}, {"problems", Json::array()}};
}

void addProblem(Json& report, const std::string& problem)
{
    report["problems"].push_back(problem);
}

bool isSameFile(const std::string& one, const std::string& other)
{
    std::error_code error;
    return one == other || fs::equivalent(one, other, error);
}

std::string pathOf(const std::string& file)
{
    return file.find('/') == std::string::npos ? "./" + file : file;
}

// Reads the findings from the checked process's report, and adds how it ended if it ended early.
void addFindings(Json& report, const CheckedEnd& end)
{
    std::string step;
    bool isDone = false;
    std::istringstream lines(end.report);
    for (std::string line; std::getline(lines, line);) {
        const Json finding = Json::parse(line, nullptr, false);
        for (const auto& [key, value] : finding.items()) {
            if (key == "step") {
                step = value;
            } else if (key == "problem") {
                addProblem(report, value);
                isDone = true;
            } else if (key == "exception") {
                const std::string text = value;
                addProblem(report, step + " threw an exception" + (text.empty() ? "" : ": " + text));
                isDone = true;
            } else if (key == "done") {
                isDone = true;
                step = "unloading";
            } else {
                report[key] = value;
            }
        }
    }
    if (!isDone || !end.ending.empty()) {
        const std::string ending = end.ending.empty() ? "ended before its time" : end.ending;
        addProblem(report, (step.empty() ? "loading the file" : step) + ": the process " + ending);
    }
}

std::vector<std::string> insideArguments(const CheckOptions& options, const std::string& kind, const std::string& file)
{
    std::vector<std::string> arguments{"--check-" + kind, file, "--check-inside", kind};
    if (!options.path.empty()) {
        arguments.push_back(options.path);
    }
    return arguments;
}

// Also where no /proc is mounted, as in a bare root directory.
std::string ownProgram()
{
    constexpr char byProc[] = "/proc/self/exe";
    // NOLINTNEXTLINE(performance-no-int-to-ptr): the kernel tells the address as a number
    const auto* const asCalled = reinterpret_cast<const char*>(getauxval(AT_EXECFN));
    return access(byProc, X_OK) == 0 || asCalled == nullptr ? byProc : asCalled;
}

std::vector<std::string> namesOfExported(const ElfFile& file)
{
    std::vector<std::string> names;
    for (const Operation& operation : operations) {
        if (file.exported.count(operation.symbol) != 0) {
            names.emplace_back(operation.name);
        }
    }
    return names;
}

Json checkModuleFile(const CheckOptions& options)
{
    const ElfFile file = readElfFile(pathOf(options.module));
    Json report = emptyReport("module", options.module);
    Json exports = namesOfExported(file);
    const bool isSupplier = !exports.empty();
    if (file.exported.count(kivCreateClaimModuleName) != 0) {
        exports.insert(exports.begin(), kivCreateClaimModuleName);
    }
    report["exports"] = exports;
    addFindings(report,
                run({ownProgram(), insideArguments(options, "module", options.module), {}, false, options.module}));
    if (isSupplier) {
        addProblem(report, "it exports operations of a host framework, which come from the process that loads it");
    }
    for (const std::string& library : file.libraries) {
        if (library.compare(0, 15, "libztfi_pdk.so.") == 0) {
            addProblem(report, "it is linked with " + library + "; link kivclaim alone");
        }
    }
    return report;
}

// The value of LD_PRELOAD: the library, followed by this process's own value.
std::string preloadedFirst(const std::string& library)
{
    const char* const others = std::getenv("LD_PRELOAD");
    return library + (others != nullptr && !library.empty() ? ":" : "") + (others != nullptr ? others : "");
}

// What the loader says about a program: which file each operation comes from, without running anything of it.
class LoaderTrace {
public:
    LoaderTrace(const std::string& program, const std::string& preloaded)
    {
        // Not the one that the program names, nor the program itself: neither must run.
        const std::string loader = readElfFile(ownProgram()).interpreter;
        const std::string text = run({loader,
                                      {program},
                                      {{"LD_TRACE_LOADED_OBJECTS", "1"},
                                       {"LD_WARN", "1"},
                                       {"LD_BIND_NOW", "1"},
                                       {"LD_DEBUG", "bindings"},
                                       {"LD_PRELOAD", preloadedFirst(preloaded)}},
                                      true,
                                      program})
                                     .report;
        std::istringstream lines(text);
        for (std::string line; std::getline(lines, line);) {
            read(line);
        }
    }

    bool bindsTheClaimLibrary() const { return !suppliers.empty() || !missing.empty(); }

    std::map<std::string, std::string> suppliers;  // of each symbol
    std::vector<std::string> missing;              // symbols
    std::string claimLibrary;

private:
    void read(const std::string& line)
    {
        static const std::regex binding(
            R"(binding file (.*/libkivclaim\.so[^ ]*) \[\d+\] to (.*) \[\d+\]: normal symbol `([^']*)')");
        static const std::regex undefined(R"(undefined symbol: ([^ \t,]+)[ \t,].*libkivclaim\.so)");
        std::smatch match;
        if (std::regex_search(line, match, binding)) {
            claimLibrary = match[1];
            for (const Operation& operation : operations) {
                if (match[3] == operation.symbol) {
                    suppliers[match[3]] = match[2];
                }
            }
        } else if (std::regex_search(line, match, undefined)) {
            missing.push_back(match[1]);
        }
    }
};

std::string claimLibraryOfThisProcess()
{
    Dl_info place{};
    return dladdr(reinterpret_cast<const void*>(&kivclaim_version), &place) != 0 ? place.dli_fname : "";
}

void checkProgram(Json& report, const ElfFile& file, const std::string& path)
{
    if (file.interpreter.empty()) {
        addProblem(report, "it is linked statically, so the loader binds nothing in it; link it with shared libraries");
        return;
    }
    LoaderTrace trace(path, "");
    const bool isLinked = trace.bindsTheClaimLibrary();
    if (!isLinked) {
        trace = LoaderTrace(path, claimLibraryOfThisProcess());
    }
    report["claimLibrary"] = trace.claimLibrary;
    report["isLinked"] = isLinked;
    if (!trace.bindsTheClaimLibrary()) {
        addProblem(report, "the loader does not tell what it would bind; is the program for this machine?");
    }
    for (const Operation& operation : operations) {
        const auto supplier = trace.suppliers.find(operation.symbol);
        if (supplier != trace.suppliers.end()) {
            report["operations"][operation.name] = supplier->second;
        } else if (std::count(trace.missing.begin(), trace.missing.end(), operation.symbol) != 0) {
            addProblem(report, std::string("no file supplies ") + operation.name);
        }
    }
}

void checkFrameworkLibrary(Json& report, const CheckOptions& options, const std::string& path)
{
    const std::string place = fs::absolute(path).string();
    if (place.find_first_of(" :") != std::string::npos) {
        throw CommandError("cannot examine '" + options.host +
                           "': the loader preloads no file with a blank or a colon "
                           "in its path, which is '" +
                           place + "'; give a link to it from another directory");
    }
    addFindings(report, run({ownProgram(),
                             insideArguments(options, "host", options.host),
                             {{"LD_PRELOAD", preloadedFirst(place)}},
                             false,
                             options.host}));
}

bool isBundled(const std::string& file)
{
    return fs::path(file).filename().string().compare(0, 15, "libztfi_pdk.so.") == 0;
}

// Mistakes that cause no error: an operation that the file defines but another file supplies, and operations from
// different frameworks.
void judgeSuppliers(Json& report, const ElfFile& file, const std::string& path)
{
    std::string bundled;
    std::string other;
    for (const Operation& operation : operations) {
        if (!report["operations"].contains(operation.name)) {
            continue;
        }
        const std::string supplier = report["operations"][operation.name];
        (isBundled(supplier) ? bundled : other) = operation.name;
        if (file.defined.count(operation.symbol) != 0 && !isSameFile(supplier, path)) {
            const bool isHidden = file.exported.count(operation.symbol) == 0;
            addProblem(report, std::string("it has ") + operation.name + (isHidden ? ", hidden," : "") + " but " +
                                   supplier + " supplies it");
        } else if (!file.isProgram && !isSameFile(supplier, path)) {
            addProblem(report, std::string("it lacks ") + operation.name + ", which " + supplier + " supplies");
        }
    }
    if (file.isProgram && !bundled.empty() && !other.empty()) {
        addProblem(report, "the framework is mixed: " + bundled + " is the bundled one's, " + other + " is not");
    }
}

Json checkHostFile(const CheckOptions& options)
{
    const std::string path = pathOf(options.host);
    const ElfFile file = readElfFile(path);
    Json report = emptyReport("host", options.host);
    report["kind"] = file.isProgram ? "program" : "library";
    report["exports"] = namesOfExported(file);
    report["operations"] = Json::object();
    if (isCutOff(path)) {
        addProblem(report, "the file is cut off; copy it anew");
        return report;
    }
    if (file.isProgram) {
        checkProgram(report, file, path);
    } else {
        checkFrameworkLibrary(report, options, path);
    }
    judgeSuppliers(report, file, path);
    return report;
}

std::string textOf(const Json& value)
{
    if (value.is_string()) {
        return printableText(value.get<std::string>());
    }
    if (value.is_array()) {
        std::string list;
        for (const Json& entry : value) {
            list += (list.empty() ? "" : ", ") + textOf(entry);
        }
        return list.empty() ? "none" : list;
    }
    return value.is_boolean() ? (value.get<bool>() ? "yes" : "no") : value.dump();
}

std::string labelled(const std::string& label, const std::string& text)
{
    return label + ": " + text;
}

void print(const Json& report)
{
    for (const auto& [key, value] : report.items()) {
        if (key == "problems" || key == "ok") {
            continue;
        }
        if (!value.is_object()) {
            printLine(labelled(key, textOf(value)));
            continue;
        }
        for (const auto& [name, entry] : value.items()) {
            printLine(labelled(key, labelled(name, textOf(entry))));
        }
    }
    for (const Json& problem : report["problems"]) {
        printLine("problem: " + textOf(problem));
    }
    printLine(std::string("ok: ") + textOf(report["ok"]));
}

}  // namespace

ExitStatus check(const CheckOptions& options)
{
    if (!options.inside.empty()) {
        return checkInside(options);
    }
    Json report = options.module.empty() ? checkHostFile(options) : checkModuleFile(options);
    report["ok"] = report["problems"].empty();
    if (options.json) {
        printLine(report.dump(3, ' ', false, Json::error_handler_t::replace));
    } else {
        print(report);
    }
    return report["ok"] ? answeredYes : answeredNo;
}

}  // namespace kivclaim::tools
