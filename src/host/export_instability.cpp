// The parameter-constancy export.
#include "estimators/instability.h"
#include "host/frame.h"
#include "kavrel/kavrel.h"

// 0 X (T x k), 1 residuals (T elements, any shape), 2 sigma^2 (e'e/T when not finite and
// positive), 3 reference (mandatory) to the 1 x (k+1) individual statistics, the coefficients'
// then the variance's. Result: the joint statistic; -1.0 when the scratch or the output cannot
// be made. Nothing is set when X has no rows or columns or the residuals are not T.
KAVREL_EXPORT void FnInstabilityTest(LumoValue *result, LumoValue *args, int) noexcept {
    FrameGuard(
        [&] {
            LumoLibCheckType(LUMO_MATRIX, args, 0, 1);
            LumoLibCheckType(LUMO_DOUBLE, args, 2, 2);
            LumoLibCheckType(LUMO_REF, args, 3, 3);
            const int T = FrameRows(args, 0), k = FrameCols(args, 0);
            if (T < 1 || k < 1 || FrameElementCount(args, 1) != T) return;

            FrameOutputs outputs;
            MATRIX indiv = outputs.matrix(args, 3, 1, static_cast<long long>(k) + 1);
            if (outputs.failed()) {
                FrameSetDouble(result, -1.0);
                return;
            }
            const double stat = InstabilityEval(FrameMatrix(args, 0), FrameElements(args, 1), T, k,
                                                FrameDouble(args, 2), indiv ? indiv[0] : nullptr);
            outputs.publish();
            FrameSetDouble(result, stat);
        },
        [&] { FrameSetDouble(result, -1.0); });
}
