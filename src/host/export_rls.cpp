// The recursive least-squares export.
#include "estimators/rls.h"
#include "host/frame.h"
#include "kavrel/kavrel.h"

namespace {

constexpr int kOutputs = 7;
constexpr int kFirstOutput = 5;

} // namespace

// 0 Y, 1 X, 2 first, 3 last, 4 forced refit row; outputs 5 coefficients (n*k), 6 diagonal of the
// inverse moment matrix (k), 7 standardised innovations, 8 innovations, 9 residual sums of
// squares, 10 residuals (n each), 11 system statistic (1); every output has last+1 columns.
KAVREL_EXPORT void FnRlsEst(LumoValue *result, LumoValue *args, int) noexcept {
    FrameGuard(
        [&] {
            LumoLibCheckType(LUMO_MATRIX, args, 0, 1);
            LumoLibCheckType(LUMO_INT, args, 2, 4);
            const int n = FrameCols(args, 0), k = FrameCols(args, 1);
            const int first = FrameInt(args, 2), last = FrameInt(args, 3), force = FrameInt(args, 4);
            const long long needRows = static_cast<long long>(last) + 1;
            // A negative first row would read before the data: refused like the other bad ranges.
            if (last < first || first < 0 || n < 0 || k < 0 || FrameRows(args, 0) < needRows ||
                FrameRows(args, 1) < needRows)
                return;

            // The recursion fills what it does not compute with the missing value itself.
            const long long rows[kOutputs] = {static_cast<long long>(n) * k, k, n, n, n, n, 1};
            FrameOutputs outputs;
            MATRIX out[kOutputs];
            if (!outputs.matrices(args, kFirstOutput, kOutputs, rows, last + 1, out, FrameOutputs::WRITTEN_WHOLE)) {
                FrameSetInt(result, 0);
                return;
            }
            const int status = RlsRecursion(FrameMatrix(args, 0), FrameMatrix(args, 1), first, last, force, n, k,
                                            out[0], out[1], out[2], out[3], out[4], out[5], out[6]);
            outputs.publish();
            FrameSetInt(result, status);
        },
        [&] { FrameSetInt(result, 0); });
}
