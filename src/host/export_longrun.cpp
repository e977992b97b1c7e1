// Exports around sandwich covariances: the long-run score covariance (the middle factor) and the
// selection of elements of a Kronecker product. Both return a matrix made in the return record.
#include <climits>

#include "estimators/kronecker.h"
#include "estimators/longrun.h"
#include "host/frame.h"
#include "kavrel/kavrel.h"

namespace {

long long product(int a, int b) { return a > 0 && b > 0 ? static_cast<long long>(a) * b : 0; }

} // namespace

// 0 X (T x k), 1 U (>= T rows, m columns), 2 non-zero for autocorrelation terms.
// Result: V, (k m) x (k m).
KAVREL_EXPORT void FnGLScovariance(LumoValue *result, LumoValue *args, int) noexcept {
    FrameGuard(
        [&] {
            LumoLibCheckType(LUMO_MATRIX, args, 0, 1);
            LumoLibCheckType(LUMO_INT, args, 2, 2);
            const int nobs = FrameRows(args, 0), k = FrameCols(args, 0), m = FrameCols(args, 1);
            if (nobs < 0 || k < 0 || m < 0 || FrameRows(args, 1) < nobs) return;
            const long long km = static_cast<long long>(k) * m;
            if (km > INT_MAX) return;
            if (!LumoLibValMatMalloc(result, static_cast<int>(km), static_cast<int>(km))) return;
            const int lag = FrameInt(args, 2) != 0 ? LongRunLag(nobs) : 0;
            LongRunScoreCovariance(FrameMatrix(args, 0), nobs, k, FrameMatrix(args, 1), m, lag,
                                   static_cast<MATRIX>(result->data));
        },
        [] {});
}

// 0 A, 1 B, 2 R (row indices), 3 C (column indices). Result: (A (x) B)[R_i][C_j]; all rows of the
// product when R is empty; a (cA cB) x 0 matrix when C is empty.
KAVREL_EXPORT void FnKroneckerSel(LumoValue *result, LumoValue *args, int) noexcept {
    FrameGuard(
        [&] {
            LumoLibCheckType(LUMO_MATRIX, args, 0, 3);
            const int rA = FrameRows(args, 0), cA = FrameCols(args, 0);
            const int rB = FrameRows(args, 1), cB = FrameCols(args, 1);
            const long long nR = FrameElementCount(args, 2), nC = FrameElementCount(args, 3);
            if (nC == 0) {
                // Empty C: no columns, one row per column of the product, whatever R holds.
                const long long rows = product(cA, cB);
                if (rows <= INT_MAX) LumoLibValMatMalloc(result, static_cast<int>(rows), 0);
                return;
            }
            const long long nrow = nR > 0 ? nR : product(rA, rB);
            if (nrow > INT_MAX || nC > INT_MAX) return;
            if (!LumoLibValMatMalloc(result, static_cast<int>(nrow), static_cast<int>(nC))) return;
            if (nrow == 0) return;
            KroneckerSelect(FrameMatrix(args, 0), rA, cA, FrameMatrix(args, 1), rB, cB,
                            nR > 0 ? FrameMatrix(args, 2)[0] : nullptr, static_cast<int>(nrow), FrameMatrix(args, 3)[0],
                            static_cast<int>(nC), static_cast<MATRIX>(result->data));
        },
        [] {});
}
