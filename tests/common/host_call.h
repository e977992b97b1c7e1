// One host call as a host program makes it: up to twenty argument records, the caller's variables
// that references point at (targets[i] for argument i), and the return record, all freed with the
// call. Setters chain, so that a call reads as its argument list.
#ifndef KAVREL_TESTS_COMMON_HOST_CALL_H
#define KAVREL_TESTS_COMMON_HOST_CALL_H

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "kavrel/lumohost.h"

using Vec = std::vector<double>;

// The elements of a host matrix, row by row (empty when it has none).
inline Vec HostValues(const LumoValue *v) {
    int r = 0, c = 0;
    MATRIX m = LumoValGetMatrix(v, &r, &c);
    return m && r > 0 && c > 0 ? Vec(m[0], m[0] + static_cast<size_t>(r) * c) : Vec();
}

inline bool AllMissing(const Vec &v) {
    return std::all_of(v.begin(), v.end(), [](double d) { return d != d; });
}

// Equal bit for bit, so that a missing value equals a missing value.
inline bool SameBits(const Vec &a, const Vec &b) {
    return a.size() == b.size() && std::memcmp(a.data(), b.data(), sizeof(double) * a.size()) == 0;
}

// got agrees with want to tol * max(1, |want|), exactly where tol is 0; missing where want is.
template <class V> void ExpectClose(const Vec &got, const V &want, double tol, const char *what = "") {
    ASSERT_EQ(got.size(), want.size()) << what;
    for (size_t i = 0; i < got.size(); ++i) {
        const double w = static_cast<double>(want[i]);
        if (std::isnan(w)) {
            EXPECT_TRUE(std::isnan(got[i])) << what << " element " << i;
        } else if (got[i] != w) {
            EXPECT_NEAR(got[i], w, tol * std::max(1.0, std::fabs(w))) << what << " element " << i;
        }
    }
}

struct HostCall {
    static constexpr int kMax = 20;
    LumoValue args[kMax], targets[kMax], result;
    int count;
    HostCall() { std::memset(static_cast<void *>(this), 0, sizeof *this); }
    ~HostCall() {
        for (int i = 0; i < kMax; ++i) LumoFreeByValue(&args[i]), LumoFreeByValue(&targets[i]);
        LumoFreeByValue(&result);
    }
    HostCall(const HostCall &) = delete;
    HostCall &operator=(const HostCall &) = delete;

    LumoValue *at(int i) { return count = std::max(count, i + 1), &args[i]; }
    HostCall &mat(int i, int r, int c, const Vec &d) {
        if (!d.empty()) {
            EXPECT_GE(d.size(), static_cast<size_t>(r) * c);
        }
        EXPECT_TRUE(LumoValSetMatrix(at(i), r, c, d.empty() ? nullptr : d.data()));
        return *this;
    }
    HostCall &col(int i, const Vec &d) { return mat(i, static_cast<int>(d.size()), 1, d); }
    HostCall &row(int i, const Vec &d) { return mat(i, 1, static_cast<int>(d.size()), d); }
    HostCall &num(int i, int v) { return LumoValSetInt(at(i), v), *this; }
    HostCall &str(int i, const char *text) {
        EXPECT_TRUE(LumoValSetString(at(i), text));
        return *this;
    }
    // An array of strings.
    HostCall &strs(int i, const std::vector<const char *> &texts) {
        EXPECT_TRUE(LumoLibValArrayCalloc(at(i), static_cast<int>(texts.size())));
        for (size_t k = 0; k < texts.size(); ++k)
            EXPECT_TRUE(LumoValSetString(LumoValGetArrayVal(&args[i], static_cast<int>(k)), texts[k]));
        return *this;
    }
    HostCall &dbl(int i, double v) { return LumoValSetDouble(at(i), v), *this; }
    HostCall &ref(int first, int last = -1) {
        for (int i = first; i <= std::max(first, last); ++i) LumoValSetRef(at(i), &targets[i]);
        return *this;
    }

    bool isOutput(int i) const { return args[i].type == LUMO_REF && args[i].v.w.u.target == &targets[i]; }
    // The caller's variables and the return record hold something before the call.
    void preset() {
        LumoValSetInt(&result, 99);
        for (int i = 0; i < kMax; ++i)
            if (isOutput(i)) LumoValSetInt(&targets[i], 7);
    }
    int invoke(LumoExport fn) { return LumoHostInvoke(fn, &result, args, count); }
    Vec out(int i) const { return HostValues(&targets[i]); }
    Vec values() const { return HostValues(&result); }
    int status() const { return result.type == LUMO_INT ? result.v.w.ival : -1; }
    std::string text() const { return result.type == LUMO_STRING ? LumoValGetString(&result) : "(not a string)"; }
    double value() const { return result.type == LUMO_DOUBLE ? result.v.dval : -1.0; }
    bool untouched(int i) const { return targets[i].type == LUMO_INT && targets[i].v.w.ival == 7; }
    // pred holds for the variable of every output argument.
    template <class Pred> bool outputs(Pred pred) const {
        for (int i = 0; i < kMax; ++i)
            if (isOutput(i) && !pred(i)) return false;
        return true;
    }
};

#endif
