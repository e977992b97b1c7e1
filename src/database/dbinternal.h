// Helpers shared by the files of the database store (database.cpp, names.cpp, undo.cpp); not
// for use outside src/database.
#ifndef KAVREL_DATABASE_DBINTERNAL_H
#define KAVREL_DATABASE_DBINTERNAL_H

#include <cstddef>
#include <cstdint>

#include "database/database.h"

// The per-variable arrays of a database, or of an undo snapshot (which keeps no column
// pointers). Value-initialise (`DbVarArrays a{};`) before use.
struct DbVarArrays {
    double **columns;
    char **names;
    char **descs;
    int32_t *flags;
    DataColumn **handles;
    DbVarInfo *info;

    // Zeroed arrays of n slots, all or none: false, with nothing held, when memory runs out.
    bool alloc(size_t n, bool withColumns);
    // Releases the columns, names and descriptions of entries 0..n-1 (null entries allowed).
    void freeEntries(int n);
    // Frees the arrays themselves and empties the set.
    void release();
    // Moves n entries of src starting at from to this set's entries starting at to (the two
    // may be the same set and overlap). Column pointers move only where both sets have them.
    void move(const DbVarArrays &src, size_t from, size_t to, size_t n);
};
DbVarArrays dbArraysOf(const Database *db);
// Installs a set as the database's arrays (the arrays it held are not freed).
void dbSetArrays(Database *db, const DbVarArrays &a, int capacity);

// Heap copy of at most max bytes of s (always terminated); null when s is null or on failure.
char *dbCopyText(const char *s, size_t max);
// Name of variable i, "" when the slot holds none (only between the entries of one undo step).
inline const char *dbNameOf(const Database *db, int i) { return db->names[i] ? db->names[i] : ""; }
void dbAnnounce(Database *db);
// Puts copy (owned, may be null) into *slot, a text of the database or of variable index (-1:
// the database itself); the old text goes into an undo entry of kind, or is freed when no undo
// is kept. Marks the database modified and announces the change.
void dbReplaceText(Database *db, int kind, int index, char **slot, char *copy);

// Takes variable index out of every per-variable array, releasing its column, name and
// description, and moves the later variables down.
void dbDropVariable(Database *db, int index);
// Grows every column shorter than n observations to n (missing-filled). All or nothing: 0 when
// memory runs out, the database then unchanged.
int dbEnsureColumnLength(Database *db, int64_t n);

// --- Undo recording (undo.cpp) ---
// A new entry of kind as the newest of the chain, or null when undo is off or suspended, or
// when memory runs out (the whole chain is then discarded, so that undo never applies a step
// that does not match the database). newStep starts a new undo step (ignored inside batches).
DbUndoEntry *dbUndoPush(Database *db, int kind, bool newStep);
// Removes entry (the newest) again after the operation that recorded it failed, restoring the
// modified mark saved in it.
void dbUndoDiscard(Database *db, DbUndoEntry *entry);
// Full snapshot (kind DB_UNDO_VALUES or DB_UNDO_SNAPSHOT) of every variable. copyData makes
// independent copies of the columns (values will be written in place); otherwise the
// snapshot shares the columns, which the operation then replaces. Inside a batch no new
// snapshot is made when the newest entry is a snapshot of the same batch. 1 when recorded or
// not needed, 0 when memory ran out.
int dbUndoSnapshot(Database *db, int kind, bool copyData, bool newStep);
// Sets the text, index, count, column, flags or info of an entry that dbUndoPush returned.
void dbUndoSetText(DbUndoEntry *e, char *owned);
void dbUndoSetVariable(DbUndoEntry *e, int index, int count);
void dbUndoSetColumn(DbUndoEntry *e, DataColumn *owned, int32_t flags);
void dbUndoSetInfo(DbUndoEntry *e, const DbVarInfo &info);
void dbUndoSetSample(DbUndoEntry *e, const Sample &sample, int32_t obsCount);
// One change of the store, the same steps for every kind: an undo entry of kind (when undo is
// kept) in which save(entry) records the old state, with variable index (-1: the database
// itself); then apply(entry) makes the change, entry being null when no undo is kept (so that
// apply frees what the entry would have held); then the modified mark and the announcement.
template <class Save, class Apply> void dbChange(Database *db, int kind, int index, Save &&save, Apply &&apply) {
    DbUndoEntry *e = dbUndoPush(db, kind, true);
    if (e) {
        if (index >= 0) dbUndoSetVariable(e, index, 1);
        save(e);
    }
    apply(e);
    db->modified = 1;
    dbAnnounce(db);
}
// Adds variable and observation ranges to the newest entry when it is a full snapshot.
void dbUndoAddRange(Database *db, int firstVar, int lastVar, int firstObs, int lastObs);
void dbUndoFreeChain(Database *db);

#endif
