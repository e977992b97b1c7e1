// Allocation layer: malloc with a counter and a single-shot fault hook for tests.
#include "matrix/alloc.h"

#include <cstdlib>

namespace {
long g_count = 0;
long g_failAt = 0;

bool shouldFail() {
    ++g_count;
    return g_failAt > 0 && g_count == g_failAt;
}
} // namespace

void *KvMalloc(size_t bytes) {
    if (shouldFail()) return nullptr;
    return std::malloc(bytes == 0 ? 1 : bytes);
}

void *KvCalloc(size_t n, size_t size) {
    if (size != 0 && n > static_cast<size_t>(-1) / size) return nullptr;
    if (shouldFail()) return nullptr;
    return std::calloc(n == 0 ? 1 : n, size == 0 ? 1 : size);
}

void *KvRealloc(void *p, size_t bytes) {
    if (shouldFail()) return nullptr;
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
