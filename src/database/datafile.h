// Data files read into a Database: a text or CSV file whose first line names the variables and
// whose other lines hold one observation each. docs/database.md gives the rules: which files
// are CSV, how a first column of dates makes a dated database, and how leading year and period
// columns become the sample instead of variables.
#ifndef KAVREL_DATABASE_DATAFILE_H
#define KAVREL_DATABASE_DATAFILE_H

#include <cstddef>

struct Database;

enum {
    DATAFILE_KEEP_9999 = 1, // keep -9999.99 as a value (by default it becomes missing, with warnings)
    DATAFILE_CSV = 2,       // the text is comma-separated whatever its name or header says
    DATAFILE_TEXT = 4       // the text is blank-separated whatever its name or header says
};

// Reads the file at path into a new Database named after the file (its base name), with undo
// off, nothing marked modified or new. Null after an error message ("Cannot open file ...",
// "Cannot read file ...", "No data in text", "Out of memory").
Database *DbReadDataFile(const char *path, int flags);

// The same for text already in memory (length bytes; need not be terminated). name names the
// database (null or empty: generated).
Database *DbReadDataText(const char *name, const char *text, size_t length, int flags);

#endif
