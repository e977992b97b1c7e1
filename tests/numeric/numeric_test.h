// Helpers of the numeric tests: allocation-failure runs and dense long double solves of the
// systems the banded and recursive kernels solve.
#ifndef KAVREL_TESTS_NUMERIC_NUMERIC_TEST_H
#define KAVREL_TESTS_NUMERIC_NUMERIC_TEST_H

#include <vector>

#include "common/fault.h"
#include "common/reference.h"

// The statuses call() returned, one per run: the runs with each allocation failing in turn, then
// the run that made every allocation.
template <class Call> std::vector<int> StatusesUnderAllocationFailure(Call call) {
    std::vector<int> statuses;
    ForEachLibraryAllocationFailure([&](long) { statuses.push_back(call()); });
    return statuses;
}

inline LMat InverseDense(const LMat &a) {
    std::vector<int> all(a.size());
    for (size_t i = 0; i < a.size(); ++i) all[i] = static_cast<int>(i);
    return inverseOn(a, all);
}

inline LVec MultiplyDense(const LMat &a, const LVec &x) {
    LVec y(a.size(), 0.0L);
    for (size_t i = 0; i < a.size(); ++i)
        for (size_t j = 0; j < x.size(); ++j) y[i] += a[i][j] * x[j];
    return y;
}

#endif
