// The two representations every subsystem shares, without the host's record around them: the
// row-pointer matrix and the missing value.
#ifndef KAVREL_BASE_TYPES_H
#define KAVREL_BASE_TYPES_H

// Rows of doubles behind an array of row pointers; entry -1 holds the data block. The host's
// matrix payload has the same layout (and the same typedef in kavrel/lumo.h).
typedef double **MATRIX;

// Stores the quiet NaN 0x7FF8000000000000 through d. Test for it with x != x, never by bits.
void MissingValue(double *d);
// The missing value as a result, made by MissingValue.
double MissingValueOf();

#endif
