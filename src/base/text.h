// ASCII character classes and case-insensitive comparison. They ignore the C locale on purpose:
// names, keywords and data files mean the same on every machine, and bytes of 0x80 and above
// (parts of double-byte characters) are never letters, digits or blanks here.
#ifndef KAVREL_BASE_TEXT_H
#define KAVREL_BASE_TEXT_H

inline bool KvIsDigit(int c) { return c >= '0' && c <= '9'; }
inline bool KvIsUpper(int c) { return c >= 'A' && c <= 'Z'; }
inline bool KvIsLower(int c) { return c >= 'a' && c <= 'z'; }
inline bool KvIsAlpha(int c) { return KvIsUpper(c) || KvIsLower(c); }
inline bool KvIsAlnum(int c) { return KvIsAlpha(c) || KvIsDigit(c); }
// Blank: space or tab. Space: a blank or a line, page or carriage-return character.
inline bool KvIsBlank(int c) { return c == ' ' || c == '\t'; }
inline bool KvIsSpace(int c) { return KvIsBlank(c) || c == '\n' || c == '\r' || c == '\v' || c == '\f'; }
inline int KvToLower(int c) { return KvIsUpper(c) ? c + ('a' - 'A') : c; }
inline int KvToUpper(int c) { return KvIsLower(c) ? c - ('a' - 'A') : c; }

// <0, 0 or >0 as a compares to b with ASCII letters folded to lower case (bytes compared unsigned).
int KvCompareNoCase(const char *a, const char *b);
// The same over at most n bytes.
int KvCompareNoCaseN(const char *a, const char *b, long n);
inline bool KvEqualNoCase(const char *a, const char *b) { return KvCompareNoCase(a, b) == 0; }

#endif
