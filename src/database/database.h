// The database store: named columns of doubles over one common sample. A Database owns its
// per-variable arrays (capacity slots each) and holds every column through a reference-counted
// DataColumn, so that undo snapshots can keep old columns without copying them. Every change
// goes through the operations below, which keep the variable flags, the modified mark and the
// undo chain right, and announce themselves through OutputNotify. Database names compare
// without regard to case, variable names exactly.
#ifndef KAVREL_DATABASE_DATABASE_H
#define KAVREL_DATABASE_DATABASE_H

#include <cstddef>
#include <cstdint>

#include "database/calendar.h"

struct DataColumn;
struct DbUndoEntry;

// Variable flags.
enum {
    DB_VAR_PROTECTED = 1,      // cannot be deleted
    DB_VAR_CHANGED = 2,        // data changed
    DB_VAR_DELETE_PENDING = 4, // deleted inside a batch, removed when the batch ends
    DB_VAR_NEW = 8             // added since the database was made or loaded
};

// Undo kinds.
enum {
    DB_UNDO_ADD = 1,       // variables added (first index, count)
    DB_UNDO_REINSERT = 2,  // a deleted variable, to put back at its index
    DB_UNDO_SAMPLE = 3,    // sample record and observation count
    DB_UNDO_RANGE = 4,     // changed values over a variable range (joins the newest snapshot)
    DB_UNDO_VALUES = 5,    // changed values over an observation range (a new snapshot)
    DB_UNDO_RENAME = 6,    // old variable name
    DB_UNDO_VARDESC = 7,   // old variable description
    DB_UNDO_DBDESC = 8,    // old database description
    DB_UNDO_FLAGS = 9,     // old flags of one variable
    DB_UNDO_COLUMN = 10,   // old column of one variable whose data was replaced whole
    DB_UNDO_SNAPSHOT = 11, // full snapshot before deleting, extending or sorting observations
    DB_UNDO_INFO = 12      // old info record of one variable
};

enum { DB_MAX_NAME = 64, DB_TABLE_SLOTS = 100, DB_MAX_OBS = 100000000 };

// Per-variable type information; word[0] == 1 marks a date variable.
struct DbVarInfo {
    int32_t word[4];
};

struct Database {
    char *name;  // base name: after the last '\' or '/', else after a ':'
    char *label; // the full name passed (or the generated "data%d")
    int32_t varCount;
    int32_t obsCount;
    double **columns; // data of variable i, inside handles[i]
    char **names;
    Sample sample;
    char *description;      // may be null
    char **varDescriptions; // entries may be null
    int32_t *varFlags;
    DataColumn **handles;
    DbVarInfo *varInfo;
    int32_t modified;     // 1 after any change
    int32_t batchDepth;   // while non-zero deletions are only marked, snapshots merged, announcements held
    int32_t announceHeld; // 1 when a change inside the open batch is still to be announced
    int32_t tableSlot;    // 1-based slot in the database table, 0 when not registered
    int32_t undoOn;       // 0: no undo entries are kept
    int32_t capacity;     // slots in each per-variable array
    // Undo chain, newest entry first; entries of one step undo together.
    DbUndoEntry *undo;
    long undoStep;
    long undoBatchStep; // step of the open batch, 0 outside batches
};

// --- Life cycle and the database table -----------------------------------------------------

// A new database: capacity slots (256 when below 1), no variables, sample 1996(1) to 2005(1)
// annual (10 observations), undo off. Null after "Cannot create database" (table full),
// "Database with this name already exists", or when memory runs out.
Database *DbCreate(const char *name, int capacity);
void DbFree(Database *db);
// Registered database with this name (any case), or null ("Database not found" with report).
Database *DbFindByName(const char *name, int report);
// The table is off by default; switching it off forgets every registration.
void DbTableEnable(int on);
int DbTableIsEnabled();
// Name of the database created or named last ("" when none).
const char *DbTableLastName();

// --- Variables ------------------------------------------------------------------------------

// Index of the first of n new variables ("Var%d", all missing, flag DB_VAR_NEW), or -1.
int DbAddVariables(Database *db, int n);
// Plain naming (at most 64 characters kept, no cleaning, no uniqueness check): 0 when the
// index is out of range or the name empty (or memory runs out), else 1.
int DbSetVariableName(Database *db, int index, const char *name);
// Cleaned renaming: 1 done or unchanged, 0 refused (reported when report is set and the name
// is taken).
int DbRenameVariable(Database *db, int index, const char *name, int report);
// Index of the first variable named exactly so, or -1.
int DbFindVariableExact(const Database *db, const char *name);
// Name resolution with an optional lag suffix (_k, _-k, one to four digits); see names.cpp.
int DbFindVariable(Database *db, const char *name, int lagAllowed, int *lag, int quiet);
// 1 deleted (or marked, inside a batch), 0 refused or out of range.
int DbDeleteVariables(Database *db, int index);
int DbSetVariableDescription(Database *db, int index, const char *text);
int DbSetVariableInfo(Database *db, int index, const DbVarInfo *info);
int DbSetVariableFlags(Database *db, int index, int32_t flags);
// Replaces variable index's data by obsCount values (missing where values is null).
int DbReplaceColumn(Database *db, int index, const double *values);
int DbSetDescription(Database *db, const char *text);

// --- Values and observations ----------------------------------------------------------------

// Before writing values of variables firstVar..lastVar over observations firstObs..lastObs:
// a full snapshot for undo (kind 5). 1, or 0 when the snapshot could not be made.
int DbSnapshotValues(Database *db, int firstVar, int lastVar, int firstObs, int lastObs);
// After writing: flag DB_VAR_CHANGED on first..last and the range joins the newest snapshot.
void DbMarkChanged(Database *db, int first, int last);
// Value of the first variable at t (clamped to the sample); missing when there is none.
double DbDateAt(const Database *db, int t);
// 1 when the first variable is a date variable with its first and last values present.
int DbIsDated(const Database *db);
// Reorders the observations of every variable by ascending values of variable key (stable,
// missing values last). 1 done, 0 on a bad key or when memory runs out (nothing changed).
int DbSortObservations(Database *db, int key);
// mode 0 deletes where the selector is non-zero or missing, other modes where it is missing.
// 1 when observations were deleted, 0 otherwise.
int DbDeleteObservations(Database *db, int selector, int mode);
int DbDeleteObservationRange(Database *db, int first, int last);

// --- Sample -------------------------------------------------------------------------------

// 1 set (or unchanged), 0 refused ("Invalid sample", or memory for longer columns).
int DbSetSample(Database *db, const Sample &sample);
// Adds a observations before the start and b after the end (negative counts drop them). A
// dated database gets its date column continued (see docs/database.md).
int DbExtendSample(Database *db, int a, int b);
// Frequency facts of the database (texts and rules in calendar.h).
char *DbFrequencyName(const Database *db, char *out, size_t size);
int DbDaysPerWeek(const Database *db);
int DbObsPerYear(const Database *db);

// --- Undo and batches ---------------------------------------------------------------------

// Switching undo off discards the chain.
void DbSetUndo(Database *db, int on);
// Undoes the newest step (all entries one operation or batch recorded): 1, or 0 when there is
// nothing to undo or memory runs out (the step is then kept).
int DbUndo(Database *db);
// Steps that DbUndo can undo (the newest 32 are kept).
int DbUndoSteps(const Database *db);
// Changed variable and observation ranges recorded in the newest entry when it is a snapshot
// (-1 for a range never given); 0 when the newest entry is not a snapshot.
int DbUndoChangedRange(const Database *db, int *firstVar, int *lastVar, int *firstObs, int *lastObs);
// Batches nest; the outermost end removes the variables marked for deletion. All entries a
// batch records form one undo step.
void DbBeginBatch(Database *db);
void DbEndBatch(Database *db);
// One variable's column written in place by one operation (a built-in that fills a variable over
// the sample): made, it saves observations first..last for undo; gone, it marks the variable
// changed, so that every path that wrote ends with the mark. data is null when var is not a
// variable of db (nothing is saved or marked then).
class DbColumnWrite {
public:
    DbColumnWrite(Database *db, int var, int first, int last);
    ~DbColumnWrite();
    DbColumnWrite(const DbColumnWrite &) = delete;
    DbColumnWrite &operator=(const DbColumnWrite &) = delete;
    double *data;

private:
    Database *db_;
    int var_;
};

// Tells the host that db changed (through the output channel's callback A); inside a batch the
// announcement is held, and the outermost end makes one for all the batch's changes.
void DbAnnounce(Database *db);

#endif
