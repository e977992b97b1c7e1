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

using Strings = std::vector<std::string>;
Strings g_messages; // "title|text"
Strings g_outputs;  // one entry per call of the text channel
int g_callsA = 0;

void testSink(const char *title, const char *text) { g_messages.push_back(std::string(title) + "|" + text); }
void testOutput(const char *text) { g_outputs.push_back(text); }
void testA() { ++g_callsA; }
int testB() { return 7; }

void reset() {
    g_messages.clear();
    g_outputs.clear();
    g_callsA = 0;
    SetMessageSink(testSink);
    SetOutputChannels(testOutput, testA, testB);
    SetOutputBuffering(0);
    OutputClearBuffer();
}

class Output : public ::testing::Test {
protected:
    void SetUp() override { reset(); }
    void TearDown() override {
        OutputCloseFile();
        OutputClearBuffer();
        SetOutputBuffering(0);
        SetOutputChannels(nullptr, nullptr, nullptr);
        SetMessageSink(nullptr);
    }
};

// Runs fn with standard output sent to a temporary file and returns what was written.
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

} // namespace

// SWprintf of a text of x's (its last character a line feed when asked) after a prefix.
TEST_F(Output, SWprintfThresholds) {
    struct Row {
        int buffering;
        size_t prefix, length;
        bool lineFeed, overwrite;
        size_t flushed, kept; // length of the one flushed text (0: none); length left in the buffer
    } rows[] = {
        {0, 0, 3, false, false, 0, 3},         {0, 0, 4, true, false, 4, 0},
        {0, 0, 16383, false, false, 0, 16383},
        {0, 0, 16384, true, true, 16383, 0},   {0, 0, 20000, false, true, 16383, 0},
        {0, 10000, 6384, false, true, 16383, 0}, {0, 10000, 6383, false, false, 0, 16383},
        {1, 0, 15360, true, false, 0, 15360},  {1, 0, 15361, true, false, 15361, 0},
        {1, 15000, 361, true, false, 15361, 0}, {1, 15000, 360, true, false, 0, 15360},
        {1, 0, 16000, false, false, 0, 16000}, {1, 0, 16384, true, true, 16383, 0},
    };
    for (const Row &r : rows) {
        reset();
        SetOutputBuffering(r.buffering);
        std::string pre(r.prefix, 'p'), text(r.length - r.lineFeed, 'x');
        if (r.lineFeed) text += '\n';
        if (r.prefix) SWprintf("%s", pre.c_str());
        SWprintf("%s", text.c_str());
        SCOPED_TRACE(testing::Message() << r.buffering << " " << r.prefix << " " << r.length);
        EXPECT_EQ(g_messages, r.overwrite ? Strings{"Error|IE: buffer overwrite - SWprintf()"} : Strings{});
        EXPECT_EQ(g_outputs, r.flushed ? Strings{(pre + text).substr(0, r.flushed - 1) + "\n"} : Strings{});
        EXPECT_EQ(OutputBufferLength(), r.kept);
        EXPECT_EQ(std::string(OutputBufferText()).size(), r.kept);
    }
    reset();
    SWprintf(nullptr);
    SWprintf("%d %5.2f %s\n", 42, 3.14159, "end");
    EXPECT_EQ(g_outputs, Strings{"42  3.14 end\n"});
}

TEST_F(Output, PrintTextBufferedAndDirect) {
    // Unbuffered: the pending text goes first, then the new text as a piece of its own.
    SWprintf("pending");
    PrintText("direct");
    PrintText("");
    PrintText(nullptr);
    EXPECT_EQ(g_outputs, (Strings{"pending", "direct"}));
    // Buffered: appended; flushed first when it does not fit; flushed at a line end from 15,361;
    // a text too long for the buffer is printed directly.
    reset();
    SetOutputBuffering(1);
    const std::string a = "a\n" + std::string(15000, 'b'), c(1382, 'c'), d(15361 - 1383, 'd'), h(16384, 'h');
    PrintText(a.c_str());
    PrintText(c.c_str()); // 15,002 + 1,382 = 16,384: cannot be taken
    PrintText(d.c_str());
    EXPECT_EQ(OutputBufferLength(), 15360u);
    PrintText("\n");
    PrintText("x");
    PrintText(h.c_str());
    EXPECT_EQ(g_outputs, (Strings{a, c + d + "\n", "x", h}));
    // Converted: CR LF and lone CR become LF, other control characters blanks; long lines are
    // sent in pieces that join to the converted text.
    reset();
    const std::string longLine(3000, 'z');
    PrintTextConverted(("a\r\nb\rc\x01\x7f" "d\te" + longLine + "\r\n").c_str());
    std::string joined;
    for (size_t i = 2; i < g_outputs.size(); ++i) joined += g_outputs[i];
    ASSERT_GE(g_outputs.size(), 3u);
    EXPECT_EQ(g_outputs[0] + g_outputs[1], "a\nb\n");
    EXPECT_EQ(joined, "c \x7f" "d\te" + longLine + "\n");
}

TEST_F(Output, CallbacksAndDefaultChannels) {
    SWprintf("x");
    EXPECT_EQ(FlushOutputAndPoll(), 7);
    FlushOutput(); // nothing pending: no text, but callback A still runs
    OutputNotify();
    EXPECT_EQ(g_outputs, Strings{"x"});
    EXPECT_EQ(g_callsA, 3);
    SetOutputChannels(testOutput, nullptr, nullptr);
    EXPECT_EQ(FlushOutputAndPoll(), 0);
    EXPECT_EQ(g_callsA, 3);

    ReportError("bad");
    ReportWarning("odd");
    ReportError(nullptr);
    EXPECT_EQ(g_messages, (Strings{"Error|bad", "Warning|odd", "Error|"}));
    SetMessageSink(nullptr);
    SetOutputChannels(nullptr, nullptr, nullptr);
    std::string printed = captureStdout([] {
        ReportError("Out of memory");
        ReportWarning("careful");
        SWprintf("%s=%d\n", "n", 3);
        PrintText("raw");
    });
    EXPECT_EQ(printed, "\nError: Out of memory\n\nWarning: careful\nn=3\nraw");
}

TEST_F(Output, OutputFile) {
    char path[] = "/tmp/kv_output_XXXXXX";
    int fd = mkstemp(path);
    ASSERT_GE(fd, 0);
    close(fd);
    ASSERT_EQ(OutputOpenFile(path, 0), 1);
    SWprintf("line %d\n", 1);
    EXPECT_EQ(OutputCloseFile(), 1);
    ASSERT_EQ(OutputOpenFile(path, 1), 1); // append
    PrintText("two\n");
    EXPECT_EQ(OutputCloseFile(), 1);
    std::FILE *f = std::fopen(path, "r");
    ASSERT_NE(f, nullptr);
    char text[64] = {0};
    size_t n = std::fread(text, 1, sizeof text - 1, f);
    std::fclose(f);
    std::remove(path);
    EXPECT_EQ(std::string(text, n), "line 1\ntwo\n");
    EXPECT_EQ(OutputOpenFile("/nonexistent-dir/x/out.txt", 0), 0);
    EXPECT_EQ(OutputOpenFile(nullptr, 0), 0);
    EXPECT_TRUE(g_messages.empty());
    // A failing write is reported once, the file is closed and the text channel goes on.
    if (access("/dev/full", W_OK) != 0) GTEST_SKIP() << "no /dev/full";
    ASSERT_EQ(OutputOpenFile("/dev/full", 0), 1);
    PrintText("lost\n");
    PrintText("shown\n");
    EXPECT_EQ(g_messages, Strings{"Error|An error occurred while writing to disk!"});
    EXPECT_EQ(g_outputs, (Strings{"line 1\n", "two\n", "lost\n", "shown\n"}));
}
