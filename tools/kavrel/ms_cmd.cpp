// kavrel ms: a Markov-switching model of mean and variance (Hamilton 1989),
//     y_t = mu(s_t) + phi_1 y_{t-1} + ... + phi_p y_{t-p} + sigma(s_t) e_t,   e_t ~ N(0, 1),
// with a first-order chain over M regimes, by maximum likelihood: each evaluation computes the
// regime densities and lets the library's MsFilter filter them; the smoothed probabilities come
// from MsSmooth. Parameters are unconstrained in the optimiser (log sigma, and each column of the
// column-stochastic transition matrix P[j][i] = Pr(s_{t+1} = j | s_t = i) as a softmax with the
// staying logit fixed at 0); the chain starts from its ergodic distribution.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "command.h"
#include "commands.h"
#include "database/database.h"
#include "dataset.h"
#include "estimate.h"
#include "estimators/markov.h"
#include "matrix/cholesky.h"
#include "numeric/optimize.h"
#include "options.h"
#include "plot.h"

namespace {

const OptionRule kOptions[] = {
    {"--data", "FILE", "the data file"},
    {"--y", "Y", "the series"},
    {"--regimes", "M", "number of regimes (default 2)"},
    {"--ar", "P", "autoregressive terms (default 0)"},
    {"--plot", "FILE", "the smoothed regime probabilities (.png or .svg)"},
    {"--out", "FILE", "the smoothed regime probabilities as CSV"},
    {"--json", nullptr, "print the results as one JSON object"},
    {"--help", nullptr, "this text"},
};
constexpr int kOptionCount = sizeof kOptions / sizeof kOptions[0];

// Parameters: mu_1..M, log sigma_1..M, phi_1..p, then for each column i the M - 1 logits of the
// moves to j != i.
struct MsModel {
    const Vec *y;
    int M, p;
    int count() const { return 2 * M + p + M * (M - 1); }
};

void transition(const MsModel &m, const double *b, Vec *P) {
    const int M = m.M;
    P->assign(static_cast<size_t>(M) * M, 0.0);
    const double *c = b + 2 * M + m.p;
    for (int i = 0; i < M; ++i) {
        double sum = 1.0; // exp(0) for staying
        for (int j = 0, k = 0; j < M; ++j)
            if (j != i) sum += std::exp(c[i * (M - 1) + k++]);
        for (int j = 0, k = 0; j < M; ++j)
            (*P)[static_cast<size_t>(j) * M + i] = (j == i ? 1.0 : std::exp(c[i * (M - 1) + k++])) / sum;
    }
}

// The ergodic distribution: pi = P pi, sum pi = 1, by power iteration (P is positive).
Vec ergodic(const Vec &P, int M) {
    Vec pi(M, 1.0 / M), next(M);
    for (int it = 0; it < 10000; ++it) {
        double change = 0.0;
        for (int j = 0; j < M; ++j) {
            next[j] = 0.0;
            for (int i = 0; i < M; ++i) next[j] += P[static_cast<size_t>(j) * M + i] * pi[i];
        }
        for (int j = 0; j < M; ++j) change = std::fmax(change, std::fabs(next[j] - pi[j])), pi[j] = next[j];
        if (change < 1e-15) break;
    }
    return pi;
}

// The filter at b: the likelihood contributions (and the filtered probabilities when asked).
bool filter(const MsModel &m, const double *b, Vec *contributions, Vec *filtered) {
    const int M = m.M, p = m.p, T = static_cast<int>(m.y->size()) - p;
    const Vec &y = *m.y;
    Vec dens(static_cast<size_t>(T) * M), P;
    for (int t = 0; t < T; ++t) {
        double ar = 0.0;
        for (int i = 1; i <= p; ++i) ar += b[2 * M + i - 1] * y[p + t - i];
        for (int j = 0; j < M; ++j) {
            const double sigma = std::exp(b[M + j]), z = (y[p + t] - b[j] - ar) / sigma;
            dens[static_cast<size_t>(t) * M + j] = std::exp(-0.5 * z * z) / (sigma * std::sqrt(2.0 * M_PI));
        }
    }
    transition(m, b, &P);
    Vec init = ergodic(P, M);
    contributions->assign(T, 0.0);
    if (filtered) filtered->assign(static_cast<size_t>(T) * M, 0.0);
    RowView F(filtered ? filtered->data() : nullptr, filtered ? T : 0, M);
    if (MsFilter(RowView(dens, T, M), T, M, RowView(P, M, M), init.data(), contributions->data(),
                 filtered ? static_cast<MATRIX>(F) : nullptr) != 1)
        return false;
    return static_cast<int>(contributions->size()) == T;
}

double loglik(void *ctx, const double *b, int) {
    Vec f;
    if (!filter(*static_cast<MsModel *>(ctx), b, &f, nullptr)) return NAN;
    double ll = 0.0;
    for (double v : f) ll += std::log(v);
    return ll;
}

} // namespace

bool EstimateMs(const Columns &data, int M, int p, MsResults *out, std::string *error) {
    const Vec &y = data.data[0];
    const int T = data.nobs();
    MsModel m{&y, M, p};
    const int n = m.count();
    if (M < 2 || M > 5 || p < 0 || T - p <= 3 * n) {
        *error = "bad --regimes or --ar, or too few observations (" + std::to_string(T) + ")";
        return false;
    }
    // Start: means at quantiles of the data, a common sigma, no AR, persistent regimes (0.9).
    Vec sorted(y.begin() + p, y.end());
    std::sort(sorted.begin(), sorted.end());
    double mean = 0.0, var = 0.0;
    for (double v : sorted) mean += v / sorted.size();
    for (double v : sorted) var += (v - mean) * (v - mean) / sorted.size();
    Vec b(n, 0.0);
    for (int j = 0; j < M; ++j) {
        b[j] = sorted[static_cast<size_t>((j + 0.5) / M * sorted.size())];
        b[M + j] = 0.5 * std::log(var / M);
    }
    for (int k = 0; k < M * (M - 1); ++k) b[2 * M + p + k] = std::log(0.1 / (M - 1) / 0.9);
    const OptProblem problem{&m, loglik, nullptr, nullptr};
    OptResult res{};
    const OptSettings settings = CommandSettings();
    const int status = OptMaximizeBfgs(problem, b.data(), n, settings, &res);
    ProgressDone(settings);
    if (status == OPT_FAILED) {
        *error = "the likelihood cannot be evaluated at the starting values";
        return false;
    }
    std::vector<double> h(static_cast<size_t>(n) * n);
    std::vector<double *> rows;
    for (int i = 0; i < n; ++i) rows.push_back(&h[static_cast<size_t>(i) * n]);
    bool invertible = OptNumericalHessian(problem, b.data(), n, rows.data()) == 1;
    for (int i = 0; i < n && invertible; ++i)
        for (int j = 0; j < n; ++j) rows[i][j] = -rows[i][j];
    invertible = invertible && MatInvertSpd(rows.data(), n) == 1;
    Report &r = out->report;
    r.names.clear(), r.coef.clear(), r.se.clear();
    for (int j = 0; j < M; ++j) {
        r.names.push_back("mu(" + std::to_string(j + 1) + ")");
        r.coef.push_back(b[j]), r.se.push_back(invertible ? std::sqrt(rows[j][j]) : NAN);
    }
    for (int j = 0; j < M; ++j) { // sigma = exp(log sigma): delta method
        const double s = std::exp(b[M + j]);
        r.names.push_back("sigma(" + std::to_string(j + 1) + ")");
        r.coef.push_back(s), r.se.push_back(invertible ? s * std::sqrt(rows[M + j][M + j]) : NAN);
    }
    for (int i = 0; i < p; ++i) {
        r.names.push_back("ar" + std::to_string(i + 1));
        r.coef.push_back(b[2 * M + i]), r.se.push_back(invertible ? std::sqrt(rows[2 * M + i][2 * M + i]) : NAN);
    }
    transition(m, b.data(), &out->P);
    out->M = M, out->p = p;
    r.lines = {"\nTransition probabilities Pr(next = row | now = column), expected durations:"};
    std::string json = "\"transition\": [";
    for (int j = 0; j < M; ++j) {
        std::string line = "  ";
        Vec row;
        for (int i = 0; i < M; ++i) {
            char buf[32];
            std::snprintf(buf, sizeof buf, "%10.4f", out->P[static_cast<size_t>(j) * M + i]);
            line += buf, row.push_back(out->P[static_cast<size_t>(j) * M + i]);
        }
        r.lines.push_back(line);
        json += (j ? ", " : "") + JsonArray(row);
    }
    Vec durations;
    std::string line = "  durations:";
    for (int i = 0; i < M; ++i) {
        durations.push_back(1.0 / (1.0 - out->P[static_cast<size_t>(i) * M + i]));
        char buf[32];
        std::snprintf(buf, sizeof buf, " %.2f", durations.back());
        line += buf;
    }
    r.lines.push_back(line);
    r.json = {json + "]", "\"durations\": " + JsonArray(durations)};
    r.loglik = res.value, r.nobs = T - p, r.residualDf = 0, r.converged = status == OPT_CONVERGED;
    r.title = "Markov-switching mean and variance of " + data.names[0] + ", " + std::to_string(M) + " regimes" +
              (p ? ", AR(" + std::to_string(p) + ")" : "");
    // Smoothed probabilities (Kim 1994) from the filtered ones.
    Vec contributions, filtered;
    out->smoothed.clear();
    if (filter(m, b.data(), &contributions, &filtered)) {
        Vec smoothed(static_cast<size_t>(T - p) * M), trans(static_cast<size_t>(M) * M);
        if (MsSmooth(RowView(filtered, T - p, M), T - p, M, RowView(out->P, M, M), MS_SMOOTH_JOINT,
                     RowView(smoothed, T - p, M), RowView(trans, M, M)) == 1)
            out->smoothed = smoothed;
    }
    r.seriesFirst = p;
    for (int j = 0; j < M && static_cast<int>(out->smoothed.size()) == (T - p) * M; ++j) {
        Vec prob(T - p);
        for (int t = 0; t < T - p; ++t) prob[t] = out->smoothed[static_cast<size_t>(t) * M + j];
        r.seriesNames.push_back("regime" + std::to_string(j + 1)), r.series.push_back(prob);
    }
    return true;
}

bool PlotMs(const std::string &path, const MsResults &r, const Columns &data, const std::vector<std::string> &periods,
            std::string *error) {
    const int T = data.nobs() - r.p, M = r.M;
    std::vector<PlotGraph> graphs{
        {data.names[0], {{data.names[0], Vec(data.data[0].begin() + r.p, data.data[0].end())}}}};
    for (int j = 0; j < M && static_cast<int>(r.smoothed.size()) == T * M; ++j) {
        Vec prob(T);
        for (int t = 0; t < T; ++t) prob[t] = r.smoothed[static_cast<size_t>(t) * M + j];
        graphs.push_back(
            {"Smoothed probability of regime " + std::to_string(j + 1), {{"regime " + std::to_string(j + 1), prob}}});
    }
    return PlotPanel(path, r.report.title, periods, graphs, error);
}

int RunMsCommand(int argc, char **argv) {
    MsResults res; // filled by the estimation, used by what follows it
    const CommandInfo command{"ms",
                              "--data FILE --y Y [--regimes M] [--ar P] [--plot FILE] [--out FILE] [--json]",
                              kOptions,
                              kOptionCount,
                              {"--data", "--y"}};
    return RunEstimationCommand(
        command, argc, argv,
        [&res](const ParsedOptions &opt, const Database *db, const Columns &data, Report *r, std::string *error) {
            const int M = std::atoi(opt.get("--regimes", "2").c_str()), p = std::atoi(opt.get("--ar", "0").c_str());
            if (!EstimateMs(data, M, p, &res, error)) return false;
            res.report.sample = PeriodText(db, data.first + p) + " - " + PeriodText(db, data.last);
            *r = res.report;
            return true;
        },
        [&res](const ParsedOptions &opt, const Database *db, const Columns &data, std::string *error) {
            if (!opt.has("--plot")) return true;
            const std::vector<std::string> periods = PeriodTexts(db, data.first + res.p, data.last);
            return PlotMs(opt.get("--plot"), res, data, periods, error);
        });
}
