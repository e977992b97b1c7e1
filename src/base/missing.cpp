// The missing value is stored through memory, not loaded as a constant, so that its bit pattern
// is exactly 0x7FF8000000000000 whatever the compiler's NaN constant would be.
#include "base/types.h"

#include <cstdint>
#include <cstring>

void MissingValue(double *d) {
    const uint64_t bits = UINT64_C(0x7FF8000000000000);
    std::memcpy(d, &bits, sizeof bits);
}

double MissingValueOf() {
    double d;
    MissingValue(&d);
    return d;
}
