// Mixed-radix decimation in time (Cooley and Tukey 1965, in the recursive form of Singleton 1969):
// a length n = p m splits into p interleaved subsequences of length m, each transformed into a
// contiguous block of the output, and the blocks are combined by radix-p butterflies in place.
// Radices 4, 2, 3 and 5 have butterflies of their own; other primes up to kMaxRadix use the
// O(p^2) generic one. Lengths with a larger prime factor use Bluestein (1970): the transform as a
// convolution with the chirp exp(-i pi j^2 / n), done by three transforms of a 5-smooth length
// M >= 2n - 1.
//
// Accuracy: twiddles are computed once per call from cos and sin of the exact angle (the upper
// half mirrored from the lower, so W^j and W^(N-j) are exact conjugates), and the chirp's angle is
// reduced as j^2 mod 2n in integers before the multiplication by pi, so no angle grows with n.
// The inverse is the forward transform of the conjugate, conjugated.
#include "numeric/fft.h"

#include <cmath>
#include <cstdint>

#include "base/alloc.h"

namespace {

struct Cx {
    double re, im;
};
inline Cx add(Cx a, Cx b) { return {a.re + b.re, a.im + b.im}; }
inline Cx sub(Cx a, Cx b) { return {a.re - b.re, a.im - b.im}; }
inline Cx mul(Cx a, Cx b) { return {a.re * b.re - a.im * b.im, a.re * b.im + a.im * b.re}; }
inline Cx scale(Cx a, double s) { return {a.re * s, a.im * s}; }
// -i a
inline Cx negI(Cx a) { return {a.im, -a.re}; }

constexpr int kMaxRadix = 31;
constexpr int kMaxFactors = 32;
constexpr double kPi = 3.141592653589793;

// Radices of n, fours first, and their count; -1 when a prime factor exceeds kMaxRadix (n = 1 has
// no factors).
int factorize(int n, int *fac) {
    int k = 0;
    while (n % 4 == 0) fac[k++] = 4, n /= 4;
    while (n % 2 == 0) fac[k++] = 2, n /= 2;
    for (int p = 3; p <= kMaxRadix && n > 1; p += 2)
        while (n % p == 0) fac[k++] = p, n /= p;
    return n == 1 ? k : -1;
}

// tw[j] = exp(-2 pi i j / N).
void fillTwiddles(Cx *tw, int N) {
    const int half = N / 2;
    for (int j = 0; j <= half; ++j) {
        const double a = 2.0 * kPi * j / N;
        tw[j] = {std::cos(a), -std::sin(a)};
    }
    for (int j = half + 1; j < N; ++j) tw[j] = {tw[N - j].re, -tw[N - j].im};
}

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

// Bluestein: X_k = c_k sum_j (x_j c_j) conj(c_(k-j)), c_j = exp(-i pi j^2 / n), the sum a cyclic
// convolution of length M once conj(c) is laid out at both ends. data is read from and written to
// x; work holds the chirp (n), three buffers and the twiddles (M each) and the generic radix's
// temporaries.
void bluestein(Cx *x, int n, int M, const int *facM, Cx *work) {
    Cx *chirp = work, *P = chirp + n, *Q = P + M, *R = Q + M, *tw = R + M, *tmp = tw + M;
    const uint64_t twoN = 2 * static_cast<uint64_t>(n);
    for (int j = 0; j < n; ++j) {
        const uint64_t k2 = static_cast<uint64_t>(j) * static_cast<uint64_t>(j) % twoN;
        const double a = kPi * static_cast<double>(k2) / n;
        chirp[j] = {std::cos(a), -std::sin(a)};
    }
    fillTwiddles(tw, M);
    const Plan plan{facM, tw, static_cast<size_t>(M), tmp};
    for (int j = 0; j < M; ++j) P[j] = {0.0, 0.0};
    P[0] = {chirp[0].re, -chirp[0].im};
    for (int j = 1; j < n; ++j) P[j] = P[M - j] = {chirp[j].re, -chirp[j].im};
    transform(Q, P, M, 1, facM, plan);
    for (int j = 0; j < n; ++j) P[j] = mul(x[j], chirp[j]);
    for (int j = n; j < M; ++j) P[j] = {0.0, 0.0};
    transform(R, P, M, 1, facM, plan);
    // The inverse transform of the product as the conjugate of a forward one.
    for (int j = 0; j < M; ++j) {
        const Cx z = mul(R[j], Q[j]);
        R[j] = {z.re, -z.im};
    }
    transform(P, R, M, 1, facM, plan);
    const double inv = 1.0 / M;
    for (int k = 0; k < n; ++k) x[k] = mul(chirp[k], Cx{P[k].re * inv, -P[k].im * inv});
}

// Doubles for count complex values plus add more, into *out; false on overflow.
bool complexDoubles(size_t count, size_t add, size_t *out) {
    size_t d = 0;
    if (!KvSizeMul(count, 2, &d) || d > static_cast<size_t>(-1) - add) return false;
    *out = d + add;
    return true;
}

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
    int fac[kMaxFactors];
    size_t d = 0;
    const size_t nn = static_cast<size_t>(n);
    if (factorize(n, fac) >= 0) {
        // input copy, output, twiddles
        if (!KvSizeMul(nn, 3, &d) || !complexDoubles(d, 2 * kMaxRadix, &d)) return 0;
        return d;
    }
    if (n > 1073741824) return 0;
    const int M = FftGoodSize(2 * n - 1);
    if (M == 0) return 0;
    // data, chirp, three buffers and twiddles of length M
    size_t m4 = 0;
    if (!KvSizeMul(static_cast<size_t>(M), 4, &m4) || m4 > static_cast<size_t>(-1) - 2 * nn) return 0;
    if (!complexDoubles(m4 + 2 * nn, 2 * kMaxRadix, &d)) return 0;
    return d;
}

int FftComplexWork(double *re, double *im, int n, int inverse, double *work) {
    if (n < 1 || !re || !im || !work) return 0;
    if (n == 1) return 1;
    const double sign = inverse ? -1.0 : 1.0;
    Cx *x = reinterpret_cast<Cx *>(work);
    for (int j = 0; j < n; ++j) x[j] = {re[j], sign * im[j]};
    int fac[kMaxFactors];
    const Cx *result = x;
    if (factorize(n, fac) >= 0) {
        Cx *out = x + n, *tw = out + n, *tmp = tw + n;
        fillTwiddles(tw, n);
        transform(out, x, n, 1, fac, Plan{fac, tw, static_cast<size_t>(n), tmp});
        result = out;
    } else {
        const int M = FftGoodSize(2 * n - 1);
        int facM[kMaxFactors];
        factorize(M, facM);
        bluestein(x, n, M, facM, x + n);
    }
    for (int j = 0; j < n; ++j) {
        re[j] = result[j].re;
        im[j] = sign * result[j].im;
    }
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
