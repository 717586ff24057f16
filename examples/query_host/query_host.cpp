// A host that asks about as many paths as standard input holds, with one run of lvdisplay, and prints each claim with
// a mark when it is unsure. With the argument --kernel, it also says which claims the kernel contradicts. Its host
// framework is in framework.cpp.
//
// Exits with 0, or with 3 when an answer is unsure or missing.
#include "claim/kiv_claim_query.h"
#include "machine/kiv_kernel_facts.h"

#include <iostream>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace {

// The time that this host waits for all answers together.
constexpr std::chrono::seconds patience{10};

std::vector<std::string> linesOf(std::istream& stream)
{
    std::vector<std::string> lines;
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

// A tool's message may contain any bytes; only plain characters are printed.
std::string printable(std::string text)
{
    for (char& character : text) {
        if (character < ' ' || character > '~') {
            character = ' ';
        }
    }
    return text;
}

// The text that is printed after the claim.
std::string remarkOn(const kivclaim::ClaimAnswer& answer, const kivclaim::KernelReading* kernel)
{
    std::string remark = answer.isUnsure() ? " unsure" : answer.isAnswered() ? "" : " no answer";
    if (kernel != nullptr && answer.isAnswered()) {
        const kivclaim::KernelFacts facts = kernel->ask(answer.path());
        if (facts.verdictOn(answer.stack()) == kivclaim::KernelVerdict::contradicts) {
            remark += " (the kernel: " + printable(facts.description()) + ")";
        }
    }
    return remark;
}

}  // namespace

int main(int argc, char** argv)
{
    const bool asksKernel = argc > 1 && argv[1] == std::string("--kernel");
    const auto kernel = asksKernel ? std::make_unique<kivclaim::KernelReading>() : nullptr;
    if (kernel != nullptr && !kernel->isRead()) {
        std::cerr << "The kernel cannot be asked: " << printable(kernel->problem()) << '\n';
    }

    CKivClaimManager manager;
    kivclaim::ClaimQuery query(manager);
    query.setDeadline(std::chrono::steady_clock::now() + patience);

    std::size_t unsure = 0;
    std::set<std::string> reasons;
    for (const kivclaim::ClaimAnswer& answer : query.askAll(linesOf(std::cin), kivclaim::ClaimFacts::claimOnly)) {
        const std::string reason = answer.whyUnsure();
        std::cout << answer.level() << ' ' << answer.stack() << ' ' << printable(answer.path())
                  << remarkOn(answer, kernel.get()) << '\n';
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
