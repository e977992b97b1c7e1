// Exports of regression with autoregressive errors: FnRalsFunc (the concentrated log-likelihood
// of the autoregressive coefficients with its derivatives) and FnRalsForecast. FnRalsFunc sets
// its result to the missing value before any check, as the likelihood exports do.
#include "estimators/rals.h"
#include "host/frame.h"
#include "kavrel/kavrel.h"

namespace {

// y (a column of at least yrows values), X (at least xrows rows, k >= 1 columns), rho (p
// elements, any shape) and the sample first..last with first >= p: the checks both exports make.
bool readModel(const LumoValue *args, long long yrows, long long xrows, int first, int last, RalsModel *m) {
    m->k = FrameCols(args, 1);
    m->p = static_cast<int>(FrameElementCount(args, 2));
    if (FrameCols(args, 0) != 1 || FrameRows(args, 0) < yrows || FrameRows(args, 1) < xrows || m->k < 1 ||
        last < first || first < m->p)
        return false;
    m->y = FrameElements(args, 0);
    m->X = FrameMatrix(args, 1);
    m->rho = FrameElements(args, 2);
    return true;
}

} // namespace

// 0 y (T x 1), 1 X (T x k), 2 rho (p elements), 3 first, 4 last; 5 ref b (k x 1, mandatory);
// outputs 6 gradient (p x 1), 7 second derivatives (p x p). Result: the log-likelihood.
KAVREL_EXPORT void FnRalsFunc(LumoValue *result, LumoValue *args, int) noexcept {
    FrameGuard(
        [&] {
            FrameSetDouble(result, MissingValueOf());
            LumoLibCheckType(LUMO_MATRIX, args, 0, 2);
            LumoLibCheckType(LUMO_INT, args, 3, 4);
            LumoLibCheckType(LUMO_REF, args, 5, 5);
            const int first = FrameInt(args, 3), last = FrameInt(args, 4);
            const long long rows = static_cast<long long>(last) + 1;
            RalsModel m;
            if (!readModel(args, rows, rows, first, last, &m) || rows - first <= m.k || !FrameIsRef(args, 5)) return;

            FrameOutputs outputs;
            MATRIX b = outputs.matrix(args, 5, m.k, 1, FrameOutputs::WRITTEN_WHOLE);
            MATRIX grad = outputs.matrix(args, 6, m.p, 1, FrameOutputs::WRITTEN_WHOLE);
            MATRIX hess = outputs.matrix(args, 7, m.p, m.p, FrameOutputs::WRITTEN_WHOLE);
            if (outputs.failed()) return;
            // Without autoregressive coefficients the derivatives are empty matrices.
            const double llf =
                RalsObjective(m, first, last, b[0], grad && m.p > 0 ? grad[0] : nullptr, m.p > 0 ? hess : nullptr);
            outputs.publish();
            FrameSetDouble(result, llf);
        },
        [&] { FrameSetDouble(result, MissingValueOf()); });
}

// 0 y (T x 1), 1 X (rows up to last+h), 2 rho (p elements), 3 first, 4 last, 5 h, 6 b (k
// elements); 7 ref forecasts (h x 1), 8 ref their standard errors (h x 1), both mandatory.
// Result: the innovations' standard error over first..last.
KAVREL_EXPORT void FnRalsForecast(LumoValue *result, LumoValue *args, int) noexcept {
    FrameGuard(
        [&] {
            LumoLibCheckType(LUMO_MATRIX, args, 0, 2);
            LumoLibCheckType(LUMO_INT, args, 3, 5);
            LumoLibCheckType(LUMO_MATRIX, args, 6, 6);
            LumoLibCheckType(LUMO_REF, args, 7, 8);
            const int first = FrameInt(args, 3), last = FrameInt(args, 4), h = FrameInt(args, 5);
            RalsModel m;
            if (h < 1 ||
                !readModel(args, static_cast<long long>(last) + 1, static_cast<long long>(last) + h + 1, first, last,
                           &m) ||
                FrameElementCount(args, 6) != m.k || !FrameIsRef(args, 7) || !FrameIsRef(args, 8))
                return;

            FrameOutputs outputs;
            MATRIX fc = outputs.matrix(args, 7, h, 1, FrameOutputs::WRITTEN_WHOLE);
            MATRIX se = outputs.matrix(args, 8, h, 1, FrameOutputs::WRITTEN_WHOLE);
            if (outputs.failed()) {
                FrameSetDouble(result, MissingValueOf());
                return;
            }
            const double sigma = RalsForecast(m, FrameElements(args, 6), first, last, h, fc[0], se[0]);
            outputs.publish();
            FrameSetDouble(result, sigma);
        },
        [&] { FrameSetDouble(result, MissingValueOf()); });
}
