// Variable names: the lag suffix of a name and the cleaning of names typed or read from files.
#ifndef KAVREL_DATABASE_NAMES_H
#define KAVREL_DATABASE_NAMES_H

#include <cstddef>

// True when the first len characters of name end in a lag suffix: "_", an optional "-" and 1 to
// 4 decimal digits, with at least two characters before the digits. *baseLen is then the
// length of the text before "_" and *lag the signed number (a negative lag is a lead).
bool DbSplitLagSuffix(const char *name, size_t len, size_t *baseLen, int *lag);

// Cleans a variable name into out (DB_MAX_NAME + 1 bytes): characters that may not begin a name
// are skipped (anything but an ASCII letter, "_" or a byte of a multi-byte character), at most
// 64 characters are kept, trailing blanks and control characters are removed and every double
// quote becomes "_". Returns the length (0: nothing usable).
size_t CleanVariableName(char *out, const char *in);

#endif
