// FnRalsFunc and FnRalsForecast through the host: the concentrated log-likelihood and its
// coefficients against a direct long double fit of the filtered data, its gradient and second
// derivatives against finite differences, its optimum against a joint Gauss-Newton fit of the
// nonlinear regression and against R's conditional-sum-of-squares estimates (tests/data), the
// forecasts against the quasi-differenced model equation iterated forward and their standard
// errors against powers of the companion matrix. Then the frame of both exports.
#include <fstream>
#include <sstream>

#include "common/fault.h"
#include "common/host_call.h"
#include "common/reference.h"
#include "kavrel/kavrel.h"

namespace {

constexpr long double kLog2Pi = 1.837877066409345483560659472811235L;

// T observations of y and of X (k columns, the first a constant), observations in rows.
struct Data {
    int T, k;
    Vec y, x;
    double X(int t, int j) const { return x[static_cast<size_t>(t) * k + j]; }
};

// y = X b0 + u, u an AR(p) with coefficients rho0, from deterministic draws.
Data simulate(int T, int k, const Vec &rho0) {
    Data d{T, k, {}, {}};
    Lcg g{17};
    Vec u(static_cast<size_t>(T), 0.0);
    for (int t = 0; t < T; ++t) {
        u[t] = 0.6 * g.next();
        for (size_t i = 1; i <= rho0.size() && static_cast<int>(i) <= t; ++i) u[t] += rho0[i - 1] * u[t - i];
        double y = u[t];
        for (int j = 0; j < k; ++j) {
            d.x.push_back(j == 0 ? 1.0 : g.next() + 0.02 * j * t);
            y += (1.0 - 0.4 * j) * d.x.back();
        }
        d.y.push_back(y);
    }
    return d;
}

Data readCsv() { // tests/data/rals_ar2.csv: y, x2, x3; a constant is added as the first regressor
    Data d{0, 3, {}, {}};
    std::ifstream in(std::string(KAVREL_TEST_DATA) + "/rals_ar2.csv");
    std::string line;
    std::getline(in, line);
    while (std::getline(in, line)) {
        std::stringstream ss(line);
        std::string f[3];
        for (auto &s : f) std::getline(ss, s, ',');
        d.y.push_back(std::stod(f[0]));
        d.x.insert(d.x.end(), {1.0, std::stod(f[1]), std::stod(f[2])});
        ++d.T;
    }
    return d;
}

// The concentrated fit at rho in long double: b from the normal equations of the filtered data,
// S the sum of squared innovations over first..last.
struct Direct {
    LVec b;
    long double S;
};
Direct directFit(const Data &d, const Vec &rho, int first, int last) {
    const int k = d.k, p = static_cast<int>(rho.size());
    LMat xx(k, LVec(k, 0.0L));
    LVec xy(k, 0.0L);
    std::vector<LVec> xs;
    LVec ys;
    for (int t = first; t <= last; ++t) {
        long double yv = d.y[t];
        LVec xv(k);
        for (int j = 0; j < k; ++j) xv[j] = d.X(t, j);
        for (int i = 1; i <= p; ++i) {
            yv -= rho[i - 1] * static_cast<long double>(d.y[t - i]);
            for (int j = 0; j < k; ++j) xv[j] -= rho[i - 1] * static_cast<long double>(d.X(t - i, j));
        }
        for (int j = 0; j < k; ++j) {
            xy[j] += xv[j] * yv;
            for (int l = 0; l < k; ++l) xx[j][l] += xv[j] * xv[l];
        }
        xs.push_back(xv);
        ys.push_back(yv);
    }
    std::vector<int> all(k);
    for (int j = 0; j < k; ++j) all[j] = j;
    const LMat inv = inverseOn(xx, all);
    Direct r{LVec(k, 0.0L), 0.0L};
    for (int j = 0; j < k; ++j)
        for (int l = 0; l < k; ++l) r.b[j] += inv[j][l] * xy[l];
    for (size_t t = 0; t < ys.size(); ++t) {
        long double e = ys[t];
        for (int j = 0; j < k; ++j) e -= xs[t][j] * r.b[j];
        r.S += e * e;
    }
    return r;
}

struct Eval {
    double llf;
    Vec b, grad, hess;
};
Eval evaluate(const Data &d, const Vec &rho, int first, int last) {
    HostCall c;
    c.col(0, d.y).mat(1, d.T, d.k, d.x).row(2, rho).num(3, first).num(4, last).ref(5, 7);
    EXPECT_EQ(c.invoke(FnRalsFunc), 1) << LumoHostLastError();
    return {c.value(), c.out(5), c.out(6), c.out(7)};
}

TEST(RalsFunc, MatchesDirectFitAndFiniteDifferences) {
    const struct {
        const char *name;
        int T, k, first, last;
        Vec rho0, rho; // simulated, evaluated at
    } rows[] = {
        {"AR(1) at the simulated value", 80, 2, 1, 79, {0.6}, {0.6}},
        {"AR(2) away from the optimum, first > p", 120, 3, 7, 110, {0.5, -0.3}, {0.2, 0.1}},
        {"AR(3), explosive rho", 90, 3, 3, 89, {0.4, 0.2, -0.2}, {1.1, -0.2, 0.3}},
        {"no autoregressive coefficient", 40, 2, 0, 39, {}, {}},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.name);
        const Data d = simulate(r.T, r.k, r.rho0);
        const Eval at = evaluate(d, r.rho, r.first, r.last);
        const Direct want = directFit(d, r.rho, r.first, r.last);
        const int n = r.last - r.first + 1, p = static_cast<int>(r.rho.size());
        EXPECT_NEAR(at.llf, static_cast<double>(-0.5L * n * (1 + kLog2Pi + std::log(want.S / n))), 1e-11 * n);
        ExpectClose(at.b, want.b, 1e-12, "b");
        ASSERT_EQ(at.grad.size(), static_cast<size_t>(p));
        ASSERT_EQ(at.hess.size(), static_cast<size_t>(p * p));
        // Central differences: of the log-likelihood for the gradient, of the gradient for the
        // second derivatives; errors O(h^2) and O(eps / h).
        const double h = 1e-5;
        for (int i = 0; i < p; ++i) {
            Vec up = r.rho, down = r.rho;
            up[i] += h;
            down[i] -= h;
            const Eval eu = evaluate(d, up, r.first, r.last), ed = evaluate(d, down, r.first, r.last);
            const double scale = std::max(1.0, std::fabs(at.grad[i]));
            EXPECT_NEAR(at.grad[i], (eu.llf - ed.llf) / (2 * h), 1e-6 * scale) << "gradient " << i;
            for (int l = 0; l < p; ++l) {
                const double fd = (eu.grad[l] - ed.grad[l]) / (2 * h);
                EXPECT_NEAR(at.hess[l * p + i], fd, 1e-6 * std::max(1.0, std::fabs(fd))) << "hessian " << l << i;
                EXPECT_EQ(at.hess[l * p + i], at.hess[i * p + l]) << "symmetric " << l << i;
            }
        }
    }
}

// Solves A x = v for a small symmetric A (Gauss-Jordan through the inverse).
LVec solve(const LMat &A, const LVec &v) {
    std::vector<int> all(A.size());
    for (size_t i = 0; i < all.size(); ++i) all[i] = static_cast<int>(i);
    const LMat inv = inverseOn(A, all);
    LVec x(v.size(), 0.0L);
    for (size_t i = 0; i < v.size(); ++i)
        for (size_t j = 0; j < v.size(); ++j) x[i] += inv[i][j] * v[j];
    return x;
}

TEST(RalsFunc, OptimumMatchesNonlinearLeastSquaresAndR) {
    const Data d = readCsv();
    ASSERT_EQ(d.T, 120);
    const int p = 2, k = d.k, first = p, last = d.T - 1;

    // Joint Gauss-Newton on theta = (rho, b) of e_t = y_t - x_t'b - sum rho_i (y_{t-i} - x_{t-i}'b).
    LVec theta(p + k, 0.0L);
    for (int it = 0; it < 60; ++it) {
        LMat JJ(p + k, LVec(p + k, 0.0L));
        LVec Je(p + k, 0.0L);
        for (int t = first; t <= last; ++t) {
            auto u = [&](int s) {
                long double v = d.y[s];
                for (int j = 0; j < k; ++j) v -= theta[p + j] * d.X(s, j);
                return v;
            };
            long double e = u(t);
            LVec J(p + k);
            for (int i = 1; i <= p; ++i) e -= theta[i - 1] * u(t - i), J[i - 1] = -u(t - i);
            for (int j = 0; j < k; ++j) J[p + j] = -(d.X(t, j) - theta[0] * d.X(t - 1, j) - theta[1] * d.X(t - 2, j));
            for (int a = 0; a < p + k; ++a) {
                Je[a] += J[a] * e;
                for (int c = 0; c < p + k; ++c) JJ[a][c] += J[a] * J[c];
            }
        }
        const LVec step = solve(JJ, Je);
        for (int a = 0; a < p + k; ++a) theta[a] -= step[a];
    }
    const Direct nls = directFit(d, {static_cast<double>(theta[0]), static_cast<double>(theta[1])}, first, last);

    // Newton's method on the export's own gradient and second derivatives, from rho = 0.
    Vec rho(p, 0.0);
    Eval at;
    for (int it = 0; it < 30; ++it) {
        at = evaluate(d, rho, first, last);
        const LMat H = {{at.hess[0], at.hess[1]}, {at.hess[2], at.hess[3]}};
        const LVec step = solve(H, {at.grad[0], at.grad[1]});
        for (int i = 0; i < p; ++i) rho[i] -= static_cast<double>(step[i]);
    }
    at = evaluate(d, rho, first, last);
    const int n = last - first + 1;
    for (int i = 0; i < p; ++i) {
        EXPECT_NEAR(rho[i], static_cast<double>(theta[i]), 1e-10) << "rho " << i;
        EXPECT_NEAR(at.grad[i], 0.0, 1e-8) << "gradient " << i;
    }
    for (int j = 0; j < k; ++j) EXPECT_NEAR(at.b[j], static_cast<double>(theta[p + j]), 1e-10) << "b " << j;
    EXPECT_NEAR(at.llf, static_cast<double>(-0.5L * n * (1 + kLog2Pi + std::log(nls.S / n))), 1e-10);
    EXPECT_LT(at.hess[0], 0.0); // a maximum: the second-derivative matrix is negative definite
    EXPECT_GT(at.hess[0] * at.hess[3] - at.hess[1] * at.hess[2], 0.0);

    // R's arima(..., method = "CSS") with a tight optimiser tolerance (tests/data/rals_css.R): its
    // optimiser stops within 2e-10 of the optimum here.
    std::ifstream in(std::string(KAVREL_TEST_DATA) + "/rals_css_reference.txt");
    std::string name;
    double value;
    std::vector<std::pair<std::string, double>> ref;
    std::string comment;
    std::getline(in, comment);
    while (in >> name >> value) ref.emplace_back(name, value);
    ASSERT_EQ(ref.size(), 6u);
    const double mine[6] = {rho[0], rho[1], at.b[0], at.b[1], at.b[2], static_cast<double>(nls.S / n)};
    for (int i = 0; i < 6; ++i)
        EXPECT_NEAR(mine[i], ref[i].second, 1e-9 * std::max(1.0, std::fabs(ref[i].second))) << ref[i].first;
}

TEST(RalsForecast, MatchesModelEquationAndCompanionPowers) {
    const struct {
        const char *name;
        Vec rho;
        int first, last, h;
    } rows[] = {
        {"no autoregressive coefficient", {}, 0, 49, 3},
        {"AR(1), one step", {0.7}, 1, 49, 1},
        {"AR(3), beyond the order", {0.5, -0.2, 0.3}, 6, 49, 8},
    };
    const Data d = simulate(60, 3, {0.5});
    const Vec b = {0.9, 0.7, 0.15};
    for (const auto &r : rows) {
        SCOPED_TRACE(r.name);
        HostCall c;
        c.col(0, d.y)
            .mat(1, d.T, d.k, d.x)
            .row(2, r.rho)
            .num(3, r.first)
            .num(4, r.last)
            .num(5, r.h)
            .col(6, b)
            .ref(7, 8);
        ASSERT_EQ(c.invoke(FnRalsForecast), 1) << LumoHostLastError();
        const int p = static_cast<int>(r.rho.size()), k = d.k;
        auto xb = [&](int t) {
            long double s = 0.0L;
            for (int j = 0; j < k; ++j) s += static_cast<long double>(d.X(t, j)) * b[j];
            return s;
        };
        // y_t = sum rho_i y_{t-i} + (x_t - sum rho_i x_{t-i})'b + e_t, with e_t at 0 ahead.
        LVec yhat(d.y.begin(), d.y.begin() + r.last + 1);
        long double S = 0.0L;
        for (int t = r.first; t <= r.last + r.h; ++t) {
            long double v = xb(t);
            for (int i = 1; i <= p; ++i) v += r.rho[i - 1] * (yhat[t - i] - xb(t - i));
            if (t <= r.last)
                S += (d.y[t] - v) * (d.y[t] - v);
            else
                yhat.push_back(v);
        }
        const long double sigma = std::sqrt(S / (r.last - r.first + 1 - k - p));
        EXPECT_NEAR(c.value(), static_cast<double>(sigma), 1e-13);
        // Var of the j-step error: sigma^2 times the sum over l < j of (F^l)[0][0]^2, F the companion matrix.
        Vec want(yhat.begin() + r.last + 1, yhat.end()), wantSe;
        LMat Fl(std::max(p, 1), LVec(std::max(p, 1), 0.0L));
        for (size_t i = 0; i < Fl.size(); ++i) Fl[i][i] = 1.0L;
        long double acc = 0.0L;
        for (int j = 0; j < r.h; ++j) {
            acc += Fl[0][0] * Fl[0][0];
            wantSe.push_back(static_cast<double>(sigma * std::sqrt(acc)));
            LMat next(Fl.size(), LVec(Fl.size(), 0.0L)); // F^(l+1) = F^l F
            for (size_t a = 0; a < Fl.size(); ++a)
                for (int i = 0; i < p; ++i) {
                    next[a][i] += Fl[a][0] * r.rho[i];
                    if (i + 1 < p) next[a][i] += Fl[a][i + 1];
                }
            Fl = next;
        }
        ExpectClose(c.out(7), want, 1e-13, "forecasts");
        ExpectClose(c.out(8), wantSe, 1e-13, "standard errors");
    }
}

void funcArgs(HostCall &c) {
    const Data d = simulate(30, 2, {0.5});
    c.col(0, d.y).mat(1, 30, 2, d.x).row(2, {0.4, 0.1}).num(3, 2).num(4, 29).ref(5, 7);
}
void forecastArgs(HostCall &c) {
    const Data d = simulate(30, 2, {0.5});
    c.col(0, d.y).mat(1, 30, 2, d.x).row(2, {0.4}).num(3, 1).num(4, 25).num(5, 4).col(6, {1, 1}).ref(7, 8);
}

TEST(RalsExports, BadInput) {
    // FnRalsFunc leaves its missing result, FnRalsForecast the host's; outputs are untouched.
    const struct {
        LumoExport fn;
        const char *what;
        void (*edit)(HostCall &);
        const char *message;
    } rows[] = {
        // clang-format off
        {FnRalsFunc, "y two columns", [](HostCall &c) { c.mat(0, 15, 2, Vec(30, 1)); }, ""},
        {FnRalsFunc, "y too short", [](HostCall &c) { c.col(0, Vec(29, 1)); }, ""},
        {FnRalsFunc, "X too short", [](HostCall &c) { c.mat(1, 29, 2, Vec(58, 1)); }, ""},
        {FnRalsFunc, "X without columns", [](HostCall &c) { c.mat(1, 30, 0, {}); }, ""},
        {FnRalsFunc, "first < p", [](HostCall &c) { c.num(3, 1); }, ""},
        {FnRalsFunc, "last < first", [](HostCall &c) { c.num(4, 1); }, ""},
        {FnRalsFunc, "no more observations than regressors", [](HostCall &c) { c.num(3, 28); }, ""},
        {FnRalsFunc, "reference without target", [](HostCall &c) { LumoValSetRef(&c.args[5], nullptr); }, ""},
        {FnRalsFunc, "b by value", [](HostCall &c) { c.col(5, {1}); }, "argument 5: reference expected, matrix found"},
        {FnRalsFunc, "rho an int", [](HostCall &c) { c.num(2, 1); }, "argument 2: matrix expected, int found"},
        {FnRalsForecast, "no forecast", [](HostCall &c) { c.num(5, 0); }, ""},
        {FnRalsForecast, "X without the forecast rows", [](HostCall &c) { c.num(5, 5); }, ""},
        {FnRalsForecast, "b of other length", [](HostCall &c) { c.col(6, {1, 1, 1}); }, ""},
        {FnRalsForecast, "first < p", [](HostCall &c) { c.num(3, 0); }, ""},
        {FnRalsForecast, "y two columns", [](HostCall &c) { c.mat(0, 15, 2, Vec(30, 1)); }, ""},
        {FnRalsForecast, "reference without target", [](HostCall &c) { LumoValSetRef(&c.args[8], nullptr); }, ""},
        {FnRalsForecast, "h a double", [](HostCall &c) { c.dbl(5, 1); }, "argument 5: int expected, double found"},
        {FnRalsForecast, "errors by value", [](HostCall &c) { c.num(8, 1); },
         "argument 8: reference expected, int found"},
        // clang-format on
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.what);
        HostCall c;
        (r.fn == FnRalsFunc ? funcArgs : forecastArgs)(c);
        r.edit(c);
        c.preset();
        EXPECT_EQ(c.invoke(r.fn), r.message[0] ? 0 : 1);
        EXPECT_STREQ(LumoHostLastError(), r.message);
        if (r.fn == FnRalsFunc) { // set before the host's checks, so also when they abandon the call
            EXPECT_TRUE(std::isnan(c.value()));
        } else {
            EXPECT_EQ(c.status(), 99);
        }
        EXPECT_TRUE(c.outputs([&](int i) { return c.untouched(i); }));
    }
}

// Same type, and the same double or matrix bit for bit.
bool sameTarget(const LumoValue &a, const LumoValue &b) {
    if (a.type == LUMO_DOUBLE) return b.type == LUMO_DOUBLE && std::memcmp(&a.v.dval, &b.v.dval, sizeof(double)) == 0;
    return a.type == b.type && SameBits(HostValues(&a), HostValues(&b));
}

TEST(RalsExports, AllocationFailuresAndAliasing) {
    const struct {
        LumoExport fn;
        void (*args)(HostCall &);
        long libAllocs, hostAllocs;
    } rows[] = {{FnRalsFunc, funcArgs, 1, 6}, {FnRalsForecast, forecastArgs, 0, 4}};
    for (const auto &r : rows) {
        HostCall clean;
        r.args(clean);
        ASSERT_EQ(clean.invoke(r.fn), 1);
        ASSERT_FALSE(std::isnan(clean.value()));
        // A library failure: missing result and outputs. A host failure: missing result, every
        // variable as it was.
        for (const bool host : {false, true}) {
            HostCall c;
            r.args(c);
            auto run = [&](long n) {
                c.preset();
                ASSERT_EQ(c.invoke(r.fn), 1);
                const bool fired = host ? n <= r.hostAllocs : KvAllocCount() >= n;
                if (!fired) {
                    EXPECT_TRUE(sameTarget(c.result, clean.result)) << n;
                    EXPECT_TRUE(c.outputs([&](int i) { return sameTarget(c.targets[i], clean.targets[i]); })) << n;
                    return;
                }
                EXPECT_TRUE(std::isnan(c.value())) << n;
                EXPECT_TRUE(c.outputs([&](int i) { return host ? c.untouched(i) : AllMissing(c.out(i)); })) << n;
            };
            const long fails = host ? ForEachHostAllocationFailure(run) : ForEachLibraryAllocationFailure(run);
            EXPECT_EQ(fails, host ? r.hostAllocs : r.libAllocs);
        }
        // Every output naming every input: the inputs are read whole before a variable is replaced.
        for (int out = 0; out < clean.count; ++out) {
            if (!clean.isOutput(out)) continue;
            for (int in = 0; in < clean.count; ++in) {
                if (clean.isOutput(in)) continue;
                HostCall c;
                r.args(c);
                LumoValSetRef(&c.args[out], &c.args[in]);
                ASSERT_EQ(c.invoke(r.fn), 1);
                EXPECT_TRUE(sameTarget(c.result, clean.result)) << out << " names " << in;
                EXPECT_TRUE(sameTarget(c.args[in], clean.targets[out])) << out << " names " << in;
            }
        }
    }
    // The optional derivatives of FnRalsFunc omitted: b and the log-likelihood are unchanged.
    HostCall all, none;
    funcArgs(all);
    funcArgs(none);
    none.num(6, 0).num(7, 0);
    ASSERT_EQ(all.invoke(FnRalsFunc), 1);
    ASSERT_EQ(none.invoke(FnRalsFunc), 1);
    EXPECT_TRUE(sameTarget(none.result, all.result));
    EXPECT_TRUE(sameTarget(none.targets[5], all.targets[5]));
}

} // namespace
