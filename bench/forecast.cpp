// Dynamic forecasts of a 4-equation VAR(4) with a constant over 10,000 steps (16 lagged regressors
// read through the views and one constant per equation), reported per step: the forecasts alone,
// with the error part of the standard errors, and with the coefficient term as well.
#include <benchmark/benchmark.h>

#include <random>
#include <vector>

#include "estimators/forecast.h"
#include "matrix/matrix.h"

namespace {

constexpr int kEq = 4, kLags = 4, kSteps = 10000, kReg = kEq * kLags + 1, kEntries = kEq + kReg;
constexpr int kObs = kSteps + kLags;

struct Model {
    MatOwner endog{kEq, kObs}, reg{kReg, kObs}, coef{kEq, kReg}, omega{kEq, kEq}, cov{kEq * kReg, kEq *kReg};
    MatOwner out{kEq, kSteps}, se{kEq, kSteps};
    std::vector<double> var, status, lag;
    ForecastModel m{};
    Model() {
        std::mt19937_64 rng(3);
        std::uniform_real_distribution<double> u(-1.0, 1.0);
        for (int i = 0; i < kEq; ++i)
            for (int t = 0; t < kObs; ++t) endog.get()[i][t] = u(rng);
        // Regressor j < 16: variable j % 4 at lag j / 4 + 1; the constant last. Small coefficients
        // keep the system stable.
        for (int i = 0; i < kEq; ++i)
            for (int j = 0; j < kReg; ++j) coef.get()[i][j] = j == kReg - 1 ? 0.1 : 0.05 * u(rng);
        for (int j = 0; j < kReg; ++j)
            for (int t = 0; t < kObs; ++t) {
                const int v = j % kEq, l = j / kEq + 1;
                reg.get()[j][t] = j == kReg - 1 ? 1.0 : (t >= l ? endog.get()[v][t - l] : 0.0);
            }
        MatZero(omega, kEq, kEq);
        for (int i = 0; i < kEq; ++i) omega.get()[i][i] = 1.0;
        MatZero(cov, kEq * kReg, kEq * kReg);
        for (int p = 0; p < kEq * kReg; ++p) cov.get()[p][p] = 1e-4;
        for (int i = 0; i < kEq; ++i) var.push_back(i), status.push_back(1), lag.push_back(0);
        for (int j = 0; j < kReg - 1; ++j) var.push_back(j % kEq), status.push_back(1), lag.push_back(j / kEq + 1);
        var.push_back(99), status.push_back(0), lag.push_back(0);
        m.endog = endog, m.nEndog = kEq, m.endogCols = kObs;
        m.reg = reg, m.nReg = kReg, m.regCols = kObs;
        m.desc = ForecastDescriptor{var.data(), status.data(), lag.data(), 1, 1};
        m.coef = coef, m.omega = omega, m.omegaDim = kEq;
    }
};

void BM_DynamicForecast(benchmark::State &st) {
    static Model d;
    const int mode = static_cast<int>(st.range(0)); // 0 forecasts, 1 + standard errors, 2 + coefficient term
    d.m.coefCov = mode == 2 ? d.cov.get() : nullptr;
    const ForecastIdentities none{0, nullptr, nullptr};
    for (auto _ : st) {
        const int ok = ForecastRun(d.m, kLags, kObs - 1, 0, none, 0, d.out, mode > 0 ? d.se.get() : nullptr);
        if (!ok) st.SkipWithError("forecast failed");
        benchmark::DoNotOptimize(d.out.get()[0][kSteps - 1]);
    }
    st.counters["ns/step"] = benchmark::Counter(static_cast<double>(st.iterations()) * kSteps,
                                                benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_DynamicForecast)->Arg(0)->Arg(1)->Arg(2)->Unit(benchmark::kMicrosecond);

} // namespace

BENCHMARK_MAIN();
