// Exports of the Markov-switching filter and smoothers. The number of regimes m and of
// observations T come from the shape of the first argument; the host checks the transition
// matrix (m x m) and the initial probabilities (1 x m). When the host cannot make an output the
// export returns without a result and every variable as it was; outputs are pre-filled with
// missing values, so a run skipped for want of scratch (result 0) leaves them missing.
#include "estimators/markov.h"
#include "host/frame.h"
#include "kavrel/kavrel.h"

namespace {

void smoothExport(LumoValue *result, LumoValue *args, int kind) {
    LumoLibCheckType(LUMO_MATRIX, args, 0, 1);
    LumoLibCheckType(LUMO_REF, args, 2, 3);
    const int nobs = FrameRows(args, 0), m = FrameCols(args, 0);
    LumoLibCheckMatrixSize(args, 1, 1, m, m);
    if (nobs < 1 || m < 1 || !FrameIsRef(args, 2) || !FrameIsRef(args, 3)) return;

    FrameOutputs outputs;
    MATRIX smooth = outputs.matrix(args, 2, nobs, m);
    MATRIX trans = outputs.matrix(args, 3, m, m);
    if (outputs.failed()) return;
    const int status = MsSmooth(FrameMatrix(args, 0), nobs, m, FrameMatrix(args, 1), kind, smooth, trans);
    outputs.publish();
    FrameSetInt(result, status);
}

} // namespace

// 0 densities (T x m), 1 P (m x m), 2 initial probabilities (1 x m), 3 -> likelihood
// contributions (T x 1), 4 -> filtered probabilities (T x m, optional).
KAVREL_EXPORT void FnFilterMS(LumoValue *result, LumoValue *args, int) noexcept {
    FrameGuard(
        [&] {
            LumoLibCheckType(LUMO_MATRIX, args, 0, 2);
            LumoLibCheckType(LUMO_REF, args, 3, 3);
            const int nobs = FrameRows(args, 0), m = FrameCols(args, 0);
            LumoLibCheckMatrixSize(args, 1, 1, m, m);
            LumoLibCheckMatrixSize(args, 2, 2, 1, m);
            if (nobs < 1 || m < 1 || !FrameIsRef(args, 3)) return;

            FrameOutputs outputs;
            MATRIX lik = outputs.matrix(args, 3, nobs, 1);
            MATRIX filt = outputs.matrix(args, 4, nobs, m);
            if (outputs.failed()) return;
            const int status =
                MsFilter(FrameMatrix(args, 0), nobs, m, FrameMatrix(args, 1), FrameMatrix(args, 2)[0], lik[0], filt);
            outputs.publish();
            FrameSetInt(result, status);
        },
        [] {});
}

// 0 filtered probabilities (T x m), 1 P (m x m), 2 -> smoothed probabilities (T x m),
// 3 -> accumulated transition terms (m x m).
KAVREL_EXPORT void FnSmoothMS(LumoValue *result, LumoValue *args, int) noexcept {
    FrameGuard([&] { smoothExport(result, args, MS_SMOOTH_JOINT); }, [] {});
}

KAVREL_EXPORT void FnSmoothMS2(LumoValue *result, LumoValue *args, int) noexcept {
    FrameGuard([&] { smoothExport(result, args, MS_SMOOTH_RATIO); }, [] {});
}

KAVREL_EXPORT void FnSmoothMS2sym(LumoValue *result, LumoValue *args, int) noexcept {
    FrameGuard([&] { smoothExport(result, args, MS_SMOOTH_RATIO_SYM); }, [] {});
}
