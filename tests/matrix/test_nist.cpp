// Least squares against the NIST StRD certified values (500-digit arithmetic, published to 15
// digits): Norris, a well-conditioned straight line, and Longley, whose regressors are so
// collinear that a normal-equations solver loses most of its digits. The tolerance of each row
// is what the pivoted Householder fit reaches at that conditioning (Longley: 10 digits of every
// coefficient and standard error); standard errors are sqrt(P_jj RSS / (n - p)).
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "matrix/matrix.h"
#include "matrix/qr.h"

namespace {

// Columns of a CSV file with a header line: data[c][t].
std::vector<std::vector<double>> readColumns(const std::string &name) {
    std::ifstream in(std::string(KAVREL_TEST_DATA) + "/" + name);
    std::vector<std::vector<double>> cols;
    std::string line;
    std::getline(in, line);
    while (std::getline(in, line)) {
        std::stringstream ss(line);
        std::string field;
        for (size_t c = 0; std::getline(ss, field, ','); ++c) {
            if (cols.size() <= c) cols.resize(c + 1);
            cols[c].push_back(std::stod(field));
        }
    }
    return cols;
}

TEST(NistStrd, CertifiedCoefficientsAndStandardErrors) {
    const struct {
        const char *file;
        std::vector<double> coef, se;
        double rsd, tol;
    } rows[] = {
        {"nist_norris.csv",
         {-0.262323073774029, 1.00211681802045},
         {0.232818234301152, 0.429796848199937e-03},
         0.884796396144373,
         1e-12}, // well conditioned: the fit reaches about 1e-13
        {"nist_longley.csv",
         {-3482258.63459582, 15.0618722713733, -0.358191792925910e-01, -2.02022980381683, -1.03322686717359,
          -0.511041056535807e-01, 1829.15146461355},
         {890420.383607373, 84.9149257747669, 0.334910077722432e-01, 0.488399681651699, 0.214274163161675,
          0.226073200069370, 455.478499142212},
         304.854073561965,
         1e-10}, // collinear: about 1e-11 reached, worst on x1, whose coefficient is a fifth of its standard error
    };
    for (const auto &r : rows) {
        SCOPED_TRACE(r.file);
        const auto cols = readColumns(r.file);
        ASSERT_GE(cols.size(), 2u);
        const int n = static_cast<int>(cols[0].size());
        const int k = static_cast<int>(r.coef.size());
        // Variables as rows: the constant, then the regressors.
        MatOwner X(k, n), Y(1, n), B(1, k), P(k, k);
        for (int t = 0; t < n; ++t) {
            X.get()[0][t] = 1.0;
            for (int j = 1; j < k; ++j) X.get()[j][t] = cols[j][t];
            Y.get()[0][t] = cols[0][t];
        }
        ASSERT_EQ(MatLeastSquares(X, k, n, Y, 1, B, P), 1);
        double rss = 0;
        for (int t = 0; t < n; ++t) {
            double fit = 0;
            for (int j = 0; j < k; ++j) fit += B.get()[0][j] * X.get()[j][t];
            rss += (cols[0][t] - fit) * (cols[0][t] - fit);
        }
        const double s2 = rss / (n - k);
        EXPECT_NEAR(std::sqrt(s2), r.rsd, r.tol * r.rsd);
        for (int j = 0; j < k; ++j) {
            EXPECT_NEAR(B.get()[0][j], r.coef[j], r.tol * std::fabs(r.coef[j])) << "coefficient " << j;
            EXPECT_NEAR(std::sqrt(P.get()[j][j] * s2), r.se[j], r.tol * r.se[j]) << "standard error " << j;
        }
    }
}

} // namespace
