// The estimation bridge's run, as an optimiser calls it once per function evaluation: a model of
// ten parameters over 10,000 observations through FnRunAlgebraNls (host values in, the parameter
// writes, the quiet run) against the same compiled model run directly with its parameters set
// (target: at most 1.2 times): the bridge must add nothing per observation.
#include <benchmark/benchmark.h>

#include <cstring>
#include <string>
#include <vector>

#include "algebra/algebra.h"
#include "database/database.h"
#include "database/messages.h"
#include "kavrel/kavrel.h"
#include "kavrel/lumohost.h"

namespace {

constexpr int kObs = 10000, kRegressors = 9, kParams = kRegressors + 1;

std::string model() {
    std::string text;
    for (int p = 0; p < kParams; ++p) text += "&" + std::to_string(p) + " = 0.1;\n";
    text += "y = &0";
    for (int j = 1; j <= kRegressors; ++j) text += " + &" + std::to_string(j) + " * x" + std::to_string(j);
    return text + ";\nu = y - x1;";
}

double value(int t, int j) { return 1.0 + 0.001 * t + 0.1 * j; }

void quiet(const char *, const char *) {}

void BM_BridgeRun(benchmark::State &state) {
    SetMessageSink(quiet);
    std::vector<double> data(static_cast<size_t>(kObs) * kRegressors);
    for (int t = 0; t < kObs; ++t)
        for (int j = 0; j < kRegressors; ++j) data[static_cast<size_t>(t) * kRegressors + j] = value(t, j + 1);
    LumoValue args[9], starts, numbers, result;
    std::memset(args, 0, sizeof args), std::memset(&starts, 0, sizeof starts);
    std::memset(&numbers, 0, sizeof numbers), std::memset(&result, 0, sizeof result);
    LumoValSetMatrix(&args[0], kObs, kRegressors, data.data());
    LumoLibValArrayCalloc(&args[1], kRegressors);
    for (int j = 0; j < kRegressors; ++j)
        LumoValSetString(LumoValGetArrayVal(&args[1], j), ("x" + std::to_string(j + 1)).c_str());
    LumoValSetInt(&args[2], 1), LumoValSetInt(&args[3], 1), LumoValSetInt(&args[4], 1), LumoValSetInt(&args[5], 0);
    LumoValSetString(&args[6], model().c_str());
    LumoValSetRef(&args[7], &starts), LumoValSetRef(&args[8], &numbers);
    FnInitAlgebraNls(&result, args, 9);
    if (result.type == LUMO_STRING) state.SkipWithError(LumoValGetString(&result));

    const std::vector<double> params(kParams, 0.5);
    LumoValue run[3], out;
    std::memset(run, 0, sizeof run), std::memset(&out, 0, sizeof out);
    LumoValSetMatrix(&run[0], kParams, 1, params.data());
    LumoValSetInt(&run[1], 0), LumoValSetInt(&run[2], kObs - 1);
    for (auto _ : state) {
        FnRunAlgebraNls(&out, run, 3);
        benchmark::DoNotOptimize(out.v.w.ival);
    }
    FnExitAlgebraNls(&out, run, 0);
    for (LumoValue *v : {&args[0], &args[1], &args[2], &args[3], &args[4], &args[5], &args[6], &args[7], &args[8],
                         &starts, &numbers, &result, &run[0], &run[1], &run[2], &out})
        LumoFreeByValue(v);
    SetMessageSink(nullptr);
}
BENCHMARK(BM_BridgeRun)->Unit(benchmark::kMicrosecond);

void BM_DirectRun(benchmark::State &state) {
    SetMessageSink(quiet);
    Database *db = DbCreate("direct", 0);
    DbSetSample(db, Sample{1, 1, kObs, 1, 1});
    DbAddVariables(db, kRegressors);
    for (int j = 0; j < kRegressors; ++j) {
        DbSetVariableName(db, j, ("x" + std::to_string(j + 1)).c_str());
        for (int t = 0; t < kObs; ++t) db->columns[j][t] = value(t, j + 1);
    }
    AlgebraCompiler *c = AlgebraCreate(db, 500);
    if (!AlgebraLoad(c, model().c_str(), nullptr) || !AlgebraCompile(c, db)) state.SkipWithError("does not compile");
    const std::vector<double> params(kParams, 0.5);
    for (auto _ : state) {
        AlgebraSetParams(c, params.data(), kParams);
        benchmark::DoNotOptimize(AlgebraRun(c, 0, kObs - 1, kObs, 1));
    }
    AlgebraFree(c);
    DbFree(db);
    SetMessageSink(nullptr);
}
BENCHMARK(BM_DirectRun)->Unit(benchmark::kMicrosecond);

} // namespace

BENCHMARK_MAIN();
