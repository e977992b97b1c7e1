// The Algebra interpreter over T = 1,000,000 observations, each program against a C++ loop that
// computes the same values under the same missing-value rules (target: within 10 times the
// loop): a statement of ten arithmetic operators, with every 97th value of a missing, and a
// recursive statement that reads what it has just written, run from the second observation on
// (a missing value would stay in the recursion for good, so its data has none).
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>

#include "algebra/algebra.h"
#include "base/types.h"
#include "database/database.h"
#include "database/messages.h"

namespace {

constexpr int kObs = 1000000;
const char *const kNames[] = {"a", "b", "c", "d", "e", "f", "g", "h", "i", "j", "r", "x", "y"};
constexpr int kVars = sizeof kNames / sizeof kNames[0];

void quietSink(const char *, const char *) {}

Database *makeData() {
    SetMessageSink(quietSink);
    Database *db = DbCreate("bench", 0);
    DbSetSample(db, Sample{1, 1, kObs, 1, 1});
    DbAddVariables(db, kVars);
    for (int v = 0; v < kVars; ++v) {
        DbSetVariableName(db, v, kNames[v]);
        for (int t = 0; t < kObs; ++t) db->columns[v][t] = 0.5 + 0.25 * v + 1e-6 * t;
    }
    for (int t = 0; t < kObs; t += 97) db->columns[0][t] = MissingValueOf();
    for (int t = 0; t < kObs; ++t) db->columns[DbFindVariableExact(db, "r")][t] = 0.5;
    db->columns[DbFindVariableExact(db, "y")][0] = 1.0;
    return db;
}

double *column(Database *db, const char *name) { return db->columns[DbFindVariableExact(db, name)]; }

void runProgram(benchmark::State &state, const char *program, int operators, int t1) {
    Database *db = makeData();
    AlgebraCompiler *c = AlgebraCreate(db, 0);
    if (!AlgebraLoad(c, program, nullptr) || !AlgebraCompile(c, db)) state.SkipWithError("does not compile");
    for (auto _ : state) benchmark::DoNotOptimize(AlgebraRun(c, t1, kObs - 1, kObs, 1));
    state.counters["ns/operator"] =
        benchmark::Counter(static_cast<double>(state.iterations()) * (kObs - t1) * operators,
                           benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
    AlgebraFree(c);
    DbFree(db);
    SetMessageSink(nullptr);
}

const char *const kArithmetic = "y = (a + b) * c - d / e + f * g - h + i * j - a;";

void BM_ArithmeticAlgebra(benchmark::State &state) { runProgram(state, kArithmetic, 10, 0); }
BENCHMARK(BM_ArithmeticAlgebra)->Unit(benchmark::kMillisecond);

// Missing operands propagate through + - * / as NaNs do; a zero divisor of a present value
// counts as the interpreter's fault bit.
void BM_ArithmeticLoop(benchmark::State &state) {
    Database *db = makeData();
    const double *a = column(db, "a"), *b = column(db, "b"), *cc = column(db, "c"), *d = column(db, "d"),
                 *e = column(db, "e"), *f = column(db, "f"), *g = column(db, "g"), *h = column(db, "h"),
                 *i = column(db, "i"), *j = column(db, "j");
    double *y = column(db, "y");
    for (auto _ : state) {
        uint32_t errors = 0;
        for (int t = 0; t < kObs; ++t) {
            if (e[t] == 0.0 && d[t] == d[t]) errors |= 8;
            y[t] = (a[t] + b[t]) * cc[t] - d[t] / e[t] + f[t] * g[t] - h[t] + i[t] * j[t] - a[t];
        }
        benchmark::DoNotOptimize(errors);
        benchmark::ClobberMemory();
    }
    DbFree(db);
    SetMessageSink(nullptr);
}
BENCHMARK(BM_ArithmeticLoop)->Unit(benchmark::kMillisecond);

const char *const kRecursive = "y = y[-1] * r + x;";

void BM_RecursiveAlgebra(benchmark::State &state) { runProgram(state, kRecursive, 2, 1); }
BENCHMARK(BM_RecursiveAlgebra)->Unit(benchmark::kMillisecond);

void BM_RecursiveLoop(benchmark::State &state) {
    Database *db = makeData();
    const double *r = column(db, "r"), *x = column(db, "x");
    double *y = column(db, "y");
    for (auto _ : state) {
        for (int t = 1; t < kObs; ++t) y[t] = y[t - 1] * r[t] + x[t];
        benchmark::ClobberMemory();
    }
    DbFree(db);
    SetMessageSink(nullptr);
}
BENCHMARK(BM_RecursiveLoop)->Unit(benchmark::kMillisecond);

// Built-ins defined by a scan from t1 (cum, stock) or a pass over the sample (mean, variance) at
// every observation: linear in T through their memos, where the literal definition would take
// T^2/2 steps (5e11 here). Reported per observation.
void BM_ScanBuiltins(benchmark::State &state) {
    runProgram(state, "y = cum(x) + stock(x, 0.1, 0) + mean(a) + variance(a);", 4, 0);
}
BENCHMARK(BM_ScanBuiltins)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
