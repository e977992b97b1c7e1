// The output buffer and its thresholds, and the default channels.
#include <cstdio>

#include "dbcapture.h"

using namespace dbtest;

namespace {

using Output = Capture;

// SWprintf of a text of x's (its last character a line feed when asked) after a prefix.
TEST_F(Output, SWprintfThresholds) {
    // flushed: length of the one flushed text (0: none); kept: length left in the buffer.
    struct Row {
        int buffering;
        size_t prefix, length;
        bool lineFeed, overwrite;
        size_t flushed, kept;
    } rows[] = {
        // clang-format off
        {0, 0, 4, true, false, 4, 0},
        {0, 10000, 6384, false, true, 16383, 0},
        {0, 10000, 6383, false, false, 0, 16383},
        {1, 15000, 361, true, false, 15361, 0},
        {1, 0, 16384, true, true, 16383, 0},
        // clang-format on
    };
    for (const Row &r : rows) {
        OutputClearBuffer();
        outputs().clear();
        SetOutputBuffering(r.buffering);
        std::string pre(r.prefix, 'p'), text(r.length - r.lineFeed, 'x');
        if (r.lineFeed) text += '\n';
        if (r.prefix) SWprintf("%s", pre.c_str());
        SWprintf("%s", text.c_str());
        SCOPED_TRACE(testing::Message() << r.buffering << " " << r.prefix << " " << r.length);
        EXPECT_EQ(takeMessages(), r.overwrite ? Strings{"Error: IE: buffer overwrite - SWprintf()"} : Strings{});
        EXPECT_EQ(outputs(), r.flushed ? Strings{(pre + text).substr(0, r.flushed - 1) + "\n"} : Strings{});
        EXPECT_EQ(std::string(OutputBufferText()).size(), r.kept);
    }
}

// Without a sink and channels, messages and text go to standard output.
TEST_F(Output, DefaultChannels) {
    SetMessageSink(nullptr), SetOutputChannels(nullptr, nullptr, nullptr);
    testing::internal::CaptureStdout();
    ReportError("Out of memory"), ReportWarning("careful"), SWprintf("%s=%d\n", "n", 3), PrintText("raw");
    std::fflush(stdout);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "\nError: Out of memory\n\nWarning: careful\nn=3\nraw");
}

} // namespace
