// Blocks of text read as a matrix: an optional header line of names, then one row per line,
// elements separated by blanks and tabs and each read with the value reader. The measure
// reports the shape; the loader of data files walks the same rows with TextScanRows.
#ifndef KAVREL_DATABASE_TEXTDATA_H
#define KAVREL_DATABASE_TEXTDATA_H

#include <cstddef>

#include "database/messages.h"
#include "database/values.h"

// Measures text: *rows rows (lines with at least one counted element) and *cols columns (the
// most elements of any row). *header is the offset of the header line (-1 when there is none)
// and *data the offset where the rows begin. With numbersOnly only elements read as numbers
// (kind VALUE_NUMBER) are counted. A comma standing between two digits in the rows is a decimal
// comma and is rewritten into a point in place. Returns 1, or 0 after "No data in text" (unless
// quiet) when there are no rows or no columns; rows of different lengths give the warning
// "Not all rows have the same number of elements" (unless quiet) and still 1.
int MeasureTextBlock(char *text, int numbersOnly, int quiet, int *rows, int *cols, ptrdiff_t *header, ptrdiff_t *data);

// The header rule: after leading blanks and empty lines, a first line beginning with a letter,
// "_" or a double quote, and not with "NaN" or "missin" (any case), is a header. Returns the
// position where the rows begin; *header is the header line, or null.
const char *TextSplitHeader(const char *text, const char **header);

// Calls element(row, col, value, kind) for every counted element of the rows from p on and
// rowEnd(row, count) after each counted row; rows without counted elements are skipped and
// take no row number. Stops at the end of the text.
template <class Element, class RowEnd>
void TextScanRows(const char *p, int numbersOnly, Element &&element, RowEnd &&rowEnd) {
    long row = 0;
    int count = 0;
    for (;;) {
        while (*p == ' ' || *p == '\t') ++p;
        if (*p == '\0' || *p == '\r' || *p == '\n') {
            if (count > 0) rowEnd(row++, count);
            count = 0;
            if (*p == '\0') return;
            if (*p == '\r' && p[1] == '\n') ++p;
            ++p;
            continue;
        }
        double value;
        int kind;
        p = ReadValueToken(p, 0, &value, &kind, nullptr);
        if (numbersOnly && kind != VALUE_NUMBER) continue;
        element(row, count++, value, kind);
    }
}

// The measure, handing every counted element to element(row, col, value, kind) as well, so that
// a reader can take the values in the same pass (MeasureTextBlock passes nothing).
template <class Element> int MeasureTextBlockEach(char *text, int numbersOnly, int quiet, int *rows, int *cols,
                                                  ptrdiff_t *header, ptrdiff_t *data, Element &&element) {
    int nrows = 0, ncols = 0;
    bool ragged = false;
    const char *head = nullptr;
    const char *start = text ? TextSplitHeader(text, &head) : nullptr;
    if (start) {
        // Decimal commas: a comma between two digits in the rows becomes a point.
        for (char *p = text + (start - text); *p; ++p)
            if (*p == ',' && p > start && p[-1] >= '0' && p[-1] <= '9' && p[1] >= '0' && p[1] <= '9') *p = '.';
        TextScanRows(start, numbersOnly, element, [&](long, int count) {
            if (nrows > 0 && count != ncols) ragged = true;
            if (count > ncols) ncols = count;
            ++nrows;
        });
    }
    if (rows) *rows = nrows;
    if (cols) *cols = ncols;
    if (header) *header = head ? head - text : -1;
    if (data) *data = start ? start - text : 0;
    if (nrows == 0 || ncols == 0) {
        if (!quiet) ReportError("No data in text");
        return 0;
    }
    if (ragged && !quiet) ReportWarning("Not all rows have the same number of elements");
    return 1;
}

#endif
