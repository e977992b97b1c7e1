// Exports of the seasonal statistics: seasonal mean removal (a matrix result, an adjusted copy of
// the input) and the seasonal R^2 (a double result, with the seasonal mean differences returned
// through a reference).
#include "estimators/seasonal.h"
#include "host/frame.h"
#include "kavrel/kavrel.h"

// 0 X (T x n), 1 s. Result: X with each column's seasonal means removed.
KAVREL_EXPORT void FnDeSeasonalize(LumoValue *result, LumoValue *args, int) noexcept {
    FrameGuard(
        [&] {
            LumoLibCheckType(LUMO_MATRIX, args, 0, 0);
            LumoLibCheckType(LUMO_INT, args, 1, 1);
            const int nobs = FrameRows(args, 0), ncols = FrameCols(args, 0), s = FrameInt(args, 1);
            if (nobs < 1 || ncols < 1 || s < 2) return;
            // A failed copy leaves the result empty: the host has already released it.
            if (!LumoLibValMatDup(result, &args[0])) return;
            SeasonalDemean(static_cast<MATRIX>(result->data), nobs, ncols, s);
        },
        [] {});
}

// 0 y (T x 1), 1 s, 2 RSS, 3 -> seasonal mean differences (1 x s). Result: 1 - RSS / D, -1.0
// when T <= 2s, the missing value when the host cannot make the output.
KAVREL_EXPORT void FnSeasonalRsq(LumoValue *result, LumoValue *args, int) noexcept {
    FrameGuard(
        [&] {
            LumoLibCheckType(LUMO_MATRIX, args, 0, 0);
            LumoLibCheckType(LUMO_INT, args, 1, 1);
            LumoLibCheckType(LUMO_DOUBLE, args, 2, 2);
            LumoLibCheckType(LUMO_REF, args, 3, 3);
            const int nobs = FrameRows(args, 0), s = FrameInt(args, 1);
            if (nobs < 1 || FrameCols(args, 0) != 1 || s < 2 || !FrameIsRef(args, 3)) return;

            FrameOutputs outputs;
            MATRIX means = outputs.matrix(args, 3, 1, s);
            if (outputs.failed()) {
                FrameSetDouble(result, MissingValueOf());
                return;
            }
            const double rsq = SeasonalRsq(FrameMatrix(args, 0)[0], nobs, s, FrameDouble(args, 2), means[0]);
            outputs.publish();
            FrameSetDouble(result, rsq);
        },
        [] {});
}
