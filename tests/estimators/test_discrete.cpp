// Probit, multinomial logit and the actual-versus-fitted table through the host: likelihoods
// against their definitions (the logit's from explicit per-category design vectors), scores and
// information against finite differences, outer products against sums of s_i s_i'; clamping,
// invalid outcomes and the cross-tabulation rules.
#include <random>

#include "common/host_call.h"
#include "kavrel/kavrel.h"

namespace {

using LD = long double;
using LVec = std::vector<LD>;
const double NaN = std::numeric_limits<double>::quiet_NaN(), Inf = std::numeric_limits<double>::infinity();
const double Floor = std::ldexp(1.0, -104);

double run(HostCall &c, LumoExport fn) {
    EXPECT_EQ(c.invoke(fn), 1) << LumoHostLastError();
    return c.value();
}

// A data set as the exports read it (X n x kx, Z n x na m with attribute a of category j in
// column a m + j, offsets O n x m) and, for the logit, explicit design vectors: the utility of
// category j for observation i is O[i][j] + beta . D[i][j].
struct Model {
    int n, m, k, kx, na;
    Vec beta, y, w, X, Z, O;
    std::vector<std::vector<Vec>> D; // n x m x k
};

Model makeModel(int n, int m, int kx, int na, unsigned seed, bool probit) {
    std::mt19937 gen(seed);
    std::normal_distribution<double> nd;
    Model md{n,          m, probit ? kx : (m - 1) * kx + na, kx, na, {}, Vec(n), Vec(n), Vec(n * kx), Vec(n * na * m),
             Vec(n * m), {}};
    for (auto &b : md.beta = Vec(md.k)) b = (probit ? 0.5 : 0.4) * nd(gen);
    for (Vec *v : {&md.X, &md.Z})
        for (double &x : *v) x = nd(gen);
    for (double &o : md.O) o = 0.3 * nd(gen);
    md.D.assign(n, std::vector<Vec>(m, Vec(md.k, 0.0)));
    for (int i = 0; i < n; ++i) {
        for (int j = 0; j < m; ++j) {
            for (int l = 0; l < kx && j > 0 && !probit; ++l) md.D[i][j][(j - 1) * kx + l] = md.X[i * kx + l];
            for (int a = 0; a < na; ++a) md.D[i][j][(m - 1) * kx + a] = md.Z[i * na * m + a * m + j];
        }
        md.y[i] = static_cast<double>(gen() % m), md.w[i] = 0.5 + (gen() % 4) * 0.5;
    }
    return md;
}

void setProbit(HostCall &c, const Model &md) {
    c.col(0, md.beta).col(1, md.y).mat(2, md.n, md.k, md.X).row(3, md.w).ref(4, 8);
}

void setLogit(HostCall &c, const Model &md, const Vec &Y, int ycols) {
    c.row(0, md.beta).mat(1, md.n, ycols, Y).num(2, md.m).mat(3, md.n, md.kx, md.X).mat(4, md.n, md.na * md.m, md.Z);
    c.col(5, md.w).mat(6, md.n, md.m, md.O).ref(7, 11);
}

// One call of the probit or of the logit with the outcomes md.y; the log-likelihood.
double evaluate(HostCall &c, const Model &md, bool probit) {
    if (probit)
        setProbit(c, md);
    else
        setLogit(c, md, md.y, 1);
    return run(c, probit ? FnBinProbitRz : FnLogitRz);
}

// The probabilities and per-observation log-likelihoods by their definitions in long double
// (the logit's from the explicit design vectors), and the outer product of scores as the sum of
// s_i s_i' over calls with every weight but observation i's set to zero.
TEST(Discrete, LikelihoodsAgainstDefinitions) {
    for (const bool probit : {true, false}) {
        SCOPED_TRACE(probit ? "probit" : "logit");
        const Model md = probit ? makeModel(60, 2, 4, 0, 11, true) : makeModel(40, 3, 2, 2, 20, false);
        const int k = md.k, m = md.m, out = probit ? 4 : 7;
        HostCall c;
        const double llf = evaluate(c, md, probit);
        Vec prob, llfObs, outer(k * k, 0.0);
        LD total = 0;
        for (int i = 0; i < md.n; ++i) {
            LVec p(m);
            LD sum = 0;
            for (int j = 0; j < m; ++j) {
                LD v = probit ? 0 : md.O[i * m + j];
                for (int l = 0; l < k; ++l) v += (LD)md.beta[l] * (probit ? md.X[i * k + l] : md.D[i][j][l]);
                sum += p[j] = probit ? 0.5L * std::erfc((j == 1 ? -v : v) / std::sqrt(2.0L)) : std::exp(v);
            }
            for (int j = 0; j < m; ++j) prob.push_back((double)(p[j] = probit ? p[j] : p[j] / sum));
            total += md.w[i] * std::log(p[(int)md.y[i]]);
            llfObs.push_back((double)(md.w[i] * std::log(p[(int)md.y[i]])));
            Model only = md;
            std::fill(only.w.begin(), only.w.end(), 0.0);
            only.w[i] = md.w[i];
            HostCall single;
            evaluate(single, only, probit);
            const Vec si = single.out(out);
            for (int a = 0; a < k * k; ++a) outer[a] += si[a / k] * si[a % k];
        }
        EXPECT_NEAR(llf, (double)total, 1e-12 * std::fabs((double)total));
        ExpectClose(c.out(out + 2), prob, 1e-13, "probabilities");
        ExpectClose(c.out(out + 3), llfObs, 1e-13, "per observation");
        ExpectClose(c.out(out + 4), outer, 1e-12, "outer product");
    }
}

TEST(Probit, ClampsOutcomesAndEdges) {
    // One regressor equal to eta, beta = 1. Reference values from a 30-digit evaluation; the
    // subnormal P1 carries about 8 digits. Invalid outcomes give a missing contribution and add
    // nothing to the sum or the score.
    const struct {
        double eta, y, p0, p1, li, tol;
    } rows[] = {
        // clang-format off
        {0.0, 1.9, 0.5, 0.5, std::log(0.5), 1e-15},
        // truncated to 1
        {9.0, 0.0, Floor, 1.0, -72.0873067782343, 1e-15},
        // P1 rounds to 1: P0 clamped
        {-40.0, 1.0, 1.0, 0.0, -Inf, 0},
        // P1 = 0 is not clamped
        {-38.0, 1.0, 1.0, 2.88542836006878e-316, -726.557216018820, 1e-9},
        {0.0, NaN, 0.5, 0.5, NaN, 0},
        // clang-format on
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(::testing::Message() << "eta=" << row.eta << " y=" << row.y);
        HostCall c;
        const double llf =
            run(c.row(0, {1.0}).row(1, {row.y}).row(2, {row.eta}).mat(3, 0, 0, {}).ref(4, 8), FnBinProbitRz);
        EXPECT_EQ(c.out(6)[0], row.p0);
        EXPECT_NEAR(c.out(6)[1], row.p1, std::max(1e-13 * row.p1, 1e-322));
        ExpectClose(c.out(7), Vec{row.li}, row.tol);
        EXPECT_EQ(llf, std::isnan(row.li) ? 0.0 : c.out(7)[0]);
        if (std::isnan(row.li)) {
            EXPECT_EQ(c.out(4)[0], 0.0);
        }
    }
}

// The one check that cannot share a derivation error with the code: the scores against central
// differences of the log-likelihood, and the information against central differences of the
// score. For the logit the expected information is the negative Hessian exactly. For the probit
// it is the negative Hessian of the expected log-likelihood, whose outcomes are the fitted
// probabilities: each observation twice, as a 1 with weight w P1 and as a 0 with weight w P0.
TEST(Discrete, DerivativesAgainstFiniteDifferences) {
    Model probit = makeModel(60, 2, 4, 0, 11, true);
    Model logit = makeModel(40, 3, 2, 2, 20, false);
    HostCall pc, lc;
    evaluate(pc, probit, true);
    evaluate(lc, logit, false);
    const Vec p1 = pc.out(6); // P0, P1 per observation
    Model expected = probit;  // the probit's expected log-likelihood as a data set
    expected.n = 2 * probit.n;
    expected.X.clear(), expected.y.clear(), expected.w.clear();
    for (int copy = 0; copy < 2; ++copy)
        for (int i = 0; i < probit.n; ++i) {
            expected.X.insert(expected.X.end(), probit.X.begin() + i * probit.k, probit.X.begin() + (i + 1) * probit.k);
            expected.y.push_back(copy == 0 ? 1.0 : 0.0);
            expected.w.push_back(probit.w[i] * p1[2 * i + 1 - copy]);
        }
    const struct {
        const char *what;
        Model *md, *forInfo;
        bool isProbit;
        Vec score, info;
    } rows[] = {{"probit", &probit, &expected, true, pc.out(4), pc.out(5)},
                {"logit", &logit, &logit, false, lc.out(7), lc.out(8)}};
    for (const auto &r : rows) {
        SCOPED_TRACE(r.what);
        auto llfAt = [&](const Model &md, const Vec &beta, Vec *score) {
            Model at = md;
            at.beta = beta;
            HostCall c;
            const double llf = evaluate(c, at, r.isProbit);
            if (score) *score = c.out(r.isProbit ? 4 : 7);
            return llf;
        };
        const int k = r.md->k;
        double infoScale = 0;
        for (double v : r.info) infoScale = std::max(infoScale, std::fabs(v));
        for (int j = 0; j < k; ++j) {
            const double h = 1e-5 * std::max(1.0, std::fabs(r.md->beta[j]));
            Vec up = r.md->beta, down = r.md->beta;
            up[j] += h, down[j] -= h;
            const double fd = (llfAt(*r.md, up, nullptr) - llfAt(*r.md, down, nullptr)) / (2 * h);
            EXPECT_NEAR(r.score[j], fd, 1e-6 * std::max(1.0, std::fabs(fd))) << "score " << j;
            Vec sUp, sDown;
            llfAt(*r.forInfo, up, &sUp);
            llfAt(*r.forInfo, down, &sDown);
            for (int l = 0; l < k; ++l)
                EXPECT_NEAR(r.info[l * k + j], -(sUp[l] - sDown[l]) / (2 * h), 1e-6 * infoScale) << l << "," << j;
        }
    }
}

TEST(Logit, InvalidCodesAndUnderflow) {
    Model md = makeModel(4, 3, 1, 0, 8, false);
    // Invalid codes leave the sum alone and give missing values; probabilities still returned.
    HostCall c;
    setLogit(c, md, {0, 3, -1, 2}, 1);
    const double llf = run(c, FnLogitRz);
    const Vec li = c.out(10);
    EXPECT_TRUE(std::isnan(li[1]));
    EXPECT_TRUE(std::isnan(li[2]));
    EXPECT_EQ(llf, li[0] + li[3]);
    ASSERT_EQ(c.out(9).size(), 12u);
    EXPECT_FALSE(std::isnan(c.out(9)[3]));
    // Utilities all below -745: the shift stays at 0, exp underflows, probabilities are NaN.
    HostCall u;
    md.O.assign(12, -800.0), md.beta.assign(md.k, 0.0);
    setLogit(u, md, md.y, 1);
    EXPECT_TRUE(std::isnan(run(u, FnLogitRz)));
    EXPECT_TRUE(std::isnan(u.out(9)[0]));
}

TEST(ActFitTable, CountsTiesNonPositiveRowsAndFractionalWeights) {
    const Vec fitted = {0.2, 0.5, 0.3,  // predicts 1
                        0.4, 0.4, 0.2,  // tie: first wins, 0
                        0.0, -1., 0.0,  // never wins: skipped
                        0.1, 0.1, 0.8,  // predicts 2
                        NaN, 0.3, 0.2}; // NaN never wins: 1
    // Rows: actual category, columns: predicted, last row and column: totals.
    const struct {
        int acols;
        Vec actual, want;
    } cases[] = {
        {1, {1, 0, 2, 5, 2.7}, {1, 0, 0, 1, 0, 1, 0, 1, 0, 1, 0, 1, 1, 2, 0, 3}}, // code 5 ignored, 2.7 -> 2
        {3, {0, 1, 0, .5, .5, 0, 1, 1, 1, 0, 0, 1.5, 0, 0, 1}, {.5, 0, 0, 0, .5, 1, 0, 1, 0, 1, 1.5, 2, 0, 2, 1, 3}},
    };
    for (const auto &cs : cases) {
        HostCall c;
        ASSERT_EQ(c.mat(0, 5, cs.acols, cs.actual).mat(1, 5, 3, fitted).invoke(FnActFitTable), 1);
        EXPECT_EQ(c.result.v.w.u.cols, 4);
        EXPECT_EQ(c.values(), cs.want) << cs.acols;
    }
}

} // namespace
