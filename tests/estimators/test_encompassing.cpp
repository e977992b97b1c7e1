// Encompassing tests against values from R (lmtest's coxtest and encomptest on stored data,
// tests/data/encompassing.R), against the textbook formulas evaluated in long double with
// explicit projections.
#include <cmath>
#include <fstream>
#include <map>
#include <sstream>
#include <string>

#include "common/host_call.h"
#include "common/reference.h"
#include "kavrel/kavrel.h"

namespace {

// Rows of a CSV file with a header line, as numbers (the first `skip` text columns dropped).
std::vector<Vec> readCsv(const std::string &path, size_t skip) {
    std::ifstream in(path);
    std::vector<Vec> rows;
    std::string line;
    std::getline(in, line);
    while (std::getline(in, line)) {
        std::stringstream ss(line);
        std::string cell;
        Vec row;
        for (size_t i = 0; std::getline(ss, cell, ','); ++i)
            if (i >= skip) row.push_back(std::stod(cell));
        rows.push_back(row);
    }
    return rows;
}

// The call of the stored model pair: y = log realcons[t]; model 1: 1, log realdpi[t],
// log realcons[t-1]; model 2 adds log realdpi[t-1] to the first two (rows 1..80 of macrodata).
struct MacroModels {
    Vec data, z, zFull; // 80 x 4 (y, 1, dpi, cons1), 80 x 1 (dpi1), 80 x 3 (1, dpi, dpi1)
    MacroModels() {
        const auto m = readCsv(KAVREL_TEST_DATA "/macrodata.csv", 0);
        for (int t = 1; t <= 80; ++t) {
            const double y = std::log(m[t][3]), dpi = std::log(m[t][6]);
            const double cons1 = std::log(m[t - 1][3]), dpi1 = std::log(m[t - 1][6]);
            data.insert(data.end(), {y, 1.0, dpi, cons1});
            z.push_back(dpi1);
            zFull.insert(zFull.end(), {1.0, dpi, dpi1});
        }
    }
};

void macroArgs(HostCall &c) {
    static const MacroModels m;
    c.mat(0, 80, 4, m.data).num(1, 3).num(2, 2).num(3, 1).mat(4, 80, 1, m.z).num(5, 0).num(6, 79).num(7, 0);
    c.ref(8, 10);
}

TEST(Encompassing, AgreesWithR) {
    std::map<std::string, double> r;
    std::ifstream in(KAVREL_TEST_DATA "/encompassing_r.csv");
    std::string line;
    std::getline(in, line);
    while (std::getline(in, line)) r[line.substr(0, line.find(','))] = std::stod(line.substr(line.find(',') + 1));
    ASSERT_EQ(r.size(), 10u);
    // The shared regressors passed once (shared = 2), or again among model 2's columns.
    static const MacroModels m;
    for (const bool again : {false, true}) {
        SCOPED_TRACE(again ? "shared columns repeated" : "shared columns named");
        HostCall c;
        macroArgs(c);
        if (again) c.num(2, 0).num(3, 3).mat(4, 80, 3, m.zFull);
        ASSERT_EQ(c.invoke(FnEncompassing), 1);
        EXPECT_EQ(c.status(), 1);
        const Vec stat = c.out(8), pval = c.out(9), df = c.out(10);
        ASSERT_EQ(stat.size(), 8u);
        EXPECT_NEAR(stat[0], r["cox_1_by_2_z"], 1e-9);
        EXPECT_NEAR(pval[0], r["cox_1_by_2_p"], 1e-10);
        EXPECT_NEAR(stat[4], r["cox_2_by_1_z"], 1e-8);
        EXPECT_NEAR(pval[4], r["cox_2_by_1_p"], 1e-300);
        EXPECT_NEAR(stat[3], r["f_1_vs_nesting"], 1e-9);
        EXPECT_NEAR(pval[3], r["f_1_vs_nesting_p"], 1e-12);
        EXPECT_NEAR(stat[7], r["f_2_vs_nesting"], 1e-8);
        EXPECT_NEAR(pval[7] / r["f_2_vs_nesting_p"], 1.0, 1e-8);
        EXPECT_EQ(df, (Vec{r["f_df1"], r["f_df2"], r["f_df1"], r["f_df2"]}));
    }
}

// v minus its projection on the columns of A (T x k), in long double through the inverse of A'A.
LVec residual(const std::vector<LVec> &A, const LVec &v) {
    const size_t T = v.size(), k = A[0].size();
    LMat AtA(k, LVec(k, 0.0L));
    LVec Atv(k, 0.0L);
    for (size_t t = 0; t < T; ++t)
        for (size_t i = 0; i < k; ++i) {
            Atv[i] += A[t][i] * v[t];
            for (size_t j = 0; j < k; ++j) AtA[i][j] += A[t][i] * A[t][j];
        }
    std::vector<int> all(k);
    for (size_t i = 0; i < k; ++i) all[i] = static_cast<int>(i);
    const LMat inv = inverseOn(AtA, all);
    LVec r = v;
    for (size_t t = 0; t < T; ++t)
        for (size_t i = 0; i < k; ++i)
            for (size_t j = 0; j < k; ++j) r[t] -= A[t][i] * inv[i][j] * Atv[j];
    return r;
}

long double dot(const LVec &a, const LVec &b) {
    long double s = 0;
    for (size_t i = 0; i < a.size(); ++i) s += a[i] * b[i];
    return s;
}

LVec minus(const LVec &a, const LVec &b) {
    LVec d(a.size());
    for (size_t i = 0; i < a.size(); ++i) d[i] = a[i] - b[i];
    return d;
}

// Cox, Ericsson IV, Sargan and F of model A against model B, W the nesting model.
Vec direct(const std::vector<LVec> &A, const std::vector<LVec> &B, const std::vector<LVec> &W, const LVec &y) {
    const long double T = y.size();
    const LVec e = residual(A, y), yhat = minus(y, e), u = residual(B, yhat), w = residual(A, u);
    const long double rssA = dot(e, e), rssB = dot(residual(B, y), residual(B, y));
    const LVec eW = residual(W, y);
    const long double rssW = dot(eW, eW), q = W[0].size() - A[0].size(), dfW = T - W[0].size();
    const long double sA = rssA / T, sAB = sA + dot(u, u) / T;
    const long double cox = T / 2 * std::log(rssB / T / sAB) / std::sqrt(sA * dot(w, w) / (sAB * sAB));
    const long double iv = dot(e, u) / std::sqrt(sA * dot(w, w));
    return {static_cast<double>(cox), static_cast<double>(iv), static_cast<double>(T * (rssA - rssW) / rssA),
            static_cast<double>((rssA - rssW) / q / (rssW / dfW))};
}

TEST(Encompassing, AgreesWithDirectFormulas) {
    // 40 rows; model 1: 1, x1, x2, x3; model 2: 1, x1, z1, z2 (two shared). The nesting model has
    // 6 columns, so each way tests q = 2 restrictions and the Sargan p-value is exp(-S/2).
    Lcg g{17};
    const int T = 40;
    Vec data, zown;
    std::vector<LVec> X, Z, W;
    LVec y;
    for (int t = 0; t < T; ++t) {
        const double x1 = g.next(), x2 = g.next(), x3 = g.next(), z1 = x2 + 0.5 * g.next(), z2 = g.next();
        const double yt = 1 + x1 + 0.5 * x2 + 0.3 * z1 + 0.2 * g.next();
        data.insert(data.end(), {yt, 1, x1, x2, x3});
        zown.insert(zown.end(), {z1, z2});
        X.push_back({1, x1, x2, x3});
        Z.push_back({1, x1, z1, z2});
        W.push_back({1, x1, x2, x3, z1, z2});
        y.push_back(yt);
    }
    HostCall c;
    c.mat(0, T, 5, data).num(1, 4).num(2, 2).num(3, 2).mat(4, T, 2, zown).num(5, 0).num(6, T - 1).num(7, 0);
    ASSERT_EQ(c.ref(8, 10).invoke(FnEncompassing), 1);
    EXPECT_EQ(c.status(), 1);
    const Vec one = direct(X, Z, W, y), two = direct(Z, X, W, y), stat = c.out(8), pval = c.out(9);
    for (int i = 0; i < 4; ++i) {
        EXPECT_NEAR(stat[i], one[i], 1e-10 * std::max(1.0, std::fabs(one[i]))) << "model 1, test " << i;
        EXPECT_NEAR(stat[4 + i], two[i], 1e-10 * std::max(1.0, std::fabs(two[i]))) << "model 2, test " << i;
    }
    EXPECT_NEAR(pval[2], std::exp(-stat[2] / 2), 1e-14);
    EXPECT_NEAR(pval[6], std::exp(-stat[6] / 2), 1e-14);
    EXPECT_NEAR(pval[1], std::erfc(std::fabs(stat[1]) / std::sqrt(2.0)), 1e-14);
    EXPECT_EQ(c.out(10), (Vec{2, T - 6, 2, T - 6}));
}

TEST(Encompassing, NestedModelsAndMissingRows) {
    static const MacroModels m;
    // Model 2 inside model 1 (only the two shared regressors): model 1 has nothing to answer, its
    // row is missing (code 2); model 2 against model 1 is the F test of the one excluded lag.
    HostCall nested;
    macroArgs(nested);
    nested.num(3, 0).mat(4, 0, 0, {});
    ASSERT_EQ(nested.invoke(FnEncompassing), 1);
    EXPECT_EQ(nested.status(), 2);
    const Vec stat = nested.out(8);
    EXPECT_TRUE(AllMissing(Vec(stat.begin(), stat.begin() + 4)));
    std::vector<LVec> X, Z;
    LVec y;
    for (int t = 0; t < 80; ++t) {
        X.push_back({1, m.data[4 * t + 2], m.data[4 * t + 3]});
        Z.push_back({1, m.data[4 * t + 2]});
        y.push_back(m.data[4 * t]);
    }
    const LVec eX = residual(X, y), eZ = residual(Z, y);
    const double F = static_cast<double>((dot(eZ, eZ) - dot(eX, eX)) / (dot(eX, eX) / 77));
    EXPECT_NEAR(stat[7], F, 1e-9 * F);
    EXPECT_EQ(nested.out(10), (Vec{0, 77, 1, 77}));

    // A missing value in row 10: left out with option 1 (as if the row were not there), a failure
    // (code 0, everything missing) without it.
    Vec gap = m.data, cut = m.data, zcut = m.z;
    gap[4 * 10 + 3] = NAN;
    cut.erase(cut.begin() + 40, cut.begin() + 44);
    zcut.erase(zcut.begin() + 10);
    HostCall skip, without, plain;
    macroArgs(skip);
    skip.mat(0, 80, 4, gap).num(7, 1);
    macroArgs(without);
    without.mat(0, 80, 4, gap);
    macroArgs(plain);
    plain.mat(0, 79, 4, cut).mat(4, 79, 1, zcut).num(6, 78);
    ASSERT_EQ(skip.invoke(FnEncompassing), 1);
    ASSERT_EQ(without.invoke(FnEncompassing), 1);
    ASSERT_EQ(plain.invoke(FnEncompassing), 1);
    EXPECT_EQ(skip.status(), 1);
    ExpectClose(skip.out(8), plain.out(8), 1e-12);
    EXPECT_EQ(without.status(), 0);
    EXPECT_TRUE(AllMissing(without.out(8)));
    EXPECT_TRUE(AllMissing(without.out(9)));
    EXPECT_TRUE(AllMissing(without.out(10)));
}

} // namespace
