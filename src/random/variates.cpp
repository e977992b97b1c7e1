// Variates on the current family's uniform draw. The normal is drawn by inversion: one uniform per
// variate, so streams of mixed variates stay reproducible from the seed alone, and no second
// variate has to be kept between calls (the record has no room for one). Gamma variates, and with
// them chi-squared, t and F, follow Marsaglia and Tsang (2000).
#include "random/random.h"

#include <cmath>
#include <limits>

namespace {

constexpr double kInf = std::numeric_limits<double>::infinity();
// Discarded endpoint draws in a row before the record is taken to be stuck at a fixed point of
// its family (a valid state produces an endpoint with probability below 2^-31).
constexpr int kMaxEndpoints = 64;

// A uniform in the open interval (0, 1). Families 2 and 3 can return 0; such draws are discarded,
// as would be 1 from an operation table of a caller's own. NaN when the record keeps producing
// endpoints.
double openUniform(RanState *s) {
    for (int k = 0; k < kMaxEndpoints; ++k) {
        const double u = s->ops.uniform(s);
        if (u > 0.0 && u < 1.0) return u;
    }
    return std::numeric_limits<double>::quiet_NaN();
}

inline double poly7(const double *a, double r) {
    return ((((((a[7] * r + a[6]) * r + a[5]) * r + a[4]) * r + a[3]) * r + a[2]) * r + a[1]) * r + a[0];
}

// The standard normal quantile for 0 < p < 1: Wichura (1988), Algorithm AS 241, PPND16, rational
// approximations of degree 7 with relative error about 1e-16.
double normalQuantile(double p) {
    static const double a[8] = {3.3871328727963666080e0,  1.3314166789178437745e+2, 1.9715909503065514427e+3,
                                1.3731693765509461125e+4, 4.5921953931549871457e+4, 6.7265770927008700853e+4,
                                3.3430575583588128105e+4, 2.5090809287301226727e+3};
    static const double b[8] = {1.0,
                                4.2313330701600911252e+1,
                                6.8718700749205790830e+2,
                                5.3941960214247511077e+3,
                                2.1213794301586595867e+4,
                                3.9307895800092710610e+4,
                                2.8729085735721942674e+4,
                                5.2264952788528545610e+3};
    static const double c[8] = {1.42343711074968357734e0,  4.63033784615654529590e0, 5.76949722146069140550e0,
                                3.64784832476320460504e0,  1.27045825245236838258e0, 2.41780725177450611770e-1,
                                2.27238449892691845833e-2, 7.74545014278341407640e-4};
    static const double d[8] = {1.0,
                                2.05319162663775882187e0,
                                1.67638483018380384940e0,
                                6.89767334985100004550e-1,
                                1.48103976427480074590e-1,
                                1.51986665636164571966e-2,
                                5.47593808499534494600e-4,
                                1.05075007164441684324e-9};
    static const double e[8] = {6.65790464350110377720e0,  5.46378491116411436990e0,  1.78482653991729133580e0,
                                2.96560571828504891230e-1, 2.65321895265761230930e-2, 1.24266094738807843860e-3,
                                2.71155556874348757815e-5, 2.01033439929228813265e-7};
    static const double f[8] = {1.0,
                                5.99832206555887937690e-1,
                                1.36929880922735805310e-1,
                                1.48753612908506148525e-2,
                                7.86869131145613259100e-4,
                                1.84631831751005468180e-5,
                                1.42151175831644588870e-7,
                                2.04426310338993978564e-15};
    const double q = p - 0.5;
    if (std::fabs(q) <= 0.425) {
        const double r = 0.180625 - q * q;
        return q * poly7(a, r) / poly7(b, r);
    }
    double r = std::sqrt(-std::log(q < 0.0 ? p : 1.0 - p)); // 1 - p is exact for p >= 1/2
    double x;
    if (r <= 5.0) {
        r -= 1.6;
        x = poly7(c, r) / poly7(d, r);
    } else {
        r -= 5.0;
        x = poly7(e, r) / poly7(f, r);
    }
    return q < 0.0 ? -x : x;
}

// Gamma(a, 1) for a >= 1 by Marsaglia and Tsang (2000), "A simple method for generating gamma
// variables", ACM TOMS 26(3): d = a - 1/3, v = (1 + x / sqrt(9d))^3 for a normal x, accepted with
// the squeeze u < 1 - 0.0331 x^4 or the full test log u < x^2/2 + d (1 - v + log v).
double gammaAtLeastOne(RanState *s, double a) {
    const double d = a - 1.0 / 3.0, c = 1.0 / std::sqrt(9.0 * d);
    for (;;) {
        double x, v;
        do {
            x = RanNormal(s);
            v = 1.0 + c * x;
        } while (v <= 0.0);
        v = v * v * v;
        const double u = openUniform(s);
        if (u != u) return u; // x is NaN too: a stuck record
        const double x2 = x * x;
        if (u < 1.0 - 0.0331 * x2 * x2) return d * v;
        if (std::log(u) < 0.5 * x2 + d * (1.0 - v + std::log(v))) return d * v;
    }
}

// log Gamma(a, 1) variate for a > 0. Below 1 the boost of Marsaglia and Tsang (sec. 6),
// Gamma(a) = Gamma(a + 1) U^(1/a), taken in logs: U^(1/a) underflows for small a (below 0.001 it
// does for most draws), its logarithm does not.
double logGammaVariate(RanState *s, double a) {
    if (a >= 1.0) return std::log(gammaAtLeastOne(s, a));
    const double g = gammaAtLeastOne(s, a + 1.0);
    return std::log(g) + std::log(openUniform(s)) / a;
}

// log(chi-squared(df) / df), and its limit 0 for df = inf.
double logScaledChiSquared(RanState *s, double df) {
    if (df == kInf) return 0.0;
    return logGammaVariate(s, 0.5 * df) - std::log(0.5 * df);
}

} // namespace

double RanUniform(RanState *s) { return s->ops.uniform(s); }

double RanNormal(RanState *s) { return normalQuantile(openUniform(s)); }

double RanChiSquared(RanState *s, double df) {
    if (!(df > 0.0 && df < kInf)) return MissingValueOf();
    const double a = 0.5 * df;
    if (a >= 1.0) return 2.0 * gammaAtLeastOne(s, a);
    const double g = gammaAtLeastOne(s, a + 1.0);
    return 2.0 * g * std::pow(openUniform(s), 1.0 / a); // underflow to 0 is the right answer here
}

// Z / sqrt(chi-squared(n) / n), n = trunc(df).
double RanStudentT(RanState *s, double df) {
    const double n = std::trunc(df);
    if (!(n >= 1.0)) return MissingValueOf();
    const double z = RanNormal(s);
    if (n == kInf) return z;
    return z / std::sqrt(RanChiSquared(s, n) / n);
}

// (chi-squared(df1) / df1) / (chi-squared(df2) / df2), formed in logs so that tiny degrees of
// freedom, whose chi-squared draws underflow, still give a ratio.
double RanF(RanState *s, double df1, double df2) {
    if (!(df1 > 0.0) || !(df2 > 0.0)) return MissingValueOf();
    const double num = logScaledChiSquared(s, df1);
    return std::exp(num - logScaledChiSquared(s, df2));
}
