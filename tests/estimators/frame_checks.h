// Frame checks over one export and one valid call of it: each library and each host allocation
// failing in turn (what a failure leaves is the caller's to check; the run after the last
// failure must match an undisturbed call, and LeakSanitizer sees every path), and every output
// naming every input (the output ends in the input's variable, equal to a call without aliasing).
#ifndef KAVREL_TESTS_ESTIMATORS_FRAME_CHECKS_H
#define KAVREL_TESTS_ESTIMATORS_FRAME_CHECKS_H

#include "common/fault.h"
#include "common/host_call.h"

using ArgsFn = void (*)(HostCall &);

// Equal type and payload, matrices bit for bit.
inline bool SameHostValue(const LumoValue &a, const LumoValue &b) {
    if (a.type != b.type) return false;
    if (a.type == LUMO_INT) return a.v.w.ival == b.v.w.ival;
    if (a.type == LUMO_DOUBLE) return std::memcmp(&a.v.dval, &b.v.dval, sizeof(double)) == 0;
    if (a.type != LUMO_MATRIX) return true;
    return a.v.w.ival == b.v.w.ival && a.v.w.u.cols == b.v.w.u.cols && SameBits(HostValues(&a), HostValues(&b));
}

// fired(c, host) checks a call whose injected (host or library) failure fired; a call makes hostAllocs host
// allocations. Returns the library and host allocation counts seen.
template <class Fired>
std::pair<long, long> CheckAllocationFailures(LumoExport fn, ArgsFn args, long hostAllocs, Fired fired) {
    HostCall clean, c;
    args(clean);
    args(c);
    clean.preset();
    EXPECT_EQ(clean.invoke(fn), 1);
    auto run = [&](long n, bool host) {
        c.preset();
        ASSERT_EQ(c.invoke(fn), 1);
        const bool didFire = host ? n <= hostAllocs : KvAllocCount() >= n;
        if (didFire) {
            SCOPED_TRACE(::testing::Message() << (host ? "host" : "library") << " allocation " << n);
            fired(c, host);
            return;
        }
        EXPECT_TRUE(SameHostValue(c.result, clean.result));
        for (int i = 0; i < HostCall::kMax; ++i)
            if (c.isOutput(i)) {
                EXPECT_TRUE(SameHostValue(c.targets[i], clean.targets[i])) << "output " << i;
            }
    };
    const long lib = ForEachLibraryAllocationFailure([&](long n) { run(n, false); });
    const long host = ForEachHostAllocationFailure([&](long n) { run(n, true); });
    return {lib, host};
}

// The result as a number: a status or a value, NaN for the missing value and for no matrix.
inline double ResultNumber(const HostCall &c) {
    if (c.result.type == LUMO_INT) return c.result.v.w.ival;
    if (c.result.type == LUMO_DOUBLE) return c.result.v.dval;
    return c.values().empty() ? NAN : HUGE_VAL;
}

// The variable of output i holds a matrix of missing values.
inline bool HoldsMissing(const HostCall &c, int i) {
    const Vec v = c.out(i);
    return !v.empty() && AllMissing(v);
}

// A call made invalid by edit: the host's report when a type check abandons it (empty when the
// export ran); the result it leaves (99, the preset, when untouched) and whether the outputs hold
// missing values (else they are untouched); or holds(c) states what the call left.
struct BadInput {
    const char *what;
    void (*edit)(HostCall &);
    const char *message;
    double left = 99;
    bool missing = false;
};
template <size_t N, class Holds>
void CheckBadInput(LumoExport fn, ArgsFn args, const BadInput (&rows)[N], Holds holds) {
    for (const BadInput &r : rows) {
        SCOPED_TRACE(r.what);
        HostCall c;
        args(c);
        r.edit(c);
        c.preset();
        EXPECT_EQ(c.invoke(fn), r.message[0] ? 0 : 1);
        EXPECT_STREQ(LumoHostLastError(), r.message);
        holds(c);
    }
}

template <size_t N> void CheckBadInput(LumoExport fn, ArgsFn args, const BadInput (&rows)[N]) {
    for (const BadInput &r : rows)
        CheckBadInput(fn, args, {r}, [&](const HostCall &c) {
            ExpectClose({ResultNumber(c)}, Vec{r.left}, 0, "result");
            for (int i = 0; i < c.count; ++i)
                if (c.isOutput(i)) {
                    EXPECT_TRUE(r.missing ? HoldsMissing(c, i) : c.untouched(i)) << "output " << i;
                }
        });
}

// Returns the number of (output, input) pairs tried.
inline int CheckOutputsNamingInputs(LumoExport fn, ArgsFn args) {
    HostCall clean;
    args(clean);
    EXPECT_EQ(clean.invoke(fn), 1);
    int pairs = 0;
    for (int out = 0; out < clean.count; ++out) {
        if (!clean.isOutput(out)) continue;
        for (int in = 0; in < clean.count; ++in) {
            if (clean.isOutput(in)) continue;
            SCOPED_TRACE(::testing::Message() << "output " << out << " names input " << in);
            HostCall c;
            args(c);
            LumoValSetRef(&c.args[out], &c.args[in]);
            ++pairs;
            EXPECT_EQ(c.invoke(fn), 1) << LumoHostLastError();
            EXPECT_TRUE(SameHostValue(c.result, clean.result));
            EXPECT_TRUE(SameHostValue(c.args[in], clean.targets[out]));
            for (int other = 0; other < c.count; ++other)
                if (other != out && c.isOutput(other)) {
                    EXPECT_TRUE(SameHostValue(c.targets[other], clean.targets[other])) << other;
                }
        }
    }
    return pairs;
}

// One export's frame: the library and host allocations of a valid call, the result a failed one
// leaves (as ResultNumber gives it) and the (output, input) pairs. A failed library allocation
// leaves every output missing, a failed host allocation every variable as it was.
struct Frame {
    const char *name;
    LumoExport fn;
    ArgsFn args;
    long libAllocs, hostAllocs;
    double failed;
    int pairs;
};
template <size_t N> void CheckFrames(const Frame (&rows)[N]) {
    for (const Frame &r : rows) {
        SCOPED_TRACE(r.name);
        const auto counts = CheckAllocationFailures(r.fn, r.args, r.hostAllocs, [&](const HostCall &c, bool host) {
            ExpectClose({ResultNumber(c)}, Vec{r.failed}, 0, "result");
            for (int i = 0; i < c.count; ++i)
                if (c.isOutput(i)) {
                    EXPECT_TRUE(host ? c.untouched(i) : HoldsMissing(c, i)) << "output " << i;
                }
        });
        EXPECT_EQ(counts.first, r.libAllocs);
        EXPECT_EQ(counts.second, r.hostAllocs);
        EXPECT_EQ(CheckOutputsNamingInputs(r.fn, r.args), r.pairs);
    }
}

#endif
