// The table of built-in functions: the rows of every family file, placed in the one registration
// order, once per process. The order is the list below, which names every built-in the language
// has; a family file adds its rows by name and they land in their place without this file
// changing, so the symbol tables and the function indices in compiled code stay the same
// whichever families a build holds.
#include <cstring>

#include "algebra/builtins.h"
#include "base/text.h"

namespace {

const char *const kRegistrationOrder[] = {
    "abs",    "acf",         "acos",      "almon",     "asin",       "atan",     "ceil",         "cos",
    "cum",    "date",        "day",       "dayofweek", "denschi",    "densf",    "densn",        "denst",
    "diff",   "div",         "dlog",      "dummy",     "dummydates", "ewma",     "ewmc0",        "exp",
    "fabs",   "floor",       "fmod",      "hours",     "indates",    "insample", "isdayofmonth", "iseaster",
    "lag",    "lead",        "log",       "log10",     "loggamma",   "makedate", "maketime",     "max",
    "mean",   "min",         "minutes",   "month",     "movingavg",  "movingSD", "pacf",         "peak",
    "period", "periodogram", "probn",     "quanchi",   "quanf",      "quann",    "quant",        "ranu",
    "ranchi", "ranf",        "rann",      "rannormal", "rant",       "ranseed",  "round",        "seconds",
    "season", "sin",         "smooth_hp", "smooth_np", "smooth_sp",  "sort",     "_sortallby",   "_sortby",
    "sqrt",   "stock",       "stockv",    "tailchi",   "tailf",      "tailn",    "tailt",        "tan",
    "time",   "trend",       "trough",    "variance",  "year"};

// One row per file of functions.
const AlgebraLibrary *const kLibraries[] = {&kAlgebraMathLibrary,     &kAlgebraDistributionLibrary,
                                            &kAlgebraCalendarLibrary, &kAlgebraSeriesLibrary,
                                            &kAlgebraRandomLibrary,   &kAlgebraSampleLibrary};

AlgebraFunction gTable[ALGEBRA_MAX_FUNCTIONS];
int gCount = 0;
bool gRegistered = false;

void registerAll() {
    for (const char *name : kRegistrationOrder)
        for (const AlgebraLibrary *lib : kLibraries)
            for (int i = 0; i < lib->count; ++i)
                if (KvEqualNoCase(lib->rows[i].name, name) && gCount < ALGEBRA_MAX_FUNCTIONS)
                    gTable[gCount++] = lib->rows[i];
    gRegistered = true;
}

} // namespace

const AlgebraFunction *AlgebraFunctions(int *count) {
    if (!gRegistered) registerAll();
    if (count) *count = gCount;
    return gTable;
}
