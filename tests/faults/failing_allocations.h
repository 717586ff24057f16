// Makes allocations fail. A program with this file has its own operator new.
#ifndef KIVCLAIM_TESTS_FAULTS_FAILING_ALLOCATIONS_H
#define KIVCLAIM_TESTS_FAULTS_FAILING_ALLOCATIONS_H

namespace faults {

constexpr int forever = -1;

// While it exists, allocations of this thread fail: `successes` allocations work, the next `failures` fail, and all
// later ones work again. Allocations of the recording host are not counted. One at a time.
class FailingAllocations {
public:
    explicit FailingAllocations(int successes, int failures = forever);
    ~FailingAllocations();
    FailingAllocations(const FailingAllocations&) = delete;
    FailingAllocations& operator=(const FailingAllocations&) = delete;

    // The number of allocations that failed so far.
    static int failed();
};

// The number of blocks of memory that the program holds now.
long blocksAlive();

}  // namespace faults

#endif
