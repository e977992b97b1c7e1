// Exports of the estimation bridge: a model written in Algebra, initialised once over the host's
// data, run for successive parameter vectors, read back, and released. Failures come back as
// text in the return value, never as a host error.
#include <climits>
#include <cstring>

#include "algebra/bridge.h"
#include "base/alloc.h"
#include "database/database.h"
#include "host/frame.h"
#include "kavrel/kavrel.h"

// 0 data (T x k), 1 array of k names, 2 start year, 3 start period, 4 frequency, 5 dated flag,
// 6 model text, 7 -> starting values, 8 -> parameter numbers (given together). Result untouched
// on success; the failure's text otherwise.
KAVREL_EXPORT void FnInitAlgebraNls(LumoValue *result, LumoValue *args, int) noexcept {
    FrameGuard(
        [&] {
            LumoLibCheckType(LUMO_MATRIX, args, 0, 0);
            LumoLibCheckType(LUMO_ARRAY, args, 1, 1);
            LumoLibCheckType(LUMO_INT, args, 2, 5);
            LumoLibCheckType(LUMO_STRING, args, 6, 6);
            const bool wantParams = FrameIsRef(args, 7) || FrameIsRef(args, 8);
            if (wantParams) LumoLibCheckType(LUMO_REF, args, 7, 8);
            const int nobs = FrameRows(args, 0), nvars = FrameCols(args, 0);
            if (nobs < 0 || nvars < 0) return;

            KvArray<const char *> names(nvars > 0 ? static_cast<size_t>(nvars) : 1);
            if (!names.ok()) {
                FrameSetString(result, "Algebra initialization error");
                return;
            }
            for (int j = 0; j < nvars; ++j) names[j] = FrameArrayString(args, 1, j);
            const AlgebraNlsData in{FrameMatrix(args, 0),
                                    nobs,
                                    nvars,
                                    names.get(),
                                    FrameInt(args, 2),
                                    FrameInt(args, 3),
                                    FrameInt(args, 4),
                                    FrameInt(args, 5),
                                    FrameString(args, 6)};
            int count = 0;
            if (const char *text = AlgebraNlsInit(in, wantParams ? 1 : 0, &count)) {
                FrameSetString(result, text);
                return;
            }
            if (!wantParams) return;
            FrameOutputs outputs;
            MATRIX start = outputs.matrix(args, 7, count, 1, FrameOutputs::WRITTEN_WHOLE);
            MATRIX numbers = outputs.matrix(args, 8, count, 1, FrameOutputs::WRITTEN_WHOLE);
            if (outputs.failed() || !start || !numbers) {
                AlgebraNlsExit();
                FrameSetString(result, "Algebra initialization error");
                return;
            }
            AlgebraNlsParams(start[0], numbers[0]);
            outputs.publish();
        },
        [&] {
            AlgebraNlsExit();
            FrameSetString(result, "Algebra initialization error");
        });
}

// 0 parameter values, 1 first and 2 last observation. Result 1 after a run without faults, else
// the text of the run's report ("Algebra run error" for a wrong count or without a model).
KAVREL_EXPORT void FnRunAlgebraNls(LumoValue *result, LumoValue *args, int) noexcept {
    FrameGuard(
        [&] {
            LumoLibCheckType(LUMO_MATRIX, args, 0, 0);
            LumoLibCheckType(LUMO_INT, args, 1, 2);
            const long long n = FrameElementCount(args, 0);
            const int count = n > INT_MAX ? -1 : static_cast<int>(n); // -1: never the parameter count
            const char *text = AlgebraNlsRun(FrameElements(args, 0), count, FrameInt(args, 1), FrameInt(args, 2));
            if (text)
                FrameSetString(result, text);
            else
                FrameSetInt(result, 1);
        },
        [&] { FrameSetString(result, "Algebra run error"); });
}

KAVREL_EXPORT void FnExitAlgebraNls(LumoValue *, LumoValue *, int) noexcept {
    FrameGuard([] { AlgebraNlsExit(); }, [] {});
}

// 0 i. Result: the name of variable i, "" when there is none.
KAVREL_EXPORT void FnGetAlgebraName(LumoValue *result, LumoValue *args, int) noexcept {
    FrameGuard(
        [&] {
            LumoLibCheckType(LUMO_INT, args, 0, 0);
            const Database *db = AlgebraNlsDatabase();
            const int i = FrameInt(args, 0);
            FrameSetString(result, db && i >= 0 && i < db->varCount ? db->names[i] : "");
        },
        [] {});
}

// 0 name, 1 first, 2 last observation, 3 optional selector (T elements, nonzero when whole part
// is). Result: the variable's values first..last (last clipped to the stored ones) as a column,
// only the selected ones when a selector is given; untouched when the name is unknown.
KAVREL_EXPORT void FnGetAlgebraVar(LumoValue *result, LumoValue *args, int) noexcept {
    FrameGuard(
        [&] {
            LumoLibCheckType(LUMO_STRING, args, 0, 0);
            LumoLibCheckType(LUMO_INT, args, 1, 2);
            const Database *db = AlgebraNlsDatabase();
            const char *given = FrameString(args, 0);
            if (!db || !given) return;
            char name[DB_MAX_NAME + 1];
            std::strncpy(name, given, DB_MAX_NAME);
            name[DB_MAX_NAME] = '\0';
            const int v = DbFindVariableExact(db, name);
            const int first = FrameInt(args, 1);
            int last = FrameInt(args, 2);
            if (last >= db->obsCount) last = db->obsCount - 1;
            if (v < 0 || first < 0 || first > last) return;
            const double *select = nullptr;
            if (args[3].type == LUMO_MATRIX && FrameElementCount(args, 3) == db->obsCount)
                select = FrameElements(args, 3);
            auto chosen = [select](int t) { return !select || static_cast<long long>(select[t]) != 0; };
            int rows = 0;
            for (int t = first; t <= last; ++t) rows += chosen(t) ? 1 : 0;
            const double *x = db->columns[v];
            if (!LumoLibValMatMalloc(result, rows, 1)) return;
            MATRIX out = static_cast<MATRIX>(result->data);
            for (int t = first, r = 0; t <= last; ++t)
                if (chosen(t)) out[r++][0] = x[t];
        },
        [] {});
}

// 0 -> T x m matrix of the variables the model made, 1 -> array of their m names.
KAVREL_EXPORT void FnGetAlgebraAddedData(LumoValue *, LumoValue *args, int) noexcept {
    FrameGuard(
        [&] {
            LumoLibCheckType(LUMO_REF, args, 0, 1);
            const Database *db = AlgebraNlsDatabase();
            if (!db) return;
            const int k = AlgebraNlsHostVariables(), m = db->varCount > k ? db->varCount - k : 0, T = db->obsCount;
            FrameOutputs outputs;
            MATRIX data = outputs.matrix(args, 0, T, m, FrameOutputs::WRITTEN_WHOLE);
            LumoValue *names = outputs.value(args, 1);
            if (outputs.failed() || (names && !LumoLibValArrayCalloc(names, m))) return;
            for (int j = 0; j < m; ++j) {
                if (data)
                    for (int t = 0; t < T; ++t) data[t][j] = db->columns[k + j][t];
                if (names && !FrameSetString(LumoValGetArrayVal(names, j), db->names[k + j])) return;
            }
            outputs.publish();
        },
        [] {});
}
