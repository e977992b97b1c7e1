// Exports of the forecast engine: dynamic and h-step forecasts with their standard errors, and
// impulse responses. Both return a matrix made in the return record. It is made, like the
// standard errors, as a value of the frame's own and moved into place only after a successful
// run, so every failure (a size check, the engine, a host allocation) leaves the result as the
// host prepared it and the reference untouched. docs/forecast.md gives the argument lists.
#include <climits>

#include "algebra/bridge.h"
#include "estimators/forecast.h"
#include "host/frame.h"
#include "kavrel/kavrel.h"

namespace {

// Reads arguments 0-11 (data, descriptor, coefficients, error covariance) into m; false when a
// shape does not fit: no endogenous variable, coefficients other than nEndog x nReg, descriptor
// rows of other than nEndog + nReg elements.
// The type checks both exports make, in argument order (FnDynForc checks 17-18 after them).
void checkSharedTypes(LumoValue *args) {
    LumoLibCheckType(LUMO_MATRIX, args, 0, 1);
    LumoLibCheckType(LUMO_INT, args, 2, 6);
    LumoLibCheckType(LUMO_MATRIX, args, 7, 11);
    LumoLibCheckType(LUMO_INT, args, 14, 15);
}

bool readModel(const LumoValue *args, ForecastModel *m) {
    *m = ForecastModel{};
    m->endog = FrameMatrix(args, 0), m->nEndog = FrameRows(args, 0), m->endogCols = FrameCols(args, 0);
    m->reg = FrameMatrix(args, 1), m->nReg = FrameRows(args, 1), m->regCols = FrameCols(args, 1);
    if (m->nEndog < 1 || m->endogCols < 0 || m->nReg < 0 || m->regCols < 0) return false;
    if (m->nReg > INT_MAX - m->nEndog) return false;
    const long long entries = static_cast<long long>(m->nEndog) + m->nReg;
    for (int i = 7; i <= 9; ++i)
        if (FrameElementCount(args, i) != entries) return false;
    m->desc = ForecastDescriptor{FrameElements(args, 7), FrameElements(args, 8), FrameElements(args, 9),
                                 FrameInt(args, 5), FrameInt(args, 6)};
    if (FrameRows(args, 10) != m->nEndog || FrameCols(args, 10) != m->nReg) return false;
    m->coef = FrameMatrix(args, 10);
    const int dim = FrameRows(args, 11);
    if (dim > 0 && FrameCols(args, 11) == dim) m->omega = FrameMatrix(args, 11), m->omegaDim = dim;
    return true;
}

// An argument without a type requirement, used when it is a matrix with elements.
bool isMatrix(const LumoValue *args, int i) { return args[i].type == LUMO_MATRIX && FrameElementCount(args, i) > 0; }

// Arguments 12-14 for the standard errors: false when they are given but do not fit.
bool readCoefficientCovariance(const LumoValue *args, ForecastModel *m) {
    const long long P = static_cast<long long>(m->nEndog) * m->nReg;
    if (!isMatrix(args, 12)) return true;
    long long nFree = P;
    if (isMatrix(args, 13)) {
        nFree = FrameInt(args, 14);
        if (nFree < 1 || FrameElementCount(args, 13) != P * nFree) return false;
        m->restriction = FrameElements(args, 13), m->restrictCols = static_cast<int>(nFree);
    }
    if (P > INT_MAX || FrameRows(args, 12) != nFree || FrameCols(args, 12) != nFree) return false;
    m->coefCov = FrameMatrix(args, 12);
    return true;
}

// The identities of the language's workspace. The result was sized for count of them: if the
// model now has another number, the step reports a failure (missing identities) instead of
// writing past the engine's buffer.
struct Workspace {
    int count;
};

int workspaceStep(void *ctx, int column, const double *endog, int nEndog, double *ident) {
    return AlgebraNlsIdentityStep(column, endog, nEndog, ident, static_cast<Workspace *>(ctx)->count);
}

// The return record as the target of a reference, so that the frame makes it apart and moves it
// in with the outputs.
LumoValue resultReference(LumoValue *result) {
    LumoValue ref{};
    ref.type = LUMO_REF;
    ref.v.w.u.target = result;
    return ref;
}

} // namespace

// 0 endogenous data (n x T), 1 regressor data (k x T), 2 first observation t1, 3 last t2, 4 unused,
// 5-6 status codes, 7-9 descriptor (variables, codes, lags), 10 coefficients (n x k), 11 error
// covariance, 12 coefficient covariance, 13 restriction matrix, 14 its columns, 15 horizon,
// 16 -> standard errors, 17 identities flag, 18 workspace observation before t1.
// Result: (n + identities) x (t2 - t1 + 1) forecasts.
KAVREL_EXPORT void FnDynForc(LumoValue *result, LumoValue *args, int) noexcept {
    FrameGuard(
        [&] {
            checkSharedTypes(args);
            LumoLibCheckType(LUMO_INT, args, 17, 18);
            ForecastModel m;
            if (!readModel(args, &m)) return;
            const int t1 = FrameInt(args, 2) < 0 ? 0 : FrameInt(args, 2);
            int t2 = FrameInt(args, 3);
            if (m.nReg > 0 && t2 >= m.regCols) t2 = m.regCols - 1;
            if (t2 < t1 || t2 == INT_MAX) return;
            const int count = t2 - t1 + 1, horizon = FrameInt(args, 15);
            if (horizon > count) return;
            const bool wantSe = FrameIsRef(args, 16);
            if (wantSe && (m.omegaDim != m.nEndog || !readCoefficientCovariance(args, &m))) return;
            Workspace workspace{FrameInt(args, 17) != 0 ? AlgebraNlsIdentityCount() : 0};
            const ForecastIdentities ids{workspace.count, &workspace, workspaceStep};
            const long long rows = static_cast<long long>(m.nEndog) + workspace.count;

            FrameOutputs outputs;
            const LumoValue ref = resultReference(result);
            MATRIX out = outputs.matrix(&ref, 0, rows, count, FrameOutputs::WRITTEN_WHOLE);
            MATRIX se = outputs.matrix(args, 16, rows, count);
            if (outputs.failed()) return;
            const long long column = static_cast<long long>(FrameInt(args, 18)) + 1;
            if (!ForecastRun(m, t1, t2, horizon, ids, column, out, se)) return;
            outputs.publish();
        },
        [] {});
}

// Arguments 0-3 and 5-13 as for FnDynForc (13: the impulse of kind 3), 4 zero when only the
// equations of the error covariance are modelled, 14 shocked equation, 15 impulse kind.
// Result: n x (t2 - t1 + 1) responses.
KAVREL_EXPORT void FnImpulse(LumoValue *result, LumoValue *args, int) noexcept {
    FrameGuard(
        [&] {
            checkSharedTypes(args);
            ForecastModel m;
            if (!readModel(args, &m)) return;
            const int t1 = FrameInt(args, 2) < 0 ? 0 : FrameInt(args, 2);
            int t2 = FrameInt(args, 3);
            if (t2 >= m.regCols) t2 = m.regCols - 1;
            if (t2 < t1) return;
            const int modelled = FrameInt(args, 4) == 0 ? FrameRows(args, 11) : m.nEndog;
            const double *vector =
                isMatrix(args, 13) && FrameElementCount(args, 13) == modelled ? FrameElements(args, 13) : nullptr;

            FrameOutputs outputs;
            const LumoValue ref = resultReference(result);
            MATRIX out = outputs.matrix(&ref, 0, m.nEndog, t2 - t1 + 1);
            if (outputs.failed()) return;
            if (!ImpulseRun(m, modelled, t1, t2, FrameInt(args, 14), FrameInt(args, 15), vector, out)) return;
            outputs.publish();
        },
        [] {});
}
