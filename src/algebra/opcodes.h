// The instruction set of compiled Algebra code: (opcode, operand) pairs of 32-bit integers. The
// opcodes are the characters below; ALGEBRA_OPCODES is the one list that yields the enum, the
// disassembler's names and the stack effect the code generator tracks. The operators of OPER are
// the token codes of their spelling, listed in ALGEBRA_OPERATORS with the text a user wrote.
#ifndef KAVREL_ALGEBRA_OPCODES_H
#define KAVREL_ALGEBRA_OPCODES_H

// X(name, code, stack effect, operand): the effect is the change in stack depth; CALL's real
// effect is 1 - argc and a unary OPER's is 0, which the code generator accounts for.
#define ALGEBRA_OPCODES(X)                                                                                             \
  X(END, 0, 0, "0")                         /* stops the run */                                                        \
  X(CONST, 'l', 1, "pool index")            /* -> constant */                                                          \
  X(LOAD, 'L', 1, "symbol")                 /* -> x[t] */                                                              \
  X(LOADREL, 'X', 0, "symbol")              /* k -> x[t + trunc(k)], missing outside the stored observations */        \
  X(LOADDATE, 'D', -1, "symbol")            /* year period -> x at year(period); x[trunc(year)] if period <= 0 */      \
  X(OPER, 'O', -1, "operator")              /* a b -> a op b; unary: a -> op a */                                      \
  X(CALL, 'C', 1, "function table index")   /* arg1 .. argn -> f(args), missing if any argument is */                  \
  X(STORE, 'S', -1, "symbol")               /* v -> ; x[t] = v */                                                      \
  X(STOREREL, 'x', -2, "symbol")            /* k v -> ; x[t + trunc(k)] = v inside t1..t2 */                           \
  X(STOREDATE, 'd', -3, "symbol")           /* year period v -> ; stored inside t1..t2 */                              \
  X(DROP, 'I', -1, "-1, added to the top")  /* v -> */                                                                 \
  X(JUMPFALSE, 'j', -1, "code index")       /* c -> ; jumps when c == 0.0 (missing is true) */                         \
  X(JUMP, 'J', 0, "code index")             /* -> */                                                                   \
  X(STATEMENT, 's', 0, "0, -1 on the last") /* next observation, or the next statement after t2 */

enum AlgebraOpcode {
#define ALGEBRA_OPCODE_ENUM(name, code, effect, operand) OP_##name = code,
    ALGEBRA_OPCODES(ALGEBRA_OPCODE_ENUM)
#undef ALGEBRA_OPCODE_ENUM
};

// X(name, code, text): the operators of OPER, their codes and how they are written.
#define ALGEBRA_OPERATORS(X)                                                                                           \
  X(OR, '|', "||")                                                                                                     \
  X(AND, '&', "&&")                                                                                                    \
  X(EQ, 'E', "==")                                                                                                     \
  X(NE, 'N', "!=")                                                                                                     \
  X(LE, 'L', "<=")                                                                                                     \
  X(GE, 'G', ">=")                                                                                                     \
  X(LT, '<', "<")                                                                                                      \
  X(GT, '>', ">")                                                                                                      \
  X(ADD, '+', "+")                                                                                                     \
  X(SUB, '-', "-")                                                                                                     \
  X(MUL, '*', "*")                                                                                                     \
  X(DIV, '/', "/")                                                                                                     \
  X(POW, '^', "^")                                                                                                     \
  X(NOT, '!', "!")                                                                                                     \
  X(NEG, 'U', "-")

enum AlgebraOperator {
#define ALGEBRA_OPERATOR_ENUM(name, code, text) OPR_##name = code,
    ALGEBRA_OPERATORS(ALGEBRA_OPERATOR_ENUM)
#undef ALGEBRA_OPERATOR_ENUM
};

// Names for the disassembler ("STORE", "ADD", ...); null for a code not in the lists.
const char *AlgebraOpcodeName(int opcode);
const char *AlgebraOperatorName(int code);
// The stack effect of the list above (0 for a code not in it).
int AlgebraOpcodeEffect(int opcode);

#endif
