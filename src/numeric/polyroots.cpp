// Aberth-Ehrlich iteration: each sweep moves root i by the Newton correction N = p/p' deflated
// by the other current roots, w = N / (1 - N sum_{j != i} 1/(z_i - z_j)), in place (the
// Gauss-Seidel order of Bini 1996), which converges cubically to simple roots and linearly to
// multiple ones. A root is settled when its correction falls below a few units of roundoff of
// its modulus, or its value below the rounding error of evaluating the polynomial there (where
// a multiple root stops improving).
#include "numeric/polyroots.h"

#include <cmath>

namespace {

using Cx = std::complex<double>;

constexpr int kSweeps = 500;

// p(z), p'(z) and the rounding-error bound of evaluating p by Horner's rule at z (Higham,
// Accuracy and Stability of Numerical Algorithms, 2nd ed., Sec. 5.1): below it, |p(z)| is noise.
void horner(const double *c, int n, Cx z, Cx *p, Cx *dp, double *noise) {
    Cx v = 1.0, d = 0.0;
    double m = 1.0;
    const double r = std::abs(z);
    for (int i = 0; i < n; ++i) {
        d = d * z + v;
        v = v * z + c[i];
        m = m * r + std::fabs(c[i]);
    }
    *p = v;
    *dp = d;
    *noise = 4.0 * (2 * n + 1) * 1.1102230246251565e-16 * m;
}

// Pairs each root with its nearest conjugate, or makes it real when its own conjugate is nearer
// than any other root's, so that the result has the symmetry of a real polynomial exactly.
void symmetrize(Cx *z, int n) {
    for (int i = 0; i < n; ++i) {
        if (z[i].imag() == 0.0) continue;
        int best = -1;
        double dist = std::fabs(2.0 * z[i].imag());
        for (int j = i + 1; j < n; ++j) {
            const double dj = std::abs(z[j] - std::conj(z[i]));
            if (dj < dist) dist = dj, best = j;
        }
        if (best < 0) {
            z[i] = Cx(z[i].real(), 0.0);
            continue;
        }
        Cx m = 0.5 * (z[i] + std::conj(z[best]));
        if (m.imag() < 0.0) m = std::conj(m);
        const Cx other = z[i + 1];
        z[best] = other;
        z[i] = m;
        z[i + 1] = std::conj(m);
        ++i;
    }
}

// Groups (a real root, or a pair) by decreasing modulus: the largest remaining group is moved to
// the front, shifting the groups before it as blocks.
void order(Cx *z, int n) {
    auto len = [&](int g) { return z[g].imag() > 0.0 ? 2 : 1; };
    for (int i = 0; i < n;) {
        int best = i;
        for (int g = i; g < n; g += len(g))
            if (std::abs(z[g]) > std::abs(z[best])) best = g;
        const int l = len(best);
        const Cx a = z[best], b = l == 2 ? z[best + 1] : Cx();
        for (int k = best - 1; k >= i; --k) z[k + l] = z[k];
        z[i] = a;
        if (l == 2) z[i + 1] = b;
        i += l;
    }
}

} // namespace

int PolyRoots(const double *c, int n, Cx *roots) {
    if (n < 0) return 0;
    double bound = 0.0; // Fujiwara's bound on the moduli of the roots
    for (int i = 0; i < n; ++i) {
        if (!std::isfinite(c[i])) return 0;
        const double b = std::pow(std::fabs(c[i]) / (i == n - 1 ? 2.0 : 1.0), 1.0 / (i + 1));
        bound = b > bound ? b : bound;
    }
    bound = 2.0 * bound;
    if (bound == 0.0) { // z^n: every root is 0
        for (int i = 0; i < n; ++i) roots[i] = 0.0;
        return 1;
    }
    const double pi = 3.14159265358979323846;
    for (int i = 0; i < n; ++i) roots[i] = std::polar(0.5 * bound, 2.0 * pi * i / n + 0.4);
    bool done = n == 0;
    for (int sweep = 0; sweep < kSweeps && !done; ++sweep) {
        done = true;
        for (int i = 0; i < n; ++i) {
            Cx p, dp;
            double noise;
            horner(c, n, roots[i], &p, &dp, &noise);
            if (std::abs(p) <= noise) continue; // as exact as the arithmetic allows (multiple roots)
            const Cx newton = p / dp;
            Cx s = 0.0;
            for (int j = 0; j < n; ++j)
                if (j != i) s += 1.0 / (roots[i] - roots[j]);
            const Cx w = newton / (1.0 - newton * s);
            if (!std::isfinite(w.real()) || !std::isfinite(w.imag())) continue;
            roots[i] -= w;
            if (std::abs(w) > 4e-16 * std::abs(roots[i]) && std::abs(w) > 1e-300) done = false;
        }
    }
    symmetrize(roots, n);
    order(roots, n);
    return done ? 1 : 0;
}
