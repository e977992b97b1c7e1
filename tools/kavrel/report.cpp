#include "report.h"

#include <algorithm>
#include <cmath>

#include "special/distributions.h"

double TwoSidedP(double t, int df) {
    const double a = std::fabs(t);
    return 2.0 * (df >= 1 ? DistTQ(a, df) : DistNormalQ(a));
}

std::string JsonNumber(double v) {
    if (!std::isfinite(v)) return "null";
    char buf[40];
    std::snprintf(buf, sizeof buf, "%.17g", v);
    return buf;
}

std::string JsonArray(const Vec &v) {
    std::string s = "[";
    for (size_t i = 0; i < v.size(); ++i) s += (i ? ", " : "") + JsonNumber(v[i]);
    return s + "]";
}

namespace {

std::string jsonString(const std::string &text) {
    std::string s = "\"";
    for (char c : text) {
        if (c == '"' || c == '\\')
            s += '\\', s += c;
        else if (static_cast<unsigned char>(c) < 0x20)
            s += ' ';
        else
            s += c;
    }
    return s + "\"";
}

std::string keyOf(const std::string &label) {
    std::string k;
    for (char c : label)
        k += c == ' ' || c == '-' ? '_' : static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return k;
}

} // namespace

void PrintReport(std::FILE *out, const Report &r) {
    std::fprintf(out, "%s\n", r.title.c_str());
    if (!r.sample.empty())
        std::fprintf(out, "The estimation sample is %s (%d observations)\n", r.sample.c_str(), r.nobs);
    if (!r.converged) std::fprintf(out, "Warning: the estimation did not converge; the values are the last iterate\n");
    int width = 16;
    for (const std::string &name : r.names) width = std::max(width, static_cast<int>(name.size()));
    std::fprintf(out, "\n%-*s %14s %12s %9s %7s\n", width, "", "Coefficient", "Std.Error", "t-value", "t-prob");
    for (size_t j = 0; j < r.names.size(); ++j) {
        const double t = r.coef[j] / r.se[j];
        std::fprintf(out, "%-*s %14.6g %12.6g %9.3f %7.3f\n", width, r.names[j].c_str(), r.coef[j], r.se[j], t,
                     TwoSidedP(t, r.residualDf));
    }
    std::fprintf(out, "\n");
    for (const auto &s : r.stats) std::fprintf(out, "%-22s %.8g\n", s.first.c_str(), s.second);
    if (std::isfinite(r.loglik)) std::fprintf(out, "%-22s %.8g\n", "log-likelihood", r.loglik);
    std::fprintf(out, "%-22s %d\n%-22s %zu\n", "no. of observations", r.nobs, "no. of parameters", r.names.size());
    for (const auto &line : r.lines) std::fprintf(out, "%s\n", line.c_str());
}

void PrintJson(std::FILE *out, const Report &r) {
    std::string s = "{\"title\": " + jsonString(r.title) + ", \"sample\": " + jsonString(r.sample);
    s += ", \"coefficients\": {";
    for (size_t j = 0; j < r.names.size(); ++j)
        s += (j ? ", " : "") + jsonString(r.names[j]) + ": " + JsonNumber(r.coef[j]);
    s += "}, \"std_errors\": {";
    for (size_t j = 0; j < r.names.size(); ++j)
        s += (j ? ", " : "") + jsonString(r.names[j]) + ": " + JsonNumber(r.se[j]);
    s += "}, \"loglik\": " + JsonNumber(r.loglik) + ", \"nobs\": " + std::to_string(r.nobs);
    s += ", \"converged\": " + std::string(r.converged ? "true" : "false");
    for (const auto &st : r.stats) s += ", " + jsonString(keyOf(st.first)) + ": " + JsonNumber(st.second);
    for (const auto &member : r.json) s += ", " + member;
    std::fprintf(out, "%s}\n", s.c_str());
}
