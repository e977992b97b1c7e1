// Built-ins of one value: elementary functions of the arguments at the current observation. The
// faults follow the language's rules: a logarithm of a negative number and of zero, an
// exponential that overflows, a square root of a negative number and an integer division by
// zero set their bits; of these only the negative logarithm gives the missing value, the others
// still give what the arithmetic computes (an infinity, or the not-a-number of sqrt).
#include <cmath>

#include "algebra/builtins.h"
#include "algebra/compiler.h"
#include "base/types.h"
#include "special/distributions.h"

namespace {

// exp(709.78) is the largest finite value; from 709 on the result is near or past the range.
constexpr double kExpOverflow = 709.0;

// The logarithm's rule, shared by log, log10 and loggamma: a negative argument is a fault with
// no value, zero a fault whose value (minus infinity) stands.
bool logDomain(AlgebraCompiler *c, double x) {
    if (x < 0.0) {
        AlgebraSetError(c, ALGEBRA_LOG_NONPOSITIVE);
        return false;
    }
    if (x == 0.0) AlgebraSetError(c, ALGEBRA_LOG_ZERO);
    return true;
}

double fnAbs(AlgebraCompiler *, const double *a) { return std::fabs(a[0]); }
double fnAcos(AlgebraCompiler *, const double *a) { return std::acos(a[0]); }
double fnAsin(AlgebraCompiler *, const double *a) { return std::asin(a[0]); }
double fnAtan(AlgebraCompiler *, const double *a) { return std::atan(a[0]); }
double fnCeil(AlgebraCompiler *, const double *a) { return std::ceil(a[0]); }
double fnCos(AlgebraCompiler *, const double *a) { return std::cos(a[0]); }
double fnFloor(AlgebraCompiler *, const double *a) { return std::floor(a[0]); }
double fnFmod(AlgebraCompiler *, const double *a) { return std::fmod(a[0], a[1]); }
double fnMax(AlgebraCompiler *, const double *a) { return a[0] >= a[1] ? a[0] : a[1]; }
double fnMin(AlgebraCompiler *, const double *a) { return a[0] <= a[1] ? a[0] : a[1]; }
double fnRound(AlgebraCompiler *, const double *a) { return std::floor(a[0] + 0.5); }
double fnSin(AlgebraCompiler *, const double *a) { return std::sin(a[0]); }
double fnTan(AlgebraCompiler *, const double *a) { return std::tan(a[0]); }

// trunc(a) / trunc(b) toward zero. Quotients of whole numbers beyond 2^53 are computed in
// doubles, which is what the values can represent anyway.
double fnDiv(AlgebraCompiler *c, const double *a) {
    const double n = std::trunc(a[0]), d = std::trunc(a[1]);
    if (d == 0.0) {
        AlgebraSetError(c, ALGEBRA_DIVIDE_BY_ZERO);
        return n / d;
    }
    return std::trunc(n / d);
}

double fnExp(AlgebraCompiler *c, const double *a) {
    if (a[0] >= kExpOverflow) AlgebraSetError(c, ALGEBRA_EXP_OVERFLOW);
    return std::exp(a[0]);
}

double fnLog(AlgebraCompiler *c, const double *a) { return logDomain(c, a[0]) ? std::log(a[0]) : MissingValueOf(); }
double fnLog10(AlgebraCompiler *c, const double *a) { return logDomain(c, a[0]) ? std::log10(a[0]) : MissingValueOf(); }
// log Gamma(0) is +infinity (a pole), where the logarithm's rule would say minus infinity: the
// pole is what the function has, and the fault bit says the argument was out of its range.
double fnLogGamma(AlgebraCompiler *c, const double *a) {
    if (!logDomain(c, a[0])) return MissingValueOf();
    return a[0] == 0.0 ? HUGE_VAL : LogGamma(a[0]);
}

double fnSqrt(AlgebraCompiler *c, const double *a) {
    if (a[0] < 0.0) AlgebraSetError(c, ALGEBRA_SQRT_NEGATIVE);
    return std::sqrt(a[0]);
}

const AlgebraFunction kRows[] = {
    {fnAbs, "abs", 1, "v", "abs(VAR);"},          {fnAcos, "acos", 1, "v", "acos(VAR);"},
    {fnAsin, "asin", 1, "v", "asin(VAR);"},       {fnAtan, "atan", 1, "v", "atan(VAR);"},
    {fnCeil, "ceil", 1, "v", "ceil(VAR);"},       {fnCos, "cos", 1, "v", "cos(VAR);"},
    {fnDiv, "div", 2, "vv", "div(VAR, VAR);"},    {fnExp, "exp", 1, "v", "exp(VAR);"},
    {fnAbs, "fabs", 1, "v", "fabs(VAR);"},        {fnFloor, "floor", 1, "v", "floor(VAR);"},
    {fnFmod, "fmod", 2, "vv", "fmod(VAR, VAR);"}, {fnLog, "log", 1, "v", "log(VAR);"},
    {fnLog10, "log10", 1, "v", "log10(VAR);"},    {fnLogGamma, "loggamma", 1, "v", "loggamma(VAR);"},
    {fnMax, "max", 2, "vv", "max(VAR, VAR);"},    {fnMin, "min", 2, "vv", "min(VAR, VAR);"},
    {fnRound, "round", 1, "v", "round(VAR);"},    {fnSin, "sin", 1, "v", "sin(VAR);"},
    {fnSqrt, "sqrt", 1, "v", "sqrt(VAR);"},       {fnTan, "tan", 1, "v", "tan(VAR);"},
};

} // namespace

extern const AlgebraLibrary kAlgebraMathLibrary = {kRows, sizeof kRows / sizeof kRows[0]};
