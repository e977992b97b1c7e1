// The estimation bridge's one state. A second initialisation without an exit replaces the state;
// the old one can then never be reached again, so it is freed rather than leaked.
#include <cstdio>

#include "algebra/algebra.h"
#include "algebra/bridge.h"
#include "algebra/compiler.h"
#include "database/calendar.h"
#include "database/database.h"

namespace {

struct AlgebraNlsState {
    Database *db;
    AlgebraCompiler *compiler;
    int hostVariables; // k: the variables after them are the model's own
};

AlgebraNlsState gState = {nullptr, nullptr, 0};
char gText[ALGEBRA_MESSAGE_SIZE]; // the last failure's text, as the exports return it

const char *failure(const char *text) {
    std::snprintf(gText, sizeof gText, "%s", text);
    AlgebraNlsExit();
    return gText;
}

// The private database: k variables and room for 20 the model makes, over T observations.
const char *makeDatabase(const AlgebraNlsData &in) {
    Database *db = DbCreate("AlgebraNls", in.nvars + ALGEBRA_NLS_EXTRA_VARIABLES);
    gState.db = db;
    if (!db) return "Algebra initialization error";
    Sample s{in.startYear, in.startPeriod, in.startYear, in.startPeriod, in.frequency};
    if (in.frequency < 1 || in.startPeriod < 1 || in.startPeriod > in.frequency || in.nobs < 1)
        return "Algebra initialization error";
    SampleSetCount(&s, in.nobs);
    if (!DbSetSample(db, s) || db->obsCount != in.nobs) return "Algebra initialization error";
    if (in.nvars > 0 && DbAddVariables(db, in.nvars) < 0) return "Algebra initialization error: cannot create database";
    for (int j = 0; j < in.nvars; ++j) {
        if (in.names && in.names[j]) DbSetVariableName(db, j, in.names[j]);
        double *col = db->columns[j];
        for (int t = 0; t < in.nobs; ++t) col[t] = in.data[t][j];
    }
    const DbVarInfo dates{{1, 0, 0, 0}};
    if (in.dated && in.nvars > 0) DbSetVariableInfo(db, 0, &dates);
    db->modified = 0;
    return nullptr;
}

} // namespace

const char *AlgebraNlsInit(const AlgebraNlsData &in, int wantParams, int *count) {
    AlgebraNlsExit();
    *count = 0;
    gState.hostVariables = in.nvars;
    if (const char *text = makeDatabase(in)) return failure(text);
    gState.compiler = AlgebraCreate(gState.db, ALGEBRA_NLS_MAX_PARAMS);
    if (!gState.compiler) return failure("Algebra initialization error");
    AlgebraCompiler *c = gState.compiler;
    if (!AlgebraLoad(c, in.text ? in.text : "", nullptr) || !AlgebraCompile(c, gState.db))
        return failure(AlgebraMessage(c));
    // Every parameter in use needs the starting value its assignment put into its slot.
    int n = 0;
    const double *pool = AlgebraConstants(c, &n);
    for (int p = 0; p <= AlgebraParamHighest(c); ++p) {
        const int slot = AlgebraParamSlot(c, p);
        if (slot >= 0 && pool[slot] != pool[slot]) return failure("Error: Need starting values for all parameters");
    }
    *count = AlgebraParamCount(c);
    if (!wantParams && *count > 0) return failure("Error: No parameters alllowed here");
    if (wantParams && *count == 0) return failure("Error: No parameters to estimate");
    return nullptr;
}

int AlgebraNlsParamCount() { return gState.compiler ? AlgebraParamCount(gState.compiler) : 0; }

void AlgebraNlsParams(double *start, double *numbers) {
    AlgebraCompiler *c = gState.compiler;
    if (!c) return;
    int n = 0, k = 0;
    const double *pool = AlgebraConstants(c, &n);
    for (int p = 0; p <= AlgebraParamHighest(c); ++p) {
        const int slot = AlgebraParamSlot(c, p);
        if (slot < 0) continue;
        if (start) start[k] = pool[slot];
        if (numbers) numbers[k] = p;
        ++k;
    }
}

const char *AlgebraNlsRun(const double *values, int n, int first, int last) {
    AlgebraCompiler *c = gState.compiler;
    if (!c || !AlgebraSetParams(c, values, n)) {
        std::snprintf(gText, sizeof gText, "%s", "Algebra run error");
        return gText;
    }
    if (AlgebraRun(c, first, last, gState.db->obsCount, 1)) return nullptr;
    std::snprintf(gText, sizeof gText, "%s", AlgebraMessage(c));
    return gText;
}

Database *AlgebraNlsDatabase() { return gState.compiler ? gState.db : nullptr; }
int AlgebraNlsHostVariables() { return gState.hostVariables; }

int AlgebraNlsIdentityCount() {
    return gState.compiler && gState.db->varCount > gState.hostVariables ? gState.db->varCount - gState.hostVariables
                                                                         : 0;
}

int AlgebraNlsIdentityStep(int column, const double *endog, int nEndog, double *ident, int capacity) {
    Database *db = AlgebraNlsDatabase();
    if (!db || column < 0 || column >= db->obsCount) return 0;
    const int k = gState.hostVariables, n = nEndog < k ? nEndog : k;
    for (int v = 0; v < n; ++v) db->columns[v][column] = endog[v];
    const int ok = AlgebraRun(gState.compiler, column, column, db->obsCount, 1);
    // The run may have deleted and made again the variables it writes: read them afresh, never
    // more than the caller has room for.
    const int m = AlgebraNlsIdentityCount();
    for (int j = 0; j < capacity; ++j) ident[j] = j < m ? db->columns[k + j][column] : MissingValueOf();
    return ok && m == capacity;
}

void AlgebraNlsExit() {
    AlgebraFree(gState.compiler);
    DbFree(gState.db);
    gState = AlgebraNlsState{nullptr, nullptr, 0};
}
