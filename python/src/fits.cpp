// The estimations of the command-line host (tools/kavrel/estimate.h) over numpy arrays: the same
// routines the tool runs, fed with the caller's series instead of a data file. The data are
// copied once into the estimation's design (which adds the constant column); the results come
// back as a dict that kavrel.results wraps.
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <pybind11/stl.h>

#include "arrays.h"
#include "command.h"
#include "estimate.h"

using namespace py::literals;

namespace {

// y (T values) and the columns of X (T x k, or None) under names (y's first), with no missing value.
Columns columnsOf(py::handle yObj, py::handle xObj, const std::vector<std::string> &names) {
    ArrayIn y = VectorInput(yObj, "y");
    const int T = y.rows;
    Columns c;
    c.first = 0, c.last = T - 1;
    c.data.emplace_back(y.data(), y.data() + T);
    if (!IsNone(xObj)) {
        ArrayIn X = ArrayInput(xObj, "X");
        if (X.rows != T) BadValue("X", std::to_string(T) + " rows expected, got " + std::to_string(X.rows));
        for (int j = 0; j < X.cols; ++j) {
            Vec col(T);
            for (int t = 0; t < T; ++t) col[t] = X.ptr[t + 1][j];
            c.data.push_back(col);
        }
    }
    if (names.size() != c.data.size())
        BadValue("names",
                 std::to_string(c.data.size()) + " names expected (y's first), got " + std::to_string(names.size()));
    c.names = names;
    for (size_t j = 0; j < c.data.size(); ++j)
        for (int t = 0; t < T; ++t)
            if (c.data[j][t] != c.data[j][t])
                BadValue(j ? "X" : "y", "missing value in " + names[j] + " at observation " + std::to_string(t) +
                                            " (drop or fill missing values first)");
    return c;
}

std::string reportText(const Report &r) {
    char *buf = nullptr;
    size_t size = 0;
    std::FILE *f = open_memstream(&buf, &size);
    if (!f) return r.title;
    PrintReport(f, r);
    std::fclose(f);
    std::string text(buf, size);
    std::free(buf);
    return text;
}

py::array vectorArray(const Vec &v) {
    ArrayOut a = ArrayOutput(static_cast<int>(v.size()), -1, 0.0);
    std::copy(v.begin(), v.end(), a.data());
    return a.array;
}

py::dict reportDict(Report &r, const std::string &sample) {
    r.sample = sample;
    Vec pvalues;
    for (size_t j = 0; j < r.coef.size(); ++j) pvalues.push_back(TwoSidedP(r.coef[j] / r.se[j], r.residualDf));
    py::dict stats, series;
    for (const auto &s : r.stats) stats[py::str(s.first)] = s.second;
    for (size_t j = 0; j < r.series.size() && j < r.seriesNames.size(); ++j)
        series[py::str(r.seriesNames[j])] = vectorArray(r.series[j]);
    return py::dict("title"_a = r.title, "names"_a = r.names, "params"_a = vectorArray(r.coef),
                    "bse"_a = vectorArray(r.se), "pvalues"_a = vectorArray(pvalues), "llf"_a = r.loglik,
                    "nobs"_a = r.nobs, "converged"_a = r.converged, "df_resid"_a = r.residualDf, "stats"_a = stats,
                    "series"_a = series, "series_first"_a = r.seriesFirst, "summary"_a = reportText(r));
}

[[noreturn]] void fail(const std::string &error) { throw KavrelFailure(error); }

py::dict fitDiscrete(py::handle y, py::handle X, const std::vector<std::string> &names, bool logit, bool constant,
                     const std::string &sample) {
    const Columns c = columnsOf(y, X, names);
    Report r;
    std::string error;
    if (!WithoutGil([&] { return EstimateDiscrete(c, logit, constant, &r, &error); })) fail(error);
    return reportDict(r, sample);
}

py::dict fitCount(py::handle y, py::handle X, const std::vector<std::string> &names, bool negbin, bool constant,
                  const std::string &sample) {
    const Columns c = columnsOf(y, X, names);
    Report r;
    std::string error;
    if (!WithoutGil([&] { return EstimateCount(c, negbin, constant, &r, &error); })) fail(error);
    return reportDict(r, sample);
}

py::dict fitGarch(py::handle y, const std::string &name, int p, int q, bool egarch, int inMean,
                  const std::string &sample) {
    const Columns c = columnsOf(y, py::none(), {name});
    GarchOptions o;
    o.p = CheckedInt(p, "p", 0, 50), o.q = CheckedInt(q, "q", 0, 50), o.egarch = egarch;
    o.inMean = CheckedInt(inMean, "in_mean", 0, 3);
    Report r;
    std::string error;
    if (!WithoutGil([&] { return EstimateGarch(c, o, &r, &error); })) fail(error);
    return reportDict(r, sample);
}

py::dict fitMs(py::handle y, const std::string &name, int regimes, int order, const std::string &sample) {
    const Columns c = columnsOf(y, py::none(), {name});
    MsResults res;
    std::string error;
    if (!WithoutGil([&] { return EstimateMs(c, regimes, order, &res, &error); })) fail(error);
    py::dict d = reportDict(res.report, sample);
    const int M = res.M, T = c.nobs() - res.p;
    ArrayOut P = ArrayOutput(M, M, 0.0), S = ArrayOutput(T, M, std::nan(""));
    std::copy(res.P.begin(), res.P.end(), P.data());
    if (static_cast<int>(res.smoothed.size()) == T * M) std::copy(res.smoothed.begin(), res.smoothed.end(), S.data());
    d["transition"] = P.array, d["smoothed"] = S.array;
    return d;
}

py::dict fitRls(py::handle y, py::handle X, const std::vector<std::string> &names, bool constant,
                const std::string &sample) {
    const Columns c = columnsOf(y, X, names);
    RlsResults res;
    std::string error;
    if (!WithoutGil([&] { return EstimateRls(c, constant, &res, &error); })) fail(error);
    py::dict d = reportDict(res.report, sample);
    const int T = res.T, k = res.k;
    ArrayOut coef = ArrayOutput(T, k, 0.0), se = ArrayOutput(T, k, 0.0);
    for (int j = 0; j < k; ++j)
        for (int t = 0; t < T; ++t) coef.ptr[t + 1][j] = res.coef[j][t], se.ptr[t + 1][j] = res.se[j][t];
    d["recursive"] = py::dict("coef"_a = coef.array, "se"_a = se.array, "innovation"_a = vectorArray(res.innovation),
                              "sigma"_a = vectorArray(res.sigma), "chow1"_a = vectorArray(res.chow1),
                              "chow_n"_a = vectorArray(res.chowN));
    return d;
}

} // namespace

void RegisterFits(py::module_ &m) {
    CommandShowProgress(false);
    m.def("_fit_discrete", &fitDiscrete, "y"_a, "X"_a, "names"_a, "logit"_a, "constant"_a, "sample"_a);
    m.def("_fit_count", &fitCount, "y"_a, "X"_a, "names"_a, "negbin"_a, "constant"_a, "sample"_a);
    m.def("_fit_garch", &fitGarch, "y"_a, "name"_a, "p"_a, "q"_a, "egarch"_a, "in_mean"_a, "sample"_a);
    m.def("_fit_ms", &fitMs, "y"_a, "name"_a, "regimes"_a, "order"_a, "sample"_a);
    m.def("_fit_rls", &fitRls, "y"_a, "X"_a, "names"_a, "constant"_a, "sample"_a);
}
