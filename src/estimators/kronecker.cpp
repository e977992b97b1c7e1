// Kronecker selection: one multiplication per requested element. Indices arrive as doubles from
// the host; each is validated as a double before it is converted, so that NaN, infinities and
// values beyond the integer range never reach a conversion or an array subscript.
#include "estimators/kronecker.h"

#include "matrix/matrix.h"

namespace {

// Index truncated toward zero if it lies in 0 .. extent-1, else -1. Values in (-1, 0) truncate
// to 0 and are valid, but only where index 0 exists: an empty extent (a factor without rows or
// columns) has no valid index at all.
long long productIndex(double v, long long extent) {
    if (extent <= 0 || !(v > -1.0 && v < static_cast<double>(extent))) return -1;
    return static_cast<long long>(v);
}

} // namespace

void KroneckerSelect(MATRIX A, int rA, int cA, MATRIX B, int rB, int cB, const double *rowIdx, int nrow,
                     const double *colIdx, int ncol, MATRIX out) {
    const long long rows = rA > 0 && rB > 0 ? static_cast<long long>(rA) * rB : 0;
    const long long cols = cA > 0 && cB > 0 ? static_cast<long long>(cA) * cB : 0;
    const double missing = MissingValueOf();
    for (int i = 0; i < nrow; ++i) {
        double *o = out[i];
        const long long r = productIndex(rowIdx ? rowIdx[i] : static_cast<double>(i), rows);
        if (r < 0) {
            for (int j = 0; j < ncol; ++j) o[j] = missing;
            continue;
        }
        const double *a = A[r / rB], *b = B[r % rB];
        for (int j = 0; j < ncol; ++j) {
            const long long c = productIndex(colIdx[j], cols);
            o[j] = c < 0 ? missing : a[c / cB] * b[c % cB];
        }
    }
}
