// Probit and multinomial logit likelihoods with their derivatives, and the actual-versus-fitted
// table. One pass over the observations in order; per observation only O(k) or O(k^2) work over
// contiguous rows, and all scratch is made before the loop. The information matrices are the
// expected (Fisher) information, not the negative Hessian: for the probit (Amemiya 1981, eq. 3.8)
// sum w phi^2 / (P (1 - P)) x x'; for the logit (McFadden 1974) the weighted sum over
// observations of the covariance, under p_i, of the per-category design vectors. The
// log-likelihood is summed with Neumaier's compensation in the same observation order.
#include "estimators/discrete.h"

#include <cmath>

#include "base/alloc.h"
#include "base/sums.h"
#include "matrix/matrix.h"
#include "special/distributions.h"

namespace {

void zeroVector(double *v, int k) {
    for (int j = 0; j < k; ++j) v[j] = 0.0;
}

// Copies the lower triangle into the upper one.
void mirrorLower(MATRIX a, int k) {
    for (int j = 0; j < k; ++j)
        for (int l = 0; l < j; ++l) a[l][j] = a[j][l];
}

// a += s s' over all k x k elements.
void addOuter(MATRIX a, const double *s, int k) {
    for (int j = 0; j < k; ++j) {
        double *row = a[j];
        double sj = s[j];
        for (int l = 0; l < k; ++l) row[l] += sj * s[l];
    }
}

// a += c x x' over the lower triangle.
void addLowerOuter(MATRIX a, double c, const double *x, int k) {
    for (int j = 0; j < k; ++j) {
        double *row = a[j];
        const double cj = c * x[j];
        for (int l = 0; l <= j; ++l) row[l] += cj * x[l];
    }
}

// The probit's probabilities and density at eta. P0 is defined as 1 - P1 and only P0 is clamped:
// with P1 rounded to 1 the y = 0 term stays finite at log 2^-104, while P1 = 0 gives
// log P1 = -inf for y = 1.
struct ProbitPoint {
    double p0, p1, phi;
};

ProbitPoint probitPoint(double eta) {
    ProbitPoint q;
    q.p1 = DistNormalP(eta);
    q.p0 = 1.0 - q.p1;
    if (q.p0 < kDiscreteProbFloor) q.p0 = kDiscreteProbFloor;
    if (q.p0 > 1.0) q.p0 = 1.0;
    q.phi = std::exp(-0.5 * eta * eta) * 0.3989422804014327;
    return q;
}

} // namespace

double ProbitEval(const double *beta, int k, const double *y, MATRIX X, int n, const double *w,
                  const DiscreteOutputs &out) {
    if (out.score) zeroVector(out.score, k);
    if (out.info) MatZero(out.info, k, k);
    if (out.outer) MatZero(out.outer, k, k);
    // The per-observation score is kept only for the outer product; without its scratch the
    // outer product is skipped and stays zero.
    KvArray<double> obsScore;
    MATRIX outer = out.outer && obsScore.alloc(static_cast<size_t>(k)) ? out.outer : nullptr;
    double *si = obsScore.get();

    KvCompensatedSum llf;
    for (int i = 0; i < n; ++i) {
        const double *xi = X[i];
        const ProbitPoint q = probitPoint(KvDot(beta, xi, k));
        if (out.prob) {
            out.prob[i][0] = q.p0;
            out.prob[i][1] = q.p1;
        }
        const double code = std::trunc(y[i]);
        if (!(code == 0.0 || code == 1.0)) {
            if (out.llfObs) MissingValue(&out.llfObs[i]);
            continue;
        }
        const double wi = w ? w[i] : 1.0;
        const double li = wi * std::log(code == 1.0 ? q.p1 : q.p0);
        llf.add(li);
        if (out.llfObs) out.llfObs[i] = li;
        if (out.score || outer) {
            // d l_i / d beta = w (y - P1) phi / (P0 P1) x_i
            const double c = (code - q.p1) * q.phi * wi / (q.p0 * q.p1);
            if (out.score)
                for (int j = 0; j < k; ++j) out.score[j] += c * xi[j];
            if (outer) {
                for (int j = 0; j < k; ++j) si[j] = c * xi[j];
                addOuter(outer, si, k);
            }
        }
        if (out.info) addLowerOuter(out.info, q.phi * q.phi * wi / (q.p1 * q.p0), xi, k);
    }
    if (out.info) mirrorLower(out.info, k);
    return llf.value();
}

namespace {

// The shape of a logit problem, derived once per evaluation.
struct LogitShape {
    int n, m, kx, na, k, xa; // na attributes with generic coefficients; xa = index of the first
    bool grouped;
};

// Category probabilities of observation i into p (m values). Utilities v_ij = offset + x_i'beta_j
// (j >= 1) + sum_a z_iaj gamma_a, shifted by M = max(0, v_ij): the running maximum starts at 0.0,
// so a row of utilities all below about -745 underflows to 0/0 and yields NaN probabilities.
// Clamped to [floor, 1], not renormalised.
void logitProbabilities(const LogitProblem &pb, const LogitShape &sh, int i, double *p) {
    const double *xi = sh.kx > 0 ? pb.X[i] : nullptr;
    const double *zi = sh.na > 0 ? pb.Z[i] : nullptr;
    const double *battr = pb.beta + sh.xa;
    double shift = 0.0;
    for (int j = 0; j < sh.m; ++j) {
        double v = pb.offset && j < pb.ocols ? pb.offset[i][j] : 0.0;
        if (j >= 1 && sh.kx > 0) v += KvDot(xi, pb.beta + (j - 1) * sh.kx, sh.kx);
        for (int a = 0; a < sh.na; ++a) v += zi[a * sh.m + j] * battr[a];
        p[j] = v;
        if (v > shift) shift = v;
    }
    double total = 0.0;
    for (int j = 0; j < sh.m; ++j) {
        p[j] = std::exp(p[j] - shift);
        total += p[j];
    }
    for (int j = 0; j < sh.m; ++j) {
        double pj = p[j] / total;
        if (pj < kDiscreteProbFloor) pj = kDiscreteProbFloor;
        if (pj > 1.0) pj = 1.0;
        p[j] = pj;
    }
}

// The outcome of observation i: a valid code (*code, one trial) or a row of finite non-negative
// counts (*trials their sum); false when it is neither.
bool logitOutcome(const LogitProblem &pb, const LogitShape &sh, int i, int *code, double *trials) {
    const double *yi = pb.y[i];
    *code = -1;
    *trials = 1.0;
    if (!sh.grouped) {
        const double c = std::trunc(yi[0]);
        if (!(c >= 0.0 && c < sh.m)) return false;
        *code = static_cast<int>(c);
        return true;
    }
    *trials = 0.0;
    bool valid = true;
    for (int j = 0; j < sh.m; ++j) {
        if (!(yi[j] >= 0.0 && yi[j] < HUGE_VAL)) valid = false;
        *trials += yi[j];
    }
    return valid;
}

// The score of observation i added into s: s_i = -w sum_j d_ij D_ij, d_ij = N_i p_ij - y_ij
// (N_i = 1 and y_ij = 1{j = y_i} for codes), D_ij the design vector of category j.
void logitScore(const LogitProblem &pb, const LogitShape &sh, int i, const double *p, int code, double trials,
                double wi, double *s) {
    const double *xi = sh.kx > 0 ? pb.X[i] : nullptr;
    const double *zi = sh.na > 0 ? pb.Z[i] : nullptr;
    const double *yi = pb.y[i];
    for (int j = 1; j < sh.m; ++j) {
        const double d = sh.grouped ? trials * p[j] - yi[j] : p[j] - (j == code ? 1.0 : 0.0);
        const double c = -wi * d;
        double *sj = s + (j - 1) * sh.kx;
        for (int l = 0; l < sh.kx; ++l) sj[l] += c * xi[l];
    }
    for (int a = 0; a < sh.na; ++a) {
        double acc = 0.0;
        for (int j = 0; j < sh.m; ++j) {
            const double d = sh.grouped ? trials * p[j] - yi[j] : p[j] - (j == code ? 1.0 : 0.0);
            acc += zi[a * sh.m + j] * d;
        }
        s[sh.xa + a] += -wi * acc;
    }
}

// The information of observation i (lower triangle) added into info, scaled by w_i N_i: the
// covariance under p_i of the category design vectors. zbar: na values of scratch.
void logitInformation(const LogitProblem &pb, const LogitShape &sh, int i, const double *p, double scale, double *zbar,
                      MATRIX info) {
    const int m = sh.m, kx = sh.kx, na = sh.na, xa = sh.xa;
    const double *xi = kx > 0 ? pb.X[i] : nullptr;
    const double *zi = na > 0 ? pb.Z[i] : nullptr;
    // x-blocks: Cov(1{j} x, 1{h} x) = (1{j = h} p_j - p_j p_h) x x'.
    for (int j = 1; j < m; ++j)
        for (int h = 1; h <= j; ++h) {
            const double c = scale * (h == j ? p[j] * (1.0 - p[j]) : -p[j] * p[h]);
            for (int l = 0; l < kx; ++l) {
                double *row = info[(j - 1) * kx + l] + (h - 1) * kx;
                const double cl = c * xi[l];
                const int rmax = h == j ? l : kx - 1;
                for (int r = 0; r <= rmax; ++r) row[r] += cl * xi[r];
            }
        }
    if (na == 0) return;
    for (int a = 0; a < na; ++a) {
        double s = 0.0;
        for (int j = 0; j < m; ++j) s += p[j] * zi[a * m + j];
        zbar[a] = s;
    }
    for (int a = 0; a < na; ++a) {
        double *row = info[xa + a];
        // Attribute against x-block h: Cov(z_a, 1{h} x) = p_h (z_ah - zbar_a) x.
        for (int h = 1; h < m; ++h) {
            const double c = scale * p[h] * (zi[a * m + h] - zbar[a]);
            double *blk = row + (h - 1) * kx;
            for (int r = 0; r < kx; ++r) blk[r] += c * xi[r];
        }
        // Attribute against attribute, in the centred form (exact when the probabilities sum to
        // one, and free of cancellation).
        for (int b = 0; b <= a; ++b) {
            double s = 0.0;
            for (int j = 0; j < m; ++j) s += p[j] * (zi[a * m + j] - zbar[a]) * (zi[b * m + j] - zbar[b]);
            row[xa + b] += scale * s;
        }
    }
}

// The log-likelihood of observation i with a valid outcome: w log p of its category, or for counts
// w sum_j y_ij log p_ij over the categories that occur.
double logitObservationLlf(const LogitProblem &pb, const LogitShape &sh, int i, const double *p, int code, double wi) {
    if (!sh.grouped) return wi * std::log(p[code]);
    double s = 0.0;
    for (int j = 0; j < sh.m; ++j)
        if (pb.y[i][j] != 0.0) s += pb.y[i][j] * std::log(p[j]);
    return wi * s;
}

LogitShape logitShape(const LogitProblem &pb) {
    LogitShape sh;
    sh.n = pb.n;
    sh.m = pb.m;
    sh.kx = pb.kx;
    sh.na = pb.kz / pb.m;
    sh.k = static_cast<int>(LogitParamCount(pb.m, pb.kx, pb.kz));
    sh.xa = (pb.m - 1) * pb.kx;
    sh.grouped = pb.ycols > 1;
    return sh;
}

} // namespace

long LogitParamCount(int m, int kx, int kz) {
    if (m < 1 || kx < 0 || kz < 0) return -1;
    long long k = static_cast<long long>(m - 1) * kx + kz / m;
    if (k > 0x3FFFFFFF) return -1;
    return static_cast<long>(k);
}

int LogitEval(const LogitProblem &pb, const DiscreteOutputs &out, double *llfOut) {
    // The shape divides by m: counts the export would refuse are refused here too.
    if (LogitParamCount(pb.m, pb.kx, pb.kz) < 0) return 0;
    const LogitShape sh = logitShape(pb);
    const int k = sh.k;

    // One block of scratch: probabilities (m); attribute means under p_i (na) for the
    // information; the per-observation score (k) for the outer product only.
    const size_t need = static_cast<size_t>(sh.m) + (out.info ? sh.na : 0) + (out.outer ? k : 0);
    KvArray<double> scratch(need);
    if (!scratch.ok()) return 0;
    double *p = scratch.get();
    double *zbar = p + sh.m;
    double *si = zbar + (out.info ? sh.na : 0);

    if (out.score) zeroVector(out.score, k);
    if (out.info) MatZero(out.info, k, k);
    if (out.outer) MatZero(out.outer, k, k);

    KvCompensatedSum llf;
    for (int i = 0; i < sh.n; ++i) {
        logitProbabilities(pb, sh, i, p);
        if (out.prob)
            for (int j = 0; j < sh.m; ++j) out.prob[i][j] = p[j];
        int code;
        double trials;
        if (!logitOutcome(pb, sh, i, &code, &trials)) {
            if (out.llfObs) MissingValue(&out.llfObs[i]);
            continue;
        }
        const double wi = pb.w ? pb.w[i] : 1.0;
        const double li = logitObservationLlf(pb, sh, i, p, code, wi);
        llf.add(li);
        if (out.llfObs) out.llfObs[i] = li;
        if (out.outer) {
            zeroVector(si, k);
            logitScore(pb, sh, i, p, code, trials, wi, si);
            if (out.score)
                for (int j = 0; j < k; ++j) out.score[j] += si[j];
            addOuter(out.outer, si, k);
        } else if (out.score) {
            logitScore(pb, sh, i, p, code, trials, wi, out.score);
        }
        if (out.info) logitInformation(pb, sh, i, p, wi * trials, zbar, out.info);
    }
    if (out.info) mirrorLower(out.info, k);
    *llfOut = llf.value();
    return 1;
}

int LogitProbDerivEval(const double *beta, MATRIX X, int kx, int m, int first, int last, MATRIX D) {
    LogitProblem pb{};
    pb.n = last + 1;
    pb.m = m;
    pb.beta = beta;
    pb.ycols = 1;
    pb.X = X;
    pb.kx = kx;
    const LogitShape sh = logitShape(pb);
    // Probabilities (m), the probability-weighted coefficients (kx), and the carries of the
    // compensated averages (m kx): averages over a million observations keep their digits.
    const size_t mkx = static_cast<size_t>(m) * static_cast<size_t>(kx);
    KvArray<double> scratch(static_cast<size_t>(m) + static_cast<size_t>(kx) + mkx);
    if (!scratch.ok()) return 0;
    double *p = scratch.get(), *bbar = p + m, *carry = bbar + kx;
    MatZero(D, m, kx);
    for (size_t e = 0; e < mkx; ++e) carry[e] = 0.0;
    for (int i = first; i <= last; ++i) {
        logitProbabilities(pb, sh, i, p);
        for (int l = 0; l < kx; ++l) bbar[l] = 0.0;
        for (int h = 1; h < m; ++h) {
            const double *bh = beta + (h - 1) * kx;
            for (int l = 0; l < kx; ++l) bbar[l] += p[h] * bh[l];
        }
        for (int j = 0; j < m; ++j) {
            double *row = D[j], *cj = carry + static_cast<size_t>(j) * kx;
            const double *bj = j > 0 ? beta + (j - 1) * kx : nullptr;
            for (int l = 0; l < kx; ++l) {
                const double v = p[j] * ((bj ? bj[l] : 0.0) - bbar[l]);
                // Neumaier's step, as in KvCompensatedSum, over a row of sums at once.
                const double t = row[l] + v;
                cj[l] += std::fabs(row[l]) >= std::fabs(v) ? (row[l] - t) + v : (v - t) + row[l];
                row[l] = t;
            }
        }
    }
    const double count = static_cast<double>(last - first + 1);
    for (int j = 0; j < m; ++j)
        for (int l = 0; l < kx; ++l) D[j][l] = (D[j][l] + carry[static_cast<size_t>(j) * kx + l]) / count;
    return 1;
}

void ActFitTableEval(MATRIX actual, int acols, MATRIX fitted, int n, int m, MATRIX table) {
    MatZero(table, m + 1, m + 1);
    for (int i = 0; i < n; ++i) {
        // Largest fitted probability, first on ties; non-positive values never win.
        const double *fi = fitted[i];
        double best = 0.0;
        int pred = 0;
        for (int j = 0; j < m; ++j)
            if (fi[j] > best) {
                best = fi[j];
                pred = j;
            }
        if (best == 0.0) continue;
        const double *ai = actual[i];
        if (acols == 1) {
            double c = std::trunc(ai[0]);
            if (c >= 0.0 && c < m) table[static_cast<int>(c)][pred] += 1.0;
        } else {
            for (int j = 0; j < m; ++j) table[j][pred] += ai[j];
        }
    }
    // Totals of the cells truncated toward zero: fractional weights show in the cells only.
    double corner = 0.0;
    for (int j = 0; j < m; ++j) {
        double row = 0.0, col = 0.0;
        for (int l = 0; l < m; ++l) {
            row += std::trunc(table[j][l]);
            col += std::trunc(table[l][j]);
        }
        table[j][m] = row;
        table[m][j] = col;
        corner += col;
    }
    table[m][m] = corner;
}
