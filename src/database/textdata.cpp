// The header rule of text blocks and the text block measure (the measure itself is in textdata.h).
#include "database/textdata.h"

namespace {

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

int MeasureTextBlock(char *text, int numbersOnly, int quiet, int *rows, int *cols, ptrdiff_t *header, ptrdiff_t *data) {
    return MeasureTextBlockEach(text, numbersOnly, quiet, rows, cols, header, data, [](long, int, double, int) {});
}
