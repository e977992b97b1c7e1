// Probit, multinomial logit and the actual-versus-fitted table through the host: likelihoods
// against a long-double transcription built from explicit per-category design vectors, scores
// against central differences of the returned log-likelihood, information against its
// definition as a covariance, outer products against sums of s_i s_i'; clamping, invalid
// outcomes, omitted outputs, bad input and allocation failures.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include "common/fault.h"
#include "kavrel/kavrel.h"
#include "kavrel/lumohost.h"

namespace {

using Vec = std::vector<double>;
using LD = long double;
const double NaN = std::numeric_limits<double>::quiet_NaN();
const double Inf = std::numeric_limits<double>::infinity();
const double Floor = std::ldexp(1.0, -104);

struct HostCall {
    LumoValue args[12], targets[12], result;
    HostCall() { std::memset(this, 0, sizeof *this); }
    ~HostCall() {
        for (int i = 0; i < 12; ++i) LumoFreeByValue(&args[i]), LumoFreeByValue(&targets[i]);
        LumoFreeByValue(&result);
    }
    void mat(int i, int r, int c, const Vec &d) { ASSERT_TRUE(LumoValSetMatrix(&args[i], r, c, d.data())); }
    void ref(int i) { LumoValSetRef(&args[i], &targets[i]); }
    Vec out(int i) const {
        int r, c;
        MATRIX m = LumoValGetMatrix(&targets[i], &r, &c);
        return m ? Vec(m[0], m[0] + static_cast<size_t>(r) * c) : Vec();
    }
    double run(LumoExport fn, int count) {
        EXPECT_EQ(LumoHostInvoke(fn, &result, args, count), 1) << LumoHostLastError();
        return LumoValGetDouble(&result);
    }
};

void expectNear(const Vec &got, const std::vector<LD> &want, double tol, const char *what) {
    ASSERT_EQ(got.size(), want.size()) << what;
    for (size_t i = 0; i < got.size(); ++i)
        EXPECT_NEAR(got[i], static_cast<double>(want[i]), tol * (1.0 + std::fabs(static_cast<double>(want[i]))))
            << what << " element " << i;
}

// A discrete-choice data set with explicit per-category design vectors: utility of category j
// for observation i is off[i][j] + beta . D[i][j].
struct Model {
    int n, m, k;
    Vec beta, y, w;
    std::vector<std::vector<Vec>> D; // n x m x k
    std::vector<Vec> off;             // n x m
};

// Reference log-likelihood, score, information and outer product for codes (ycols 1) or a
// grouped outcome matrix (ycols m), in long double.
struct Reference {
    LD llf = 0;
    std::vector<LD> score, info, outer, prob, llfObs;
};

Reference logitReference(const Model &md, const Vec &yMat, int ycols) {
    Reference r;
    int k = md.k, m = md.m;
    r.score.assign(k, 0), r.info.assign(k * k, 0), r.outer.assign(k * k, 0);
    for (int i = 0; i < md.n; ++i) {
        std::vector<LD> p(m), g(m, 0), dbar(k, 0);
        LD tot = 0;
        for (int j = 0; j < m; ++j) {
            LD v = md.off[i][j];
            for (int l = 0; l < k; ++l) v += (LD)md.beta[l] * md.D[i][j][l];
            p[j] = std::exp(v), tot += p[j];
        }
        for (int j = 0; j < m; ++j) p[j] /= tot, r.prob.push_back(p[j]);
        LD trials = 0;
        for (int j = 0; j < m; ++j) {
            g[j] = ycols == 1 ? (j == (int)md.y[i] ? 1 : 0) : yMat[i * ycols + j];
            trials += g[j];
        }
        LD li = 0;
        for (int j = 0; j < m; ++j) li += g[j] == 0 ? 0 : g[j] * std::log(p[j]);
        r.llf += md.w[i] * li;
        r.llfObs.push_back(md.w[i] * li);
        for (int j = 0; j < m; ++j)
            for (int l = 0; l < k; ++l) dbar[l] += p[j] * md.D[i][j][l];
        std::vector<LD> s(k, 0);
        for (int j = 0; j < m; ++j)
            for (int l = 0; l < k; ++l) s[l] += md.w[i] * (g[j] - trials * p[j]) * md.D[i][j][l];
        for (int a = 0; a < k; ++a) {
            r.score[a] += s[a];
            for (int b = 0; b < k; ++b) {
                r.outer[a * k + b] += s[a] * s[b];
                for (int j = 0; j < m; ++j)
                    r.info[a * k + b] += md.w[i] * trials * p[j] * (md.D[i][j][a] - dbar[a]) * (md.D[i][j][b] - dbar[b]);
            }
        }
    }
    return r;
}

// FnLogitRz arguments for a model with kx individual regressors and na attributes, laid out as
// the export reads them; the design vectors of md are filled to match.
struct LogitData {
    Vec X, Z, O;
    int kx, na;
};

LogitData makeLogit(Model &md, int n, int m, int kx, int na, unsigned seed) {
    std::mt19937 gen(seed);
    std::normal_distribution<double> nd;
    LogitData d{Vec(n * kx), Vec(n * na * m), Vec(n * m), kx, na};
    md.n = n, md.m = m, md.k = (m - 1) * kx + na;
    md.beta.resize(md.k);
    for (auto &b : md.beta) b = 0.4 * nd(gen);
    md.y.resize(n), md.w.resize(n), md.D.assign(n, std::vector<Vec>(m, Vec(md.k, 0.0))), md.off.assign(n, Vec(m));
    for (int i = 0; i < n; ++i) {
        for (int l = 0; l < kx; ++l) d.X[i * kx + l] = nd(gen);
        for (int c = 0; c < na * m; ++c) d.Z[i * na * m + c] = nd(gen);
        for (int j = 0; j < m; ++j) md.off[i][j] = d.O[i * m + j] = 0.3 * nd(gen);
        for (int j = 1; j < m; ++j)
            for (int l = 0; l < kx; ++l) md.D[i][j][(j - 1) * kx + l] = d.X[i * kx + l];
        for (int j = 0; j < m; ++j)
            for (int a = 0; a < na; ++a) md.D[i][j][(m - 1) * kx + a] = d.Z[i * na * m + a * m + j];
        md.y[i] = static_cast<double>(gen() % m);
        md.w[i] = 0.5 + (gen() % 4) * 0.5;
    }
    return d;
}

void setLogit(HostCall &c, const Model &md, const LogitData &d, const Vec &yMat, int ycols, const Vec &beta) {
    c.mat(0, 1, md.k, beta);
    c.mat(1, md.n, ycols, yMat);
    LumoValSetInt(&c.args[2], md.m);
    c.mat(3, md.n, d.kx, d.X);
    c.mat(4, md.n, d.na * md.m, d.Z);
    c.mat(5, md.n, 1, md.w);
    c.mat(6, md.n, md.m, d.O);
    for (int o = 7; o < 12; ++o) c.ref(o);
}

// Checks every output of a likelihood export against the reference; the score also against
// central differences of the export's own log-likelihood.
template <class Setter>
void checkLikelihood(Setter set, LumoExport fn, int count, int firstOut, const Vec &beta, const Reference &r) {
    HostCall c;
    set(c, beta);
    double llf = c.run(fn, count);
    EXPECT_NEAR(llf, (double)r.llf, 1e-12 * std::fabs((double)r.llf));
    expectNear(c.out(firstOut), r.score, 1e-11, "score");
    expectNear(c.out(firstOut + 1), r.info, 1e-11, "information");
    expectNear(c.out(firstOut + 2), r.prob, 1e-13, "probabilities");
    expectNear(c.out(firstOut + 3), r.llfObs, 1e-13, "per-observation llf");
    expectNear(c.out(firstOut + 4), r.outer, 1e-11, "outer product");
    for (size_t j = 0; j < beta.size(); ++j) {
        Vec up = beta, dn = beta;
        double h = 1e-5 * (1.0 + std::fabs(beta[j]));
        up[j] += h, dn[j] -= h;
        HostCall cu, cd;
        set(cu, up), set(cd, dn);
        double num = (cu.run(fn, count) - cd.run(fn, count)) / (2 * h);
        EXPECT_NEAR(c.out(firstOut)[j], num, 1e-6 * (1.0 + std::fabs(num))) << "numerical score " << j;
    }
}

// ---- probit ----

Model probitModel(int n, int k, unsigned seed, Vec *X) {
    std::mt19937 gen(seed);
    std::normal_distribution<double> nd;
    Model md;
    md.n = n, md.m = 2, md.k = k;
    md.beta.resize(k);
    for (auto &b : md.beta) b = 0.5 * nd(gen);
    X->resize(n * k);
    for (auto &x : *X) x = nd(gen);
    md.y.resize(n), md.w.resize(n);
    for (int i = 0; i < n; ++i) md.y[i] = gen() % 2, md.w[i] = 0.5 + (gen() % 3) * 0.75;
    return md;
}

Reference probitReference(const Model &md, const Vec &X) {
    Reference r;
    int k = md.k;
    r.score.assign(k, 0), r.info.assign(k * k, 0), r.outer.assign(k * k, 0);
    for (int i = 0; i < md.n; ++i) {
        LD eta = 0;
        for (int l = 0; l < k; ++l) eta += (LD)md.beta[l] * X[i * k + l];
        LD p1 = 0.5L * std::erfc(-eta / std::sqrt(2.0L)), p0 = std::max<LD>(1 - p1, Floor);
        LD phi = std::exp(-eta * eta / 2) / std::sqrt(2 * 3.14159265358979323846264338L);
        r.prob.push_back(p0), r.prob.push_back(p1);
        LD li = md.w[i] * std::log(md.y[i] == 1 ? p1 : p0);
        r.llf += li, r.llfObs.push_back(li);
        for (int a = 0; a < k; ++a) {
            LD sa = md.w[i] * (md.y[i] - p1) * phi / (p0 * p1) * X[i * k + a];
            r.score[a] += sa;
            for (int b = 0; b < k; ++b) {
                LD sb = md.w[i] * (md.y[i] - p1) * phi / (p0 * p1) * X[i * k + b];
                r.outer[a * k + b] += sa * sb;
                r.info[a * k + b] += md.w[i] * phi * phi / (p0 * p1) * X[i * k + a] * X[i * k + b];
            }
        }
    }
    return r;
}

void setProbit(HostCall &c, const Model &md, const Vec &X, const Vec &beta) {
    c.mat(0, static_cast<int>(beta.size()), 1, beta);
    c.mat(1, md.n, 1, md.y);
    c.mat(2, md.n, md.k, X);
    c.mat(3, 1, md.n, md.w);
    for (int o = 4; o < 9; ++o) c.ref(o);
}

TEST(Probit, AgreesWithTranscriptionAndNumericalScore) {
    Vec X;
    Model md = probitModel(60, 4, 11, &X);
    checkLikelihood([&](HostCall &c, const Vec &b) { setProbit(c, md, X, b); }, FnBinProbitRz, 9, 4, md.beta,
                    probitReference(md, X));
}

TEST(Probit, ClampsOutcomesAndEdges) {
    // One regressor equal to eta, beta = 1.
    // Reference values from a 30-digit evaluation; the subnormal P1 carries about 8 digits.
    struct Row { double eta, y, p0, p1, li, tol; } rows[] = {
        {0.0, 1.0, 0.5, 0.5, std::log(0.5), 1e-15},
        {0.0, 0.7, 0.5, 0.5, std::log(0.5), 1e-15},  // truncated to 0
        {0.0, 1.9, 0.5, 0.5, std::log(0.5), 1e-15},  // truncated to 1
        {0.0, -0.5, 0.5, 0.5, std::log(0.5), 1e-15}, // truncated toward zero: 0
        {9.0, 0.0, Floor, 1.0, -72.0873067782343, 1e-15}, // P1 rounds to 1: P0 clamped
        {-40.0, 1.0, 1.0, 0.0, -Inf, 0},                  // P1 = 0 is not clamped
        {-38.0, 1.0, 1.0, 2.88542836006878e-316, -726.557216018820, 1e-9},
        {0.0, 2.0, 0.5, 0.5, NaN, 0}, // invalid outcomes: missing, nothing summed
        {0.0, -1.0, 0.5, 0.5, NaN, 0},
        {0.0, NaN, 0.5, 0.5, NaN, 0},
    };
    for (const auto &row : rows) {
        HostCall c;
        c.mat(0, 1, 1, {1.0});
        c.mat(1, 1, 1, {row.y});
        c.mat(2, 1, 1, {row.eta});
        c.mat(3, 0, 0, {});
        for (int o = 4; o < 9; ++o) c.ref(o);
        double llf = c.run(FnBinProbitRz, 9);
        Vec prob = c.out(6), li = c.out(7);
        EXPECT_EQ(prob[0], row.p0) << row.eta;
        EXPECT_NEAR(prob[1], row.p1, std::max(1e-13 * row.p1, 1e-322)) << row.eta;
        if (std::isnan(row.li)) {
            EXPECT_TRUE(std::isnan(li[0]));
            EXPECT_EQ(llf, 0.0);
            EXPECT_EQ(c.out(4)[0], 0.0);
        } else {
            if (std::isinf(row.li)) EXPECT_EQ(li[0], row.li);
            else EXPECT_NEAR(li[0], row.li, row.tol * std::fabs(row.li)) << row.eta;
            EXPECT_EQ(llf, li[0]);
        }
    }
}

TEST(Probit, BadInputGivesMissingWithoutOutputs) {
    struct Row { int yRows, yCols, xRows, xCols, bRows; } rows[] = {
        {3, 2, 3, 2, 2}, // y with two columns
        {3, 1, 2, 2, 2}, // X rows differ from n
        {3, 1, 3, 0, 0}, // X without columns
        {3, 1, 3, 2, 3}, // beta count differs from X columns
    };
    Vec data(12, 0.5);
    for (const auto &r : rows) {
        HostCall c;
        c.mat(0, r.bRows, 1, data), c.mat(1, r.yRows, r.yCols, data), c.mat(2, r.xRows, r.xCols, data);
        c.mat(3, 0, 0, {});
        for (int o = 4; o < 9; ++o) c.ref(o);
        EXPECT_TRUE(std::isnan(c.run(FnBinProbitRz, 9)));
        for (int o = 4; o < 9; ++o) EXPECT_EQ(LumoValGetType(&c.targets[o]), LUMO_EMPTY);
    }
    // A failed type check abandons the call after the result was already made missing.
    HostCall c;
    LumoValSetInt(&c.result, 7);
    LumoValSetInt(&c.args[0], 1);
    EXPECT_EQ(LumoHostInvoke(FnBinProbitRz, &c.result, c.args, 9), 0);
    EXPECT_TRUE(std::isnan(LumoValGetDouble(&c.result)));
}

TEST(Probit, EachOutputOmittedIndependentlyAndNonFiniteData) {
    Vec X;
    Model md = probitModel(9, 3, 5, &X);
    HostCall full;
    setProbit(full, md, X, md.beta);
    double llf = full.run(FnBinProbitRz, 9);
    for (int mask = 0; mask < 32; ++mask) {
        HostCall c;
        setProbit(c, md, X, md.beta);
        for (int o = 0; o < 5; ++o)
            if (!(mask >> o & 1)) LumoValSetInt(&c.args[4 + o], 0);
        EXPECT_EQ(c.run(FnBinProbitRz, 9), llf);
        for (int o = 0; o < 5; ++o) {
            if (mask >> o & 1) EXPECT_EQ(c.out(4 + o), full.out(4 + o)) << mask << " " << o;
            else EXPECT_EQ(LumoValGetType(&c.args[4 + o]), LUMO_INT);
        }
    }
    // NaN and infinite regressors or weights: defined results, the other rows unaffected.
    X[0] = NaN, X[3] = Inf, md.w[2] = -Inf;
    HostCall c;
    setProbit(c, md, X, md.beta);
    EXPECT_TRUE(std::isnan(c.run(FnBinProbitRz, 9)));
    Vec li = c.out(7), ref = full.out(7);
    for (int i = 3; i < md.n; ++i) EXPECT_EQ(li[i], ref[i]);
}

// ---- logit ----

TEST(Logit, AgreesWithTranscriptionAndNumericalScore) {
    // {m, kx, attributes, grouped}: codes with X and Z, X only, Z only, one category, counts.
    for (auto shape : {std::vector<int>{3, 2, 2, 0}, {4, 3, 0, 0}, {3, 0, 2, 0}, {1, 0, 2, 0}, {3, 2, 1, 1}}) {
        Model md;
        LogitData d = makeLogit(md, 40, shape[0], shape[1], shape[2], 17 + shape[0]);
        int ycols = shape[3] ? md.m : 1;
        Vec y = md.y;
        if (shape[3]) {
            std::mt19937 gen(3);
            y.resize(md.n * md.m);
            for (auto &v : y) v = gen() % 4 + 0.5 * (gen() % 2);
        }
        checkLikelihood([&](HostCall &c, const Vec &b) { setLogit(c, md, d, y, ycols, b); }, FnLogitRz, 12, 7, md.beta,
                        logitReference(md, y, ycols));
    }
}

TEST(Logit, EdgeCases) {
    Model md;
    LogitData d = makeLogit(md, 4, 3, 1, 0, 8);
    // Invalid codes leave the sum alone and give missing values; probabilities still returned.
    Vec y = {0, 3, -1, 2};
    HostCall c;
    setLogit(c, md, d, y, 1, md.beta);
    double llf = c.run(FnLogitRz, 12);
    Vec li = c.out(10);
    EXPECT_TRUE(std::isnan(li[1]) && std::isnan(li[2]));
    EXPECT_EQ(llf, li[0] + li[3]);
    EXPECT_EQ(c.out(9).size(), 12u);
    // Utilities all below -745: the shift stays at 0, exp underflows, probabilities are NaN.
    Vec off(12, -800.0);
    HostCall u;
    setLogit(u, md, d, md.y, 1, Vec(md.k, 0.0));
    u.mat(6, 4, 3, off);
    EXPECT_TRUE(std::isnan(u.run(FnLogitRz, 12)));
    EXPECT_TRUE(std::isnan(u.out(9)[0]));
    // Beta count, category count and outcome shape mismatches.
    for (int bad = 0; bad < 3; ++bad) {
        HostCall b;
        setLogit(b, md, d, md.y, 1, md.beta);
        if (bad == 0) b.mat(0, 1, md.k + 1, Vec(md.k + 1, 0.0));
        if (bad == 1) LumoValSetInt(&b.args[2], 0);
        if (bad == 2) b.mat(1, 4, 0, {});
        EXPECT_TRUE(std::isnan(b.run(FnLogitRz, 12))) << bad;
        EXPECT_EQ(LumoValGetType(&b.targets[7]), LUMO_EMPTY);
    }
}

// ---- actual versus fitted ----

TEST(ActFitTable, CountsTiesNonPositiveRowsAndFractionalWeights) {
    Vec fitted = {0.2, 0.5, 0.3,  // predicts 1
                  0.4, 0.4, 0.2,  // tie: first wins, 0
                  0.0, -1., 0.0,  // never wins: skipped
                  0.1, 0.1, 0.8,  // predicts 2
                  NaN, 0.3, 0.2}; // NaN never wins: 1
    struct Case { int acols; Vec actual, want; } cases[] = {
        {1, {1, 0, 2, 5, 2.7},
         {1, 0, 0, 1,  0, 1, 0, 1,  0, 1, 0, 1,  1, 2, 0, 3}}, // code 5 ignored, 2.7 -> 2
        {3, {0, 1, 0,  .5, .5, 0,  1, 1, 1,  0, 0, 1.5,  0, 0, 1},
         {.5, 0, 0, 0,  .5, 1, 0, 1,  0, 1, 1.5, 2,  0, 2, 1, 3}},
    };
    for (const auto &cs : cases) {
        HostCall c;
        c.mat(0, 5, cs.acols, cs.actual);
        c.mat(1, 5, 3, fitted);
        ASSERT_EQ(LumoHostInvoke(FnActFitTable, &c.result, c.args, 2), 1);
        int r, k;
        MATRIX t = LumoValGetMatrix(&c.result, &r, &k);
        ASSERT_TRUE(t && r == 4 && k == 4);
        EXPECT_EQ(Vec(t[0], t[0] + 16), cs.want) << cs.acols;
    }
    // Row mismatch or too few indicator columns: nothing set.
    for (int bad = 0; bad < 2; ++bad) {
        HostCall c;
        c.mat(0, bad ? 5 : 4, bad ? 2 : 1, Vec(10, 1.0));
        c.mat(1, 5, 3, fitted);
        LumoValSetInt(&c.result, 9);
        ASSERT_EQ(LumoHostInvoke(FnActFitTable, &c.result, c.args, 2), 1);
        EXPECT_EQ(LumoValGetInt(&c.result), 9);
    }
}

// ---- allocation failures ----

TEST(Discrete, AllocationFailuresFreeAndReport) {
    Vec X;
    Model pm = probitModel(5, 2, 9, &X);
    HostCall pfull;
    setProbit(pfull, pm, X, pm.beta);
    double pllf = pfull.run(FnBinProbitRz, 9);
    // Probit: the only library allocation is the outer-product scratch, skipped on failure.
    // Each harness ends with one run in which nothing fails (n beyond the allocation count).
    long runs = ForEachLibraryAllocationFailure([&](long n) {
        HostCall c;
        setProbit(c, pm, X, pm.beta);
        EXPECT_EQ(c.run(FnBinProbitRz, 9), pllf);
        if (n == 1) EXPECT_EQ(c.out(8), Vec(4, 0.0));
        else EXPECT_EQ(c.out(8), pfull.out(8));
    });
    EXPECT_EQ(runs, 1);
    Model lm;
    LogitData d = makeLogit(lm, 5, 3, 1, 1, 4);
    runs = ForEachLibraryAllocationFailure([&](long n) {
        HostCall c;
        setLogit(c, lm, d, lm.y, 1, lm.beta);
        EXPECT_EQ(std::isnan(c.run(FnLogitRz, 12)), n == 1);
        for (double v : c.out(9)) EXPECT_EQ(std::isnan(v), n == 1);
    });
    EXPECT_EQ(runs, 1);
    // Host allocations: every output matrix; a failure leaves NaN and the earlier outputs missing.
    for (int which = 0; which < 3; ++which) {
        auto call = [&](long n) {
            LumoHostFailAllocation(0); // building the arguments is not counted
            HostCall c;
            if (which == 0) setProbit(c, pm, X, pm.beta);
            if (which == 1) setLogit(c, lm, d, lm.y, 1, lm.beta);
            if (which == 2) c.mat(0, 5, 1, {0, 1, 2, 1, 0}), c.mat(1, 5, 3, Vec(15, 0.3));
            LumoHostFailAllocation(n);
            LumoHostInvoke(which == 0 ? FnBinProbitRz : which == 1 ? FnLogitRz : FnActFitTable, &c.result, c.args,
                           which == 0 ? 9 : which == 1 ? 12 : 2);
            bool failed = n <= (which == 2 ? 2 : 10);
            if (which == 2) {
                EXPECT_EQ(LumoValGetMatrix(&c.result, nullptr, nullptr) == nullptr, failed);
                return;
            }
            EXPECT_EQ(std::isnan(LumoValGetDouble(&c.result)), failed);
            int first = which == 0 ? 4 : 7;
            for (int o = first; o < first + 5; ++o)
                for (double v : c.out(o)) EXPECT_EQ(std::isnan(v), failed) << n;
        };
        EXPECT_EQ(ForEachHostAllocationFailure(call), which == 2 ? 2 : 10) << which;
    }
}

} // namespace
