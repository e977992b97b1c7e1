// The library as a Windows host runtime meets it: kavrel15_lumo.dll loaded with LoadLibrary, every
// export found by its plain name with GetProcAddress, called through lumowin.dll with host value
// records. Nothing of the library is linked in; the export names come from the list the build
// writes from the export definitions (kavrel_exports.inc).
#include <windows.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "kavrel/lumohost.h"

namespace {

const char *const kExportNames[] = {
#define KAVREL_EXPORT_NAME(name) #name,
#include "kavrel_exports.inc"
#undef KAVREL_EXPORT_NAME
};

// Exports that take no arguments, so that no host check can abandon them.
bool takesNoArguments(const std::string &name) { return name == "FnExitAlgebraNls"; }

class Dll {
public:
    Dll() : module_(LoadLibraryA("kavrel15_lumo.dll")) {}
    ~Dll() {
        if (module_) FreeLibrary(module_);
    }
    Dll(const Dll &) = delete;
    Dll &operator=(const Dll &) = delete;
    bool loaded() const { return module_ != nullptr; }
    LumoExport find(const char *name) const {
        // GetProcAddress returns a generic FARPROC; the export has the host's signature.
        return module_ ? reinterpret_cast<LumoExport>(reinterpret_cast<void *>(GetProcAddress(module_, name)))
                       : nullptr;
    }

private:
    HMODULE module_;
};

// An argument list the way the host builds one; every record is released at the end.
class Args {
public:
    explicit Args(int count) : v_(count) {
        for (auto &a : v_) std::memset(&a, 0, sizeof a);
    }
    ~Args() {
        for (auto &a : v_) LumoFreeByValue(&a);
    }
    Args(const Args &) = delete;
    Args &operator=(const Args &) = delete;
    LumoValue *data() { return v_.data(); }
    LumoValue &operator[](int i) { return v_[i]; }
    int size() const { return static_cast<int>(v_.size()); }

private:
    std::vector<LumoValue> v_;
};

struct Value {
    LumoValue v;
    Value() { std::memset(&v, 0, sizeof v); }
    ~Value() { LumoFreeByValue(&v); }
    Value(const Value &) = delete;
    Value &operator=(const Value &) = delete;
};

TEST(WindowsHost, ValueRecordHasTheHostLayout) {
    EXPECT_EQ(sizeof(void *), 4u);
    EXPECT_EQ(sizeof(LumoValue), 40u);
    EXPECT_EQ(offsetof(LumoValue, v), 8u);
    EXPECT_EQ(offsetof(LumoValue, data), 16u);
}

TEST(WindowsHost, EveryExportIsFoundByItsPlainNameOnly) {
    Dll dll;
    ASSERT_TRUE(dll.loaded()) << "LoadLibrary(kavrel15_lumo.dll) failed, error " << GetLastError();
    ASSERT_GT(sizeof kExportNames / sizeof kExportNames[0], 0u);
    for (const char *name : kExportNames) {
        EXPECT_NE(dll.find(name), nullptr) << name;
        // Neither the C symbol nor a stdcall decoration may leak into the export table.
        EXPECT_EQ(dll.find(("_" + std::string(name)).c_str()), nullptr) << name;
        EXPECT_EQ(dll.find((std::string(name) + "@12").c_str()), nullptr) << name;
    }
    // Internal routines stay internal.
    EXPECT_EQ(dll.find("MatAlloc"), nullptr);
    EXPECT_EQ(dll.find("KvMalloc"), nullptr);
    EXPECT_EQ(dll.find("RlsRecursion"), nullptr);
}

// Arguments of the wrong type: the host's check abandons the call, the result record keeps what the
// host prepared (or the missing value), and the library survives to be called again.
TEST(WindowsHost, EveryExportLeavesWrongTypesToTheHostCheck) {
    Dll dll;
    ASSERT_TRUE(dll.loaded());
    for (const char *name : kExportNames) {
        if (takesNoArguments(name)) continue;
        LumoExport fn = dll.find(name);
        ASSERT_NE(fn, nullptr) << name;
        Args args(24);
        for (int i = 0; i < args.size(); ++i) LumoValSetString(&args[i], "x");
        Value result;
        LumoValSetInt(&result.v, 77);
        EXPECT_EQ(LumoHostInvoke(fn, &result.v, args.data(), args.size()), 0) << name;
        EXPECT_NE(std::string(LumoHostLastError()), "") << name;
        // Untouched, or the missing value that the likelihood exports store before their checks.
        const int type = LumoValGetType(&result.v);
        if (type == LUMO_DOUBLE)
            EXPECT_TRUE(std::isnan(LumoValGetDouble(&result.v))) << name;
        else
            EXPECT_TRUE(type == LUMO_INT && LumoValGetInt(&result.v) == 77) << name;
    }
}

// (X'X)^-1 over observations 0..t in long double, by Gauss-Jordan elimination with partial
// pivoting: independent of the library's pivoted Householder fit.
std::vector<long double> inverseMoment(const std::vector<double> &x, int k, int t) {
    const int w = 2 * k;
    std::vector<long double> a(static_cast<size_t>(k) * w, 0.0L);
    for (int s = 0; s <= t; ++s)
        for (int i = 0; i < k; ++i)
            for (int j = 0; j < k; ++j) a[i * w + j] += static_cast<long double>(x[s * k + i]) * x[s * k + j];
    for (int i = 0; i < k; ++i) a[i * w + k + i] = 1.0L;
    for (int c = 0; c < k; ++c) {
        int p = c;
        for (int r = c + 1; r < k; ++r)
            if (std::fabs(a[r * w + c]) > std::fabs(a[p * w + c])) p = r;
        for (int j = 0; j < w; ++j) std::swap(a[c * w + j], a[p * w + j]);
        const long double d = a[c * w + c];
        for (int j = 0; j < w; ++j) a[c * w + j] /= d;
        for (int r = 0; r < k; ++r) {
            if (r == c) continue;
            const long double m = a[r * w + c];
            for (int j = 0; j < w; ++j) a[r * w + j] -= m * a[c * w + j];
        }
    }
    std::vector<long double> inv(static_cast<size_t>(k) * k);
    for (int i = 0; i < k; ++i)
        for (int j = 0; j < k; ++j) inv[i * k + j] = a[i * w + k + j];
    return inv;
}

// Least squares of y on x over observations 0..t: coefficients, diag (X'X)^-1, residual sum of
// squares, and x(s)' (X'X)^-1 x(s) for a given observation s.
struct Ols {
    std::vector<long double> b, inv;
    long double rss = 0;
    int k = 0;
    long double lever(const std::vector<double> &x, int s) const {
        long double q = 0;
        for (int i = 0; i < k; ++i)
            for (int j = 0; j < k; ++j) q += x[s * k + i] * inv[i * k + j] * x[s * k + j];
        return q;
    }
};

Ols olsFit(const std::vector<double> &y, const std::vector<double> &x, int k, int t) {
    Ols o;
    o.k = k;
    o.inv = inverseMoment(x, k, t);
    std::vector<long double> xy(k, 0.0L);
    for (int s = 0; s <= t; ++s)
        for (int j = 0; j < k; ++j) xy[j] += static_cast<long double>(x[s * k + j]) * y[s];
    o.b.assign(k, 0.0L);
    for (int i = 0; i < k; ++i)
        for (int j = 0; j < k; ++j) o.b[i] += o.inv[i * k + j] * xy[j];
    for (int s = 0; s <= t; ++s) {
        long double u = y[s];
        for (int j = 0; j < k; ++j) u -= o.b[j] * x[s * k + j];
        o.rss += u * u;
    }
    return o;
}

// A small regression with a trend and a cycle, so that the moment matrix is well conditioned.
void rlsData(int nobs, int k, std::vector<double> *y, std::vector<double> *x) {
    y->resize(nobs);
    x->resize(static_cast<size_t>(nobs) * k);
    for (int s = 0; s < nobs; ++s) {
        (*x)[s * k] = 1.0;
        if (k > 1) (*x)[s * k + 1] = 0.1 * s;
        if (k > 2) (*x)[s * k + 2] = std::sin(0.7 * s);
        (*y)[s] = 1.5 - 0.4 * (k > 1 ? (*x)[s * k + 1] : 0) + 0.3 * std::cos(1.3 * s) + 0.05 * ((s * 7) % 5);
    }
}

constexpr int kRlsOutputs = 7;  // positions 5..11

// Builds the FnRlsEst argument list: Y (nobs x 1), X (nobs x k), first, last, force, and a
// reference to targets[i] at position 5 + i where wanted[i].
void rlsArgs(Args &args, const std::vector<double> &y, const std::vector<double> &x, int nobs, int k, int first,
             int last, int force, LumoValue *targets, const bool *wanted) {
    ASSERT_EQ(LumoValSetMatrix(&args[0], nobs, 1, y.data()), 1);
    ASSERT_EQ(LumoValSetMatrix(&args[1], nobs, k, x.data()), 1);
    LumoValSetInt(&args[2], first);
    LumoValSetInt(&args[3], last);
    LumoValSetInt(&args[4], force);
    for (int i = 0; i < kRlsOutputs; ++i) {
        if (wanted[i])
            LumoValSetRef(&args[5 + i], &targets[i]);
        else
            LumoValSetInt(&args[5 + i], 0);
    }
}

double at(const LumoValue &v, int r, int c) {
    int rows = 0, cols = 0;
    MATRIX m = LumoValGetMatrix(&v, &rows, &cols);
    if (!m || r >= rows || c >= cols) return -12345.0;
    return m[r][c];
}

// Every column t from k to last against a refit on observations 0..t. Innovations use the fit
// before t; the first column comes from a full step, whose scaling f already contains t.
TEST(WindowsHost, RlsEstMatchesRefitsAtEveryObservation) {
    struct Row {
        int nobs, k, last, force;
        double tol;
    } rows[] = {
        {12, 1, 11, -1, 1e-12},
        {20, 2, 19, -1, 1e-11},
        {30, 3, 27, 10, 1e-10},
        {70, 2, 69, -1, 1e-10},  // crosses the 50-step full refit
    };
    Dll dll;
    ASSERT_TRUE(dll.loaded());
    LumoExport rls = dll.find("FnRlsEst");
    if (!rls) GTEST_SKIP() << "FnRlsEst is not exported yet";
    for (const Row &row : rows) {
        SCOPED_TRACE(testing::Message() << "nobs " << row.nobs << " k " << row.k);
        std::vector<double> y, x;
        rlsData(row.nobs, row.k, &y, &x);
        LumoValue tv[kRlsOutputs];
        for (auto &t : tv) std::memset(&t, 0, sizeof t);
        const bool all[kRlsOutputs] = {true, true, true, true, true, true, true};
        Args args(12);
        rlsArgs(args, y, x, row.nobs, row.k, 0, row.last, row.force, tv, all);
        Value result;
        ASSERT_EQ(LumoHostInvoke(rls, &result.v, args.data(), args.size()), 1) << LumoHostLastError();
        ASSERT_EQ(LumoValGetInt(&result.v), 1);
        const int k = row.k, T = row.last + 1;
        for (int c = 0; c < k; ++c) EXPECT_TRUE(std::isnan(at(tv[0], 0, c))) << "column " << c << " stays missing";
        for (int t = k; t <= row.last; ++t) {
            const Ols now = olsFit(y, x, k, t), before = olsFit(y, x, k, t - 1);
            const double tol = row.tol;
            for (int j = 0; j < k; ++j) {
                EXPECT_NEAR(at(tv[0], j, t), static_cast<double>(now.b[j]), tol) << "b t=" << t;
                EXPECT_NEAR(at(tv[1], j, t), static_cast<double>(now.inv[j * k + j]), tol) << "P t=" << t;
            }
            long double v = y[t];
            for (int j = 0; j < k; ++j) v -= before.b[j] * x[t * k + j];
            long double u = y[t];
            for (int j = 0; j < k; ++j) u -= now.b[j] * x[t * k + j];
            const bool fullStep = (t == k) || (t == row.force) || ((t - k) % 50 == 0);
            const long double f = 1.0L + (fullStep ? now.lever(x, t) : before.lever(x, t));
            EXPECT_NEAR(at(tv[3], 0, t), static_cast<double>(v), tol) << "v t=" << t;
            EXPECT_NEAR(at(tv[5], 0, t), static_cast<double>(u), tol) << "u t=" << t;
            EXPECT_NEAR(at(tv[2], 0, t), static_cast<double>(v / std::sqrt(f)), tol) << "w t=" << t;
            EXPECT_NEAR(at(tv[4], 0, t), static_cast<double>(now.rss), tol * (1 + now.rss)) << "RSS t=" << t;
            // One equation: S is the residual sum of squares and the statistic -0.5 log(RSS/T).
            if (!fullStep || t == k) {
                EXPECT_NEAR(at(tv[6], 0, t), static_cast<double>(-0.5L * std::log(now.rss / T)), 1e3 * tol)
                    << "stat t=" << t;
            }
        }
        for (auto &t : tv) LumoFreeByValue(&t);
    }
}

// Outcomes the frame defines for bad ranges and for calls without references.
TEST(WindowsHost, RlsEstBadRangesAndPlainOutputPositions) {
    Dll dll;
    ASSERT_TRUE(dll.loaded());
    LumoExport rls = dll.find("FnRlsEst");
    if (!rls) GTEST_SKIP() << "FnRlsEst is not exported yet";
    struct Row {
        const char *what;
        int nobs, first, last;
        bool refs;
        int status;  // -1: return value untouched
    } rows[] = {
        {"last below first", 10, 5, 4, true, -1},
        {"negative first", 10, -1, 9, true, -1},
        {"last beyond the data", 10, 0, 10, true, -1},
        {"too few observations", 10, 0, 1, true, 0},
        {"no references", 10, 0, 9, false, 1},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.what);
        std::vector<double> y, x;
        rlsData(row.nobs, 2, &y, &x);
        LumoValue tv[kRlsOutputs];
        for (auto &t : tv) {
            std::memset(&t, 0, sizeof t);
            LumoValSetInt(&t, 5);
        }
        bool wanted[kRlsOutputs];
        for (bool &w : wanted) w = row.refs;
        Args args(12);
        rlsArgs(args, y, x, row.nobs, 2, row.first, row.last, -1, tv, wanted);
        Value result;
        LumoValSetInt(&result.v, 77);
        ASSERT_EQ(LumoHostInvoke(rls, &result.v, args.data(), args.size()), 1);
        EXPECT_EQ(LumoValGetInt(&result.v), row.status < 0 ? 77 : row.status);
        if (row.status < 0) {
            for (auto &t : tv) EXPECT_EQ(LumoValGetType(&t), LUMO_INT) << "an output was touched";
        }
        for (auto &t : tv) LumoFreeByValue(&t);
    }
}

// Every host allocation of one call failing in turn: status 0, or the call's own success when the
// failing allocation was never reached; never a crash, and the library stays usable.
TEST(WindowsHost, RlsEstSurvivesEachHostAllocationFailure) {
    Dll dll;
    ASSERT_TRUE(dll.loaded());
    LumoExport rls = dll.find("FnRlsEst");
    if (!rls) GTEST_SKIP() << "FnRlsEst is not exported yet";
    std::vector<double> y, x;
    rlsData(15, 2, &y, &x);
    const bool all[kRlsOutputs] = {true, true, true, true, true, true, true};
    long failures = 0;
    for (long n = 1; n < 100; ++n) {
        LumoValue tv[kRlsOutputs];
        for (auto &t : tv) std::memset(&t, 0, sizeof t);
        Args args(12);
        rlsArgs(args, y, x, 15, 2, 0, 14, -1, tv, all);
        Value result;
        LumoHostFailAllocation(n);
        const int ok = LumoHostInvoke(rls, &result.v, args.data(), args.size());
        const long made = LumoHostFailAllocation(0);
        EXPECT_EQ(ok, 1);
        for (auto &t : tv) LumoFreeByValue(&t);
        if (made < n) {
            EXPECT_EQ(LumoValGetInt(&result.v), 1) << "n=" << n;
            break;
        }
        ++failures;
        EXPECT_EQ(LumoValGetInt(&result.v), 0) << "n=" << n;
    }
    EXPECT_GT(failures, 0);
}

}  // namespace
