// Matrix storage and bulk setters: two allocations per matrix (row pointers, then the block).
#include "matrix/matrix.h"

#include <cstdint>
#include <cstring>

#include "matrix/alloc.h"

MATRIX MatAlloc(int rows, int cols) {
    if (rows < 1) return nullptr;
    auto **p = static_cast<double **>(KvMalloc(sizeof(double *) * (static_cast<size_t>(rows) + 1)));
    if (!p) return nullptr;
    if (cols < 1) {
        std::memset(p, 0, sizeof(double *) * (static_cast<size_t>(rows) + 1));
        return p + 1;
    }
    size_t n = static_cast<size_t>(rows) * static_cast<size_t>(cols);
    double *block = n <= SIZE_MAX / sizeof(double) ? static_cast<double *>(KvMalloc(n * sizeof(double))) : nullptr;
    if (!block) {
        KvFree(p);
        return nullptr;
    }
    p[0] = block;
    for (int i = 0; i < rows; ++i) p[i + 1] = block + static_cast<size_t>(i) * cols;
    return p + 1;
}

void MatFree(MATRIX m) {
    if (!m) return;
    KvFree(m[-1]);
    KvFree(m - 1);
}

MATRIX MatZero(MATRIX m, int rows, int cols) { return MatFill(m, rows, cols, 0.0); }

MATRIX MatSetMissing(MATRIX m, int rows, int cols) { return MatFill(m, rows, cols, MissingValueOf()); }

MATRIX MatFill(MATRIX m, int rows, int cols, double value) {
    if (!m || rows < 1 || cols < 1) return m;
    for (int i = 0; i < rows; ++i) {
        double *r = m[i];
        for (int j = 0; j < cols; ++j) r[j] = value;
    }
    return m;
}

MATRIX MatCopy(MATRIX dst, MATRIX src, int rows, int cols) {
    if (!dst || !src) return nullptr;
    if (rows < 1 || cols < 1) return dst;
    for (int i = 0; i < rows; ++i) std::memmove(dst[i], src[i], sizeof(double) * static_cast<size_t>(cols));
    return dst;
}

MATRIX MatTranspose(MATRIX dst, MATRIX src, int rows, int cols) {
    if (!dst || !src) return nullptr;
    for (int i = 0; i < rows; ++i)
        for (int j = 0; j < cols; ++j) dst[j][i] = src[i][j];
    return dst;
}

void MissingValue(double *d) {
    const uint64_t bits = UINT64_C(0x7FF8000000000000);
    std::memcpy(d, &bits, sizeof bits);
}

double MissingValueOf() {
    double d;
    MissingValue(&d);
    return d;
}
