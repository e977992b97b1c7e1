// The estimations behind the commands, apart from their option handling so that the tests and the
// Python module run them: each takes the selected data, calls the library's routines and its
// optimisers directly (no host records: rls, garch, probit, logit, ms and count), or the exports
// as a host program does (nls, var), and fills a report and the series the command writes or
// plots.
#ifndef KAVREL_TOOLS_ESTIMATE_H
#define KAVREL_TOOLS_ESTIMATE_H

#include <string>
#include <vector>

#include "dataset.h"
#include "report.h"

// Recursive least squares of data.names[0] on the others (and a constant): the full-sample
// regression in the report, and per observation the coefficients and their standard errors
// sigma(t) sqrt(P(t)jj), the innovations and sigma(t) = sqrt(RSS(t) / (t + 1 - k)), the one-step
// Chow statistic (RSS(t) - RSS(t-1)) / (RSS(t-1) / (t - k)) and the break-point statistic
// ((RSS(T-1) - RSS(t-1)) / (T - t)) / (RSS(t-1) / (t - k)), each divided by its F distribution's
// 1% critical value (t counts from 0; missing where undefined).
struct RlsResults {
    Report report;
    std::vector<std::string> names;
    int k = 0, T = 0;
    std::vector<Vec> coef, se;
    Vec innovation, sigma, chow1, chowN;
};
bool EstimateRls(const Columns &data, bool constant, RlsResults *out, std::string *error);
bool WriteRlsCsv(const std::string &path, const RlsResults &r, const std::vector<std::string> &periods,
                 std::string *error);
bool PlotRls(const std::string &path, const RlsResults &r, const std::vector<std::string> &periods, std::string *error);

// Nonlinear least squares of yName on a model written in Algebra (parameters &0, &1, ... with
// starting values, fitted values assigned to the variable fitted) over the variables of db,
// through the estimation bridge; Levenberg-Marquardt, standard errors from the Gauss-Newton
// covariance. The sample: the observations where y and the starting fit are present.
bool EstimateNls(const Database *db, const std::string &model, const std::string &yName, const std::string &fitted,
                 Report *report, std::string *error);

// Maximum likelihood of GARCH(p, q) (or EGARCH) with a constant mean and normal errors on
// data.names[0]; with inMean 1, 2 or 3 a term delta h, delta sqrt(h) or delta log h in the mean.
struct GarchOptions {
    int p = 1, q = 1, inMean = 0;
    bool egarch = false;
};
bool EstimateGarch(const Columns &data, const GarchOptions &o, Report *report, std::string *error);

// Binary probit (logit false) or binary or multinomial logit of data.names[0] (codes 0, 1, ...,
// category 0 the base) on the others and a constant, by Newton's method on the exports' score and
// information; the report adds the actual-versus-fitted table.
bool EstimateDiscrete(const Columns &data, bool logit, bool constant, Report *report, std::string *error);

// A Markov-switching model of mean and variance with p AR terms over M regimes on
// data.names[0], by maximum likelihood through FnFilterMS; P the estimated column-stochastic
// transition matrix (M x M, row-major), smoothed the (T - p) x M smoothed probabilities.
struct MsResults {
    Report report;
    int M = 0, p = 0;
    Vec P, smoothed;
};
bool EstimateMs(const Columns &data, int M, int p, MsResults *out, std::string *error);
// The series and the smoothed probability of each regime, one graph each.
bool PlotMs(const std::string &path, const MsResults &r, const Columns &data, const std::vector<std::string> &periods,
            std::string *error);

// A VAR(L) with a constant by least squares (B: n x k, the regressors y(-1) of every variable,
// then y(-2), ..., then the constant; omega the residual covariance over Te - k), dynamic
// forecasts of H periods beyond the sample with standard errors (n x H each, row-major), and
// the responses to a one-standard-deviation orthogonalised shock in each variable (impulse[s]:
// n x H).
struct VarResults {
    Report report;
    int n = 0, L = 0, k = 0, H = 0;
    Vec B, omega, forecast, forecastSe;
    std::vector<Vec> impulse;
};
bool EstimateVar(const Columns &data, int L, int H, VarResults *out, std::string *error);
bool PlotVar(const std::string &path, const VarResults &r, const Columns &data, const std::vector<std::string> &periods,
             std::string *error);

// Poisson or NB2 regression with a log link on data.names[0] (counts) by Newton's method on the
// score and observed information of FnCountRz; NB2 adds log(alpha) as the last parameter.
bool EstimateCount(const Columns &data, bool negbin, bool constant, Report *report, std::string *error);

#endif
