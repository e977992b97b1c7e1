// The Algebra scanner. Characters come one at a time from the text or the file, with a single
// pushback slot; the first character of a token comes through the comment and line handling,
// the characters after it raw, so that a newline pushed back after a token is counted once, when
// the next token reads it. A scan error is a private exception caught in AlgebraTokenize alone,
// which reports it and frees the stream: the one recovery point of the scanner.
#include "algebra/scanner.h"

#include <cstring>

#include "base/alloc.h"
#include "base/grow.h"
#include "base/text.h"
#include "database/messages.h"

namespace {

enum { SCAN_END_OF_CODE = 0, SCAN_UNRECOGNIZED, SCAN_OUT_OF_MEMORY, SCAN_MISSING, SCAN_TOO_LONG, SCAN_NO_STRING_END };

const char *const kScanErrors[] = {"Unexpected end of code", "Unrecognized",         "Out of heap memory", "Missing",
                                   "Token too long",         "End of string missing"};

// The stream starts at 8192 bytes and grows by 8192 whenever fewer than 1024 remain free before
// a token is stored.
constexpr size_t kStreamStart = 8192, kStreamGrowth = 8192, kStreamMinFree = 1024;

struct ScanFault {
    int code;
    bool withText; // the message names the token text
};

// The punctuation that stands for itself, in table order; codes 2 and 127 end it.
const char kPunctuation[] = {',', '{', '}', '(', ')', '=', '!', '<', '>', '&', '|', ';', '?',
                             ':', '"', '[', ']', '^', '*', '/', '+', '-', 2,   127, 0};

// Keywords, compared without regard to case, in table order.
const struct {
    const char *text;
    int code;
} kKeywords[] = {{"\n", TK_EOL},          {"FALSE", TK_FALSE}, {"TRUE", TK_TRUE}, {"FREQUENCY", TK_FREQUENCY},
                 {"MISSING", TK_MISSING}, {"PI", TK_PI},       {"NOBS", TK_NOBS}};

[[noreturn]] void fail(int code, bool withText = false) { throw ScanFault{code, withText}; }

// The next character: the pushed-back one, else the next of the text or the file; -1 at the end
// (a zero byte ends a file as it ends a text).
int readChar(AlgebraScanner *sc) {
    if (sc->pushback) {
        const int c = sc->pushback;
        sc->pushback = 0;
        return c;
    }
    if (sc->text) {
        const int c = static_cast<unsigned char>(*sc->text);
        if (c == 0) return -1;
        ++sc->text;
        return c;
    }
    const int c = sc->file ? std::getc(sc->file) : EOF;
    return c == EOF || c == 0 ? -1 : c;
}

int readCharNoEnd(AlgebraScanner *sc) {
    const int c = readChar(sc);
    if (c < 0) fail(SCAN_END_OF_CODE);
    return c;
}

void pushBack(AlgebraScanner *sc, int c) {
    if (c > 0) sc->pushback = c;
}

// The next character that is not part of a comment: a block comment is skipped with the line
// ends inside it counted; a line comment ends at its newline, which is counted and returned. A
// newline is counted and returned; the end of the input is TK_END.
int nextSignificant(AlgebraScanner *sc) {
    for (;;) {
        const int c = readChar(sc);
        if (c == '\n') {
            ++sc->line;
            return '\n';
        }
        if (c < 0) return TK_END;
        if (c != '/') return c;
        const int d = readChar(sc);
        if (d == '*') {
            for (int e = readCharNoEnd(sc);;) {
                if (e == '\n') ++sc->line;
                if (e != '*') {
                    e = readCharNoEnd(sc);
                    continue;
                }
                e = readCharNoEnd(sc);
                if (e == '/') break;
            }
            continue;
        }
        if (d == '/') {
            for (;;) {
                const int e = readChar(sc);
                if (e < 0) return TK_END;
                if (e == '\n') {
                    ++sc->line;
                    return '\n';
                }
            }
        }
        pushBack(sc, d);
        return '/';
    }
}

void store(AlgebraScanner *sc, size_t *n, int c) {
    if (*n >= ALGEBRA_TOKEN_MAX) fail(SCAN_TOO_LONG);
    sc->token[(*n)++] = static_cast<char>(c);
    sc->token[*n] = '\0';
}

void storeDigits(AlgebraScanner *sc, size_t *n, int *c) {
    while (KvIsDigit(*c)) {
        store(sc, n, *c);
        *c = readChar(sc);
    }
}

// The rest of a number whose text so far is digits or a lone point: the point and the digits
// after it, then an exponent letter (E, e, D or d) with an optional sign and digits.
void readNumberTail(AlgebraScanner *sc, size_t *n) {
    int c = readChar(sc);
    if (sc->token[0] == '.') {
        storeDigits(sc, n, &c);
    } else if (c == '.') {
        store(sc, n, c);
        c = readChar(sc);
        storeDigits(sc, n, &c);
    }
    if (c == 'E' || c == 'e' || c == 'D' || c == 'd') {
        store(sc, n, c);
        c = readChar(sc);
        if (c == '+' || c == '-') {
            store(sc, n, c);
            c = readChar(sc);
        }
        storeDigits(sc, n, &c);
    }
    pushBack(sc, c);
}

bool allDigits(const char *s) {
    for (; *s; ++s)
        if (!KvIsDigit(static_cast<unsigned char>(*s))) return false;
    return true;
}

// After !, <, = or > a following = makes the two-character operator; & alone is the parameter
// marker; | must be doubled.
int pairOperator(AlgebraScanner *sc, int c) {
    static const struct {
        char first;
        int paired;
    } kPairs[] = {{'!', TK_NE}, {'<', TK_LE}, {'=', TK_EQ}, {'>', TK_GE}};
    for (const auto &p : kPairs)
        if (c == p.first) {
            const int d = readChar(sc);
            if (d == '=') return p.paired;
            pushBack(sc, d);
            return c;
        }
    if (c == '&') {
        const int d = readChar(sc);
        if (d == '&') return TK_AND;
        pushBack(sc, d);
        return TK_PARAM;
    }
    if (c == '|') {
        const int d = readChar(sc);
        if (d == '|') return TK_OR;
        pushBack(sc, d);
        fail(SCAN_MISSING, true);
    }
    return c;
}

// Reads one token into sc->token and returns its code.
int readToken(AlgebraScanner *sc) {
    int c = nextSignificant(sc);
    while (c == ' ' || c == '\t' || c == '\r') c = nextSignificant(sc);
    size_t n = 0;
    sc->token[0] = '\0';
    if (c == '"') {
        for (;;) {
            const int d = readCharNoEnd(sc);
            if (d == '"') return TK_STRING;
            if (d == '\n') fail(SCAN_NO_STRING_END);
            if (n + 1 >= ALGEBRA_TOKEN_MAX) fail(SCAN_TOO_LONG);
            store(sc, &n, d);
        }
    }
    store(sc, &n, c);
    if (KvIsAlnum(c) || c == '_') {
        int d = readChar(sc);
        while (KvIsAlnum(d) || d == '_') {
            store(sc, &n, d);
            d = readChar(sc);
        }
        pushBack(sc, d);
    }
    for (const auto &k : kKeywords)
        if (KvCompareNoCase(sc->token, k.text) == 0) return k.code;
    if (n == 1 && std::strchr(kPunctuation, c)) return pairOperator(sc, c);
    if (KvIsAlpha(c) || c == '_') return TK_IDENT;
    if (allDigits(sc->token) || std::strcmp(sc->token, ".") == 0) {
        readNumberTail(sc, &n);
        return TK_CONST;
    }
    fail(SCAN_UNRECOGNIZED, true);
}

// Appends one token entry to the stream, growing it first when too little room is left.
void appendEntry(KvGrowArray<unsigned char> *out, const AlgebraScanner *sc, int code) {
    if (!out->ensureFree(kStreamMinFree, kStreamGrowth)) fail(SCAN_OUT_OF_MEMORY);
    size_t pos = out->count();
    unsigned char *p = out->data();
    p[pos++] = static_cast<unsigned char>(code);
    if (code == TK_STRING || code == TK_CONST || code == TK_IDENT) {
        const size_t len = std::strlen(sc->token);
        std::memcpy(p + pos, sc->token, len + 1);
        pos += len + 1;
    } else if (code == TK_EOL) {
        // Exactly three characters: a fourth digit is overwritten by the next entry.
        std::snprintf(reinterpret_cast<char *>(p + pos), 16, "%03d", sc->line);
        pos += 3;
    }
    out->setCount(pos);
}

} // namespace

int AlgebraTokenize(const char *text, FILE *file, unsigned char **stream, size_t *size, char *message,
                    size_t messageSize) {
    *stream = nullptr;
    *size = 0;
    AlgebraScanner sc{0, text, file, {0}, 1};
    KvGrowArray<unsigned char> out;
    try {
        if (!text && !file) fail(SCAN_END_OF_CODE);
        if (!out.reserve(kStreamStart)) fail(SCAN_OUT_OF_MEMORY);
        out[0] = TK_START;
        out.setCount(1);
        for (;;) {
            const int code = readToken(&sc);
            appendEntry(&out, &sc, code);
            if (code == TK_END) break;
        }
    } catch (const ScanFault &f) {
        char msg[ALGEBRA_TOKEN_MAX + 96];
        std::snprintf(msg, sizeof msg, "Scan error: %s%s%s on line %d", f.withText ? sc.token : "",
                      f.withText ? " " : "", kScanErrors[f.code], sc.line);
        ReportError(msg);
        if (message && messageSize) std::snprintf(message, messageSize, "%s", msg);
        return 0;
    }
    *size = out.capacity();
    *stream = out.release();
    return 1;
}

int AlgebraStreamLine(const unsigned char *stream, const unsigned char *pos) {
    for (const unsigned char *p = pos; p > stream;) {
        --p;
        if (*p != TK_EOL) continue;
        int line = 0;
        for (const unsigned char *d = p + 1; KvIsDigit(*d); ++d) line = 10 * line + (*d - '0');
        return line;
    }
    return 1;
}
