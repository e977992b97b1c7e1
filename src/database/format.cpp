// The fitted-width number formatter. The precision of "%.*g" is lowered by the room each kind of
// number needs around its significant digits: sign, "d." and an exponent whose width depends on
// the magnitude (one digit for 1e-9 <= |x| < 1e-4, two below that and above 2^31 - 1, three
// beyond 1e+-99). The exponent is first brought to a three-digit form and then shortened by
// fixed rules, so that the text does not depend on how many exponent digits the C library
// prints. docs/messages-output.md lists the rules with worked examples.
#include "database/format.h"

#include <cmath>
#include <cstdio>
#include <cstring>

namespace {

constexpr int kMaxPrecision = 100;
constexpr size_t kWork = 512;

void copyOut(char *out, size_t size, const char *text) {
    if (!out || size == 0) return;
    std::snprintf(out, size, "%s", text);
}

// Replaces the first occurrence of from by to (to is never longer than from).
void replaceFirst(char *s, const char *from, const char *to) {
    char *p = std::strstr(s, from);
    if (!p) return;
    size_t lf = std::strlen(from), lt = std::strlen(to);
    std::memcpy(p, to, lt);
    std::memmove(p + lt, p + lf, std::strlen(p + lf) + 1);
}

// "1.5e-05" -> "1.5e-005": exponents with at least three digits.
void threeDigitExponent(char *s) {
    char *e = std::strchr(s, 'e');
    if (!e || (e[1] != '+' && e[1] != '-')) return;
    char *d = e + 2;
    size_t nd = std::strlen(d);
    if (nd >= 3) return;
    size_t pad = 3 - nd;
    std::memmove(d + pad, d, nd + 1);
    for (size_t i = 0; i < pad; ++i) d[i] = '0';
}

// Decimal exponent of ax > 0: 10^e <= ax < 10^(e+1), checked against the powers themselves so
// that exact powers of ten do not fall one decade low through rounding of log10.
int decimalExponent(double ax) {
    int e = static_cast<int>(std::floor(std::log10(ax)));
    if (std::pow(10.0, e) > ax)
        --e;
    else if (std::pow(10.0, e + 1) <= ax)
        ++e;
    return e;
}

// Drops trailing zeros of the fraction (before any exponent) while more than m decimals remain.
void trimDecimals(char *s, int m) {
    char *point = std::strchr(s, '.');
    if (!point) return;
    char *end = std::strchr(s, 'e');
    if (!end) end = s + std::strlen(s);
    char *last = end;
    while (last - 1 > point && last[-1] == '0' && (last - 1 - point - 1) >= m) --last;
    if (last != end) std::memmove(last, end, std::strlen(end) + 1);
}

} // namespace

char *FormatNumber(char *out, size_t size, double value, int width, int digits, int expSign, int leadingZero,
                   int minDecimals) {
    if (!out || size == 0) return out;
    if (value != value) {
        copyOut(out, size, ".NaN");
        return out;
    }
    if (std::isinf(value)) {
        copyOut(out, size, value > 0 ? "+.Inf" : "-.Inf");
        return out;
    }
    if (value == 0.0) value = 0.0; // no "-0"
    const int m = minDecimals > 0 ? minDecimals : 0;
    char buf[kWork];

    if (m == 0 && value == std::trunc(value) && std::fabs(value) <= 2147483647.0) {
        int n = std::snprintf(buf, sizeof buf, "%d", static_cast<int>(value));
        if (n <= width) {
            copyOut(out, size, buf);
            return out;
        }
    }
    if (width < 8 || digits < 1) {
        copyOut(out, size, "####");
        return out;
    }

    const double ax = std::fabs(value);
    const bool neg = value < 0;
    int p = digits < kMaxPrecision ? digits : kMaxPrecision;
    enum { TINY, SMALL, SMALLER, BELOW_ONE, HUGE_EXP, LARGE, ORDINARY } kind;
    bool appendPoint = false;
    int cap;
    int floorP = 1;
    if (ax == 0.0) { // only reached with m > 0: an ordinary number with one integer digit
        kind = ORDINARY;
        cap = width - 2;
    } else if (ax < 1e-99) {
        kind = TINY;
        cap = width - 7;
    } else if (ax < 1e-9) {
        kind = SMALLER;
        cap = width - 6;
    } else if (ax < 0.0001) {
        kind = SMALL;
        cap = width - 5;
    } else if (ax < 1.0) {
        kind = BELOW_ONE;
        int zeros = -decimalExponent(ax) - 1; // zeros between the point and the first digit
        cap = width - zeros - 1 - (leadingZero ? 1 : 0) - (neg ? 1 : 0);
    } else if (ax >= 1e100) {
        kind = HUGE_EXP;
        cap = width - 7;
    } else if (ax > 2147483647.0) {
        kind = LARGE;
        cap = width - 6 + (expSign ? 1 : 0);
    } else {
        kind = ORDINARY;
        int intDigits = decimalExponent(ax) + 1;
        if (intDigits <= width - 2) {
            cap = width - 2;
            floorP = intDigits; // never an exponent for what fits
            appendPoint = !expSign;
        } else {
            cap = width - 6 + (expSign ? 1 : 0);
        }
    }
    if (p > cap) p = cap;
    if (p < floorP) p = floorP;
    if (p < 1) {
        copyOut(out, size, "####");
        return out;
    }

    std::snprintf(buf, sizeof buf, m > 0 ? "%#.*g" : "%.*g", p, value);
    threeDigitExponent(buf);
    switch (kind) {
    case TINY:
    case SMALLER: replaceFirst(buf, "e-0", "e-"); break;
    case SMALL: replaceFirst(buf, "e-00", "e-"); break;
    case BELOW_ONE:
        if (!leadingZero) {
            if (std::strncmp(buf, "0.", 2) == 0)
                replaceFirst(buf, "0.", ".");
            else if (std::strncmp(buf, "-0.", 3) == 0)
                replaceFirst(buf, "-0.", "-.");
        }
        break;
    default: break;
    }
    if (std::strstr(buf, "e+")) {
        replaceFirst(buf, "e+0", "e+");
        if (expSign) replaceFirst(buf, "e+", "e");
    }
    if (appendPoint && !std::strchr(buf, '.') && !std::strchr(buf, 'e')) std::strcat(buf, ".");
    if (m > 0) trimDecimals(buf, m);
    if (std::strlen(buf) > static_cast<size_t>(width)) {
        copyOut(out, size, "####");
        return out;
    }
    copyOut(out, size, buf);
    return out;
}
