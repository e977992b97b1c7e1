// Case-insensitive comparison over ASCII letters.
#include "base/text.h"

int KvCompareNoCaseN(const char *a, const char *b, long n) {
    for (long i = 0; i < n; ++i) {
        const int x = KvToLower(static_cast<unsigned char>(a[i]));
        const int y = KvToLower(static_cast<unsigned char>(b[i]));
        if (x != y || x == 0) return x - y;
    }
    return 0;
}

int KvCompareNoCase(const char *a, const char *b) {
    for (;; ++a, ++b) {
        const int x = KvToLower(static_cast<unsigned char>(*a));
        const int y = KvToLower(static_cast<unsigned char>(*b));
        if (x != y || x == 0) return x - y;
    }
}
