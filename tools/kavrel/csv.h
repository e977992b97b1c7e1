// A database written as CSV: a header line of variable names, then one line per observation
// (an undated database with a sample other than the reader's default, 1, 2, ... annual, leads
// with the columns year and quarter, month, week or period, which the data-file reader takes
// back as the sample); missing values as ".", numbers in the shortest text that reads back to
// the same double, and
// the values of date variables as ISO dates ("2020-02-29", with " HH:MM[:SS[.hh]]" when the time
// of day is not midnight).
#ifndef KAVREL_TOOLS_CSV_H
#define KAVREL_TOOLS_CSV_H

#include <cstdio>

struct Database;

// 1 when everything was written, 0 on a write error.
int WriteDatabaseCsv(const Database *db, FILE *out);

#endif
