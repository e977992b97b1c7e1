// Stable ascending sorts of doubles with the missing value (any NaN) placed after every number.
// Equal keys, -0 and +0 among them, and NaNs keep their original order.
#ifndef KAVREL_NUMERIC_SORT_H
#define KAVREL_NUMERIC_SORT_H

// Sorts x[0..n-1] in place. 1, or 0 for n < 0, a null array (n > 0) or failed scratch (x then
// untouched). O(n log n), one scratch array of n doubles.
int SortAscending(double *x, int n);

// index[0..n-1] = the permutation that lists key in stable ascending order, NaN keys last: key
// [index[0]] <= key[index[1]] <= ...; permuting every column of a table by it sorts the table by
// key. 1, or 0 as for SortAscending (index untouched). O(n log n), scratch of n ints.
int SortIndexByKey(const double *key, int n, int *index);

#endif
