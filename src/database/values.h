// Values from text: the value reader for single tokens (numbers, the missing and infinity
// spellings, dates with ISO weeks, year-month, times), the value reader for streams, and the
// cleaning of loaded data of the old missing-value code -9999.99.
#ifndef KAVREL_DATABASE_VALUES_H
#define KAVREL_DATABASE_VALUES_H

#include <cstdio>

struct Database;

// Token kinds of the value reader.
enum { VALUE_UNREADABLE = 0, VALUE_NUMBER = 1, VALUE_DATE = 2 };

// Reads one token of text after leading blanks (spaces and tabs). *value is the number, the
// date value (day number plus fraction of a day) or the missing value; *kind one of the
// above; *flag 0 when the numeric scan read the value, else 1 (missing and infinity
// spellings, unreadable tokens). yearIsDate reads a plain whole number as 1 January of that
// year. Returns the position after the token (never before text, and past at least one
// character unless text is at its end). Any of the out pointers may be null.
const char *ReadValueToken(const char *text, int yearIsDate, double *value, int *kind, int *flag);

// Reads the next value of a stream: blanks, tabs and commas are skipped. 1 with *value set, 0
// at a line end or after an unreadable token (the rest of its line is skipped, the line end
// left for the next call), -1 at the end of the stream.
int ReadFileValue(FILE *stream, double *value);

// Counts, over variables firstVar..lastVar and observations t0..t1 (clipped to the database),
// the non-missing values with |x| > 1e30 (kept) and, with convert, turns each -9999.99 into a
// missing value. Writes the two warnings to the output buffer as the rules say; returns the
// number of values converted.
int CleanLoadedData(Database *db, int firstVar, int lastVar, int t0, int t1, int convert, int report);

#endif
