// Built-ins over the whole sample: at the run's first observation t1 each computes its result for
// t1..t2 into its destination variable (through the database's column write, which saves the old
// values for undo and marks the variable changed) and at every observation returns the
// destination's value there. A destination that is also the source is the fault "Arguments must
// be different (smooth, sortby)" and the missing value, with nothing written. The kernels are
// the numerical library's (src/numeric/, docs/numeric.md); docs/algebra.md states how missing
// values reach them.
#include <cmath>

#include "algebra/builtins.h"
#include "algebra/compiler.h"
#include "base/alloc.h"
#include "base/carve.h"
#include "base/types.h"
#include "database/database.h"
#include "numeric/acf.h"
#include "numeric/ewma.h"
#include "numeric/hpfilter.h"
#include "numeric/periodogram.h"
#include "numeric/smooth.h"
#include "numeric/sort.h"

namespace {

int symbolOf(double arg) { return static_cast<int>(arg); }
AlgebraSymbol &symbol(AlgebraCompiler *c, double arg) { return c->symbols[static_cast<size_t>(arg)]; }
bool missing(double x) { return x != x; }

// The values a kernel sees: t1..t2 without leading and trailing missing values. False when none
// is left or a missing value lies between the first and the last present one.
bool stretch(const AlgebraCompiler *c, const double *x, int *from, int *to) {
    int a = c->t1, b = c->t2;
    while (a <= b && missing(x[a])) ++a;
    while (b >= a && missing(x[b])) --b;
    if (a > b) return false;
    for (int i = a; i <= b; ++i)
        if (missing(x[i])) return false;
    *from = a, *to = b;
    return true;
}

// The frame every whole-sample function shares. sources are the symbols read, dests the symbols
// written (the first is the one whose value is returned). At t1, each destination is set missing
// over t1..t2 and fill(data of each destination) computes into them.
template <int NS, int ND, class Fill>
double wholeSample(AlgebraCompiler *c, const double (&sources)[NS], const double (&dests)[ND], Fill fill) {
    for (double d : dests) {
        for (double s : sources)
            if (s == d) {
                AlgebraSetError(c, ALGEBRA_SAME_ARGUMENTS);
                return MissingValueOf();
            }
    }
    if (ND > 1 && dests[0] == dests[ND - 1]) {
        AlgebraSetError(c, ALGEBRA_SAME_ARGUMENTS);
        return MissingValueOf();
    }
    if (c->t == c->t1) {
        // A second destination, when there is one, is written by a second column write; a
        // write of no variable (-1) is a no-op with no data.
        DbColumnWrite first(c->db, symbol(c, dests[0]).index, c->t1, c->t2);
        DbColumnWrite second(c->db, ND > 1 ? symbol(c, dests[ND - 1]).index : -1, c->t1, c->t2);
        double *const out[2] = {first.data, second.data};
        for (int k = 0; k < ND; ++k) {
            AlgebraNoteWrite(c, symbolOf(dests[k]));
            if (out[k])
                for (int i = c->t1; i <= c->t2; ++i) out[k][i] = MissingValueOf();
        }
        if (out[0] && (ND == 1 || out[1])) fill(out);
    }
    const double *data = symbol(c, dests[0]).data;
    return data ? data[c->t] : MissingValueOf();
}

// acf and pacf: lags 0..n-1 of the stretch's n values at t1.., their numbers beside them.
template <int (*Kernel)(const double *, int, int, double *)> double correlations(AlgebraCompiler *c, const double *a) {
    const double *x = symbol(c, a[0]).data;
    return wholeSample(c, {a[0]}, {a[1], a[2]}, [&](double *const *out) {
        int from, to;
        if (!stretch(c, x, &from, &to)) return;
        const int n = to - from + 1;
        if (!Kernel(x + from, n, n - 1, out[0] + c->t1)) return;
        for (int k = 0; k < n; ++k) out[1][c->t1 + k] = k;
    });
}
double fnAcf(AlgebraCompiler *c, const double *a) { return correlations<SeriesAcf>(c, a); }
double fnPacf(AlgebraCompiler *c, const double *a) { return correlations<SeriesPacf>(c, a); }

double fnPeriodogram(AlgebraCompiler *c, const double *a) {
    const double *x = symbol(c, a[0]).data;
    return wholeSample(c, {a[0]}, {a[1], a[2]}, [&](double *const *out) {
        int from, to;
        if (stretch(c, x, &from, &to)) SeriesPeriodogram(x + from, to - from + 1, out[0] + c->t1, out[1] + c->t1);
    });
}

// The kernels that fill one destination from one source stretch, aligned with it.
template <class Kernel> double smoothed(AlgebraCompiler *c, double src, double dest, Kernel kernel) {
    const double *x = symbol(c, src).data;
    return wholeSample(c, {src}, {dest}, [&](double *const *out) {
        int from, to;
        if (stretch(c, x, &from, &to)) kernel(x + from, to - from + 1, out[0] + from);
    });
}

double fnSmoothHp(AlgebraCompiler *c, const double *a) {
    return smoothed(c, a[0], a[2], [&](const double *x, int n, double *out) { SmoothHp(x, n, a[1], out); });
}

// ALPHA: |ALPHA| <= 1e-20 automatic, a positive one rounded to a whole bandwidth or degrees of
// freedom, a negative one the smoothing parameter itself (the kernels' own convention).
double smoothingAlpha(double alpha) {
    if (std::fabs(alpha) <= 1e-20) return 0.0;
    return alpha > 0.0 ? std::floor(alpha + 0.5) : alpha;
}
double fnSmoothNp(AlgebraCompiler *c, const double *a) {
    return smoothed(c, a[0], a[2],
                    [&](const double *x, int n, double *out) { SmoothKernel(x, n, smoothingAlpha(a[1]), out); });
}
double fnSmoothSp(AlgebraCompiler *c, const double *a) {
    return smoothed(c, a[0], a[2],
                    [&](const double *x, int n, double *out) { SmoothSpline(x, n, smoothingAlpha(a[1]), out); });
}

double fnEwma(AlgebraCompiler *c, const double *a) {
    return smoothed(c, a[0], a[3], [&](const double *x, int n, double *out) { SeriesEwma(x, n, a[1], a[2], out); });
}

// Both series over the stretch where both are present; a missing value of either inside it
// leaves the destination missing.
double fnEwmc0(AlgebraCompiler *c, const double *a) {
    const double *x = symbol(c, a[0]).data, *y = symbol(c, a[1]).data;
    return wholeSample(c, {a[0], a[1]}, {a[3]}, [&](double *const *out) {
        int from = c->t1, to = c->t2;
        while (from <= to && (missing(x[from]) || missing(y[from]))) ++from;
        while (to >= from && (missing(x[to]) || missing(y[to]))) --to;
        for (int i = from; i <= to; ++i)
            if (missing(x[i]) || missing(y[i])) return;
        if (from <= to) SeriesEwmc0(x + from, y + from, to - from + 1, a[2], out[0] + from);
    });
}

// VAR sorted in place over t1..t2, missing values last; its value at t afterwards.
double fnSort(AlgebraCompiler *c, const double *a) {
    AlgebraSymbol &s = symbol(c, a[0]);
    if (c->t == c->t1) {
        DbColumnWrite w(c->db, s.index, c->t1, c->t2);
        AlgebraNoteWrite(c, symbolOf(a[0]));
        if (w.data) SortAscending(w.data + c->t1, c->t2 - c->t1 + 1);
    }
    return s.data ? s.data[c->t] : MissingValueOf();
}

// The database-wide sorts act at observation 0 (a run that starts later does not sort).
// _sortby: VAR's values over every observation reordered by KEY (stable, missing keys last).
double fnSortBy(AlgebraCompiler *c, const double *a) {
    if (a[0] == a[1]) {
        AlgebraSetError(c, ALGEBRA_SAME_ARGUMENTS);
        return MissingValueOf();
    }
    AlgebraSymbol &s = symbol(c, a[0]);
    if (c->t == 0) {
        const int n = c->db->obsCount;
        KvCarve measure;
        measure.take<int>(static_cast<size_t>(n)), measure.take<double>(static_cast<size_t>(n));
        size_t bytes = 0;
        KvArray<char> block;
        if (measure.total(&bytes) && block.alloc(bytes)) {
            KvCarve carve(block.get());
            int *order = carve.take<int>(static_cast<size_t>(n));
            double *copy = carve.take<double>(static_cast<size_t>(n));
            if (SortIndexByKey(symbol(c, a[1]).data, n, order)) {
                DbColumnWrite w(c->db, s.index, 0, n - 1);
                AlgebraNoteWrite(c, symbolOf(a[0]));
                if (w.data) {
                    for (int i = 0; i < n; ++i) copy[i] = w.data[order[i]];
                    for (int i = 0; i < n; ++i) w.data[i] = copy[i];
                }
            }
        }
    }
    return s.data ? s.data[c->t] : MissingValueOf();
}

// _sortallby: every variable's observations reordered by VAR. The database makes new columns,
// so every symbol's column is fetched again, and every column counts as written.
double fnSortAllBy(AlgebraCompiler *c, const double *a) {
    if (c->t == 0 && DbSortObservations(c->db, symbol(c, a[0]).index)) {
        AlgebraRefreshColumns(c, 0);
        for (size_t i = 0; i < c->symbols.count(); ++i)
            if (c->symbols[i].flags & SYM_VARIABLE) AlgebraNoteWrite(c, static_cast<int>(i));
    }
    const double *x = symbol(c, a[0]).data;
    return x ? x[c->t] : MissingValueOf();
}

const AlgebraFunction kRows[] = {
    {fnAcf, "acf", 3, "rdd", "acf(VAR,VAR_DEST,LAG_DEST);"},
    {fnPacf, "pacf", 3, "rdd", "pacf(VAR,VAR_DEST,LAG_DEST);"},
    {fnEwma, "ewma", 4, "rvvd", "ewma(VAR,ALPHA,BETA,VAR_DEST);"},
    {fnEwmc0, "ewmc0", 4, "rrvd", "ewmc0(VARX,VARY,LAMBDA,VAR_DEST);"},
    {fnPeriodogram, "periodogram", 3, "rdd", "periodogram(VAR,VAR_DEST,FREQ_DEST);"},
    {fnSmoothHp, "smooth_hp", 3, "rvd", "smooth_hp(VAR,LAMBDA,VAR_DEST);"},
    {fnSmoothNp, "smooth_np", 3, "rvd", "smooth_np(VAR,ALPHA,VAR_DEST);"},
    {fnSmoothSp, "smooth_sp", 3, "rvd", "smooth_sp(VAR,ALPHA,VAR_DEST);"},
    {fnSort, "sort", 1, "r", "sort(VAR);"},
    {fnSortAllBy, "_sortallby", 1, "r", "_sortallby(VAR);"},
    {fnSortBy, "_sortby", 2, "rr", "_sortby(VAR, VAR);"},
};

} // namespace

extern const AlgebraLibrary kAlgebraSampleLibrary = {kRows, sizeof kRows / sizeof kRows[0]};
