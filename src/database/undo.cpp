// The undo chain of a Database: a singly linked list of entries, newest first. Every entry
// saves the modified mark as it was before the change; the entries one operation (or one batch)
// records share a step number, and DbUndo applies the entries of the newest step in reverse
// order of recording. Full snapshots hold the whole variable set (columns by reference, names,
// descriptions, flags, info records) with the sample, so that undoing one restores the
// database as it was, including variables a failed rebuild lost.
#include "base/alloc.h"
#include "database/column.h"
#include "database/dbinternal.h"

// Older steps than this are dropped.
enum { DB_UNDO_MAX_STEPS = 32 };

struct DbUndoEntry {
    int32_t kind;
    int32_t savedModified;
    long step;
    int32_t index;
    int32_t count;
    char *text;         // kinds 6, 7, 8
    DataColumn *column; // kinds 2, 10 (owned reference)
    int32_t flags;      // kinds 2, 9, 10
    DbVarInfo info;     // kind 12
    Sample sample;
    int32_t obsCount; // kinds 3, 4, 5, 11
    // Full snapshots (kinds 4, 5, 11).
    int32_t snapVars;
    DbVarArrays snap;                             // no column pointers: they follow from the handles
    int32_t varFirst, varLast, obsFirst, obsLast; // changed ranges, -1 when none
    DbUndoEntry *older;
};

namespace {

bool isSnapshot(int kind) { return kind == DB_UNDO_RANGE || kind == DB_UNDO_VALUES || kind == DB_UNDO_SNAPSHOT; }

void freeEntry(DbUndoEntry *e) {
    KvFree(e->text);
    ColumnRelease(e->column);
    e->snap.freeEntries(e->snapVars);
    e->snap.release();
    KvFree(e);
}

// Keeps the newest DB_UNDO_MAX_STEPS steps.
void trimSteps(Database *db) {
    int steps = 0;
    long step = 0;
    DbUndoEntry *newer = nullptr;
    for (DbUndoEntry *e = db->undo; e; newer = e, e = e->older) {
        if (steps > 0 && e->step == step) continue;
        if (steps == DB_UNDO_MAX_STEPS) {
            newer->older = nullptr;
            while (e) {
                DbUndoEntry *next = e->older;
                freeEntry(e);
                e = next;
            }
            return;
        }
        step = e->step;
        ++steps;
    }
}

void insertVariable(Database *db, int index, DataColumn *column, int32_t flags) {
    if (index > db->varCount) index = db->varCount;
    DbVarArrays a = dbArraysOf(db);
    a.move(a, static_cast<size_t>(index), static_cast<size_t>(index) + 1, static_cast<size_t>(db->varCount - index));
    db->handles[index] = column;
    db->columns[index] = ColumnDoubles(column);
    db->names[index] = nullptr; // the rename entry of the same step puts the name back
    db->varDescriptions[index] = nullptr;
    db->varFlags[index] = flags;
    db->varInfo[index] = DbVarInfo{};
    ++db->varCount;
}

void restoreSnapshot(Database *db, DbUndoEntry *e) {
    while (db->varCount > 0) dbDropVariable(db, db->varCount - 1);
    DbVarArrays a = dbArraysOf(db);
    a.move(e->snap, 0, 0, static_cast<size_t>(e->snapVars));
    for (int i = 0; i < e->snapVars; ++i) db->columns[i] = ColumnDoubles(e->snap.handles[i]);
    db->varCount = e->snapVars;
    e->snapVars = 0; // the database owns the contents now
    db->sample = e->sample;
    db->obsCount = e->obsCount;
}

// Applies one entry. False when it cannot be applied now (memory); nothing is changed then.
bool applyEntry(Database *db, DbUndoEntry *e) {
    const bool haveVar = e->index >= 0 && e->index < db->varCount;
    switch (e->kind) {
    case DB_UNDO_ADD:
        for (int i = e->index + e->count - 1; i >= e->index; --i)
            if (i >= 0 && i < db->varCount) dbDropVariable(db, i);
        break;
    case DB_UNDO_REINSERT:
        if (db->varCount < db->capacity && e->column) {
            insertVariable(db, e->index, e->column, e->flags);
            e->column = nullptr;
        }
        break;
    case DB_UNDO_SAMPLE:
        if (!dbEnsureColumnLength(db, e->obsCount)) return false;
        db->sample = e->sample;
        db->obsCount = e->obsCount;
        break;
    case DB_UNDO_RANGE:
    case DB_UNDO_VALUES:
    case DB_UNDO_SNAPSHOT:
        if (e->snapVars <= db->capacity) restoreSnapshot(db, e);
        break;
    case DB_UNDO_RENAME:
        if (haveVar && e->text) {
            KvFree(db->names[e->index]);
            db->names[e->index] = e->text;
            e->text = nullptr;
        }
        break;
    case DB_UNDO_VARDESC:
        if (haveVar) {
            KvFree(db->varDescriptions[e->index]);
            db->varDescriptions[e->index] = e->text;
            e->text = nullptr;
        }
        break;
    case DB_UNDO_DBDESC:
        KvFree(db->description);
        db->description = e->text;
        e->text = nullptr;
        break;
    case DB_UNDO_FLAGS:
        if (haveVar) db->varFlags[e->index] = e->flags;
        break;
    case DB_UNDO_COLUMN:
        if (haveVar && e->column) {
            ColumnRelease(db->handles[e->index]);
            db->handles[e->index] = e->column;
            db->columns[e->index] = ColumnDoubles(e->column);
            db->varFlags[e->index] = e->flags;
            e->column = nullptr;
        }
        break;
    case DB_UNDO_INFO:
        if (haveVar) db->varInfo[e->index] = e->info;
        break;
    default: break;
    }
    return true;
}

} // namespace

DbUndoEntry *dbUndoPush(Database *db, int kind, bool newStep) {
    if (!db->undoOn) return nullptr;
    long step;
    if (db->undoBatchStep)
        step = db->undoBatchStep;
    else if (newStep || !db->undo)
        step = ++db->undoStep;
    else
        step = db->undoStep;
    auto *e = static_cast<DbUndoEntry *>(KvCalloc(1, sizeof(DbUndoEntry)));
    if (!e) {
        dbUndoFreeChain(db);
        return nullptr;
    }
    e->kind = kind;
    e->savedModified = db->modified;
    e->step = step;
    e->index = -1;
    e->varFirst = e->varLast = e->obsFirst = e->obsLast = -1;
    e->older = db->undo;
    db->undo = e;
    trimSteps(db);
    return e;
}

void dbUndoDiscard(Database *db, DbUndoEntry *entry) {
    if (!entry || db->undo != entry) return;
    db->undo = entry->older;
    db->modified = entry->savedModified;
    freeEntry(entry);
}

int dbUndoSnapshot(Database *db, int kind, bool copyData, bool newStep) {
    if (!db->undoOn) return 1;
    if (db->batchDepth > 0 && db->undoBatchStep != 0 && db->undo && isSnapshot(db->undo->kind) &&
        db->undo->step == db->undoBatchStep)
        return 1;
    DbUndoEntry *e = dbUndoPush(db, kind, newStep);
    if (!e) return 0;
    const int n = db->varCount;
    bool ok = e->snap.alloc(n > 0 ? static_cast<size_t>(n) : 1, false);
    if (ok) e->snapVars = n;
    DbVarArrays &a = e->snap;
    for (int i = 0; ok && i < n; ++i) {
        const DataColumn *h = db->handles[i];
        a.handles[i] = copyData ? ColumnCreateVector(h->count, ColumnDoubles(h)) : ColumnRetain(db->handles[i]);
        a.names[i] = dbCopyText(dbNameOf(db, i), DB_MAX_NAME);
        a.descs[i] = db->varDescriptions[i] ? dbCopyText(db->varDescriptions[i], SIZE_MAX) : nullptr;
        a.flags[i] = db->varFlags[i];
        a.info[i] = db->varInfo[i];
        ok = a.handles[i] && a.names[i] && (a.descs[i] || !db->varDescriptions[i]);
    }
    if (!ok) {
        dbUndoFreeChain(db);
        return 0;
    }
    e->sample = db->sample;
    e->obsCount = db->obsCount;
    return 1;
}

void dbUndoSetText(DbUndoEntry *e, char *owned) {
    if (e) e->text = owned;
}

void dbUndoSetVariable(DbUndoEntry *e, int index, int count) {
    if (!e) return;
    e->index = index;
    e->count = count;
}

void dbUndoSetColumn(DbUndoEntry *e, DataColumn *owned, int32_t flags) {
    if (!e) return;
    e->column = owned;
    e->flags = flags;
}

void dbUndoSetInfo(DbUndoEntry *e, const DbVarInfo &info) {
    if (e) e->info = info;
}

void dbUndoSetSample(DbUndoEntry *e, const Sample &sample, int32_t obsCount) {
    if (!e) return;
    e->sample = sample;
    e->obsCount = obsCount;
}

void dbUndoAddRange(Database *db, int firstVar, int lastVar, int firstObs, int lastObs) {
    DbUndoEntry *e = db->undo;
    if (!e || !isSnapshot(e->kind)) return;
    if (firstVar >= 0 && lastVar >= firstVar) {
        if (e->varFirst < 0 || firstVar < e->varFirst) e->varFirst = firstVar;
        if (lastVar > e->varLast) e->varLast = lastVar;
    }
    if (firstObs >= 0 && lastObs >= firstObs) {
        if (e->obsFirst < 0 || firstObs < e->obsFirst) e->obsFirst = firstObs;
        if (lastObs > e->obsLast) e->obsLast = lastObs;
    }
}

void dbUndoFreeChain(Database *db) {
    DbUndoEntry *e = db->undo;
    db->undo = nullptr;
    while (e) {
        DbUndoEntry *next = e->older;
        freeEntry(e);
        e = next;
    }
}

void DbSetUndo(Database *db, int on) {
    if (!db) return;
    if (!on) dbUndoFreeChain(db);
    db->undoOn = on ? 1 : 0;
}

int DbUndo(Database *db) {
    if (!db || !db->undo || db->batchDepth > 0) return 0;
    const long step = db->undo->step;
    const int32_t undoOn = db->undoOn;
    db->undoOn = 0; // what undo does is not recorded
    bool done = true;
    while (db->undo && db->undo->step == step) {
        DbUndoEntry *e = db->undo;
        if (!applyEntry(db, e)) {
            done = false;
            break;
        }
        db->undo = e->older;
        db->modified = e->savedModified;
        freeEntry(e);
    }
    db->undoOn = undoOn;
    dbAnnounce(db);
    return done ? 1 : 0;
}

int DbUndoSteps(const Database *db) {
    if (!db) return 0;
    int steps = 0;
    long step = 0;
    for (const DbUndoEntry *e = db->undo; e; e = e->older)
        if (steps == 0 || e->step != step) {
            step = e->step;
            ++steps;
        }
    return steps;
}

// Exposes the changed ranges of the newest snapshot (for the interpreter and tests).
int DbUndoChangedRange(const Database *db, int *firstVar, int *lastVar, int *firstObs, int *lastObs) {
    const DbUndoEntry *e = db ? db->undo : nullptr;
    if (!e || !isSnapshot(e->kind)) return 0;
    *firstVar = e->varFirst;
    *lastVar = e->varLast;
    *firstObs = e->obsFirst;
    *lastObs = e->obsLast;
    return 1;
}
