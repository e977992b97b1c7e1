// Writing a database as CSV.
#include "csv.h"

#include <charconv>
#include <cstring>

#include "database/calendar.h"
#include "database/database.h"

namespace {

// Names with a comma, a quote or surrounding blanks are quoted, quotes doubled.
void writeName(const char *name, FILE *out) {
    const bool quote =
        std::strpbrk(name, ",\"\r\n") || name[0] == ' ' || (name[0] && name[std::strlen(name) - 1] == ' ');
    if (!quote) {
        std::fputs(name, out);
        return;
    }
    std::fputc('"', out);
    for (const char *p = name; *p; ++p) {
        if (*p == '"') std::fputc('"', out);
        std::fputc(*p, out);
    }
    std::fputc('"', out);
}

void writeValue(double v, bool isDate, FILE *out) {
    if (v != v) {
        std::fputc('.', out);
        return;
    }
    char text[KV_DATE_TEXT_MAX];
    if (isDate) {
        // Seconds only when they are not zero; no weekday; a blank before the time.
        FormatDateValue(text, sizeof text, v, 0, 0, 1, 0);
        std::fputs(text, out);
        return;
    }
    const auto r = std::to_chars(text, text + sizeof text - 1, v);
    *r.ptr = '\0';
    std::fputs(text, out);
}

// The name of the period column that the reader takes as the sample, or null when the sample
// needs none (annual) or no year columns at all (the reader's default sample, dated data).
const char *periodColumn(const Sample &s) {
    switch (s.frequency) {
    case 4: return "quarter";
    case 12: return "month";
    case 52: return "week";
    default: return s.frequency > 1 ? "period" : nullptr;
    }
}

} // namespace

int WriteDatabaseCsv(const Database *db, FILE *out) {
    const Sample &s = db->sample;
    const bool years = !DbIsDated(db) && (s.frequency > 1 || s.startYear != 1);
    const char *period = years ? periodColumn(s) : nullptr;
    if (years) {
        std::fputs("year", out);
        if (period) std::fprintf(out, ",%s", period);
        if (db->varCount) std::fputc(',', out);
    }
    for (int i = 0; i < db->varCount; ++i) {
        if (i) std::fputc(',', out);
        writeName(db->names[i], out);
    }
    std::fputc('\n', out);
    for (int t = 0; t < db->obsCount; ++t) {
        if (years) {
            std::fprintf(out, "%d", SampleYearOfObs(t, s));
            if (period) std::fprintf(out, ",%d", SamplePeriodOfObs(t, s));
            if (db->varCount) std::fputc(',', out);
        }
        for (int i = 0; i < db->varCount; ++i) {
            if (i) std::fputc(',', out);
            writeValue(db->columns[i][t], db->varInfo[i].word[0] == 1, out);
        }
        std::fputc('\n', out);
    }
    return std::fflush(out) == 0 && !std::ferror(out);
}
