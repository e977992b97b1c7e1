// Variable names: lag suffixes, resolution of a name (with a lag) to a variable, renaming with
// cleaning. Variable names compare exactly, byte by byte, so a multi-byte character is always
// compared whole.
#include "database/names.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "base/alloc.h"
#include "base/text.h"
#include "database/database.h"
#include "database/dbinternal.h"
#include "database/messages.h"

namespace {

bool canBeginName(unsigned char c) { return KvIsAlpha(c) || c == '_' || c >= 0x80; }

} // namespace

bool DbSplitLagSuffix(const char *name, size_t len, size_t *baseLen, int *lag) {
    size_t i = len;
    while (i > 0 && KvIsDigit(name[i - 1])) --i;
    const size_t digits = len - i;
    if (digits < 1 || digits > 4 || i < 2) return false;
    const size_t digitsAt = i;
    bool lead = false;
    if (name[i - 1] == '-') {
        lead = true;
        --i;
    }
    if (i < 1 || name[i - 1] != '_') return false;
    int k = 0;
    for (size_t j = digitsAt; j < len; ++j) k = 10 * k + (name[j] - '0');
    *baseLen = i - 1;
    *lag = lead ? -k : k;
    return true;
}

size_t CleanVariableName(char *out, const char *in) {
    size_t n = 0;
    if (in) {
        while (*in && !canBeginName(static_cast<unsigned char>(*in))) ++in;
        while (in[n] && n < DB_MAX_NAME) {
            out[n] = in[n];
            ++n;
        }
    }
    while (n > 0 && (static_cast<unsigned char>(out[n - 1]) <= ' ' || out[n - 1] == 0x7f)) --n;
    out[n] = '\0';
    for (size_t i = 0; i < n; ++i)
        if (out[i] == '"') out[i] = '_';
    return n;
}

int DbFindVariable(Database *db, const char *name, int lagAllowed, int *lag, int quiet) {
    if (!db || !name || !*name) return -1;
    const size_t len = std::strlen(name);
    if (lagAllowed && lag) {
        size_t baseLen = len;
        int wanted = 0;
        if (!DbSplitLagSuffix(name, len, &baseLen, &wanted)) baseLen = len;
        // A variable named as the base itself takes the whole lag.
        for (int i = 0; i < db->varCount; ++i) {
            const char *v = dbNameOf(db, i);
            if (std::strncmp(v, name, baseLen) == 0 && v[baseLen] == '\0') {
                *lag = wanted;
                return i;
            }
        }
        // Otherwise the variable of that base whose own lag is nearest 0 (first on a tie).
        int best = -1, bestLag = 0;
        for (int i = 0; i < db->varCount; ++i) {
            const char *v = dbNameOf(db, i);
            if (std::strncmp(v, name, baseLen) != 0 || v[baseLen] != '_') continue;
            size_t vBase;
            int k;
            if (!DbSplitLagSuffix(v, std::strlen(v), &vBase, &k) || vBase != baseLen) continue;
            if (best < 0 || std::abs(k) < std::abs(bestLag)) {
                best = i;
                bestLag = k;
            }
        }
        if (best >= 0) {
            *lag = wanted - bestLag;
            if (!quiet) {
                for (int j = 0; j < db->varCount; ++j)
                    if (j != best && std::strcmp(dbNameOf(db, j), name) == 0) {
                        char msg[3 * DB_MAX_NAME + 1024];
                        std::snprintf(msg, sizeof msg, "More than one match for %.512s found, using %s with lag %d",
                                      name, dbNameOf(db, best), *lag);
                        ReportWarning(msg);
                        break;
                    }
            }
            return best;
        }
    }
    for (int i = 0; i < db->varCount; ++i)
        if (std::strcmp(dbNameOf(db, i), name) == 0) {
            if (lag) *lag = 0;
            return i;
        }
    if (!quiet) {
        char msg[2 * DB_MAX_NAME + 1024];
        std::snprintf(msg, sizeof msg, "%.512s not found in database %.256s", name, db->name);
        ReportError(msg);
    }
    return -1;
}

int DbRenameVariable(Database *db, int index, const char *name, int report) {
    if (!db || index < 0 || index >= db->varCount || !name) return 0;
    char raw[DB_MAX_NAME + 1];
    std::snprintf(raw, sizeof raw, "%s", name);
    char clean[DB_MAX_NAME + 1];
    if (CleanVariableName(clean, raw) == 0) return 0;
    if (std::strcmp(clean, dbNameOf(db, index)) == 0) return 1;
    for (int j = 0; j < db->varCount; ++j)
        if (j != index && std::strcmp(dbNameOf(db, j), clean) == 0) {
            if (report) {
                char msg[DB_MAX_NAME + 64];
                std::snprintf(msg, sizeof msg, "%s already exists, use a different name", clean);
                ReportError(msg);
            }
            return 0;
        }
    char *copy = dbCopyText(clean, DB_MAX_NAME);
    if (!copy) return 0;
    dbReplaceText(db, DB_UNDO_RENAME, index, &db->names[index], copy);
    return 1;
}
