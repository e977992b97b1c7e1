// Built-ins of the four distributions: densities (dens*), lower tails (probn), upper tails
// (tail*) and quantiles (quan*) of the normal, t, chi-squared and F distributions. Degrees of
// freedom that are not positive are the fault "Non-positive degrees of freedom" with no value;
// the t distribution takes its degrees of freedom truncated to a whole number, the others as
// given. A probability outside [0, 1] has no quantile: the missing value, without a fault.
#include <cmath>

#include "algebra/builtins.h"
#include "algebra/compiler.h"
#include "base/types.h"
#include "special/distributions.h"

namespace {

// The degrees of freedom as the distribution uses them, or false after the fault.
bool chiDf(AlgebraCompiler *c, double df) {
    if (df > 0.0) return true;
    AlgebraSetError(c, ALGEBRA_BAD_DF);
    return false;
}
bool fDf(AlgebraCompiler *c, double df1, double df2) { return chiDf(c, df1 > 0.0 && df2 > 0.0 ? 1.0 : 0.0); }
bool tDf(AlgebraCompiler *c, double df, double *whole) {
    *whole = std::trunc(df);
    return chiDf(c, *whole);
}

double fnDensChi(AlgebraCompiler *c, const double *a) {
    return chiDf(c, a[1]) ? DistChi2Pdf(a[0], a[1]) : MissingValueOf();
}
double fnDensF(AlgebraCompiler *c, const double *a) {
    return fDf(c, a[1], a[2]) ? DistFPdf(a[0], a[1], a[2]) : MissingValueOf();
}
double fnDensN(AlgebraCompiler *, const double *a) { return DistNormalPdf(a[0]); }
double fnDensT(AlgebraCompiler *c, const double *a) {
    double df;
    return tDf(c, a[1], &df) ? DistTPdf(a[0], df) : MissingValueOf();
}

double fnProbN(AlgebraCompiler *, const double *a) { return DistNormalP(a[0]); }

double fnQuanChi(AlgebraCompiler *c, const double *a) {
    return chiDf(c, a[1]) ? DistChi2Pinv(a[0], a[1]) : MissingValueOf();
}
double fnQuanF(AlgebraCompiler *c, const double *a) {
    return fDf(c, a[1], a[2]) ? DistFPinv(a[0], a[1], a[2]) : MissingValueOf();
}
double fnQuanN(AlgebraCompiler *, const double *a) { return DistNormalPinv(a[0]); }
double fnQuanT(AlgebraCompiler *c, const double *a) {
    double df;
    return tDf(c, a[1], &df) ? DistTPinv(a[0], df) : MissingValueOf();
}

double fnTailChi(AlgebraCompiler *c, const double *a) {
    return chiDf(c, a[1]) ? DistChi2Q(a[0], a[1]) : MissingValueOf();
}
double fnTailF(AlgebraCompiler *c, const double *a) {
    return fDf(c, a[1], a[2]) ? DistFQ(a[0], a[1], a[2]) : MissingValueOf();
}
double fnTailN(AlgebraCompiler *, const double *a) { return DistNormalQ(a[0]); }
double fnTailT(AlgebraCompiler *c, const double *a) {
    double df;
    return tDf(c, a[1], &df) ? DistTQ(a[0], df) : MissingValueOf();
}

const AlgebraFunction kRows[] = {
    {fnDensChi, "denschi", 2, "vv", "denschi(VAR, DF);"},
    {fnDensF, "densf", 3, "vvv", "densf(VAR, DF1, DF2);"},
    {fnDensN, "densn", 1, "v", "densn(VAR);"},
    {fnDensT, "denst", 2, "vv", "denst(VAR, DF);"},
    {fnProbN, "probn", 1, "v", "probn(VAR);"},
    {fnQuanChi, "quanchi", 2, "vv", "quanchi(VAR, DF);"},
    {fnQuanF, "quanf", 3, "vvv", "quanf(VAR, DF1, DF2);"},
    {fnQuanN, "quann", 1, "v", "quann(VAR);"},
    {fnQuanT, "quant", 2, "vv", "quant(VAR, DF);"},
    {fnTailChi, "tailchi", 2, "vv", "tailchi(VAR, DF);"},
    {fnTailF, "tailf", 3, "vvv", "tailf(VAR, DF1, DF2);"},
    {fnTailN, "tailn", 1, "v", "tailn(VAR);"},
    {fnTailT, "tailt", 2, "vv", "tailt(VAR, DF);"},
};

} // namespace

extern const AlgebraLibrary kAlgebraDistributionLibrary = {kRows, sizeof kRows / sizeof kRows[0]};
