// The disassembler: compiled code as text in the names of the opcode list, one instruction per
// line with its index, opcode, operand and what the operand stands for (constant, symbol,
// operator or function), for tests and the command-line tool's listing. It writes into the
// caller's buffer and measures what it could not write, as snprintf does.
#include <cstdarg>
#include <cstdio>

#include "algebra/compiler.h"

namespace {

struct Out {
    char *buf;
    size_t size, len;
};

void put(Out *o, const char *format, ...) {
    va_list ap;
    va_start(ap, format);
    const size_t room = o->len < o->size ? o->size - o->len : 0;
    const int n = std::vsnprintf(room ? o->buf + o->len : nullptr, room, format, ap);
    va_end(ap);
    if (n > 0) o->len += static_cast<size_t>(n);
}

} // namespace

const char *AlgebraOpcodeName(int opcode) {
    switch (opcode) {
#define ALGEBRA_OPCODE_NAME(name, code, effect, operand)                                                               \
  case code: return #name;
        ALGEBRA_OPCODES(ALGEBRA_OPCODE_NAME)
#undef ALGEBRA_OPCODE_NAME
    default: return nullptr;
    }
}

const char *AlgebraOperatorName(int code) {
    switch (code) {
#define ALGEBRA_OPERATOR_NAME(name, code, text)                                                                        \
  case code: return #name;
        ALGEBRA_OPERATORS(ALGEBRA_OPERATOR_NAME)
#undef ALGEBRA_OPERATOR_NAME
    default: return nullptr;
    }
}

int AlgebraOpcodeEffect(int opcode) {
    switch (opcode) {
#define ALGEBRA_OPCODE_EFFECT(name, code, effect, operand)                                                             \
  case code: return effect;
        ALGEBRA_OPCODES(ALGEBRA_OPCODE_EFFECT)
#undef ALGEBRA_OPCODE_EFFECT
    default: return 0;
    }
}

size_t AlgebraDisassemble(const AlgebraCompiler *c, char *out, size_t size) {
    Out o{out, size, 0};
    if (size) out[0] = '\0';
    if (!c) return 0;
    for (size_t i = 0; i < c->code.count(); ++i) {
        const AlgebraInstr in = c->code[i];
        const char *name = AlgebraOpcodeName(in.op);
        put(&o, "%04d %-9s %d", static_cast<int>(i), name ? name : "?", static_cast<int>(in.operand));
        const size_t k = static_cast<size_t>(in.operand);
        switch (in.op) {
        case OP_CONST:
            if (k < c->pool.count()) {
                const double v = c->pool[k];
                if (v != v)
                    put(&o, "  ; MISSING");
                else
                    put(&o, "  ; %.15g", v);
            }
            break;
        case OP_LOAD:
        case OP_LOADREL:
        case OP_LOADDATE:
        case OP_STORE:
        case OP_STOREREL:
        case OP_STOREDATE:
            if (k < c->symbols.count()) put(&o, "  ; %s", c->symbols[k].name);
            break;
        case OP_OPER:
            if (AlgebraOperatorName(in.operand)) put(&o, "  ; %s", AlgebraOperatorName(in.operand));
            break;
        case OP_CALL: {
            int count = 0;
            const AlgebraFunction *fns = AlgebraFunctions(&count);
            if (in.operand >= 0 && in.operand < count) put(&o, "  ; %s", fns[in.operand].name);
            break;
        }
        default: break;
        }
        put(&o, "\n");
    }
    return o.len;
}
