// Derivatives of the logit probabilities through the host, against central differences of the
// probabilities FnLogitRz returns (the same model with the regressor moved), averaged over a range
// of observations.
#include <cmath>

#include "common/host_call.h"
#include "common/reference.h"
#include "kavrel/kavrel.h"

namespace {

constexpr int kN = 30, kM = 4, kX = 3;

struct Data {
    Vec beta = Lcg{31}.draws((kM - 1) * kX), X = Lcg{32}.draws(kN * kX);
};

// The n x m probabilities of FnLogitRz for this X (outcomes, weights and offsets do not enter).
Vec probabilities(const Data &d, const Vec &X) {
    HostCall c;
    c.row(0, d.beta).col(1, Vec(kN, 0.0)).num(2, kM).mat(3, kN, kX, X).mat(4, 0, 0, {}).mat(5, 0, 0, {});
    c.mat(6, 0, 0, {}).num(7, 0).num(8, 0).ref(9).num(10, 0).num(11, 0);
    EXPECT_EQ(c.invoke(FnLogitRz), 1);
    return c.out(9);
}

TEST(LogitProbDeriv, AgainstDifferencesOfTheProbabilities) {
    // The effects averaged over observations 5..24, probabilities well away from uniform.
    Data d;
    for (double &b : d.beta) b *= 2.0;
    const int first = 5, last = 24;
    HostCall c;
    c.row(0, d.beta).mat(1, kN, kX, d.X).num(2, kM).num(3, first).num(4, last);
    ASSERT_EQ(c.invoke(FnLogitProbDeriv), 1);
    ASSERT_EQ(c.result.v.w.ival, kM);
    ASSERT_EQ(c.result.v.w.u.cols, kX);
    Vec want(kM * kX, 0.0);
    const double h = 1e-6;
    for (int l = 0; l < kX; ++l) {
        // Moving regressor l of every observation at once moves each observation's own
        // probabilities only.
        Vec up = d.X, down = d.X;
        for (int i = 0; i < kN; ++i) up[i * kX + l] += h, down[i * kX + l] -= h;
        const Vec pu = probabilities(d, up), pd = probabilities(d, down);
        for (int i = first; i <= last; ++i)
            for (int j = 0; j < kM; ++j)
                want[j * kX + l] += (pu[i * kM + j] - pd[i * kM + j]) / (2 * h) / (last - first + 1);
    }
    ExpectClose(c.values(), want, 1e-9);
}

} // namespace
