// kavrel garch: maximum likelihood of a GARCH(p, q) or EGARCH(p, q) model with a constant mean
// and normal errors, each likelihood evaluation one run of the library's GarchVariance or
// EgarchVariance. Standard errors from the inverse of the numerical Hessian of the
// log-likelihood, and robust (sandwich) ones H^-1 (sum_t s_t s_t') H^-1 from the observations'
// numerical scores (Bollerslev and Wooldridge 1992).
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "command.h"
#include "commands.h"
#include "database/database.h"
#include "dataset.h"
#include "estimate.h"
#include "estimators/garch.h"
#include "matrix/cholesky.h"
#include "numeric/optimize.h"
#include "options.h"

namespace {

const OptionRule kOptions[] = {
    {"--data", "FILE", "the data file"},
    {"--y", "R", "the returns"},
    {"--p", "P", "lagged variances (default 1)"},
    {"--q", "Q", "lagged squared residuals, or news terms for EGARCH (default 1)"},
    {"--egarch", nullptr, "Nelson's EGARCH in place of GARCH"},
    {"--in-mean", "KIND", "a variance term in the mean: h, sqrt or log"},
    {"--out", "FILE", "the conditional variances and residuals as CSV"},
    {"--json", nullptr, "print the results as one JSON object"},
    {"--help", nullptr, "this text"},
};
constexpr int kOptionCount = sizeof kOptions / sizeof kOptions[0];

// The model: parameters mu, omega, then alpha_1..q (EGARCH: theta, a_1..q), beta_1..p, and delta
// with an in-mean term.
struct GarchModel {
    const Vec *y = nullptr;
    int p = 1, q = 1, inMean = 0;
    bool egarch = false;
    int count() const { return 2 + (egarch ? 1 : 0) + q + p + (inMean ? 1 : 0); }
    // The recursion's inputs and outputs, kept across evaluations so that an evaluation allocates
    // nothing once they have their size.
    mutable Vec resid, intercept, coef, hv, uv;
    // With analytic scores: the last point, its log-likelihood and gradient (the optimiser asks
    // for the value and then the gradient at one point; one recursion serves both).
    Vec lastB, lastGradient;
    double lastLoglik = 0.0;
    bool lastOk = false;
    // Scratch of the analytic evaluation, kept so that an evaluation allocates nothing.
    Vec ll, h, u, e;
};

// The observations' log-likelihoods at b (and their variances h, residuals u); false where the
// model is not defined there.
bool observationLoglik(const GarchModel &m, const double *b, Vec *ll, Vec *hOut = nullptr, Vec *uOut = nullptr) {
    const int T = static_cast<int>(m.y->size());
    const double delta = m.inMean ? b[m.count() - 1] : 0.0;
    m.resid.resize(T), m.intercept.resize(T), m.hv.resize(T), m.uv.resize(T);
    for (int t = 0; t < T; ++t) m.resid[t] = (*m.y)[t] - b[0], m.intercept[t] = b[1];
    const bool logVariance = m.egarch;
    if (m.egarch) {
        // g(z) = (|z| - E|z|) + theta z: the news coefficient of |z| is 1, its scale is in a_i.
        if (!EgarchVariance(m.resid.data(), m.intercept.data(), T, b[2], 1.0, std::sqrt(2.0 / M_PI), b + 3, m.q,
                            b + 3 + m.q, m.p, m.inMean, delta, m.hv.data(), m.uv.data()))
            return false;
    } else {
        const int mx = m.p > m.q ? m.p : m.q;
        m.coef.assign(1 + mx + m.p, 0.0);
        for (int i = 1; i <= mx; ++i) m.coef[i] = (i <= m.q ? b[1 + i] : 0.0) + (i <= m.p ? b[1 + m.q + i] : 0.0);
        for (int j = 1; j <= m.p; ++j) m.coef[mx + j] = b[1 + m.q + j];
        if (GarchVariance(m.resid.data(), m.intercept.data(), T, m.coef.data(), m.p, m.q, m.inMean, delta, 0.0, 0.0,
                          m.hv.data(), m.uv.data()) != 1)
            return false;
    }
    const double *h = m.hv.data(), *u = m.uv.data();
    if (hOut) hOut->assign(h, h + T);
    if (uOut) uOut->assign(u, u + T);
    ll->resize(T);
    const double log2pi = std::log(2.0 * M_PI);
    for (int t = 0; t < T; ++t) {
        const double logh = logVariance ? h[t] : std::log(h[t]), var = logVariance ? std::exp(logh) : h[t];
        (*ll)[t] = -0.5 * (log2pi + logh + u[t] * u[t] / var);
        if (!std::isfinite((*ll)[t])) return false;
    }
    return true;
}

// GARCH without an in-mean term: the scores of every observation, from the variances the recursion
// computed and the derivatives of its recursion, carried alongside (Fiorentini, Calzolari and
// Panattoni 1996): with e_t = y_t - mu and the pre-sample value s = mean of e_t^2 standing for
// every unavailable lag,
//   dh_t = d omega + sum_i [dalpha_i e^2_{t-i} + alpha_i d(e^2_{t-i})] + sum_j [dbeta_j h_{t-j} + beta_j dh_{t-j}],
//   dl_t = -(1/h_t - e_t^2/h_t^2) dh_t / 2 + [mu] e_t / h_t.
// scores[j][t] = dl_t / db_j (when scores is not null), gradient their sums. False where the
// model is not defined.
bool garchScores(GarchModel &m, const double *b, std::vector<Vec> *scores, double *gradient, double *total = nullptr) {
    Vec &ll = m.ll, &h = m.h, &u = m.u, &e = m.e;
    if (!observationLoglik(m, b, &ll, &h, &u)) return false;
    if (total) {
        *total = 0.0;
        for (double v : ll) *total += v;
    }
    const int T = static_cast<int>(ll.size()), n = m.count(), p = m.p, q = m.q;
    e.resize(T);
    double s = 0.0, meanE = 0.0;
    for (int t = 0; t < T; ++t) e[t] = (*m.y)[t] - b[0], s += e[t] * e[t] / T, meanE += e[t] / T;
    Vec ds(n, 0.0);
    ds[0] = -2.0 * meanE;
    // dh_t / db_j of the last p + 1 observations, in a ring: row t mod (p + 1).
    const int ring = p + 1;
    Vec dh(static_cast<size_t>(ring) * n, 0.0);
    if (scores) scores->assign(n, Vec(T, 0.0));
    for (int j = 0; j < n; ++j) gradient[j] = 0.0;
    for (int t = 0; t < T; ++t) {
        double *d = &dh[static_cast<size_t>(t % ring) * n];
        for (int j = 0; j < n; ++j) d[j] = 0.0;
        d[1] = 1.0;
        for (int i = 1; i <= q; ++i) {
            const double alpha = b[1 + i];
            const bool in = t - i >= 0;
            if (in) { // d(e^2_{t-i}) is -2 e_{t-i} in mu and nothing else
                d[1 + i] += e[t - i] * e[t - i];
                d[0] -= 2.0 * alpha * e[t - i];
            } else {
                d[1 + i] += s;
                for (int j = 0; j < n; ++j) d[j] += alpha * ds[j];
            }
        }
        for (int k = 1; k <= p; ++k) {
            const double beta = b[1 + q + k];
            const bool in = t - k >= 0;
            d[1 + q + k] += in ? h[t - k] : s;
            const double *before = in ? &dh[static_cast<size_t>((t - k) % ring) * n] : ds.data();
            for (int j = 0; j < n; ++j) d[j] += beta * before[j];
        }
        const double inv = 1.0 / h[t], w = -0.5 * inv * (1.0 - e[t] * e[t] * inv);
        for (int j = 0; j < n; ++j) {
            const double score = w * d[j] + (j == 0 ? e[t] * inv : 0.0);
            gradient[j] += score;
            if (scores) (*scores)[j][t] = score;
        }
    }
    return true;
}

// The analytic evaluation at b, kept in the model.
bool analyticAt(GarchModel &m, const double *b, int n) {
    if (static_cast<int>(m.lastB.size()) == n && std::equal(m.lastB.begin(), m.lastB.end(), b)) return m.lastOk;
    m.lastB.assign(b, b + n), m.lastGradient.assign(n, 0.0);
    m.lastOk = garchScores(m, b, nullptr, m.lastGradient.data(), &m.lastLoglik);
    return m.lastOk;
}

int loglikGradient(void *ctx, const double *b, int n, double *g) {
    auto &m = *static_cast<GarchModel *>(ctx);
    if (!analyticAt(m, b, n)) return 0;
    std::copy(m.lastGradient.begin(), m.lastGradient.end(), g);
    return 1;
}

double analyticLoglik(void *ctx, const double *b, int n) {
    auto &m = *static_cast<GarchModel *>(ctx);
    return analyticAt(m, b, n) ? m.lastLoglik : NAN;
}

double loglik(void *ctx, const double *b, int) {
    Vec ll;
    if (!observationLoglik(*static_cast<GarchModel *>(ctx), b, &ll)) return NAN;
    double s = 0.0;
    for (double v : ll) s += v;
    return s;
}

struct Matrix {
    int n;
    std::vector<double> a;
    std::vector<double *> rows;
    explicit Matrix(int size) : n(size), a(static_cast<size_t>(size) * size, 0.0) {
        for (int i = 0; i < n; ++i) rows.push_back(&a[static_cast<size_t>(i) * n]);
    }
    double *operator[](int i) { return rows[i]; }
};

} // namespace

bool EstimateGarch(const Columns &data, const GarchOptions &o, Report *report, std::string *error) {
    const Vec &y = data.data[0];
    const int T = data.nobs();
    GarchModel m;
    m.y = &y, m.p = o.p, m.q = o.q, m.inMean = o.inMean, m.egarch = o.egarch;
    const int n = m.count();
    if (o.p < 0 || o.q < 0 || (o.egarch ? o.q + o.p < 1 : o.q < 1) || T <= 2 * n) {
        *error = "bad orders, or too few observations (" + std::to_string(T) + ")";
        return false;
    }
    // Start: the sample mean and a persistent variance (alpha 0.05, beta 0.9 split over the lags).
    double mean = 0.0, var = 0.0;
    for (double v : y) mean += v / T;
    for (double v : y) var += (v - mean) * (v - mean) / T;
    Vec b(n, 0.0);
    b[0] = mean;
    if (o.egarch) {
        b[1] = std::log(var) * (1.0 - 0.9), b[2] = 0.0;
        for (int i = 0; i < o.q; ++i) b[3 + i] = 0.1 / o.q;
        for (int j = 0; j < o.p; ++j) b[3 + o.q + j] = 0.9 / o.p;
    } else {
        b[1] = var * 0.05;
        for (int i = 0; i < o.q; ++i) b[2 + i] = 0.05 / o.q;
        for (int j = 0; j < o.p; ++j) b[2 + o.q + j] = 0.9 / o.p;
    }
    // Analytic scores for plain GARCH; differences of the likelihood otherwise.
    const bool analytic = !o.egarch && !o.inMean;
    const OptProblem problem{&m, analytic ? analyticLoglik : loglik, analytic ? loglikGradient : nullptr, nullptr};
    OptSettings s = CommandSettings();
    s.gradientTol = 1e-9;
    OptResult res{};
    const int status = OptMaximizeBfgs(problem, b.data(), n, s, &res);
    ProgressDone(s);
    if (status == OPT_FAILED) {
        *error = "the likelihood cannot be evaluated at the starting values";
        return false;
    }
    // Standard errors: the inverse of minus the Hessian, and the sandwich with the outer product
    // of the observations' scores (central differences of the per-observation log-likelihoods).
    Matrix H(n), Hinv(n), G(n);
    const bool hessian = OptNumericalHessian(problem, b.data(), n, H.rows.data()) == 1;
    for (int i = 0; i < n; ++i)
        for (int j = 0; j < n; ++j) Hinv[i][j] = -H[i][j];
    const bool invertible = hessian && MatInvertSpd(Hinv.rows.data(), n) == 1;
    std::vector<Vec> scores(n);
    Vec gradient(n);
    bool scored = invertible && (!analytic || garchScores(m, b.data(), &scores, gradient.data()));
    for (int j = 0; j < n && scored && !analytic; ++j) {
        Vec up, down, bj = b;
        const double h = std::cbrt(2.2e-16) * std::fmax(std::fabs(b[j]), 1e-3);
        bj[j] = b[j] + h;
        scored = observationLoglik(m, bj.data(), &up);
        bj[j] = b[j] - h;
        scored = scored && observationLoglik(m, bj.data(), &down);
        if (scored) {
            scores[j].resize(T);
            for (int t = 0; t < T; ++t) scores[j][t] = (up[t] - down[t]) / (2.0 * h);
        }
    }
    for (int i = 0; i < n && scored; ++i)
        for (int j = 0; j < n; ++j) {
            double s2 = 0.0;
            for (int t = 0; t < T; ++t) s2 += scores[i][t] * scores[j][t];
            G[i][j] = s2;
        }
    Vec robust(n, NAN);
    for (int i = 0; i < n && scored; ++i) {
        double v = 0.0;
        for (int a = 0; a < n; ++a)
            for (int c = 0; c < n; ++c) v += Hinv[i][a] * G[a][c] * Hinv[c][i];
        robust[i] = std::sqrt(v);
    }
    report->title = std::string(o.egarch ? "EGARCH(" : "GARCH(") + std::to_string(o.p) + "," + std::to_string(o.q) +
                    ") of " + data.names[0] + ", constant mean, normal errors";
    report->names = {"mu", "omega"};
    if (o.egarch) report->names.push_back("theta");
    for (int i = 1; i <= o.q; ++i) report->names.push_back((o.egarch ? "a" : "alpha") + std::to_string(i));
    for (int j = 1; j <= o.p; ++j) report->names.push_back((o.egarch ? "b" : "beta") + std::to_string(j));
    if (o.inMean) report->names.push_back("delta");
    report->coef = b, report->se.assign(n, NAN);
    for (int i = 0; i < n && invertible; ++i) report->se[i] = std::sqrt(Hinv[i][i]);
    report->loglik = res.value, report->nobs = T, report->residualDf = 0;
    report->converged = status == OPT_CONVERGED;
    report->json = {"\"robust_std_errors\": " + JsonArray(robust), "\"iterations\": " + std::to_string(res.iterations)};
    std::string line = "Robust standard errors:";
    for (int i = 0; i < n; ++i) {
        char buf[64];
        std::snprintf(buf, sizeof buf, " %s %.6g", report->names[i].c_str(), robust[i]);
        line += buf;
    }
    report->lines = {line};
    Vec ll, h, u;
    if (observationLoglik(m, b.data(), &ll, &h, &u)) {
        if (o.egarch)
            for (double &v : h) v = std::exp(v);
        report->seriesNames = {"variance", "residual"}, report->series = {h, u};
    }
    return true;
}

int RunGarchCommand(int argc, char **argv) {
    const CommandInfo command{"garch",
                              "--data FILE --y R [--p P --q Q] [--egarch] [--in-mean h|sqrt|log] [--out FILE] [--json]",
                              kOptions,
                              kOptionCount,
                              {"--data", "--y"}};
    return RunEstimationCommand(
        command, argc, argv,
        [](const ParsedOptions &opt, const Database *, const Columns &data, Report *r, std::string *error) {
            GarchOptions o;
            o.p = std::atoi(opt.get("--p", "1").c_str()), o.q = std::atoi(opt.get("--q", "1").c_str());
            o.egarch = opt.has("--egarch");
            const std::string kind = opt.get("--in-mean");
            o.inMean = kind.empty() ? 0 : kind == "h" ? 1 : kind == "sqrt" ? 2 : kind == "log" ? 3 : -1;
            if (o.inMean < 0) {
                *error = "bad --in-mean " + kind + " (h, sqrt or log)";
                return false;
            }
            return EstimateGarch(data, o, r, error);
        });
}
