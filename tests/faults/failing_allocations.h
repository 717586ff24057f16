// Memory that runs out. A program with this file has its own operator new.
#ifndef KIVCLAIM_TESTS_FAULTS_FAILING_ALLOCATIONS_H
#define KIVCLAIM_TESTS_FAULTS_FAILING_ALLOCATIONS_H

namespace faults {

constexpr int forever = -1;

// While it lives, this thread runs out of memory: `successes` allocations work, the next `failures` fail, and all later
// ones work again. What the recording host allocates is its own affair and does not count. One at a time.
class FailingAllocations {
public:
    explicit FailingAllocations(int successes, int failures = forever);
    ~FailingAllocations();
    FailingAllocations(const FailingAllocations&) = delete;
    FailingAllocations& operator=(const FailingAllocations&) = delete;

    // How many allocations failed so far.
    static int failed();
};

// How many blocks of memory the program holds now.
long blocksAlive();

}  // namespace faults

#endif
