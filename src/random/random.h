// Uniform random numbers from five interchangeable generator families, selected by name, and the
// variates built on them. A generator record (RanState) holds the state words of every family side
// by side and the operation table of the family in use; every draw goes through that table, so a
// caller may also install operations of its own. Nothing here allocates. The process-wide record
// behind RanDefault is unguarded: one thread makes all draws. Families, seeding and methods are
// described in docs/random.md.
#ifndef KAVREL_RANDOM_RANDOM_H
#define KAVREL_RANDOM_RANDOM_H

#include <cstdint>

#include "base/types.h"

struct RanState;

// The operation table: eight entries, installed per family by RanSetGenerator. Entry k of the
// documentation is member k - 1 in this order.
struct RanOps {
    // 1: seeds the family from one integer (every int is a seed, 0 the default seed); returns the
    // seed used.
    int (*seed)(RanState *s, int seed);
    // 2: the family's uniform draw.
    double (*uniform)(RanState *s);
    // 3: the uniform draw used for matrix elements (the same draw in every family).
    double (*element)(RanState *s);
    // 4: number of 32-bit words in the family's state.
    int (*stateSize)();
    // 5: fills rows x cols elements of m row by row, each element one call of entry 3.
    void (*fill)(RanState *s, MATRIX m, int rows, int cols);
    // 6: copies the family's state words to words (stateSize() of them); returns their number.
    int (*getState)(const RanState *s, uint32_t *words);
    // 7: installs n state words in getState's order; returns 1, or 0 with the record unchanged
    // when n is not stateSize() or the words are out of range or a fixed point of the recurrence.
    int (*setState)(RanState *s, const uint32_t *words, int n);
    // 8: 1 when the family's words in s would pass entry 7, else 0.
    int (*valid)(const RanState *s);
};

struct RanState {
    int32_t initialised;     // 0 until the default initialisation has run
    int32_t x;               // 31-bit congruential state, 1 .. 2^31 - 2
    uint32_t z, w;           // pair of 16-bit multiply-with-carry halves
    uint32_t z1, z2, z3, z4; // combined shift register, z1 >= 2, z2 >= 8, z3 >= 16, z4 >= 128
    uint32_t Q[256];         // lag-256 multiply-with-carry: lag table,
    uint32_t i;              // index of the word last replaced (0 .. 255),
    uint32_t c;              // and carry, below the multiplier
    int32_t spare;           // the seed the current family was last seeded from; 0 after selection
    RanOps ops;
};

// Family numbers, in the order of the name table.
enum {
    RAN_LCG31 = 1,   // "PM", "LCG31": 31-bit congruential
    RAN_MWC60 = 2,   // "GM", "MWC60": pair of 16-bit multiply-with-carry
    RAN_LFSR113 = 3, // "LE", "LFSR113": four-component combined shift register
    RAN_MWC32 = 4,   // "MWC_32", "MWC8222": lag-256 multiply-with-carry, 32-bit resolution
    RAN_MWC52 = 5    // every other name, null and "": lag-256 multiply-with-carry, 52-bit resolution
};

// The family a name selects; names compare exactly (case-sensitive).
int RanFamilyByName(const char *name);
// The operation table of a family (RAN_LCG31 .. RAN_MWC52); null for any other number.
const RanOps *RanFamilyOps(int family);

// Runs the default initialisation when s->initialised is 0 (every family takes its default seed),
// sets the spare word to 0 and installs the operation table of the family that name selects. A
// record is used only after this call; a zeroed record is a valid argument.
void RanSetGenerator(RanState *s, const char *name);

// Seeds the current family: seed -1 changes nothing and returns the seed the current stream was
// last seeded from (s->spare); 0 reseeds the family with its default seed; any other value seeds
// it with that value. Returns the seed now recorded in s->spare.
int RanSeed(RanState *s, int seed);

// The process-wide record, selected with the default family ("MWC_52") on first use.
RanState *RanDefault();

// Variates. Each is a function of the family's uniform draws only. An invalid degree of freedom
// gives the missing value (MissingValueOf()) without drawing; valid ones never give it.
// Uniform: the family's draw as it is (docs/random.md gives each family's range).
double RanUniform(RanState *s);
// n uniforms into out[0 .. n-1], the same draws as n calls of RanUniform: the way to draw many,
// since a family's own draw then runs inline rather than through the table once per draw.
void RanUniforms(RanState *s, double *out, int n);
// Standard normal by inversion of one uniform.
double RanNormal(RanState *s);
// Chi-squared with df degrees of freedom; invalid unless 0 < df < inf.
double RanChiSquared(RanState *s, double df);
// Student's t with trunc(df) degrees of freedom; invalid unless trunc(df) >= 1. df = +inf gives
// the standard normal.
double RanStudentT(RanState *s, double df);
// F with df1, df2 degrees of freedom; invalid unless both are > 0. Either may be +inf (the
// chi-squared over its degrees of freedom is then replaced by its limit, 1).
double RanF(RanState *s, double df1, double df2);

#endif
