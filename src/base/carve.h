// One allocation for all the scratch of a routine. A routine describes its pieces twice with the
// same calls: first against an empty KvCarve, which only adds up the bytes (overflow-checked in
// the width of size_t), then against the one block made for that total, which hands the pieces
// out. So a routine has one allocation to fail and one to free, and its pieces are adjacent.
#ifndef KAVREL_BASE_CARVE_H
#define KAVREL_BASE_CARVE_H

#include <cstddef>

#include "base/alloc.h"
#include "base/types.h"

class KvCarve {
public:
    KvCarve() = default;
    explicit KvCarve(void *block) : base_(static_cast<char *>(block)) {}

    // n elements of T, aligned for doubles; null while only measuring.
    template <class T> T *take(size_t n) {
        static_assert(alignof(T) <= kAlign, "pieces are aligned for doubles");
        size_t bytes = 0;
        if (!KvSizeMul(n, sizeof(T), &bytes) || !advance(bytes)) return nullptr;
        return base_ ? reinterpret_cast<T *>(base_ + used_ - bytes) : nullptr;
    }
    // A rows x cols MATRIX in the layout MatAlloc makes (row pointers with the block address at
    // index -1, rows contiguous), but inside the carved block: never passed to MatFree. Null for
    // rows < 1 or while measuring.
    MATRIX matrix(int rows, int cols) {
        if (rows < 1) return nullptr;
        double **p = take<double *>(static_cast<size_t>(rows) + 1);
        size_t n = 0;
        if (!KvSizeMul(static_cast<size_t>(rows), static_cast<size_t>(cols > 0 ? cols : 0), &n)) overflow_ = true;
        double *data = take<double>(n);
        if (!p) return nullptr;
        p[0] = data;
        for (int i = 0; i < rows; ++i) p[i + 1] = cols > 0 ? data + static_cast<size_t>(i) * cols : nullptr;
        return p + 1;
    }
    // Bytes the pieces need; false when the total does not fit in size_t.
    bool total(size_t *bytes) const {
        *bytes = used_;
        return !overflow_;
    }

private:
    static constexpr size_t kAlign = alignof(double) > alignof(void *) ? alignof(double) : alignof(void *);
    bool advance(size_t bytes) {
        const size_t pad = (kAlign - used_ % kAlign) % kAlign;
        if (overflow_ || pad > static_cast<size_t>(-1) - used_ || bytes > static_cast<size_t>(-1) - used_ - pad) {
            overflow_ = true;
            return false;
        }
        used_ += pad + bytes;
        return true;
    }
    char *base_ = nullptr;
    size_t used_ = 0;
    bool overflow_ = false;
};

// Measures layout(carve), makes one block for it and carves it; the block (to be freed with
// KvFree) or null when it cannot be made.
template <class Layout> void *KvCarveBlock(Layout &&layout) {
    KvCarve measure;
    layout(measure);
    size_t bytes;
    if (!measure.total(&bytes)) return nullptr;
    void *block = KvMalloc(bytes);
    if (!block) return nullptr;
    KvCarve carve(block);
    layout(carve);
    return block;
}

#endif
