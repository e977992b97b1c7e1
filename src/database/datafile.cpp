// Reading a data file into a Database. One pass of the text block measure reads every value with
// the value reader (CSV is first rewritten into the blank-separated form the measure reads)
// straight into the columns of a new database. A first column of dates makes the
// database dated; leading "year" and period columns that count the observations one by one
// become the sample.
#include "database/datafile.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "base/alloc.h"
#include "base/text.h"
#include "database/database.h"
#include "database/messages.h"
#include "database/names.h"
#include "database/textdata.h"
#include "database/values.h"

namespace {

bool endsWithNoCase(const char *s, const char *suffix) {
    size_t n = std::strlen(s), m = std::strlen(suffix);
    return n >= m && KvEqualNoCase(s + n - m, suffix);
}

bool isLineEnd(char c) { return c == '\r' || c == '\n' || c == '\0'; }

// Calls field(begin, end) for each field of the line at p (up to its line end): fields split at
// the separator (',' for CSV, blanks and tabs otherwise) outside double quotes, trimmed of
// blanks. Returns the number of fields.
template <class Field> int splitLine(const char *p, bool csv, Field &&field) {
    int n = 0;
    for (;;) {
        while (*p == ' ' || *p == '\t') ++p;
        if (isLineEnd(*p)) {
            // A CSV line ending in a separator has an empty last field.
            return n;
        }
        const char *begin = p;
        bool quoted = false;
        while (!isLineEnd(*p)) {
            if (*p == '"')
                quoted = !quoted;
            else if (!quoted && (csv ? *p == ',' : (*p == ' ' || *p == '\t')))
                break;
            ++p;
        }
        const char *end = p;
        while (end > begin && (end[-1] == ' ' || end[-1] == '\t')) --end;
        field(begin, end);
        ++n;
        if (csv && *p == ',') {
            ++p;
            const char *q = p;
            while (*q == ' ' || *q == '\t') ++q;
            if (isLineEnd(*q)) {
                field(q, q);
                return n + 1;
            }
        }
    }
}

// CSV into the separated form the measure reads: separators become tabs, quotes go, blanks
// inside quotes become '_' (so that a quoted text stays one token) and an empty field becomes
// ".". Blanks outside quotes stay: a field "2020-01-01 12:30" is a date with its time, and the
// tab after it keeps the next field from being read as an hour.
char *csvToBlankSeparated(const char *s, size_t n) {
    // Each line grows by at most its commas + 2 (an empty field gives ". " for a lone ',').
    size_t extra = 4;
    for (size_t i = 0; i < n; ++i) extra += s[i] == ',' ? 1 : (s[i] == '\n' || s[i] == '\r') ? 2 : 0;
    auto *out = static_cast<char *>(KvMalloc(n + extra));
    if (!out) return nullptr;
    char *w = out;
    const char *p = s;
    while (*p) {
        const char *lineEnd = p;
        while (!isLineEnd(*lineEnd)) ++lineEnd;
        splitLine(p, true, [&w](const char *b, const char *e) {
            char *start = w;
            bool quoted = false;
            for (; b < e; ++b) {
                if (*b == '"') {
                    quoted = !quoted;
                    continue;
                }
                *w++ = (*b == '\t' || (quoted && *b == ' ')) ? '_' : *b;
            }
            if (w == start) *w++ = '.';
            *w++ = '\t';
        });
        *w++ = '\n';
        p = lineEnd;
        if (*p == '\r') ++p;
        if (*p == '\n') ++p;
    }
    *w = '\0';
    return out;
}

// A field of the header line as a name: quotes removed, at most 4 * 64 bytes.
void fieldText(char *out, size_t size, const char *b, const char *e) {
    size_t k = 0;
    for (; b < e && k + 1 < size; ++b)
        if (*b != '"') out[k++] = *b;
    out[k] = '\0';
}

// Frequency a period column implies by its name; 0 when it is not a period column, -1 when
// it is taken from the largest period.
int periodFrequency(const char *name) {
    if (KvEqualNoCase(name, "quarter")) return 4;
    if (KvEqualNoCase(name, "month")) return 12;
    if (KvEqualNoCase(name, "week")) return 52;
    if (KvEqualNoCase(name, "period")) return -1;
    return 0;
}

// Lines with at least one character other than blanks, tabs and line ends (at most the largest
// observation count), whatever the line ends (LF, CR LF or CR).
size_t countDataLines(const char *p) {
    size_t n = 0;
    bool data = false;
    for (;; ++p) {
        if (isLineEnd(*p)) {
            if (data) ++n;
            data = false;
            if (*p == '\0' || n >= DB_MAX_OBS) return n;
        } else if (*p != ' ' && *p != '\t') {
            data = true;
        }
    }
}

bool isWhole(double x) {
    return x == x && x >= -1e9 && x <= 1e9 && x == static_cast<double>(static_cast<long long>(x));
}

// When the first columns are "year" (and a period column) counting the observations one by
// one from their first row, the sample they give; the number of such columns, else 0.
int sampleColumns(const Database *db, Sample *s) {
    if (db->varCount < 1 || !KvEqualNoCase(db->names[0], "year")) return 0;
    const double *year = db->columns[0];
    const double *period = nullptr;
    int f = 1;
    if (db->varCount > 1) {
        f = periodFrequency(db->names[1]);
        if (f != 0) period = db->columns[1];
        if (f == 0) f = 1;
    }
    const int T = db->obsCount;
    if (f < 0) {
        f = 1;
        for (int t = 0; t < T; ++t)
            if (isWhole(period[t]) && period[t] > f) f = static_cast<int>(period[t]);
    }
    if (!isWhole(year[0]) || (period && !isWhole(period[0]))) return 0;
    *s = Sample{static_cast<int32_t>(year[0]), period ? static_cast<int32_t>(period[0]) : 1, 0, 0, f};
    if (s->startPeriod < 1 || s->startPeriod > f) return 0;
    for (int t = 0; t < T; ++t) {
        if (year[t] != SampleYearOfObs(t, *s)) return 0;
        if (period && period[t] != SamplePeriodOfObs(t, *s)) return 0;
    }
    SampleSetCount(s, T);
    return period ? 2 : 1;
}

// Reads the text in buffer (terminated; rewritten in place and freed here).
Database *readBuffer(const char *name, char *buffer, size_t length, int flags) {
    const char *rawHeader = nullptr;
    TextSplitHeader(buffer, &rawHeader);
    bool csv = (flags & DATAFILE_CSV) != 0;
    if (!(flags & (DATAFILE_CSV | DATAFILE_TEXT))) {
        csv = name && endsWithNoCase(name, ".csv");
        if (!csv && rawHeader) {
            bool quoted = false;
            for (const char *p = rawHeader; !isLineEnd(*p) && !csv; ++p) {
                if (*p == '"') quoted = !quoted;
                csv = !quoted && *p == ',';
            }
        }
    }
    char *text = buffer;
    if (csv) {
        text = csvToBlankSeparated(buffer, length);
        if (!text) {
            KvFree(buffer);
            ReportError("Out of memory");
            return nullptr;
        }
    }
    // One pass of the measure reads every value straight into the columns of a database sized
    // for every line of the text that holds data; variables are added as longer rows appear,
    // and the sample is cut to the rows found afterwards (which keeps the storage). Blank lines
    // take no room: a row of 10,000 values above 10,000 empty lines is one observation. The
    // names come from the original header line, so that quoted names keep their blanks.
    const size_t lines = std::max<size_t>(1, countDataLines(text));
    Database *db = DbCreate(name, 0);
    // With the table off, creation fails only for memory; the table reports its own refusals.
    if (!db && !DbTableIsEnabled()) ReportError("Out of memory");
    int ok = db && DbSetSample(db, Sample{1, 1, static_cast<int32_t>(lines), 1, 1});
    int rows = 0, cols = 0;
    ptrdiff_t headerAt = -1, dataAt = 0;
    bool allDates = true, failed = !ok;
    auto take = [&](long row, int col, double value, int kind) {
        if (failed) return;
        if (col >= db->varCount && DbAddVariables(db, col + 1 - db->varCount) < 0) {
            failed = true;
            return;
        }
        if (row < db->obsCount) db->columns[col][row] = value;
        if (col == 0 && kind != VALUE_DATE) allDates = false;
    };
    if (ok) ok = MeasureTextBlockEach(text, 0, 0, &rows, &cols, &headerAt, &dataAt, take);
    const bool haveNames = ok && headerAt >= 0 && rawHeader;
    const int nameCount = haveNames ? splitLine(rawHeader, csv, [](const char *, const char *) {}) : 0;
    if (ok && !failed && nameCount > db->varCount && DbAddVariables(db, nameCount - db->varCount) < 0) failed = true;
    if (ok && !failed) failed = !DbSetSample(db, Sample{1, 1, rows, 1, 1});
    if (ok && failed) {
        ReportError("Out of memory");
        ok = 0;
    }
    if (ok) {
        if (haveNames) {
            int i = 0;
            splitLine(rawHeader, csv, [&](const char *b, const char *e) {
                char field[DB_MAX_NAME + 1], clean[DB_MAX_NAME + 1];
                fieldText(field, sizeof field, b, e);
                // A name taken already is reported and the variable keeps its default name; any
                // other refusal of a usable name is a failed allocation.
                if (CleanVariableName(clean, field) > 0 && !DbRenameVariable(db, i, field, 1)) {
                    const int other = DbFindVariableExact(db, clean);
                    if ((other < 0 || other == i) && ok) {
                        ReportError("Out of memory");
                        ok = 0;
                    }
                }
                ++i;
            });
        }
    }
    if (ok) {
        const bool dated = allDates;
        Sample s;
        int drop = dated ? 0 : sampleColumns(db, &s);
        // Each step can fail for memory; a read that fails returns nothing, never a database
        // with its period columns dropped but its sample not set.
        bool done = true;
        if (drop > 0) {
            while (done && drop-- > 0) done = DbDeleteVariables(db, 0) != 0;
            done = done && DbSetSample(db, s) != 0;
        }
        if (dated) {
            const DbVarInfo dateInfo{{1, 0, 0, 0}};
            done = done && DbSetVariableInfo(db, 0, &dateInfo) != 0;
        }
        if (!done) {
            ReportError("Out of memory");
            ok = 0;
        }
    }
    if (ok) {
        CleanLoadedData(db, 0, db->varCount - 1, 0, db->obsCount - 1, (flags & DATAFILE_KEEP_9999) ? 0 : 1, 1);
        for (int i = 0; i < db->varCount; ++i) db->varFlags[i] = 0;
        db->modified = 0;
    } else {
        DbFree(db);
        db = nullptr;
    }
    if (text != buffer) KvFree(text);
    KvFree(buffer);
    return db;
}

} // namespace

Database *DbReadDataText(const char *name, const char *text, size_t length, int flags) {
    if (!text) return nullptr;
    auto *buffer = static_cast<char *>(KvMalloc(length + 1));
    if (!buffer) {
        ReportError("Out of memory");
        return nullptr;
    }
    std::memcpy(buffer, text, length);
    buffer[length] = '\0';
    // An embedded terminator ends the text.
    return readBuffer(name, buffer, std::strlen(buffer), flags);
}

Database *DbReadDataFile(const char *path, int flags) {
    char msg[1100];
    if (!path) return nullptr;
    std::FILE *f = std::fopen(path, "rb");
    if (!f) {
        std::snprintf(msg, sizeof msg, "Cannot open file %.1000s", path);
        ReportError(msg);
        return nullptr;
    }
    char *buffer = nullptr;
    long size = -1;
    if (std::fseek(f, 0, SEEK_END) == 0) size = std::ftell(f);
    if (size >= 0 && std::fseek(f, 0, SEEK_SET) == 0) {
        buffer = static_cast<char *>(KvMalloc(static_cast<size_t>(size) + 1));
        if (!buffer) {
            std::fclose(f);
            ReportError("Out of memory");
            return nullptr;
        }
        if (std::fread(buffer, 1, static_cast<size_t>(size), f) != static_cast<size_t>(size)) {
            KvFree(buffer);
            buffer = nullptr;
        }
    }
    std::fclose(f);
    if (!buffer) {
        std::snprintf(msg, sizeof msg, "Cannot read file %.1000s", path);
        ReportError(msg);
        return nullptr;
    }
    buffer[size] = '\0';
    return readBuffer(path, buffer, std::strlen(buffer), flags);
}
