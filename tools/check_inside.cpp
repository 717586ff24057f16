#include "tools/check_inside.h"

#include "claim/kiv_claim_manager.h"
#include "claim/kiv_claim_module_entry.h"
#include "claim/kiv_claim_query.h"
#include "claim/kiv_host_operations.h"
#include "tools/checked_process.h"
#include "tools/module_file.h"

#include <unistd.h>
#include <nlohmann/json.hpp>

#include <cerrno>
#include <exception>
#include <memory>
#include <vector>

namespace kivclaim::tools {

namespace {

using Json = nlohmann::ordered_json;

void report(const Json& finding)
{
    // Untrusted bytes that are not UTF-8 become replacement characters.
    const std::string line = finding.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
    for (std::size_t done = 0; done < line.size();) {
        const ssize_t written = write(checkReportDescriptor, line.data() + done, line.size() - done);
        if (written < 0 && errno != EINTR) {
            _exit(failed);
        }
        done += written > 0 ? static_cast<std::size_t>(written) : 0;
    }
}

void step(const std::string& name)
{
    report({{"step", name}});
}

void ask(CKivClaimManager& manager, const std::string& path)
{
    Json question{{"path", path}};
    step("claim");
    CKivDeviceClaimBase* winner = nullptr;
    question["level"] = static_cast<unsigned int>(manager.getClaimModule(winner, path));
    question["stack"] = stackName(winner);
    step("isPartition");
    question["isPartition"] = manager.isPartition(path) != 0;
    report({{"question", question}});
}

void reportOperations()
{
    Json operations = Json::object();
    for (const HostOperation& operation : hostOperations()) {
        operations[operation.name] = operation.file;
    }
    report({{"operations", operations}});
}

void checkModule(const CheckOptions& options)
{
    step("loading the file and making its module");
    std::unique_ptr<CKivDeviceClaimBase> module = loadModule(options.module);
    report({{"contract", kivClaimModuleContract}});
    step("telling its class");
    report({{"class", stackName(module.get())}});
    step("getDeviceClaimStrings");
    const std::vector<std::string> prefixes = module->getDeviceClaimStrings();
    report({{"prefixes", prefixes}});
    CKivClaimManager manager;
    step("registerTraceLog");
    manager.registerClaimModule(module.get());
    static_cast<void>(module.release());  // the manager has it now
    const std::string fitting = prefixes.empty() ? "/dev/sda1" : prefixes.front();
    ask(manager, options.path.empty() ? fitting : options.path);
    step("its destructor");
}

void checkHost(const CheckOptions& options)
{
    step("loading the file");
    reportOperations();
    CKivClaimManager manager;
    // The list of logical volumes is read through the framework's runner and string tools.
    ask(manager, options.path.empty() ? "/dev/mapper/kivclaim-check1" : options.path);
}

}  // namespace

ExitStatus checkInside(const CheckOptions& options)
{
    try {
        if (options.inside == "module") {
            checkModule(options);
        } else {
            checkHost(options);
        }
        report({{"done", true}});
    } catch (const CommandError& error) {
        report({{"problem", error.what()}});
    } catch (const std::exception& error) {
        report({{"exception", error.what()}});
    } catch (...) {
        report({{"exception", ""}});
    }
    return answeredYes;
}

}  // namespace kivclaim::tools
