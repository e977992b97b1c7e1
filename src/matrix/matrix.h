// Matrix storage: MATRIX is an array of row pointers into one contiguous block of doubles, with
// a hidden entry before row 0 holding the block's address. The shape always travels beside it.
// The same layout is the host's matrix payload, so exports use host matrices without copying.
#ifndef KAVREL_MATRIX_MATRIX_H
#define KAVREL_MATRIX_MATRIX_H

#include "base/types.h"

// rows x cols, contents uninitialised; null if rows < 1 or allocation fails. With cols < 1 only
// the (all null) pointer array is made.
MATRIX MatAlloc(int rows, int cols);
void MatFree(MATRIX m);
MATRIX MatZero(MATRIX m, int rows, int cols);
MATRIX MatSetMissing(MATRIX m, int rows, int cols);
MATRIX MatCopy(MATRIX dst, MATRIX src, int rows, int cols);
// Sets every element to value.
MATRIX MatFill(MATRIX m, int rows, int cols, double value);
// dst (cols x rows) = src' (src is rows x cols).
MATRIX MatTranspose(MATRIX dst, MATRIX src, int rows, int cols);

// Owns a MATRIX for the scope; every path frees it.
class MatOwner {
public:
    MatOwner() = default;
    MatOwner(int rows, int cols) : m_(MatAlloc(rows, cols)) {}
    ~MatOwner() { MatFree(m_); }
    MatOwner(const MatOwner &) = delete;
    MatOwner &operator=(const MatOwner &) = delete;
    bool alloc(int rows, int cols) {
        MatFree(m_);
        m_ = MatAlloc(rows, cols);
        return m_ != nullptr;
    }
    MATRIX get() const { return m_; }
    operator MATRIX() const { return m_; }
    MATRIX release() {
        MATRIX m = m_;
        m_ = nullptr;
        return m;
    }

private:
    MATRIX m_ = nullptr;
};

#endif
