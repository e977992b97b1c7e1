// Arbitrary bytes as Algebra program text through the scanner, from memory and (every other
// input) from a file, with one library allocation failing at a point chosen by the input. A
// stream that comes back must be complete: walked entry by entry to its end code.
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <vector>

#include "algebra/scanner.h"
#include "base/alloc.h"
#include "database/messages.h"

namespace {

void quiet(const char *, const char *) {}

void walk(const unsigned char *s, size_t size) {
    size_t i = 1;
    while (i < size && s[i] != TK_END) {
        const int code = s[i++];
        if (code == TK_STRING || code == TK_CONST || code == TK_IDENT)
            i += std::strlen(reinterpret_cast<const char *>(s + i)) + 1;
        else if (code == TK_EOL)
            i += 3;
    }
    if (i >= size) __builtin_trap(); // no end code inside the buffer
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 1) return 0;
    SetMessageSink(quiet);
    const bool fromFile = data[0] & 1;
    const long failAt = data[0] >> 5; // 0 (none) .. 7
    std::vector<char> text(data + 1, data + size);
    text.push_back('\0');
    std::FILE *f = nullptr;
    if (fromFile) {
        f = std::tmpfile();
        if (!f) return 0;
        std::fwrite(data + 1, 1, size - 1, f);
        std::rewind(f);
    }
    unsigned char *stream = nullptr;
    size_t streamSize = 0;
    KvAllocFailAt(failAt);
    const int ok = AlgebraTokenize(fromFile ? nullptr : text.data(), f, &stream, &streamSize);
    KvAllocFailAt(0);
    if (ok) walk(stream, streamSize);
    KvFree(stream);
    if (f) std::fclose(f);
    return 0;
}
