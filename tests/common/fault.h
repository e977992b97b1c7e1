// Allocation-failure injection for tests: run a call once for every allocation it makes, with
// exactly that allocation failing, so that each failure path is exercised (SQLite's fault hooks).
// Under LeakSanitizer a path that does not free what it made fails the test run.
#ifndef KAVREL_TESTS_FAULT_H
#define KAVREL_TESTS_FAULT_H

#include "base/alloc.h"
#include "kavrel/lumohost.h"

// Calls call(n) with the n-th allocation failing through hook (which arms the n-th failure and
// returns the count made since it was last called), for n = 1, 2, ... until a run makes fewer
// than n allocations. Returns the number of runs that failed an allocation; call checks its
// own outcome for that n.
template <class Hook, class Call> long forEachAllocationFailure(Hook hook, Call call) {
    for (long n = 1;; ++n) {
        hook(n);
        call(n);
        if (hook(0) < n) return n - 1;
    }
}

// Library allocations (scratch the library makes for itself).
template <class Call> long ForEachLibraryAllocationFailure(Call call) {
    return forEachAllocationFailure(KvAllocFailAt, call);
}

// Host allocations (results the export asks the host to make).
template <class Call> long ForEachHostAllocationFailure(Call call) {
    return forEachAllocationFailure(LumoHostFailAllocation, call);
}

#endif
