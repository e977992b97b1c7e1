// The Algebra scanner: the token stream, every token kind in a readable rendering,
// every scan error with its message and line, the growth of the stream buffer, the line-number
// quirk past line 999, programs read from a file, and allocation failures.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "algebra/scanner.h"
#include "base/alloc.h"
#include "common/fault.h"
#include "database/messages.h"

namespace {

std::vector<std::string> &messages() {
    static std::vector<std::string> m;
    return m;
}

void capture(const char *title, const char *text) { messages().push_back(std::string(title) + ": " + text); }

// The stream as text: "I:x", "C:1.5", "S:text", "L:002" (a line end and the number after it),
// single-character codes as themselves, "^" and "$" for start and end.
std::string render(const unsigned char *s) {
    std::string out;
    for (const unsigned char *p = s;;) {
        const int code = *p++;
        if (!out.empty()) out += ' ';
        if (code == TK_START) {
            out += '^';
        } else if (code == TK_END) {
            out += '$';
            return out;
        } else if (code == TK_STRING || code == TK_CONST || code == TK_IDENT) {
            out += std::string(1, code == TK_STRING ? 'S' : static_cast<char>(code)) + ":" +
                   reinterpret_cast<const char *>(p);
            p += std::strlen(reinterpret_cast<const char *>(p)) + 1;
        } else if (code == TK_EOL) {
            out += "L:" + std::string(reinterpret_cast<const char *>(p), 3);
            p += 3;
        } else {
            out += static_cast<char>(code);
        }
    }
}

class Scanner : public ::testing::Test {
protected:
    void SetUp() override {
        messages().clear();
        SetMessageSink(capture);
    }
    void TearDown() override { SetMessageSink(nullptr); }
    // The rendered stream, or the message of a scan error.
    static std::string scan(const char *text) {
        unsigned char *stream = nullptr;
        size_t size = 0;
        if (!AlgebraTokenize(text, nullptr, &stream, &size)) return messages().empty() ? "?" : messages().back();
        std::string r = render(stream);
        KvFree(stream);
        return r;
    }
};

TEST_F(Scanner, TokensOfEveryKind) {
    const struct {
        const char *text, *want;
    } rows[] = {
        // clang-format off
        {"", "^ $"},
        {"y = x[-1] * 2 + FREQUENCY;", "^ I:y = I:x [ - C:1 ] * C:2 + f ; $"},
        {"true TRUE False missing Pi nobs frequency", "^ T T F M P # f $"},
        {"a != b <= c == d >= e < f > g ! h", "^ I:a N I:b L I:c E I:d G I:e < I:f > I:g ! I:h $"},
        {"a && b || c & d", "^ I:a & I:b | I:c @ I:d $"},
        {"&2 = 0.5;", "^ @ C:2 = C:0.5 ; $"},
        {".5 1.e5 1.5e3 1.5E+3 2.5d-2 3. 12", "^ C:.5 C:1.e5 C:1.5e3 C:1.5E+3 C:2.5d-2 C:3. C:12 $"},
        {"x_1 _a b2", "^ I:x_1 I:_a I:b2 $"},
        {"\"a b, c\" \"\"", "^ S:a b, c S: $"},
        {"f(x, {y}) ? a : b", "^ I:f ( I:x , { I:y } ) ? I:a : I:b $"},
        // comments: a block comment counts its line ends, a line comment ends in its line end
        {"a /* one\ntwo\n */ b // rest\nc", "^ I:a I:b L:004 I:c $"},
        {"a // no line end at the end", "^ I:a $"},
        {"a\r\n\tb", "^ I:a L:002 I:b $"},
        // clang-format on
    };
    for (const auto &r : rows) EXPECT_EQ(scan(r.text), r.want) << r.text;
}

TEST_F(Scanner, ErrorsWithTheirMessageAndLine) {
    const std::string longString = "\"" + std::string(256, 'a') + "\"";
    const struct {
        std::string text;
        const char *want;
    } rows[] = {
        {"x = 1e5;", "Error: Scan error: 1e5 Unrecognized on line 1"},
        {"x = 1;\n\ny = $;", "Error: Scan error: $ Unrecognized on line 3"},
        {"a | b", "Error: Scan error: | Missing on line 1"},
        {"s = \"ab", "Error: Scan error: Unexpected end of code on line 1"},
        {"s = \"a\nb\";", "Error: Scan error: End of string missing on line 1"},
        {longString, "Error: Scan error: Token too long on line 1"},
    };
    for (const auto &r : rows) {
        EXPECT_EQ(scan(r.text.c_str()), r.want) << r.text;
        EXPECT_EQ(messages().size(), 1u) << r.text;
        messages().clear();
    }
    unsigned char *stream = reinterpret_cast<unsigned char *>(1);
    size_t size = 7;
    EXPECT_EQ(AlgebraTokenize(nullptr, nullptr, &stream, &size), 0);
    EXPECT_EQ(stream, nullptr);
    EXPECT_EQ(messages().back(), "Error: Scan error: Unexpected end of code on line 1");
}

// A program of 1,200 lines: the stream grows as it fills; past line 999 the line number's fourth digit is overwritten
// by the next entry, and the line lookup reads the three digits that remain.
TEST_F(Scanner, GrowthAndLinesPastNineHundredNinetyNine) {
    std::string text;
    for (int i = 0; i < 1200; ++i) text += "value_" + std::to_string(i) + " = 1;\n";
    unsigned char *stream = nullptr;
    size_t size = 0;
    ASSERT_EQ(AlgebraTokenize(text.c_str(), nullptr, &stream, &size), 1);
    const std::string r = render(stream);
    EXPECT_NE(r.find("L:999 I:value_998"), std::string::npos);
    EXPECT_NE(r.find("L:100 I:value_999"), std::string::npos); // "1000" cut by the code byte 'I'
    const unsigned char *last = stream;
    for (const unsigned char *p = stream; *p != TK_END; ++p)
        if (*p == TK_IDENT && std::strncmp(reinterpret_cast<const char *>(p + 1), "value_1199", 10) == 0) last = p;
    EXPECT_EQ(AlgebraStreamLine(stream, last), 120); // "1200" read back as 120
    EXPECT_EQ(AlgebraStreamLine(stream, stream + 3), 1);
    KvFree(stream);
}

TEST_F(Scanner, FileGivesTheStreamOfTheText) {
    const char text[] = "/* model */\ny = &0 + &1 * x; // fit\n";
    std::FILE *f = std::tmpfile();
    ASSERT_NE(f, nullptr);
    std::fputs(text, f);
    std::rewind(f);
    unsigned char *fromFile = nullptr, *fromText = nullptr;
    size_t a = 0, b = 0;
    ASSERT_EQ(AlgebraTokenize(nullptr, f, &fromFile, &a), 1);
    ASSERT_EQ(AlgebraTokenize(text, nullptr, &fromText, &b), 1);
    EXPECT_EQ(render(fromFile), render(fromText));
    KvFree(fromFile);
    KvFree(fromText);
    std::fclose(f);
}

TEST_F(Scanner, AllocationFailures) {
    // Long enough to grow the stream twice: the first allocation and both growths can fail.
    std::string text;
    for (int i = 0; i < 1500; ++i) text += "a = b;\n";
    const long made = ForEachLibraryAllocationFailure([&](long n) {
        messages().clear();
        unsigned char *stream = nullptr;
        size_t size = 0;
        const int ok = AlgebraTokenize(text.c_str(), nullptr, &stream, &size);
        if (KvAllocCount() >= n) {
            EXPECT_EQ(ok, 0) << n;
            EXPECT_EQ(stream, nullptr) << n;
            ASSERT_EQ(messages().size(), 1u) << n;
            EXPECT_EQ(messages()[0].rfind("Error: Scan error: Out of heap memory on line ", 0), 0u) << messages()[0];
        }
        KvFree(stream);
    });
    EXPECT_EQ(made, 3);
}

} // namespace
