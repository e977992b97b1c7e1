// One host call as a host program makes it: argument records, the variables that references
// point at, and the return record, all freed at the end of the scope.
#ifndef KAVREL_TESTS_ESTIMATORS_HOST_CALL_H
#define KAVREL_TESTS_ESTIMATORS_HOST_CALL_H

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "kavrel/lumohost.h"

using Vec = std::vector<double>;

// The elements of a host matrix, row by row (empty when it has none).
inline Vec HostValues(const LumoValue *v) {
    int r, c;
    MATRIX m = LumoValGetMatrix(v, &r, &c);
    return m && r > 0 && c > 0 ? Vec(m[0], m[0] + static_cast<size_t>(r) * c) : Vec();
}

template <int N> struct HostCall {
    LumoValue args[N], targets[N], result;
    HostCall() { std::memset(static_cast<void *>(this), 0, sizeof *this); }
    ~HostCall() {
        for (int i = 0; i < N; ++i) LumoFreeByValue(&args[i]), LumoFreeByValue(&targets[i]);
        LumoFreeByValue(&result);
    }
    HostCall(const HostCall &) = delete;
    HostCall &operator=(const HostCall &) = delete;
    void mat(int i, int r, int c, const Vec &d) { ASSERT_TRUE(LumoValSetMatrix(&args[i], r, c, d.data())); }
    void col(int i, const Vec &d) { mat(i, static_cast<int>(d.size()), 1, d); }
    void ref(int i) { LumoValSetRef(&args[i], &targets[i]); }
    int invoke(LumoExport fn) { return LumoHostInvoke(fn, &result, args, N); }
    Vec out(int i) const { return HostValues(&targets[i]); }
};

#endif
