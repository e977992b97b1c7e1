// The recursive instrumental-variables export.
#include "estimators/riv.h"
#include "host/frame.h"
#include "kavrel/kavrel.h"

namespace {

constexpr int kOutputs = 6;
constexpr int kFirstOutput = 7;

} // namespace

// 0 data (variables in rows: y, the regressors with the endogenous ones first, the additional
// instruments; observations in columns), 1 endogenous regressors, 2 regressors, 3 additional
// instruments, 4 first, 5 last, 6 forced full inversion; outputs 7 coefficients, 8 standard
// errors (regressors rows each), 9 standardised innovations, 10 innovations, 11 residual sums of
// squares, 12 Sargan's statistic (one row each); every output has last+1 columns.
KAVREL_EXPORT void FnRivEst(LumoValue *result, LumoValue *args, int) noexcept {
    FrameGuard(
        [&] {
            LumoLibCheckType(LUMO_MATRIX, args, 0, 0);
            LumoLibCheckType(LUMO_INT, args, 1, 6);
            const RivModel model{FrameMatrix(args, 0), FrameInt(args, 1), FrameInt(args, 2), FrameInt(args, 3)};
            const int first = FrameInt(args, 4), last = FrameInt(args, 5), force = FrameInt(args, 6);
            // A negative first observation would read before the data: refused like the others.
            if (last < first || model.endo < 1 || model.regs < 1 || model.extra < 1 || last >= FrameCols(args, 0) ||
                static_cast<long long>(model.regs) + model.extra >= FrameRows(args, 0) || first < 0)
                return;

            // The recursion fills what it does not compute with the missing value itself.
            const long long rows[kOutputs] = {model.regs, model.regs, 1, 1, 1, 1};
            FrameOutputs outputs;
            MATRIX out[kOutputs];
            if (!outputs.matrices(args, kFirstOutput, kOutputs, rows, last + 1, out, FrameOutputs::WRITTEN_WHOLE)) {
                FrameSetInt(result, 0);
                return;
            }
            const int status = RivRecursion(model, first, last, force, out[0], out[1], out[2], out[3], out[4], out[5]);
            outputs.publish();
            FrameSetInt(result, status);
        },
        [&] { FrameSetInt(result, 0); });
}
