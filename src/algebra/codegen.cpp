// Code generation for the Algebra compiler and the life of its state: the code array of
// (opcode, operand) pairs with emit and jump patching, the constant pool with its ten fixed
// slots, the symbol table (built-ins first, then the database's variables), the growth rules
// that run between statements, and the one function that points variable symbols at their
// columns again. The parser calls these; they fail through AlgebraCompileError, whose exception
// only AlgebraCompile catches (the C++ branch of Lua's LUAI_TRY).
#include <cstdio>
#include <cstring>
#include <new>

#include "algebra/compiler.h"
#include "base/text.h"
#include "base/types.h"
#include "database/database.h"
#include "database/messages.h"

namespace {

// Texts 0-14 are the parse errors, 15-23 the run-time faults by bit, lowest first.
const char *const kErrorTexts[] = {"Duplicate identifier",
                                   "Constant buffer full",
                                   "Code buffer full",
                                   "Symbol table full",
                                   "Out of memory",
                                   "Undeclared identifier",
                                   "Unmatched {}",
                                   "Unmatched ()",
                                   "Parameter buffer full",
                                   "Missing",
                                   "Not a function",
                                   "Out of place",
                                   "Expected a variable, not a function",
                                   "Could not create variable",
                                   "Argument must be variable name, found",
                                   "Stack full",
                                   "Overflow in exponent",
                                   "Logarithm of non-positive number",
                                   "Divide by zero",
                                   "Non-positive degrees of freedom",
                                   "Square root of negative number",
                                   "Arguments must be different (smooth, sortby)",
                                   "Stack error",
                                   "Logarithm of zero"};

// Growth: the initial capacity, and the increment when fewer than minFree slots remain before a
// statement. The symbol table starts at the variable count + 150.
constexpr size_t kCodeStart = 200, kCodeMinFree = 100, kCodeGrowth = 200;
constexpr size_t kPoolStart = 400, kPoolMinFree = 50, kPoolGrowth = 400;
constexpr size_t kSymbolExtra = 150, kSymbolMinFree = 10, kSymbolGrowth = 20;

char *copyText(const char *s) {
    const size_t n = std::strlen(s) + 1;
    char *p = static_cast<char *>(KvMalloc(n));
    if (p) std::memcpy(p, s, n);
    return p;
}

void freeSymbols(AlgebraCompiler *c) {
    for (size_t i = 0; i < c->symbols.count(); ++i) KvFree(c->symbols[i].name);
    c->symbols.clear();
}

int addSymbol(AlgebraCompiler *c, const char *name, int flags, int index, const AlgebraFunction *fn, double *data) {
    if (c->symbols.count() == c->symbols.capacity()) AlgebraCompileError(c, ERR_SYMBOLS_FULL, nullptr);
    char *copy = copyText(name);
    if (!copy) AlgebraCompileError(c, ERR_OUT_OF_MEMORY, nullptr);
    c->symbols.pushWithin(AlgebraSymbol{copy, flags, index, fn, data, 0u});
    return static_cast<int>(c->symbols.count()) - 1;
}

// Variable names keep at most 64 characters in the database; a longer name in a program means
// the variable whose name is its first 64.
bool sameVariable(const char *dbName, const char *symbolName) {
    return std::strncmp(dbName, symbolName, DB_MAX_NAME) == 0;
}

int findVariable(const Database *db, const char *name) {
    for (int i = 0; i < db->varCount; ++i)
        if (sameVariable(db->names[i], name)) return i;
    return -1;
}

// A new variable named so, or -1 (the database has said why).
int makeVariable(Database *db, const char *name) {
    const int i = DbAddVariables(db, 1);
    if (i < 0) return -1;
    if (DbSetVariableName(db, i, name)) return i;
    DbDeleteVariables(db, i);
    return -1;
}

} // namespace

const char *AlgebraErrorText(int i) {
    const int n = static_cast<int>(sizeof kErrorTexts / sizeof kErrorTexts[0]);
    return i >= 0 && i < n ? kErrorTexts[i] : "";
}

AlgebraCompiler *AlgebraCreate(Database *db, int maxParams) {
    void *block = KvCalloc(1, sizeof(AlgebraCompiler));
    if (!block) {
        ReportError("Out of memory");
        return nullptr;
    }
    AlgebraCompiler *c = new (block) AlgebraCompiler();
    c->db = db;
    c->paramHighest = -1;
    if (maxParams > 0) {
        c->paramSlot = static_cast<int32_t *>(KvMallocArray(static_cast<size_t>(maxParams), sizeof(int32_t)));
        if (!c->paramSlot) {
            AlgebraFree(c);
            ReportError("Out of memory");
            return nullptr;
        }
        c->paramMax = maxParams;
        for (int i = 0; i < maxParams; ++i) c->paramSlot[i] = -1;
    }
    return c;
}

void AlgebraFree(AlgebraCompiler *c) {
    if (!c) return;
    freeSymbols(c);
    KvFree(c->paramSlot);
    KvFree(c->stream);
    c->~AlgebraCompiler();
    KvFree(c);
}

void AlgebraSetStream(AlgebraCompiler *c, unsigned char *stream, size_t size) {
    if (!c) {
        KvFree(stream);
        return;
    }
    KvFree(c->stream);
    c->stream = stream;
    c->streamSize = size;
    c->pos = nullptr;
    c->compiled = 0;
}

int AlgebraLoad(AlgebraCompiler *c, const char *text, FILE *file) {
    if (!c) return 0;
    unsigned char *stream = nullptr;
    size_t size = 0;
    c->message[0] = '\0';
    const int ok = AlgebraTokenize(text, file, &stream, &size, c->message, sizeof c->message);
    AlgebraSetStream(c, stream, size);
    return ok;
}

void AlgebraCompileError(AlgebraCompiler *c, int error, const char *token) {
    const int line = c->stream && c->pos ? AlgebraStreamLine(c->stream, c->pos) : 1;
    std::snprintf(c->message, sizeof c->message, "Parse error: %s%s%s on line %d", token ? token : "", token ? " " : "",
                  AlgebraErrorText(error), line);
    ReportError(c->message);
    throw AlgebraCompileFault{};
}

void AlgebraInitTables(AlgebraCompiler *c) {
    Database *db = c->db;
    freeSymbols(c);
    c->code.clear();
    c->pool.clear();
    c->paramHighest = -1;
    for (int i = 0; i < c->paramMax; ++i) c->paramSlot[i] = -1;
    if (!c->symbols.reserve(static_cast<size_t>(db->varCount) + kSymbolExtra) || !c->code.reserve(kCodeStart) ||
        !c->pool.reserve(kPoolStart))
        AlgebraCompileError(c, ERR_OUT_OF_MEMORY, nullptr);
    const double fixed[POOL_FIXED] = {0.0,
                                      1.0,
                                      2.0,
                                      3.0,
                                      4.0,
                                      5.0,
                                      static_cast<double>(db->sample.frequency),
                                      MissingValueOf(),
                                      3.141592653589793,
                                      static_cast<double>(db->obsCount)};
    for (double v : fixed) c->pool.pushWithin(v);
    int count = 0;
    const AlgebraFunction *fns = AlgebraFunctions(&count);
    for (int i = 0; i < count; ++i) addSymbol(c, fns[i].name, SYM_FUNCTION, i, &fns[i], nullptr);
    for (int i = 0; i < db->varCount; ++i) {
        if (AlgebraFindSymbol(c, db->names[i]) >= 0) AlgebraCompileError(c, ERR_DUPLICATE, db->names[i]);
        addSymbol(c, db->names[i], SYM_VARIABLE, i, nullptr, db->columns[i]);
    }
}

void AlgebraGrowTables(AlgebraCompiler *c) {
    if (!c->code.ensureFree(kCodeMinFree, kCodeGrowth) || !c->pool.ensureFree(kPoolMinFree, kPoolGrowth) ||
        !c->symbols.ensureFree(kSymbolMinFree, kSymbolGrowth))
        AlgebraCompileError(c, ERR_OUT_OF_MEMORY, nullptr);
}

void AlgebraEmit(AlgebraCompiler *c, int op, int operand) {
    if (!c->code.pushWithin(AlgebraInstr{op, operand})) AlgebraCompileError(c, ERR_CODE_FULL, nullptr);
    AlgebraAdjustDepth(c, AlgebraOpcodeEffect(op));
}

int AlgebraEmitJump(AlgebraCompiler *c, int op) {
    AlgebraEmit(c, op, -1);
    return static_cast<int>(c->code.count()) - 1;
}

void AlgebraPatchJump(AlgebraCompiler *c, int at) {
    c->code[static_cast<size_t>(at)].operand = static_cast<int32_t>(c->code.count());
}

// The interpreter checks no push: a statement that could hold more values than a run's stack
// allows does not compile.
void AlgebraAdjustDepth(AlgebraCompiler *c, int delta) {
    c->depth += delta;
    if (c->depth > ALGEBRA_STACK_LIMIT) AlgebraCompileError(c, ERR_STACK_FULL, nullptr);
}

int AlgebraConstant(AlgebraCompiler *c, double value) {
    if (value != value) return POOL_MISSING;
    for (int i = 0; i <= POOL_FREQUENCY; ++i)
        if (c->pool[static_cast<size_t>(i)] == value) return i;
    return AlgebraNewSlot(c, value);
}

int AlgebraNewSlot(AlgebraCompiler *c, double value) {
    if (!c->pool.pushWithin(value)) AlgebraCompileError(c, ERR_CONSTANTS_FULL, nullptr);
    return static_cast<int>(c->pool.count()) - 1;
}

int AlgebraFindSymbol(const AlgebraCompiler *c, const char *name) {
    for (size_t i = c->symbols.count(); i-- > 0;)
        if (KvEqualNoCase(c->symbols[i].name, name)) return static_cast<int>(i);
    return -1;
}

int AlgebraCreateVariable(AlgebraCompiler *c, const char *name) {
    if (c->symbols.count() == c->symbols.capacity()) AlgebraCompileError(c, ERR_SYMBOLS_FULL, nullptr);
    const int index = makeVariable(c->db, name);
    if (index < 0) AlgebraCompileError(c, ERR_CANNOT_CREATE, name);
    return addSymbol(c, name, SYM_VARIABLE, index, nullptr, c->db->columns[index]);
}

int AlgebraRefreshColumns(AlgebraCompiler *c, int create) {
    Database *db = c->db;
    int ok = 1;
    for (size_t s = 0; s < c->symbols.count(); ++s) {
        AlgebraSymbol &sym = c->symbols[s];
        if (!(sym.flags & SYM_VARIABLE)) continue;
        int i = sym.index;
        if (i < 0 || i >= db->varCount || !sameVariable(db->names[i], sym.name)) i = findVariable(db, sym.name);
        if (i < 0 && create && (i = makeVariable(db, sym.name)) < 0) ok = 0;
        sym.index = i;
        sym.data = i >= 0 ? db->columns[i] : nullptr;
    }
    return ok;
}
