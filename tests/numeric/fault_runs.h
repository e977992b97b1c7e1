// Allocation-failure runs for the numeric kernels: call() is made once with each of its
// allocations failing in turn and once more with none left to fail.
#ifndef KAVREL_TESTS_NUMERIC_FAULT_RUNS_H
#define KAVREL_TESTS_NUMERIC_FAULT_RUNS_H

#include <vector>

#include "common/fault.h"

// The statuses call() returned, one per run: the runs with a failed allocation first, then the
// run that made every allocation.
template <class Call> std::vector<int> StatusesUnderAllocationFailure(Call call) {
    std::vector<int> statuses;
    ForEachLibraryAllocationFailure([&](long) { statuses.push_back(call()); });
    return statuses;
}

#endif
