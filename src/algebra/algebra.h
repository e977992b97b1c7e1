// The Algebra language as its users inside the library see it (the estimation bridge, the
// forecast identities, the command-line tool): a compiler state made for a database, a program
// tokenized into it, compiled against the database (in model mode with a parameter table), run
// over observations t1..t2, and the texts of what went wrong. docs/algebra.md describes the
// language and the choices made where its rules leave room.
//
//   AlgebraCompiler *c = AlgebraCreate(db, 0);
//   if (c && AlgebraLoad(c, "y = log(x) + x[-1];", nullptr) && AlgebraCompile(c, db))
//       AlgebraRun(c, 0, db->obsCount - 1, db->obsCount, 0);
//   AlgebraFree(c);
#ifndef KAVREL_ALGEBRA_ALGEBRA_H
#define KAVREL_ALGEBRA_ALGEBRA_H

#include <cstddef>
#include <cstdio>

#include "algebra/scanner.h"

struct AlgebraCompiler;
struct Database;

// Run-time error bits.
enum {
    ALGEBRA_STACK_FULL = 1,
    ALGEBRA_EXP_OVERFLOW = 2,
    ALGEBRA_LOG_NONPOSITIVE = 4,
    ALGEBRA_DIVIDE_BY_ZERO = 8,
    ALGEBRA_BAD_DF = 16,
    ALGEBRA_SQRT_NEGATIVE = 32,
    ALGEBRA_SAME_ARGUMENTS = 64,
    ALGEBRA_STACK_ERROR = 128,
    ALGEBRA_LOG_ZERO = 256
};

// A compiler state for db. maxParams > 0 switches on model mode, with parameters &0 ..
// &(maxParams - 1); 0 compiles plain programs. Null when memory runs out ("Out of memory").
AlgebraCompiler *AlgebraCreate(Database *db, int maxParams);
// Frees the state, its token stream, code, constants and symbols; never the database.
void AlgebraFree(AlgebraCompiler *c);

// Gives c the token stream of AlgebraTokenize (which c then owns and frees), replacing any other.
void AlgebraSetStream(AlgebraCompiler *c, unsigned char *stream, size_t size);
// AlgebraTokenize of text (or of file when text is null) into c. 1, or 0 after a scan error
// (reported, and AlgebraMessage's text; c then has no stream).
int AlgebraLoad(AlgebraCompiler *c, const char *text, FILE *file);

// Compiles c's token stream against db: variables the program assigns are created in db. 1, or 0
// after a parse error, which has been reported and is also AlgebraMessage's text.
int AlgebraCompile(AlgebraCompiler *c, Database *db);

// Runs the compiled program statement by statement over observations t1..t2, reading variables
// at observations 0..nobs-1 (the range is clipped to the stored observations). 1 without
// run-time faults; otherwise 0, with the report in AlgebraMessage (and as an error message
// unless quiet). 0 as well when nothing is compiled or the stack cannot be had.
int AlgebraRun(AlgebraCompiler *c, int t1, int t2, int nobs, int quiet);
// ORs a fault bit into the run's error word (the built-ins' way to report).
void AlgebraSetError(AlgebraCompiler *c, int bit);
// The error word of the last run.
int AlgebraErrors(const AlgebraCompiler *c);
// Writes the report of the last run's faults into the message buffer and returns it:
// "There were Algebra run-time errors:\r\n" and a line "    <text>\r\n" per fault, or "No errors.".
const char *AlgebraErrorReport(AlgebraCompiler *c);
// The message buffer: the last parse error or run report ("" when there is none).
const char *AlgebraMessage(const AlgebraCompiler *c);

// The compiled code as text, one instruction per line ("0003 STORE       12  ; y"). Writes at
// most size - 1 characters and a terminator (nothing when size is 0) and returns the length of
// the whole text, so that a first call with size 0 measures it.
size_t AlgebraDisassemble(const AlgebraCompiler *c, char *out, size_t size);

// Model mode. The highest parameter number used (-1 when none), the constant-pool slot of
// parameter n (-1 when it is not used) and the number of parameters in use.
int AlgebraParamHighest(const AlgebraCompiler *c);
int AlgebraParamSlot(const AlgebraCompiler *c, int n);
int AlgebraParamCount(const AlgebraCompiler *c);
// The constant pool: a parameter's slot holds its starting value (missing when the program
// gives none) until AlgebraSetParams writes new values.
double *AlgebraConstants(AlgebraCompiler *c, int *count);
// Writes values[0..n-1] into the slots of the parameters in use, in increasing parameter number.
// 0 (nothing written) when n is not the number of parameters in use.
int AlgebraSetParams(AlgebraCompiler *c, const double *values, int n);

#endif
