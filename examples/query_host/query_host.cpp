// A host that asks about as many paths as standard input holds, with one run of lvdisplay, and prints each claim with
// a mark when it is unsure. Its host framework is in framework.cpp.
//
// Exits with 0, or with 3 when an answer is unsure or missing.
#include "claim/kiv_claim_query.h"

#include <iostream>
#include <set>
#include <string>
#include <vector>

namespace {

// How long this host waits for all answers.
constexpr std::chrono::seconds patience{10};

std::vector<std::string> linesOf(std::istream& stream)
{
    std::vector<std::string> lines;
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

// What a tool said may hold anything; a terminal is shown plain characters.
std::string printable(std::string text)
{
    for (char& character : text) {
        if (character < ' ' || character > '~') {
            character = ' ';
        }
    }
    return text;
}

}  // namespace

int main()
{
    CKivClaimManager manager;
    kivclaim::ClaimQuery query(manager);
    query.setDeadline(std::chrono::steady_clock::now() + patience);

    std::size_t unsure = 0;
    std::set<std::string> reasons;
    for (const kivclaim::ClaimAnswer& answer : query.askAll(linesOf(std::cin), kivclaim::ClaimFacts::claimOnly)) {
        const std::string reason = answer.whyUnsure();
        std::cout << answer.level() << ' ' << answer.stack() << ' ' << printable(answer.path())
                  << (answer.isUnsure()     ? " unsure"
                      : answer.isAnswered() ? ""
                                            : " no answer")
                  << '\n';
        if (!reason.empty()) {
            ++unsure;
            reasons.insert(reason);
        }
    }

    for (const std::string& reason : reasons) {
        std::cerr << reason << '\n';
    }
    if (!query.listing().message().empty()) {
        std::cerr << "The host says: " << printable(query.listing().message()) << '\n';
    }
    if (unsure > 0) {
        std::cerr << "Unsure or missing answers: " << unsure << '\n';
    }
    return unsure > 0 ? 3 : 0;
}
