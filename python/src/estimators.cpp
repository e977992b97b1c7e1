// The estimators and filters of src/estimators over numpy arrays: every argument is checked here
// (shapes, counts, ranges) before the routine sees it, since the routines trust their callers.
// Routines that lay observations out in columns (rls) return transposed views of their outputs,
// observations in rows, without a copy.
#include <climits>
#include <cmath>
#include <string>

#include "arrays.h"
#include "estimators/count.h"
#include "estimators/discrete.h"
#include "estimators/forecast.h"
#include "estimators/garch.h"
#include "estimators/longrun.h"
#include "estimators/markov.h"
#include "estimators/rls.h"
#include "estimators/seasonal.h"
#include "matrix/matrix.h"

using namespace py::literals;

namespace {

const double kNan = std::nan("");

// The inclusive observation range of n observations: last < 0 means the last one.
void observationRange(int n, int *first, int *last) {
    if (*last < 0) *last = n - 1;
    if (*first < 0 || *first > *last || *last >= n)
        BadValue("first/last", "the range " + std::to_string(*first) + ".." + std::to_string(*last) +
                                   " is not within 0.." + std::to_string(n - 1));
}

void checkSquare(const ArrayIn &a, const char *name, int n) {
    if (a.rows != n || a.cols != n)
        BadValue(name, std::to_string(n) + " x " + std::to_string(n) + " expected, got " + std::to_string(a.rows) +
                           " x " + std::to_string(a.cols));
}

py::dict rls(py::handle yObj, py::handle xObj, int first, int last, int force) {
    ArrayIn Y = ArrayInput(yObj, "y"), X = ArrayInput(xObj, "X");
    if (X.rows != Y.rows) BadValue("X", "has " + std::to_string(X.rows) + " rows, y " + std::to_string(Y.rows));
    const int n = Y.cols, k = X.cols;
    if (n < 1 || k < 1) BadValue("X", "y and X need at least one column each");
    observationRange(Y.rows, &first, &last);
    if (last - first + 1 < k) BadValue("first/last", "fewer observations than regressors");
    if (static_cast<long long>(n) * k > INT_MAX) BadValue("X", "too many coefficients");
    const int T = last + 1;
    ArrayOut coef = ArrayOutput(n * k, T, kNan), pdiag = ArrayOutput(k, T, kNan), stdinnov = ArrayOutput(n, T, kNan),
             innov = ArrayOutput(n, T, kNan), rss = ArrayOutput(n, T, kNan), resid = ArrayOutput(n, T, kNan),
             sysstat = ArrayOutput(1, T, kNan);
    if (!WithoutGil([&] {
            return RlsRecursion(Y.matrix(), X.matrix(), first, last, force, n, k, coef.matrix(), pdiag.matrix(),
                                stdinnov.matrix(), innov.matrix(), rss.matrix(), resid.matrix(), sysstat.matrix());
        }))
        throw KavrelFailure("the recursive estimation failed (a singular start or no memory)");
    auto t = [](ArrayOut &a) { return a.array.attr("T"); };
    return py::dict("coef"_a = t(coef), "pdiag"_a = t(pdiag), "std_innov"_a = t(stdinnov), "innov"_a = t(innov),
                    "rss"_a = t(rss), "resid"_a = t(resid), "sysstat"_a = sysstat.array[py::int_(0)]);
}

ArrayIn intercept(py::handle x, int T) {
    if (py::isinstance<py::float_>(x) || py::isinstance<py::int_>(x)) {
        ArrayOut c = ArrayOutput(T, -1, x.cast<double>());
        return VectorInput(c.array, "x", T);
    }
    return VectorInput(x, "x", T);
}

py::tuple garchVariance(py::handle eObj, py::handle xObj, py::handle coefObj, int p, int q, int inMean, double delta,
                        double kappa, double gamma) {
    ArrayIn e = VectorInput(eObj, "e");
    const int T = e.rows;
    if (T < 1) BadValue("e", "no observations");
    ArrayIn x = intercept(xObj, T);
    CheckedInt(p, "p", 0, 10000), CheckedInt(q, "q", 0, 10000);
    ArrayIn coef = VectorInput(coefObj, "coef");
    const long long need = 1LL + (p > q ? p : q) + p;
    if (coef.rows < need) BadValue("coef", std::to_string(need) + " values needed (coef[0] unused)");
    ArrayOut h = ArrayOutput(T, -1, 0.0), u = ArrayOutput(T, -1, 0.0);
    if (!WithoutGil([&] {
            return GarchVariance(e.data(), x.data(), T, coef.data(), p, q, inMean, delta, kappa, gamma, h.data(),
                                 u.data());
        }))
        throw KavrelFailure("the GARCH recursion could not allocate its scratch");
    return py::make_tuple(h.array, u.array);
}

py::tuple egarchVariance(py::handle eObj, py::handle xObj, double theta, double phi, double nu, py::handle aObj,
                         py::handle bObj, int inMean, double delta) {
    ArrayIn e = VectorInput(eObj, "e");
    const int T = e.rows;
    if (T < 1) BadValue("e", "no observations");
    ArrayIn x = intercept(xObj, T), a = VectorInput(aObj, "a"), b = VectorInput(bObj, "b");
    ArrayOut logh = ArrayOutput(T, -1, 0.0), u = ArrayOutput(T, -1, 0.0);
    if (!WithoutGil([&] {
            return EgarchVariance(e.data(), x.data(), T, theta, phi, nu, a.rows ? a.data() : nullptr, a.rows,
                                  b.rows ? b.data() : nullptr, b.rows, inMean, delta, logh.data(), u.data());
        }))
        throw KavrelFailure("the EGARCH recursion could not allocate its scratch");
    return py::make_tuple(logh.array, u.array);
}

// The outputs every discrete-choice and count likelihood gives: score, information, fitted
// (probabilities or mean and variance), the observations' log-likelihoods and outer product.
struct LikelihoodOutputs {
    ArrayOut score, info, fitted, llfObs, outer;
    LikelihoodOutputs(int k, int n, int fittedCols)
        : score(ArrayOutput(k, -1, 0.0)), info(ArrayOutput(k, k, 0.0)), fitted(ArrayOutput(n, fittedCols, kNan)),
          llfObs(ArrayOutput(n, -1, kNan)), outer(ArrayOutput(k, k, 0.0)) {}
    py::dict dict(double llf, const char *fittedName) {
        py::dict d("llf"_a = llf, "score"_a = score.array, "info"_a = info.array, "llf_obs"_a = llfObs.array,
                   "outer"_a = outer.array);
        d[fittedName] = fitted.array;
        return d;
    }
};

py::dict probit(py::handle betaObj, py::handle yObj, py::handle xObj, py::handle wObj) {
    ArrayIn X = ArrayInput(xObj, "X");
    const int n = X.rows, k = X.cols;
    ArrayIn beta = VectorInput(betaObj, "beta", k), y = VectorInput(yObj, "y", n);
    ArrayIn w = IsNone(wObj) ? ArrayIn() : VectorInput(wObj, "weights", n);
    LikelihoodOutputs o(k, n, 2);
    const DiscreteOutputs out{o.score.data(), o.info.matrix(), o.fitted.matrix(), o.llfObs.data(), o.outer.matrix()};
    const double *weights = IsNone(wObj) ? nullptr : w.data();
    const double llf = WithoutGil([&] { return ProbitEval(beta.data(), k, y.data(), X.matrix(), n, weights, out); });
    return o.dict(llf, "prob");
}

py::dict logit(py::handle betaObj, py::handle yObj, int m, py::handle xObj, py::handle zObj, py::handle wObj,
               py::handle offObj) {
    ArrayIn y = ArrayInput(yObj, "y");
    LogitProblem pb{};
    pb.n = y.rows, pb.ycols = y.cols, pb.m = m;
    if (pb.ycols > 1 && pb.ycols < pb.m) BadValue("y", "a grouped outcome needs a column per category");
    if (pb.m < 1 || pb.m > 46340) BadValue("m", "the number of categories must be 1 or more");
    ArrayIn X, Z, w, off;
    if (!IsNone(xObj)) {
        X = ArrayInput(xObj, "X");
        if (X.rows != pb.n) BadValue("X", std::to_string(pb.n) + " rows expected");
        pb.X = X.cols ? X.matrix() : nullptr, pb.kx = X.cols;
    }
    if (!IsNone(zObj)) {
        Z = ArrayInput(zObj, "Z");
        if (Z.rows != pb.n) BadValue("Z", std::to_string(pb.n) + " rows expected");
        if (Z.cols % pb.m) BadValue("Z", "the attribute columns must be a multiple of m");
        pb.Z = Z.cols ? Z.matrix() : nullptr, pb.kz = Z.cols;
    }
    const long k = LogitParamCount(pb.m, pb.kx, pb.kz);
    if (k < 0 || k > INT_MAX) BadValue("X", "too many parameters");
    ArrayIn beta = VectorInput(betaObj, "beta", k);
    pb.beta = beta.data(), pb.y = y.matrix();
    if (!IsNone(wObj)) w = VectorInput(wObj, "weights", pb.n), pb.w = w.data();
    if (!IsNone(offObj)) {
        off = ArrayInput(offObj, "offset");
        if (off.rows != pb.n) BadValue("offset", std::to_string(pb.n) + " rows expected");
        pb.offset = off.matrix(), pb.ocols = off.cols < pb.m ? off.cols : pb.m;
    }
    if (static_cast<long long>(pb.n) * pb.m > 0x3FFFFFFF) BadValue("y", "too many observations x categories");
    LikelihoodOutputs o(static_cast<int>(k), pb.n, pb.m);
    const DiscreteOutputs out{o.score.data(), o.info.matrix(), o.fitted.matrix(), o.llfObs.data(), o.outer.matrix()};
    double llf = kNan;
    if (!WithoutGil([&] { return LogitEval(pb, out, &llf); }))
        throw KavrelFailure("the logit could not allocate its scratch");
    return o.dict(llf, "prob");
}

py::array logitProbDeriv(py::handle betaObj, py::handle xObj, int m, int first, int last) {
    ArrayIn X = ArrayInput(xObj, "X");
    if (m < 1 || m > 46340) BadValue("m", "the number of categories must be 1 or more");
    const long k = LogitParamCount(m, X.cols, 0);
    if (k < 0 || k > INT_MAX) BadValue("X", "too many parameters");
    ArrayIn beta = VectorInput(betaObj, "beta", k);
    observationRange(X.rows, &first, &last);
    ArrayOut D = ArrayOutput(m, X.cols, kNan);
    if (!WithoutGil([&] { return LogitProbDerivEval(beta.data(), X.matrix(), X.cols, m, first, last, D.matrix()); }))
        throw KavrelFailure("the derivatives could not allocate their scratch");
    return D.array;
}

py::array actFitTable(py::handle actualObj, py::handle fittedObj) {
    ArrayIn actual = ArrayInput(actualObj, "actual"), fitted = ArrayInput(fittedObj, "fitted");
    const int n = fitted.rows, m = fitted.cols;
    if (m < 1 || m >= 46340) BadValue("fitted", "one column per category is needed");
    if (actual.rows != n) BadValue("actual", std::to_string(n) + " rows expected");
    if (!(actual.cols == 1 || actual.cols >= m)) BadValue("actual", "codes (1 column) or one column per category");
    ArrayOut table = ArrayOutput(m + 1, m + 1, 0.0);
    ActFitTableEval(actual.matrix(), actual.cols, fitted.matrix(), n, m, table.matrix());
    return table.array;
}

int countModel(const std::string &name) {
    if (name == "poisson") return COUNT_POISSON;
    if (name == "nb2") return COUNT_NB2;
    if (name == "nb2_fixed") return COUNT_NB2_FIXED;
    BadValue("model", "'" + name + "' is not one of poisson, nb2, nb2_fixed");
}

py::dict count(py::handle thetaObj, py::handle yObj, py::handle xObj, const std::string &modelName, double alpha,
               int first, int last) {
    const int model = countModel(modelName);
    ArrayIn X = ArrayInput(xObj, "X");
    const int n = X.rows, k = X.cols;
    if (k < 1) BadValue("X", "at least one regressor is needed");
    ArrayIn y = VectorInput(yObj, "y", n);
    const int p = CountParamCount(model, k);
    ArrayIn theta = VectorInput(thetaObj, "theta", p);
    observationRange(n, &first, &last);
    LikelihoodOutputs o(p, n, 2);
    const CountOutputs out{o.score.data(), o.info.matrix(), o.fitted.matrix(), o.llfObs.data(), o.outer.matrix()};
    const double llf =
        WithoutGil([&] { return CountEval(model, theta.data(), k, y.data(), X.matrix(), first, last, alpha, out); });
    return o.dict(llf, "fitted");
}

py::tuple msFilter(py::handle densObj, py::handle pObj, py::handle initObj) {
    ArrayIn dens = ArrayInput(densObj, "dens");
    const int T = dens.rows, m = dens.cols;
    if (T < 1 || m < 1) BadValue("dens", "no observations or no regimes");
    ArrayIn P = ArrayInput(pObj, "P"), init = VectorInput(initObj, "init", m);
    checkSquare(P, "P", m);
    ArrayOut lik = ArrayOutput(T, -1, kNan), filt = ArrayOutput(T, m, kNan);
    if (!WithoutGil([&] { return MsFilter(dens.matrix(), T, m, P.matrix(), init.data(), lik.data(), filt.matrix()); }))
        throw KavrelFailure("the filter could not allocate its scratch");
    return py::make_tuple(lik.array, filt.array);
}

py::tuple msSmooth(py::handle filtObj, py::handle pObj, const std::string &kindName) {
    const int kind = kindName == "joint"       ? MS_SMOOTH_JOINT
                     : kindName == "ratio"     ? MS_SMOOTH_RATIO
                     : kindName == "ratio_sym" ? MS_SMOOTH_RATIO_SYM
                                               : -1;
    if (kind < 0) BadValue("kind", "'" + kindName + "' is not one of joint, ratio, ratio_sym");
    ArrayIn filt = ArrayInput(filtObj, "filtered");
    const int T = filt.rows, m = filt.cols;
    if (T < 1 || m < 1) BadValue("filtered", "no observations or no regimes");
    ArrayIn P = ArrayInput(pObj, "P");
    checkSquare(P, "P", m);
    ArrayOut smooth = ArrayOutput(T, m, kNan), trans = ArrayOutput(m, m, 0.0);
    if (!WithoutGil([&] { return MsSmooth(filt.matrix(), T, m, P.matrix(), kind, smooth.matrix(), trans.matrix()); }))
        throw KavrelFailure("the smoother could not allocate its scratch");
    return py::make_tuple(smooth.array, trans.array);
}

py::array seasonalDemean(py::handle xObj, int s, bool inPlace) {
    if (s < 1) BadValue("s", "the number of seasons must be 1 or more");
    if (inPlace) {
        ArrayIn X = ArrayInput(xObj, "X", true);
        SeasonalDemean(X.matrix(), X.rows, X.cols, s);
        return X.array;
    }
    ArrayIn X = ArrayInput(xObj, "X");
    ArrayOut out = ArrayOutput(X.rows, X.array.ndim() == 1 ? -1 : X.cols, 0.0);
    std::copy(X.data(), X.data() + X.size(), out.data());
    SeasonalDemean(out.matrix(), X.rows, X.cols, s);
    return out.array;
}

py::tuple seasonalRsq(py::handle yObj, int s, double rss) {
    ArrayIn y = VectorInput(yObj, "y");
    if (s < 1) BadValue("s", "the number of seasons must be 1 or more");
    if (y.rows <= 2LL * s) BadValue("y", "more than 2 s observations are needed");
    ArrayOut means = ArrayOutput(s, -1, kNan);
    const double r2 = SeasonalRsq(y.data(), y.rows, s, rss, means.data());
    return py::make_tuple(r2, means.array);
}

py::array longRunCovariance(py::handle xObj, py::handle uObj, py::object lagObj) {
    ArrayIn X = ArrayInput(xObj, "X"), U = ArrayInput(uObj, "U");
    const int T = X.rows, k = X.cols, m = U.cols;
    if (U.rows < T) BadValue("U", "at least " + std::to_string(T) + " rows expected");
    if (k < 1 || m < 1 || T < 1) BadValue("X", "empty");
    if (static_cast<long long>(k) * m > 46340) BadValue("X", "too many scores");
    const int lag = lagObj.is_none() ? LongRunLag(T) : CheckedInt(lagObj.cast<long long>(), "lag", 0, T - 1);
    ArrayOut V = ArrayOutput(k * m, k * m, 0.0);
    if (!WithoutGil([&] { return LongRunScoreCovariance(X.matrix(), T, k, U.matrix(), m, lag, V.matrix()); }))
        throw KavrelFailure("the long-run covariance could not allocate its scratch");
    return V.array;
}

// The linear system of a forecast or impulse response, read and checked as the exports do.
struct SystemIn {
    ArrayIn endog, reg, variable, status, lag, coef, omega, coefCov;
    ForecastModel m{};
    SystemIn(py::handle endogObj, py::handle regObj, py::handle varObj, py::handle statusObj, py::handle lagObj,
             py::handle coefObj, py::handle omegaObj, int code1, int code2) {
        endog = ArrayInput(endogObj, "endog"), reg = ArrayInput(regObj, "reg");
        if (reg.array.ndim() == 1) reg.rows = 0, reg.cols = 0;
        m.endog = endog.matrix(), m.nEndog = endog.rows, m.endogCols = endog.cols;
        m.reg = reg.matrix(), m.nReg = reg.rows, m.regCols = reg.cols;
        if (m.nEndog < 1) BadValue("endog", "one row per modelled variable is needed");
        const long long entries = static_cast<long long>(m.nEndog) + m.nReg;
        variable = VectorInput(varObj, "variables", entries), status = VectorInput(statusObj, "status", entries);
        lag = VectorInput(lagObj, "lags", entries);
        m.desc = ForecastDescriptor{variable.data(), status.data(), lag.data(), code1, code2};
        coef = ArrayInput(coefObj, "coef");
        if (coef.rows != m.nEndog || coef.cols != m.nReg)
            BadValue("coef", std::to_string(m.nEndog) + " x " + std::to_string(m.nReg) + " expected");
        m.coef = coef.matrix();
        if (!IsNone(omegaObj)) {
            omega = ArrayInput(omegaObj, "omega");
            checkSquare(omega, "omega", omega.rows);
            m.omega = omega.matrix(), m.omegaDim = omega.rows;
        }
    }
};

py::object forecast(py::handle endog, py::handle reg, py::handle variables, py::handle status, py::handle lags,
                    py::handle coef, int t1, int t2, int horizon, py::handle omega, py::handle coefCov, int code1,
                    int code2, bool wantSe) {
    SystemIn s(endog, reg, variables, status, lags, coef, omega, code1, code2);
    if (t1 < 0 || t2 < t1 || t2 == INT_MAX || (s.m.nReg > 0 && t2 >= s.m.regCols))
        BadValue("t1/t2", "0 <= t1 <= t2 within the regressor data's columns is required");
    const int count = t2 - t1 + 1;
    if (horizon > count) BadValue("horizon", "beyond the forecast count");
    if (wantSe && s.m.omegaDim != s.m.nEndog) BadValue("omega", "standard errors need the error covariance");
    if (wantSe && !IsNone(coefCov)) {
        const long long P = static_cast<long long>(s.m.nEndog) * s.m.nReg;
        s.coefCov = ArrayInput(coefCov, "coef_cov");
        if (P > 46340 || s.coefCov.rows != P || s.coefCov.cols != P)
            BadValue("coef_cov", "the (n k) square covariance of the stacked coefficients is expected");
        s.m.coefCov = s.coefCov.matrix();
    }
    ArrayOut out = ArrayOutput(s.m.nEndog, count, kNan), se = ArrayOutput(wantSe ? s.m.nEndog : 0, count, kNan);
    const ForecastIdentities none{0, nullptr, nullptr};
    MATRIX seOut = wantSe ? se.matrix() : nullptr;
    if (!WithoutGil([&] { return ForecastRun(s.m, t1, t2, horizon, none, 0, out.matrix(), seOut); }))
        throw KavrelFailure("the forecast failed (an unmapped descriptor or no memory)");
    if (wantSe) return py::make_tuple(out.array, se.array);
    return out.array;
}

int impulseKind(const std::string &name) {
    if (name == "unit") return IMPULSE_UNIT;
    if (name == "sd") return IMPULSE_SD;
    if (name == "cholesky") return IMPULSE_CHOLESKY;
    if (name == "vector") return IMPULSE_VECTOR;
    BadValue("kind", "'" + name + "' is not one of unit, sd, cholesky, vector");
}

py::array impulse(py::handle endog, py::handle reg, py::handle variables, py::handle status, py::handle lags,
                  py::handle coef, int t1, int t2, int shock, const std::string &kindName, py::handle omega,
                  py::handle vectorObj, int code1, int code2) {
    const int kind = impulseKind(kindName);
    SystemIn s(endog, reg, variables, status, lags, coef, omega, code1, code2);
    if (t1 < 0 || t2 < t1 || t2 >= s.m.regCols) BadValue("t1/t2", "0 <= t1 <= t2 < the regressor data's columns");
    const int modelled = s.m.omegaDim > 0 ? s.m.omegaDim : s.m.nEndog;
    if (modelled > s.m.nEndog) BadValue("omega", "larger than the system");
    if (shock < 0 || shock >= modelled) BadValue("shock", "not one of the modelled equations");
    ArrayIn vector;
    if (kind == IMPULSE_VECTOR) vector = VectorInput(vectorObj, "vector", modelled);
    if ((kind == IMPULSE_SD || kind == IMPULSE_CHOLESKY) && s.m.omegaDim == 0)
        BadValue("omega", "this kind of shock needs the error covariance");
    ArrayOut out = ArrayOutput(s.m.nEndog, t2 - t1 + 1, kNan);
    const double *impulse = kind == IMPULSE_VECTOR ? vector.data() : nullptr;
    if (!WithoutGil([&] { return ImpulseRun(s.m, modelled, t1, t2, shock, kind, impulse, out.matrix()); }))
        throw KavrelFailure("the impulse responses failed (an unmapped descriptor, a covariance that is not "
                            "positive definite, or no memory)");
    return out.array;
}

} // namespace

void RegisterEstimators(py::module_ &m) {
    m.def("rls", &rls, "Recursive least squares of y (T x n) on X (T x k): a dict of T-row arrays.", "y"_a, "X"_a,
          "first"_a = 0, "last"_a = -1, "force"_a = -1);
    m.def("garch_variance", &garchVariance, "GARCH(p, q) conditional variances h and residuals u of e (docs/garch.md).",
          "e"_a, "x"_a, "coef"_a, "p"_a, "q"_a, "in_mean"_a = 0, "delta"_a = 0.0, "kappa"_a = 0.0, "gamma"_a = 0.0);
    m.def("egarch_variance", &egarchVariance, "EGARCH(p, q) conditional log variances and residuals of e.", "e"_a,
          "x"_a, "theta"_a, "phi"_a, "nu"_a, "a"_a, "b"_a, "in_mean"_a = 0, "delta"_a = 0.0);
    m.def("probit", &probit, "Binary probit log-likelihood, score, expected information and probabilities at beta.",
          "beta"_a, "y"_a, "X"_a, "weights"_a = py::none());
    m.def("logit", &logit, "Multinomial logit log-likelihood, score, information and probabilities at beta.", "beta"_a,
          "y"_a, "m"_a, "X"_a = py::none(), "Z"_a = py::none(), "weights"_a = py::none(), "offset"_a = py::none());
    m.def("logit_prob_deriv", &logitProbDeriv,
          "Average derivatives (m x k) of the logit probabilities in the regressors.", "beta"_a, "X"_a, "m"_a,
          "first"_a = 0, "last"_a = -1);
    m.def("act_fit_table", &actFitTable, "Actual (rows) against most probable (columns) category, totals last.",
          "actual"_a, "fitted"_a);
    m.def("count", &count, "Poisson or NB2 log-likelihood, score, observed information and fitted values at theta.",
          "theta"_a, "y"_a, "X"_a, "model"_a = "poisson", "alpha"_a = 1.0, "first"_a = 0, "last"_a = -1);
    m.def("ms_filter", &msFilter, "Markov-switching filter: likelihood contributions and filtered probabilities.",
          "dens"_a, "P"_a, "init"_a);
    m.def("ms_smooth", &msSmooth, "Markov-switching smoother: smoothed probabilities and accumulated transition terms.",
          "filtered"_a, "P"_a, "kind"_a = "joint");
    m.def("seasonal_demean", &seasonalDemean, "X less the mean of each season (row t in season t mod s).", "X"_a, "s"_a,
          "inplace"_a = false);
    m.def("seasonal_rsq", &seasonalRsq,
          "Seasonal R^2 of a model with residual sum of squares rss, and the seasonal means.", "y"_a, "s"_a, "rss"_a);
    m.def("long_run_lag", &LongRunLag, "The lag truncation floor(4 (T/100)^(2/9)).", "nobs"_a);
    m.def("long_run_covariance", &longRunCovariance, "Bartlett-weighted sum of the score products x_t (x) u_t.", "X"_a,
          "U"_a, "lag"_a = py::none());
    m.def("forecast", &forecast, "Dynamic or h-step forecasts of a linear system (and their standard errors).",
          "endog"_a, "reg"_a, "variables"_a, "status"_a, "lags"_a, "coef"_a, "t1"_a, "t2"_a, "horizon"_a = 0,
          "omega"_a = py::none(), "coef_cov"_a = py::none(), "code1"_a = 1, "code2"_a = 2, "se"_a = false);
    m.def("impulse_response", &impulse, "Responses of a linear system to one impulse.", "endog"_a, "reg"_a,
          "variables"_a, "status"_a, "lags"_a, "coef"_a, "t1"_a, "t2"_a, "shock"_a, "kind"_a = "cholesky",
          "omega"_a = py::none(), "vector"_a = py::none(), "code1"_a = 1, "code2"_a = 2);
}
