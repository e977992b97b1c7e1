// Mixed-radix decimation in time (Cooley and Tukey 1965, in the recursive form of Singleton 1969)
// for lengths up to kFourStepMin: a length n = p m splits into p interleaved subsequences of length
// m, each transformed into a contiguous block of the output, and the blocks are combined by
// radix-p butterflies in place. Radices 4, 2, 3 and 5 have butterflies of their own; other primes
// up to kMaxRadix use the O(p^2) generic one.
//
// Longer lengths use the four-step algorithm of Bailey (1990): n = n1 n2 with n1 and n2 near
// sqrt(n), the data seen as n1 rows of n2. Blocks of kBlock columns are gathered into contiguous
// rows, transformed (length n1), multiplied by W_n^(j2 k1) and put back; then blocks of kBlock
// rows are transformed (length n2) and written out transposed. Every pass reads and writes whole
// cache lines and each row transform runs inside the cache, so the time per n log n stays flat
// where the recursion's strided gathers over arrays larger than the cache did not. A row still
// longer than kFourStepMin is itself transformed in four steps.
//
// Lengths with a prime factor above kMaxRadix use Bluestein (1970): the transform as a
// convolution with the chirp exp(-i pi j^2 / n), done by three transforms of a 5-smooth length
// M >= 2n - 1.
//
// Real input of even length n (Sorensen et al. 1987; Van Loan 1992, sec. 4.4): the n/2 pairs
// z_j = x_2j + i x_2j+1 are transformed as one complex sequence Z of length h = n/2, and
//     X_k = (Z_k + conj Z_(h-k)) / 2 - i W_n^k (Z_k - conj Z_(h-k)) / 2,   k = 0..h.
//
// Accuracy: every twiddle is computed from cos and sin of an exact angle, never by repeated
// multiplication. Butterfly tables hold W_N^j for the first octant from sin and cos and the rest
// by exact symmetries (the upper half mirrored from the lower, so W^j and W^(N-j) are exact
// conjugates). The four-step, real-input and chirp factors W_N^m, m < N, come from two short
// tables, W_N^m = W_N^(a 2^s) W_N^b with m = a 2^s + b, whose entries are correctly rounded: one
// rounding more, with the index m reduced in integers (j2 k1 mod n, j^2 mod 2n), so no angle grows
// with n. The inverse is the forward transform of the conjugate, conjugated.
#include "numeric/fft.h"

#include <cmath>
#include <cstdint>

#include "base/carve.h"

namespace {

struct Cx {
    double re, im;
};
inline Cx add(Cx a, Cx b) { return {a.re + b.re, a.im + b.im}; }
inline Cx sub(Cx a, Cx b) { return {a.re - b.re, a.im - b.im}; }
inline Cx mul(Cx a, Cx b) { return {a.re * b.re - a.im * b.im, a.re * b.im + a.im * b.re}; }
inline Cx scale(Cx a, double s) { return {a.re * s, a.im * s}; }
inline Cx conj(Cx a) { return {a.re, -a.im}; }
// -i a
inline Cx negI(Cx a) { return {a.im, -a.re}; }

constexpr int kMaxRadix = 31;
constexpr int kMaxFactors = 32;
constexpr double kPi = 3.141592653589793;
// Lengths from here on take the four-step path: 2^16 values are 1 MB, beyond which the
// recursion's three arrays no longer fit the second-level cache.
constexpr size_t kFourStepMin = 65536;
// Columns gathered (and rows written out) at a time. Each visit to a row far away in memory costs a
// page-table look-up; 32 entries (4 cache lines of each real array) spread it, where 8 lost a
// third of the time at 2^20, and a block of 32 rows stays within the second-level cache.
constexpr size_t kBlock = 32;
// A four-step level has at most two distinct row lengths; rows of a length below 2^31 need at
// most two levels of four steps.
constexpr int kMaxLevels = 8;

// A hint to fetch the cache line at p ahead of a strided access (write: for writing).
#if defined(__GNUC__) || defined(__clang__)
inline void prefetchRead(const void *p) { __builtin_prefetch(p, 0); }
inline void prefetchWrite(const void *p) { __builtin_prefetch(p, 1); }
#else
inline void prefetchRead(const void *) {}
inline void prefetchWrite(const void *) {}
#endif
// Entries between the rows of a block beyond the row's length: rows of a power-of-two length
// would otherwise start at the same offset modulo 4 KB and contend for one set of the cache.
constexpr size_t kRowPad = 4;
// Rows ahead of the current one whose lines a strided pass asks for.
constexpr size_t kAhead = 8;

// Radices of n, fours first, and their count; -1 when a prime factor exceeds kMaxRadix (n = 1 has
// no factors).
int factorize(size_t n, int *fac) {
    int k = 0;
    while (n % 4 == 0) fac[k++] = 4, n /= 4;
    while (n % 2 == 0) fac[k++] = 2, n /= 2;
    for (int p = 3; p <= kMaxRadix && n > 1; p += 2)
        while (n % p == 0) fac[k++] = p, n /= p;
    return n == 1 ? k : -1;
}

// exp(-2 pi i m / N).
Cx unitRoot(uint64_t m, uint64_t N) {
    const double a = 2.0 * kPi * static_cast<double>(m) / static_cast<double>(N);
    return {std::cos(a), -std::sin(a)};
}

// tw[j] = W_N^j, j < N: the first octant from cos and sin, the rest by exact symmetries.
void fillTwiddles(Cx *tw, size_t N) {
    const size_t half = N / 2;
    if (N % 4 == 0) {
        const size_t q = N / 4;
        for (size_t j = 0; j <= q / 2; ++j) tw[j] = unitRoot(j, N);
        for (size_t j = q / 2 + 1; j <= q; ++j) tw[j] = {-tw[q - j].im, -tw[q - j].re};
        for (size_t j = q + 1; j <= half; ++j) tw[j] = {tw[j - q].im, -tw[j - q].re};
    } else {
        for (size_t j = 0; j <= half; ++j) tw[j] = unitRoot(j, N);
    }
    for (size_t j = half + 1; j < N; ++j) tw[j] = conj(tw[N - j]);
}

// W_N^m for m < N as hi[m >> shift] lo[m & mask].
struct PowerTable {
    Cx *lo = nullptr, *hi = nullptr;
    unsigned shift = 0;
    uint64_t N = 0;
    Cx at(uint64_t m) const { return mul(hi[m >> shift], lo[m & ((uint64_t{1} << shift) - 1)]); }
    void carve(KvCarve &c, uint64_t length) {
        N = length;
        shift = 0;
        while ((uint64_t{1} << (2 * shift)) < N) ++shift;
        lo = c.take<Cx>(static_cast<size_t>(uint64_t{1} << shift));
        hi = c.take<Cx>(static_cast<size_t>(((N - 1) >> shift) + 1));
    }
    void fill() {
        for (uint64_t b = 0; b < (uint64_t{1} << shift); ++b) lo[b] = unitRoot(b, N);
        for (uint64_t a = 0; a <= (N - 1) >> shift; ++a) hi[a] = unitRoot(a << shift, N);
    }
};

struct Plan {
    const int *fac;
    const Cx *tw; // tw[j] = W_N^j
    size_t N;
    Cx *tmp; // kMaxRadix entries for the generic butterfly
};

// Each butterfly combines the p blocks of length m at out: element k of block r is multiplied by
// W_n^(r k) = tw[r k fs] and the p products are transformed with W_p.
void butterfly2(Cx *out, size_t m, size_t fs, const Cx *tw) {
    for (size_t k = 0; k < m; ++k) {
        const Cx t0 = out[k], t1 = mul(out[k + m], tw[k * fs]);
        out[k] = add(t0, t1);
        out[k + m] = sub(t0, t1);
    }
}

void butterfly3(Cx *out, size_t m, size_t fs, const Cx *tw) {
    const double h = 0.8660254037844386; // sin(2 pi / 3)
    for (size_t k = 0; k < m; ++k) {
        const Cx t0 = out[k], t1 = mul(out[k + m], tw[k * fs]), t2 = mul(out[k + 2 * m], tw[2 * k * fs]);
        const Cx s = add(t1, t2), d = scale(negI(sub(t1, t2)), h);
        const Cx base = sub(t0, scale(s, 0.5));
        out[k] = add(t0, s);
        out[k + m] = add(base, d);
        out[k + 2 * m] = sub(base, d);
    }
}

void butterfly4(Cx *out, size_t m, size_t fs, const Cx *tw) {
    for (size_t k = 0; k < m; ++k) {
        const Cx t0 = out[k], t1 = mul(out[k + m], tw[k * fs]);
        const Cx t2 = mul(out[k + 2 * m], tw[2 * k * fs]), t3 = mul(out[k + 3 * m], tw[3 * k * fs]);
        const Cx a = add(t0, t2), b = sub(t0, t2), c = add(t1, t3), d = negI(sub(t1, t3));
        out[k] = add(a, c);
        out[k + m] = add(b, d);
        out[k + 2 * m] = sub(a, c);
        out[k + 3 * m] = sub(b, d);
    }
}

void butterfly5(Cx *out, size_t m, size_t fs, const Cx *tw) {
    const double c1 = 0.30901699437494745, c2 = -0.8090169943749475; // cos(2 pi / 5), cos(4 pi / 5)
    const double s1 = 0.9510565162951535, s2 = 0.5877852522924731;   // sin(2 pi / 5), sin(4 pi / 5)
    for (size_t k = 0; k < m; ++k) {
        Cx t[5];
        t[0] = out[k];
        for (size_t r = 1; r < 5; ++r) t[r] = mul(out[k + r * m], tw[r * k * fs]);
        const Cx a1 = add(t[1], t[4]), b1 = sub(t[1], t[4]), a2 = add(t[2], t[3]), b2 = sub(t[2], t[3]);
        const Cx r1 = add(t[0], add(scale(a1, c1), scale(a2, c2)));
        const Cx r2 = add(t[0], add(scale(a1, c2), scale(a2, c1)));
        const Cx i1 = negI(add(scale(b1, s1), scale(b2, s2)));
        const Cx i2 = negI(sub(scale(b1, s2), scale(b2, s1)));
        out[k] = add(t[0], add(a1, a2));
        out[k + m] = add(r1, i1);
        out[k + 4 * m] = sub(r1, i1);
        out[k + 2 * m] = add(r2, i2);
        out[k + 3 * m] = sub(r2, i2);
    }
}

void butterflyGeneric(Cx *out, size_t p, size_t m, size_t fs, const Plan &plan) {
    const size_t wp = plan.N / p; // W_p = tw[wp]
    Cx *t = plan.tmp;
    for (size_t k = 0; k < m; ++k) {
        t[0] = out[k];
        for (size_t r = 1; r < p; ++r) t[r] = mul(out[k + r * m], plan.tw[r * k * fs]);
        for (size_t q = 0; q < p; ++q) {
            Cx s = t[0];
            size_t j = 0; // r q mod p
            for (size_t r = 1; r < p; ++r) {
                j += q;
                if (j >= p) j -= p;
                s = add(s, mul(t[r], plan.tw[j * wp]));
            }
            out[k + q * m] = s;
        }
    }
}

// out[0..n-1] = DFT of in[0], in[stride], ..., in[(n-1) stride]; out and in do not overlap.
void transform(Cx *out, const Cx *in, size_t n, size_t stride, const int *fac, const Plan &plan) {
    const size_t p = static_cast<size_t>(fac[0]), m = n / p;
    if (m == 1)
        for (size_t r = 0; r < p; ++r) out[r] = in[r * stride];
    else
        for (size_t r = 0; r < p; ++r) transform(out + r * m, in + r * stride, m, stride * p, fac + 1, plan);
    const size_t fs = plan.N / n;
    switch (p) {
    case 2: butterfly2(out, m, fs, plan.tw); break;
    case 3: butterfly3(out, m, fs, plan.tw); break;
    case 4: butterfly4(out, m, fs, plan.tw); break;
    case 5: butterfly5(out, m, fs, plan.tw); break;
    default: butterflyGeneric(out, p, m, fs, plan); break;
    }
}

// One length of the transform: a leaf (n1 == 0) by the recursion above, or four steps over
// n1 x n2 with row transforms of its sub-levels.
struct Level {
    size_t n = 0, n1 = 0, n2 = 0;
    int fac[kMaxFactors];
    Cx *tw = nullptr, *tmp = nullptr;  // leaf: W_n^j and the generic radix's temporaries
    Cx *mid = nullptr, *out = nullptr; // four-step: n and kBlock rows; a leaf at the top: n each
    Cx *row = nullptr;                 // four-step: one row transformed
    PowerTable w;                      // four-step: W_n^(j2 k1)
    const Level *sub1 = nullptr, *sub2 = nullptr;
};

// n = n1 n2 (n1 <= n2) with the factors shared out largest first to the smaller side.
void splitLength(size_t n, size_t *n1, size_t *n2) {
    int fac[kMaxFactors];
    const int k = factorize(n, fac);
    for (int i = 1; i < k; ++i) // descending
        for (int j = i; j > 0 && fac[j] > fac[j - 1]; --j) {
            const int f = fac[j];
            fac[j] = fac[j - 1];
            fac[j - 1] = f;
        }
    size_t a = 1, b = 1;
    for (int i = 0; i < k; ++i) (a <= b ? a : b) *= static_cast<size_t>(fac[i]);
    *n1 = a < b ? a : b;
    *n2 = a < b ? b : a;
}

// The levels of one transform of length n, carved from one block.
struct Levels {
    Level level[kMaxLevels];
    int count = 0;
    // top: a leaf at the top transforms between arrays of its own.
    const Level *carve(KvCarve &c, size_t n, bool top) {
        Level &L = level[count++];
        L.n = n;
        if (n < kFourStepMin) {
            factorize(n, L.fac);
            L.tw = c.take<Cx>(n);
            L.tmp = c.take<Cx>(kMaxRadix);
            if (top) {
                L.mid = c.take<Cx>(n);
                L.out = c.take<Cx>(n);
            }
            return &L;
        }
        splitLength(n, &L.n1, &L.n2);
        L.w.carve(c, n);
        size_t rows = 0;
        if (!KvSizeMul(kBlock, L.n2 + kRowPad, &rows)) rows = static_cast<size_t>(-1);
        L.mid = c.take<Cx>(n);
        L.out = c.take<Cx>(rows);
        L.row = c.take<Cx>(L.n2);
        L.sub1 = carve(c, L.n1, false);
        L.sub2 = L.n2 == L.n1 ? L.sub1 : carve(c, L.n2, false);
        return &L;
    }
    void fill() {
        for (int i = 0; i < count; ++i) {
            Level &L = level[i];
            if (L.n1 == 0)
                fillTwiddles(L.tw, L.n);
            else
                L.w.fill();
        }
    }
};

// Accessors for the data a transform reads and writes.
// Accessors for the data a transform reads and writes; fetch asks for the lines of entries
// i..i+b-1 ahead of a strided pass (reading, or for writing).
void fetchLines(const double *p, size_t doubles, bool write) {
    for (size_t d = 0; d < doubles; d += 8) write ? prefetchWrite(p + d) : prefetchRead(p + d);
}
struct Packed { // interleaved complex values
    Cx *p;
    Cx get(size_t i) const { return p[i]; }
    void put(size_t i, Cx v) const { p[i] = v; }
    void fetch(size_t i, size_t b, bool write) const { fetchLines(&p[i].re, 2 * b, write); }
};
struct PackedIn {
    const Cx *p;
    Cx get(size_t i) const { return p[i]; }
    void fetch(size_t i, size_t b, bool write) const { fetchLines(&p[i].re, 2 * b, write); }
};
struct Split { // separate real and imaginary arrays; sign -1 conjugates on the way in and out
    double *re, *im;
    double sign;
    Cx get(size_t i) const { return {re[i], sign * im[i]}; }
    void put(size_t i, Cx v) const { re[i] = v.re, im[i] = sign * v.im; }
    void fetch(size_t i, size_t b, bool write) const { fetchLines(re + i, b, write), fetchLines(im + i, b, write); }
};
struct PairsIn { // x_2j + i x_2j+1
    const double *x;
    Cx get(size_t i) const { return {x[2 * i], x[2 * i + 1]}; }
    void fetch(size_t i, size_t b, bool write) const { fetchLines(x + 2 * i, 2 * b, write); }
};
struct RealIn {
    const double *x;
    Cx get(size_t i) const { return {x[i], 0.0}; }
    void fetch(size_t i, size_t b, bool write) const { fetchLines(x + i, b, write); }
};
struct HalfOut { // entries 0..last only
    double *re, *im;
    size_t last;
    void put(size_t i, Cx v) const {
        if (i <= last) re[i] = v.re, im[i] = v.im;
    }
    void fetch(size_t i, size_t b, bool write) const {
        if (i > last) return;
        if (b > last + 1 - i) b = last + 1 - i;
        fetchLines(re + i, b, write), fetchLines(im + i, b, write);
    }
};

template <class Src, class Dst> void run(const Level &L, Src src, Dst dst);

// out = the transform of the contiguous row in (they do not overlap).
void rowTransform(const Level &L, const Cx *in, Cx *out) {
    if (L.n1 == 0)
        transform(out, in, L.n, 1, L.fac, Plan{L.fac, L.tw, L.n, L.tmp});
    else
        run(L, PackedIn{in}, Packed{out});
}

// dst = the transform of src, length L.n; src and dst may be the same data.
template <class Src, class Dst> void run(const Level &L, Src src, Dst dst) {
    const size_t n = L.n;
    if (n == 1) {
        dst.put(0, src.get(0));
        return;
    }
    if (L.n1 == 0) {
        for (size_t i = 0; i < n; ++i) L.mid[i] = src.get(i);
        transform(L.out, L.mid, n, 1, L.fac, Plan{L.fac, L.tw, n, L.tmp});
        for (size_t i = 0; i < n; ++i) dst.put(i, L.out[i]);
        return;
    }
    const size_t n1 = L.n1, n2 = L.n2, s1 = n1 + kRowPad, s2 = n2 + kRowPad;
    // Columns j2 (stride n2, length n1), kBlock at a time: transformed, multiplied by
    // W_n^(j2 k1) and put back in their places in mid.
    for (size_t j0 = 0; j0 < n2; j0 += kBlock) {
        const size_t b = n2 - j0 < kBlock ? n2 - j0 : kBlock;
        for (size_t j1 = 0; j1 < n1; ++j1) {
            if (j1 + kAhead < n1) src.fetch((j1 + kAhead) * n2 + j0, b, false);
            for (size_t c = 0; c < b; ++c) L.out[c * s1 + j1] = src.get(j1 * n2 + j0 + c);
        }
        for (size_t c = 0; c < b; ++c) {
            Cx *col = L.out + c * s1;
            rowTransform(*L.sub1, col, L.row);
            col[0] = L.row[0];
            const uint64_t step = j0 + c;
            uint64_t m = step;
            for (size_t k1 = 1; k1 < n1; ++k1) {
                col[k1] = mul(L.row[k1], L.w.at(m));
                m += step;
                if (m >= n) m -= n;
            }
        }
        for (size_t k1 = 0; k1 < n1; ++k1) {
            if (k1 + kAhead < n1) fetchLines(&L.mid[(k1 + kAhead) * n2 + j0].re, 2 * b, true);
            for (size_t c = 0; c < b; ++c) L.mid[k1 * n2 + j0 + c] = L.out[c * s1 + k1];
        }
    }
    // Rows k1 (length n2), kBlock at a time; X[k1 + n1 k2] is entry k2 of row k1.
    for (size_t k0 = 0; k0 < n1; k0 += kBlock) {
        const size_t b = n1 - k0 < kBlock ? n1 - k0 : kBlock;
        for (size_t c = 0; c < b; ++c) rowTransform(*L.sub2, L.mid + (k0 + c) * n2, L.out + c * s2);
        for (size_t k2 = 0; k2 < n2; ++k2) {
            if (k2 + kAhead < n2) dst.fetch(k0 + n1 * (k2 + kAhead), b, true);
            for (size_t c = 0; c < b; ++c) dst.put(k0 + c + n1 * k2, L.out[c * s2 + k2]);
        }
    }
}

// Everything one complex transform of length n needs, carved from one block: its levels, or for
// Bluestein the levels of M, the chirp's factors W_2n^m, and two arrays of length M.
struct Engine {
    Levels levels;
    const Level *top = nullptr;
    size_t n = 0, M = 0; // M > 0: Bluestein
    PowerTable chirp;
    Cx *q = nullptr, *a = nullptr;
    // False when n is too long for the convolution length to be an int.
    bool carve(KvCarve &c, size_t length) {
        n = length;
        int fac[kMaxFactors];
        if (factorize(n, fac) >= 0) {
            top = levels.carve(c, n, true);
            return true;
        }
        if (n > 1073741824) return false;
        const int good = FftGoodSize(static_cast<int>(2 * n - 1));
        if (good == 0) return false;
        M = static_cast<size_t>(good);
        top = levels.carve(c, M, true);
        chirp.carve(c, 2 * static_cast<uint64_t>(n));
        q = c.take<Cx>(M);
        a = c.take<Cx>(M);
        return true;
    }
    void fill() {
        levels.fill();
        if (M > 0) chirp.fill();
    }
};

// c_j = exp(-i pi j^2 / n) for j = 0, 1, ..., the index j^2 reduced mod 2n as it grows.
struct ChirpWalk {
    const PowerTable &table;
    uint64_t m = 0, j = 0;
    Cx next() {
        const Cx c = table.at(m);
        m += 2 * j + 1; // (j + 1)^2 - j^2
        while (m >= table.N) m -= table.N;
        ++j;
        return c;
    }
};

// Bluestein: X_k = c_k sum_j (x_j c_j) conj(c_(k-j)), a cyclic convolution of length M once
// conj(c) is laid out at both ends.
template <class Src, class Dst> void bluestein(const Engine &e, Src src, Dst dst) {
    const size_t n = e.n, M = e.M;
    Cx *q = e.q, *a = e.a;
    for (size_t j = 0; j < M; ++j) q[j] = {0.0, 0.0};
    ChirpWalk w{e.chirp};
    q[0] = conj(w.next());
    for (size_t j = 1; j < n; ++j) q[j] = q[M - j] = conj(w.next());
    run(*e.top, Packed{q}, Packed{q});
    ChirpWalk v{e.chirp};
    for (size_t j = 0; j < n; ++j) a[j] = mul(src.get(j), v.next());
    for (size_t j = n; j < M; ++j) a[j] = {0.0, 0.0};
    run(*e.top, Packed{a}, Packed{a});
    // The inverse transform of the product as the conjugate of a forward one.
    for (size_t j = 0; j < M; ++j) a[j] = conj(mul(a[j], q[j]));
    run(*e.top, Packed{a}, Packed{a});
    const double inv = 1.0 / static_cast<double>(M);
    ChirpWalk u{e.chirp};
    for (size_t k = 0; k < n; ++k) dst.put(k, mul(u.next(), scale(conj(a[k]), inv)));
}

template <class Src, class Dst> void execute(const Engine &e, Src src, Dst dst) {
    if (e.M > 0)
        bluestein(e, src, dst);
    else
        run(*e.top, src, dst);
}

// The complex engine and, for even n, the factors W_n^k of the split step.
struct RealEngine {
    Engine inner;
    PowerTable w;
    bool carve(KvCarve &c, size_t n) {
        if (n % 2 != 0) return inner.carve(c, n);
        w.carve(c, n);
        return inner.carve(c, n / 2);
    }
    void fill() {
        inner.fill();
        if (w.N > 0) w.fill();
    }
};

// Bytes of the block a layout needs; 0 when it cannot be had.
template <class Layout> size_t layoutBytes(Layout &layout, size_t n) {
    KvCarve measure;
    if (!layout.carve(measure, n)) return 0;
    size_t bytes = 0;
    return measure.total(&bytes) ? bytes : 0;
}

size_t bytesToDoubles(size_t bytes) { return bytes == 0 ? 0 : (bytes + sizeof(double) - 1) / sizeof(double); }

} // namespace

int FftGoodSize(int n) {
    if (n <= 1) return n == 1 ? 1 : 0;
    long long best = -1;
    for (long long p5 = 1; p5 < 2LL * n; p5 *= 5)
        for (long long p35 = p5; p35 < 2LL * n; p35 *= 3) {
            long long v = p35;
            while (v < n) v *= 2;
            if (best < 0 || v < best) best = v;
        }
    return best <= 2147483647LL ? static_cast<int>(best) : 0;
}

size_t FftScratchDoubles(int n) {
    if (n < 1) return 0;
    Engine e;
    return bytesToDoubles(layoutBytes(e, static_cast<size_t>(n)));
}

int FftComplexWork(double *re, double *im, int n, int inverse, double *work) {
    if (n < 1 || !re || !im || !work) return 0;
    if (n == 1) return 1;
    Engine e;
    KvCarve c(work);
    if (!e.carve(c, static_cast<size_t>(n))) return 0;
    e.fill();
    const Split io{re, im, inverse ? -1.0 : 1.0};
    execute(e, io, io);
    return 1;
}

int FftComplex(double *re, double *im, int n, int inverse) {
    if (n < 1 || !re || !im) return 0;
    const size_t d = FftScratchDoubles(n);
    if (d == 0) return 0;
    KvArray<double> work(d);
    if (!work.ok()) return 0;
    return FftComplexWork(re, im, n, inverse, work.get());
}

size_t FftRealScratchDoubles(int n) {
    if (n < 1) return 0;
    RealEngine e;
    return bytesToDoubles(layoutBytes(e, static_cast<size_t>(n)));
}

int FftRealWork(const double *x, int n, double *re, double *im, double *work) {
    if (n < 1 || !x || !re || !im || !work) return 0;
    if (n == 1) {
        re[0] = x[0], im[0] = 0.0;
        return 1;
    }
    RealEngine e;
    KvCarve c(work);
    if (!e.carve(c, static_cast<size_t>(n))) return 0;
    e.fill();
    const size_t N = static_cast<size_t>(n), h = N / 2;
    if (N % 2 != 0) {
        execute(e.inner, RealIn{x}, HalfOut{re, im, h});
        im[0] = 0.0; // X_0 of real data is real
        return 1;
    }
    execute(e.inner, PairsIn{x}, Split{re, im, 1.0});
    // X_0 and X_h from Z_0; then the pairs k, h - k together: with E = (Z_k + conj Z_(h-k)) / 2,
    // O = -i (Z_k - conj Z_(h-k)) / 2 and t = W_n^k O, X_k = E + t and X_(h-k) = conj(E - t).
    const double r0 = re[0], i0 = im[0];
    re[0] = r0 + i0, im[0] = 0.0;
    re[h] = r0 - i0, im[h] = 0.0;
    for (size_t k = 1; 2 * k <= h; ++k) {
        const Cx zk = {re[k], im[k]}, zc = {re[h - k], -im[h - k]};
        const Cx E = scale(add(zk, zc), 0.5), t = mul(e.w.at(k), scale(negI(sub(zk, zc)), 0.5));
        const Cx xk = add(E, t), xc = conj(sub(E, t));
        re[k] = xk.re, im[k] = xk.im;
        re[h - k] = xc.re, im[h - k] = xc.im;
    }
    return 1;
}

int FftReal(const double *x, int n, double *re, double *im) {
    if (n < 1 || !x || !re || !im) return 0;
    const size_t d = FftRealScratchDoubles(n);
    if (d == 0) return 0;
    KvArray<double> work(d);
    if (!work.ok()) return 0;
    return FftRealWork(x, n, re, im, work.get());
}
