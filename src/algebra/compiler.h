// The compiler state shared by the parser, the code generator, the interpreter and the built-ins:
// the token stream being read, the symbol table, the code, the constant pool, the parameter
// table of model mode and the state of a run. Private to src/algebra/.
#ifndef KAVREL_ALGEBRA_COMPILER_H
#define KAVREL_ALGEBRA_COMPILER_H

#include <cstddef>
#include <cstdint>

#include "algebra/algebra.h"
#include "algebra/builtins.h"
#include "algebra/opcodes.h"
#include "base/grow.h"

// Symbol flags.
enum {
    SYM_VARIABLE = 1,
    SYM_FUNCTION = 8,
    SYM_STORED = 16, // the program writes the variable
    SYM_DELETE = 32  // the program deletes the variable when a run ends
};

struct AlgebraSymbol {
    char *name; // own copy
    int32_t flags;
    int32_t index;                   // variable: its index in the database; function: table index
    const AlgebraFunction *function; // function: its table entry
    double *data;                    // variable: its column (null while the variable is gone)
    uint32_t writes;                 // variable: counts the run's writes into the column
};

// What a built-in that runs over observations remembers between calls, so that a running sum or
// a whole-sample mean costs one step per observation instead of a pass: valid while the column
// it read has had no write (the symbol's write count is unchanged) and the value arguments are
// the same. Cleared when a run starts.
struct AlgebraMemo {
    AlgebraBuiltinFn fn; // null: the slot is free
    int32_t symbol;
    int32_t t;       // the observation the state belongs to
    uint32_t writes; // the symbol's write count then
    double key[3];   // the value arguments then
    double state[4];
};
enum { ALGEBRA_MEMO_SLOTS = 8 };

struct AlgebraInstr {
    int32_t op;
    int32_t operand;
};

// The compile errors, numbered as the one message table (0-14 parse errors, 15-23 the run-time
// faults, of which a compilation can meet the first: an expression too deep for the stack).
enum {
    ERR_DUPLICATE = 0,
    ERR_CONSTANTS_FULL,
    ERR_CODE_FULL,
    ERR_SYMBOLS_FULL,
    ERR_OUT_OF_MEMORY,
    ERR_UNDECLARED,
    ERR_UNMATCHED_BRACES,
    ERR_UNMATCHED_PARENS,
    ERR_PARAMS_FULL,
    ERR_MISSING,
    ERR_NOT_A_FUNCTION,
    ERR_OUT_OF_PLACE,
    ERR_NOT_A_VARIABLE,
    ERR_CANNOT_CREATE,
    ERR_NOT_A_NAME,
    ERR_STACK_FULL
};

// The fixed constant-pool slots.
enum { POOL_ZERO = 0, POOL_ONE = 1, POOL_FREQUENCY = 6, POOL_MISSING = 7, POOL_PI = 8, POOL_NOBS = 9, POOL_FIXED = 10 };

enum {
    ALGEBRA_STACK_SIZE = 510,  // doubles per run
    ALGEBRA_STACK_LIMIT = 499, // most values a statement may hold
    ALGEBRA_MESSAGE_SIZE = 1024
};

struct AlgebraCompiler {
    Database *db;
    // Token stream.
    unsigned char *stream;
    size_t streamSize;
    const unsigned char *pos; // the current token entry (never a line end)
    int nesting;              // expression levels open
    int depth;                // values on the run's stack at this point of the statement
    // Tables.
    KvGrowArray<AlgebraSymbol> symbols;
    KvGrowArray<AlgebraInstr> code;
    KvGrowArray<double> pool;
    int compiled;
    // Model mode.
    int paramMax; // 0: plain programs
    int32_t *paramSlot;
    int paramHighest;
    // Run state.
    int t, t1, t2, nobs;
    uint32_t errors;
    AlgebraMemo memo[ALGEBRA_MEMO_SLOTS];
    int memoNext; // the slot taken next when none is free
    char message[ALGEBRA_MESSAGE_SIZE];
};

// Text i of the shared message table (0-23).
const char *AlgebraErrorText(int i);

// ---- Code generation (codegen.cpp). Each fails through AlgebraCompileError. ----
// What AlgebraCompileError throws once the message is out; caught in AlgebraCompile alone.
struct AlgebraCompileFault {};
// "Parse error: [token ]text on line N" as an error message, then the throw.
[[noreturn]] void AlgebraCompileError(AlgebraCompiler *c, int error, const char *token);
// Pools and symbols at their initial sizes, the fixed constants, the built-ins, then the variables.
void AlgebraInitTables(AlgebraCompiler *c);
// The growth between statements.
void AlgebraGrowTables(AlgebraCompiler *c);
void AlgebraEmit(AlgebraCompiler *c, int op, int operand);
int AlgebraEmitJump(AlgebraCompiler *c, int op);
void AlgebraPatchJump(AlgebraCompiler *c, int at);
// The stack effects the list of opcodes cannot give: a unary operator, a call's arguments, the
// branch of a conditional that does not run.
void AlgebraAdjustDepth(AlgebraCompiler *c, int delta);
// Pool index of a literal: slot 7 for missing, slots 0-6 when equal (first match), else a new one.
int AlgebraConstant(AlgebraCompiler *c, double value);
// A new slot, never shared (a parameter's value changes between runs).
int AlgebraNewSlot(AlgebraCompiler *c, double value);
// Newest first, without regard to case; -1 when absent.
int AlgebraFindSymbol(const AlgebraCompiler *c, const char *name);
// Creates the variable in the database and its symbol.
int AlgebraCreateVariable(AlgebraCompiler *c, const char *name);

// Points every variable symbol at its column again: after compiling, before a run, and after any
// database operation that can move columns (docs/database.md). A symbol whose variable is gone
// is made again when create is set (a run needs it), else left without data. 0 when a variable
// could not be made.
int AlgebraRefreshColumns(AlgebraCompiler *c, int create);

// ---- Memos of the built-ins (interpreter.cpp) ----
// The memo fn kept for symbol with these key values, still valid; null when there is none.
AlgebraMemo *AlgebraMemoFind(AlgebraCompiler *c, AlgebraBuiltinFn fn, int symbol, const double *key, int nkey);
// A slot for fn and symbol (the one they had, else a free or the oldest), filled with the
// symbol's write count and the key; the caller fills t and the state.
AlgebraMemo *AlgebraMemoTake(AlgebraCompiler *c, AlgebraBuiltinFn fn, int symbol, const double *key, int nkey);
// Counts a write into the column of symbol (a built-in that writes whole columns).
void AlgebraNoteWrite(AlgebraCompiler *c, int symbol);

#endif
