// The estimation bridge: one process-wide model written in Algebra, compiled in model mode over a
// private database made from the host's data, run again and again for new parameter values, and
// read back. The exports of src/host/export_algebra.cpp are its only users; docs/algebra.md
// gives the calling order and what a second initialisation does with the first.
#ifndef KAVREL_ALGEBRA_BRIDGE_H
#define KAVREL_ALGEBRA_BRIDGE_H

#include "base/types.h"

struct Database;

enum { ALGEBRA_NLS_MAX_PARAMS = 500, ALGEBRA_NLS_EXTRA_VARIABLES = 20 };

// What the host hands over: T x k data (observations in rows), k names (null entries keep the
// generated names), the sample's start and frequency, the dated flag and the model text.
struct AlgebraNlsData {
    MATRIX data;
    int nobs, nvars;
    const char *const *names;
    int startYear, startPeriod, frequency;
    int dated;
    const char *text;
};

// Builds the state (replacing, and freeing, any earlier one) and compiles the model. wantParams
// selects the estimation checks: with it a model must have parameters, without it none. Null on
// success; otherwise the failure's text (valid until the next bridge call), with no state left.
// On success *count is the number of parameters in use.
const char *AlgebraNlsInit(const AlgebraNlsData &in, int wantParams, int *count);
// Starting values and parameter numbers of the parameters in use, in increasing number; each
// array holds AlgebraNlsParamCount() values.
void AlgebraNlsParams(double *start, double *numbers);
int AlgebraNlsParamCount();

// Writes n parameter values and runs the model quietly over first..last. Null after a run
// without faults; otherwise the text to return: "Algebra run error" (no state, or n is not the
// number of parameters) or the run's report.
const char *AlgebraNlsRun(const double *values, int n, int first, int last);

// The database while the state lives (null otherwise) and the number of variables the host gave.
Database *AlgebraNlsDatabase();
int AlgebraNlsHostVariables();

// Identities for the forecasts: the variables the model made (after the host's k) are identity
// variables, computed from the first variables by one run of the model at one observation.
int AlgebraNlsIdentityCount();
// Writes endog[0..nEndog-1] into the first nEndog variables (at most k) at observation column,
// runs the model there quietly with the parameters in force, and copies the identity variables
// at column into ident[0..capacity-1] (the first identity variables when the run made more; the
// rest missing when it made fewer). 1 after a run without faults that left capacity identity
// variables; 0 without a state, for a column outside the database, after faults, or when the
// count changed (ident is written either way when the column exists).
int AlgebraNlsIdentityStep(int column, const double *endog, int nEndog, double *ident, int capacity);

// Frees the state; nothing happens without one.
void AlgebraNlsExit();

#endif
