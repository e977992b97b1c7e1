// Encompassing tests against values from R (lmtest's coxtest and encomptest on stored data,
// tests/data/encompassing.R), and a row with a missing value.
#include <cmath>
#include <fstream>
#include <map>
#include <string>

#include "common/host_call.h"
#include "kavrel/kavrel.h"

namespace {

// y = log realcons[t]; model 1: 1, log realdpi[t], log realcons[t-1]; model 2 the first two and
// log realdpi[t-1] (rows 1..80 of macrodata): 80 x 4 (y, 1, dpi, cons1) and 80 x 1 (dpi1).
struct MacroModels {
    Vec data, z;
    MacroModels() {
        std::ifstream in(KAVREL_TEST_DATA "/macrodata.csv");
        std::string line;
        std::vector<Vec> m;
        for (std::getline(in, line); std::getline(in, line) && m.size() <= 80;) {
            m.emplace_back();
            for (size_t at = 0; at != std::string::npos; at = line.find(',', at + 1))
                m.back().push_back(std::stod(line.substr(at ? at + 1 : 0)));
        }
        for (int t = 1; t <= 80; ++t) {
            data.insert(data.end(), {std::log(m[t][3]), 1.0, std::log(m[t][6]), std::log(m[t - 1][3])});
            z.push_back(std::log(m[t - 1][6]));
        }
    }
};

void macroArgs(HostCall &c, const MacroModels &m) {
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
    const MacroModels m;
    HostCall c;
    macroArgs(c, m);
    ASSERT_EQ(c.invoke(FnEncompassing), 1);
    EXPECT_EQ(c.status(), 1);
    const Vec stat = c.out(8), pval = c.out(9);
    ASSERT_EQ(stat.size(), 8u);
    EXPECT_NEAR(stat[0], r["cox_1_by_2_z"], 1e-9);
    EXPECT_NEAR(pval[0], r["cox_1_by_2_p"], 1e-10);
    EXPECT_NEAR(stat[4], r["cox_2_by_1_z"], 1e-8);
    EXPECT_NEAR(pval[4], r["cox_2_by_1_p"], 1e-300);
    EXPECT_NEAR(stat[3], r["f_1_vs_nesting"], 1e-9);
    EXPECT_NEAR(pval[3], r["f_1_vs_nesting_p"], 1e-12);
    EXPECT_NEAR(stat[7], r["f_2_vs_nesting"], 1e-8);
    EXPECT_NEAR(pval[7] / r["f_2_vs_nesting_p"], 1.0, 1e-8);
    EXPECT_EQ(c.out(10), (Vec{r["f_df1"], r["f_df2"], r["f_df1"], r["f_df2"]}));
}

TEST(Encompassing, MissingRow) {
    // A missing value in row 10: left out with option 1 (as if the row were not there), a failure
    // (code 0, everything missing) without it.
    const MacroModels m;
    Vec gap = m.data, cut = m.data, zcut = m.z;
    gap[4 * 10 + 3] = NAN;
    cut.erase(cut.begin() + 40, cut.begin() + 44);
    zcut.erase(zcut.begin() + 10);
    HostCall skip, without, plain;
    macroArgs(skip, m);
    skip.mat(0, 80, 4, gap).num(7, 1);
    macroArgs(without, m);
    without.mat(0, 80, 4, gap);
    macroArgs(plain, m);
    plain.mat(0, 79, 4, cut).mat(4, 79, 1, zcut).num(6, 78);
    ASSERT_EQ(skip.invoke(FnEncompassing), 1);
    ASSERT_EQ(without.invoke(FnEncompassing), 1);
    ASSERT_EQ(plain.invoke(FnEncompassing), 1);
    EXPECT_EQ(skip.status(), 1);
    ExpectClose(skip.out(8), plain.out(8), 1e-12);
    EXPECT_EQ(without.status(), 0);
    for (int i = 8; i <= 10; ++i) EXPECT_TRUE(AllMissing(without.out(i))) << i;
}

} // namespace
