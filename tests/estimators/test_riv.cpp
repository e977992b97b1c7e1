// FnRivEst through the host against brute force: at every observation the two-stage least-squares
// problem over the sample so far is solved from its moment matrices in long double, and every
// output is rebuilt from those fits by its definition (docs/riv.md). Then the frame: bad input,
// status 0, allocation failures, outputs omitted or naming an input.
#include "common/fault.h"
#include "common/host_call.h"
#include "common/reference.h"
#include "kavrel/kavrel.h"

namespace {

constexpr int kArgs = 13, kFirstOut = 7, kOutputs = 6;

// One call of the export: its thirteen argument records (one more than HostCall holds), the
// caller's variables and the return record, all freed with the call.
struct RivCall {
    LumoValue args[kArgs], targets[kArgs], result;
    RivCall() { std::memset(static_cast<void *>(this), 0, sizeof *this); }
    ~RivCall() {
        for (int i = 0; i < kArgs; ++i) LumoFreeByValue(&args[i]), LumoFreeByValue(&targets[i]);
        LumoFreeByValue(&result);
    }
    RivCall(const RivCall &) = delete;
    RivCall &operator=(const RivCall &) = delete;
    bool isOutput(int i) const { return args[i].type == LUMO_REF && args[i].v.w.u.target == &targets[i]; }
    void preset() {
        LumoValSetInt(&result, 99);
        for (int i = 0; i < kArgs; ++i)
            if (isOutput(i)) LumoValSetInt(&targets[i], 7);
    }
    bool untouched(int i) const { return targets[i].type == LUMO_INT && targets[i].v.w.ival == 7; }
    int invoke() { return LumoHostInvoke(FnRivEst, &result, args, kArgs); }
    int status() const { return result.type == LUMO_INT ? result.v.w.ival : -1; }
    Vec out(int i) const { return HostValues(&targets[i]); }
};

// Variables in rows (y, the regressors with the endogenous ones first, the additional
// instruments, then `spare` rows the model does not use), observations in columns.
struct Shape {
    int endo, regs, extra, first, last, force;
    double level; // added to the instruments other than the constant
    int spare;
};
struct Problem : Shape {
    int cols;
    Vec d;
    int m() const { return regs - endo + extra; }
    int rows() const { return 1 + regs + extra + spare; }
    double at(int v, int t) const { return d[static_cast<size_t>(v) * cols + t]; }
};

// Instruments drive the endogenous regressors; the structural error shares a component with
// their first-stage errors, so that least squares would be inconsistent.
Problem makeProblem(const Shape &shape) {
    Problem p{shape, shape.last + 3, {}};
    p.d.assign(static_cast<size_t>(p.rows()) * p.cols, 0.0);
    Lcg g{21};
    auto set = [&](int v, int t, double x) { p.d[static_cast<size_t>(v) * p.cols + t] = x; };
    const int inst0 = 1 + p.endo; // data row of the first instrument
    for (int t = 0; t < p.cols; ++t) {
        for (int i = 0; i < p.m(); ++i) set(inst0 + i, t, i == 0 ? 1.0 : p.level + g.next());
        const double common = g.next();
        double y = 0.5 * g.next() + 0.8 * common;
        for (int j = 0; j < p.regs; ++j) {
            double x = p.at(1 + j, t);
            if (j < p.endo) {
                x = 0.6 * common + 0.3 * g.next();
                for (int i = 0; i < p.m(); ++i) x += (0.5 + 0.25 * ((i + j) % 3)) * p.at(inst0 + i, t) / (1 + p.level);
                set(1 + j, t, x);
            }
            y += (1.0 - 0.5 * j) * x;
        }
        set(0, t, y);
        for (int s = 0; s < p.spare; ++s) set(p.rows() - 1 - s, t, g.next());
    }
    return p;
}

void rivArgs(RivCall &c, const Problem &p) {
    LumoValSetMatrix(&c.args[0], p.rows(), p.cols, p.d.data());
    const int ints[6] = {p.endo, p.regs, p.extra, p.first, p.last, p.force};
    for (int i = 0; i < 6; ++i) LumoValSetInt(&c.args[1 + i], ints[i]);
    for (int i = kFirstOut; i < kArgs; ++i) LumoValSetRef(&c.args[i], &c.targets[i]);
}

// The six outputs (coefficients, standard errors, standardised innovations, innovations, RSS,
// Sargan), row-major with last+1 columns, NaN where nothing is written.
std::vector<Vec> bruteForce(const Problem &p) {
    const int a = p.regs, m = p.m(), cols = p.last + 1;
    std::vector<Vec> out;
    for (int rows : {a, a, 1, 1, 1, 1}) out.emplace_back(static_cast<size_t>(rows) * cols, NAN);
    LMat zz(m, LVec(m, 0.0L)), zx(m, LVec(a, 0.0L));
    LVec zy(m, 0.0L), bPrev;
    LMat Qprev;
    std::vector<int> all(static_cast<size_t>(std::max(a, m)));
    for (size_t i = 0; i < all.size(); ++i) all[i] = static_cast<int>(i);
    auto x = [&](int t, int j) -> long double { return p.at(1 + j, t); };
    auto z = [&](int t, int i) -> long double { return p.at(1 + p.endo + i, t); };
    for (int t = p.first; t <= p.last; ++t) {
        for (int i = 0; i < m; ++i) {
            for (int l = 0; l < m; ++l) zz[i][l] += z(t, i) * z(t, l);
            for (int j = 0; j < a; ++j) zx[i][j] += z(t, i) * x(t, j);
            zy[i] += z(t, i) * p.at(0, t);
        }
        if (t < p.first + m - 1) continue;
        // b = Q X'Z W Z'y, Q = (X'Z W Z'X)^-1, W = (Z'Z)^-1.
        const LMat W = inverseOn(zz, std::vector<int>(all.begin(), all.begin() + m));
        LMat WZX(m, LVec(a, 0.0L)), M(a, LVec(a, 0.0L));
        LVec WZy(m, 0.0L), s(a, 0.0L), b(a, 0.0L);
        for (int i = 0; i < m; ++i)
            for (int l = 0; l < m; ++l) {
                WZy[i] += W[i][l] * zy[l];
                for (int j = 0; j < a; ++j) WZX[i][j] += W[i][l] * zx[l][j];
            }
        for (int j = 0; j < a; ++j)
            for (int i = 0; i < m; ++i) {
                s[j] += zx[i][j] * WZy[i];
                for (int l = 0; l < a; ++l) M[j][l] += zx[i][j] * WZX[i][l];
            }
        const LMat Q = inverseOn(M, std::vector<int>(all.begin(), all.begin() + a));
        for (int j = 0; j < a; ++j)
            for (int l = 0; l < a; ++l) b[j] += Q[j][l] * s[l];
        if (t >= p.first + m) {
            long double v = p.at(0, t), f = 1.0L;
            for (int j = 0; j < a; ++j) {
                v -= bPrev[j] * x(t, j);
                for (int l = 0; l < a; ++l) f += x(t, j) * Qprev[j][l] * x(t, l);
            }
            long double rss = 0.0L;
            LVec zu(m, 0.0L);
            for (int r = p.first; r <= t; ++r) {
                long double u = p.at(0, r);
                for (int j = 0; j < a; ++j) u -= b[j] * x(r, j);
                rss += u * u;
                for (int i = 0; i < m; ++i) zu[i] += z(r, i) * u;
            }
            long double proj = 0.0L;
            for (int i = 0; i < m; ++i)
                for (int l = 0; l < m; ++l) proj += zu[i] * W[i][l] * zu[l];
            const int n = t - p.first + 1;
            for (int j = 0; j < a; ++j) {
                out[0][static_cast<size_t>(j) * cols + t] = static_cast<double>(b[j]);
                out[1][static_cast<size_t>(j) * cols + t] = static_cast<double>(std::sqrt(rss / (n - a) * Q[j][j]));
            }
            const long double vals[4] = {v / std::sqrt(f), v, rss, n * proj / rss};
            for (int i = 0; i < 4; ++i) out[2 + i][t] = static_cast<double>(vals[i]);
        }
        bPrev = b;
        Qprev = Q;
    }
    return out;
}

TEST(RivEst, MatchesBruteForceRefits) {
    const struct {
        const char *name;
        Shape shape;
        double tol;
        double sarganTol; // absolute where the statistic is zero (exactly identified)
    } rows[] = {
        // clang-format off
        {"one endogenous regressor", {1, 3, 2, 0, 160, -1, 0, 0}, 1e-10, 0},
        {"first > 0, forced inversion", {1, 3, 2, 9, 160, 61, 0, 0}, 1e-10, 0},
        {"two endogenous, several refit intervals", {2, 4, 3, 0, 260, -1, 0, 0}, 1e-10, 0},
        {"no exogenous regressor, spare rows", {1, 1, 2, 3, 120, -1, 0, 2}, 1e-10, 0},
        {"exactly identified", {2, 3, 2, 0, 130, 5, 0, 0}, 1e-10, 1e-20},
        {"shortest sample: one step", {1, 3, 2, 4, 8, -1, 0, 0}, 1e-10, 0},
        // Instruments at a level of 100 around unit noise: between full inversions the rank-one
        // steps carry errors of the order of eps cond(Z'Z) (6e-7 at most here, early in the sample).
        {"instruments far from zero", {1, 3, 2, 0, 170, -1, 100, 0}, 5e-6, 0},
        // clang-format on
    };
    const char *names[kOutputs] = {"coefficients", "standard errors", "standardised innovations", "innovations",
                                   "RSS",          "Sargan"};
    for (const auto &r : rows) {
        SCOPED_TRACE(r.name);
        const Problem p = makeProblem(r.shape);
        std::vector<Vec> want = bruteForce(p);
        RivCall c;
        rivArgs(c, p);
        ASSERT_EQ(c.invoke(), 1) << LumoHostLastError();
        EXPECT_EQ(c.status(), 1);
        if (r.sarganTol > 0) {
            const Vec s = c.out(12);
            for (int t = p.first + p.m(); t <= p.last; ++t) EXPECT_NEAR(s[t], 0.0, r.sarganTol) << t;
            want.pop_back();
        }
        for (size_t i = 0; i < want.size(); ++i)
            ExpectClose(c.out(kFirstOut + static_cast<int>(i)), want[i], r.tol, names[i]);
    }
}

TEST(RivEst, BadInputAndFailures) {
    // Refused calls return untouched; calls that run and fail give status 0 with every output
    // missing (a failure at the start) or written up to the failure (a failed full inversion).
    enum Outcome { REFUSED, STATUS0, STATUS0_AFTER };
    const Problem base = makeProblem({1, 3, 2, 0, 80, -1, 0, 0});
    const struct {
        const char *what;
        void (*edit)(RivCall &, Problem &);
        Outcome outcome;
        const char *message;
    } rows[] = {
        // clang-format off
        {"data a double", [](RivCall &c, Problem &) { LumoValSetDouble(&c.args[0], 1); }, REFUSED,
         "argument 0: matrix expected, double found"},
        {"force a double", [](RivCall &c, Problem &) { LumoValSetDouble(&c.args[6], 1); }, REFUSED,
         "argument 6: int expected, double found"},
        {"last < first", [](RivCall &c, Problem &) { LumoValSetInt(&c.args[4], 50), LumoValSetInt(&c.args[5], 49); },
         REFUSED, ""},
        {"no endogenous regressor", [](RivCall &c, Problem &) { LumoValSetInt(&c.args[1], 0); }, REFUSED, ""},
        {"no regressor", [](RivCall &c, Problem &) { LumoValSetInt(&c.args[2], 0); }, REFUSED, ""},
        {"no additional instrument", [](RivCall &c, Problem &) { LumoValSetInt(&c.args[3], 0); }, REFUSED, ""},
        {"last beyond the columns", [](RivCall &c, Problem &p) { LumoValSetInt(&c.args[5], p.cols); }, REFUSED, ""},
        {"regressors and instruments fill every row",
         [](RivCall &c, Problem &p) { LumoValSetInt(&c.args[3], p.rows() - 3); }, REFUSED, ""},
        {"first < 0", [](RivCall &c, Problem &) { LumoValSetInt(&c.args[4], -1); }, REFUSED, ""},
        {"more endogenous than regressors", [](RivCall &c, Problem &) { LumoValSetInt(&c.args[1], 4); }, STATUS0, ""},
        {"not identified", [](RivCall &c, Problem &) { LumoValSetInt(&c.args[1], 3); }, STATUS0, ""},
        {"too few observations", [](RivCall &c, Problem &) { LumoValSetInt(&c.args[4], 77); }, STATUS0, ""},
        {"instruments collinear", [](RivCall &c, Problem &p) {
             for (int t = 0; t < p.cols; ++t) p.d[static_cast<size_t>(5) * p.cols + t] = p.at(4, t);
             LumoValSetMatrix(&c.args[0], p.rows(), p.cols, p.d.data());
         }, STATUS0, ""},
        {"missing instrument at observation 40", [](RivCall &c, Problem &p) {
             p.d[static_cast<size_t>(4) * p.cols + 40] = NAN;
             LumoValSetMatrix(&c.args[0], p.rows(), p.cols, p.d.data());
         }, STATUS0_AFTER, ""},
        // clang-format on
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.what);
        Problem p = base;
        RivCall c;
        rivArgs(c, p);
        r.edit(c, p);
        c.preset();
        EXPECT_EQ(c.invoke(), r.message[0] ? 0 : 1);
        EXPECT_STREQ(LumoHostLastError(), r.message);
        EXPECT_EQ(c.status(), r.outcome == REFUSED ? 99 : 0);
        for (int i = kFirstOut; i < kArgs; ++i) {
            if (r.outcome == REFUSED) {
                EXPECT_TRUE(c.untouched(i)) << i;
                continue;
            }
            const Vec v = c.out(i);
            ASSERT_EQ(v.size() % 81, 0u) << i;
            const size_t written = r.outcome == STATUS0_AFTER ? 40 - 4 : 0; // columns 4..39
            EXPECT_EQ(std::count_if(v.begin(), v.end(), [](double d) { return d == d; }),
                      static_cast<long>(written * (v.size() / 81)))
                << i;
        }
    }
}

bool sameTarget(const LumoValue &a, const LumoValue &b) {
    return a.type == b.type && SameBits(HostValues(&a), HostValues(&b));
}

TEST(RivEst, FrameAllocationsAliasingAndOmittedOutputs) {
    const Problem p = makeProblem({1, 3, 2, 0, 60, 30, 0, 0});
    RivCall clean;
    rivArgs(clean, p);
    ASSERT_EQ(clean.invoke(), 1);
    ASSERT_EQ(clean.status(), 1);

    // The n-th library allocation (the recursion's one block) fails: status 0, outputs missing.
    // The n-th host allocation fails: status 0, every variable as it was.
    for (const bool host : {false, true}) {
        RivCall c;
        rivArgs(c, p);
        auto run = [&](long n) {
            c.preset();
            ASSERT_EQ(c.invoke(), 1);
            const bool fired = host ? n <= 2 * kOutputs : KvAllocCount() >= n;
            EXPECT_EQ(c.status(), fired ? 0 : 1) << n;
            for (int i = kFirstOut; i < kArgs; ++i) {
                if (!fired) {
                    EXPECT_TRUE(sameTarget(c.targets[i], clean.targets[i])) << n << " " << i;
                } else if (host) {
                    EXPECT_TRUE(c.untouched(i)) << n << " " << i;
                } else {
                    EXPECT_TRUE(AllMissing(c.out(i))) << n << " " << i;
                }
            }
        };
        if (host) {
            EXPECT_EQ(ForEachHostAllocationFailure(run), 2 * kOutputs);
        } else {
            EXPECT_EQ(ForEachLibraryAllocationFailure(run), 1);
        }
    }

    // An output that names an input: the inputs are read whole before the variable is replaced.
    for (int out = kFirstOut; out < kArgs; ++out)
        for (int in = 0; in < kFirstOut; ++in) {
            RivCall c;
            rivArgs(c, p);
            LumoValSetRef(&c.args[out], &c.args[in]);
            ASSERT_EQ(c.invoke(), 1);
            EXPECT_EQ(c.status(), 1) << out << " names " << in;
            EXPECT_TRUE(sameTarget(c.args[in], clean.targets[out])) << out << " names " << in;
        }

    // Every subset of the outputs: what is asked for is bit for bit what a call with all gives.
    for (unsigned mask = 0; mask < 1u << kOutputs; ++mask) {
        RivCall c;
        rivArgs(c, p);
        for (int i = 0; i < kOutputs; ++i)
            if (!(mask >> i & 1)) LumoValSetInt(&c.args[kFirstOut + i], -3);
        ASSERT_EQ(c.invoke(), 1);
        for (int i = 0; i < kOutputs; ++i) {
            const int arg = kFirstOut + i;
            if (mask >> i & 1) {
                EXPECT_TRUE(sameTarget(c.targets[arg], clean.targets[arg])) << mask << " " << arg;
            } else {
                EXPECT_EQ(c.args[arg].v.w.ival, -3) << mask << " " << arg;
            }
        }
    }
}

} // namespace
