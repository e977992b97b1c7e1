// The five uniform generator families, their seeding and state access, the name table and the
// operation tables. Each uniform is computed with exactly the arithmetic and constants its family
// is defined by, so that a stream is reproducible bit for bit from the definition alone; the
// constants are therefore written out as they are defined, not derived.
#include "random/random.h"

#include <cstring>

namespace {

constexpr int32_t kLcgModulus = 2147483647; // 2^31 - 1
constexpr uint32_t kPairZ = 36969, kPairW = 18000;
// A 16-bit multiply-with-carry half z = 2^16 carry + x steps as z <- z / 2^16 mod (a 2^16 - 1):
// its states are 1 .. a 2^16 - 2, and 0 and a 2^16 - 1 are fixed points.
constexpr uint32_t pairLimit(uint32_t a) { return a * 65536u - 1u; }
constexpr uint64_t kLagA = 809430660;
constexpr int kLagWords = 258; // Q[0..255], i, c

// The families read a word as signed and add 2^32 when negative. Both steps are exact in double,
// so the result is the word's unsigned value, and that is what is computed: written as the test
// on the sign, it compiled to a branch that the (random) sign mispredicts half the time, which
// made the draws of families 2 and 3 three times slower.
inline double unsignedReading(uint32_t v) { return static_cast<double>(v); }

// Seeding stream: SplitMix64 (Steele, Lea and Flood 2014), high halves of its outputs. It mixes
// from the first output on, so neighbouring integers (1, 2, 3, ...) start unrelated states, and
// every int, 0 and negatives included, is a seed.
struct SeedWords {
    uint64_t s;
    explicit SeedWords(int seed) : s(static_cast<uint64_t>(static_cast<int64_t>(seed))) {}
    uint32_t next() {
        uint64_t z = (s += UINT64_C(0x9E3779B97F4A7C15));
        z = (z ^ (z >> 30)) * UINT64_C(0xBF58476D1CE4E5B9);
        z = (z ^ (z >> 27)) * UINT64_C(0x94D049BB133111EB);
        return static_cast<uint32_t>((z ^ (z >> 31)) >> 32);
    }
};

// ---- 1: 31-bit congruential, x <- 48271 x mod (2^31 - 1) by Schrage's method (Park, Miller and
// Stockmeyer 1993). The state is 1 .. 2^31 - 2; the uniform lies in (0, 1).
double lcgUniform(RanState *s) {
    int32_t t = 48271 * (s->x % 44488) - 3399 * (s->x / 44488);
    if (t < 1) t += kLcgModulus;
    s->x = t;
    return t * 4.656612875245797e-10;
}
bool lcgValid(const uint32_t *w) { return w[0] >= 1 && w[0] <= static_cast<uint32_t>(kLcgModulus - 1); }
int lcgSeed(RanState *s, int seed) {
    SeedWords g(seed);
    s->x = static_cast<int32_t>(1 + g.next() % static_cast<uint32_t>(kLcgModulus - 1));
    return seed;
}
int lcgSize() { return 1; }
int lcgGet(const RanState *s, uint32_t *w) {
    w[0] = static_cast<uint32_t>(s->x);
    return 1;
}
int lcgSet(RanState *s, const uint32_t *w, int n) {
    if (n != 1 || !lcgValid(w)) return 0;
    s->x = static_cast<int32_t>(w[0]);
    return 1;
}

// ---- 2: Marsaglia's pair of 16-bit multiply-with-carry generators. The output word may be
// 0; the multiplier lies between 2^-32 and 1 / (2^32 - 1): the uniform lies in [0, 1 - 3.5e-13].
double pairUniform(RanState *s) {
    s->z = kPairZ * (s->z & 0xFFFFu) + (s->z >> 16);
    s->w = kPairW * (s->w & 0xFFFFu) + (s->w >> 16);
    return unsignedReading((s->z << 16) + (s->w & 0xFFFFu)) * 2.32830643708e-10;
}
bool pairValid(const uint32_t *w) {
    return w[0] >= 1 && w[0] < pairLimit(kPairZ) && w[1] >= 1 && w[1] < pairLimit(kPairW);
}
int pairSeed(RanState *s, int seed) {
    SeedWords g(seed);
    s->z = 1 + g.next() % (pairLimit(kPairZ) - 1);
    s->w = 1 + g.next() % (pairLimit(kPairW) - 1);
    return seed;
}
int pairSize() { return 2; }
int pairGet(const RanState *s, uint32_t *w) {
    w[0] = s->z;
    w[1] = s->w;
    return 2;
}
int pairSet(RanState *s, const uint32_t *w, int n) {
    if (n != 2 || !pairValid(w)) return 0;
    s->z = w[0];
    s->w = w[1];
    return 1;
}

// ---- 3: LFSR113 (L'Ecuyer 1999, "Tables of maximally equidistributed combined LFSR generators").
// Each word keeps k = 31, 29, 28, 25 significant bits, which must not all be zero: hence the lower
// bounds 2, 8, 16, 128. The output may be 0; the uniform lies in [0, 1).
constexpr uint32_t kLfsrBound[4] = {2, 8, 16, 128};
double lfsrUniform(RanState *s) {
    uint32_t b = ((s->z1 << 6) ^ s->z1) >> 13;
    s->z1 = ((s->z1 & 0xFFFFFFFEu) << 18) ^ b;
    b = ((s->z2 << 2) ^ s->z2) >> 27;
    s->z2 = ((s->z2 & 0xFFFFFFF8u) << 2) ^ b;
    b = ((s->z3 << 13) ^ s->z3) >> 21;
    s->z3 = ((s->z3 & 0xFFFFFFF0u) << 7) ^ b;
    b = ((s->z4 << 3) ^ s->z4) >> 12;
    s->z4 = ((s->z4 & 0xFFFFFF80u) << 13) ^ b;
    return unsignedReading(s->z1 ^ s->z2 ^ s->z3 ^ s->z4) * 2.3283064365387e-10;
}
bool lfsrValid(const uint32_t *w) {
    for (int k = 0; k < 4; ++k)
        if (w[k] < kLfsrBound[k]) return false;
    return true;
}
int lfsrSet(RanState *s, const uint32_t *w, int n) {
    if (n != 4 || !lfsrValid(w)) return 0;
    s->z1 = w[0];
    s->z2 = w[1];
    s->z3 = w[2];
    s->z4 = w[3];
    return 1;
}
int lfsrSeed(RanState *s, int seed) {
    SeedWords g(seed);
    uint32_t w[4];
    // Adding the bound lifts a word below it and changes no other seed (1 in 2^25 at most).
    for (int k = 0; k < 4; ++k) {
        w[k] = g.next();
        if (w[k] < kLfsrBound[k]) w[k] += kLfsrBound[k];
    }
    lfsrSet(s, w, 4);
    return seed;
}
int lfsrSize() { return 4; }
int lfsrGet(const RanState *s, uint32_t *w) {
    w[0] = s->z1;
    w[1] = s->z2;
    w[2] = s->z3;
    w[3] = s->z4;
    return 4;
}

// ---- 4 and 5: lag-256 multiply-with-carry (Marsaglia 2003, "Random number generators", J. Mod.
// Appl. Stat. Methods 2(1)), both resolutions on the same words. The carry stays below the
// multiplier; the two fixed points (all zero with carry 0, all ones with carry a - 1) are the only
// states to avoid.
inline uint32_t lagStep(RanState *s) {
    s->i = (s->i + 1) & 255u;
    const uint64_t t = kLagA * s->Q[s->i] + s->c;
    s->c = static_cast<uint32_t>(t >> 32);
    s->Q[s->i] = static_cast<uint32_t>(t);
    return s->Q[s->i];
}
// 0.5 + 2^-33 centres the 2^32 outputs in (0, 1): the uniform lies in [2^-33, 1 - 2^-33].
double lag32Uniform(RanState *s) {
    return static_cast<int32_t>(lagStep(s)) * 2.3283064365386963e-10 + 0.5000000001164153;
}
// 32 bits of the first word and 20 of the second, offset by 2^-53: [2^-53, 1 - 2^-53].
double lag52Uniform(RanState *s) {
    const int32_t a = static_cast<int32_t>(lagStep(s));
    const uint32_t b = lagStep(s);
    return a * 2.3283064365386963e-10 + 0.5000000000000001 + (b & 0xFFFFFu) * 2.220446049250313e-16;
}
bool lagValid(const uint32_t *w) {
    const uint32_t i = w[256], c = w[257];
    if (i > 255 || c >= kLagA) return false;
    if (c != 0 && c != kLagA - 1) return true;
    const uint32_t fixed = c == 0 ? 0u : 0xFFFFFFFFu;
    for (int k = 0; k < 256; ++k)
        if (w[k] != fixed) return true;
    return false;
}
int lagSeed(RanState *s, int seed) {
    SeedWords g(seed);
    for (uint32_t &q : s->Q) q = g.next();
    s->i = 255; // the first step replaces Q[0]
    s->c = g.next() % static_cast<uint32_t>(kLagA - 1);
    return seed;
}
int lagSize() { return kLagWords; }
int lagGet(const RanState *s, uint32_t *w) {
    std::memcpy(w, s->Q, sizeof s->Q);
    w[256] = s->i;
    w[257] = s->c;
    return kLagWords;
}
int lagSet(RanState *s, const uint32_t *w, int n) {
    if (n != kLagWords || !lagValid(w)) return 0;
    std::memcpy(s->Q, w, sizeof s->Q);
    s->i = w[256];
    s->c = w[257];
    return 1;
}

// n draws of one family's own uniform, called directly so that the compiler inlines the step and
// keeps the state words in registers across the loop; the draws are those of n calls through the
// table, bit for bit.
template <double (*Draw)(RanState *)> void drawBlock(RanState *s, double *out, int n) {
    for (int k = 0; k < n; ++k) out[k] = Draw(s);
}

// The table's draw, by block when it is one of the families' own and by call otherwise (a caller
// may have installed a draw of its own).
void drawWith(double (*draw)(RanState *), RanState *s, double *out, int n) {
    if (draw == lcgUniform)
        drawBlock<lcgUniform>(s, out, n);
    else if (draw == pairUniform)
        drawBlock<pairUniform>(s, out, n);
    else if (draw == lfsrUniform)
        drawBlock<lfsrUniform>(s, out, n);
    else if (draw == lag32Uniform)
        drawBlock<lag32Uniform>(s, out, n);
    else if (draw == lag52Uniform)
        drawBlock<lag52Uniform>(s, out, n);
    else
        for (int k = 0; k < n; ++k) out[k] = draw(s);
}

void fillRows(RanState *s, MATRIX m, int rows, int cols) {
    for (int r = 0; r < rows; ++r) drawWith(s->ops.element, s, m[r], cols);
}

// The record's words, checked as setState would check them.
template <int (*Get)(const RanState *, uint32_t *), bool (*Valid)(const uint32_t *)> int validState(const RanState *s) {
    uint32_t w[kLagWords];
    Get(s, w);
    return Valid(w) ? 1 : 0;
}

const RanOps kFamilies[5] = {
    {lcgSeed, lcgUniform, lcgUniform, lcgSize, fillRows, lcgGet, lcgSet, validState<lcgGet, lcgValid>},
    {pairSeed, pairUniform, pairUniform, pairSize, fillRows, pairGet, pairSet, validState<pairGet, pairValid>},
    {lfsrSeed, lfsrUniform, lfsrUniform, lfsrSize, fillRows, lfsrGet, lfsrSet, validState<lfsrGet, lfsrValid>},
    {lagSeed, lag32Uniform, lag32Uniform, lagSize, fillRows, lagGet, lagSet, validState<lagGet, lagValid>},
    {lagSeed, lag52Uniform, lag52Uniform, lagSize, fillRows, lagGet, lagSet, validState<lagGet, lagValid>},
};

// Every family takes its default seed, 0. The two lag-256 families share their words.
void defaultInitialisation(RanState *s) {
    lcgSeed(s, 0);
    pairSeed(s, 0);
    lfsrSeed(s, 0);
    lagSeed(s, 0);
    s->initialised = 1;
}

} // namespace

int RanFamilyByName(const char *name) {
    // clang-format off
    static const struct { const char *name; int family; } kNames[] = {
        {"PM", RAN_LCG31}, {"LCG31", RAN_LCG31}, {"GM", RAN_MWC60}, {"MWC60", RAN_MWC60},
        {"LE", RAN_LFSR113}, {"LFSR113", RAN_LFSR113}, {"MWC_32", RAN_MWC32}, {"MWC8222", RAN_MWC32}};
    // clang-format on
    if (name)
        for (const auto &e : kNames)
            if (std::strcmp(name, e.name) == 0) return e.family;
    return RAN_MWC52;
}

const RanOps *RanFamilyOps(int family) {
    return family >= RAN_LCG31 && family <= RAN_MWC52 ? &kFamilies[family - 1] : nullptr;
}

void RanSetGenerator(RanState *s, const char *name) {
    if (s->initialised == 0) defaultInitialisation(s);
    s->spare = 0;
    s->ops = kFamilies[RanFamilyByName(name) - 1];
}

int RanSeed(RanState *s, int seed) {
    if (seed != -1) s->spare = s->ops.seed(s, seed);
    return s->spare;
}

void RanUniforms(RanState *s, double *out, int n) { drawWith(s->ops.uniform, s, out, n); }

RanState *RanDefault() {
    static RanState state; // zero: the first use initialises and selects
    if (state.initialised == 0) RanSetGenerator(&state, nullptr);
    return &state;
}
