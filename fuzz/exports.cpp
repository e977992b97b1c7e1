// Every built export of the export table called with argument records made from the input: any
// type code in any position, matrices of any shape (0 x N and N x 0 included) holding NaN,
// infinities and the missing value, integers and doubles at the edges of their ranges, references
// whose target is a fresh variable or one of the arguments themselves, and one library or host
// allocation failing at a point chosen by the input. The host's arity is always honoured (the
// host guarantees it); the count parameter is fuzzed. Everything is released after each call, so
// LeakSanitizer sees any path that does not free what it made.
#include <fuzzer/FuzzedDataProvider.h>

#include <climits>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <vector>

#include "base/alloc.h"
#include "kavrel/kavrel.h"
#include "kavrel/lumohost.h"

namespace {

struct ExportRow {
    const char *name;
    LumoExport fn;
    int arity;
};

// The argument types each export checks (i int, d double, m matrix, a array, s string, r
// reference), so that most calls get past the host's checks into the computation.
const struct {
    const char *name, *types;
} kSignatures[] = {
    {"FnRlsEst", "mmiiirrrrrrr"},      {"FnGarchVar", "mmmiiidddrr"},
    {"FnEgarchVar", "mmdddmmidrr"},    {"FnBinProbitRz", "mmmmrrrrr"},
    {"FnLogitRz", "mmimmmmrrrrr"},     {"FnActFitTable", "mm"},
    {"FnFilterMS", "mmmrr"},           {"FnSmoothMS", "mmrr"},
    {"FnSmoothMS2", "mmrr"},           {"FnSmoothMS2sym", "mmrr"},
    {"FnGLScovariance", "mmi"},        {"FnKroneckerSel", "mmmm"},
    {"FnSeasonalRsq", "midr"},         {"FnDeSeasonalize", "mi"},
    {"FnInitAlgebraNls", "maiiiisrr"}, {"FnRunAlgebraNls", "mii"},
    {"FnGetAlgebraName", "i"},         {"FnGetAlgebraVar", "siim"},
    {"FnGetAlgebraAddedData", "rr"},   {"FnDynForc", "mmiiiiimmmmmmmiirii"},
    {"FnImpulse", "mmiiiiimmmmmmmii"}, {"FnCountRz", "mmmiiidrrrrr"},
    {"FnLogitProbDeriv", "mmiii"},     {"FnInstabilityTest", "mmdr"},
    {"FnJackknifeHCSE", "mmm"},        {"FnRivEst", "miiiiiirrrrrr"},
    {"FnRalsFunc", "mmmiirrr"},        {"FnRalsForecast", "mmmiiimrr"},
    {"FnFracSigma", "miidir"},         {"FnEncompassing", "miiimiiirrr"},
    {"FnComfac", "mmmmmdirr"},
};

// Strings a bridge export may get: models (with and without parameters, faulty, broken) and
// names, so that a sequence of calls builds a model, runs it and reads it back.
const char *const kTexts[] = {"&0 = 1; &1 = 0.5; y = &0 + &1 * x;",
                              "&0 = 0.5; y = log(x - &0); z = cum(y) + lag(y, 1);",
                              "y = 2 * x;",
                              "&0 = 1; y = &0 * nothere;",
                              "y = x $",
                              "x",
                              "y",
                              ""};

const char *signatureOf(const char *name) {
    for (const auto &s : kSignatures)
        if (std::strcmp(s.name, name) == 0) return s.types;
    return "";
}

const ExportRow kExports[] = {
#define KAVREL_EXPORT_ROW(name, family, arity, state) KAVREL_FUZZ_##state(name, arity)
#define KAVREL_FUZZ_BUILT(name, arity) {#name, name, arity},
#define KAVREL_FUZZ_PLANNED(name, arity)
#include "kavrel/exports.inc"
#undef KAVREL_EXPORT_ROW
#undef KAVREL_FUZZ_BUILT
#undef KAVREL_FUZZ_PLANNED
};
constexpr int kExportCount = sizeof kExports / sizeof kExports[0];
constexpr int kMaxArgs = 24;

// A result no machine can grant is refused, as a host or heap out of memory would.
constexpr size_t kAllocationLimit = size_t(256) << 20;

double interestingDouble(FuzzedDataProvider &in) {
    static const double kValues[] = {0.0,
                                     -0.0,
                                     1.0,
                                     -1.0,
                                     -0.5,
                                     0.5,
                                     2.9,
                                     1e-300,
                                     -8.8e-280,
                                     1e300,
                                     -1e300,
                                     std::numeric_limits<double>::infinity(),
                                     -std::numeric_limits<double>::infinity(),
                                     std::numeric_limits<double>::quiet_NaN(),
                                     2147483648.0,
                                     -2147483649.0,
                                     4.0,
                                     12.0};
    if (in.ConsumeBool()) return kValues[in.ConsumeIntegralInRange<size_t>(0, sizeof kValues / sizeof kValues[0] - 1)];
    double d;
    const uint64_t bits = in.ConsumeIntegral<uint64_t>();
    std::memcpy(&d, &bits, sizeof d);
    return d;
}

int interestingInt(FuzzedDataProvider &in) {
    static const int kValues[] = {0, 1, 2, 3, 4, -1, -2, 5, 12, 50, INT_MAX, INT_MIN, INT_MAX - 1, 65536};
    if (in.ConsumeBool()) return kValues[in.ConsumeIntegralInRange<size_t>(0, sizeof kValues / sizeof kValues[0] - 1)];
    return in.ConsumeIntegralInRange<int>(-3, 64);
}

// A shape: mostly nobs rows (the call's common observation count) or small, sometimes empty in
// one direction with a large other side.
void matrixShape(FuzzedDataProvider &in, int nobs, int *rows, int *cols) {
    switch (in.ConsumeIntegralInRange<int>(0, 7)) {
    case 0:
        *rows = 0;
        *cols = in.ConsumeIntegralInRange<int>(0, 1 << 20);
        break;
    case 1:
        *rows = in.ConsumeIntegralInRange<int>(0, 1 << 16);
        *cols = 0;
        break;
    case 2:
        *rows = in.ConsumeIntegralInRange<int>(1, 400);
        *cols = in.ConsumeIntegralInRange<int>(1, 4);
        break;
    case 3:
    case 4:
        *rows = nobs;
        *cols = in.ConsumeIntegralInRange<int>(1, 4);
        break;
    case 5:
        *rows = 1;
        *cols = in.ConsumeIntegralInRange<int>(1, 6);
        break;
    default:
        *rows = in.ConsumeIntegralInRange<int>(0, 12);
        *cols = in.ConsumeIntegralInRange<int>(0, 12);
        break;
    }
}

void makeMatrix(FuzzedDataProvider &in, int nobs, LumoValue *v) {
    int rows, cols;
    matrixShape(in, nobs, &rows, &cols);
    const size_t n = static_cast<size_t>(rows) * static_cast<size_t>(cols);
    std::vector<double> data(n);
    // Probabilities and small integers are common, so that estimators get past their checks.
    const int style = in.ConsumeIntegralInRange<int>(0, 3);
    for (size_t i = 0; i < n; ++i) {
        if (style == 0)
            data[i] = interestingDouble(in);
        else if (style == 1)
            data[i] = in.ConsumeIntegralInRange<int>(0, 3);
        else
            data[i] = in.ConsumeProbability<double>();
    }
    if (!LumoValSetMatrix(v, rows, cols, n ? data.data() : nullptr)) std::memset(v, 0, sizeof *v);
}

struct Call {
    LumoValue args[kMaxArgs];
    LumoValue targets[kMaxArgs];
    LumoValue result;
    Call() { std::memset(static_cast<void *>(this), 0, sizeof *this); }
    ~Call() {
        for (int i = 0; i < kMaxArgs; ++i) {
            LumoFreeByValue(&args[i]);
            LumoFreeByValue(&targets[i]);
        }
        LumoFreeByValue(&result);
    }
};

// The kind of argument i: the checked type most of the time, any kind otherwise.
int argumentKind(FuzzedDataProvider &in, const char *types, int i) {
    const int any = in.ConsumeIntegralInRange<int>(0, 8);
    if (static_cast<size_t>(i) >= std::strlen(types) || in.ConsumeIntegralInRange<int>(0, 9) == 0) return any;
    switch (types[i]) {
    case 'i': return 0;
    case 'd': return 1;
    case 'm': return 2;
    case 'a': return 4;
    case 's': return 9;
    case 'r': return any == 7 ? 7 : 5;
    default: return 8;
    }
}

void makeArgument(FuzzedDataProvider &in, Call &c, int i, int arity, int kind, int nobs) {
    LumoValue *v = &c.args[i];
    switch (kind) {
    case 0: LumoValSetInt(v, in.ConsumeBool() ? in.ConsumeIntegralInRange<int>(0, nobs) : interestingInt(in)); break;
    case 1: LumoValSetDouble(v, interestingDouble(in)); break;
    case 2:
    case 3: makeMatrix(in, nobs, v); break;
    case 4: {
        const int count = in.ConsumeIntegralInRange<int>(0, 4);
        if (LumoLibValArrayCalloc(v, count))
            for (int e = 0; e < count; ++e) LumoValSetString(LumoValGetArrayVal(v, e), "x");
        break;
    }
    case 5:
    case 6: LumoValSetRef(v, &c.targets[i]); break;
    case 7: // a reference that names one of the arguments (a variable passed in and out)
        LumoValSetRef(v, &c.args[in.ConsumeIntegralInRange<int>(0, arity > 0 ? arity - 1 : 0)]);
        break;
    case 9:
        LumoValSetString(v, kTexts[in.ConsumeIntegralInRange<size_t>(0, sizeof kTexts / sizeof kTexts[0] - 1)]);
        break;
    default:
        if (in.ConsumeBool())
            LumoValSetString(v, "text");
        else
            v->type = in.ConsumeIntegral<int32_t>(); // an unknown type code, nothing behind it
        break;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    FuzzedDataProvider in(data, size);
    const ExportRow &x = kExports[in.ConsumeIntegralInRange<int>(0, kExportCount - 1)];
    const int failKind = in.ConsumeIntegralInRange<int>(0, 2);
    const long failAt = in.ConsumeIntegralInRange<long>(1, 40);
    const int count = in.ConsumeIntegralInRange<int>(-1, kMaxArgs);
    const int nobs = in.ConsumeIntegralInRange<int>(0, 80);
    const char *types = signatureOf(x.name);
    Call c;
    for (int i = 0; i < x.arity; ++i) makeArgument(in, c, i, x.arity, argumentKind(in, types, i), nobs);
    if (in.ConsumeBool()) LumoValSetInt(&c.result, 7);

    KvAllocSetLimit(kAllocationLimit);
    LumoHostSetAllocationLimit(kAllocationLimit);
    if (failKind == 1) KvAllocFailAt(failAt);
    if (failKind == 2) LumoHostFailAllocation(failAt);
    LumoHostInvoke(x.fn, &c.result, c.args, count);
    KvAllocFailAt(0);
    LumoHostFailAllocation(0);
    return 0;
}
