// The maximisers on problems with known optima (Rosenbrock's valley, a function defined only on
// part of the line, the NIST StRD nonlinear least-squares problems), the numerical Hessian against
// an analytic one, and every failure status.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
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

// Minus the Hessian of the negated function: positive definite only near the valley's floor, so
// that Newton's method also takes gradient steps on the way.
int rosenbrockInformation(void *, const double *x, int, MATRIX info) {
    info[0][0] = 1200.0 * x[0] * x[0] - 400.0 * x[1] + 2.0;
    info[0][1] = info[1][0] = -400.0 * x[0];
    info[1][1] = 200.0;
    return 1;
}

TEST(Optimize, FindsKnownOptima) {
    const OptProblem rosen{nullptr, rosenbrock, rosenbrockGradient, nullptr};
    const OptProblem rosenNumeric{nullptr, rosenbrock, nullptr, nullptr};
    const OptProblem rosenNewton{nullptr, rosenbrock, rosenbrockGradient, rosenbrockInformation};
    struct Row {
        const char *what;
        const OptProblem &p;
        bool newton;
        std::vector<double> start, want;
        double tol;
    } rows[] = {
        {"Rosenbrock, BFGS", rosen, false, {-1.2, 1.0}, {1.0, 1.0}, 1e-6},
        {"Rosenbrock, numerical gradient", rosenNumeric, false, {-1.2, 1.0}, {1.0, 1.0}, 1e-5},
        {"Rosenbrock, Newton", rosenNewton, true, {-1.2, 1.0}, {1.0, 1.0}, 1e-8},
    };
    for (const Row &r : rows) {
        std::vector<double> x = r.start;
        OptResult res{};
        const OptSettings s = OptDefaultSettings();
        const int status =
            r.newton ? OptMaximizeNewton(r.p, x.data(), 2, s, &res) : OptMaximizeBfgs(r.p, x.data(), 2, s, &res);
        EXPECT_EQ(status, OPT_CONVERGED) << r.what;
        EXPECT_NEAR(x[0], r.want[0], r.tol) << r.what;
        EXPECT_NEAR(x[1], r.want[1], r.tol) << r.what;
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
    }
}

TEST(Optimize, FailuresHaveTheirStatus) {
    const OptProblem rosen{nullptr, rosenbrock, rosenbrockGradient, nullptr};
    const OptProblem nan{nullptr, [](void *, const double *, int) { return std::nan(""); }, nullptr, nullptr};
    const double start[2] = {-1.2, 1.0};
    double x[2] = {-1.2, 1.0};
    OptSettings s = OptDefaultSettings();
    OptResult res{};
    EXPECT_EQ(OptMaximizeBfgs(rosen, x, 0, s, &res), OPT_FAILED);
    EXPECT_EQ(OptMaximizeBfgs(nan, x, 2, s, &res), OPT_FAILED);
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

// The NIST StRD nonlinear problems from both starting points: Levenberg-Marquardt with a
// difference Jacobian and the gradient polish reach the certified residual sum of squares to 9
// digits and the estimates to 8 significant digits. MGH09's b2 and b3 lie along a valley so flat
// (standard errors as large as the estimates) that comparing sums of squares alone leaves them at
// 6 digits: the polish is what this checks there.
struct Nist {
    const char *file;
    double (*model)(const double *b, double x);
    std::vector<std::vector<double>> starts;
    std::vector<double> estimates, errors;
    double rss, tol;
    std::vector<double> y = {}, x = {};
};

int nistResiduals(void *ctx, const double *b, int, double *r) {
    const Nist &p = *static_cast<Nist *>(ctx);
    for (size_t i = 0; i < p.y.size(); ++i) r[i] = p.y[i] - p.model(b, p.x[i]);
    return 1;
}

TEST(Optimize, LeastSquaresReachesTheCertifiedValues) {
    Nist problems[] = {
        {"nist_misra1a.csv",
         [](const double *b, double x) { return b[0] * (1.0 - std::exp(-b[1] * x)); },
         {{500.0, 1e-4}, {250.0, 5e-4}},
         {2.3894212918e+02, 5.5015643181e-04},
         {2.7070075241e+00, 7.2668688436e-06},
         1.2455138894e-01,
         1e-8},
        {"nist_mgh09.csv",
         [](const double *b, double x) { return b[0] * (x * x + x * b[1]) / (x * x + x * b[2] + b[3]); },
         {{25.0, 39.0, 41.5, 39.0}, {0.25, 0.39, 0.415, 0.39}},
         {1.9280693458e-01, 1.9128232873e-01, 1.2305650693e-01, 1.3606233068e-01},
         {1.1435312227e-02, 1.9633220911e-01, 8.0842031232e-02, 9.0025542308e-02},
         3.0750560385e-04,
         1e-8},
    };
    for (Nist &p : problems) {
        std::ifstream in(std::string(KAVREL_TEST_DATA) + "/" + p.file);
        std::string line;
        std::getline(in, line); // y,x
        for (double y, x; std::getline(in, line) && std::sscanf(line.c_str(), "%lf,%lf", &y, &x) == 2;)
            p.y.push_back(y), p.x.push_back(x);
        const int n = static_cast<int>(p.estimates.size()), m = static_cast<int>(p.y.size());
        for (const std::vector<double> &start : p.starts) {
            std::vector<double> b = start;
            MatOwner cov(n, n);
            OptResult res{};
            const OptResiduals problem{&p, m, nistResiduals, nullptr};
            EXPECT_EQ(OptLeastSquares(problem, b.data(), n, OptDefaultSettings(), &res, cov.get()), OPT_CONVERGED)
                << p.file << " from " << start[0];
            EXPECT_NEAR(res.value, p.rss, 1e-9 * p.rss) << p.file << " from " << start[0];
            for (int j = 0; j < n; ++j) {
                const double se = std::sqrt(cov.get()[j][j] * res.value / (m - n));
                EXPECT_NEAR(b[j], p.estimates[j], p.tol * std::fabs(p.estimates[j])) << p.file << " b" << j + 1;
                EXPECT_NEAR(se, p.errors[j], 1e-5 * p.errors[j]) << p.file << " se" << j + 1;
            }
        }
    }
}

} // namespace
