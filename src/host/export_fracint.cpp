// The fractional-integration export: FnFracSigma, the autocovariances of an ARFIMA(p, d, q)
// process. The hypergeometric series behind it report non-convergence through the library's text
// output, which the estimator reaches only through the print function handed in here.
#include "database/output.h"
#include "estimators/fracint.h"
#include "host/frame.h"
#include "kavrel/kavrel.h"

// 0 coefficients (p AR then q MA, any shape), 1 p, 2 q, 3 d, 4 n lags; 5 ref -> 1 x n
// autocovariances at lags 0..n-1 for unit innovation variance.
KAVREL_EXPORT void FnFracSigma(LumoValue *result, LumoValue *args, int) noexcept {
    FrameGuard(
        [&] {
            LumoLibCheckType(LUMO_MATRIX, args, 0, 0);
            LumoLibCheckType(LUMO_INT, args, 1, 2);
            LumoLibCheckType(LUMO_DOUBLE, args, 3, 3);
            LumoLibCheckType(LUMO_INT, args, 4, 4);
            LumoLibCheckType(LUMO_REF, args, 5, 5);
            const long long count = FrameElementCount(args, 0);
            const int p = FrameInt(args, 1);
            if (p < 0 || p > count) {
                LumoLibArgError(1);
                return;
            }
            const int q = FrameInt(args, 2), n = FrameInt(args, 4);
            if (q < 0 || p + static_cast<long long>(q) != count || n < 1 || !FrameIsRef(args, 5)) return;

            FrameOutputs outputs;
            MATRIX out = outputs.matrix(args, 5, 1, n, FrameOutputs::WRITTEN_WHOLE);
            if (outputs.failed()) {
                FrameSetInt(result, 0);
                return;
            }
            const double *coef = FrameElements(args, 0);
            const int status =
                FracAutocovariances(coef, p, coef ? coef + p : nullptr, q, FrameDouble(args, 3), n, out[0], PrintText);
            outputs.publish();
            FrameSetInt(result, status);
        },
        [&] { FrameSetInt(result, 0); });
}
