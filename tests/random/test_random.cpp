// Uniform generators against transcriptions of their published recurrences written here with
// plain integer arithmetic (true modulo instead of Schrage, a parameter table for the shift
// register), the name table, seeding and state access, and the variates against their
// distributions (special/) by the Kolmogorov-Smirnov statistic on 10^6 draws.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <vector>

#include "random/random.h"
#include "special/distributions.h"

namespace {

const double NaN = std::numeric_limits<double>::quiet_NaN(), Inf = std::numeric_limits<double>::infinity();
const char *const kNames[] = {"PM", "GM", "LE", "MWC_32", "MWC_52"};

RanState selected(const char *name, int seed) {
    RanState s{};
    RanSetGenerator(&s, name);
    RanSeed(&s, seed);
    return s;
}

std::vector<uint32_t> words(const RanState &s) {
    std::vector<uint32_t> w(s.ops.stateSize());
    s.ops.getState(&s, w.data());
    return w;
}

// The recurrences from their publications, started from a record's words.
struct Reference {
    int f;
    uint64_t x;
    uint32_t z, w, t[4], q[256], i, c;
    Reference(const RanState &s, int f) : f(f), x(s.x), z(s.z), w(s.w), t{s.z1, s.z2, s.z3, s.z4}, i(s.i), c(s.c) {
        std::copy(s.Q, s.Q + 256, q);
    }
    uint32_t lag() {
        i = (i + 1) % 256;
        const uint64_t v = 809430660ull * q[i] + c;
        c = uint32_t(v / 4294967296ull);
        return q[i] = uint32_t(v % 4294967296ull);
    }
    static double asSigned(uint32_t v) { return v >= 2147483648u ? double(v) - 4294967296.0 : double(v); }
    double next() {
        static const int K[4] = {31, 29, 28, 25}, Q[4] = {6, 2, 13, 3}, S[4] = {18, 2, 7, 13};
        uint32_t out = 0;
        if (f == RAN_LCG31) return double(x = x * 48271 % 2147483647) * 4.656612875245797e-10;
        if (f == RAN_MWC60) {
            z = 36969 * (z % 65536) + z / 65536, w = 18000 * (w % 65536) + w / 65536;
            return double(uint32_t(z * 65536 + w % 65536)) * 2.32830643708e-10;
        }
        for (int j = 0; j < 4 && f == RAN_LFSR113; ++j) {
            const uint32_t b = ((t[j] << Q[j]) ^ t[j]) >> (K[j] - S[j]);
            out ^= t[j] = ((t[j] & (0xFFFFFFFFu << (32 - K[j]))) << S[j]) ^ b;
        }
        if (f == RAN_LFSR113) return double(out) * 2.3283064365387e-10;
        const double a = asSigned(lag()) * std::ldexp(1.0, -32);
        if (f == RAN_MWC32) return a + 0.5000000001164153;
        return a + 0.5000000000000001 + double(lag() % 1048576) * std::ldexp(1.0, -52);
    }
};

TEST(Random, CongruentialFromStateOne) {
    RanState s = selected("PM", 5);
    const uint32_t one = 1;
    ASSERT_EQ(s.ops.setState(&s, &one, 1), 1);
    EXPECT_EQ(RanUniform(&s), 48271 * 4.656612875245797e-10);
    EXPECT_EQ(s.x, 48271);
    RanUniform(&s);
    EXPECT_EQ(s.x, 182605794);
    for (int k = 2; k < 10000; ++k) RanUniform(&s);
    EXPECT_EQ(s.x, 399268537); // Park, Miller and Stockmeyer (1993): the 10,000th value from 1
}

TEST(Random, FamiliesMatchTheirRecurrences) {
    for (int f = RAN_LCG31; f <= RAN_MWC52; ++f) {
        RanState s = selected(kNames[f - 1], 20240607 + f);
        Reference ref(s, f);
        int first = -1;
        for (int k = 0; k < 1000000 && first < 0; ++k)
            if (RanUniform(&s) != ref.next()) first = k;
        EXPECT_EQ(first, -1) << kNames[f - 1];
        // Draws by block and the matrix fill continue the same stream.
        std::vector<double> block(1000 + 3 * 7);
        RanUniforms(&s, block.data(), 1000);
        double *rows[3] = {&block[1000], &block[1007], &block[1014]};
        s.ops.fill(&s, rows, 3, 7);
        int firstBlock = -1;
        for (int k = 0; k < static_cast<int>(block.size()) && firstBlock < 0; ++k)
            if (block[k] != ref.next()) firstBlock = k;
        EXPECT_EQ(firstBlock, -1) << kNames[f - 1];
    }
}

// A draw of the caller's own is honoured by block draws and by the fill, whose element entry is
// called once per element.
TEST(Random, BlockAndFillUseTheCallersOwnDraws) {
    RanState s = selected("MWC_52", 7);
    s.ops.uniform = [](RanState *r) { return static_cast<double>(++r->spare); };
    s.ops.element = [](RanState *r) { return -static_cast<double>(++r->spare); };
    s.spare = 0;
    double v[4];
    RanUniforms(&s, v, 2);
    double *rows[1] = {v + 2};
    s.ops.fill(&s, rows, 1, 2);
    EXPECT_EQ(v[0], 1.0);
    EXPECT_EQ(v[1], 2.0);
    EXPECT_EQ(v[2], -3.0);
    EXPECT_EQ(v[3], -4.0);
}

TEST(Random, NamesSelectFamilies) {
    // clang-format off
    const struct { const char *name; int family; } cases[] = {
        {"LCG31", 1}, {"MWC60", 2}, {"LFSR113", 3}, {"MWC8222", 4}, {"MWC32", 5}, {"pm", 5}, {"PM ", 5}, {nullptr, 5}};
    // clang-format on
    for (const auto &c : cases) {
        RanState s{};
        RanSetGenerator(&s, c.name);
        EXPECT_EQ(s.ops.uniform, RanFamilyOps(c.family)->uniform) << (c.name ? c.name : "(null)");
    }
    EXPECT_EQ(RanDefault()->ops.uniform, RanFamilyOps(RAN_MWC52)->uniform);
}

TEST(Random, SeedingReproducesStreams) {
    for (const char *name : kNames) {
        RanState fresh{}, s = selected(name, 12345);
        RanSetGenerator(&fresh, name);
        EXPECT_EQ(words(s), words(selected(name, 12345))) << name;
        RanUniform(&s);
        const std::vector<uint32_t> moved = words(s);
        EXPECT_EQ(RanSeed(&s, -1), 12345) << name;
        EXPECT_EQ(words(s), moved) << name; // -1 passes no seed
        EXPECT_EQ(RanSeed(&s, 0), 0) << name;
        EXPECT_EQ(words(s), words(fresh)) << name; // 0 is the default seed
    }
    // Selection initialises a record once (a family seeded earlier keeps its words) and forgets the seed.
    RanState s = selected("PM", 77);
    const int32_t x = s.x;
    RanSetGenerator(&s, "LE");
    EXPECT_EQ(RanSeed(&s, -1), 0);
    RanSetGenerator(&s, "PM");
    EXPECT_EQ(s.x, x);
}

// Words read back give the same stream; a seed of any value gives words the state check accepts,
// and words outside each family's bounds are refused, leaving the record as it was.
TEST(Random, StateWordsRoundTripAndRefuseBadStates) {
    std::vector<int> seeds = {0, -1, INT_MIN, INT_MAX};
    for (int k = -2000; k <= 2000; k += 3) seeds.push_back(k * 1000003);
    for (const char *name : kNames) {
        RanState s = selected(name, -9);
        const std::vector<uint32_t> w = words(s);
        const double u = RanUniform(&s);
        EXPECT_EQ(s.ops.setState(&s, w.data(), int(w.size())), 1) << name;
        EXPECT_EQ(RanUniform(&s), u) << name;
        EXPECT_EQ(s.ops.setState(&s, w.data(), int(w.size()) - 1), 0) << name;
        for (int seed : seeds) {
            s.ops.seed(&s, seed);
            const std::vector<uint32_t> seeded = words(s);
            EXPECT_EQ(s.ops.setState(&s, seeded.data(), int(seeded.size())), 1) << name << " " << seed;
        }
    }
    std::vector<uint32_t> lagOnes(258, 0xFFFFFFFFu), lagCarry(258, 5);
    lagOnes[256] = 0, lagOnes[257] = 809430659, lagCarry[257] = 809430660;
    // clang-format off
    const struct { const char *name; std::vector<uint32_t> w; } bad[] = {
        {"PM", {2147483647}}, {"GM", {2422800383u, 1}}, {"GM", {1, 0}}, {"LE", {1, 8, 16, 128}},
        {"LE", {2, 8, 16, 127}}, {"MWC_32", lagOnes}, {"MWC_52", lagCarry}};
    // clang-format on
    for (const auto &b : bad) {
        RanState s = selected(b.name, 3);
        const std::vector<uint32_t> before = words(s);
        EXPECT_EQ(s.ops.setState(&s, b.w.data(), int(b.w.size())), 0) << b.name << " " << b.w[0];
        EXPECT_EQ(words(s), before) << b.name;
    }
}

enum Kind { NORMAL, CHI, T, F };
double (*const kDraw[])(RanState *, double,
                        double) = {[](RanState *s, double, double) { return RanNormal(s); },
                                   [](RanState *s, double a, double) { return RanChiSquared(s, a); },
                                   [](RanState *s, double a, double) { return RanStudentT(s, a); }, RanF};
double (*const kCdf[])(double, double, double) = {
    [](double x, double, double) { return DistNormalP(x); }, [](double x, double a, double) { return DistChi2P(x, a); },
    [](double x, double a, double) { return DistTP(x, std::trunc(a)); }, DistFP};

// sqrt(n) D is Kolmogorov-distributed for a correct sampler: P(sqrt(n) D > 2.5) = 1.5e-5, so 2.5
// leaves no realistic chance of a failure by bad luck, while a wrong method (a degree of freedom
// off by one, a lost sign, a biased tail) gives distances of 0.01 or more at n = 10^6.
TEST(Random, VariatesFollowTheirDistributions) {
    // clang-format off
    const struct { Kind k; const char *family; double a, b; } cases[] = {
        {NORMAL, "MWC_52", 0, 0}, {NORMAL, "PM", 0, 0}, {CHI, "MWC_52", 0.3, 0}, {CHI, "LE", 4.5, 0},
        {CHI, "MWC_52", 60, 0}, {T, "MWC_52", 1, 0}, {T, "GM", 3.9, 0}, {F, "MWC_52", 2, 5},
        {F, "MWC_52", 0.5, 0.8}, {F, "MWC_32", 7, Inf}};
    // clang-format on
    const int n = 1000000;
    std::vector<double> x(n);
    for (const auto &c : cases) {
        RanState s = selected(c.family, 31415);
        for (double &v : x) v = kDraw[c.k](&s, c.a, c.b);
        std::sort(x.begin(), x.end());
        double d = 0;
        for (int j = 0; j < n; ++j) {
            const double f = kCdf[c.k](x[j], c.a, c.b);
            d = std::max({d, f - double(j) / n, (j + 1.0) / n - f});
        }
        EXPECT_LT(std::sqrt(double(n)) * d, 2.5) << c.k << " " << c.a << " " << c.b << " on " << c.family;
    }
}

TEST(Random, InvalidDegreesOfFreedomGiveMissingWithoutDrawing) {
    // clang-format off
    const struct { Kind k; double a, b; } bad[] = {{CHI, 0, 1}, {CHI, -1, 1}, {CHI, NaN, 1}, {CHI, Inf, 1},
        {T, 0.999, 1}, {T, -2, 1}, {T, NaN, 1}, {F, 0, 1}, {F, 1, -1}, {F, NaN, 1}, {F, 1, NaN}};
    // clang-format on
    for (const auto &b : bad) {
        RanState s = selected("MWC_52", 8), copy = s;
        EXPECT_TRUE(std::isnan(kDraw[b.k](&s, b.a, b.b))) << b.k << " " << b.a << " " << b.b;
        EXPECT_EQ(RanUniform(&s), RanUniform(&copy)) << b.k << " " << b.a << " " << b.b;
    }
    // Tiny degrees of freedom: both chi-squared draws underflow to 0 most of the time, the F ratio must not be 0/0.
    RanState s = selected("MWC_52", 8);
    for (int r = 0; r < 1000; ++r) EXPECT_FALSE(std::isnan(RanF(&s, 1e-4, 1e-4))) << r;
}

} // namespace
