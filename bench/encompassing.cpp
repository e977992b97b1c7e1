// The four encompassing tests each way over T observations and 4 + 4 regressors (two shared):
// five pivoted least-squares fits, against one plain normal-equations fit of the nesting model
// as the unit of cost.
#include <benchmark/benchmark.h>

#include <random>

#include "estimators/encompassing.h"
#include "matrix/matrix.h"
#include "matrix/qr.h"

namespace {

struct Data {
    int T;
    MatOwner data, z, stat{2, ENC_TESTS}, pval{2, ENC_TESTS}, df{2, 2}, W, y;
    explicit Data(int n) : T(n), data(n, 5), z(n, 2), W(6, n), y(1, n) {
        std::mt19937_64 rng(1);
        std::normal_distribution<double> g;
        for (int t = 0; t < T; ++t) {
            const double x1 = g(rng), x2 = g(rng), x3 = g(rng), z1 = x2 + g(rng), z2 = g(rng);
            const double row[5] = {1 + x1 + 0.5 * x2 + 0.3 * z1 + g(rng), 1, x1, x2, x3};
            for (int j = 0; j < 5; ++j) data.get()[t][j] = row[j];
            z.get()[t][0] = z1, z.get()[t][1] = z2;
            const double w[6] = {1, x1, x2, x3, z1, z2};
            for (int j = 0; j < 6; ++j) W.get()[j][t] = w[j];
            y.get()[0][t] = row[0];
        }
    }
};

void BM_Encompassing(benchmark::State &st) {
    Data d(static_cast<int>(st.range(0)));
    EncompassingProblem pb;
    pb.data = d.data, pb.k1 = 4, pb.shared = 2, pb.z = d.z, pb.k2 = 2, pb.first = 0, pb.last = d.T - 1;
    for (auto _ : st) benchmark::DoNotOptimize(EncompassingTests(pb, d.stat, d.pval, d.df));
    st.SetItemsProcessed(st.iterations() * d.T);
}

void BM_NestingFit(benchmark::State &st) {
    Data d(static_cast<int>(st.range(0)));
    MatOwner B(1, 6);
    for (auto _ : st) benchmark::DoNotOptimize(MatLeastSquares(d.W, 6, d.T, d.y, 1, B, nullptr));
    st.SetItemsProcessed(st.iterations() * d.T);
}

} // namespace

BENCHMARK(BM_Encompassing)->Arg(1000)->Arg(100000)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_NestingFit)->Arg(1000)->Arg(100000)->Unit(benchmark::kMicrosecond);
BENCHMARK_MAIN();
