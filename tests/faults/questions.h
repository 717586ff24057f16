// Questions to the library, repeated with one fault after the other.
#ifndef KIVCLAIM_TESTS_FAULTS_QUESTIONS_H
#define KIVCLAIM_TESTS_FAULTS_QUESTIONS_H

#include "tests/faults/failing_allocations.h"
#include "tests/recording_host.h"

#include <gtest/gtest.h>

#include <functional>
#include <new>
#include <string>

namespace faults {

using Machine = std::function<void(recording::Host&)>;

// The outcome of one question.
struct Outcome {
    bool threw = false;
    std::string answer;  // empty when it threw
    recording::Lines effects;
    recording::Lines errors;  // the texts of the records at level 1
};

using Judge = std::function<void(const Outcome&)>;

// Asks a fresh `Subject` while the first, the second ... allocation of the plug-in fails, until none is left to fail,
// and calls `judge` with the outcome of each failure. None of them may leak memory. Returns the number of failures.
template <class Subject>
int failEachAllocation(const Machine& machine, const std::function<std::string(Subject&)>& ask, const Judge& judge)
{
    for (int successes = 0;; ++successes) {
        SCOPED_TRACE("after " + std::to_string(successes) + " allocations");
        const long blocksBefore = blocksAlive();
        bool failed = false;
        {
            recording::Host host;
            machine(host);
            Subject subject;
            subject.registerTraceLog(host.log());
            host.forget();
            Outcome outcome;
            {
                const FailingAllocations failing(successes, 1);
                try {
                    outcome.answer = ask(subject);
                } catch (const std::bad_alloc&) {
                    outcome.threw = true;
                }
                failed = FailingAllocations::failed() != 0;
            }
            outcome.effects = host.effects();
            outcome.errors = host.trace(1);
            host.dropScripts();
            if (failed) {
                judge(outcome);
            }
        }
        EXPECT_EQ(blocksAlive(), blocksBefore);
        if (!failed) {
            return successes;
        }
    }
}

inline void nothingSpecial(recording::Host& /*host*/)
{
}

// Checks an operation that an exception may end early, but whose answer is always `right`, and whose entry is always
// recorded.
inline Judge entersAndIsRightOrThrows(const std::string& operation, const std::string& right)
{
    return [=](const Outcome& outcome) {
        EXPECT_TRUE(outcome.threw || outcome.answer == right) << outcome.answer;
        ASSERT_FALSE(outcome.effects.empty());
        EXPECT_EQ(outcome.effects.front().find("6 Entering Function " + operation + " ["), 0U);
        EXPECT_EQ(outcome.effects.back().find("6 Exiting Function " + operation + " ["), 0U);
    };
}

}  // namespace faults

#endif
