// Poisson and NB2 log-likelihoods with their derivatives. One pass over the observations in
// order; per observation O(k) work for the value and score and O(k^2) for the information and
// the outer product, all into the caller's outputs (no scratch: the per-observation score is
// g_i x_i, extended by one element for the dispersion, so its outer product is formed from g_i
// directly). The information is the observed one, minus the Hessian: for the Poisson it equals
// the expected information, and for the NB2 the expected information of the dispersion is an
// infinite series (Lawless 1987), while the Hessian is what a Newton step needs.
//
// NB2 (Cameron and Trivedi 2013, ch. 3), a = alpha, r = 1/a, u = a mu:
//   l = lnGamma(y + r) - lnGamma(r) - lnGamma(y + 1) + r log(r / (r + mu)) + y log(mu / (r + mu))
//     = sum_{j<y} log(1 + a j) - lnGamma(y + 1) + y eta - (y + r) log(1 + u),
// the second form free of the cancellation of lnGamma(y + r) - lnGamma(r) for small a, and equal
// to the Poisson term in the limit a -> 0.
#include "estimators/count.h"

#include <cmath>

#include "base/sums.h"
#include "matrix/matrix.h"
#include "special/distributions.h"

namespace {

// Counts from here on take the gamma-function forms of the sums over j < y, so that the work per
// observation stays bounded; below it the sums are exact.
constexpr double kLoopLimit = 100.0;
// From this r = 1/alpha on, the gamma-function sums take Stirling's series (below, lnGamma(r) and
// r psi(r) are small enough for plain differences).
constexpr double kLargeShape = 1000.0;

// psi(x) for x > 0: the recurrence up to x >= 10, then the asymptotic series (Abramowitz and
// Stegun 6.3.18), whose first omitted term is below 1e-16 there.
double digamma(double x) {
    double acc = 0.0;
    while (x < 10.0) {
        acc -= 1.0 / x;
        x += 1.0;
    }
    const double f = 1.0 / (x * x);
    return acc + std::log(x) - 0.5 / x -
           f * (1.0 / 12 - f * (1.0 / 120 - f * (1.0 / 252 - f * (1.0 / 240 - f * (1.0 / 132)))));
}

// psi'(x) for x > 0 (Abramowitz and Stegun 6.4.12).
double trigamma(double x) {
    double acc = 0.0;
    while (x < 10.0) {
        acc += 1.0 / (x * x);
        x += 1.0;
    }
    const double f = 1.0 / (x * x);
    return acc + 1.0 / x + 0.5 * f +
           f / x * (1.0 / 6 - f * (1.0 / 30 - f * (1.0 / 42 - f * (1.0 / 30 - f * (5.0 / 66)))));
}

// The tails of Stirling's series beyond their leading terms, for x >= kLargeShape (the first
// omitted term is below 1e-18 there): order 0 of lnGamma(x) - ((x - 1/2) log x - x + log(2 pi)/2),
// order 1 of log x - 1/(2x) - psi(x), order 2 of psi'(x) - 1/x - 1/(2x^2).
double stirlingTail(double x, int order) {
    const double f = 1.0 / (x * x);
    switch (order) {
    case 0: return (1.0 / 12 - f * (1.0 / 360 - f * (1.0 / 1260))) / x;
    case 1: return f * (1.0 / 12 - f * (1.0 / 120 - f * (1.0 / 252)));
    default: return f / x * (1.0 / 6 - f * (1.0 / 30 - f * (1.0 / 42)));
    }
}

// Over j < y: s0 = sum log(1 + a j), s1 = sum a j / (1 + a j), s2 = sum (a j / (1 + a j))^2.
// s1 and s2 only when derivs is set.
struct NbSums {
    double s0 = 0.0, s1 = 0.0, s2 = 0.0;
};

NbSums nbSums(double y, double a, bool derivs) {
    NbSums s;
    if (y < kLoopLimit) {
        const int n = static_cast<int>(y);
        for (int j = 1; j < n; ++j) {
            const double t = a * j;
            s.s0 += std::log1p(t);
            if (derivs) {
                const double q = t / (1.0 + t);
                s.s1 += q;
                s.s2 += q * q;
            }
        }
        return s;
    }
    // log(1 + a j) = log a + log(r + j) and a j / (1 + a j) = 1 - r / (r + j): the sums over j < y
    // are differences of lnGamma, psi and psi' between r + y and r.
    const double r = 1.0 / a;
    if (r < kLargeShape) {
        s.s0 = y * std::log(a) + LogGamma(y + r) - LogGamma(r);
        if (derivs) {
            const double dpsi = digamma(y + r) - digamma(r);
            s.s1 = y - r * dpsi;
            s.s2 = y - 2.0 * r * dpsi + r * r * (trigamma(r) - trigamma(y + r));
        }
        return s;
    }
    // A large r (small a): the differences taken term by term from Stirling's series, so that
    // nothing of the size of lnGamma(r) or r psi(r) cancels. The error is about eps y.
    const double x0 = r, x1 = r + y, lay = std::log1p(a * y);
    s.s0 = (x1 - 0.5) * lay - y + stirlingTail(x1, 0) - stirlingTail(x0, 0);
    if (derivs) {
        const double dpsi = lay + y / (2.0 * x0 * x1) - stirlingTail(x1, 1) + stirlingTail(x0, 1);
        const double dtri =
            y / (x0 * x1) + y * (x0 + x1) / (2.0 * x0 * x0 * x1 * x1) + stirlingTail(x0, 2) - stirlingTail(x1, 2);
        s.s1 = y - r * dpsi;
        s.s2 = y - 2.0 * r * dpsi + r * r * dtri;
    }
    return s;
}

// The terms of one observation: l, dl/deta, -d2l/deta2 and, for an estimated dispersion
// (theta = log a), dl/dtheta, -d2l/deta dtheta, -d2l/dtheta2.
struct CountTerms {
    double l, g, wbb, gt, wbt, wtt;
};

CountTerms countTerms(double y, double eta, double mu, double a, bool thetaDerivs) {
    CountTerms c{};
    if (!(a > 0.0)) { // the Poisson, or an NB2 whose alpha underflowed to 0: its limit
        c.l = y * eta - mu - LogGamma(y + 1.0);
        c.g = y - mu;
        c.wbb = mu;
        return c;
    }
    const double u = a * mu, l1u = std::log1p(u), r1u = 1.0 / (1.0 + u);
    const NbSums s = nbSums(y, a, thetaDerivs);
    c.l = s.s0 - LogGamma(y + 1.0) + y * eta - (y + 1.0 / a) * l1u;
    c.g = (y - mu) * r1u;
    c.wbb = mu * (1.0 + a * y) * r1u * r1u;
    if (thetaDerivs) {
        const double ay1 = a * y + 1.0;
        c.gt = s.s1 + l1u / a - ay1 * mu * r1u;
        c.wbt = (y - mu) * u * r1u * r1u;
        c.wtt = -c.gt + s.s2 + 2.0 * l1u / a - 2.0 * mu * r1u - ay1 * u * mu * r1u * r1u;
    }
    return c;
}

// a += c x x' (lower triangle), extended by the dispersion row when ext: a[k][j] += cx x_j,
// a[k][k] += cc.
void addLower(MATRIX a, double c, const double *x, int k, bool ext, double cx, double cc) {
    for (int j = 0; j < k; ++j) {
        double *row = a[j];
        const double cj = c * x[j];
        for (int l = 0; l <= j; ++l) row[l] += cj * x[l];
    }
    if (!ext) return;
    double *row = a[k];
    for (int j = 0; j < k; ++j) row[j] += cx * x[j];
    row[k] += cc;
}

void mirrorLower(MATRIX a, int p) {
    for (int j = 0; j < p; ++j)
        for (int l = 0; l < j; ++l) a[l][j] = a[j][l];
}

} // namespace

int CountParamCount(int model, int k) {
    if (k < 1 || k > 0x3FFFFFFE) return -1;
    switch (model) {
    case COUNT_POISSON:
    case COUNT_NB2_FIXED: return k;
    case COUNT_NB2: return k + 1;
    default: return -1;
    }
}

double CountEval(int model, const double *theta, int k, const double *y, MATRIX X, int first, int last, double alpha,
                 const CountOutputs &out) {
    const int p = CountParamCount(model, k);
    const bool est = model == COUNT_NB2;
    const double a = est ? std::exp(theta[k]) : model == COUNT_NB2_FIXED ? alpha : 0.0;
    const bool deriv = out.score || out.info || out.outer;
    if (out.score)
        for (int j = 0; j < p; ++j) out.score[j] = 0.0;
    if (out.info) MatZero(out.info, p, p);
    if (out.outer) MatZero(out.outer, p, p);

    KvCompensatedSum llf;
    for (int i = first; i <= last; ++i) {
        const double *xi = X[i];
        const double eta = KvDot(theta, xi, k), mu = std::exp(eta);
        if (out.fitted) {
            out.fitted[i][0] = mu;
            out.fitted[i][1] = mu * (1.0 + a * mu);
        }
        const double yv = std::trunc(y[i]);
        if (!(yv >= 0.0 && yv < HUGE_VAL)) {
            if (out.llfObs) MissingValue(&out.llfObs[i]);
            continue;
        }
        const CountTerms c = countTerms(yv, eta, mu, a, est && deriv);
        llf.add(c.l);
        if (out.llfObs) out.llfObs[i] = c.l;
        if (out.score) {
            for (int j = 0; j < k; ++j) out.score[j] += c.g * xi[j];
            if (est) out.score[k] += c.gt;
        }
        if (out.info) addLower(out.info, c.wbb, xi, k, est, c.wbt, c.wtt);
        if (out.outer) addLower(out.outer, c.g * c.g, xi, k, est, c.g * c.gt, c.gt * c.gt);
    }
    if (out.info) mirrorLower(out.info, p);
    if (out.outer) mirrorLower(out.outer, p);
    return llf.value();
}
