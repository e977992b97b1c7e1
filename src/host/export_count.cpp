// The count-data likelihood export. Like the probit and the logit it sets its result to the
// missing value before any check, so that every early return leaves a defined result.
#include <cmath>

#include "estimators/count.h"
#include "host/frame.h"
#include "kavrel/kavrel.h"

// 0 theta (p elements, any shape), 1 y (n x 1 counts), 2 X (n x k), 3 model (0 Poisson, 1 NB2
// with log alpha as parameter k, 2 NB2 with alpha fixed), 4 first, 5 last observation (rows,
// inclusive), 6 the fixed alpha (model 2 only). Outputs 7 score (p x 1), 8 information (p x p),
// 9 fitted mean and variance (n x 2), 10 per-observation log-likelihood (n x 1), 11 outer product
// of the scores (p x p). Result: the log-likelihood over first..last.
KAVREL_EXPORT void FnCountRz(LumoValue *result, LumoValue *args, int) noexcept {
    FrameGuard(
        [&] {
            FrameSetDouble(result, MissingValueOf());
            LumoLibCheckType(LUMO_MATRIX, args, 0, 2);
            LumoLibCheckType(LUMO_INT, args, 3, 5);
            LumoLibCheckType(LUMO_DOUBLE, args, 6, 6);
            const int n = FrameRows(args, 1), k = FrameCols(args, 2), model = FrameInt(args, 3);
            const int first = FrameInt(args, 4), last = FrameInt(args, 5);
            const double alpha = FrameDouble(args, 6);
            if (FrameCols(args, 1) != 1 || FrameRows(args, 2) != n) return;
            if (first < 0 || last < first || last >= n) return;
            const int p = CountParamCount(model, k);
            if (p < 0 || FrameElementCount(args, 0) != p) return;
            if (model == COUNT_NB2_FIXED && !(alpha > 0.0 && alpha < HUGE_VAL)) return;

            FrameOutputs outputs;
            const int rows[5] = {p, p, n, n, p}, cols[5] = {1, p, 2, 1, p};
            MATRIX held[5];
            for (int o = 0; o < 5; ++o) {
                // Rows outside first..last of the fitted values and per-observation values stay missing.
                const bool perObs = o == 2 || o == 3;
                held[o] = outputs.matrix(args, 7 + o, rows[o], cols[o],
                                         perObs ? FrameOutputs::FILL_MISSING : FrameOutputs::WRITTEN_WHOLE);
            }
            if (outputs.failed()) return;
            const CountOutputs out{held[0] ? held[0][0] : nullptr, held[1], held[2], held[3] ? held[3][0] : nullptr,
                                   held[4]};
            const double llf = CountEval(model, FrameElements(args, 0), k, FrameMatrix(args, 1)[0],
                                         FrameMatrix(args, 2), first, last, alpha, out);
            outputs.publish();
            FrameSetDouble(result, llf);
        },
        [&] { FrameSetDouble(result, MissingValueOf()); });
}
