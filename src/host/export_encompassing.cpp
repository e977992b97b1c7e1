// The encompassing export: FnEncompassing, the Cox, Ericsson IV, Sargan and joint F tests of two
// linear models against each other.
#include "estimators/encompassing.h"
#include "host/frame.h"
#include "kavrel/kavrel.h"

// 0 data (y, then model 1's regressors), 1 k1, 2 regressors of model 1 shared by model 2 (its
// first ones), 3 k2, 4 model 2's own regressors (k2 columns used), 5 first row, 6 last row,
// 7 options (1: leave out rows with a missing value); 8 ref -> 2 x 4 statistics, 9 ref -> 2 x 4
// p-values, 10 ref -> 2 x 2 degrees of freedom. Result: int code.
KAVREL_EXPORT void FnEncompassing(LumoValue *result, LumoValue *args, int) noexcept {
    FrameGuard(
        [&] {
            LumoLibCheckType(LUMO_MATRIX, args, 0, 0);
            LumoLibCheckType(LUMO_INT, args, 1, 3);
            LumoLibCheckType(LUMO_MATRIX, args, 4, 4);
            LumoLibCheckType(LUMO_INT, args, 5, 7);
            LumoLibCheckType(LUMO_REF, args, 8, 10);
            EncompassingProblem pb;
            pb.k1 = FrameInt(args, 1);
            pb.shared = FrameInt(args, 2);
            pb.k2 = FrameInt(args, 3);
            pb.first = FrameInt(args, 5);
            pb.last = FrameInt(args, 6);
            const int options = FrameInt(args, 7);
            if (pb.k1 < 1 || static_cast<long long>(pb.k1) + 1 > FrameCols(args, 0) || pb.shared < 0 ||
                pb.shared > pb.k1 || pb.k2 < 0 || pb.k2 > FrameCols(args, 4) || pb.shared + pb.k2 < 1 ||
                static_cast<long long>(pb.k1) + pb.k2 > 0x3FFFFFFF)
                return;
            if (pb.first < 0 || pb.last < pb.first || FrameRows(args, 0) <= pb.last ||
                (pb.k2 > 0 && FrameRows(args, 4) <= pb.last) || options < 0 || options > 1)
                return;
            if (!FrameIsRef(args, 8) || !FrameIsRef(args, 9) || !FrameIsRef(args, 10)) return;
            pb.data = FrameMatrix(args, 0);
            pb.z = pb.k2 > 0 ? FrameMatrix(args, 4) : nullptr;
            pb.skipMissing = options == 1;

            FrameOutputs outputs;
            MATRIX stat = outputs.matrix(args, 8, 2, ENC_TESTS, FrameOutputs::WRITTEN_WHOLE);
            MATRIX pval = outputs.matrix(args, 9, 2, ENC_TESTS, FrameOutputs::WRITTEN_WHOLE);
            MATRIX df = outputs.matrix(args, 10, 2, 2, FrameOutputs::WRITTEN_WHOLE);
            if (outputs.failed()) {
                FrameSetInt(result, 0);
                return;
            }
            const int code = EncompassingTests(pb, stat, pval, df);
            outputs.publish();
            FrameSetInt(result, code);
        },
        [&] { FrameSetInt(result, 0); });
}
