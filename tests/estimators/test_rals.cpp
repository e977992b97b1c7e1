// FnRalsFunc and FnRalsForecast through the host on the stored sample (z on a constant, x1 and x2):
// the concentrated log-likelihood and its coefficients against a direct long double fit of the
// filtered data, its gradient and second derivatives against central differences of the
// log-likelihood, the forecasts against the quasi-differenced model equation iterated forward and
// their standard errors against the MA weights of the autoregression.
#include "estimators/exports_sample.h"
#include "kavrel/kavrel.h"

namespace {

constexpr long double kLog2Pi = 1.837877066409345483560659472811235L;

struct Eval {
    double llf;
    Vec b, grad, hess;
};
Eval evaluate(const ExportsSample &s, const Vec &rho, int first, int last) {
    HostCall c;
    c.col(0, s.z).mat(1, s.n(), 3, s.X).row(2, rho).num(3, first).num(4, last).ref(5, 7);
    EXPECT_EQ(c.invoke(FnRalsFunc), 1) << LumoHostLastError();
    return {c.value(), c.out(5), c.out(6), c.out(7)};
}

TEST(RalsFunc, MatchesItsDefinitionAndFiniteDifferences) {
    // AR(2) errors, away from the optimum, over observations after the first p.
    const ExportsSample s = ReadExportsSample();
    const Vec rho = {0.2, 0.1};
    const int p = 2, first = 7, last = 110, n = last - first + 1;
    const Eval at = evaluate(s, rho, first, last);
    // Least squares of z_t - sum rho_i z_{t-i} on the regressors filtered alike.
    Vec xs, ys;
    for (int t = first; t <= last; ++t) {
        ys.push_back(s.z[t] - rho[0] * s.z[t - 1] - rho[1] * s.z[t - 2]);
        for (int j = 0; j < 3; ++j)
            xs.push_back(s.X[3 * t + j] - rho[0] * s.X[3 * t - 3 + j] - rho[1] * s.X[3 * t - 6 + j]);
    }
    const LeastSquares want = FitLeastSquares(xs, ys, 3);
    long double S = 0.0L;
    for (const double e : want.e) S += static_cast<long double>(e) * e;
    EXPECT_NEAR(at.llf, static_cast<double>(-0.5L * n * (1 + kLog2Pi + std::log(S / n))), 1e-11 * n);
    ExpectClose(at.b, want.b, 1e-12, "b");
    // The log-likelihood at rho + a h e_i + b h e_j; central differences have errors O(h^2) and
    // O(eps / h) for the gradient, O(h^2) and O(eps / h^2) for the second derivatives.
    auto llf = [&](double h, int i, int a, int j, int b) {
        Vec r = rho;
        r[i] += a * h;
        r[j] += b * h;
        return evaluate(s, r, first, last).llf;
    };
    ASSERT_EQ(at.hess.size(), static_cast<size_t>(p * p));
    for (int i = 0; i < p; ++i) {
        const double h = 1e-5, fd = (llf(h, i, 1, i, 0) - llf(h, i, -1, i, 0)) / (2 * h);
        EXPECT_NEAR(at.grad[i], fd, 1e-6 * std::max(1.0, std::fabs(fd))) << "gradient " << i;
        for (int j = 0; j < p; ++j) {
            const double k = 1e-4;
            const double fd2 =
                (llf(k, i, 1, j, 1) - llf(k, i, 1, j, -1) - llf(k, i, -1, j, 1) + llf(k, i, -1, j, -1)) / (4 * k * k);
            EXPECT_NEAR(at.hess[i * p + j], fd2, 1e-6 * std::max(1.0, std::fabs(fd2))) << "second " << i << j;
        }
    }
}

TEST(RalsForecast, MatchesModelEquationAndMaWeights) {
    // AR(3) errors, forecasts beyond the autoregressive order.
    const ExportsSample s = ReadExportsSample();
    const Vec rho = {0.5, -0.2, 0.3}, b = {0.9, 0.7, 0.15};
    const int p = 3, first = 6, last = 100, h = 8;
    HostCall c;
    c.col(0, s.z).mat(1, s.n(), 3, s.X).row(2, rho).num(3, first).num(4, last).num(5, h).col(6, b).ref(7, 8);
    ASSERT_EQ(c.invoke(FnRalsForecast), 1) << LumoHostLastError();
    auto xb = [&](int t) {
        return s.X[3 * t] * b[0] + s.X[3 * t + 1] * static_cast<long double>(b[1]) + s.X[3 * t + 2] * b[2];
    };
    // y_t = sum rho_i y_{t-i} + (x_t - sum rho_i x_{t-i})'b + e_t, with e_t at 0 ahead.
    LVec yhat(s.z.begin(), s.z.begin() + last + 1);
    long double S = 0.0L;
    for (int t = first; t <= last + h; ++t) {
        long double v = xb(t);
        for (int i = 1; i <= p; ++i) v += rho[i - 1] * (yhat[t - i] - xb(t - i));
        if (t <= last)
            S += (s.z[t] - v) * (s.z[t] - v);
        else
            yhat.push_back(v);
    }
    const long double sigma = std::sqrt(S / (last - first + 1 - 3 - p));
    EXPECT_NEAR(c.value(), static_cast<double>(sigma), 1e-13);
    // Var of the j-step error: sigma^2 times the sum over l < j of psi_l^2, the MA weights
    // psi_0 = 1, psi_l = sum_i rho_i psi_{l-i}.
    Vec wantSe;
    LVec psi;
    long double acc = 0.0L;
    for (int l = 0; l < h; ++l) {
        psi.push_back(l == 0 ? 1.0L : 0.0L);
        for (int i = 1; i <= std::min(p, l); ++i) psi[l] += rho[i - 1] * psi[l - i];
        acc += psi[l] * psi[l];
        wantSe.push_back(static_cast<double>(sigma * std::sqrt(acc)));
    }
    ExpectClose(c.out(7), Vec(yhat.begin() + last + 1, yhat.end()), 1e-13, "forecasts");
    ExpectClose(c.out(8), wantSe, 1e-13, "standard errors");
}

} // namespace
