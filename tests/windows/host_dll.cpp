// The library as a Windows host runtime meets it: kavrel15_lumo.dll loaded with LoadLibrary, every
// export found by its plain name with GetProcAddress, called through lumowin.dll with host value
// records. Nothing of the library is linked in; the export names are the built rows of the
// export table (kavrel/exports.inc).
#include <windows.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "kavrel/lumohost.h"

namespace {

const char *const kExportNames[] = {
#define KAVREL_EXPORT_ROW(name, family, arity, state) KAVREL_NAME_##state(name)
#define KAVREL_NAME_BUILT(name) #name,
#define KAVREL_NAME_PLANNED(name)
#include "kavrel/exports.inc"
#undef KAVREL_EXPORT_ROW
#undef KAVREL_NAME_BUILT
#undef KAVREL_NAME_PLANNED
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
        // Untouched, or what an export stores before its checks: the missing value of the
        // likelihoods, the -1 of the common-factor code.
        const int type = LumoValGetType(&result.v);
        if (type == LUMO_DOUBLE)
            EXPECT_TRUE(std::isnan(LumoValGetDouble(&result.v))) << name;
        else
            EXPECT_EQ(LumoValGetInt(&result.v), std::string(name) == "FnComfac" ? -1 : 77) << name;
        if (type != LUMO_DOUBLE) EXPECT_EQ(type, LUMO_INT) << name;
    }
}

constexpr int kRlsOutputs = 7; // positions 5..11

// y = 1 + 2 z - 0.5 z^2 with z = s / 8 (exact in binary) and regressors (1, z, z^2): every fit from
// observation k on reproduces the line, so the coefficients are known in closed form and the
// residuals vanish. The numerical agreement with refits is proven by the suite itself, which runs
// under Wine too; here the point is the call through the DLL boundary.
void rlsArgs(Args &args, int nobs, int last, LumoValue *targets) {
    std::vector<double> y(nobs), x(static_cast<size_t>(nobs) * 3);
    for (int s = 0; s < nobs; ++s) {
        x[s * 3] = 1.0;
        const double z = s / 8.0;
        x[s * 3 + 1] = z;
        x[s * 3 + 2] = z * z;
        y[s] = 1.0 + 2.0 * z - 0.5 * z * z;
    }
    ASSERT_EQ(LumoValSetMatrix(&args[0], nobs, 1, y.data()), 1);
    ASSERT_EQ(LumoValSetMatrix(&args[1], nobs, 3, x.data()), 1);
    LumoValSetInt(&args[2], 0);
    LumoValSetInt(&args[3], last);
    LumoValSetInt(&args[4], -1);
    for (int i = 0; i < kRlsOutputs; ++i) LumoValSetRef(&args[5 + i], &targets[i]);
}

TEST(WindowsHost, RlsEstThroughTheDll) {
    Dll dll;
    ASSERT_TRUE(dll.loaded());
    LumoExport rls = dll.find("FnRlsEst");
    ASSERT_NE(rls, nullptr);
    LumoValue tv[kRlsOutputs];
    for (auto &t : tv) std::memset(&t, 0, sizeof t);
    Args args(12);
    rlsArgs(args, 60, 59, tv); // crosses the 50-step refit
    Value result;
    ASSERT_EQ(LumoHostInvoke(rls, &result.v, args.data(), args.size()), 1) << LumoHostLastError();
    EXPECT_EQ(LumoValGetInt(&result.v), 1);
    int rows = 0, cols = 0;
    MATRIX b = LumoValGetMatrix(&tv[0], &rows, &cols);
    MATRIX u = LumoValGetMatrix(&tv[5], nullptr, nullptr);
    ASSERT_NE(b, nullptr);
    ASSERT_NE(u, nullptr);
    ASSERT_EQ(rows, 3);
    ASSERT_EQ(cols, 60);
    EXPECT_TRUE(std::isnan(b[0][2])); // before the first overidentified observation
    for (int t = 3; t < 60; ++t) {
        EXPECT_NEAR(b[0][t], 1.0, 1e-10) << t;
        EXPECT_NEAR(b[1][t], 2.0, 1e-10) << t;
        EXPECT_NEAR(b[2][t], -0.5, 1e-10) << t;
        EXPECT_NEAR(u[0][t], 0.0, 1e-10) << t;
    }
    for (auto &t : tv) LumoFreeByValue(&t);
}

} // namespace
