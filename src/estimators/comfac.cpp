// Common-factor Wald test. With lambda_1..lambda_m the roots of the reversed autoregressive
// polynomial A(z) = z^m - a_1 z^(m-1) - ... - a_m (so that a(L) = prod_i (1 - lambda_i L)), a
// common factor rho(L) = prod_{i in S} (1 - lambda_i L) of order r divides b_j(L) exactly when the
// reversed polynomial B_j(z) = sum_i b_ji z^(m_j - i) vanishes at every lambda_i, i in S. So the
// r nx restrictions (Sargan 1980, Sec. 4, written at the roots)
//     g_ji(theta) = B_j(lambda_i) = 0,   i in S, j = 1..nx,
// a complex pair of roots giving the real and imaginary parts of one member's value. For ADL(1,1)
// this is the familiar b_1 + a_1 b_0 = 0. The Jacobian is analytic: dg/db_ji = lambda^(m_j - i),
// and by implicit differentiation of A(lambda) = 0, dlambda/da_i = lambda^(m - i) / A'(lambda), so
// dg/da_i = B_j'(lambda) lambda^(m - i) / A'(lambda). The statistic
//     W_S = g' (J V J')^-1 g
// is computed through the Cholesky factor of J V J'. Which r of the m roots would be common is
// not known: the statistic of order r is the smallest W_S over the sets S of r roots closed under
// conjugation (every real factor of order r of a(L)). Under the null the true common roots are
// among them and every other set's statistic diverges, so the minimum keeps the chi-squared(r nx)
// limit (Hendry and Mizon 1978 test the restrictions of the dominant root in this sense).
#include "estimators/comfac.h"

#include <cmath>
#include <complex>
#include <cstddef>

#include "base/alloc.h"
#include "base/carve.h"
#include "base/sums.h"
#include "numeric/polyroots.h"
#include "special/distributions.h"

namespace {

using Cx = std::complex<double>;

struct ComfacWork {
    double *poly;  // m: the monic reversed AR polynomial's lower coefficients
    Cx *roots;     // m, conjugate pairs adjacent
    int *group;    // G: the position of each group (a real root or a pair)
    MATRIX J, JV;  // rows x k
    MATRIX omega;  // rows x rows: J V J', then its Cholesky factor
    double *g;     // rows: the restrictions, then L^-1 g
    double *diag0; // rows: the diagonal of J V J' before factoring
};

void layout(KvCarve &c, ComfacWork *w, int m, int rows, int k) {
    w->poly = c.take<double>(static_cast<size_t>(m));
    w->roots = c.take<Cx>(static_cast<size_t>(m));
    w->group = c.take<int>(static_cast<size_t>(m));
    w->J = c.matrix(rows, k);
    w->JV = c.matrix(rows, k);
    w->omega = c.matrix(rows, rows);
    w->g = c.take<double>(static_cast<size_t>(rows));
    w->diag0 = c.take<double>(static_cast<size_t>(rows));
}

double coefAt(const ComfacModel &m, const double *index, int i) { return m.coef[static_cast<int>(index[i])]; }

// One restriction row pair (real part into row a, imaginary part into row a + 1 when pair) for
// regressor j at root lambda. False when A'(lambda) is 0 (a repeated root: no derivative).
bool restriction(const ComfacModel &m, ComfacWork *w, int j, int offset, Cx lambda, bool pair, int a) {
    Cx dA = static_cast<double>(m.ar);
    for (int i = 1; i < m.ar; ++i) dA = dA * lambda - static_cast<double>(m.ar - i) * coefAt(m, m.arIndex, i - 1);
    if (dA == 0.0) return false;
    const int mj = static_cast<int>(m.xLags[j]);
    Cx B = 0.0, dB = 0.0;
    for (int i = 0; i <= mj; ++i) {
        dB = dB * lambda + B;
        B = B * lambda + coefAt(m, m.xIndex, offset + i);
    }
    double *re = w->J[a], *im = pair ? w->J[a + 1] : nullptr;
    for (int c = 0; c < m.k; ++c) re[c] = 0.0;
    if (im)
        for (int c = 0; c < m.k; ++c) im[c] = 0.0;
    Cx power = 1.0; // lambda^(mj - i), from i = mj down
    for (int i = mj; i >= 0; --i, power *= lambda) {
        const int c = static_cast<int>(m.xIndex[offset + i]);
        re[c] += power.real();
        if (im) im[c] += power.imag();
    }
    const Cx scale = dB / dA;
    power = 1.0; // lambda^(m - i), from i = m down
    for (int i = m.ar; i >= 1; --i, power *= lambda) {
        const int c = static_cast<int>(m.arIndex[i - 1]);
        const Cx d = scale * power;
        re[c] += d.real();
        if (im) im[c] += d.imag();
    }
    w->g[a] = B.real();
    if (im) w->g[a + 1] = B.imag();
    return true;
}

// W_S for the groups in mask; false when it cannot be formed (repeated root, singular J V J').
bool wald(const ComfacModel &m, ComfacWork *w, int groups, unsigned mask, double *W) {
    int rows = 0;
    for (int j = 0, offset = 0; j < m.nx; offset += static_cast<int>(m.xLags[j]) + 1, ++j)
        for (int s = 0; s < groups; ++s) {
            if (!(mask >> s & 1)) continue;
            const Cx lambda = w->roots[w->group[s]];
            const bool pair = lambda.imag() > 0.0;
            if (!restriction(m, w, j, offset, lambda, pair, rows)) return false;
            rows += pair ? 2 : 1;
        }
    const int k = m.k;
    for (int a = 0; a < rows; ++a)
        for (int c = 0; c < k; ++c) {
            double s = 0.0;
            for (int e = 0; e < k; ++e) s += w->J[a][e] * m.cov[e][c];
            w->JV[a][c] = s;
        }
    MATRIX L = w->omega;
    for (int a = 0; a < rows; ++a)
        for (int b = 0; b <= a; ++b) L[a][b] = KvDot(w->JV[a], w->J[b], k);
    // Cholesky, a pivot not above tol times its diagonal element declaring J V J' singular.
    for (int a = 0; a < rows; ++a) w->diag0[a] = L[a][a];
    for (int c = 0; c < rows; ++c) {
        const double piv = L[c][c] - KvDot(L[c], L[c], c);
        if (!(piv > m.tol * w->diag0[c])) return false;
        L[c][c] = std::sqrt(piv);
        for (int a = c + 1; a < rows; ++a) L[a][c] = (L[a][c] - KvDot(L[a], L[c], c)) / L[c][c];
    }
    double sum = 0.0;
    for (int a = 0; a < rows; ++a) {
        w->g[a] = (w->g[a] - KvDot(L[a], w->g, a)) / L[a][a];
        sum += w->g[a] * w->g[a];
    }
    *W = sum;
    return true;
}

bool finiteInputs(const ComfacModel &m) {
    for (int i = 0; i < m.k; ++i) {
        if (!std::isfinite(m.coef[i])) return false;
        for (int j = 0; j < m.k; ++j)
            if (!std::isfinite(m.cov[i][j])) return false;
    }
    return true;
}

} // namespace

int ComfacWald(const ComfacModel &m, double *stat, double *dfp) {
    const int R = m.maxOrder;
    for (int r = 0; r < R; ++r) stat[r] = dfp[r] = dfp[R + r] = MissingValueOf();
    if (m.ar == 0 || m.nx == 0) return 2;
    if (!finiteInputs(m)) return -1;
    const int top = R < m.ar ? R : m.ar;
    ComfacWork w;
    KvArray<char> block;
    block.reset(static_cast<char *>(KvCarveBlock([&](KvCarve &c) { layout(c, &w, m.ar, top * m.nx, m.k); })));
    if (!block.ok()) return -1;
    for (int i = 0; i < m.ar; ++i) w.poly[i] = -coefAt(m, m.arIndex, i);
    if (!PolyRoots(w.poly, m.ar, w.roots)) return -1;
    int groups = 0;
    for (int i = 0; i<m.ar; i += w.roots[i].imag()> 0.0 ? 2 : 1) w.group[groups++] = i;

    int code = 1;
    for (int r = 1; r <= top; ++r) {
        double best = INFINITY;
        bool candidate = false;
        for (unsigned mask = 1; mask < 1u << groups; ++mask) {
            int order = 0;
            for (int s = 0; s < groups; ++s)
                if (mask >> s & 1) order += w.roots[w.group[s]].imag() > 0.0 ? 2 : 1;
            if (order != r) continue;
            candidate = true;
            double W;
            if (wald(m, &w, groups, mask, &W) && W < best) best = W;
        }
        const int df = r * m.nx;
        dfp[r - 1] = df;
        if (best == INFINITY) {
            code = candidate ? 0 : code == 1 ? 3 : code; // a singular order outranks a missing factor
            continue;
        }
        stat[r - 1] = best;
        dfp[R + r - 1] = DistChi2Q(best, df);
    }
    return code;
}
