// Tests of one linear regression model encompassing another, each way: the Cox test in
// Pesaran's (1974) form, Ericsson's (1983) instrumental-variables test, Sargan's test and the F
// test against the nesting model. Formulas and references in docs/encompassing.md.
#ifndef KAVREL_ESTIMATORS_ENCOMPASSING_H
#define KAVREL_ESTIMATORS_ENCOMPASSING_H

#include "base/types.h"

struct EncompassingProblem {
    MATRIX data = nullptr; // y in column 0, model 1's regressors in columns 1..k1 (observations in rows)
    int k1 = 0;            // model 1's regressors
    int shared = 0;        // model 2 has model 1's first `shared` regressors as well
    MATRIX z = nullptr;    // model 2's own regressors in columns 0..k2-1
    int k2 = 0;
    int first = 0, last = -1; // inclusive observation rows
    bool skipMissing = false; // leave out rows with a missing value among those used
};

// Columns of the statistics and p-values; row 0 tests model 1 (against model 2), row 1 model 2.
enum { ENC_COX, ENC_IV, ENC_SARGAN, ENC_F, ENC_TESTS };

// stat and pval: 2 x ENC_TESTS; df: 2 x 2 (the restrictions q of the nesting model, and its
// residual degrees of freedom T - rank). Every element is written. Returns 1 when both ways were
// tested; 2 when one model's regressors span the other's (that way has nothing to test and its
// row is missing); 0 with every element missing when the rows used are too few (T <= rank of the
// nesting model), hold a non-finite value, or the scratch cannot be made.
int EncompassingTests(const EncompassingProblem &pb, MATRIX stat, MATRIX pval, MATRIX df);

#endif
