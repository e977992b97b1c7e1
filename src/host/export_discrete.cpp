// Exports of the discrete-choice family: FnBinProbitRz, FnLogitRz (log-likelihood with optional
// derivatives), FnLogitProbDeriv (derivatives of the logit probabilities) and FnActFitTable. The
// two likelihoods set their result to the missing value before any check, so that every early
// return leaves a defined result.
#include "host/frame.h"

#include "estimators/discrete.h"
#include "kavrel/kavrel.h"
#include "matrix/matrix.h"

namespace {

// The five optional outputs (score, information, probabilities, per-observation log-likelihood,
// outer product) at argument positions first..first+4; false when the host cannot make one.
// The likelihoods write every element of each output they are given.
bool makeOutputs(const LumoValue *args, int first, int k, int n, int probCols, FrameOutputs &outputs,
                 DiscreteOutputs *out, MATRIX held[5]) {
    const int rows[5] = {k, k, n, n, k};
    const int cols[5] = {1, k, probCols, 1, k};
    for (int o = 0; o < 5; ++o)
        held[o] = outputs.matrix(args, first + o, rows[o], cols[o], FrameOutputs::WRITTEN_WHOLE);
    if (outputs.failed()) return false;
    // A 0-row output is an empty host matrix: nothing to write.
    out->score = held[0] && k > 0 ? held[0][0] : nullptr;
    out->info = k > 0 ? held[1] : nullptr;
    out->prob = n > 0 ? held[2] : nullptr;
    out->llfObs = held[3] && n > 0 ? held[3][0] : nullptr;
    out->outer = k > 0 ? held[4] : nullptr;
    return true;
}

} // namespace

KAVREL_EXPORT void FnBinProbitRz(LumoValue *result, LumoValue *args, int) noexcept {
    FrameGuard(
        [&] {
            FrameSetDouble(result, MissingValueOf());
            LumoLibCheckType(LUMO_MATRIX, args, 0, 3);
            const int n = FrameRows(args, 1);
            if (FrameCols(args, 1) != 1 || n < 0) return;
            const int k = FrameCols(args, 2);
            if (FrameRows(args, 2) != n || k < 1 || FrameElementCount(args, 0) != k) return;
            const double *w = FrameElementCount(args, 3) == n ? FrameElements(args, 3) : nullptr;

            FrameOutputs outputs;
            DiscreteOutputs out;
            MATRIX held[5];
            if (!makeOutputs(args, 4, k, n, 2, outputs, &out, held)) return;
            const double *y = n > 0 ? FrameMatrix(args, 1)[0] : nullptr;
            const double llf = ProbitEval(FrameElements(args, 0), k, y, FrameMatrix(args, 2), n, w, out);
            outputs.publish();
            FrameSetDouble(result, llf);
        },
        [&] { FrameSetDouble(result, MissingValueOf()); });
}

KAVREL_EXPORT void FnLogitRz(LumoValue *result, LumoValue *args, int) noexcept {
    FrameGuard(
        [&] {
            FrameSetDouble(result, MissingValueOf());
            LumoLibCheckType(LUMO_MATRIX, args, 0, 1);
            LumoLibCheckType(LUMO_INT, args, 2, 2);
            LumoLibCheckType(LUMO_MATRIX, args, 3, 6);
            LogitProblem pb;
            pb.n = FrameRows(args, 1);
            pb.ycols = FrameCols(args, 1);
            pb.m = FrameInt(args, 2);
            if (pb.n < 0 || pb.ycols < 1) return;
            if (pb.ycols > 1 && pb.ycols < pb.m) pb.m = pb.ycols;
            if (pb.m < 1) return;
            const bool useX = FrameRows(args, 3) == pb.n && FrameCols(args, 3) > 0;
            const bool useZ = FrameRows(args, 4) == pb.n && FrameCols(args, 4) > 0;
            pb.kx = useX ? FrameCols(args, 3) : 0;
            pb.kz = useZ ? FrameCols(args, 4) : 0;
            pb.X = useX ? FrameMatrix(args, 3) : nullptr;
            pb.Z = useZ ? FrameMatrix(args, 4) : nullptr;
            const long k = LogitParamCount(pb.m, pb.kx, pb.kz);
            if (k < 0 || FrameElementCount(args, 0) != k) return;
            pb.beta = FrameElements(args, 0);
            pb.y = FrameMatrix(args, 1);
            pb.w = FrameElementCount(args, 5) == pb.n ? FrameElements(args, 5) : nullptr;
            const bool useOffset = FrameRows(args, 6) == pb.n && FrameCols(args, 6) > 0;
            pb.offset = useOffset ? FrameMatrix(args, 6) : nullptr;
            pb.ocols = useOffset ? (FrameCols(args, 6) < pb.m ? FrameCols(args, 6) : pb.m) : 0;
            if (static_cast<long long>(pb.n) * pb.m > 0x3FFFFFFF) return;

            FrameOutputs outputs;
            DiscreteOutputs out;
            const int kk = static_cast<int>(k);
            MATRIX held[5];
            if (!makeOutputs(args, 7, kk, pb.n, pb.m, outputs, &out, held)) return;
            double llf = 0.0;
            const bool ok = LogitEval(pb, out, &llf) != 0;
            if (!ok) {
                // Without its scratch the logit computes nothing: what was asked for is missing.
                const int rows[5] = {kk, kk, pb.n, pb.n, kk};
                const int cols[5] = {1, kk, pb.m, 1, kk};
                for (int o = 0; o < 5; ++o) MatSetMissing(held[o], rows[o], cols[o]);
            }
            outputs.publish();
            if (!ok) return;
            FrameSetDouble(result, llf);
        },
        [&] { FrameSetDouble(result, MissingValueOf()); });
}

// 0 beta ((m-1) kx elements, any shape), 1 X (n x kx), 2 m categories, 3 first, 4 last
// observation (rows of X, inclusive). Result: m x kx, the derivatives dp_j/dx_l averaged over the
// observations first..last (first = last, or a one-row X, gives them at one point); missing
// when the scratch cannot be allocated.
KAVREL_EXPORT void FnLogitProbDeriv(LumoValue *result, LumoValue *args, int) noexcept {
    FrameGuard(
        [&] {
            LumoLibCheckType(LUMO_MATRIX, args, 0, 1);
            LumoLibCheckType(LUMO_INT, args, 2, 4);
            const int n = FrameRows(args, 1), kx = FrameCols(args, 1), m = FrameInt(args, 2);
            const int first = FrameInt(args, 3), last = FrameInt(args, 4);
            if (m < 1 || kx < 1 || first < 0 || last < first || last >= n) return;
            const long k = LogitParamCount(m, kx, 0);
            if (k < 0 || FrameElementCount(args, 0) != k) return;
            if (!LumoLibValMatMalloc(result, m, kx)) return;
            MATRIX D = static_cast<MATRIX>(result->data);
            if (!LogitProbDerivEval(FrameElements(args, 0), FrameMatrix(args, 1), kx, m, first, last, D))
                MatSetMissing(D, m, kx);
        },
        [&] { LumoLibValMatMalloc(result, 0, 0); });
}

KAVREL_EXPORT void FnActFitTable(LumoValue *result, LumoValue *args, int) noexcept {
    FrameGuard(
        [&] {
            LumoLibCheckType(LUMO_MATRIX, args, 0, 1);
            const int n = FrameRows(args, 1), m = FrameCols(args, 1);
            const int acols = FrameCols(args, 0);
            if (m < 1 || n < 0 || m >= 46340 || FrameRows(args, 0) != n) return;
            if (!(acols == 1 || acols >= m)) return;
            if (!LumoLibValMatMalloc(result, m + 1, m + 1)) return;
            ActFitTableEval(FrameMatrix(args, 0), acols, FrameMatrix(args, 1), n, m, static_cast<MATRIX>(result->data));
        },
        [&] { LumoLibValMatMalloc(result, 0, 0); });
}
