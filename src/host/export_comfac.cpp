// The common-factor export: FnComfac, Wald tests that the lag polynomials of an autoregressive
// distributed-lag model share a factor of the autoregressive one. Its result is -1 from the start,
// so that a call refused by a check still says that nothing was computed.
#include <cmath>

#include "estimators/comfac.h"
#include "host/frame.h"
#include "kavrel/kavrel.h"

namespace {

// Whole numbers lo..hi (after truncation toward zero) in every element.
bool allWithin(const double *v, long long n, double lo, double hi) {
    for (long long i = 0; i < n; ++i)
        if (!(std::isfinite(v[i]) && std::trunc(v[i]) >= lo && std::trunc(v[i]) <= hi)) return false;
    return true;
}

} // namespace

// 0 coefficients (k, any shape), 1 their k x k covariance, 2 lag orders (m, then m_j of each
// regressor), 3 positions of a_1..a_m, 4 positions of b_10..b_1m_1, b_20, ..., 5 tolerance,
// 6 highest order R; 7 ref -> 1 x R Wald statistics, 8 ref -> 1 x 2R degrees of freedom then
// p-values. Result: int code.
KAVREL_EXPORT void FnComfac(LumoValue *result, LumoValue *args, int) noexcept {
    FrameGuard(
        [&] {
            FrameSetInt(result, -1);
            LumoLibCheckType(LUMO_MATRIX, args, 0, 4);
            LumoLibCheckType(LUMO_DOUBLE, args, 5, 5);
            LumoLibCheckType(LUMO_INT, args, 6, 6);
            LumoLibCheckType(LUMO_REF, args, 7, 8);
            ComfacModel m;
            const long long k = FrameElementCount(args, 0), lags = FrameElementCount(args, 2);
            if (k < 1 || k > 0x3FFFFFFF || FrameRows(args, 1) != k || FrameCols(args, 1) != k || lags < 1) return;
            const double *orders = FrameElements(args, 2);
            if (!allWithin(orders, 1, 0, ComfacMaxLag) || !allWithin(orders + 1, lags - 1, 0, 0x3FFFFF)) return;
            long long xcount = 0;
            for (long long j = 1; j < lags; ++j) xcount += static_cast<long long>(std::trunc(orders[j])) + 1;
            m.ar = static_cast<int>(std::trunc(orders[0]));
            if (FrameElementCount(args, 3) != m.ar || FrameElementCount(args, 4) != xcount) return;
            if (!allWithin(FrameElements(args, 3), m.ar, 0, k - 1) ||
                !allWithin(FrameElements(args, 4), xcount, 0, k - 1))
                return;
            m.maxOrder = FrameInt(args, 6);
            if (m.maxOrder < 1 || m.maxOrder > 0x3FFFFFFF || !FrameIsRef(args, 7) || !FrameIsRef(args, 8)) return;
            m.coef = FrameElements(args, 0);
            m.k = static_cast<int>(k);
            m.cov = FrameMatrix(args, 1);
            m.xLags = orders + 1;
            m.nx = static_cast<int>(lags - 1);
            m.arIndex = FrameElements(args, 3);
            m.xIndex = FrameElements(args, 4);
            const double tol = FrameDouble(args, 5);
            m.tol = tol > 0.0 && std::isfinite(tol) ? tol : ComfacDefaultTolerance;

            FrameOutputs outputs;
            MATRIX stat = outputs.matrix(args, 7, 1, m.maxOrder, FrameOutputs::WRITTEN_WHOLE);
            MATRIX dfp = outputs.matrix(args, 8, 1, 2LL * m.maxOrder, FrameOutputs::WRITTEN_WHOLE);
            if (outputs.failed()) return;
            const int code = ComfacWald(m, stat[0], dfp[0]);
            outputs.publish();
            FrameSetInt(result, code);
        },
        [&] { FrameSetInt(result, -1); });
}
