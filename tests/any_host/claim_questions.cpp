// Asks a claim manager, on whatever host the program is built for, and prints records and answers in order.
//
//     claim_questions [claim PATH | whole PATH | partition PATH | active PATH | waited PATH]...
#include "tests/any_host/claim_questions.h"

#include "modules/kiv_nativepath_claim.h"

#include <iostream>

namespace {

std::string activePath(CKivClaimManager& manager, std::string path, bool waited)
{
    // The built-in modules come in a fixed order.
    auto* const native = static_cast<CNativePathClaim*>(manager.claimModules().front());
    return native->getActivePath(path, waited);
}

std::string answer(CKivClaimManager& manager, const std::string& question, const std::string& path)
{
    if (question == "claim") {
        return std::to_string(manager.claim(path));
    }
    if (question == "whole") {
        unsigned int number = 0;
        const std::string whole = manager.removePartitionSuffix(path, number);
        return whole + " " + std::to_string(number);
    }
    if (question == "partition") {
        return manager.appendPartitionSuffix(path, 12);
    }
    return activePath(manager, path, question == "waited");
}

}  // namespace

int main(int argc, char** argv)
{
    const std::unique_ptr<CKivClaimManager> manager = any_host::makeManager();
    if (manager == nullptr) {
        return 2;
    }
    manager->registerTraceLog(
        any_host::makeLog([](int level, const std::string& text) { std::cout << level << " " << text << std::endl; }));
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string result = answer(*manager, argv[i], argv[i + 1]);
        std::cout << argv[i] << " " << argv[i + 1] << ": " << result << std::endl;
    }
    return 0;
}
