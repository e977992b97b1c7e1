// The library's one allocation layer. Every heap block the library makes for itself comes from
// here, so that a test can make the n-th allocation fail and check that each export survives it,
// frees what it made and reports the failure its frame defines (the idea of SQLite's fault hooks).
// Sizes are computed in the width of the target's size_t and checked for overflow: on a 32-bit
// build 65536 x 65536 doubles must fail, not wrap to an empty block.
#ifndef KAVREL_BASE_ALLOC_H
#define KAVREL_BASE_ALLOC_H

#include <cstddef>

// Null on failure (or when the fault hook fires). A zero-byte request returns a unique block.
void *KvMalloc(size_t bytes);
// n * size bytes, zero-filled; null on overflow or failure.
void *KvCalloc(size_t n, size_t size);
// Null in, null out; on failure the old block stays valid and null is returned.
void *KvRealloc(void *p, size_t bytes);
void KvFree(void *p);

// *out = a * b; false (and *out untouched) when the product does not fit in size_t.
inline bool KvSizeMul(size_t a, size_t b, size_t *out) {
    if (b != 0 && a > static_cast<size_t>(-1) / b) return false;
    *out = a * b;
    return true;
}
// n elements of size bytes each; null on overflow or failure.
void *KvMallocArray(size_t n, size_t size);

// n-th allocation counted from this call fails (n >= 1); n <= 0 disables the hook. Returns the
// number of allocations made since the previous call.
long KvAllocFailAt(long n);
// Allocations made since the last KvAllocFailAt.
long KvAllocCount();
// Requests above bytes fail, as on a machine without that much memory (0: no limit). For fuzzing,
// where a valid request for a 10 GB result would otherwise be granted by overcommit. Returns the
// previous limit.
size_t KvAllocSetLimit(size_t bytes);

// Scratch that frees itself on every path. Allocation goes through KvMalloc and can fail:
// callers test ok() (or the pointer) before use.
template <class T> class KvArray {
public:
    KvArray() = default;
    explicit KvArray(size_t n) { alloc(n); }
    ~KvArray() { KvFree(p_); }
    KvArray(const KvArray &) = delete;
    KvArray &operator=(const KvArray &) = delete;
    bool alloc(size_t n) {
        KvFree(p_);
        p_ = static_cast<T *>(KvMallocArray(n, sizeof(T)));
        return p_ != nullptr;
    }
    bool ok() const { return p_ != nullptr; }
    T *get() const { return p_; }
    T &operator[](size_t i) const { return p_[i]; }
    // Takes ownership of p (from KvMalloc), freeing what was held.
    void reset(T *p) {
        KvFree(p_);
        p_ = p;
    }
    T *release() {
        T *p = p_;
        p_ = nullptr;
        return p;
    }

private:
    T *p_ = nullptr;
};

#endif
