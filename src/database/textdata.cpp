// The header rule of text blocks and the text block measure (the measure itself is in textdata.h).
#include "database/textdata.h"

#include "base/text.h"

const char *TextSplitHeader(const char *text, const char **header) {
    const char *p = text;
    while (*p == ' ' || *p == '\t' || *p == '\r' || *p == '\n') ++p;
    *header = nullptr;
    if ((KvIsAlpha(*p) || *p == '_' || *p == '"') && KvCompareNoCaseN(p, "nan", 3) != 0 &&
        KvCompareNoCaseN(p, "missin", 6) != 0) {
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
