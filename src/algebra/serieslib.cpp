// Built-ins over a series: functions that read a variable's whole column (a reference argument
// arrives as its symbol index) around the current observation. Observations outside the stored
// ones give the missing value.
#include <cmath>

#include "algebra/builtins.h"
#include "algebra/compiler.h"
#include "base/types.h"

namespace {

const double *column(const AlgebraCompiler *c, double symbol) { return c->symbols[static_cast<size_t>(symbol)].data; }

// x at observation t + shift (shift truncated toward zero), missing outside 0..nobs-1.
double at(const AlgebraCompiler *c, double symbol, double shift) {
    const double i = c->t + std::trunc(shift);
    return i >= 0.0 && i < c->nobs ? column(c, symbol)[static_cast<int>(i)] : MissingValueOf();
}

double fnLag(AlgebraCompiler *c, const double *a) { return at(c, a[0], -a[1]); }

const AlgebraFunction kRows[] = {
    {fnLag, "lag", 2, "rv", "lag(VAR,LAG);"},
};

} // namespace

extern const AlgebraLibrary kAlgebraSeriesLibrary = {kRows, sizeof kRows / sizeof kRows[0]};
