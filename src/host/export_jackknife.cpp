// The jackknife covariance export; its result is a matrix made in the return record.
#include "estimators/jackknife.h"
#include "host/frame.h"
#include "kavrel/kavrel.h"

// 0 X (T x k), 1 least-squares residuals (T elements, any shape), 2 (X'X)^-1 (k x k). Result: the
// k x k jackknife covariance; 0 x 0 when the computation fails (leverage of 1, scratch);
// untouched when the sizes do not fit together.
KAVREL_EXPORT void FnJackknifeHCSE(LumoValue *result, LumoValue *args, int) noexcept {
    FrameGuard(
        [&] {
            LumoLibCheckType(LUMO_MATRIX, args, 0, 2);
            const int T = FrameRows(args, 0), k = FrameCols(args, 0);
            if (T < 1 || k < 1 || FrameElementCount(args, 1) != T) return;
            if (FrameRows(args, 2) != k || FrameCols(args, 2) != k) return;
            if (!LumoLibValMatMalloc(result, k, k)) return;
            if (!JackknifeCovariance(FrameMatrix(args, 0), FrameElements(args, 1), FrameMatrix(args, 2), T, k,
                                     static_cast<MATRIX>(result->data)))
                LumoLibValMatMalloc(result, 0, 0);
        },
        [&] { LumoLibValMatMalloc(result, 0, 0); });
}
