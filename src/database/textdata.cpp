// The text block measure.
#include "database/textdata.h"

#include "database/messages.h"

namespace {

bool isDigit(char c) { return c >= '0' && c <= '9'; }
bool isLetter(char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); }

bool startsNoCase(const char *p, const char *word) {
    for (; *word; ++p, ++word) {
        char c = *p;
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
        if (c != *word) return false;
    }
    return true;
}

} // namespace

const char *TextSplitHeader(const char *text, const char **header) {
    const char *p = text;
    while (*p == ' ' || *p == '\t' || *p == '\r' || *p == '\n') ++p;
    *header = nullptr;
    if ((isLetter(*p) || *p == '_' || *p == '"') && !startsNoCase(p, "nan") && !startsNoCase(p, "missin")) {
        *header = p;
        while (*p && *p != '\r' && *p != '\n') ++p;
        if (*p == '\r') ++p;
        if (*p == '\n') ++p;
    }
    return p;
}

int MeasureTextBlock(char *text, int numbersOnly, int quiet, int *rows, int *cols, ptrdiff_t *header,
                     ptrdiff_t *data) {
    int nrows = 0, ncols = 0;
    bool ragged = false;
    const char *head = nullptr;
    const char *start = text ? TextSplitHeader(text, &head) : nullptr;
    if (start) {
        char *p = text + (start - text);
        for (; *p; ++p)
            if (*p == ',' && p > start && isDigit(p[-1]) && isDigit(p[1])) *p = '.';
        TextScanRows(
            start, numbersOnly, [](long, int, double, int) {},
            [&](long, int count) {
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
