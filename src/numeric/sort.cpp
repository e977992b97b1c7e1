// Bottom-up merge sort: runs of kRun elements are sorted by insertion, then merged in passes of
// doubling width between the data and one scratch array (Knuth 1998, sec. 5.2.4). Both steps move
// an element past another only when it is strictly before it, which makes the sort stable. The
// order "a before b" is a < b for numbers, every number before a NaN, NaNs equal among themselves.
#include "numeric/sort.h"

#include <algorithm>
#include <cstring>

#include "base/alloc.h"

namespace {

constexpr int kRun = 16;

inline bool before(double a, double b) { return a < b || (a == a && b != b); }

// The element being sorted: the value itself, or an index ordered by its key.
struct ByValue {
    bool operator()(double a, double b) const { return before(a, b); }
};
struct ByKey {
    const double *key;
    bool operator()(int a, int b) const { return before(key[a], key[b]); }
};

template <class T, class Less> void insertionSort(T *x, int n, Less less) {
    for (int i = 1; i < n; ++i) {
        const T v = x[i];
        int j = i;
        for (; j > 0 && less(v, x[j - 1]); --j) x[j] = x[j - 1];
        x[j] = v;
    }
}

// Sorts x through scratch s (n elements each). Positions are long long so that lo + 2 width
// cannot overflow for n near the int range.
template <class T, class Less> void mergeSort(T *x, T *s, int n, Less less) {
    const long long len = n;
    for (long long lo = 0; lo < len; lo += kRun)
        insertionSort(x + lo, static_cast<int>(std::min<long long>(len - lo, kRun)), less);
    T *from = x, *to = s;
    for (long long width = kRun; width < len; width *= 2) {
        for (long long lo = 0; lo < len; lo += 2 * width) {
            const long long mid = std::min(len, lo + width), hi = std::min(len, lo + 2 * width);
            long long i = lo, j = mid, k = lo;
            // Take from the right run only when strictly before the left one's head.
            while (i < mid && j < hi) to[k++] = less(from[j], from[i]) ? from[j++] : from[i++];
            while (i < mid) to[k++] = from[i++];
            while (j < hi) to[k++] = from[j++];
        }
        T *swap = from;
        from = to;
        to = swap;
    }
    if (from != x) std::memcpy(x, from, sizeof(T) * static_cast<size_t>(n));
}

} // namespace

int SortAscending(double *x, int n) {
    if (n < 0 || (n > 0 && !x)) return 0;
    KvArray<double> scratch(static_cast<size_t>(n));
    if (!scratch.ok()) return 0;
    mergeSort(x, scratch.get(), n, ByValue());
    return 1;
}

int SortIndexByKey(const double *key, int n, int *index) {
    if (n < 0 || (n > 0 && (!key || !index))) return 0;
    KvArray<int> scratch(static_cast<size_t>(n));
    if (!scratch.ok()) return 0;
    for (int i = 0; i < n; ++i) index[i] = i;
    mergeSort(index, scratch.get(), n, ByKey{key});
    return 1;
}
