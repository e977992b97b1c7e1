// The Algebra parser: recursive descent over the token stream of the scanner, one function per
// rule with the rule in its first comment, binary operators through one priority table and
// subexpr(limit) as in Lua's lparser.c. It emits through codegen.cpp; errors leave through
// AlgebraCompileError and end at the one catch in AlgebraCompile.
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "algebra/compiler.h"
#include "base/text.h"
#include "base/types.h"
#include "database/calendar.h"
#include "database/database.h"
#include "database/messages.h"

namespace {

// Expression levels that may be open at once: deeper programs would exhaust the C stack before
// the value stack.
constexpr int kMaxNesting = 200;
constexpr int kUnaryPriority = 7;

// Binary operators: token code (also the operator code) and priority; all associate to the left.
const struct {
    int code, priority;
} kBinary[] = {{TK_OR, 1}, {TK_AND, 2}, {TK_EQ, 3}, {TK_NE, 3}, {'<', 4}, {'>', 4}, {TK_LE, 4},
               {TK_GE, 4}, {'+', 5},    {'-', 5},   {'*', 6},   {'/', 6}, {'^', 8}};

int binaryPriority(int code) {
    for (const auto &b : kBinary)
        if (b.code == code) return b.priority;
    return 0;
}

// ---- The token stream ----

const unsigned char *skipEntry(const unsigned char *p) {
    switch (*p) {
    case TK_STRING:
    case TK_CONST:
    case TK_IDENT: return p + 2 + std::strlen(reinterpret_cast<const char *>(p + 1));
    case TK_EOL: return p + 4; // code and three digits, whatever the line number's length
    case TK_END: return p;
    default: return p + 1;
    }
}

const unsigned char *skipLines(const unsigned char *p) {
    while (*p == TK_EOL) p += 4;
    return p;
}

const unsigned char *following(const unsigned char *p) { return skipLines(skipEntry(p)); }

int current(const AlgebraCompiler *c) { return *c->pos; }
const char *tokenText(const AlgebraCompiler *c) { return reinterpret_cast<const char *>(c->pos + 1); }
int peek(const AlgebraCompiler *c) { return *following(c->pos); }
void advance(AlgebraCompiler *c) { c->pos = following(c->pos); }
bool check(const AlgebraCompiler *c, int code) { return current(c) == code; }
bool isName(int code) { return code == TK_IDENT || code == TK_STRING; }

bool accept(AlgebraCompiler *c, int code) {
    if (!check(c, code)) return false;
    advance(c);
    return true;
}

// How messages name a token.
const char *tokenName(int code) {
    static char single[2];
    switch (code) {
    case TK_END: return "end of code";
    case TK_STRING: return "string";
    case TK_CONST: return "constant";
    case TK_IDENT: return "identifier";
    case TK_FALSE: return "FALSE";
    case TK_TRUE: return "TRUE";
    case TK_MISSING: return "MISSING";
    case TK_PI: return "PI";
    case TK_FREQUENCY: return "FREQUENCY";
    case TK_NOBS: return "NOBS";
    case TK_AND: return "&&";
    case TK_OR: return "||";
    case TK_EQ: return "==";
    case TK_NE: return "!=";
    case TK_LE: return "<=";
    case TK_GE: return ">=";
    case TK_PARAM: return "&";
    default: single[0] = static_cast<char>(code), single[1] = '\0'; return single;
    }
}

[[noreturn]] void outOfPlace(AlgebraCompiler *c) { AlgebraCompileError(c, ERR_OUT_OF_PLACE, tokenName(current(c))); }

void expect(AlgebraCompiler *c, int code) {
    if (!accept(c, code)) AlgebraCompileError(c, ERR_MISSING, tokenName(code));
}

void expectClose(AlgebraCompiler *c) {
    if (!accept(c, ')')) AlgebraCompileError(c, ERR_UNMATCHED_PARENS, nullptr);
}

[[noreturn]] void misplacedParameter(AlgebraCompiler *c) {
    ReportError("'&' indicates a parameter, and is only allowed in Model formulation");
    outOfPlace(c);
}

// The value of a constant's text: D and d are exponent letters too; a lone point is 0.
double numberOf(const char *text) {
    char buf[ALGEBRA_TOKEN_MAX + 1];
    size_t n = 0;
    for (; text[n] && n < ALGEBRA_TOKEN_MAX; ++n) buf[n] = text[n] == 'D' || text[n] == 'd' ? 'e' : text[n];
    buf[n] = '\0';
    double v = 0.0;
    const auto r = std::from_chars(buf, buf + n, v, std::chars_format::general);
    if (r.ec == std::errc::result_out_of_range) v = std::strtod(buf, nullptr);
    return v;
}

// Saturating conversion for calendar arguments; missing gives 0.
int toInt(double v) {
    if (!(v == v)) return 0;
    if (v > 2147483647.0) return 2147483647;
    if (v < -2147483647.0) return -2147483647;
    return static_cast<int>(v);
}

void expr(AlgebraCompiler *c);

int symbolOf(AlgebraCompiler *c, int index) {
    for (size_t s = c->symbols.count(); s-- > 0;)
        if ((c->symbols[s].flags & SYM_VARIABLE) && c->symbols[s].index == index) return static_cast<int>(s);
    return -1;
}

// ---- Expressions ----

// time -> CONST ':' CONST ':' CONST   (hours, minutes, seconds; at an integral constant)
bool timeOfDay(AlgebraCompiler *c, double *fraction) {
    const unsigned char *p = c->pos, *p1 = following(p), *p2 = following(p1), *p3 = following(p2), *p4 = following(p3);
    if (*p != TK_CONST || *p1 != ':' || *p2 != TK_CONST || *p3 != ':' || *p4 != TK_CONST) return false;
    const double h = numberOf(tokenText(c));
    if (h != std::trunc(h)) return false;
    const double m = numberOf(reinterpret_cast<const char *>(p2 + 1));
    const double s = numberOf(reinterpret_cast<const char *>(p4 + 1));
    *fraction = TimeToDayFraction(toInt(h), toInt(m), 0, toInt(std::trunc(s * 100.0)));
    c->pos = following(p4);
    return true;
}

// constant -> CONST '-' CONST '-' CONST [time] | time | CONST
void constant(AlgebraCompiler *c) {
    double v = numberOf(tokenText(c)), fraction = 0.0;
    const unsigned char *p1 = following(c->pos), *p2 = following(p1), *p3 = following(p2), *p4 = following(p3);
    const bool integral = v == std::trunc(v);
    if (integral && *p1 == '-' && *p2 == TK_CONST && *p3 == '-' && *p4 == TK_CONST) {
        const int jd = JulianDay(toInt(v), toInt(numberOf(reinterpret_cast<const char *>(p2 + 1))),
                                 toInt(numberOf(reinterpret_cast<const char *>(p4 + 1))));
        c->pos = following(p4);
        v = jd < 0 ? MissingValueOf() : jd;
        if (timeOfDay(c, &fraction)) v += fraction;
    } else if (integral && timeOfDay(c, &fraction)) {
        v = fraction;
    } else {
        advance(c);
    }
    AlgebraEmit(c, OP_CONST, AlgebraConstant(c, v));
}

// parameter -> '&' CONST   (model mode; the number is below the table's size)
int parameterNumber(AlgebraCompiler *c) {
    if (!c->paramMax) misplacedParameter(c);
    advance(c);
    if (!check(c, TK_CONST)) AlgebraCompileError(c, ERR_MISSING, tokenName(TK_CONST));
    const double v = numberOf(tokenText(c));
    if (!(v >= 0.0 && v < c->paramMax)) AlgebraCompileError(c, ERR_PARAMS_FULL, tokenText(c));
    advance(c);
    return static_cast<int>(v);
}

// A parameter's slot, taken (holding the missing value) at its first use.
int parameterSlot(AlgebraCompiler *c, int n) {
    if (c->paramSlot[n] < 0) c->paramSlot[n] = AlgebraNewSlot(c, MissingValueOf());
    if (n > c->paramHighest) c->paramHighest = n;
    return c->paramSlot[n];
}

// index -> expr [ '(' expr ')' ]   (after '['; true for the dated form year(period))
bool index(AlgebraCompiler *c) {
    expr(c);
    if (!accept(c, '(')) return false;
    expr(c);
    expectClose(c);
    return true;
}

// vararg -> NAME   ('r': an existing variable; 'd': a variable, created when missing)
void variableArgument(AlgebraCompiler *c, int kind) {
    if (!isName(current(c))) AlgebraCompileError(c, ERR_NOT_A_NAME, tokenName(current(c)));
    const char *name = tokenText(c);
    int s = AlgebraFindSymbol(c, name);
    if (s >= 0 && (c->symbols[static_cast<size_t>(s)].flags & SYM_FUNCTION))
        AlgebraCompileError(c, ERR_NOT_A_VARIABLE, name);
    if (s < 0 && kind != ALGEBRA_ARG_DESTINATION) AlgebraCompileError(c, ERR_UNDECLARED, name);
    if (s < 0) s = AlgebraCreateVariable(c, name);
    if (kind == ALGEBRA_ARG_DESTINATION) c->symbols[static_cast<size_t>(s)].flags |= SYM_STORED;
    AlgebraEmit(c, OP_CONST, AlgebraConstant(c, s));
    advance(c);
}

// call -> NAME '(' [ arg { ',' arg } ] ')'   (the arguments as the function's kind letters say)
void call(AlgebraCompiler *c, const char *name) {
    const int s = AlgebraFindSymbol(c, name);
    if (s < 0 || !(c->symbols[static_cast<size_t>(s)].flags & SYM_FUNCTION))
        AlgebraCompileError(c, ERR_NOT_A_FUNCTION, name);
    const AlgebraFunction *fn = c->symbols[static_cast<size_t>(s)].function;
    advance(c); // '('
    int given = 0;
    const char *k = fn->kinds;
    for (; *k; ++k) {
        if (*k == ALGEBRA_ARG_OPTIONAL) {
            if (check(c, '(')) break;
            continue;
        }
        if (given++ > 0) expect(c, ',');
        if (*k == ALGEBRA_ARG_REFERENCE || *k == ALGEBRA_ARG_DESTINATION)
            variableArgument(c, *k);
        else
            expr(c);
    }
    // Optional arguments left out are missing, so that every call passes argc values.
    for (; *k; ++k)
        if (*k != ALGEBRA_ARG_OPTIONAL) AlgebraEmit(c, OP_CONST, POOL_MISSING);
    expectClose(c);
    AlgebraEmit(c, OP_CALL, c->symbols[static_cast<size_t>(s)].index);
    AlgebraAdjustDepth(c, -fn->argc);
}

// variable -> NAME [ '[' index ']' ]   (a name unknown as written may carry a lag suffix, Y_1)
void variable(AlgebraCompiler *c, const char *name) {
    int s = AlgebraFindSymbol(c, name), lag = 0;
    if (s >= 0 && (c->symbols[static_cast<size_t>(s)].flags & SYM_FUNCTION))
        AlgebraCompileError(c, ERR_MISSING, tokenName('('));
    if (s < 0) {
        const int v = DbFindVariable(c->db, name, 1, &lag, 1);
        s = v >= 0 ? symbolOf(c, v) : -1;
        if (s < 0) AlgebraCompileError(c, ERR_UNDECLARED, name);
    }
    if (accept(c, '[')) {
        const bool dated = index(c);
        if (dated && lag) outOfPlace(c);
        if (lag) {
            AlgebraEmit(c, OP_CONST, AlgebraConstant(c, -lag));
            AlgebraEmit(c, OP_OPER, OPR_ADD);
        }
        expect(c, ']');
        AlgebraEmit(c, dated ? OP_LOADDATE : OP_LOADREL, s);
    } else if (lag) {
        AlgebraEmit(c, OP_CONST, AlgebraConstant(c, -lag));
        AlgebraEmit(c, OP_LOADREL, s);
    } else {
        AlgebraEmit(c, OP_LOAD, s);
    }
}

// primary -> call | variable | '(' expr ')' | constant | keyword | parameter
void primary(AlgebraCompiler *c) {
    static const struct {
        int code, slot;
    } kKeywordSlots[] = {{TK_FALSE, POOL_ZERO},      {TK_TRUE, 1},     {TK_FREQUENCY, POOL_FREQUENCY},
                         {TK_MISSING, POOL_MISSING}, {TK_PI, POOL_PI}, {TK_NOBS, POOL_NOBS}};
    const int code = current(c);
    if (isName(code)) {
        const char *name = tokenText(c);
        advance(c);
        if (check(c, '('))
            call(c, name);
        else
            variable(c, name);
        return;
    }
    if (accept(c, '(')) {
        expr(c);
        expectClose(c);
        return;
    }
    if (code == TK_CONST) return constant(c);
    if (code == TK_PARAM) return AlgebraEmit(c, OP_CONST, parameterSlot(c, parameterNumber(c)));
    for (const auto &k : kKeywordSlots)
        if (code == k.code) {
            advance(c);
            return AlgebraEmit(c, OP_CONST, k.slot);
        }
    outOfPlace(c);
}

// subexpr -> ( ('-' | '!' | '+') subexpr | primary ) { binop subexpr }
// where a binary operator is taken only while its priority is above limit.
void subexpr(AlgebraCompiler *c, int limit) {
    if (++c->nesting > kMaxNesting) AlgebraCompileError(c, ERR_STACK_FULL, nullptr);
    const int code = current(c);
    if (code == '-' || code == '!' || code == '+') {
        advance(c);
        subexpr(c, kUnaryPriority);
        if (code != '+') {
            AlgebraEmit(c, OP_OPER, code == '-' ? OPR_NEG : OPR_NOT);
            AlgebraAdjustDepth(c, 1);
        }
    } else {
        primary(c);
    }
    for (int op = current(c), priority; (priority = binaryPriority(op)) > limit; op = current(c)) {
        advance(c);
        subexpr(c, priority);
        AlgebraEmit(c, OP_OPER, op);
    }
    --c->nesting;
}

// expr -> subexpr
void expr(AlgebraCompiler *c) { subexpr(c, 0); }

// ---- Statements ----

// A name being assigned: an existing variable, or a new one made in the database.
int target(AlgebraCompiler *c, const char *name) {
    int s = AlgebraFindSymbol(c, name);
    if (s >= 0 && (c->symbols[static_cast<size_t>(s)].flags & SYM_FUNCTION))
        AlgebraCompileError(c, ERR_NOT_A_VARIABLE, name);
    if (s < 0) s = AlgebraCreateVariable(c, name);
    c->symbols[static_cast<size_t>(s)].flags |= SYM_STORED;
    return s;
}

// assignment -> NAME [ '[' index ']' ] '=' expr [ '?' expr [ ':' expr ] ] ';'
void assignment(AlgebraCompiler *c) {
    const int s = target(c, tokenText(c));
    advance(c);
    int store = OP_STORE;
    const unsigned char *indexAt = nullptr;
    if (accept(c, '[')) {
        indexAt = c->pos;
        store = index(c) ? OP_STOREDATE : OP_STOREREL;
        expect(c, ']');
    }
    expect(c, '=');
    expr(c);
    if (accept(c, '?')) {
        const int toElse = AlgebraEmitJump(c, OP_JUMPFALSE);
        expr(c);
        const int toEnd = AlgebraEmitJump(c, OP_JUMP);
        AlgebraPatchJump(c, toElse);
        if (accept(c, ':')) {
            expr(c);
        } else if (store == OP_STORE) {
            AlgebraEmit(c, OP_LOAD, s); // no else: the variable keeps its value
        } else {
            // The value at the target's own observation: its index once more.
            const unsigned char *resume = c->pos;
            c->pos = indexAt;
            AlgebraEmit(c, index(c) ? OP_LOADDATE : OP_LOADREL, s);
            c->pos = resume;
        }
        AlgebraPatchJump(c, toEnd);
        AlgebraAdjustDepth(c, -1); // one branch runs
    }
    expect(c, ';');
    AlgebraEmit(c, store, s);
}

// deletion -> 'delete' '(' NAME { ',' NAME } ')' ';'
void deletion(AlgebraCompiler *c) {
    advance(c);
    advance(c);
    do {
        if (!isName(current(c))) AlgebraCompileError(c, ERR_NOT_A_NAME, tokenName(current(c)));
        const int s = AlgebraFindSymbol(c, tokenText(c));
        if (s < 0) AlgebraCompileError(c, ERR_UNDECLARED, tokenText(c));
        if (c->symbols[static_cast<size_t>(s)].flags & SYM_FUNCTION)
            AlgebraCompileError(c, ERR_NOT_A_VARIABLE, tokenText(c));
        c->symbols[static_cast<size_t>(s)].flags |= SYM_DELETE;
        advance(c);
    } while (accept(c, ','));
    expectClose(c);
    expect(c, ';');
}

// start -> '&' CONST '=' [ '+' | '-' ] CONST ';'   (model mode: a parameter's starting value)
void startingValue(AlgebraCompiler *c) {
    const int n = parameterNumber(c);
    expect(c, '=');
    const bool negative = check(c, '-');
    if (negative || check(c, '+')) advance(c);
    if (!check(c, TK_CONST)) AlgebraCompileError(c, ERR_MISSING, tokenName(TK_CONST));
    const double v = numberOf(tokenText(c));
    c->pool[static_cast<size_t>(parameterSlot(c, n))] = negative ? -v : v;
    advance(c);
    expect(c, ';');
}

// statement -> ';' | start | deletion | assignment | expr ';'
// False at the end of the program: the end of code or '}'.
bool statement(AlgebraCompiler *c) {
    const int code = current(c);
    if (code == TK_END || code == '}') return false;
    if (code == ';') {
        advance(c);
        return true;
    }
    if (code == TK_PARAM) {
        startingValue(c);
        return true;
    }
    if (!isName(code)) outOfPlace(c);
    const int next = peek(c);
    if (KvEqualNoCase(tokenText(c), "delete") && next == '(') {
        deletion(c);
    } else if (next == '=' || next == '[') {
        assignment(c);
    } else {
        expr(c);
        expect(c, ';');
        AlgebraEmit(c, OP_DROP, -1);
    }
    return true;
}

// program -> { statement } ( end of code | '}' )
void program(AlgebraCompiler *c) {
    for (;;) {
        const size_t n = c->code.count();
        if (n == 0 || c->code[n - 1].op != OP_STATEMENT || c->code[n - 1].operand != 0) AlgebraEmit(c, OP_STATEMENT, 0);
        c->depth = 0;
        c->nesting = 0;
        if (!statement(c)) break;
        AlgebraGrowTables(c);
    }
    c->code[c->code.count() - 1].operand = -1;
    AlgebraEmit(c, OP_END, 0);
}

} // namespace

int AlgebraCompile(AlgebraCompiler *c, Database *db) {
    if (!c) return 0;
    c->compiled = 0;
    c->db = db;
    if (!db || !c->stream) return 0;
    c->message[0] = '\0';
    c->pos = c->stream + 1; // errors of the tables are on line 1
    try {
        AlgebraInitTables(c);
        c->pos = skipLines(c->pos);
        program(c);
    } catch (const AlgebraCompileFault &) {
        return 0;
    }
    AlgebraRefreshColumns(c, 0);
    c->compiled = 1;
    return 1;
}
