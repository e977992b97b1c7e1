// Allocation-failure injection for tests: run a call once for every allocation it makes, with
// exactly that allocation failing, so that each failure path is exercised (SQLite's fault hooks).
// Under LeakSanitizer a path that does not free what it made fails the test run.
#ifndef KAVREL_TESTS_FAULT_H
#define KAVREL_TESTS_FAULT_H

#include "kavrel/lumohost.h"
#include "matrix/alloc.h"

// Calls call(n) with the n-th library allocation failing, for n = 1, 2, ... until a run makes
// fewer than n allocations (the hook no longer fires). Returns the number of runs that failed
// an allocation. call must check its own outcome for that n.
template <class Call> long ForEachLibraryAllocationFailure(Call call) {
    for (long n = 1;; ++n) {
        KvAllocFailAt(n);
        call(n);
        long made = KvAllocFailAt(0);
        if (made < n) return n - 1;
    }
}

// The same for the host's allocations (results the export asks the host to make).
template <class Call> long ForEachHostAllocationFailure(Call call) {
    for (long n = 1;; ++n) {
        LumoHostFailAllocation(n);
        call(n);
        long made = LumoHostFailAllocation(0);
        if (made < n) return n - 1;
    }
}

#endif
