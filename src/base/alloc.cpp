// Allocation layer: malloc with a counter and a single-shot fault hook for tests.
#include "base/alloc.h"

#include <atomic>
#include <cstdlib>

namespace {
// Atomic so that routines running in several threads at once (the Python module releases its
// interpreter lock around them) count without a data race; the fault hook itself is for
// single-threaded tests.
std::atomic<long> g_count{0};
std::atomic<long> g_failAt{0};
std::atomic<size_t> g_limit{0};

bool shouldFail(size_t bytes) {
    const long n = g_count.fetch_add(1, std::memory_order_relaxed) + 1;
    const long failAt = g_failAt.load(std::memory_order_relaxed);
    const size_t limit = g_limit.load(std::memory_order_relaxed);
    return (failAt > 0 && n == failAt) || (limit > 0 && bytes > limit);
}
} // namespace

void *KvMalloc(size_t bytes) {
    if (shouldFail(bytes)) return nullptr;
    return std::malloc(bytes == 0 ? 1 : bytes);
}

void *KvMallocArray(size_t n, size_t size) {
    size_t bytes;
    return KvSizeMul(n, size, &bytes) ? KvMalloc(bytes) : nullptr;
}

void *KvCalloc(size_t n, size_t size) {
    size_t bytes;
    if (!KvSizeMul(n, size, &bytes)) return nullptr;
    if (shouldFail(bytes)) return nullptr;
    return std::calloc(bytes == 0 ? 1 : bytes, 1);
}

void *KvRealloc(void *p, size_t bytes) {
    if (shouldFail(bytes)) return nullptr;
    return std::realloc(p, bytes == 0 ? 1 : bytes);
}

void KvFree(void *p) { std::free(p); }

long KvAllocFailAt(long n) {
    const long made = g_count.exchange(0, std::memory_order_relaxed);
    g_failAt.store(n, std::memory_order_relaxed);
    return made;
}

long KvAllocCount() { return g_count.load(std::memory_order_relaxed); }

size_t KvAllocSetLimit(size_t bytes) { return g_limit.exchange(bytes, std::memory_order_relaxed); }
