// Nanoseconds per draw: each family's uniform through the operation table beside a minimal loop
// that runs the same recurrence and the same conversion with the state in local variables, and
// each variate on the default family (lag-256 multiply-with-carry, 52-bit). The uniform
// benchmarks share one shape, 1024 draws into a buffer per iteration, so that the difference
// between a pair is the cost of going through the record and its table, not of the harness.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>
#include <string>

#include "random/random.h"

namespace {

const char *const kFamilies[] = {"LCG31", "MWC60", "LFSR113", "MWC_32", "MWC_52"};
constexpr int kBatch = 1024;

// Nanoseconds per draw, counted in billionths of a draw as the numeric benchmarks count theirs.
void setPerDraw(benchmark::State &st) {
    const double draws = static_cast<double>(st.iterations()) * kBatch * 1e-9;
    st.counters["ns_per_draw"] = benchmark::Counter(draws, benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

// A record of the family seeded with 1, and its state words for the minimal loops to start from.
void seeded(RanState *s, int family, uint32_t *words) {
    RanSetGenerator(s, kFamilies[family - 1]);
    RanSeed(s, 1);
    s->ops.getState(s, words);
}

// Argument 1 is the family; argument 2 is 1 to draw by block (RanUniforms, the way to draw many,
// against the minimal loops below) and 0 to draw one call of RanUniform at a time through the
// operation table, as a draw inside other code costs.
void BM_Uniform(benchmark::State &st) {
    const int family = static_cast<int>(st.range(0));
    const bool byBlock = st.range(1) != 0;
    RanState s{};
    uint32_t words[258];
    seeded(&s, family, words);
    double buf[kBatch];
    for (auto _ : st) {
        if (byBlock)
            RanUniforms(&s, buf, kBatch);
        else
            for (double &u : buf) u = RanUniform(&s);
        benchmark::DoNotOptimize(buf);
        benchmark::ClobberMemory();
    }
    setPerDraw(st);
    st.SetLabel(std::string(kFamilies[family - 1]) + (byBlock ? " by block" : " by call"));
}
BENCHMARK(BM_Uniform)->ArgsProduct({benchmark::CreateDenseRange(RAN_LCG31, RAN_MWC52, 1), {1, 0}});

// Times a minimal loop: step is a callable that holds its state by value and returns the next
// uniform. A copy of it is first checked against the library's first batch from the same seed, so
// a pair can only be compared when both compute the same stream.
template <class Step> void runMinimal(benchmark::State &st, int family, Step step) {
    RanState s{};
    uint32_t words[258];
    seeded(&s, family, words);
    Step check = step;
    for (int k = 0; k < kBatch; ++k)
        if (check() != RanUniform(&s)) {
            st.SkipWithError("the minimal loop's stream differs from the library's");
            return;
        }
    double buf[kBatch];
    for (auto _ : st) {
        for (double &u : buf) u = step();
        benchmark::DoNotOptimize(buf);
        benchmark::ClobberMemory();
    }
    setPerDraw(st);
    st.SetLabel(kFamilies[family - 1]);
}

// The family's state words after seeding with 1, for a minimal loop to start from.
const uint32_t *startWords(int family) {
    static uint32_t words[6][258];
    RanState s{};
    seeded(&s, family, words[family]);
    return words[family];
}

// Families 2 and 3 read their output word as signed plus 2^32 when negative, which is the word's
// unsigned value; it is converted as such here and in the library, since the test on the sign, if
// compiled to a branch, costs more than the whole step.

// x <- 48271 x mod (2^31 - 1) without overflow: 2^31 - 1 = 48271 * 44488 + 3399.
void BM_MinimalLcg31(benchmark::State &st) {
    int32_t x = static_cast<int32_t>(startWords(RAN_LCG31)[0]);
    runMinimal(st, RAN_LCG31, [x]() mutable {
        const int32_t hi = x / 44488, lo = x % 44488;
        x = 48271 * lo - 3399 * hi;
        if (x <= 0) x += 2147483647;
        return x * 4.656612875245797e-10;
    });
}
BENCHMARK(BM_MinimalLcg31);

void BM_MinimalMwc60(benchmark::State &st) {
    const uint32_t *w0 = startWords(RAN_MWC60);
    runMinimal(st, RAN_MWC60, [z = w0[0], w = w0[1]]() mutable {
        z = 36969u * (z & 65535u) + (z >> 16);
        w = 18000u * (w & 65535u) + (w >> 16);
        return static_cast<double>((z << 16) + (w & 65535u)) * 2.32830643708e-10;
    });
}
BENCHMARK(BM_MinimalMwc60);

void BM_MinimalLfsr113(benchmark::State &st) {
    const uint32_t *w = startWords(RAN_LFSR113);
    runMinimal(st, RAN_LFSR113, [z1 = w[0], z2 = w[1], z3 = w[2], z4 = w[3]]() mutable {
        z1 = ((z1 & 4294967294u) << 18) ^ (((z1 << 6) ^ z1) >> 13);
        z2 = ((z2 & 4294967288u) << 2) ^ (((z2 << 2) ^ z2) >> 27);
        z3 = ((z3 & 4294967280u) << 7) ^ (((z3 << 13) ^ z3) >> 21);
        z4 = ((z4 & 4294967168u) << 13) ^ (((z4 << 3) ^ z4) >> 12);
        return static_cast<double>(z1 ^ z2 ^ z3 ^ z4) * 2.3283064365387e-10;
    });
}
BENCHMARK(BM_MinimalLfsr113);

// The lag-256 words: the table, its index (an 8-bit counter wraps by itself) and the carry.
struct LagWords {
    uint32_t q[256];
    uint8_t i;
    uint32_t c;
    explicit LagWords(const uint32_t *words) {
        std::memcpy(q, words, sizeof q);
        i = static_cast<uint8_t>(words[256]);
        c = words[257];
    }
    uint32_t next() {
        const uint64_t t = UINT64_C(809430660) * q[++i] + c;
        c = static_cast<uint32_t>(t >> 32);
        q[i] = static_cast<uint32_t>(t);
        return q[i];
    }
};

void BM_MinimalMwc32(benchmark::State &st) {
    runMinimal(st, RAN_MWC32, [g = LagWords(startWords(RAN_MWC32))]() mutable {
        return static_cast<int32_t>(g.next()) * 2.3283064365386963e-10 + 0.5000000001164153;
    });
}
BENCHMARK(BM_MinimalMwc32);

void BM_MinimalMwc52(benchmark::State &st) {
    runMinimal(st, RAN_MWC52, [g = LagWords(startWords(RAN_MWC52))]() mutable {
        const int32_t hi = static_cast<int32_t>(g.next());
        const uint32_t lo = g.next() & 1048575u;
        return hi * 2.3283064365386963e-10 + 0.5000000000000001 + lo * 2.220446049250313e-16;
    });
}
BENCHMARK(BM_MinimalMwc52);

template <class Draw> void runVariate(benchmark::State &st, Draw draw) {
    RanState s{};
    RanSetGenerator(&s, nullptr);
    RanSeed(&s, 1);
    for (auto _ : st) benchmark::DoNotOptimize(draw(&s));
}

void BM_Normal(benchmark::State &st) { runVariate(st, RanNormal); }
BENCHMARK(BM_Normal);

// df = 1 runs the small-shape boost, 5 and 50 the plain gamma.
void BM_ChiSquared(benchmark::State &st) {
    const double df = double(st.range(0));
    runVariate(st, [df](RanState *s) { return RanChiSquared(s, df); });
}
BENCHMARK(BM_ChiSquared)->Arg(1)->Arg(5)->Arg(50);

void BM_StudentT(benchmark::State &st) {
    const double df = double(st.range(0));
    runVariate(st, [df](RanState *s) { return RanStudentT(s, df); });
}
BENCHMARK(BM_StudentT)->Arg(1)->Arg(5);

void BM_F(benchmark::State &st) {
    runVariate(st, [](RanState *s) { return RanF(s, 3.0, 12.0); });
}
BENCHMARK(BM_F);

} // namespace

BENCHMARK_MAIN();
