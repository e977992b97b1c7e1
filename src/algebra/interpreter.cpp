// The Algebra interpreter. A program runs statement by statement, and each statement for every
// observation t1..t2 before the next one starts, so that y = y[-1] + x sees the values it has
// just written. One function with one switch inside for (;;) and the program counter, stack top
// and observation in locals (clox's run()), over steps decoded from the code once per run.
// Faults set bits, give the missing value and are reported once when the run ends; only a full
// stack and an underflow stop it.
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "algebra/compiler.h"
#include "base/alloc.h"
#include "base/carve.h"
#include "base/types.h"
#include "database/calendar.h"
#include "database/database.h"
#include "database/messages.h"

namespace {

// The run does not walk the compiled pairs themselves but steps made from them once per run:
// operands resolved (a variable's symbol, a constant's value, a jump's step), the operator in
// the key, and a load or constant followed by + - * / made one step, as are a constant's unary
// minus and a constant index, so that a statement costs fewer dispatches. A step never starts
// inside a pair whose second half is a jump target.
enum {
    KEY_OPER = 128,  // + operator: both operands on the stack
    KEY_VAR = 256,   // + operator (+ - * /): the right operand a variable at t
    KEY_CONST = 384, // + operator (+ - * /): the right operand a constant
    KEY_PAIR = 448,  // + operator (+ - * /): both operands variables at t, the result pushed
    KEY_LOADAT = 511 // a variable at t + a whole offset
};

struct Step {
    int32_t key;
    int32_t arg;               // jump: target step; CALL: function; LOADAT: offset; else the operand
    AlgebraSymbol *sym;        // variable steps
    const AlgebraSymbol *sym2; // the right operand of a pair
    double value;              // constants
    int32_t first;             // the code index of the step's first pair
};

bool arithmetic(int op) { return op == OPR_ADD || op == OPR_SUB || op == OPR_MUL || op == OPR_DIV; }

// Fills steps (as many as the code has pairs, at most) and returns their count. stepOf and
// target are scratch of the same length.
int decode(AlgebraCompiler *c, Step *steps, int32_t *stepOf, unsigned char *target) {
    const int n = static_cast<int>(c->code.count());
    const AlgebraInstr *code = c->code.data();
    std::memset(target, 0, static_cast<size_t>(n));
    for (int i = 0; i < n; ++i)
        if ((code[i].op == OP_JUMP || code[i].op == OP_JUMPFALSE) && code[i].operand >= 0 && code[i].operand < n)
            target[code[i].operand] = 1;
    int m = 0;
    for (int i = 0; i < n; ++i) {
        const int op = code[i].op, arg = code[i].operand;
        Step *prev = m > 0 && !target[i] ? &steps[m - 1] : nullptr;
        const bool afterConst = prev && prev->key == OP_CONST;
        stepOf[i] = m - 1;
        if (op == OP_OPER && arg == OPR_NEG && afterConst && prev->value == prev->value) {
            prev->value = -prev->value;
        } else if (op == OP_OPER && arithmetic(arg) && prev && (prev->key == OP_LOAD || afterConst)) {
            prev->key = (prev->key == OP_LOAD ? KEY_VAR : KEY_CONST) + arg;
            Step *before = m > 1 && !target[prev->first] ? &steps[m - 2] : nullptr;
            if (prev->key == KEY_VAR + arg && before && before->key == OP_LOAD) {
                before->key = KEY_PAIR + arg;
                before->sym2 = prev->sym;
                --m;
            }
        } else if (op == OP_LOADREL && afterConst && std::fabs(prev->value) < 1e9) {
            prev->key = KEY_LOADAT;
            prev->arg = static_cast<int32_t>(prev->value);
            prev->sym = &c->symbols[static_cast<size_t>(arg)];
        } else {
            Step &s = steps[m];
            stepOf[i] = m++;
            s = Step{op == OP_OPER ? KEY_OPER + arg : op, arg, nullptr, nullptr, 0.0, i};
            if (op == OP_CONST) s.value = c->pool[static_cast<size_t>(arg)];
            if (op == OP_LOAD || op == OP_LOADREL || op == OP_LOADDATE || op == OP_STORE || op == OP_STOREREL ||
                op == OP_STOREDATE)
                s.sym = &c->symbols[static_cast<size_t>(arg)];
        }
    }
    for (int k = 0; k < m; ++k)
        if (steps[k].key == OP_JUMP || steps[k].key == OP_JUMPFALSE)
            steps[k].arg = steps[k].arg >= 0 && steps[k].arg < n ? stepOf[steps[k].arg] : m - 1;
    return m;
}

// The observation of year(period) in the database's sample, or trunc(year) itself when the
// period is not positive; -1 when there is none.
int dateObservation(const Database *db, double year, double period) {
    if (period > 0.0) {
        if (!(year > -1e8 && year < 1e8 && period < 1e8)) return -1;
        return SampleObsIndex(static_cast<int>(year), static_cast<int>(period), db->sample);
    }
    const double i = std::trunc(year);
    return i >= 0.0 && i < INT_MAX ? static_cast<int>(i) : -1;
}

void execute(AlgebraCompiler *c, const Step *steps, double *stack) {
    const AlgebraFunction *const fns = AlgebraFunctions(nullptr);
    const Database *const db = c->db;
    const int t1 = c->t1, t2 = c->t2, nobs = c->nobs;
    const double na = MissingValueOf();
    const Step *pc = steps, *start = steps;
    // The top of the stack lives in a register; below it the stack holds one unused slot at its
    // bottom (what a statement's first push spills) and the values under the top.
    double *sp = stack, top = 0.0;
    int t = t2 + 1; // so that the first statement boundary starts a pass at t1
    for (;;) {
        const Step &s = *pc;
        switch (s.key) {
        case OP_STATEMENT:
            if (t < t2) {
                ++t;
                pc = start; // the statement again, at the next observation
                break;
            }
            if (s.arg == -1) return;
            t = t1;
            start = pc;
            sp = stack;
            break;
        case OP_CONST:
            *sp++ = top;
            top = s.value;
            break;
        case OP_LOAD:
            *sp++ = top;
            top = s.sym->data[t];
            break;
        case KEY_LOADAT: {
            *sp++ = top;
            const int i = t + s.arg;
            top = i >= 0 && i < nobs ? s.sym->data[i] : na;
            break;
        }
        case OP_LOADREL: {
            const double i = t + std::trunc(top);
            top = i >= 0.0 && i < nobs ? s.sym->data[static_cast<int>(i)] : na;
            break;
        }
        case OP_LOADDATE: {
            const int i = dateObservation(db, *--sp, top);
            top = i >= 0 && i < nobs ? s.sym->data[i] : na;
            break;
        }
        case OP_STORE:
            s.sym->data[t] = top;
            ++s.sym->writes;
            top = *--sp;
            break;
        case OP_STOREREL: {
            const double i = t + std::trunc(*--sp);
            if (i >= t1 && i <= t2) s.sym->data[static_cast<int>(i)] = top;
            ++s.sym->writes;
            top = *--sp;
            break;
        }
        case OP_STOREDATE: {
            // The value waits on the stack during the call, so that top needs no saving.
            sp[0] = top;
            sp -= 2;
            const int i = dateObservation(db, sp[0], sp[1]);
            if (i >= t1 && i <= t2) s.sym->data[i] = sp[2];
            ++s.sym->writes;
            top = *--sp;
            break;
        }
        case OP_DROP:
            sp += s.arg;
            if (sp < stack) {
                c->errors |= ALGEBRA_STACK_ERROR;
                return;
            }
            top = *sp;
            break;
        case OP_JUMPFALSE: {
            const double condition = top;
            top = *--sp;
            if (condition == 0.0) {
                pc = steps + s.arg;
                continue;
            }
            break;
        }
        case OP_JUMP: pc = steps + s.arg; continue;
        case OP_CALL: {
            const AlgebraFunction &f = fns[s.arg];
            *sp++ = top;
            double *args = sp - f.argc;
            bool missing = false;
            for (int k = 0; k < f.argc; ++k) missing |= args[k] != args[k];
            c->t = t;
            top = missing ? na : f.entry(c, args);
            sp = args;
            if (sp - stack > ALGEBRA_STACK_LIMIT) {
                c->errors |= ALGEBRA_STACK_FULL;
                return;
            }
            break;
        }
        // + - * propagate a missing operand as IEEE arithmetic propagates a NaN. A division by
        // zero is a fault unless the dividend is missing.
        case KEY_OPER + OPR_ADD: top = *--sp + top; break;
        case KEY_OPER + OPR_SUB: top = *--sp - top; break;
        case KEY_OPER + OPR_MUL: top = *--sp * top; break;
        case KEY_OPER + OPR_DIV: {
            const double a = *--sp;
            if (top == 0.0 && a == a) c->errors |= ALGEBRA_DIVIDE_BY_ZERO;
            top = a / top;
            break;
        }
        case KEY_VAR + OPR_ADD: top += s.sym->data[t]; break;
        case KEY_VAR + OPR_SUB: top -= s.sym->data[t]; break;
        case KEY_VAR + OPR_MUL: top *= s.sym->data[t]; break;
        case KEY_VAR + OPR_DIV: {
            const double b = s.sym->data[t];
            if (b == 0.0 && top == top) c->errors |= ALGEBRA_DIVIDE_BY_ZERO;
            top /= b;
            break;
        }
        case KEY_PAIR + OPR_ADD:
            *sp++ = top;
            top = s.sym->data[t] + s.sym2->data[t];
            break;
        case KEY_PAIR + OPR_SUB:
            *sp++ = top;
            top = s.sym->data[t] - s.sym2->data[t];
            break;
        case KEY_PAIR + OPR_MUL:
            *sp++ = top;
            top = s.sym->data[t] * s.sym2->data[t];
            break;
        case KEY_PAIR + OPR_DIV: {
            *sp++ = top;
            const double a = s.sym->data[t], b = s.sym2->data[t];
            if (b == 0.0 && a == a) c->errors |= ALGEBRA_DIVIDE_BY_ZERO;
            top = a / b;
            break;
        }
        case KEY_CONST + OPR_ADD: top += s.value; break;
        case KEY_CONST + OPR_SUB: top -= s.value; break;
        case KEY_CONST + OPR_MUL: top *= s.value; break;
        case KEY_CONST + OPR_DIV:
            if (s.value == 0.0 && top == top) c->errors |= ALGEBRA_DIVIDE_BY_ZERO;
            top /= s.value;
            break;
        case KEY_OPER + OPR_POW: {
            const double a = *--sp;
            top = a != a || top != top ? na : std::pow(a, top);
            break;
        }
        case KEY_OPER + OPR_LT: {
            const double a = *--sp;
            top = a != a || top != top ? na : a < top ? 1.0 : 0.0;
            break;
        }
        case KEY_OPER + OPR_GT: {
            const double a = *--sp;
            top = a != a || top != top ? na : a > top ? 1.0 : 0.0;
            break;
        }
        case KEY_OPER + OPR_LE: {
            const double a = *--sp;
            top = a != a || top != top ? na : a <= top ? 1.0 : 0.0;
            break;
        }
        case KEY_OPER + OPR_GE: {
            const double a = *--sp;
            top = a != a || top != top ? na : a >= top ? 1.0 : 0.0;
            break;
        }
        // == and != compare missing values too: x == MISSING tests for one.
        case KEY_OPER + OPR_EQ: {
            const double a = *--sp;
            const bool am = a != a, bm = top != top;
            top = am || bm ? (am && bm ? 1.0 : 0.0) : a == top ? 1.0 : 0.0;
            break;
        }
        case KEY_OPER + OPR_NE: {
            const double a = *--sp;
            const bool am = a != a, bm = top != top;
            top = am || bm ? (am && bm ? 0.0 : 1.0) : a != top ? 1.0 : 0.0;
            break;
        }
        // A missing operand counts as true.
        case KEY_OPER + OPR_AND: {
            const double a = *--sp;
            top = a == 0.0 || top == 0.0 ? 0.0 : 1.0;
            break;
        }
        case KEY_OPER + OPR_OR: {
            const double a = *--sp;
            top = a == 0.0 && top == 0.0 ? 0.0 : 1.0;
            break;
        }
        case KEY_OPER + OPR_NOT:
            if (top == top) top = top == 0.0 ? 1.0 : 0.0;
            break;
        case KEY_OPER + OPR_NEG:
            if (top == top) top = -top;
            break;
        default: return; // END, or a code not in the lists
        }
        ++pc;
    }
}

// Before the run writes: one undo snapshot over the variables the program stores into.
void snapshotTargets(AlgebraCompiler *c) {
    int lo = INT_MAX, hi = -1;
    for (size_t s = 0; s < c->symbols.count(); ++s) {
        const AlgebraSymbol &sym = c->symbols[s];
        if ((sym.flags & SYM_STORED) && sym.index >= 0) {
            if (sym.index < lo) lo = sym.index;
            if (sym.index > hi) hi = sym.index;
        }
    }
    if (hi >= 0) DbSnapshotValues(c->db, lo, hi, c->t1, c->t2);
}

bool isStored(const AlgebraCompiler *c, int index) {
    for (size_t s = 0; s < c->symbols.count(); ++s)
        if ((c->symbols[s].flags & SYM_STORED) && c->symbols[s].index == index) return true;
    return false;
}

// After the run: the written variables marked changed, each run of neighbouring indices as one
// range, so that variables a program made together are announced once.
void markTargets(AlgebraCompiler *c) {
    for (int from = -1;;) {
        int lo = INT_MAX;
        for (size_t s = 0; s < c->symbols.count(); ++s) {
            const AlgebraSymbol &sym = c->symbols[s];
            if ((sym.flags & SYM_STORED) && sym.index > from && sym.index < lo) lo = sym.index;
        }
        if (lo == INT_MAX) return;
        int hi = lo;
        while (isStored(c, hi + 1)) ++hi;
        DbMarkChanged(c->db, lo, hi);
        from = hi;
    }
}

} // namespace

int AlgebraRun(AlgebraCompiler *c, int t1, int t2, int nobs, int quiet) {
    if (!c || !c->compiled || !c->db || c->code.count() == 0) return 0;
    // The stack and the steps with their scratch: one block.
    const size_t n = c->code.count();
    KvCarve measure;
    measure.take<double>(ALGEBRA_STACK_SIZE), measure.take<Step>(n), measure.take<int32_t>(n);
    measure.take<unsigned char>(n);
    size_t bytes = 0;
    KvArray<char> block;
    if (!measure.total(&bytes) || !block.alloc(bytes)) {
        // The message buffer too: the bridge returns its text as the run's failure.
        std::snprintf(c->message, sizeof c->message, "%s", AlgebraErrorText(ERR_OUT_OF_MEMORY));
        ReportError(c->message);
        return 0;
    }
    KvCarve carve(block.get());
    double *stack = carve.take<double>(ALGEBRA_STACK_SIZE);
    Step *steps = carve.take<Step>(n);
    int32_t *stepOf = carve.take<int32_t>(n);
    unsigned char *target = carve.take<unsigned char>(n);
    Database *db = c->db;
    if (nobs > db->obsCount) nobs = db->obsCount;
    if (t1 < 0) t1 = 0;
    if (t2 > nobs - 1) t2 = nobs - 1;
    c->t1 = t1, c->t2 = t2, c->t = t1, c->nobs = nobs;
    c->errors = 0;
    c->message[0] = '\0';
    std::memset(c->memo, 0, sizeof c->memo);
    // One batch: the run's snapshot, marks and deletions are one undo step, and the variables
    // the program deletes go when it ends.
    DbBeginBatch(db);
    const int ready = AlgebraRefreshColumns(c, 1);
    if (ready) {
        if (t1 <= t2) {
            snapshotTargets(c);
            decode(c, steps, stepOf, target);
            execute(c, steps, stack);
            markTargets(c);
        }
        for (size_t s = 0; s < c->symbols.count(); ++s)
            if ((c->symbols[s].flags & SYM_DELETE) && c->symbols[s].index >= 0)
                DbDeleteVariables(db, c->symbols[s].index);
    }
    if (c->errors) DbAnnounce(db); // a faulty run is news even when it stored nothing
    DbEndBatch(db);
    AlgebraRefreshColumns(c, 0);
    if (!ready) {
        std::snprintf(c->message, sizeof c->message, "%s", AlgebraErrorText(ERR_OUT_OF_MEMORY));
        return 0;
    }
    if (!c->errors) return 1;
    AlgebraErrorReport(c);
    if (!quiet) ReportError(c->message);
    return 0;
}

namespace {
bool sameKey(const AlgebraMemo &m, const double *key, int nkey) {
    for (int i = 0; i < nkey; ++i)
        if (std::memcmp(&m.key[i], &key[i], sizeof(double)) != 0) return false;
    return true;
}
} // namespace

AlgebraMemo *AlgebraMemoFind(AlgebraCompiler *c, AlgebraBuiltinFn fn, int symbol, const double *key, int nkey) {
    const uint32_t writes = c->symbols[static_cast<size_t>(symbol)].writes;
    for (AlgebraMemo &m : c->memo)
        if (m.fn == fn && m.symbol == symbol && m.writes == writes && sameKey(m, key, nkey)) return &m;
    return nullptr;
}

AlgebraMemo *AlgebraMemoTake(AlgebraCompiler *c, AlgebraBuiltinFn fn, int symbol, const double *key, int nkey) {
    AlgebraMemo *slot = nullptr;
    for (AlgebraMemo &m : c->memo)
        if ((m.fn == fn && m.symbol == symbol) || (!slot && !m.fn)) slot = &m;
    if (!slot) {
        slot = &c->memo[c->memoNext];
        c->memoNext = (c->memoNext + 1) % ALGEBRA_MEMO_SLOTS;
    }
    *slot = AlgebraMemo{};
    slot->fn = fn;
    slot->symbol = symbol;
    slot->writes = c->symbols[static_cast<size_t>(symbol)].writes;
    for (int i = 0; i < nkey; ++i) slot->key[i] = key[i];
    return slot;
}

void AlgebraNoteWrite(AlgebraCompiler *c, int symbol) { ++c->symbols[static_cast<size_t>(symbol)].writes; }

void AlgebraSetError(AlgebraCompiler *c, int bit) {
    if (c) c->errors |= static_cast<uint32_t>(bit);
}

int AlgebraErrors(const AlgebraCompiler *c) { return c ? static_cast<int>(c->errors) : 0; }

const char *AlgebraErrorReport(AlgebraCompiler *c) {
    if (!c) return "No errors.";
    char *m = c->message;
    const size_t size = sizeof c->message;
    if (!c->errors) {
        std::snprintf(m, size, "No errors.");
        return m;
    }
    size_t n = static_cast<size_t>(std::snprintf(m, size, "There were Algebra run-time errors:\r\n"));
    for (int b = 0; b <= 8; ++b)
        if ((c->errors & (1u << b)) && n < size)
            n +=
                static_cast<size_t>(std::snprintf(m + n, size - n, "    %s\r\n", AlgebraErrorText(ERR_STACK_FULL + b)));
    return m;
}

const char *AlgebraMessage(const AlgebraCompiler *c) { return c ? c->message : ""; }

int AlgebraParamHighest(const AlgebraCompiler *c) { return c ? c->paramHighest : -1; }

int AlgebraParamSlot(const AlgebraCompiler *c, int n) { return c && n >= 0 && n < c->paramMax ? c->paramSlot[n] : -1; }

int AlgebraParamCount(const AlgebraCompiler *c) {
    int n = 0;
    for (int i = 0; c && i <= c->paramHighest; ++i) n += c->paramSlot[i] >= 0;
    return n;
}

double *AlgebraConstants(AlgebraCompiler *c, int *count) {
    if (count) *count = c ? static_cast<int>(c->pool.count()) : 0;
    return c ? c->pool.data() : nullptr;
}

int AlgebraSetParams(AlgebraCompiler *c, const double *values, int n) {
    if (!c || n != AlgebraParamCount(c)) return 0;
    for (int i = 0, k = 0; i <= c->paramHighest; ++i)
        if (c->paramSlot[i] >= 0) c->pool[static_cast<size_t>(c->paramSlot[i])] = values[k++];
    return 1;
}
