// The Algebra scanner: source text (in memory or from an open file) into the compact token stream
// the parser walks. The stream is one byte buffer: code 1, then per token its code byte, followed
// for strings, identifiers and constants by the token's text and a terminator, and for a line end
// by the new line number in exactly three characters ("%03d"; a fourth digit is overwritten by
// the next entry, which the line lookup reads back as it stands); the last entry is code 2.
#ifndef KAVREL_ALGEBRA_SCANNER_H
#define KAVREL_ALGEBRA_SCANNER_H

#include <cstddef>
#include <cstdio>

// Token codes: single bytes; punctuation is its own character.
enum {
    TK_START = 1,
    TK_END = 2,
    TK_EOL = 127,
    TK_STRING = '"',
    TK_IDENT = 'I',
    TK_CONST = 'C',
    TK_FALSE = 'F',
    TK_TRUE = 'T',
    TK_FREQUENCY = 'f',
    TK_MISSING = 'M',
    TK_PI = 'P',
    TK_NOBS = '#',
    TK_NE = 'N',
    TK_LE = 'L',
    TK_EQ = 'E',
    TK_GE = 'G',
    TK_AND = '&',
    TK_OR = '|',
    TK_PARAM = '@'
};

enum { ALGEBRA_TOKEN_MAX = 256 };

// Scanner state, one per tokenization.
struct AlgebraScanner {
    int pushback;     // one character pushed back; 0 when empty
    const char *text; // source text, or null
    FILE *file;       // read when text is null
    char token[ALGEBRA_TOKEN_MAX + 1];
    int line; // from 1
};

// Builds the token stream of a whole program from text, or from file when text is null. 1 with
// *stream (to be freed with KvFree) and *size its allocated bytes; 0 after a scan error, which
// has been reported ("Scan error: ..." through ReportError), with nothing allocated. Neither text
// nor file: "Unexpected end of code". The error's text also goes into message (messageSize bytes,
// terminated) when one is given: the compiler keeps it as its last message.
int AlgebraTokenize(const char *text, FILE *file, unsigned char **stream, size_t *size, char *message = nullptr,
                    size_t messageSize = 0);

// The line of the token at pos: the number after the nearest line-end entry before pos, 1 when
// there is none. The parser's messages use the same rule.
int AlgebraStreamLine(const unsigned char *stream, const unsigned char *pos);

#endif
