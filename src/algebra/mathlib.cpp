// Built-ins of one value: elementary functions of the argument at the current observation. The
// faults follow the language's rules: a logarithm of a negative number and of zero, an
// exponential that overflows and a square root of a negative number set their bits; of these
// only the negative logarithm gives the missing value, the others still give what the C library
// computes (an infinity, or the not-a-number of sqrt).
#include <cmath>

#include "algebra/builtins.h"
#include "algebra/compiler.h"
#include "base/types.h"

namespace {

// exp(709.78) is the largest finite value; from 709 on the result is near or past the range.
constexpr double kExpOverflow = 709.0;

double fnAbs(AlgebraCompiler *, const double *a) { return std::fabs(a[0]); }

double fnExp(AlgebraCompiler *c, const double *a) {
    if (a[0] >= kExpOverflow) AlgebraSetError(c, ALGEBRA_EXP_OVERFLOW);
    return std::exp(a[0]);
}

double fnLog(AlgebraCompiler *c, const double *a) {
    if (a[0] < 0.0) {
        AlgebraSetError(c, ALGEBRA_LOG_NONPOSITIVE);
        return MissingValueOf();
    }
    if (a[0] == 0.0) AlgebraSetError(c, ALGEBRA_LOG_ZERO);
    return std::log(a[0]);
}

double fnSqrt(AlgebraCompiler *c, const double *a) {
    if (a[0] < 0.0) AlgebraSetError(c, ALGEBRA_SQRT_NEGATIVE);
    return std::sqrt(a[0]);
}

const AlgebraFunction kRows[] = {
    {fnAbs, "abs", 1, "v", "abs(VAR);"},
    {fnExp, "exp", 1, "v", "exp(VAR);"},
    {fnLog, "log", 1, "v", "log(VAR);"},
    {fnSqrt, "sqrt", 1, "v", "sqrt(VAR);"},
};

} // namespace

extern const AlgebraLibrary kAlgebraMathLibrary = {kRows, sizeof kRows / sizeof kRows[0]};
