// The maximisers on problems with known optima (Rosenbrock's valley, a logit whose maximum
// likelihood estimates have a closed form, a function defined only on part of the line), the
// numerical Hessian against an analytic one, and every failure status.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "base/alloc.h"
#include "matrix/matrix.h"
#include "numeric/optimize.h"

namespace {

// Rosenbrock's function, negated for maximisation; optimum at (1, 1).
double rosenbrock(void *, const double *x, int) {
    return -(100.0 * (x[1] - x[0] * x[0]) * (x[1] - x[0] * x[0]) + (1.0 - x[0]) * (1.0 - x[0]));
}
int rosenbrockGradient(void *, const double *x, int, double *g) {
    g[0] = -(-400.0 * x[0] * (x[1] - x[0] * x[0]) - 2.0 * (1.0 - x[0]));
    g[1] = -(200.0 * (x[1] - x[0] * x[0]));
    return 1;
}

// A logit of y on a constant and a dummy d: the estimates are the log-odds of y within each
// group, b0 = logit(p0), b1 = logit(p1) - logit(p0).
struct Logit {
    std::vector<double> y, d;
};
double logitValue(void *ctx, const double *b, int) {
    const Logit &m = *static_cast<Logit *>(ctx);
    double ll = 0.0;
    for (size_t i = 0; i < m.y.size(); ++i) {
        const double z = b[0] + b[1] * m.d[i];
        ll += m.y[i] * z - std::log1p(std::exp(z));
    }
    return ll;
}
int logitGradient(void *ctx, const double *b, int, double *g) {
    const Logit &m = *static_cast<Logit *>(ctx);
    g[0] = g[1] = 0.0;
    for (size_t i = 0; i < m.y.size(); ++i) {
        const double r = m.y[i] - 1.0 / (1.0 + std::exp(-(b[0] + b[1] * m.d[i])));
        g[0] += r, g[1] += r * m.d[i];
    }
    return 1;
}
int logitInformation(void *ctx, const double *b, int, MATRIX info) {
    const Logit &m = *static_cast<Logit *>(ctx);
    info[0][0] = info[0][1] = info[1][0] = info[1][1] = 0.0;
    for (size_t i = 0; i < m.y.size(); ++i) {
        const double p = 1.0 / (1.0 + std::exp(-(b[0] + b[1] * m.d[i]))), w = p * (1.0 - p);
        info[0][0] += w, info[0][1] += w * m.d[i], info[1][1] += w * m.d[i] * m.d[i];
    }
    info[1][0] = info[0][1];
    return 1;
}

Logit logitData() {
    Logit m; // group 0: 3 of 10 ones; group 1: 7 of 9 ones
    for (int i = 0; i < 10; ++i) m.y.push_back(i < 3), m.d.push_back(0);
    for (int i = 0; i < 9; ++i) m.y.push_back(i < 7), m.d.push_back(1);
    return m;
}

TEST(Optimize, FindsKnownOptima) {
    Logit logit = logitData();
    const double b0 = std::log(3.0 / 7.0), b1 = std::log(7.0 / 2.0) - b0;
    const OptProblem rosen{nullptr, rosenbrock, rosenbrockGradient, nullptr};
    const OptProblem rosenNumeric{nullptr, rosenbrock, nullptr, nullptr};
    const OptProblem lp{&logit, logitValue, logitGradient, logitInformation};
    const OptProblem lpNumeric{&logit, logitValue, nullptr, nullptr};
    struct Row {
        const char *what;
        const OptProblem &p;
        bool newton;
        std::vector<double> start, want;
        double tol;
    } rows[] = {
        {"Rosenbrock, BFGS", rosen, false, {-1.2, 1.0}, {1.0, 1.0}, 1e-6},
        {"Rosenbrock, numerical gradient", rosenNumeric, false, {-1.2, 1.0}, {1.0, 1.0}, 1e-5},
        {"logit, BFGS", lp, false, {0.0, 0.0}, {b0, b1}, 1e-7},
        {"logit, numerical gradient", lpNumeric, false, {2.0, -3.0}, {b0, b1}, 1e-6},
        {"logit, Newton", lp, true, {0.0, 0.0}, {b0, b1}, 1e-10},
    };
    for (const Row &r : rows) {
        std::vector<double> x = r.start;
        OptResult res{};
        const OptSettings s = OptDefaultSettings();
        const int status =
            r.newton ? OptMaximizeNewton(r.p, x.data(), 2, s, &res) : OptMaximizeBfgs(r.p, x.data(), 2, s, &res);
        EXPECT_EQ(status, OPT_CONVERGED) << r.what;
        EXPECT_EQ(res.status, status) << r.what;
        EXPECT_NEAR(x[0], r.want[0], r.tol) << r.what;
        EXPECT_NEAR(x[1], r.want[1], r.tol) << r.what;
        EXPECT_EQ(res.value, r.p.value(r.p.ctx, x.data(), 2)) << r.what;
    }
}

// log x - x is defined for x > 0 only: a step beyond 0 must be shortened, not taken.
TEST(Optimize, LineSearchStepsBackWhereTheFunctionIsUndefined) {
    const OptProblem p{nullptr, [](void *, const double *x, int) { return std::log(x[0]) - x[0]; }, nullptr, nullptr};
    double x = 30.0;
    OptResult res{};
    EXPECT_EQ(OptMaximizeBfgs(p, &x, 1, OptDefaultSettings(), &res), OPT_CONVERGED);
    EXPECT_NEAR(x, 1.0, 1e-6);
}

// f = sin(a) exp(b) + a^2 b: its Hessian is known in closed form.
TEST(Optimize, NumericalHessianMatchesTheAnalyticOne) {
    const auto value = [](void *, const double *x, int) {
        return std::sin(x[0]) * std::exp(x[1]) + x[0] * x[0] * x[1];
    };
    const auto gradient = [](void *, const double *x, int, double *g) {
        g[0] = std::cos(x[0]) * std::exp(x[1]) + 2.0 * x[0] * x[1];
        g[1] = std::sin(x[0]) * std::exp(x[1]) + x[0] * x[0];
        return 1;
    };
    const double x[2] = {0.7, -0.4};
    const double want[2][2] = {
        {-std::sin(x[0]) * std::exp(x[1]) + 2.0 * x[1], std::cos(x[0]) * std::exp(x[1]) + 2.0 * x[0]},
        {std::cos(x[0]) * std::exp(x[1]) + 2.0 * x[0], std::sin(x[0]) * std::exp(x[1])}};
    const OptProblem byValue{nullptr, value, nullptr, nullptr}, byGradient{nullptr, value, gradient, nullptr};
    for (const OptProblem *p : {&byValue, &byGradient}) {
        MatOwner H(2, 2);
        ASSERT_EQ(OptNumericalHessian(*p, x, 2, H.get()), 1);
        for (int i = 0; i < 2; ++i)
            for (int j = 0; j < 2; ++j) EXPECT_NEAR(H.get()[i][j], want[i][j], 1e-7) << i << j << (p == &byGradient);
        EXPECT_EQ(H.get()[0][1], H.get()[1][0]);
    }
}

TEST(Optimize, FailuresHaveTheirStatus) {
    Logit logit = logitData();
    const OptProblem rosen{nullptr, rosenbrock, rosenbrockGradient, nullptr};
    const OptProblem nan{nullptr, [](void *, const double *, int) { return std::nan(""); }, nullptr, nullptr};
    const OptProblem noInfo{&logit, logitValue, logitGradient, nullptr};
    const double start[2] = {-1.2, 1.0};
    double x[2] = {-1.2, 1.0};
    OptSettings s = OptDefaultSettings();
    OptResult res{};
    EXPECT_EQ(OptMaximizeBfgs(rosen, x, 0, s, &res), OPT_FAILED);
    EXPECT_EQ(OptMaximizeBfgs(nan, x, 2, s, &res), OPT_FAILED);
    EXPECT_EQ(OptMaximizeNewton(noInfo, x, 2, s, &res), OPT_FAILED);
    KvAllocFailAt(1);
    EXPECT_EQ(OptMaximizeBfgs(rosen, x, 2, s, &res), OPT_FAILED);
    KvAllocFailAt(0);
    s.maxIterations = 3;
    static int calls;
    calls = 0;
    s.progress = [](void *, int, double, double) { ++calls; };
    EXPECT_EQ(OptMaximizeBfgs(rosen, x, 2, s, &res), OPT_MAX_ITER);
    EXPECT_EQ(res.iterations, 3);
    EXPECT_EQ(calls, 3);
    EXPECT_GT(res.value, rosenbrock(nullptr, start, 2));
}

} // namespace
