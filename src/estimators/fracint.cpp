// Autocovariances of ARFIMA(p, d, q) by Sowell (1992). With the AR polynomial factored as
// phi(L) = prod_j (1 - rho_j L) over distinct inverse roots rho_j inside the unit circle, the
// autocovariance generating function of 1/(phi(x) phi(1/x)) has the partial fractions
//     sum_j w_j sum_k rho_j^|k| x^k,   w_j = rho_j^(p-1) / (prod_i (1 - rho_i rho_j) prod_{m != j} (rho_j - rho_m))
// (the residues at rho_j and 1/rho_j), so that, with g the autocovariances of fractional noise
// (1 - L)^-d e_t and psi(l) = sum_i theta_i theta_{i+|l|} those of the MA part,
//     gamma(s) = sum_{l=-q..q} psi(l) sum_j w_j C_j(l - s),   C_j(h) = sum_k rho_j^|k| g(k + h).
// This is Sowell's eq. (8) with the shift by p folded into the weights. Splitting C at k = 0,
//     C(h) = A(h) + B(h),  A(h) = sum_{k>=0} rho^k g(k + h) = g(h) F(d + h, 1; 1 - d + h; rho),
//                          B(h) = sum_{k>=1} rho^k g(k - h) = g(h) (F(d - h, 1; 1 - d - h; rho) - 1),
// since g(h + k) / g(h) = (d + h)_k / (1 - d + h)_k. Rather than one pair of hypergeometric series
// per lag, the series give A at the highest lag needed and B at the lowest, and the recursions
// A(h) = g(h) + rho A(h + 1) (downwards) and B(h + 1) = rho (g(h) + B(h)) (upwards) give the
// others: both multiply the carried error by |rho| < 1 at every step, so they are stable, and a
// call costs 2p series plus O(p n + q n), whatever the number of lags n. Without AR part,
// gamma(s) = sum_l psi(l) g(s - l). The fractional noise autocovariances (Hosking 1981):
//     g(0) = Gamma(1 - 2d) / Gamma(1 - d)^2,   g(k) = g(k - 1) (k - 1 + d) / (k - d),   g(-k) = g(k).
// Both series have positive b (1 - d + q and 1 - d + n - 1 + q with d < 0.5), and d = 0 (an
// ARMA process, g(h) = 0 for h != 0) needs no case of its own. Roots too close for the weights'
// divisions take the splitting sum instead (splitAutocovariances).
#include "estimators/fracint.h"

#include <cmath>
#include <cstddef>
#include <utility>

#include "base/alloc.h"
#include "base/carve.h"
#include "base/sums.h"
#include "base/types.h"
#include "numeric/polyroots.h"
#include "special/distributions.h"

namespace {

using Cx = std::complex<double>;

struct FracWork {
    double *g;    // fractional noise autocovariances at lags 0..q+n-1
    double *e;    // sum_j w_j C_j(h) for h = hlo..q, index h - hlo
    double *psi;  // MA autocovariances at lags 0..q
    double *poly; // the AR polynomial, monic: z^p - phi_1 z^(p-1) - ... - phi_p
    Cx *roots;    // its p roots, the inverse roots rho_j of phi(L)
    Cx *a;        // A_j(h) of one root, index h - hlo
};

void layout(KvCarve &c, FracWork *w, int p, int q, int n) {
    const size_t span = static_cast<size_t>(n) + 2 * static_cast<size_t>(q);
    w->g = c.take<double>(static_cast<size_t>(q) + static_cast<size_t>(n));
    w->e = c.take<double>(span);
    w->psi = c.take<double>(static_cast<size_t>(q) + 1);
    w->poly = c.take<double>(static_cast<size_t>(p));
    w->roots = c.take<Cx>(static_cast<size_t>(p));
    w->a = c.take<Cx>(p > 0 ? span : 0);
}

bool allFinite(const double *v, int n) {
    for (int i = 0; i < n; ++i)
        if (!std::isfinite(v[i])) return false;
    return true;
}

// The AR roots: ROOTS_FAIL when they cannot be found or one is not inside the unit circle,
// ROOTS_CLOSE when two are closer than FracRootSeparation (the partial fractions would divide by
// their difference), ROOTS_DISTINCT otherwise.
enum RootKind { ROOTS_FAIL, ROOTS_CLOSE, ROOTS_DISTINCT };
RootKind arRoots(const double *phi, int p, FracWork *w) {
    for (int i = 0; i < p; ++i) w->poly[i] = -phi[i];
    if (!PolyRoots(w->poly, p, w->roots)) return ROOTS_FAIL;
    RootKind kind = ROOTS_DISTINCT;
    for (int j = 0; j < p; ++j) {
        if (!(std::abs(w->roots[j]) < 1.0)) return ROOTS_FAIL;
        for (int m = j + 1; m < p; ++m)
            if (std::abs(w->roots[j] - w->roots[m]) < FracRootSeparation) kind = ROOTS_CLOSE;
    }
    return kind;
}

// Lags of the ARMA autocovariances the splitting sum takes: past it they are below 1e-18 (1 - r)
// of gamma_u(0), r the largest root modulus, so that their geometric tail is below 1e-18 of it.
// A root of multiplicity m makes them decay like k^(m-1) r^k, bounded here with m = p. 0 when more
// than FracSplitMaxLags would be needed.
long splitLags(const FracWork &w, int p, int q) {
    double r = 0.0;
    for (int j = 0; j < p; ++j) r = std::fmax(r, std::abs(w.roots[j]));
    if (r == 0.0) return q + p + 1;
    const double target = std::log(1e-18 * (1.0 - r)), lr = std::log(r);
    for (long k = 2L * (q + p) + 2; k <= FracSplitMaxLags; k *= 2)
        if ((p - 1) * std::log(static_cast<double>(k)) + k * lr < target) {
            long lo = k / 2, hi = k; // the smallest such k, within a factor of two found
            while (hi - lo > 1) {
                const long mid = lo + (hi - lo) / 2;
                ((p - 1) * std::log(static_cast<double>(mid)) + mid * lr < target ? hi : lo) = mid;
            }
            return hi;
        }
    return 0;
}

// Autocovariances gu[0..K] of the ARMA(p, q) process phi(L) u_t = theta(L) e_t (Brockwell and
// Davis 1991, Sec. 3.3, method 3): with psi_j the MA(infinity) weights, the equations
// gu(k) - sum_i phi_i gu(|k - i|) = sum_{j=k..q} theta_j psi_{j-k} for k = 0..p are solved by
// elimination with partial pivoting, and the same equations give gu(k) for k > p forwards, a
// recursion whose errors shrink with the roots. Needs no distinct roots. sys: (p + 1)^2 + 2(q + 1)
// doubles of scratch. False when the system is singular (it is not for roots inside the circle).
bool armaAutocovariances(const double *phi, int p, const double *theta, int q, long K, double *gu, double *sys) {
    double *psi = sys + static_cast<size_t>(p + 1) * (p + 1), *rhs = psi + q + 1;
    auto th = [theta](int j) { return j == 0 ? 1.0 : theta[j - 1]; };
    for (int j = 0; j <= q; ++j) {
        double v = th(j);
        for (int i = 1; i <= p && i <= j; ++i) v += phi[i - 1] * psi[j - i];
        psi[j] = v;
    }
    for (int k = 0; k <= q; ++k) {
        KvCompensatedSum s;
        for (int j = k; j <= q; ++j) s.add(th(j) * psi[j - k]);
        rhs[k] = s.value();
    }
    const int m = p + 1;
    auto A = [sys, m](int r, int c) -> double & { return sys[static_cast<size_t>(r) * m + c]; };
    for (int k = 0; k < m; ++k) {
        for (int c = 0; c < m; ++c) A(k, c) = k == c ? 1.0 : 0.0;
        for (int i = 1; i <= p; ++i) A(k, k >= i ? k - i : i - k) -= phi[i - 1];
        gu[k] = k <= q ? rhs[k] : 0.0;
    }
    for (int c = 0; c < m; ++c) {
        int piv = c;
        for (int r = c + 1; r < m; ++r)
            if (std::fabs(A(r, c)) > std::fabs(A(piv, c))) piv = r;
        if (!(std::fabs(A(piv, c)) > 0.0)) return false;
        if (piv != c) {
            for (int j = 0; j < m; ++j) std::swap(A(c, j), A(piv, j));
            std::swap(gu[c], gu[piv]);
        }
        for (int r = c + 1; r < m; ++r) {
            const double f = A(r, c) / A(c, c);
            for (int j = c; j < m; ++j) A(r, j) -= f * A(c, j);
            gu[r] -= f * gu[c];
        }
    }
    for (int c = m - 1; c >= 0; --c) {
        double v = gu[c];
        for (int j = c + 1; j < m; ++j) v -= A(c, j) * gu[j];
        gu[c] = v / A(c, c);
    }
    for (long k = m; k <= K; ++k) {
        double v = k <= q ? rhs[k] : 0.0;
        for (int i = 1; i <= p; ++i) v += phi[i - 1] * gu[k - i];
        gu[k] = v;
    }
    return std::isfinite(gu[0]);
}

// The splitting method for close AR roots: y = (1 - L)^-d u with u the ARMA part, so
//     gamma(s) = sum_k gu(k) g(s - k)   over all k,
// taken over |k| <= K (splitLags). O(n K). 0 when K would pass FracSplitMaxLags or the scratch
// cannot be made.
int splitAutocovariances(const double *phi, int p, const double *theta, int q, double d, int n, const FracWork &w,
                         double *gamma) {
    const long K = splitLags(w, p, q);
    if (K == 0) return 0;
    double *gu = nullptr, *g = nullptr, *sys = nullptr;
    KvArray<char> block;
    block.reset(static_cast<char *>(KvCarveBlock([&](KvCarve &c) {
        gu = c.take<double>(static_cast<size_t>(K) + 1);
        g = c.take<double>(static_cast<size_t>(K) + static_cast<size_t>(n));
        sys = c.take<double>(static_cast<size_t>(p + 1) * (p + 1) + 2 * (static_cast<size_t>(q) + 1));
    })));
    if (!block.ok() || !armaAutocovariances(phi, p, theta, q, K, gu, sys)) return 0;
    const long H = K + n - 1;
    g[0] = w.g[0];
    for (long k = 1; k <= H; ++k) g[k] = g[k - 1] * ((k - 1 + d) / (k - d));
    for (int s = 0; s < n; ++s) {
        KvCompensatedSum sum;
        for (long k = -K; k <= K; ++k) {
            const long h = s - k;
            sum.add(gu[k < 0 ? -k : k] * g[h < 0 ? -h : h]);
        }
        gamma[s] = sum.value();
    }
    return 1;
}

// Adds scale * Re(w_j C_j(h)) to e for the root rho = roots[j], h = hlo..q.
void addRoot(FracWork *w, int j, int p, int q, int n, double d, double scale, FracPrintFn print) {
    const Cx *r = w->roots;
    const Cx rho = r[j];
    Cx den = 1.0;
    for (int i = 0; i < p; ++i) den *= 1.0 - r[i] * rho;
    for (int m = 0; m < p; ++m)
        if (m != j) den *= rho - r[m];
    const Cx weight = std::pow(rho, p - 1) / den;

    const long long hlo = -(static_cast<long long>(n) - 1) - q;
    const size_t span = static_cast<size_t>(n) + 2 * static_cast<size_t>(q);
    const double *g = w->g;
    auto gAt = [g](long long h) { return g[h < 0 ? -h : h]; };
    Cx *a = w->a;
    a[span - 1] = gAt(q) * (1.0 + rho * FracHyperSeries(d + q, 1.0 - d + q, rho, print));
    for (size_t i = span - 1; i-- > 0;) a[i] = gAt(hlo + static_cast<long long>(i)) + rho * a[i + 1];
    const double blo = static_cast<double>(-hlo);
    Cx b = gAt(hlo) * rho * FracHyperSeries(d + blo, 1.0 - d + blo, rho, print);
    for (size_t i = 0; i < span; ++i) {
        w->e[i] += scale * (weight * (a[i] + b)).real();
        b = rho * (gAt(hlo + static_cast<long long>(i)) + b);
    }
}

} // namespace

Cx FracHyperSeries(double a, double b, Cx z, FracPrintFn print) {
    Cx term = a / b, sum = 0.0;
    for (int k = 1;; ++k) {
        if (std::abs(term) < FracSeriesTolerance) return sum;
        if (k > FracSeriesMaxTerms) {
            if (print) print("hyper: end of loop reached!\n");
            return sum;
        }
        sum += term;
        term *= (k + a) * z / (k + b);
    }
}

int FracAutocovariances(const double *phi, int p, const double *theta, int q, double d, int n, double *gamma,
                        FracPrintFn print) {
    if (n < 1 || p < 0 || q < 0 || static_cast<long long>(q) + n > 0x3FFFFFFF) return 0;
    auto fail = [&] {
        for (int s = 0; s < n; ++s) gamma[s] = MissingValueOf();
        return 0;
    };
    if (!(d > -1.0 && d < 0.5) || !allFinite(phi, p) || !allFinite(theta, q)) return fail();
    while (p > 0 && phi[p - 1] == 0.0) --p; // trailing zero lags add only zero roots

    FracWork w;
    KvArray<char> block;
    block.reset(static_cast<char *>(KvCarveBlock([&](KvCarve &c) { layout(c, &w, p, q, n); })));
    if (!block.ok()) return fail();
    const RootKind roots = p > 0 ? arRoots(phi, p, &w) : ROOTS_DISTINCT;
    if (roots == ROOTS_FAIL) return fail();

    const int H = q + n - 1;
    w.g[0] = std::exp(LogGamma(1.0 - 2.0 * d) - 2.0 * LogGamma(1.0 - d));
    if (roots == ROOTS_CLOSE) return splitAutocovariances(phi, p, theta, q, d, n, w, gamma) ? 1 : fail();
    for (int k = 1; k <= H; ++k) w.g[k] = w.g[k - 1] * ((k - 1 + d) / (k - d));
    for (int l = 0; l <= q; ++l) {
        KvCompensatedSum s;
        s.add(l == 0 ? 1.0 : theta[l - 1]); // theta_0 = 1
        for (int i = 1; i + l <= q; ++i) s.add(theta[i - 1] * theta[i + l - 1]);
        w.psi[l] = s.value();
    }

    const size_t span = static_cast<size_t>(n) + 2 * static_cast<size_t>(q);
    const long long hlo = -(static_cast<long long>(n) - 1) - q;
    if (p == 0) {
        for (size_t i = 0; i < span; ++i) {
            const long long h = hlo + static_cast<long long>(i);
            w.e[i] = w.g[h < 0 ? -h : h];
        }
    } else {
        for (size_t i = 0; i < span; ++i) w.e[i] = 0.0;
        // A conjugate pair contributes twice the real part of one member's term.
        for (int j = 0; j < p; ++j) {
            if (w.roots[j].imag() < 0.0) continue;
            addRoot(&w, j, p, q, n, d, w.roots[j].imag() > 0.0 ? 2.0 : 1.0, print);
        }
    }
    for (int s = 0; s < n; ++s) {
        KvCompensatedSum sum;
        for (int l = -q; l <= q; ++l) sum.add(w.psi[l < 0 ? -l : l] * w.e[static_cast<size_t>(l - hlo - s)]);
        gamma[s] = sum.value();
    }
    return 1;
}
