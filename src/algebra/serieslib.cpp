// Built-ins over a series: functions that read a variable's column (a reference argument arrives
// as its symbol index) around the current observation or from the start of the run. Each gives
// at observation t what the language defines by a sum or scan from t1 (cum, peak, trough, stock,
// stockv) or over t1..t2 (mean, variance); a memo carries the scan from one observation to the
// next while the column has not been written, so a run costs one step per observation, and the
// memo's step is the very step of the scan from the start, so the two give the same bits.
#include <cmath>

#include "algebra/builtins.h"
#include "algebra/compiler.h"
#include "base/sums.h"
#include "base/types.h"

namespace {

int symbolOf(double arg) { return static_cast<int>(arg); }
const double *column(const AlgebraCompiler *c, double symbol) { return c->symbols[static_cast<size_t>(symbol)].data; }
bool missing(double x) { return x != x; }

// A whole-number argument as an observation offset; false when it cannot be one.
bool offset(double x, long long *out) {
    const double w = std::trunc(x);
    if (!(std::fabs(w) < 1e15)) return false;
    *out = static_cast<long long>(w);
    return true;
}

// x at observation t + shift, missing outside 0..nobs-1.
double at(const AlgebraCompiler *c, double symbol, double shift) {
    long long k;
    if (!offset(shift, &k)) return MissingValueOf();
    const long long i = c->t + k;
    return i >= 0 && i < c->nobs ? column(c, symbol)[i] : MissingValueOf();
}

double fnLag(AlgebraCompiler *c, const double *a) { return at(c, a[0], -a[1]); }
double fnLead(AlgebraCompiler *c, const double *a) { return at(c, a[0], a[1]); }
double fnDiff(AlgebraCompiler *c, const double *a) { return at(c, a[0], 0.0) - at(c, a[0], -a[1]); }

// The logarithm's faults for each of the two values; missing when either is missing.
double fnDlog(AlgebraCompiler *c, const double *a) {
    const double x = at(c, a[0], 0.0), y = at(c, a[0], -1.0);
    if (missing(x) || missing(y)) return MissingValueOf();
    if (x < 0.0 || y < 0.0) AlgebraSetError(c, ALGEBRA_LOG_NONPOSITIVE);
    if (x == 0.0 || y == 0.0) AlgebraSetError(c, ALGEBRA_LOG_ZERO);
    if (x < 0.0 || y < 0.0) return MissingValueOf();
    return std::log(x) - std::log(y);
}

// Weights (LAG + 1)^POWER at t down to 1^POWER at t - LAG.
double fnAlmon(AlgebraCompiler *c, const double *a) {
    long long lag;
    if (!offset(a[1], &lag) || lag < 0 || c->t - lag < 0 || c->t > c->t2) return MissingValueOf();
    const double *x = column(c, a[0]);
    KvCompensatedSum num, den;
    for (long long i = c->t, k = lag + 1; i >= c->t - lag; --i, --k) {
        if (missing(x[i])) return MissingValueOf();
        const double w = std::pow(static_cast<double>(k), a[2]);
        num.add(w * x[i]);
        den.add(w);
    }
    return num.value() / den.value();
}

// The values i = t - LAG .. t + LEAD inside 0..t2 and present; false otherwise. An empty span
// (t - LAG > t + LEAD) is present and has no values.
bool span(const AlgebraCompiler *c, const double *a, long long *from, long long *to) {
    long long lag, lead;
    if (!offset(a[1], &lag) || !offset(a[2], &lead)) return false;
    *from = c->t - lag, *to = c->t + lead;
    if (*from > *to) return true;
    if (*from < 0 || *to > c->t2 || *to >= c->nobs) return false;
    const double *x = column(c, a[0]);
    for (long long i = *from; i <= *to; ++i)
        if (missing(x[i])) return false;
    return true;
}

double fnMovingAvg(AlgebraCompiler *c, const double *a) {
    long long from, to;
    if (!span(c, a, &from, &to)) return MissingValueOf();
    if (from > to) return 0.0;
    const double *x = column(c, a[0]);
    KvCompensatedSum sum;
    for (long long i = from; i <= to; ++i) sum.add(x[i]);
    return sum.value() / static_cast<double>(to - from + 1);
}

double fnMovingSD(AlgebraCompiler *c, const double *a) {
    long long from, to;
    if (!span(c, a, &from, &to)) return MissingValueOf();
    if (from > to) return 0.0;
    const double *x = column(c, a[0]);
    KvCompensatedSum sum;
    for (long long i = from; i <= to; ++i) sum.add((x[i] - a[3]) * (x[i] - a[3]));
    return std::sqrt(sum.value() / static_cast<double>(to - from + 1));
}

// ---- Scans from t1 ----

// A scan from t1 to t, as the language defines cum, peak, trough, stock and stockv: it starts at
// the first observation i0 >= t1 where present(i) holds (before that the value is missing), and
// step(state, i, first) takes observation i into the state, returning false when the value has
// become missing for good. The memo carries the state from an earlier observation to t while the
// columns read are unwritten; otherwise the scan runs afresh from t1. state[3] is 1 while the scan runs, 0 once it
// is dead, -1 while it has not started.
template <class Present, class Step> const AlgebraMemo *scan(AlgebraCompiler *c, AlgebraBuiltinFn fn, int sym,
                                                             const double *key, int nkey, Present present, Step step) {
    AlgebraMemo *m = AlgebraMemoFind(c, fn, sym, key, nkey);
    if (m && m->t == c->t) return m; // a second call at the same observation
    int from = c->t1;                // the first observation not yet looked at
    if (m && m->t >= c->t1 && m->t < c->t) {
        from = m->t + 1;
    } else {
        m = AlgebraMemoTake(c, fn, sym, key, nkey);
        m->state[3] = -1.0;
    }
    for (int i = from; i <= c->t && m->state[3] != 0.0; ++i) {
        const bool first = m->state[3] < 0.0;
        if (first && !present(i)) continue;
        m->state[3] = step(m, i, first) ? 1.0 : 0.0;
    }
    m->t = c->t;
    return m;
}

double fnCum(AlgebraCompiler *c, const double *a) {
    const double *x = column(c, a[0]);
    const AlgebraMemo *m = scan(
        c, fnCum, symbolOf(a[0]), nullptr, 0, [&](int i) { return !missing(x[i]); },
        [&](AlgebraMemo *s, int i, bool first) {
            if (missing(x[i])) return false;
            KvCompensatedSum sum;
            if (!first) sum.sum = s->state[0], sum.carry = s->state[1];
            sum.add(x[i]);
            s->state[0] = sum.sum, s->state[1] = sum.carry;
            return true;
        });
    return m->state[3] > 0.0 ? KvCompensatedSum{m->state[0], m->state[1]}.value() : MissingValueOf();
}

// The running maximum (sign 1) or minimum (sign -1) of the values present from t1 to t; missing
// where x[t] itself is.
double extreme(AlgebraCompiler *c, AlgebraBuiltinFn fn, const double *a, double sign) {
    const double *x = column(c, a[0]);
    const AlgebraMemo *m = scan(
        c, fn, symbolOf(a[0]), nullptr, 0, [&](int i) { return !missing(x[i]); },
        [&](AlgebraMemo *s, int i, bool first) {
            if (first || (!missing(x[i]) && sign * x[i] > sign * s->state[0])) s->state[0] = x[i];
            return true;
        });
    if (missing(x[c->t]) || m->state[3] <= 0.0) return MissingValueOf();
    return m->state[0];
}
double fnPeak(AlgebraCompiler *c, const double *a) { return extreme(c, fnPeak, a, 1.0); }
double fnTrough(AlgebraCompiler *c, const double *a) { return extreme(c, fnTrough, a, -1.0); }

// s = (1 - ARVAL) INIT + x[i0], then s = (1 - ARVAL) s + x[i]. The rate and start of the current
// observation apply to the whole scan, so they key the memo.
double fnStock(AlgebraCompiler *c, const double *a) {
    const double *x = column(c, a[0]);
    const double keep = 1.0 - a[1], init = a[2];
    const AlgebraMemo *m = scan(
        c, fnStock, symbolOf(a[0]), a + 1, 2, [&](int i) { return !missing(x[i]); },
        [&](AlgebraMemo *s, int i, bool first) {
            if (missing(x[i])) return false;
            s->state[0] = keep * (first ? init : s->state[0]) + x[i];
            return true;
        });
    return m->state[3] > 0.0 ? m->state[0] : MissingValueOf();
}

// As stock with the rate of each observation from ARVAR; both must be present from the start
// on. The memo follows VAR's writes; ARVAR's symbol and write count are part of its key.
double fnStockV(AlgebraCompiler *c, const double *a) {
    const double *x = column(c, a[0]), *r = column(c, a[1]);
    const double init = a[2];
    const double key[3] = {a[1], static_cast<double>(c->symbols[static_cast<size_t>(a[1])].writes), init};
    const AlgebraMemo *m = scan(
        c, fnStockV, symbolOf(a[0]), key, 3, [&](int i) { return !missing(x[i]) && !missing(r[i]); },
        [&](AlgebraMemo *s, int i, bool first) {
            if (missing(x[i]) || missing(r[i])) return false;
            s->state[0] = (1.0 - r[i]) * (first ? init : s->state[0]) + x[i];
            return true;
        });
    return m->state[3] > 0.0 ? m->state[0] : MissingValueOf();
}

// ---- Whole-sample moments of the values present over t1..t2 ----

// Count, mean and the sum of squared deviations, by Welford's updates (no cancellation of
// large squares), kept in the memo until the column is written.
const AlgebraMemo *moments(AlgebraCompiler *c, AlgebraBuiltinFn fn, const double *a) {
    const int sym = symbolOf(a[0]);
    if (AlgebraMemo *m = AlgebraMemoFind(c, fn, sym, nullptr, 0)) return m;
    AlgebraMemo *m = AlgebraMemoTake(c, fn, sym, nullptr, 0);
    const double *x = column(c, a[0]);
    double n = 0.0, mean = 0.0, ss = 0.0;
    for (int i = c->t1; i <= c->t2; ++i) {
        if (missing(x[i])) continue;
        n += 1.0;
        const double d = x[i] - mean;
        mean += d / n;
        ss += d * (x[i] - mean);
    }
    m->state[0] = n, m->state[1] = mean, m->state[2] = ss;
    return m;
}

double fnMean(AlgebraCompiler *c, const double *a) {
    const AlgebraMemo *m = moments(c, fnMean, a);
    return m->state[0] > 0.0 ? m->state[1] : MissingValueOf();
}

// The sample variance, divided by n - 1; missing with fewer than two values.
double fnVariance(AlgebraCompiler *c, const double *a) {
    const AlgebraMemo *m = moments(c, fnVariance, a);
    return m->state[0] > 1.0 ? m->state[2] / (m->state[0] - 1.0) : MissingValueOf();
}

const AlgebraFunction kRows[] = {
    {fnAlmon, "almon", 3, "rvv", "almon(VAR, LAG, POWER);"},
    {fnCum, "cum", 1, "r", "cum(VAR);"},
    {fnDiff, "diff", 2, "rv", "diff(VAR, LAG);"},
    {fnDlog, "dlog", 1, "r", "dlog(VAR);"},
    {fnLag, "lag", 2, "rv", "lag(VAR,LAG);"},
    {fnLead, "lead", 2, "rv", "lead(VAR,LAG);"},
    {fnMean, "mean", 1, "r", "mean(VAR);"},
    {fnMovingAvg, "movingavg", 3, "rvv", "movingavg(VAR, LAG, LEAD);"},
    {fnMovingSD, "movingSD", 4, "rvvv", "movingSD(VAR, LAG, LEAD, MEAN);"},
    {fnPeak, "peak", 1, "r", "peak(VAR);"},
    {fnStock, "stock", 3, "rvv", "stock(VAR, ARVAL, INIT);"},
    {fnStockV, "stockv", 3, "rrv", "stockv(VAR, ARVAR, INIT);"},
    {fnTrough, "trough", 1, "r", "trough(VAR);"},
    {fnVariance, "variance", 1, "r", "variance(VAR);"},
};

} // namespace

extern const AlgebraLibrary kAlgebraSeriesLibrary = {kRows, sizeof kRows / sizeof kRows[0]};
