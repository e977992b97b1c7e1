// The recursive least-squares export. Outputs are sized in value records of the export's own and
// moved into the caller's variables only after the recursion has finished reading Y and X, so a
// reference that names one of the inputs (or two references that name the same variable) cannot
// pull storage from under the computation; a failed host allocation leaves every variable as it
// was.
#include <climits>

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

            const long long rows[kOutputs] = {static_cast<long long>(n) * k, k, n, n, n, n, 1};
            LumoValue *targets[kOutputs] = {};
            FrameValue values[kOutputs];
            MATRIX out[kOutputs] = {};
            for (int i = 0; i < kOutputs; ++i) {
                if (!FrameIsRef(args, kFirstOutput + i)) continue;
                targets[i] = FrameTarget(args, kFirstOutput + i);
                if (rows[i] > INT_MAX || !values[i].alloc(static_cast<int>(rows[i]), last + 1)) {
                    FrameSetInt(result, 0);
                    return;
                }
                out[i] = values[i].matrix();
            }

            const int status = RlsRecursion(FrameMatrix(args, 0), FrameMatrix(args, 1), first, last, force, n, k,
                                            out[0], out[1], out[2], out[3], out[4], out[5], out[6]);
            for (int i = 0; i < kOutputs; ++i)
                if (targets[i]) values[i].moveInto(targets[i]);
            FrameSetInt(result, status);
        },
        [&] { FrameSetInt(result, 0); });
}
