// A growable array of plain records whose every growth goes through KvRealloc, so that the fault
// hook reaches it. The language's buffers (token stream, code, constant pool, symbol table) each
// grow by a fixed increment when fewer than a given number of free slots remain; ensureFree
// states that rule once. New slots are zero-filled. On a failed growth the array is unchanged.
#ifndef KAVREL_BASE_GROW_H
#define KAVREL_BASE_GROW_H

#include <cstring>
#include <type_traits>

#include "base/alloc.h"

template <class T> class KvGrowArray {
    static_assert(std::is_trivially_copyable<T>::value, "KvGrowArray holds plain records");

public:
    KvGrowArray() = default;
    ~KvGrowArray() { KvFree(data_); }
    KvGrowArray(const KvGrowArray &) = delete;
    KvGrowArray &operator=(const KvGrowArray &) = delete;

    // Capacity becomes exactly cap (never below the count); false on overflow or failure.
    bool reserve(size_t cap) {
        if (cap < count_) cap = count_;
        if (cap == capacity_) return true;
        size_t bytes;
        if (!KvSizeMul(cap, sizeof(T), &bytes)) return false;
        void *p = KvRealloc(data_, bytes);
        if (!p) return false;
        data_ = static_cast<T *>(p);
        if (cap > capacity_) std::memset(static_cast<void *>(data_ + capacity_), 0, (cap - capacity_) * sizeof(T));
        capacity_ = cap;
        return true;
    }
    // Grows by increment when fewer than minFree slots remain free.
    bool ensureFree(size_t minFree, size_t increment) {
        if (capacity_ - count_ >= minFree) return true;
        if (increment > static_cast<size_t>(-1) - capacity_) return false;
        return reserve(capacity_ + increment);
    }
    // Appends within the capacity; false when full (the caller's growth rule decides, not this).
    bool pushWithin(const T &v) {
        if (count_ == capacity_) return false;
        data_[count_++] = v;
        return true;
    }
    // Appends, doubling the capacity (at least 16) when full.
    bool push(const T &v) {
        if (count_ == capacity_ && !reserve(capacity_ < 8 ? 16 : capacity_ * 2)) return false;
        data_[count_++] = v;
        return true;
    }
    void setCount(size_t n) { count_ = n <= capacity_ ? n : capacity_; }
    void clear() { count_ = 0; }
    // Hands the block to the caller (to be freed with KvFree) and leaves the array empty.
    T *release() {
        T *p = data_;
        data_ = nullptr;
        count_ = capacity_ = 0;
        return p;
    }

    T *data() const { return data_; }
    size_t count() const { return count_; }
    size_t capacity() const { return capacity_; }
    T &operator[](size_t i) const { return data_[i]; }

private:
    T *data_ = nullptr;
    size_t count_ = 0, capacity_ = 0;
};

#endif
