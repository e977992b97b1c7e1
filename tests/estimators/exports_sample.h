// The sample of tests/data/exports_sample.csv (counts, two regressors, a linear response) and the
// values that tests/data/exports_reference.R computed from it in R.
#ifndef KAVREL_TESTS_ESTIMATORS_EXPORTS_SAMPLE_H
#define KAVREL_TESTS_ESTIMATORS_EXPORTS_SAMPLE_H

#include <fstream>
#include <map>
#include <sstream>
#include <string>

#include "common/host_call.h"
#include "common/reference.h"

struct ExportsSample {
    Vec count, x1, x2, z;
    Vec X; // n x 3 row by row: a constant, x1, x2
    std::map<std::string, Vec> r;
    int n() const { return static_cast<int>(count.size()); }
};

inline ExportsSample ReadExportsSample() {
    ExportsSample s;
    std::ifstream csv(std::string(KAVREL_TEST_DATA) + "/exports_sample.csv");
    std::string line;
    std::getline(csv, line); // header
    while (std::getline(csv, line)) {
        double v[4];
        char comma;
        std::istringstream in(line);
        in >> v[0] >> comma >> v[1] >> comma >> v[2] >> comma >> v[3];
        s.count.push_back(v[0]), s.x1.push_back(v[1]), s.x2.push_back(v[2]), s.z.push_back(v[3]);
        s.X.insert(s.X.end(), {1.0, v[1], v[2]});
    }
    std::ifstream ref(std::string(KAVREL_TEST_DATA) + "/exports_reference.txt");
    while (std::getline(ref, line)) {
        if (line.empty() || line[0] == '#') continue;
        std::istringstream in(line);
        std::string name;
        int index;
        double value;
        in >> name >> index >> value;
        s.r[name].push_back(value);
    }
    return s;
}

// Least squares of y on X (n x k, row by row) in long double: (X'X)^-1, coefficients, residuals.
struct LeastSquares {
    LMat inv;
    LVec b;
    Vec e;
};
inline LeastSquares FitLeastSquares(const Vec &X, const Vec &y, int k) {
    const size_t n = y.size();
    LMat xtx(k, LVec(k, 0.0L));
    LVec xty(k, 0.0L);
    for (size_t t = 0; t < n; ++t)
        for (int j = 0; j < k; ++j) {
            xty[j] += static_cast<long double>(X[t * k + j]) * y[t];
            for (int l = 0; l < k; ++l) xtx[j][l] += static_cast<long double>(X[t * k + j]) * X[t * k + l];
        }
    std::vector<int> all(k);
    for (int j = 0; j < k; ++j) all[j] = j;
    LeastSquares ls{inverseOn(xtx, all), LVec(k, 0.0L), Vec(n)};
    for (int j = 0; j < k; ++j)
        for (int l = 0; l < k; ++l) ls.b[j] += ls.inv[j][l] * xty[l];
    for (size_t t = 0; t < n; ++t) {
        long double fit = 0.0L;
        for (int j = 0; j < k; ++j) fit += X[t * k + j] * ls.b[j];
        ls.e[t] = static_cast<double>(y[t] - fit);
    }
    return ls;
}

#endif
