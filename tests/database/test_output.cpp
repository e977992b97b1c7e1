// The message sink, the output buffer and its thresholds, the text channels and the output
// file. Every test installs its own sink and channels and restores the defaults afterwards.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include <unistd.h>

#include "database/messages.h"
#include "database/output.h"

namespace {

std::vector<std::string> g_messages; // "title|text"
std::vector<std::string> g_outputs;  // one entry per call of the text channel
int g_callsA = 0;
int g_answerB = 0;

void testSink(const char *title, const char *text) { g_messages.push_back(std::string(title) + "|" + text); }
void testOutput(const char *text) { g_outputs.push_back(text); }
void testA() { ++g_callsA; }
int testB() { return g_answerB; }

class Output : public ::testing::Test {
protected:
    void SetUp() override {
        g_messages.clear();
        g_outputs.clear();
        g_callsA = 0;
        g_answerB = 0;
        SetMessageSink(testSink);
        SetOutputChannels(testOutput, testA, testB);
        SetOutputBuffering(0);
        OutputClearBuffer();
    }
    void TearDown() override {
        OutputCloseFile();
        OutputClearBuffer();
        SetOutputBuffering(0);
        SetOutputChannels(nullptr, nullptr, nullptr);
        SetMessageSink(nullptr);
    }
};

// Runs fn with standard output sent to a file and returns what was written.
template <class Fn> std::string captureStdout(Fn fn) {
    std::fflush(stdout);
    std::FILE *tmp = std::tmpfile();
    int saved = dup(fileno(stdout));
    dup2(fileno(tmp), fileno(stdout));
    fn();
    std::fflush(stdout);
    dup2(saved, fileno(stdout));
    close(saved);
    std::rewind(tmp);
    std::string text;
    for (int c; (c = std::fgetc(tmp)) != EOF;) text.push_back(static_cast<char>(c));
    std::fclose(tmp);
    return text;
}

const std::string kOverwrite = "Error|IE: buffer overwrite - SWprintf()";

} // namespace

// SWprintf of one text of a given length (x's, then optionally a line feed), after a prefix.
TEST_F(Output, SWprintfThresholds) {
    struct Row {
        int buffering;
        size_t prefix;    // characters already in the buffer (no line feed)
        size_t length;    // length of the new text, line feed included
        bool lineFeed;
        bool overwrite;   // the error is reported
        size_t flushed;   // length of the one flushed text (0: nothing flushed)
        size_t kept;      // length left in the buffer
    } rows[] = {
        {0, 0, 3, false, false, 0, 3},
        {0, 0, 4, true, false, 4, 0},
        {0, 0, 16383, true, false, 16383, 0},
        {0, 0, 16383, false, false, 0, 16383},
        {0, 0, 16384, true, true, 16383, 0},      // exactly the buffer: cut, then flushed
        {0, 0, 20000, false, true, 16383, 0},     // the cut always ends in a line feed
        {0, 10000, 6384, false, true, 16383, 0},  // across two calls
        {0, 10000, 6383, false, false, 0, 16383},
        {1, 0, 15360, true, false, 0, 15360},     // buffering: short text stays
        {1, 0, 15361, true, false, 15361, 0},
        {1, 15000, 361, true, false, 15361, 0},
        {1, 15000, 360, true, false, 0, 15360},
        {1, 0, 16000, false, false, 0, 16000},
        {1, 0, 16384, true, true, 16383, 0},
    };
    for (const Row &r : rows) {
        SetUp();
        SetOutputBuffering(r.buffering);
        std::string pre(r.prefix, 'p');
        if (r.prefix) SWprintf("%s", pre.c_str());
        std::string text(r.length - (r.lineFeed ? 1 : 0), 'x');
        if (r.lineFeed) text += '\n';
        SWprintf("%s", text.c_str());
        SCOPED_TRACE(testing::Message() << "buffering " << r.buffering << " prefix " << r.prefix << " length "
                                        << r.length);
        EXPECT_EQ(g_messages.size(), r.overwrite ? 1u : 0u);
        if (r.overwrite && !g_messages.empty()) {
            EXPECT_EQ(g_messages[0], kOverwrite);
        }
        if (r.flushed) {
            ASSERT_EQ(g_outputs.size(), 1u);
            EXPECT_EQ(g_outputs[0].size(), r.flushed);
            EXPECT_EQ(g_outputs[0].back(), '\n');
            EXPECT_EQ(g_outputs[0], (pre + text).substr(0, r.flushed - 1) + "\n");
        } else {
            EXPECT_TRUE(g_outputs.empty());
        }
        EXPECT_EQ(OutputBufferLength(), r.kept);
        EXPECT_EQ(std::string(OutputBufferText()).size(), r.kept);
    }
}

TEST_F(Output, SWprintfFormatsAndIgnoresNull) {
    SWprintf(nullptr);
    EXPECT_EQ(OutputBufferLength(), 0u);
    SWprintf("%d %5.2f %s", 42, 3.14159, "end");
    EXPECT_STREQ(OutputBufferText(), "42  3.14 end");
    SWprintf("%c", '\n');
    ASSERT_EQ(g_outputs.size(), 1u);
    EXPECT_EQ(g_outputs[0], "42  3.14 end\n");
    EXPECT_EQ(g_callsA, 1);
}

TEST_F(Output, PrintTextBufferedAndDirect) {
    // Unbuffered: the pending text goes first, then the new text as a separate piece.
    SWprintf("pending");
    PrintText("direct");
    ASSERT_EQ(g_outputs.size(), 2u);
    EXPECT_EQ(g_outputs[0], "pending");
    EXPECT_EQ(g_outputs[1], "direct");
    EXPECT_EQ(OutputBufferLength(), 0u);
    PrintText("");
    PrintText(nullptr);
    EXPECT_EQ(g_outputs.size(), 2u);

    // Buffered: appended; flushed first when it does not fit; flushed at a line end from 15,361.
    SetUp();
    SetOutputBuffering(1);
    PrintText("a\n");
    EXPECT_TRUE(g_outputs.empty());
    std::string big(15000, 'b');
    PrintText(big.c_str());
    EXPECT_EQ(OutputBufferLength(), 15002u);
    std::string more(1382, 'c'); // 15002 + 1382 = 16384: cannot be taken
    PrintText(more.c_str());
    ASSERT_EQ(g_outputs.size(), 1u);
    EXPECT_EQ(g_outputs[0].size(), 15002u);
    EXPECT_EQ(OutputBufferLength(), 1382u);
    std::string fill(15361 - 1382 - 1, 'd');
    PrintText(fill.c_str());
    PrintText("\n"); // reaches 15,361 with a line feed
    ASSERT_EQ(g_outputs.size(), 2u);
    EXPECT_EQ(g_outputs[1].size(), 15361u);
    EXPECT_EQ(OutputBufferLength(), 0u);

    // Too long for the buffer even when buffering: printed directly.
    std::string huge(16384, 'h');
    PrintText("x");
    PrintText(huge.c_str());
    ASSERT_EQ(g_outputs.size(), 4u);
    EXPECT_EQ(g_outputs[2], "x");
    EXPECT_EQ(g_outputs[3].size(), 16384u);
    EXPECT_TRUE(g_messages.empty());
}

TEST_F(Output, PrintTextConvertedLineEnds) {
    PrintTextConverted("a\r\nb\rc\x01\x7f" "d\te");
    std::vector<std::string> want = {"a\n", "b\n", "c \x7f" "d\te"};
    EXPECT_EQ(g_outputs, want);
    // Long lines go out in pieces that join to the converted text.
    SetUp();
    std::string line(3000, 'z');
    line += "\r\n";
    PrintTextConverted(line.c_str());
    std::string joined;
    for (const std::string &s : g_outputs) joined += s;
    EXPECT_EQ(joined, std::string(3000, 'z') + "\n");
}

TEST_F(Output, CallbacksAfterFlush) {
    g_answerB = 7;
    SWprintf("x");
    EXPECT_EQ(FlushOutputAndPoll(), 7);
    EXPECT_EQ(g_callsA, 1);
    FlushOutput(); // nothing pending: no text, but the callback still runs
    EXPECT_EQ(g_outputs.size(), 1u);
    EXPECT_EQ(g_callsA, 2);
    OutputNotify();
    EXPECT_EQ(g_callsA, 3);
    SetOutputChannels(testOutput, nullptr, nullptr); // defaults: nothing, 0
    EXPECT_EQ(FlushOutputAndPoll(), 0);
    EXPECT_EQ(g_callsA, 3);
}

TEST_F(Output, MessagesAndDefaultChannels) {
    ReportError("bad thing");
    ReportWarning("odd thing");
    ReportError(nullptr);
    std::vector<std::string> want = {"Error|bad thing", "Warning|odd thing", "Error|"};
    EXPECT_EQ(g_messages, want);

    SetMessageSink(nullptr);
    std::string printed = captureStdout([] {
        ReportError("Out of memory");
        ReportWarning("careful");
    });
    EXPECT_EQ(printed, "\nError: Out of memory\n\nWarning: careful\n");

    SetOutputChannels(nullptr, nullptr, nullptr);
    printed = captureStdout([] {
        SWprintf("%s=%d\n", "n", 3);
        PrintText("raw");
    });
    EXPECT_EQ(printed, "n=3\nraw");
}

TEST_F(Output, OutputFile) {
    char path[] = "/tmp/kv_output_XXXXXX";
    int fd = mkstemp(path);
    ASSERT_GE(fd, 0);
    close(fd);
    ASSERT_EQ(OutputOpenFile(path, 0), 1);
    SWprintf("line %d\n", 1);
    PrintText("two\n");
    EXPECT_EQ(OutputCloseFile(), 1);
    ASSERT_EQ(OutputOpenFile(path, 1), 1);
    PrintText("three\n");
    EXPECT_EQ(OutputCloseFile(), 1);
    std::FILE *f = std::fopen(path, "r");
    ASSERT_NE(f, nullptr);
    char text[64] = {0};
    size_t n = std::fread(text, 1, sizeof text - 1, f);
    std::fclose(f);
    std::remove(path);
    EXPECT_EQ(std::string(text, n), "line 1\ntwo\nthree\n");
    EXPECT_TRUE(g_messages.empty());

    EXPECT_EQ(OutputOpenFile("/nonexistent-dir/x/out.txt", 0), 0);
    EXPECT_EQ(OutputOpenFile(nullptr, 0), 0);
}

TEST_F(Output, OutputFileWriteFailure) {
    if (access("/dev/full", W_OK) != 0) GTEST_SKIP() << "no /dev/full";
    ASSERT_EQ(OutputOpenFile("/dev/full", 0), 1);
    PrintText("lost\n");
    PrintText("still shown\n"); // the file was closed after the failure: reported once
    std::vector<std::string> want = {"Error|An error occurred while writing to disk!"};
    EXPECT_EQ(g_messages, want);
    ASSERT_EQ(g_outputs.size(), 2u);
    EXPECT_EQ(g_outputs[1], "still shown\n");
}
