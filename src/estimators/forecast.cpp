// The simulation engine behind forecasts and impulse responses. Every routine makes its scratch
// in one block (KvCarveBlock) before the first observation: the column map, the working rows and
// whatever the standard errors need, so there is one allocation to fail and one to free.
#include "estimators/forecast.h"

#include <climits>
#include <cmath>
#include <cstring>

#include "base/alloc.h"
#include "base/carve.h"
#include "base/sums.h"
#include "matrix/cholesky.h"

namespace {

// Whole part of a descriptor number; false for NaN and values outside int.
bool wholePart(double d, int *out) {
    if (!(d > -2147483649.0 && d < 2147483648.0)) return false;
    *out = static_cast<int>(d);
    return true;
}

struct Entry {
    bool coded; // status is one of the two codes
    int code;   // which: the status value
    bool valid; // variable and lag readable
    int var, lag;
};

Entry entryAt(const ForecastDescriptor &d, int e) {
    Entry x{};
    int status = 0;
    x.coded = wholePart(d.status[e], &status) && (status == d.code1 || status == d.code2);
    x.code = status;
    x.valid = wholePart(d.variable[e], &x.var) && wholePart(d.lag[e], &x.lag);
    return x;
}

// The largest lag of a modelled variable, or -1 when one is above FORECAST_MAX_LAG. Measured
// before the map exists because the pre-sample room of the working rows depends on it.
int maxLagOf(const ForecastDescriptor &d, int n) {
    int maxlag = 0;
    for (int e = 0; e < n; ++e) {
        const Entry x = entryAt(d, e);
        if (!x.coded || !x.valid || x.lag <= 0) continue;
        if (x.lag > FORECAST_MAX_LAG) return -1;
        if (x.lag > maxlag) maxlag = x.lag;
    }
    return maxlag;
}

bool mul(size_t a, size_t b, size_t *out) { return KvSizeMul(a, b, out); }
bool mul3(size_t a, size_t b, size_t c, size_t *out) {
    size_t ab = 0;
    return mul(a, b, &ab) && mul(ab, c, out);
}

// The working data: rows 0..nEndog-1 the endogenous variables and then nIdent identity rows, all
// owned; then one row per regressor, not owned: a lagged modelled variable's row is the owned row
// shifted back by its lag (row[nOwned + j] = row[v] - lag, so element t reads element t - lag of
// row v), an exogenous one the caller's data. Owned rows start pad observations before 0, pad the
// largest lag, so every view read at t >= 0 stays inside its row.
struct ForecastRows {
    double **row;
    int nOwned, nReg;
};

double missing() { return MissingValueOf(); }

// The engine over one set of working rows.
struct Engine {
    int nE, nI, nR, nAll;
    ForecastRows rows;
    MATRIX coef;
    RegressorMap map;
    double *x;       // regressor values at one observation
    double *endogAt; // endogenous values at one observation, for the identities
    double *identAt;
    const ForecastIdentities *ids;
    long long identBase; // workspace column of observation 0

    double *view(int j) const { return rows.row[nAll + j]; }

    void identities(int t) {
        for (int v = 0; v < nE; ++v) endogAt[v] = rows.row[v][t];
        const long long column = identBase + t;
        const int ok =
            column >= 0 && column <= INT_MAX && ids->step(ids->ctx, static_cast<int>(column), endogAt, nE, identAt);
        for (int a = 0; a < nI; ++a) rows.row[nE + a][t] = ok ? identAt[a] : missing();
    }

    // One forecast pass: every equation at t from the regressors at t, which are views into
    // earlier observations of the rows being written, then the identities at t.
    void pass(int s, int e) {
        for (int t = s; t <= e; ++t) {
            for (int j = 0; j < nR; ++j) x[j] = view(j)[t];
            for (int i = 0; i < nE; ++i) rows.row[i][t] = KvDot(coef[i], x, nR);
            if (nI > 0) identities(t);
        }
    }

    void copyOut(int t1, int t, MATRIX out) const {
        for (int a = 0; a < nAll; ++a) out[a][t - t1] = rows.row[a][t];
    }
};

// Owned rows, regressor views and the column map carved from one block. rowLen counts pad
// pre-sample observations and observations 0..t2.
struct Layout {
    int nE, nI, nR, pad, t2;
    double **rowPtr = nullptr;
    double *owned = nullptr;
    int *varIndex = nullptr, *lag = nullptr, *list = nullptr;
    double *x = nullptr, *endogAt = nullptr, *identAt = nullptr;
    bool overflow = false;

    size_t rowLen() const { return static_cast<size_t>(pad) + static_cast<size_t>(t2) + 1; }
    void carve(KvCarve &c) {
        const size_t nAll = static_cast<size_t>(nE) + nI, n = static_cast<size_t>(nE) + nR;
        size_t cells = 0;
        if (!mul(nAll, rowLen(), &cells)) overflow = true;
        rowPtr = c.take<double *>(nAll + nR);
        owned = c.take<double>(cells);
        varIndex = c.take<int>(n);
        lag = c.take<int>(n);
        list = c.take<int>(static_cast<size_t>(nE));
        x = c.take<double>(static_cast<size_t>(nR));
        endogAt = c.take<double>(static_cast<size_t>(nE));
        identAt = c.take<double>(static_cast<size_t>(nI));
    }
    // Points the engine at the carved pieces; views are set by the caller.
    void attach(Engine &g) const {
        g.nE = nE, g.nI = nI, g.nR = nR, g.nAll = nE + nI;
        g.rows = ForecastRows{rowPtr, nE + nI, nR};
        for (int a = 0; a < nE + nI; ++a) rowPtr[a] = owned + static_cast<size_t>(a) * rowLen() + pad;
        g.map = RegressorMap{varIndex, lag};
        g.x = x, g.endogAt = endogAt, g.identAt = identAt;
    }
};

// Lagged views of the modelled rows; exogenous regressors read exog(j).
template <class Exog> void setViews(Engine &g, Exog exog) {
    for (int j = 0; j < g.nR; ++j) {
        const int v = g.map.varIndex[g.nE + j], lag = g.map.lag[g.nE + j];
        g.rows.row[g.nAll + j] = lag > 0 ? g.rows.row[v] - lag : exog(j);
    }
}

// Pre-sample observations of the endogenous rows from the regressor data: regressor j, a lag L
// of variable v, holds y_v[c - L] at column c, so y_v[-p] is its column L - p (p = 1..L). Where no
// regressor holds it the value stays missing, and so do the forecasts that need it.
void fillPreSample(Engine &g, const ForecastModel &m) {
    for (int j = 0; j < g.nR; ++j) {
        const int v = g.map.varIndex[g.nE + j], lag = g.map.lag[g.nE + j];
        for (int p = 1; p <= lag; ++p)
            if (lag - p < m.regCols) g.rows.row[v][-p] = m.reg[j][lag - p];
    }
}

// The parameter-uncertainty quadratic form g' V g for one row g of d y / d beta'.
struct ParamCov {
    MATRIX cov;                // P x P, or m x m with a restriction
    const double *restriction; // P x m row by row, or null
    int P, m;
    double *w; // m scratch

    double quad(const double *g) const {
        const double *u = g;
        int n = P;
        if (restriction) {
            for (int q = 0; q < m; ++q) w[q] = 0.0;
            for (int p = 0; p < P; ++p) {
                const double gp = g[p];
                if (gp == 0.0) continue;
                const double *r = restriction + static_cast<size_t>(p) * m;
                for (int q = 0; q < m; ++q) w[q] += r[q] * gp;
            }
            u = w, n = m;
        }
        KvCompensatedSum s;
        for (int p = 0; p < n; ++p)
            if (u[p] != 0.0) s.add(u[p] * KvDot(cov[p], u, n));
        return s.value();
    }
};

// Diagonal of the error part of the forecast-error variance, sum over j < k of
// Psi_j Omega Psi_j' with Psi_j the leading nE x nE block of C^j (C the companion matrix), for
// k = 1..K into ev (K x nE). C is kept as its top block row A (nE x dim); the rest of C is the
// shift of the state by nE, applied as such. Mt holds (C^j E)' (nE x dim), E the first nE unit
// columns.
void errorVariance(const Engine &g, MATRIX omega, int maxlag, int K, double *ev, double *A, double *Mt, double *top,
                   double *psi, double *acc) {
    const int nE = g.nE, dim = maxlag * nE;
    for (size_t c = 0; c < static_cast<size_t>(nE) * dim; ++c) A[c] = 0.0;
    for (int j = 0; j < g.nR; ++j) {
        const int lag = g.map.lag[nE + j];
        if (lag <= 0) continue;
        const int col = (lag - 1) * nE + g.map.varIndex[nE + j];
        for (int i = 0; i < nE; ++i) A[static_cast<size_t>(i) * dim + col] += g.coef[i][j];
    }
    for (int b = 0; b < nE; ++b)
        for (int c = 0; c < dim; ++c) Mt[static_cast<size_t>(b) * dim + c] = c == b ? 1.0 : 0.0;
    for (int a = 0; a < 2 * nE; ++a) acc[a] = 0.0;
    for (int k = 1; k <= K; ++k) {
        for (int a = 0; a < nE; ++a)
            for (int b = 0; b < nE; ++b)
                psi[a * nE + b] = dim > 0 ? Mt[static_cast<size_t>(b) * dim + a] : (k == 1 && a == b ? 1.0 : 0.0);
        for (int a = 0; a < nE; ++a) {
            const double *p = psi + a * nE;
            double term = 0.0;
            for (int b = 0; b < nE; ++b) term += p[b] * KvDot(omega[b], p, nE);
            KvCompensatedSum s{acc[2 * a], acc[2 * a + 1]};
            s.add(term);
            acc[2 * a] = s.sum, acc[2 * a + 1] = s.carry;
            ev[static_cast<size_t>(k - 1) * nE + a] = s.value();
        }
        if (dim == 0 || k == K) continue;
        for (int a = 0; a < nE; ++a)
            for (int b = 0; b < nE; ++b)
                top[a * nE + b] = KvDot(A + static_cast<size_t>(a) * dim, Mt + static_cast<size_t>(b) * dim, dim);
        for (int b = 0; b < nE; ++b) {
            double *row = Mt + static_cast<size_t>(b) * dim;
            std::memmove(row + nE, row, sizeof(double) * static_cast<size_t>(dim - nE));
            for (int a = 0; a < nE; ++a) row[a] = top[a * nE + b];
        }
    }
}

// Delta-method term along the pass over s..e that the working rows hold: D_k = d y_{s+k-1} / d
// beta' obeys D_k[i][i nR + j] = x_j and D_k += B[:, j] D_{k-L}[v] for each lag L of variable v
// reaching back into the pass (k - L >= 1); earlier values are data and do not move with beta.
// sink(t, i, g_i' V g_i) for each t from from..e. ring holds maxlag + 1 matrices nE x P.
template <class Sink>
void paramVariance(Engine &g, const ParamCov &pc, int maxlag, int s, int e, int from, double *ring, Sink sink) {
    const int nE = g.nE, nR = g.nR, P = pc.P, R = maxlag + 1;
    const size_t block = static_cast<size_t>(nE) * P;
    for (int t = s; t <= e; ++t) {
        const int k = t - s + 1;
        double *D = ring + static_cast<size_t>(k % R) * block;
        for (size_t c = 0; c < block; ++c) D[c] = 0.0;
        for (int j = 0; j < nR; ++j) {
            const double xj = g.view(j)[t];
            for (int i = 0; i < nE; ++i) D[static_cast<size_t>(i) * P + static_cast<size_t>(i) * nR + j] = xj;
        }
        for (int j = 0; j < nR; ++j) {
            const int lag = g.map.lag[nE + j];
            if (lag <= 0 || k - lag < 1) continue;
            const double *prev =
                ring + static_cast<size_t>((k - lag) % R) * block + static_cast<size_t>(g.map.varIndex[nE + j]) * P;
            for (int i = 0; i < nE; ++i) {
                const double c = g.coef[i][j];
                if (c == 0.0) continue;
                double *d = D + static_cast<size_t>(i) * P;
                for (int q = 0; q < P; ++q) d[q] += c * prev[q];
            }
        }
        if (t < from) continue;
        for (int i = 0; i < nE; ++i) sink(t, i, pc.quad(D + static_cast<size_t>(i) * P));
    }
}

// Central-difference step for a value x.
double diffStep(double x) {
    const double h = (std::fabs(x) + 1e-8) * 1e-8;
    return h > 5e-6 ? h : 5e-6;
}

// Forecast-error variances with identities, by central differences of the pass. The working rows
// hold the pass over s..e. For each shock (equation i at observation s') the value there is moved
// by +-step, the identities at s' and the pass over s'+1..e are run again, and the slopes of every
// row at t >= s' give J_{t,s'}; var_t = sum over s' <= t of diag(J Omega J'). With a coefficient
// covariance, each coefficient is moved the same way over the whole pass, adding diag(G V G').
// Afterwards the rows and the workspace hold the base pass again. var is nAll x W (W = e - s + 1).
struct Numerical {
    double *base, *fplus, *J, *acc, *G;
    MATRIX coefWork; // the pass's coefficients, moved one at a time
};

void numericalVariance(Engine &g, MATRIX omega, const ParamCov *pc, int s0, int e, Numerical &n, double *var) {
    const int nAll = g.nAll, nE = g.nE, W = e - s0 + 1;
    auto at = [&](int a, int t) { return static_cast<size_t>(a) * W + (t - s0); };
    for (int a = 0; a < nAll; ++a)
        for (int t = s0; t <= e; ++t) n.base[at(a, t)] = g.rows.row[a][t];
    for (size_t c = 0; c < 2 * static_cast<size_t>(nAll) * W; ++c) n.acc[c] = 0.0;
    auto add = [&](size_t c, double v) {
        KvCompensatedSum s{n.acc[2 * c], n.acc[2 * c + 1]};
        s.add(v);
        n.acc[2 * c] = s.sum, n.acc[2 * c + 1] = s.carry;
    };
    auto restore = [&](int from) {
        for (int a = 0; a < nAll; ++a)
            for (int t = from; t <= e; ++t) g.rows.row[a][t] = n.base[at(a, t)];
    };
    for (int s = s0; s <= e; ++s) {
        for (int i = 0; i < nE; ++i) {
            const double x = n.base[at(i, s)], h = diffStep(x);
            for (int sign = 1; sign >= -1; sign -= 2) {
                g.rows.row[i][s] = x + sign * h;
                if (g.nI > 0) g.identities(s);
                g.pass(s + 1, e);
                for (int a = 0; a < nAll; ++a)
                    for (int t = s; t <= e; ++t) {
                        const double v = g.rows.row[a][t];
                        if (sign > 0)
                            n.fplus[at(a, t)] = v;
                        else
                            n.J[at(a, t) * nE + i] = (n.fplus[at(a, t)] - v) / (2.0 * h);
                    }
            }
            g.rows.row[i][s] = x;
        }
        for (int a = 0; a < nAll; ++a)
            for (int t = s; t <= e; ++t) {
                const double *j = n.J + at(a, t) * nE;
                double term = 0.0;
                for (int b = 0; b < nE; ++b) term += j[b] * KvDot(omega[b], j, nE);
                add(at(a, t), term);
            }
        // Back to the base pass at s, and in the workspace column of s, which later shocks read
        // as a lag; the columns after s are written again by every later run before being read.
        restore(s);
        if (g.nI > 0) g.identities(s);
        restore(s);
    }
    if (pc) {
        const int nR = g.nR, P = pc->P;
        for (int p = 0; p < P; ++p) {
            double &c = n.coefWork[p / nR][p % nR];
            const double b = c, h = diffStep(b);
            for (int sign = 1; sign >= -1; sign -= 2) {
                c = b + sign * h;
                g.pass(s0, e);
                for (int a = 0; a < nAll; ++a)
                    for (int t = s0; t <= e; ++t) {
                        const double v = g.rows.row[a][t];
                        double &d = n.G[at(a, t) * P + p];
                        d = sign > 0 ? v : (d - v) / (2.0 * h);
                    }
            }
            c = b;
        }
        g.pass(s0, e); // the workspace back to the base pass
        restore(s0);
        for (int a = 0; a < nAll; ++a)
            for (int t = s0; t <= e; ++t) add(at(a, t), pc->quad(n.G + at(a, t) * P));
    }
    for (size_t c = 0; c < static_cast<size_t>(nAll) * W; ++c)
        var[c] = KvCompensatedSum{n.acc[2 * c], n.acc[2 * c + 1]}.value();
}

} // namespace

int RegressorMapBuild(const ForecastDescriptor &d, int nEndog, int nReg, int *list, RegressorMap map) {
    const int n = nEndog + nReg;
    for (int e = 0; e < n; ++e) map.varIndex[e] = -1, map.lag[e] = 0;
    for (int i = 0; i < nEndog; ++i) map.varIndex[i] = i, list[i] = -1;
    const int codes[2] = {d.code1, d.code2};
    const int passes = d.code2 == d.code1 ? 1 : 2;
    // Passes 1 and 2: the modelled variables, current-dated entries of each code in order.
    int listed = 0;
    for (int c = 0; c < passes; ++c)
        for (int e = 0; e < n && listed < nEndog; ++e) {
            const Entry x = entryAt(d, e);
            if (x.coded && x.code == codes[c] && x.valid && x.lag == 0) list[listed++] = x.var;
        }
    // Passes 3 and 4: their lags, as regressors in order; a lag of an unlisted variable is skipped.
    int filled = 0;
    for (int c = 0; c < passes; ++c)
        for (int e = 0; e < n; ++e) {
            const Entry x = entryAt(d, e);
            if (!x.coded || x.code != codes[c] || !x.valid || x.lag <= 0) continue;
            if (x.lag > FORECAST_MAX_LAG) return 0;
            int pos = -1;
            for (int i = 0; i < listed && pos < 0; ++i)
                if (list[i] == x.var) pos = i;
            if (pos < 0) continue;
            if (filled == nReg) return 0;
            map.varIndex[nEndog + filled] = pos, map.lag[nEndog + filled] = x.lag;
            ++filled;
        }
    // The remaining regressors: the exogenous entries in order.
    int exog = 0;
    for (int e = 0; e < n; ++e) {
        if (entryAt(d, e).coded) continue;
        if (filled == nReg) return 0;
        map.varIndex[nEndog + filled++] = nEndog + exog++;
    }
    for (int e = 0; e < n; ++e)
        if (map.varIndex[e] < 0) return 0;
    return 1;
}

int ForecastRun(const ForecastModel &m, int t1, int t2, int horizon, const ForecastIdentities &ids,
                long long identColumn, MATRIX out, MATRIX se) {
    const int nE = m.nEndog, nR = m.nReg, nI = ids.step && ids.count > 0 ? ids.count : 0, nAll = nE + nI;
    if (nE < 1 || nR < 0 || t1 < 0 || t2 < t1 || t2 == INT_MAX || !m.coef) return 0;
    const int N = t2 - t1 + 1;
    if (horizon > N) return 0;
    if (se && (!m.omega || m.omegaDim != nE)) return 0;
    const int maxlag = maxLagOf(m.desc, nE + nR);
    if (maxlag < 0) return 0;
    const bool hstep = horizon > 0;
    const int W = hstep ? horizon : N; // longest pass
    const bool withCov = se && m.coefCov;
    const int P = nE * nR, mFree = m.restriction ? m.restrictCols : P;
    const int dim = maxlag * nE;

    Layout lay{nE, nI, nR, maxlag, t2};
    double *saved = nullptr, *ev = nullptr, *A = nullptr, *Mt = nullptr, *top = nullptr, *psi = nullptr;
    double *acc = nullptr, *ring = nullptr, *w = nullptr, *var = nullptr;
    Numerical num{};
    bool overflow = false;
    auto layout = [&](KvCarve &c) {
        lay.carve(c);
        size_t cells = 0;
        if (hstep) {
            overflow |= !mul(static_cast<size_t>(nAll), static_cast<size_t>(N), &cells);
            saved = c.take<double>(cells);
        }
        if (!se) return;
        if (nI == 0) {
            overflow |= !mul(static_cast<size_t>(W), static_cast<size_t>(nE), &cells);
            ev = c.take<double>(cells);
            overflow |= !mul(static_cast<size_t>(nE), static_cast<size_t>(dim), &cells);
            A = c.take<double>(cells);
            Mt = c.take<double>(cells);
            top = c.take<double>(static_cast<size_t>(nE) * nE);
            psi = c.take<double>(static_cast<size_t>(nE) * nE);
            acc = c.take<double>(2 * static_cast<size_t>(nE));
            if (withCov) {
                overflow |=
                    !mul3(static_cast<size_t>(maxlag) + 1, static_cast<size_t>(nE), static_cast<size_t>(P), &cells);
                ring = c.take<double>(cells);
            }
        } else {
            overflow |= !mul(static_cast<size_t>(nAll), static_cast<size_t>(W), &cells);
            num.base = c.take<double>(cells);
            num.fplus = c.take<double>(cells);
            var = c.take<double>(cells);
            overflow |= !mul(cells, 2, &cells);
            num.acc = c.take<double>(cells);
            overflow |= !mul3(static_cast<size_t>(nAll), static_cast<size_t>(W), static_cast<size_t>(nE), &cells);
            num.J = c.take<double>(cells);
            if (withCov) {
                overflow |= !mul3(static_cast<size_t>(nAll), static_cast<size_t>(W), static_cast<size_t>(P), &cells);
                num.G = c.take<double>(cells);
                num.coefWork = c.matrix(nE, nR);
            }
        }
        if (withCov) w = c.take<double>(static_cast<size_t>(mFree > 0 ? mFree : 0));
    };
    KvArray<char> block;
    block.reset(static_cast<char *>(KvCarveBlock(layout)));
    if (!block.ok() || overflow || lay.overflow) return 0;

    Engine g{};
    lay.attach(g);
    g.coef = num.coefWork ? num.coefWork : m.coef;
    if (num.coefWork)
        for (int i = 0; i < nE; ++i)
            for (int j = 0; j < nR; ++j) num.coefWork[i][j] = m.coef[i][j];
    g.ids = &ids;
    g.identBase = identColumn - t1;
    if (!RegressorMapBuild(m.desc, nE, nR, lay.list, g.map)) return 0;
    setViews(g, [&](int j) { return m.reg[j]; });
    for (int a = 0; a < nAll; ++a) {
        double *row = g.rows.row[a];
        for (int t = -maxlag; t <= t2; ++t) row[t] = a < nE && t >= 0 && t < m.endogCols ? m.endog[a][t] : missing();
    }
    fillPreSample(g, m);

    ParamCov pc{m.coefCov, m.restriction, P, mFree, w};
    const ParamCov *pcp = withCov ? &pc : nullptr;
    if (se && nI == 0) errorVariance(g, m.omega, maxlag, W, ev, A, Mt, top, psi, acc);
    // Standard errors of the pass over s..e for the observations from..e; the horizon of t is
    // t - s + 1.
    auto standardErrors = [&](int s, int e, int from) {
        if (!se) return;
        if (nI > 0) {
            numericalVariance(g, m.omega, pcp, s, e, num, var);
            const int Wn = e - s + 1;
            for (int a = 0; a < nAll; ++a)
                for (int t = from; t <= e; ++t) se[a][t - t1] = std::sqrt(var[static_cast<size_t>(a) * Wn + (t - s)]);
            return;
        }
        for (int i = 0; i < nE; ++i)
            for (int t = from; t <= e; ++t) se[i][t - t1] = ev[static_cast<size_t>(t - s) * nE + i];
        if (pcp) paramVariance(g, pc, maxlag, s, e, from, ring, [&](int t, int i, double v) { se[i][t - t1] += v; });
        for (int i = 0; i < nE; ++i)
            for (int t = from; t <= e; ++t) se[i][t - t1] = std::sqrt(se[i][t - t1]);
    };

    if (!hstep) {
        g.pass(t1, t2);
        for (int t = t1; t <= t2; ++t) g.copyOut(t1, t, out);
        standardErrors(t1, t2, t1);
        return 1;
    }
    // h-step: the actual values are saved, the first h observations are dynamic forecasts from
    // t1, and each later target e is forecast from the actual data up to e - h. Only the values
    // the previous pass wrote (e - h .. e - 1) differ from the saved ones, so only those and e are
    // restored: the same as restoring t1..e every time.
    for (int a = 0; a < nAll; ++a)
        for (int t = t1; t <= t2; ++t) saved[static_cast<size_t>(a) * N + (t - t1)] = g.rows.row[a][t];
    const int first = t1 + horizon - 1 < t2 ? t1 + horizon - 1 : t2;
    g.pass(t1, first);
    for (int t = t1; t <= first; ++t) g.copyOut(t1, t, out);
    standardErrors(t1, first, t1);
    for (int e = first + 1; e <= t2; ++e) {
        for (int a = 0; a < nAll; ++a)
            for (int t = e - horizon > t1 ? e - horizon : t1; t <= e; ++t)
                g.rows.row[a][t] = saved[static_cast<size_t>(a) * N + (t - t1)];
        g.pass(e - horizon + 1, e);
        g.copyOut(t1, e, out);
        standardErrors(e - horizon + 1, e, e);
    }
    return 1;
}

int ImpulseRun(const ForecastModel &m, int nModelled, int t1, int t2, int shock, int kind, const double *vector,
               MATRIX out) {
    const int nE = m.nEndog, nR = m.nReg;
    if (nE < 1 || nR < 0 || t1 < 0 || t2 < t1 || t2 == INT_MAX || !m.coef) return 0;
    if (nModelled < 1 || nModelled > nE || shock < 0 || shock >= nModelled) return 0;
    if (kind < IMPULSE_UNIT || kind > IMPULSE_VECTOR) return 0;
    if ((kind == IMPULSE_SD || kind == IMPULSE_CHOLESKY) && (!m.omega || m.omegaDim != nModelled)) return 0;
    if (kind == IMPULSE_VECTOR && !vector) return 0;
    const int maxlag = maxLagOf(m.desc, nE + nR);
    if (maxlag < 0) return 0;

    Layout lay{nE, 0, nR, maxlag, t2};
    double *zero = nullptr, *impulse = nullptr;
    MATRIX chol = nullptr;
    auto layout = [&](KvCarve &c) {
        lay.carve(c);
        zero = c.take<double>(static_cast<size_t>(t2) + 1);
        impulse = c.take<double>(static_cast<size_t>(nModelled));
        if (kind == IMPULSE_CHOLESKY) chol = c.matrix(nModelled, nModelled);
    };
    KvArray<char> block;
    block.reset(static_cast<char *>(KvCarveBlock(layout)));
    if (!block.ok() || lay.overflow) return 0;

    Engine g{};
    lay.attach(g);
    g.coef = m.coef;
    if (!RegressorMapBuild(m.desc, nE, nR, lay.list, g.map)) return 0;
    for (int t = 0; t <= t2; ++t) zero[t] = 0.0;
    setViews(g, [&](int) { return zero; });
    for (int a = 0; a < nE; ++a)
        for (int t = -maxlag; t <= t2; ++t) g.rows.row[a][t] = 0.0;

    for (int i = 0; i < nModelled; ++i) impulse[i] = 0.0;
    switch (kind) {
    case IMPULSE_UNIT: impulse[shock] = 1.0; break;
    case IMPULSE_SD: impulse[shock] = std::sqrt(m.omega[shock][shock]); break;
    case IMPULSE_CHOLESKY:
        for (int i = 0; i < nModelled; ++i)
            for (int j = 0; j < nModelled; ++j) chol[i][j] = m.omega[i][j];
        if (!MatCholesky(chol, nModelled)) return 0;
        for (int i = 0; i < nModelled; ++i) impulse[i] = chol[i][shock];
        break;
    default:
        for (int i = 0; i < nModelled; ++i) impulse[i] = vector[i];
    }
    for (int i = 0; i < nModelled; ++i) g.rows.row[i][t1] = impulse[i];
    g.pass(t1 + 1, t2);
    for (int t = t1; t <= t2 && t < m.endogCols; ++t) g.copyOut(t1, t, out);
    return 1;
}
