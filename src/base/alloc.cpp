// Allocation layer: malloc with a counter and a single-shot fault hook for tests.
#include "base/alloc.h"

#include <cstdlib>

namespace {
long g_count = 0;
long g_failAt = 0;
size_t g_limit = 0;

bool shouldFail(size_t bytes) {
    ++g_count;
    return (g_failAt > 0 && g_count == g_failAt) || (g_limit > 0 && bytes > g_limit);
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
    long made = g_count;
    g_count = 0;
    g_failAt = n;
    return made;
}

long KvAllocCount() { return g_count; }

size_t KvAllocSetLimit(size_t bytes) {
    const size_t old = g_limit;
    g_limit = bytes;
    return old;
}
