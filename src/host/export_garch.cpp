// Exports of the GARCH and EGARCH variance recursions: two mandatory T x 1 results, which the
// recursions write whole (missing or zero values included on their failure paths).
#include "estimators/garch.h"
#include "host/frame.h"
#include "kavrel/kavrel.h"

namespace {

// Both outputs are mandatory T x 1 columns; returns false (nothing touched) when the host cannot
// make them.
template <class Compute> bool runIntoOutputs(LumoValue *args, int nobs, Compute compute) {
    FrameOutputs outputs;
    MATRIX first = outputs.matrix(args, 9, nobs, 1, FrameOutputs::WRITTEN_WHOLE);
    MATRIX second = outputs.matrix(args, 10, nobs, 1, FrameOutputs::WRITTEN_WHOLE);
    if (outputs.failed()) return false;
    compute(first[0], second[0]);
    outputs.publish();
    return true;
}

} // namespace

// 0 e, 1 x, 2 coef, 3 p, 4 q, 5 in-mean kind, 6 delta, 7 kappa, 8 gamma, 9 -> h, 10 -> u.
KAVREL_EXPORT void FnGarchVar(LumoValue *result, LumoValue *args, int) noexcept {
    FrameGuard(
        [&] {
            LumoLibCheckType(LUMO_MATRIX, args, 0, 2);
            LumoLibCheckType(LUMO_INT, args, 3, 5);
            LumoLibCheckType(LUMO_DOUBLE, args, 6, 8);
            LumoLibCheckType(LUMO_REF, args, 9, 10);
            const int nobs = FrameRows(args, 0);
            LumoLibCheckMatrixSize(args, 1, 1, nobs, 1);
            const int p = FrameInt(args, 3), q = FrameInt(args, 4);
            if (nobs < 1 || FrameCols(args, 0) != 1 || p < 0 || q < 0) return;
            const long long maxpq = p > q ? p : q;
            if (FrameElementCount(args, 2) < 1 + maxpq + p) return;
            if (!FrameIsRef(args, 9) || !FrameIsRef(args, 10)) return;

            int status = 0;
            bool made = runIntoOutputs(args, nobs, [&](double *h, double *u) {
                status = GarchVariance(FrameMatrix(args, 0)[0], FrameMatrix(args, 1)[0], nobs, FrameElements(args, 2),
                                       p, q, FrameInt(args, 5), FrameDouble(args, 6), FrameDouble(args, 7),
                                       FrameDouble(args, 8), h, u);
            });
            FrameSetInt(result, made ? status : 0);
        },
        [&] { FrameSetInt(result, 0); });
}

// 0 e, 1 x, 2 theta, 3 phi, 4 nu, 5 a (1 x q), 6 b (1 x p), 7 in-mean kind, 8 delta,
// 9 -> log h, 10 -> u.
KAVREL_EXPORT void FnEgarchVar(LumoValue *result, LumoValue *args, int) noexcept {
    FrameGuard(
        [&] {
            LumoLibCheckType(LUMO_MATRIX, args, 0, 1);
            LumoLibCheckType(LUMO_DOUBLE, args, 2, 4);
            LumoLibCheckType(LUMO_MATRIX, args, 5, 6);
            LumoLibCheckType(LUMO_INT, args, 7, 7);
            LumoLibCheckType(LUMO_DOUBLE, args, 8, 8);
            LumoLibCheckType(LUMO_REF, args, 9, 10);
            const int nobs = FrameRows(args, 0);
            LumoLibCheckMatrixSize(args, 1, 1, nobs, 1);
            if (nobs < 1 || FrameCols(args, 0) != 1) return;
            // The lag orders are the column counts; the coefficients are read from the first row.
            const int q = FrameCols(args, 5), p = FrameCols(args, 6);
            if (q < 0 || p < 0 || (q > 0 && FrameRows(args, 5) < 1) || (p > 0 && FrameRows(args, 6) < 1)) return;
            if (!FrameIsRef(args, 9) || !FrameIsRef(args, 10)) return;

            // A scratch failure inside zeroes both outputs and still counts as a completed call.
            bool made = runIntoOutputs(args, nobs, [&](double *logh, double *u) {
                EgarchVariance(FrameMatrix(args, 0)[0], FrameMatrix(args, 1)[0], nobs, FrameDouble(args, 2),
                               FrameDouble(args, 3), FrameDouble(args, 4), q > 0 ? FrameMatrix(args, 5)[0] : nullptr, q,
                               p > 0 ? FrameMatrix(args, 6)[0] : nullptr, p, FrameInt(args, 7), FrameDouble(args, 8),
                               logh, u);
            });
            FrameSetInt(result, made ? 1 : 0);
        },
        [&] { FrameSetInt(result, 0); });
}
