// kavrel var: a vector autoregression y_t = c + A_1 y_{t-1} + ... + A_L y_{t-L} + u_t by least
// squares (FnRlsEst, every equation on the same regressors), dynamic forecasts beyond the sample
// with their standard errors (FnDynForc) and impulse responses to orthogonalised (Cholesky)
// shocks (FnImpulse), plotted.
#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "command.h"
#include "commands.h"
#include "database/database.h"
#include "dataset.h"
#include "estimate.h"
#include "options.h"
#include "plot.h"

namespace {

const OptionRule kOptions[] = {
    {"--data", "FILE", "the data file"},
    {"--y", "Y1,Y2,...", "the variables of the system"},
    {"--lags", "L", "lags of every variable (default 2)"},
    {"--horizon", "H", "forecast and impulse-response horizon (default 12)"},
    {"--plot", "FILE", "the forecasts and impulse responses (.png or .svg)"},
    {"--json", nullptr, "print the results as one JSON object"},
    {"--help", nullptr, "this text"},
};
constexpr int kOptionCount = sizeof kOptions / sizeof kOptions[0];

// The arguments 0-13 the two exports share: the data, the descriptor (lag-0 entries of the n
// variables, then their lags l = 1..L in that order, then the constant), B and Omega. regCols
// columns of regressor data: the lags of the actual data where it has them, the constant 1.
void systemArguments(ToolCall &call, const Columns &data, const VarResults &r, int regCols, bool zeros) {
    const int n = r.n, L = r.L, k = r.k, T = data.nobs();
    Vec endog(static_cast<size_t>(n) * T), reg(static_cast<size_t>(k) * regCols, 0.0);
    for (int v = 0; v < n; ++v)
        for (int t = 0; t < T; ++t) endog[static_cast<size_t>(v) * T + t] = zeros ? 0.0 : data.data[v][t];
    for (int l = 1; l <= L; ++l)
        for (int v = 0; v < n; ++v) {
            double *row = &reg[static_cast<size_t>((l - 1) * n + v) * regCols];
            for (int c = 0; c < regCols; ++c)
                row[c] = zeros ? 0.0 : c - l >= 0 && c - l < T ? data.data[v][c - l] : NAN;
        }
    for (int c = 0; c < regCols; ++c) reg[static_cast<size_t>(k - 1) * regCols + c] = zeros ? 0.0 : 1.0;
    Vec var, status, lag;
    for (int v = 0; v < n; ++v) var.push_back(v), status.push_back(1), lag.push_back(0);
    for (int l = 1; l <= L; ++l)
        for (int v = 0; v < n; ++v) var.push_back(v), status.push_back(1), lag.push_back(l);
    var.push_back(n), status.push_back(0), lag.push_back(0);
    call.mat(0, n, T, endog).mat(1, k, regCols, reg);
    call.num(5, 1).num(6, 1).mat(7, 1, n + k, var).mat(8, 1, n + k, status).mat(9, 1, n + k, lag);
    call.mat(10, n, k, r.B).mat(11, n, n, r.omega).num(12, 0).num(13, 0);
}

} // namespace

bool EstimateVar(const Columns &data, int L, int H, VarResults *out, std::string *error) {
    const int n = static_cast<int>(data.names.size()), T = data.nobs(), k = n * L + 1, Te = T - L;
    if (L < 1 || H < 1 || Te <= k + 1) {
        *error = "bad --lags or --horizon, or too few observations (" + std::to_string(T) + ")";
        return false;
    }
    out->n = n, out->L = L, out->k = k, out->H = H;
    // Least squares of every equation on the lags and the constant, through the recursion's last step.
    Vec Y(static_cast<size_t>(Te) * n), X(static_cast<size_t>(Te) * k);
    for (int t = 0; t < Te; ++t) {
        for (int v = 0; v < n; ++v) Y[static_cast<size_t>(t) * n + v] = data.data[v][L + t];
        for (int l = 1; l <= L; ++l)
            for (int v = 0; v < n; ++v) X[static_cast<size_t>(t) * k + (l - 1) * n + v] = data.data[v][L + t - l];
        X[static_cast<size_t>(t) * k + k - 1] = 1.0;
    }
    ToolCall rls;
    rls.mat(0, Te, n, Y).mat(1, Te, k, X).num(2, 0).num(3, Te - 1).num(4, -1);
    rls.ref(5).ref(6).num(7, 0).num(8, 0).num(9, 0).num(10, 0).num(11, 0);
    if (!rls.invoke(FnRlsEst) || !rls.resultIsInt() || rls.resultInt() != 1) {
        *error = "the least-squares fit failed";
        return false;
    }
    const Vec coef = rls.out(5), pdiag = rls.out(6);
    out->B.assign(static_cast<size_t>(n) * k, 0.0);
    for (int e = 0; e < n; ++e)
        for (int j = 0; j < k; ++j)
            out->B[static_cast<size_t>(e) * k + j] = coef[(static_cast<size_t>(e) * k + j) * Te + Te - 1];
    out->omega.assign(static_cast<size_t>(n) * n, 0.0);
    for (int t = 0; t < Te; ++t) {
        Vec u(n);
        for (int e = 0; e < n; ++e) {
            double fit = 0.0;
            for (int j = 0; j < k; ++j)
                fit += out->B[static_cast<size_t>(e) * k + j] * X[static_cast<size_t>(t) * k + j];
            u[e] = Y[static_cast<size_t>(t) * n + e] - fit;
        }
        for (int a = 0; a < n; ++a)
            for (int b = 0; b < n; ++b) out->omega[static_cast<size_t>(a) * n + b] += u[a] * u[b] / (Te - k);
    }
    Report &r = out->report;
    r.names.clear(), r.coef.clear(), r.se.clear();
    for (int e = 0; e < n; ++e)
        for (int j = 0; j < k; ++j) {
            const std::string regressor =
                j == k - 1 ? "Constant" : data.names[j % n] + "(-" + std::to_string(j / n + 1) + ")";
            r.names.push_back(data.names[e] + ": " + regressor);
            r.coef.push_back(out->B[static_cast<size_t>(e) * k + j]);
            r.se.push_back(
                std::sqrt(out->omega[static_cast<size_t>(e) * n + e] * pdiag[static_cast<size_t>(j) * Te + Te - 1]));
        }
    r.nobs = Te, r.residualDf = Te - k;
    r.title = "VAR(" + std::to_string(L) + ") of " + std::to_string(n) + " variables by least squares";
    // Dynamic forecasts of T .. T + H - 1 with their standard errors.
    ToolCall forecast;
    systemArguments(forecast, data, *out, T + H, false);
    forecast.num(2, T).num(3, T + H - 1).num(4, 0).num(14, 0).num(15, 0).ref(16).num(17, 0).num(18, 0);
    if (!forecast.invoke(FnDynForc) || forecast.values().size() != static_cast<size_t>(n) * H) {
        *error = "the forecasts failed";
        return false;
    }
    out->forecast = forecast.values(), out->forecastSe = forecast.out(16);
    // Responses to a one-standard-deviation orthogonalised shock in each variable.
    out->impulse.assign(n, Vec());
    for (int s = 0; s < n; ++s) {
        ToolCall impulse;
        systemArguments(impulse, data, *out, L + H, true);
        impulse.num(2, L).num(3, L + H - 1).num(4, 1).num(14, s).num(15, 2);
        if (!impulse.invoke(FnImpulse) || impulse.values().size() != static_cast<size_t>(n) * H) {
            *error = "the impulse responses failed";
            return false;
        }
        out->impulse[s] = impulse.values();
    }
    r.lines = {"\nForecasts (standard errors):"};
    for (int h = 0; h < H; ++h) {
        std::string line = "  h=" + std::to_string(h + 1);
        for (int v = 0; v < n; ++v) {
            char buf[64];
            std::snprintf(buf, sizeof buf, "  %s %.6g (%.4g)", data.names[v].c_str(),
                          out->forecast[static_cast<size_t>(v) * H + h],
                          out->forecastSe[static_cast<size_t>(v) * H + h]);
            line += buf;
        }
        r.lines.push_back(line);
    }
    r.json = {"\"forecasts\": " + JsonArray(out->forecast), "\"forecast_std_errors\": " + JsonArray(out->forecastSe)};
    return true;
}

bool PlotVar(const std::string &path, const VarResults &r, const Columns &data, const std::vector<std::string> &periods,
             std::string *error) {
    const int n = r.n, H = r.H, T = data.nobs(), shown = T < 40 ? T : 40;
    std::vector<std::string> axis(periods.end() - shown, periods.end());
    for (int h = 1; h <= H; ++h) axis.push_back("+" + std::to_string(h));
    std::vector<PlotGraph> graphs;
    for (int v = 0; v < n; ++v) {
        Vec actual(shown + H, NAN), fc(shown + H, NAN), up(shown + H, NAN), down(shown + H, NAN);
        for (int t = 0; t < shown; ++t) actual[t] = data.data[v][T - shown + t];
        fc[shown - 1] = up[shown - 1] = down[shown - 1] = actual[shown - 1];
        for (int h = 0; h < H; ++h) {
            const double f = r.forecast[static_cast<size_t>(v) * H + h],
                         s = r.forecastSe[static_cast<size_t>(v) * H + h];
            fc[shown + h] = f, up[shown + h] = f + 2.0 * s, down[shown + h] = f - 2.0 * s;
        }
        graphs.push_back({"Forecasts of " + data.names[v] + " (+-2 se)",
                          {{data.names[v], actual}, {"forecast", fc}, {"+2 se", up, true}, {"-2 se", down, true}}});
    }
    if (!PlotPanel(path, "VAR forecasts", axis, graphs, error)) return false;
    // The responses: one graph per variable, one line per shock.
    std::vector<std::string> steps;
    for (int h = 0; h < H; ++h) steps.push_back(std::to_string(h));
    std::vector<PlotGraph> responses;
    for (int v = 0; v < n; ++v) {
        PlotGraph g{"Responses of " + data.names[v], {}};
        for (int s = 0; s < n; ++s)
            g.series.push_back({"shock to " + data.names[s], Vec(r.impulse[s].begin() + static_cast<long>(v) * H,
                                                                 r.impulse[s].begin() + static_cast<long>(v + 1) * H)});
        responses.push_back(g);
    }
    const size_t dot = path.rfind('.');
    const std::string irf = (dot == std::string::npos ? path : path.substr(0, dot)) + "-responses" +
                            (dot == std::string::npos ? ".png" : path.substr(dot));
    return PlotPanel(irf, "Impulse responses to orthogonalised shocks", steps, responses, error);
}

int RunVarCommand(int argc, char **argv) {
    VarResults res; // filled by the estimation, used by what follows it
    const CommandInfo command{"var",
                              "--data FILE --y Y1,Y2,... [--lags L] [--horizon H] [--plot FILE] [--json]",
                              kOptions,
                              kOptionCount,
                              {"--data", "--y"}};
    return RunEstimationCommand(
        command, argc, argv,
        [&res](const ParsedOptions &opt, const Database *db, const Columns &data, Report *r, std::string *error) {
            const int L = std::atoi(opt.get("--lags", "2").c_str()), H = std::atoi(opt.get("--horizon", "12").c_str());
            if (!EstimateVar(data, L, H, &res, error)) return false;
            res.report.sample = PeriodText(db, data.first + L) + " - " + PeriodText(db, data.last);
            *r = res.report;
            return true;
        },
        [&res](const ParsedOptions &opt, const Database *db, const Columns &data, std::string *error) {
            if (!opt.has("--plot")) return true;
            const std::vector<std::string> periods = PeriodTexts(db, data.first, data.last);
            return PlotVar(opt.get("--plot"), res, data, periods, error);
        });
}
