// FnRalsFunc and FnRalsForecast through the host: the concentrated log-likelihood and its
// coefficients against a direct long double fit of the filtered data, its gradient and second
// derivatives against finite differences, its optimum (Newton's method on those derivatives)
// against R's conditional-sum-of-squares estimates (tests/data), the forecasts against the
// quasi-differenced model equation iterated forward and their standard errors against the MA
// weights of the autoregression.
#include <fstream>

#include "estimators/exports_sample.h"
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
    std::string header;
    std::getline(in, header);
    double y, x2, x3;
    char comma;
    for (; in >> y >> comma >> x2 >> comma >> x3; ++d.T) d.y.push_back(y), d.x.insert(d.x.end(), {1.0, x2, x3});
    return d;
}

// The concentrated fit at rho: least squares in long double on the filtered data over first..last.
LeastSquares directFit(const Data &d, const Vec &rho, int first, int last, long double *S) {
    Vec xs, ys;
    for (int t = first; t <= last; ++t) {
        long double yv = d.y[t];
        for (size_t i = 1; i <= rho.size(); ++i) yv -= rho[i - 1] * static_cast<long double>(d.y[t - i]);
        ys.push_back(static_cast<double>(yv));
        for (int j = 0; j < d.k; ++j) {
            long double xv = d.X(t, j);
            for (size_t i = 1; i <= rho.size(); ++i) xv -= rho[i - 1] * static_cast<long double>(d.X(t - i, j));
            xs.push_back(static_cast<double>(xv));
        }
    }
    const LeastSquares ls = FitLeastSquares(xs, ys, d.k);
    *S = 0.0L;
    for (const double e : ls.e) *S += static_cast<long double>(e) * e;
    return ls;
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
        {"AR(2) away from the optimum, first > p", 120, 3, 7, 110, {0.5, -0.3}, {0.2, 0.1}},
        {"AR(3), explosive rho", 90, 3, 3, 89, {0.4, 0.2, -0.2}, {1.1, -0.2, 0.3}},
        {"no autoregressive coefficient", 40, 2, 0, 39, {}, {}},
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.name);
        const Data d = simulate(r.T, r.k, r.rho0);
        const Eval at = evaluate(d, r.rho, r.first, r.last);
        long double S;
        const LeastSquares want = directFit(d, r.rho, r.first, r.last, &S);
        const int n = r.last - r.first + 1, p = static_cast<int>(r.rho.size());
        EXPECT_NEAR(at.llf, static_cast<double>(-0.5L * n * (1 + kLog2Pi + std::log(S / n))), 1e-11 * n);
        ExpectClose(at.b, want.b, 1e-12, "b");
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
            }
        }
    }
}

TEST(RalsFunc, OptimumMatchesR) {
    const Data d = readCsv();
    ASSERT_EQ(d.T, 120);
    const int p = 2, first = p, last = d.T - 1, n = last - first + 1;

    // Newton's method on the export's own gradient and second derivatives, from rho = 0.
    Vec rho(p, 0.0);
    Eval at;
    for (int it = 0; it < 30; ++it) {
        at = evaluate(d, rho, first, last);
        const Vec &H = at.hess, &g = at.grad;
        const double det = H[0] * H[3] - H[1] * H[2];
        rho[0] -= (H[3] * g[0] - H[1] * g[1]) / det;
        rho[1] -= (H[0] * g[1] - H[2] * g[0]) / det;
    }
    at = evaluate(d, rho, first, last);
    for (int i = 0; i < p; ++i) EXPECT_NEAR(at.grad[i], 0.0, 1e-8) << "gradient " << i;
    long double S;
    directFit(d, rho, first, last, &S);

    // R's arima(..., method = "CSS") with a tight optimiser tolerance (tests/data/rals_css.R): its
    // optimiser stops within 2e-10 of the optimum here.
    std::ifstream in(std::string(KAVREL_TEST_DATA) + "/rals_css_reference.txt");
    std::string name;
    double value;
    std::vector<std::pair<std::string, double>> ref;
    std::getline(in, name); // a comment
    while (in >> name >> value) ref.emplace_back(name, value);
    ASSERT_EQ(ref.size(), 6u);
    const double mine[6] = {rho[0], rho[1], at.b[0], at.b[1], at.b[2], static_cast<double>(S / n)};
    for (int i = 0; i < 6; ++i)
        EXPECT_NEAR(mine[i], ref[i].second, 1e-9 * std::max(1.0, std::fabs(ref[i].second))) << ref[i].first;
}

TEST(RalsForecast, MatchesModelEquationAndMaWeights) {
    const struct {
        const char *name;
        Vec rho;
        int first, last, h;
    } rows[] = {
        {"no autoregressive coefficient", {}, 0, 49, 3},
        {"AR(3), beyond the order", {0.5, -0.2, 0.3}, 6, 49, 8},
    };
    const Data d = simulate(60, 3, {0.5});
    const Vec b = {0.9, 0.7, 0.15};
    for (const auto &r : rows) {
        SCOPED_TRACE(r.name);
        HostCall c;
        c.col(0, d.y).mat(1, d.T, d.k, d.x).row(2, r.rho).num(3, r.first).num(4, r.last);
        c.num(5, r.h).col(6, b).ref(7, 8);
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
        // Var of the j-step error: sigma^2 times the sum over l < j of psi_l^2, the MA weights
        // psi_0 = 1, psi_l = sum_i rho_i psi_{l-i}.
        Vec want(yhat.begin() + r.last + 1, yhat.end()), wantSe;
        LVec psi;
        long double acc = 0.0L;
        for (int l = 0; l < r.h; ++l) {
            psi.push_back(l == 0 ? 1.0L : 0.0L);
            for (int i = 1; i <= std::min(p, l); ++i) psi[l] += r.rho[i - 1] * psi[l - i];
            acc += psi[l] * psi[l];
            wantSe.push_back(static_cast<double>(sigma * std::sqrt(acc)));
        }
        ExpectClose(c.out(7), want, 1e-13, "forecasts");
        ExpectClose(c.out(8), wantSe, 1e-13, "standard errors");
    }
}

} // namespace
