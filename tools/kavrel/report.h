// An estimation's results as the commands print them: a report in the conventions of econometric
// software (a coefficient table with standard errors, t-values and p-values, then the summary
// statistics and the sample), or the same results as one JSON object for scripts.
#ifndef KAVREL_TOOLS_REPORT_H
#define KAVREL_TOOLS_REPORT_H

#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "host.h"

struct Report {
    std::string title;  // "Recursive least squares of realcons"
    std::string sample; // "1959(1) - 2009(3)"
    std::vector<std::string> names;
    Vec coef, se;
    int residualDf = 0; // p-values from t(residualDf); 0: from the normal
    double loglik = 0.0 / 0.0;
    int nobs = 0;
    bool converged = true;
    // Summary statistics in print order; their JSON keys are the labels in lower case with
    // blanks as underscores.
    std::vector<std::pair<std::string, double>> stats;
    // Further lines after the table (a transition matrix, a fitted table) and the same as JSON
    // members ("\"name\": value", value already JSON).
    std::vector<std::string> lines, json;
    // Series over the observations, from data observation seriesFirst on, that --out writes as
    // CSV beside their periods (fitted values, variances, probabilities).
    std::vector<std::string> seriesNames;
    std::vector<Vec> series;
    int seriesFirst = 0;
};

void PrintReport(std::FILE *out, const Report &r);
void PrintJson(std::FILE *out, const Report &r);
// A JSON number (null for missing or infinite) and a JSON array of numbers.
std::string JsonNumber(double v);
std::string JsonArray(const Vec &v);
// The two-sided p-value of t under t(df) (the normal when df < 1).
double TwoSidedP(double t, int df);

#endif
