// Fitted-width text of a number, as values are shown in tables and listings: missing and
// infinite values by their spellings (".NaN", "+.Inf", "-.Inf"), whole numbers as integers,
// everything else in the shortest %g form whose precision fits the width.
#ifndef KAVREL_DATABASE_FORMAT_H
#define KAVREL_DATABASE_FORMAT_H

#include <cstddef>

// Writes value in at most width characters ("####" when it cannot) into out (size bytes, at
// least max(width, 5) + 1 to hold every text whole) and returns out. digits is the requested
// precision; expSign drops the "+" of positive exponents; leadingZero keeps the "0" of "0.5";
// minDecimals > 0 writes whole numbers with a point and keeps at least that many decimals.
char *FormatNumber(char *out, size_t size, double value, int width, int digits, int expSign, int leadingZero,
                   int minDecimals);

#endif
