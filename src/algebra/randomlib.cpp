// Built-ins that draw from the library's random-number generator (src/random/, docs/random.md):
// the process-wide state, its family chosen by name. Draws advance the generator at each call,
// so a statement draws once per observation, in observation order. Degrees of freedom that are
// not positive (for t: whose whole part is not) are the fault "Non-positive degrees of freedom"
// with no value and no draw.
#include <climits>
#include <cmath>

#include "algebra/builtins.h"
#include "algebra/compiler.h"
#include "base/types.h"
#include "random/random.h"

namespace {

double fault(AlgebraCompiler *c) {
    AlgebraSetError(c, ALGEBRA_BAD_DF);
    return MissingValueOf();
}

double fnRanU(AlgebraCompiler *, const double *) { return RanUniform(RanDefault()); }
double fnRanN(AlgebraCompiler *, const double *) { return RanNormal(RanDefault()); }
// The variates refuse what they cannot draw with a missing value and draw nothing then.
double checked(AlgebraCompiler *c, double draw) { return draw == draw ? draw : fault(c); }
double fnRanChi(AlgebraCompiler *c, const double *a) { return checked(c, RanChiSquared(RanDefault(), a[0])); }
double fnRanF(AlgebraCompiler *c, const double *a) { return checked(c, RanF(RanDefault(), a[0], a[1])); }
double fnRanT(AlgebraCompiler *c, const double *a) { return checked(c, RanStudentT(RanDefault(), a[0])); }

// -1 passes no seed, 0 restores the default seed, anything else seeds; the seed as the
// generator took it comes back.
double fnRanSeed(AlgebraCompiler *, const double *a) {
    const double s = std::trunc(a[0]);
    const int seed = s > INT_MIN && s < INT_MAX ? static_cast<int>(s) : (s > 0 ? INT_MAX : INT_MIN + 1);
    return RanSeed(RanDefault(), seed);
}

const AlgebraFunction kRows[] = {
    {fnRanU, "ranu", 0, "", "ranu();"},
    {fnRanChi, "ranchi", 1, "v", "ranchi(DF);"},
    {fnRanF, "ranf", 2, "vv", "ranf(DF1, DF2);"},
    {fnRanN, "rann", 0, "", "rann();"},
    {fnRanN, "rannormal", 0, "", "rannormal();"},
    {fnRanT, "rant", 1, "v", "rant(DF);"},
    {fnRanSeed, "ranseed", 1, "v", "ranseed(SEED);"},
};

} // namespace

extern const AlgebraLibrary kAlgebraRandomLibrary = {kRows, sizeof kRows / sizeof kRows[0]};
