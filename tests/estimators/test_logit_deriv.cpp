// Derivatives of the logit probabilities through the host, against central differences of the
// probabilities FnLogitRz returns (the same model with the regressor moved), at single
// observations and averaged over ranges; bad input and allocation failures.
#include <cmath>

#include "common/reference.h"
#include "estimators/frame_checks.h"
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
    Data d;
    for (double &b : d.beta) b *= 2.0; // probabilities well away from uniform
    const struct { int first, last; } rows[] = {{0, 0}, {17, 17}, {kN - 1, kN - 1}, {5, 24}, {0, kN - 1}};
    for (const auto &r : rows) {
        SCOPED_TRACE(::testing::Message() << "observations " << r.first << ".." << r.last);
        HostCall c;
        c.row(0, d.beta).mat(1, kN, kX, d.X).num(2, kM).num(3, r.first).num(4, r.last);
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
            for (int i = r.first; i <= r.last; ++i)
                for (int j = 0; j < kM; ++j)
                    want[j * kX + l] += (pu[i * kM + j] - pd[i * kM + j]) / (2 * h) / (r.last - r.first + 1);
        }
        ExpectClose(c.values(), want, 1e-9);
    }
}

void derivArgs(HostCall &c) {
    Data d;
    c.row(0, d.beta).mat(1, kN, kX, d.X).num(2, kM).num(3, 2).num(4, 9);
}

TEST(LogitProbDeriv, BadInputLeavesTheResult) {
    const BadInput rows[] = {
        // clang-format off
        {"m a double", [](HostCall &c) { c.dbl(2, 4); }, "argument 2: int expected, double found"},
        {"X an int", [](HostCall &c) { c.num(1, 1); }, "argument 1: matrix expected, int found"},
        {"no categories", [](HostCall &c) { c.num(2, 0); }, ""},
        {"X without columns", [](HostCall &c) { c.mat(1, kN, 0, {}).mat(0, 0, 0, {}); }, ""},
        {"first < 0", [](HostCall &c) { c.num(3, -1); }, ""},
        {"last < first", [](HostCall &c) { c.num(3, 5).num(4, 4); }, ""},
        {"last beyond the rows", [](HostCall &c) { c.num(4, kN); }, ""},
        {"beta count differs", [](HostCall &c) { c.row(0, {1, 2, 3}); }, ""},
        {"m with beta for fewer categories", [](HostCall &c) { c.num(2, kM + 1); }, ""},
        // clang-format on
    };
    CheckBadInput(FnLogitProbDeriv, derivArgs, rows, [](const HostCall &c) { EXPECT_EQ(c.status(), 99); });
}

TEST(LogitProbDeriv, AllocationFailures) {
    // The library's one scratch block: an m x kx result of missing values; the host's two (row
    // pointers and data): the result left empty.
    const auto counts = CheckAllocationFailures(FnLogitProbDeriv, derivArgs, 2, [](const HostCall &c, bool host) {
        if (host) {
            EXPECT_EQ(c.result.type, LUMO_EMPTY);
            return;
        }
        EXPECT_EQ(c.values().size(), static_cast<size_t>(kM * kX));
        EXPECT_TRUE(AllMissing(c.values()));
    });
    EXPECT_EQ(counts.first, 1);
    EXPECT_EQ(counts.second, 2);
}

} // namespace
