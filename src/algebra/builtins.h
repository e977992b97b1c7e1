// The built-in functions of the language. Each family of functions lives in one file that ends
// with its table of rows (as Lua's libraries end with their luaL_Reg arrays); builtins.cpp holds
// the list of families and the order in which every name is registered, so that a family file
// can gain rows without any other file changing, and every symbol table, whatever families are
// built, lists the functions in that one order.
#ifndef KAVREL_ALGEBRA_BUILTINS_H
#define KAVREL_ALGEBRA_BUILTINS_H

struct AlgebraCompiler;

// Receives the run state (observation t, sample t1..t2, symbols, database) and the arguments,
// which are never missing: the interpreter gives a missing result without calling. A fault sets
// its bit through AlgebraSetError and returns the missing value unless the function's rule says
// the value is still computed.
typedef double (*AlgebraBuiltinFn)(AlgebraCompiler *state, const double *args);

// Argument kinds, one letter per argument.
enum {
    ALGEBRA_ARG_VALUE = 'v',       // any expression, evaluated at t
    ALGEBRA_ARG_REFERENCE = 'r',   // an existing variable, passed as its symbol index
    ALGEBRA_ARG_DESTINATION = 'd', // a variable the function writes, created when missing
    ALGEBRA_ARG_OPTIONAL = '|'     // the arguments after it may be left out
};

struct AlgebraFunction {
    AlgebraBuiltinFn entry;
    const char *name;      // compared without regard to case
    int argc;              // the length of kinds
    const char *kinds;     // one letter per argument
    const char *signature; // the usage line users see, "abs(VAR);"
};

// The rows of one family file.
struct AlgebraLibrary {
    const AlgebraFunction *rows;
    int count;
};

enum { ALGEBRA_MAX_FUNCTIONS = 100 };

// The registered table, built once per process in registration order.
const AlgebraFunction *AlgebraFunctions(int *count);

// The families (one per file).
extern const AlgebraLibrary kAlgebraMathLibrary;         // mathlib.cpp
extern const AlgebraLibrary kAlgebraDistributionLibrary; // distlib.cpp
extern const AlgebraLibrary kAlgebraCalendarLibrary;     // calendarlib.cpp
extern const AlgebraLibrary kAlgebraSeriesLibrary;       // serieslib.cpp
extern const AlgebraLibrary kAlgebraRandomLibrary;       // randomlib.cpp
extern const AlgebraLibrary kAlgebraSampleLibrary;       // samplelib.cpp

#endif
