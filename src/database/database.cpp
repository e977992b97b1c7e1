// The database store: life cycle and the database table, variables, observations and sample.
// Name resolution is in names.cpp, the undo chain in undo.cpp.
#include "database/database.h"

#include <cmath>
#include <cstdio>
#include <cstring>

#include "base/alloc.h"
#include "base/text.h"
#include "database/column.h"
#include "database/dbinternal.h"
#include "database/messages.h"
#include "database/output.h"
#include "matrix/matrix.h"

namespace {

bool g_tableOn = false;
Database *g_table[DB_TABLE_SLOTS];
char g_lastName[256];

// Text after the last '\' or '/'; when there is none, after the last ':'.
const char *baseName(const char *full) {
    const char *base = full;
    bool slash = false;
    for (const char *p = full; *p; ++p)
        if (*p == '\\' || *p == '/') {
            base = p + 1;
            slash = true;
        }
    if (!slash)
        for (const char *p = full; *p; ++p)
            if (*p == ':') base = p + 1;
    return base;
}

void rememberName(const char *name) { std::snprintf(g_lastName, sizeof g_lastName, "%s", name); }

// Frees the record and everything it owns that is not null.
void freeRecord(Database *db) {
    dbUndoFreeChain(db);
    DbVarArrays a = dbArraysOf(db);
    a.freeEntries(db->varCount);
    a.release();
    KvFree(db->name);
    KvFree(db->label);
    KvFree(db->description);
    KvFree(db);
}

// Grows the per-variable arrays to capacity slots, moving the entries in use.
bool growCapacity(Database *db, int capacity) {
    DbVarArrays a{};
    if (!a.alloc(static_cast<size_t>(capacity), true)) return false;
    DbVarArrays old = dbArraysOf(db);
    a.move(old, 0, 0, static_cast<size_t>(db->varCount));
    old.release();
    dbSetArrays(db, a, capacity);
    return true;
}

void installColumn(Database *db, int i, DataColumn *c) {
    db->handles[i] = c;
    db->columns[i] = ColumnDoubles(c);
}

bool validIndex(const Database *db, int i) { return db && i >= 0 && i < db->varCount; }

// Removes variable index now, recording undo entries of kinds 6, 7, 12 and 2 (in that order),
// which then own its name, description and column.
void deleteNow(Database *db, int index, bool newStep) {
    DbUndoEntry *eName = dbUndoPush(db, DB_UNDO_RENAME, newStep);
    DbUndoEntry *eDesc = eName ? dbUndoPush(db, DB_UNDO_VARDESC, false) : nullptr;
    DbUndoEntry *eInfo = eDesc ? dbUndoPush(db, DB_UNDO_INFO, false) : nullptr;
    DbUndoEntry *eBack = eInfo ? dbUndoPush(db, DB_UNDO_REINSERT, false) : nullptr;
    // A failed push discards the whole chain, so eBack set means all four are in it.
    if (eBack) {
        dbUndoSetVariable(eName, index, 1);
        dbUndoSetText(eName, db->names[index]);
        dbUndoSetVariable(eDesc, index, 1);
        dbUndoSetText(eDesc, db->varDescriptions[index]);
        dbUndoSetVariable(eInfo, index, 1);
        dbUndoSetInfo(eInfo, db->varInfo[index]);
        dbUndoSetVariable(eBack, index, 1);
        dbUndoSetColumn(eBack, db->handles[index], db->varFlags[index] & ~DB_VAR_DELETE_PENDING);
        db->names[index] = nullptr;
        db->varDescriptions[index] = nullptr;
        db->handles[index] = nullptr;
    }
    db->modified = 1;
    dbDropVariable(db, index);
}

// Builds a column of count missing values; the observations of old from first on land at
// position dest. The copied range is clipped to both columns.
DataColumn *shiftedColumn(const DataColumn *old, int64_t count, int64_t first, int64_t dest, int64_t n) {
    DataColumn *c = ColumnCreateVector(count, nullptr);
    if (!c) return nullptr;
    if (first < 0) {
        dest -= first;
        n += first;
        first = 0;
    }
    if (dest < 0) {
        first -= dest;
        n += dest;
        dest = 0;
    }
    if (first + n > old->count) n = old->count - first;
    if (dest + n > count) n = count - dest;
    if (n > 0)
        std::memcpy(ColumnDoubles(c) + dest, ColumnDoubles(old) + first, static_cast<size_t>(n) * sizeof(double));
    return c;
}

// Day numbers 1 = Sunday .. 7 = Saturday.
int weekdayOf(double day) {
    long long j = static_cast<long long>(day);
    long long w = (j + 1) % 7;
    if (w < 0) w += 7;
    return static_cast<int>(w) + 1;
}

bool isWorkingDay(double day, int daysPerWeek) {
    int w = weekdayOf(day);
    if (daysPerWeek == 5) return w != 1 && w != 7;
    if (daysPerWeek == 6) return w != 1;
    return true;
}

// One step of a continued date column: one day (skipping the days a 5- or 6-day week leaves
// out), a week, or the average spacing of the old dates.
double stepDate(double d, int dir, int daysPerWeek, double spacing) {
    if (daysPerWeek >= 5 && daysPerWeek <= 7) {
        do d += dir;
        while (!isWorkingDay(d, daysPerWeek));
        return d;
    }
    if (daysPerWeek == 1) return d + 7.0 * dir;
    return d + spacing * dir;
}

// Fills the missing leading and trailing entries of a date column outward from the known block
// lo..hi.
void continueDates(double *d, int64_t count, int64_t lo, int64_t hi, int daysPerWeek, double spacing) {
    for (int64_t t = hi + 1; t < count; ++t) d[t] = stepDate(d[t - 1], +1, daysPerWeek, spacing);
    for (int64_t t = lo - 1; t >= 0; --t) d[t] = stepDate(d[t + 1], -1, daysPerWeek, spacing);
}

// Rebuilds every column keeping the observations for which keep(t) holds (kept of them). The
// selector column (or -1) is released last. Returns false when variables were lost.
template <class Keep> bool rebuildKeeping(Database *db, int selector, int64_t kept, Keep keep) {
    DataColumn *held = selector >= 0 ? ColumnRetain(db->handles[selector]) : nullptr;
    const int64_t T = db->obsCount;
    bool lost = false;
    for (int i = 0; i < db->varCount; ++i) {
        DataColumn *c = ColumnCreateVector(kept, nullptr);
        if (!c) {
            ReportError("Not enough memory: variables lost, exit or check data!");
            while (db->varCount > i) dbDropVariable(db, db->varCount - 1);
            lost = true;
            break;
        }
        const double *src = db->columns[i];
        double *dst = ColumnDoubles(c);
        int64_t k = 0;
        for (int64_t t = 0; t < T; ++t)
            if (keep(t)) dst[k++] = src[t];
        ColumnRelease(db->handles[i]);
        installColumn(db, i, c);
        db->varFlags[i] |= DB_VAR_CHANGED;
    }
    ColumnRelease(held);
    db->obsCount = static_cast<int32_t>(kept);
    SampleSetCount(&db->sample, static_cast<int>(kept));
    dbAnnounce(db);
    return !lost;
}

// Stable merge sort of the permutation perm[0..n) by key values, missing values last.
bool keyBefore(double a, double b) {
    if (b != b) return a == a;
    return a == a && a < b;
}

void mergeSort(int32_t *perm, int32_t *tmp, int64_t n, const double *key) {
    for (int64_t width = 1; width < n; width *= 2) {
        for (int64_t lo = 0; lo < n; lo += 2 * width) {
            int64_t mid = lo + width < n ? lo + width : n;
            int64_t hi = lo + 2 * width < n ? lo + 2 * width : n;
            int64_t i = lo, j = mid, k = lo;
            while (i < mid && j < hi) tmp[k++] = keyBefore(key[perm[j]], key[perm[i]]) ? perm[j++] : perm[i++];
            while (i < mid) tmp[k++] = perm[i++];
            while (j < hi) tmp[k++] = perm[j++];
        }
        std::memcpy(perm, tmp, static_cast<size_t>(n) * sizeof(int32_t));
    }
}

} // namespace

// ---- Shared helpers -------------------------------------------------------------------------

char *dbCopyText(const char *s, size_t max) {
    if (!s) return nullptr;
    size_t n = std::strlen(s);
    if (n > max) n = max;
    auto *p = static_cast<char *>(KvMalloc(n + 1));
    if (!p) return nullptr;
    std::memcpy(p, s, n);
    p[n] = '\0';
    return p;
}

// Changes are announced to the host through the output channel's notification callback.
// Inside a batch the change is announced once, when the outermost batch ends: a program that
// writes ten variables is one change to whoever listens.
void DbAnnounce(Database *db) { dbAnnounce(db); }

void dbAnnounce(Database *db) {
    if (db && db->batchDepth > 0)
        db->announceHeld = 1;
    else
        OutputNotify();
}

bool DbVarArrays::alloc(size_t n, bool withColumns) {
    columns = withColumns ? static_cast<double **>(KvCalloc(n, sizeof(double *))) : nullptr;
    names = static_cast<char **>(KvCalloc(n, sizeof(char *)));
    descs = static_cast<char **>(KvCalloc(n, sizeof(char *)));
    flags = static_cast<int32_t *>(KvCalloc(n, sizeof(int32_t)));
    handles = static_cast<DataColumn **>(KvCalloc(n, sizeof(DataColumn *)));
    info = static_cast<DbVarInfo *>(KvCalloc(n, sizeof(DbVarInfo)));
    if ((columns || !withColumns) && names && descs && flags && handles && info) return true;
    release();
    return false;
}

void DbVarArrays::freeEntries(int n) {
    for (int i = 0; i < n; ++i) {
        ColumnRelease(handles[i]);
        KvFree(names[i]);
        KvFree(descs[i]);
    }
}

void DbVarArrays::release() {
    KvFree(columns);
    KvFree(names);
    KvFree(descs);
    KvFree(flags);
    KvFree(handles);
    KvFree(info);
    *this = DbVarArrays{};
}

void DbVarArrays::move(const DbVarArrays &src, size_t from, size_t to, size_t n) {
    if (columns && src.columns) std::memmove(columns + to, src.columns + from, n * sizeof(double *));
    std::memmove(names + to, src.names + from, n * sizeof(char *));
    std::memmove(descs + to, src.descs + from, n * sizeof(char *));
    std::memmove(flags + to, src.flags + from, n * sizeof(int32_t));
    std::memmove(handles + to, src.handles + from, n * sizeof(DataColumn *));
    std::memmove(info + to, src.info + from, n * sizeof(DbVarInfo));
}

DbVarArrays dbArraysOf(const Database *db) {
    return DbVarArrays{db->columns, db->names, db->varDescriptions, db->varFlags, db->handles, db->varInfo};
}

void dbSetArrays(Database *db, const DbVarArrays &a, int capacity) {
    db->columns = a.columns;
    db->names = a.names;
    db->varDescriptions = a.descs;
    db->varFlags = a.flags;
    db->handles = a.handles;
    db->varInfo = a.info;
    db->capacity = capacity;
}

void dbReplaceText(Database *db, int kind, int index, char **slot, char *copy) {
    dbChange(
        db, kind, index, [&](DbUndoEntry *e) { dbUndoSetText(e, *slot); },
        [&](DbUndoEntry *e) {
            if (!e) KvFree(*slot);
            *slot = copy;
        });
}

void dbDropVariable(Database *db, int index) {
    ColumnRelease(db->handles[index]);
    KvFree(db->names[index]);
    KvFree(db->varDescriptions[index]);
    DbVarArrays a = dbArraysOf(db);
    a.move(a, static_cast<size_t>(index) + 1, static_cast<size_t>(index),
           static_cast<size_t>(db->varCount - index - 1));
    --db->varCount;
    int last = db->varCount;
    db->columns[last] = nullptr;
    db->names[last] = nullptr;
    db->varDescriptions[last] = nullptr;
    db->varFlags[last] = 0;
    db->handles[last] = nullptr;
    db->varInfo[last] = DbVarInfo{};
}

int dbEnsureColumnLength(Database *db, int64_t n) {
    if (db->varCount == 0) return 1;
    KvArray<DataColumn *> grown(static_cast<size_t>(db->varCount));
    if (!grown.ok()) return 0;
    bool any = false;
    for (int i = 0; i < db->varCount; ++i) {
        grown[i] = nullptr;
        const DataColumn *old = db->handles[i];
        if (old->count >= n) continue;
        grown[i] = shiftedColumn(old, n, 0, 0, old->count);
        if (!grown[i]) {
            for (int j = 0; j < i; ++j) ColumnRelease(grown[j]);
            return 0;
        }
        any = true;
    }
    if (!any) return 1;
    for (int i = 0; i < db->varCount; ++i) {
        if (!grown[i]) continue;
        ColumnRelease(db->handles[i]);
        installColumn(db, i, grown[i]);
    }
    return 1;
}

// ---- Life cycle and the table ------------------------------------------------------------

Database *DbCreate(const char *name, int capacity) {
    int slot = -1;
    if (g_tableOn) {
        for (int i = 0; i < DB_TABLE_SLOTS && slot < 0; ++i)
            if (!g_table[i]) slot = i;
        if (slot < 0) {
            ReportError("Cannot create database");
            return nullptr;
        }
    }
    char generated[32];
    const char *full = name;
    if (!name || !*name) {
        std::snprintf(generated, sizeof generated, "data%d", slot + 1);
        full = generated;
    }
    const char *base = baseName(full);
    if (g_tableOn)
        for (Database *other : g_table)
            if (other && KvEqualNoCase(other->name, base)) {
                ReportError("Database with this name already exists");
                return nullptr;
            }
    if (capacity < 1) capacity = 256;

    auto *db = static_cast<Database *>(KvCalloc(1, sizeof(Database)));
    if (!db) return nullptr;
    DbVarArrays a{};
    db->name = dbCopyText(base, SIZE_MAX);
    db->label = dbCopyText(full, SIZE_MAX);
    if (!db->name || !db->label || !a.alloc(static_cast<size_t>(capacity), true)) {
        freeRecord(db);
        return nullptr;
    }
    dbSetArrays(db, a, capacity);
    db->sample = Sample{1996, 1, 2005, 1, 1};
    db->obsCount = 10;
    if (slot >= 0) {
        g_table[slot] = db;
        db->tableSlot = slot + 1;
    }
    rememberName(db->name);
    return db;
}

void DbFree(Database *db) {
    if (!db) return;
    if (db->tableSlot > 0 && db->tableSlot <= DB_TABLE_SLOTS && g_table[db->tableSlot - 1] == db)
        g_table[db->tableSlot - 1] = nullptr;
    freeRecord(db);
}

Database *DbFindByName(const char *name, int report) {
    if (g_tableOn && name)
        for (Database *db : g_table)
            if (db && KvEqualNoCase(db->name, name)) return db;
    if (report) ReportError("Database not found");
    return nullptr;
}

void DbTableEnable(int on) {
    if (!on)
        for (Database *&db : g_table) {
            if (db) db->tableSlot = 0;
            db = nullptr;
        }
    g_tableOn = on != 0;
}

int DbTableIsEnabled() { return g_tableOn ? 1 : 0; }
const char *DbTableLastName() { return g_lastName; }

// ---- Variables ------------------------------------------------------------------------------

int DbAddVariables(Database *db, int n) {
    if (!db || n < 1) return -1;
    char msg[128];
    std::snprintf(msg, sizeof msg, "Cannot add %d variable(s) to database", n);
    if (n > INT32_MAX - 256 - db->varCount) {
        ReportError(msg);
        return -1;
    }
    if (db->varCount + n > db->capacity && !growCapacity(db, db->varCount + (n > 256 ? n : 256))) {
        char grow[DB_MAX_NAME + 320];
        std::snprintf(grow, sizeof grow, "Maximum number of variables reached in database %s", db->name);
        ReportError(grow);
        return -1;
    }
    const int first = db->varCount;
    DbUndoEntry *e = dbUndoPush(db, DB_UNDO_ADD, true);
    dbUndoSetVariable(e, first, n);
    const int32_t wasModified = db->modified;
    db->modified = 1;
    for (int i = first; i < first + n; ++i) {
        char name[32];
        std::snprintf(name, sizeof name, "Var%d", i + 1);
        DataColumn *c = ColumnCreateVector(db->obsCount, nullptr);
        char *copy = c ? dbCopyText(name, DB_MAX_NAME) : nullptr;
        if (!copy) {
            ColumnRelease(c);
            for (int j = first; j < i; ++j) {
                ColumnRelease(db->handles[j]);
                KvFree(db->names[j]);
                db->handles[j] = nullptr;
                db->columns[j] = nullptr;
                db->names[j] = nullptr;
                db->varFlags[j] = 0;
            }
            if (e)
                dbUndoDiscard(db, e);
            else
                db->modified = wasModified;
            ReportError(msg);
            return -1;
        }
        installColumn(db, i, c);
        db->names[i] = copy;
        db->varDescriptions[i] = nullptr;
        db->varInfo[i] = DbVarInfo{};
        db->varFlags[i] = DB_VAR_NEW;
    }
    db->varCount += n;
    dbAnnounce(db);
    return first;
}

int DbSetVariableName(Database *db, int index, const char *name) {
    if (!validIndex(db, index) || !name || !*name) return 0;
    char *copy = dbCopyText(name, DB_MAX_NAME);
    if (!copy) return 0;
    if (std::strcmp(copy, dbNameOf(db, index)) == 0) {
        KvFree(copy);
        return 1;
    }
    dbReplaceText(db, DB_UNDO_RENAME, index, &db->names[index], copy);
    return 1;
}

int DbFindVariableExact(const Database *db, const char *name) {
    if (!db || !name) return -1;
    for (int i = 0; i < db->varCount; ++i)
        if (std::strcmp(dbNameOf(db, i), name) == 0) return i;
    return -1;
}

int DbDeleteVariables(Database *db, int index) {
    if (!validIndex(db, index)) return 0;
    if (db->varFlags[index] & DB_VAR_PROTECTED) {
        char msg[DB_MAX_NAME + 64];
        std::snprintf(msg, sizeof msg, "%s cannot be deleted", dbNameOf(db, index));
        ReportError(msg);
        return 0;
    }
    if (db->batchDepth > 0) {
        db->varFlags[index] |= DB_VAR_DELETE_PENDING;
        return 1;
    }
    deleteNow(db, index, true);
    dbAnnounce(db);
    return 1;
}

int DbSetVariableDescription(Database *db, int index, const char *text) {
    if (!validIndex(db, index)) return 0;
    char *copy = nullptr;
    if (text && !(copy = dbCopyText(text, SIZE_MAX))) return 0;
    dbReplaceText(db, DB_UNDO_VARDESC, index, &db->varDescriptions[index], copy);
    return 1;
}

int DbSetDescription(Database *db, const char *text) {
    if (!db) return 0;
    char *copy = nullptr;
    if (text && !(copy = dbCopyText(text, SIZE_MAX))) return 0;
    dbReplaceText(db, DB_UNDO_DBDESC, -1, &db->description, copy);
    return 1;
}

int DbSetVariableInfo(Database *db, int index, const DbVarInfo *info) {
    if (!validIndex(db, index) || !info) return 0;
    dbChange(
        db, DB_UNDO_INFO, index, [&](DbUndoEntry *e) { dbUndoSetInfo(e, db->varInfo[index]); },
        [&](DbUndoEntry *) { db->varInfo[index] = *info; });
    return 1;
}

int DbSetVariableFlags(Database *db, int index, int32_t flags) {
    if (!validIndex(db, index)) return 0;
    dbChange(
        db, DB_UNDO_FLAGS, index, [&](DbUndoEntry *e) { dbUndoSetColumn(e, nullptr, db->varFlags[index]); },
        [&](DbUndoEntry *) { db->varFlags[index] = flags; });
    return 1;
}

int DbReplaceColumn(Database *db, int index, const double *values) {
    if (!validIndex(db, index)) return 0;
    DataColumn *c = ColumnCreateVector(db->obsCount, values);
    if (!c) return 0;
    dbChange(
        db, DB_UNDO_COLUMN, index, [&](DbUndoEntry *e) { dbUndoSetColumn(e, db->handles[index], db->varFlags[index]); },
        [&](DbUndoEntry *e) {
            if (!e) ColumnRelease(db->handles[index]);
            installColumn(db, index, c);
            db->varFlags[index] |= DB_VAR_CHANGED;
        });
    return 1;
}

// ---- Values and observations ------------------------------------------------------------

int DbSnapshotValues(Database *db, int firstVar, int lastVar, int firstObs, int lastObs) {
    if (!db) return 0;
    if (!dbUndoSnapshot(db, DB_UNDO_VALUES, true, true)) return 0;
    dbUndoAddRange(db, firstVar, lastVar, firstObs, lastObs);
    return 1;
}

DbColumnWrite::DbColumnWrite(Database *db, int var, int first, int last) : data(nullptr), db_(db), var_(var) {
    if (!validIndex(db, var)) return;
    DbSnapshotValues(db, var, var, first, last); // without room for undo the write goes on
    data = db->columns[var];
}

DbColumnWrite::~DbColumnWrite() {
    if (data) DbMarkChanged(db_, var_, var_);
}

void DbMarkChanged(Database *db, int first, int last) {
    if (!db) return;
    if (first < 0) first = 0;
    if (last >= db->varCount) last = db->varCount - 1;
    if (last < first) return;
    for (int i = first; i <= last; ++i) db->varFlags[i] |= DB_VAR_CHANGED;
    dbUndoAddRange(db, first, last, -1, -1);
    db->modified = 1;
    dbAnnounce(db);
}

double DbDateAt(const Database *db, int t) {
    if (!db || db->varCount < 1 || db->obsCount < 1) return MissingValueOf();
    if (t < 0) t = 0;
    if (t >= db->obsCount) t = db->obsCount - 1;
    return db->columns[0][t];
}

int DbIsDated(const Database *db) {
    if (!db || db->varCount < 1 || db->obsCount < 1 || db->varInfo[0].word[0] != 1) return 0;
    const double first = db->columns[0][0], last = db->columns[0][db->obsCount - 1];
    return first == first && last == last ? 1 : 0;
}

int DbSortObservations(Database *db, int key) {
    if (!validIndex(db, key)) return 0;
    const int64_t T = db->obsCount;
    KvArray<int32_t> perm(static_cast<size_t>(T)), tmp(static_cast<size_t>(T));
    KvArray<DataColumn *> sorted(static_cast<size_t>(db->varCount));
    if (!perm.ok() || !tmp.ok() || !sorted.ok()) return 0;
    for (int64_t t = 0; t < T; ++t) perm[t] = static_cast<int32_t>(t);
    mergeSort(perm.get(), tmp.get(), T, db->columns[key]);
    for (int i = 0; i < db->varCount; ++i) {
        sorted[i] = ColumnCreateVector(T, nullptr);
        if (!sorted[i]) {
            for (int j = 0; j < i; ++j) ColumnRelease(sorted[j]);
            return 0;
        }
        const double *src = db->columns[i];
        double *dst = ColumnDoubles(sorted[i]);
        for (int64_t t = 0; t < T; ++t) dst[t] = src[perm[t]];
    }
    dbUndoSnapshot(db, DB_UNDO_SNAPSHOT, false, true);
    db->modified = 1;
    for (int i = 0; i < db->varCount; ++i) {
        ColumnRelease(db->handles[i]);
        installColumn(db, i, sorted[i]);
        db->varFlags[i] |= DB_VAR_CHANGED;
    }
    dbAnnounce(db);
    return 1;
}

int DbDeleteObservations(Database *db, int selector, int mode) {
    if (!validIndex(db, selector)) return 0;
    const double *s = db->columns[selector];
    const int64_t T = db->obsCount;
    auto keep = [s, mode](int64_t t) { return s[t] == s[t] && (mode != 0 || s[t] == 0.0); };
    int64_t kept = 0;
    for (int64_t t = 0; t < T; ++t) kept += keep(t) ? 1 : 0;
    if (kept == 0) {
        ReportError("Delete skipped: there would be no observations left");
        return 0;
    }
    if (kept == T) {
        ReportWarning("No observations to delete");
        return 0;
    }
    dbUndoSnapshot(db, DB_UNDO_SNAPSHOT, false, true);
    db->modified = 1;
    return rebuildKeeping(db, selector, kept, keep) ? 1 : 0;
}

int DbDeleteObservationRange(Database *db, int first, int last) {
    if (!db || last < first) return 0;
    const int64_t T = db->obsCount;
    int64_t lo = first < 0 ? 0 : first, hi = last >= T ? T - 1 : last;
    if (hi < lo) return 0;
    const int64_t kept = T - (hi - lo + 1);
    if (kept == 0) {
        ReportError("Delete skipped: there would be no observations left");
        return 0;
    }
    dbUndoSnapshot(db, DB_UNDO_SNAPSHOT, false, true);
    db->modified = 1;
    return rebuildKeeping(db, -1, kept, [lo, hi](int64_t t) { return t < lo || t > hi; }) ? 1 : 0;
}

// ---- Sample ----------------------------------------------------------------------------------

int DbSetSample(Database *db, const Sample &sample) {
    if (!db) return 0;
    if (std::memcmp(&db->sample, &sample, sizeof sample) == 0) return 1;
    Sample s = sample;
    const int32_t f = s.frequency;
    int64_t n = SampleObsCount(s); // clamped to the int range, so the limit test below is safe
    if (f < 1 || s.startPeriod < 1 || s.startPeriod > f || s.endPeriod < 1 || s.endPeriod > f || n < 1) {
        ReportError("Invalid sample");
        return 0;
    }
    if (n > DB_MAX_OBS) {
        char msg[80];
        std::snprintf(msg, sizeof msg, "Truncated number of observations to %d", DB_MAX_OBS);
        ReportWarning(msg);
        n = DB_MAX_OBS;
        SampleSetCount(&s, DB_MAX_OBS);
    }
    // Columns keep their storage, but none may be shorter than the sample.
    if (!dbEnsureColumnLength(db, n)) return 0;
    dbChange(
        db, DB_UNDO_SAMPLE, -1, [&](DbUndoEntry *e) { dbUndoSetSample(e, db->sample, db->obsCount); },
        [&](DbUndoEntry *) {
            db->sample = s;
            db->obsCount = static_cast<int32_t>(n);
        });
    return 1;
}

int DbExtendSample(Database *db, int a, int b) {
    if (!db) return 0;
    if (a == 0 && b == 0) return 1;
    const int64_t T = db->obsCount;
    const int64_t N = T + a + b;
    if (N >= DB_MAX_OBS) {
        ReportError("Unable to extend database: exceeds maximum");
        return 0;
    }
    if (N <= 0) {
        ReportError("No observations left");
        return 0;
    }
    // What continuing the date column needs, from the dates before the change.
    const bool dated = DbIsDated(db) != 0;
    int daysPerWeek = 0;
    double spacing = 1.0;
    if (dated) {
        const double first = db->columns[0][0], last = db->columns[0][T - 1];
        daysPerWeek = DbDaysPerWeek(db);
        if (T > 1) spacing = std::floor((last - first) / static_cast<double>(T - 1) + 0.5);
        if (spacing < 1.0) spacing = 1.0;
    }
    dbUndoSnapshot(db, DB_UNDO_SNAPSHOT, false, true);
    db->modified = 1;
    bool lost = false;
    for (int i = 0; i < db->varCount; ++i) {
        DataColumn *c = shiftedColumn(db->handles[i], N, 0, a, T);
        if (!c) {
            ReportError("Not enough memory for extension: variables lost, exit or check data!");
            while (db->varCount > i) dbDropVariable(db, db->varCount - 1);
            lost = true;
            break;
        }
        ColumnRelease(db->handles[i]);
        installColumn(db, i, c);
        db->varFlags[i] |= DB_VAR_CHANGED;
    }
    db->obsCount = static_cast<int32_t>(N);
    if (a != 0) {
        // Negative indices count back from the start.
        const int year = SampleYearOfObs(-a, db->sample), period = SamplePeriodOfObs(-a, db->sample);
        db->sample.startYear = year;
        db->sample.startPeriod = period;
    }
    SampleSetCount(&db->sample, static_cast<int>(N));
    // The dates are continued outward from the old observations that remain, lo..hi; when the
    // extension drops them all there is nothing to continue from and the dates stay missing.
    const int64_t lo = a > 0 ? a : 0;
    const int64_t hi = (a + T - 1 < N - 1) ? a + T - 1 : N - 1;
    if (dated && db->varCount > 0 && lo <= hi) continueDates(db->columns[0], N, lo, hi, daysPerWeek, spacing);
    dbAnnounce(db);
    return lost ? 0 : 1;
}

char *DbFrequencyName(const Database *db, char *out, size_t size) {
    if (!db) {
        if (out && size) out[0] = '\0';
        return out;
    }
    const int dated = DbIsDated(db);
    return SampleFrequencyName(out, size, db->sample, db->obsCount, dated, DbDateAt(db, 0),
                               DbDateAt(db, db->obsCount - 1));
}

int DbDaysPerWeek(const Database *db) {
    if (!db) return 0;
    return SampleDaysPerWeek(db->sample, db->obsCount, DbIsDated(db), DbDateAt(db, 0), DbDateAt(db, db->obsCount - 1));
}

int DbObsPerYear(const Database *db) {
    if (!db) return 0;
    return SampleObsPerYear(db->sample, db->obsCount, DbIsDated(db), DbDateAt(db, 0), DbDateAt(db, db->obsCount - 1));
}

// ---- Batches ---------------------------------------------------------------------------------

void DbBeginBatch(Database *db) {
    if (!db) return;
    if (db->batchDepth++ == 0 && db->undoOn) db->undoBatchStep = ++db->undoStep;
}

void DbEndBatch(Database *db) {
    if (!db || db->batchDepth == 0) return;
    if (db->batchDepth == 1) {
        bool any = false;
        for (int i = db->varCount - 1; i >= 0; --i)
            if (db->varFlags[i] & DB_VAR_DELETE_PENDING) {
                deleteNow(db, i, false);
                any = true;
            }
        db->undoBatchStep = 0;
        --db->batchDepth;
        if (any || db->announceHeld) OutputNotify();
        db->announceHeld = 0;
        return;
    }
    --db->batchDepth;
}
