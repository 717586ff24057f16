// Asks a claim query, on whatever host the program is built for, and prints one line for each answer.
//
//     query_questions [--deadline SECONDS] [--nodes COUNT] [PATH]...
#include "claim/kiv_claim_query.h"
#include "tests/any_host/claim_questions.h"

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <vector>

namespace {

std::string basisName(kivclaim::ClaimBasis basis)
{
    constexpr const char* names[] = {"not-needed", "list-read", "list-failed", "deadline", "cancelled", "threw"};
    return names[static_cast<std::size_t>(basis)];
}

std::string described(const kivclaim::ClaimAnswer& answer)
{
    return answer.path() + ": " + std::to_string(answer.level()) + " " + answer.stack() + " " +
           basisName(answer.basis()) + (answer.isPartition() ? " partition " : " ") + std::to_string(answer.number()) +
           " [" + answer.wholeDevice() + "]";
}

}  // namespace

int main(int argc, char** argv)
{
    const std::unique_ptr<CKivClaimManager> manager = any_host::makeManager();
    kivclaim::ClaimQuery query(*manager);
    std::vector<std::string> paths;
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        if (argument == "--deadline") {
            query.setDeadline(std::chrono::steady_clock::now() + std::chrono::seconds(std::atoi(argv[++i])));
        } else if (argument == "--nodes") {
            for (int node = std::atoi(argv[++i]); node > 0; --node) {
                paths.push_back("/dev/mapper/node" + std::to_string(node));
            }
        } else {
            paths.push_back(argument);
        }
    }
    for (const kivclaim::ClaimAnswer& answer : query.askAll(paths)) {
        std::cout << described(answer) << '\n';
    }
    const kivclaim::VolumeListing listing = query.listing();
    std::string message = listing.message();
    std::replace(message.begin(), message.end(), '\n', '|');
    std::cout << listing.volumes().size() << " volumes; " << listing.problem() << "; " << message << '\n';
    return 0;
}
