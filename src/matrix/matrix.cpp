// Matrix storage and bulk setters: two allocations per matrix (row pointers, then the block).
#include "matrix/matrix.h"

#include <cstring>

#include "base/alloc.h"

MATRIX MatAlloc(int rows, int cols) {
    if (rows < 1) return nullptr;
    auto **p = static_cast<double **>(KvMallocArray(static_cast<size_t>(rows) + 1, sizeof(double *)));
    if (!p) return nullptr;
    if (cols < 1) {
        std::memset(p, 0, sizeof(double *) * (static_cast<size_t>(rows) + 1));
        return p + 1;
    }
    // The element count is formed in size_t with an overflow check: on a 32-bit build
    // 65536 x 65536 would otherwise wrap to an empty block.
    size_t n = 0;
    double *block = KvSizeMul(static_cast<size_t>(rows), static_cast<size_t>(cols), &n)
                        ? static_cast<double *>(KvMallocArray(n, sizeof(double)))
                        : nullptr;
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
