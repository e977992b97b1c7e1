// Forecasts with identities from the estimation bridge: dy follows an AR(1) with a constant and
// the model adds the level lvl = lvl[-1] + dy, anchored by data at one observation. The identity
// row must be the level summed by hand from the forecast differences, its standard errors those
// of the summed MA coefficients, and a failed identity step leaves the identities missing.
#include <gtest/gtest.h>

#include "common/host_call.h"
#include "database/messages.h"
#include "kavrel/kavrel.h"

namespace {

constexpr int kT = 12, kAnchor = 3, kT1 = 4, kT2 = 10;
constexpr double kC = 0.5, kPhi = 0.3, kSigma2 = 0.2;
const Vec kDy = {0.3, -0.1, 0.4, 0.8, 0.2, 0.1, -0.3, 0.5, 0.6, 0.0, 0.2, 0.1};

class ForecastIdentities : public ::testing::Test {
protected:
    void SetUp() override {
        SetMessageSink([](const char *, const char *) {});
    }
    void TearDown() override {
        HostCall exit;
        exit.invoke(FnExitAlgebraNls);
        SetMessageSink(nullptr);
    }
    // The workspace: dy, the anchor flag f and the anchored level base; lvl computed up to the
    // observation before the forecasts.
    static void initWorkspace(const char *text) {
        Vec data;
        for (int t = 0; t < kT; ++t) data.insert(data.end(), {kDy[t], t == kAnchor ? 1.0 : 0.0, 100.0});
        HostCall init;
        init.mat(0, kT, 3, data).strs(1, {"dy", "f", "base"}).num(2, 2001).num(3, 1).num(4, 4).num(5, 0);
        init.str(6, text).num(7, 0).num(8, 0);
        ASSERT_EQ(init.invoke(FnInitAlgebraNls), 1);
        ASSERT_EQ(init.result.type, LUMO_EMPTY) << init.text();
        HostCall run;
        run.mat(0, 0, 0, {}).num(1, 0).num(2, kAnchor);
        ASSERT_EQ(run.invoke(FnRunAlgebraNls), 1);
    }
    static void forecastArgs(HostCall &c, int horizon) {
        Vec lag(kT, 0.0);
        for (int t = 1; t < kT; ++t) lag[t] = kDy[t - 1];
        Vec reg = lag;
        reg.insert(reg.end(), kT, 1.0);
        c.mat(0, 1, kT, kDy).mat(1, 2, kT, reg).num(2, kT1).num(3, kT2).num(4, 0).num(5, 1).num(6, 1);
        c.row(7, {1, 1, 2}).row(8, {1, 1, 0}).row(9, {0, 1, 0}).mat(10, 1, 2, {kPhi, kC}).mat(11, 1, 1, {kSigma2});
        c.num(12, 0).num(13, 0).num(14, 0).num(15, horizon).ref(16).num(17, 1).num(18, kAnchor);
    }
};

const char *const kLevel = "lvl = f > 0 ? base : lvl[-1] + dy;";

TEST_F(ForecastIdentities, LevelFromForecastDifferences) {
    initWorkspace(kLevel);
    HostCall c;
    forecastArgs(c, 0);
    ASSERT_EQ(c.invoke(FnDynForc), 1);
    const int n = kT2 - kT1 + 1;
    const Vec got = c.values(), se = c.out(16);
    ASSERT_EQ(got.size(), 2u * n);
    ASSERT_EQ(se.size(), 2u * n);
    double dy = kDy[kT1 - 1], level = 100.0, var = 0.0, psi = 1.0, cumPsi = 0.0, varLevel = 0.0;
    for (int k = 0; k < n; ++k) {
        dy = kC + kPhi * dy;
        level += dy;
        var += psi * psi * kSigma2;
        cumPsi += psi; // the level's MA coefficient at lag k is the sum of dy's up to k
        varLevel += cumPsi * cumPsi * kSigma2;
        psi *= kPhi;
        EXPECT_NEAR(got[k], dy, 1e-14) << k;
        EXPECT_NEAR(got[n + k], level, 1e-12) << k;
        EXPECT_NEAR(se[k], std::sqrt(var), 1e-7) << k;
        EXPECT_NEAR(se[n + k], std::sqrt(varLevel), 1e-7) << k;
    }
}

TEST_F(ForecastIdentities, FailedStepLeavesTheIdentityMissing) {
    // The forecasts of dy fall from 0.74 towards 0.714: the logarithm faults from the third on.
    initWorkspace("lvl = f > 0 ? base : lvl[-1] + dy; r = log(dy - 0.72);");
    HostCall c;
    forecastArgs(c, 0);
    ASSERT_EQ(c.invoke(FnDynForc), 1);
    const int n = kT2 - kT1 + 1;
    const Vec got = c.values();
    ASSERT_EQ(got.size(), 3u * n);
    for (int k = 0; k < n; ++k) {
        EXPECT_FALSE(std::isnan(got[k])) << "the forecast stands " << k;
        EXPECT_EQ(std::isnan(got[n + k]), k >= 2) << "level " << k;
        EXPECT_EQ(std::isnan(got[2 * n + k]), k >= 2) << "logarithm " << k;
    }
}

} // namespace
