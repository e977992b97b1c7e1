// The output buffer and the text channels. The buffer is a fixed array (no allocation), so that
// output works even when memory is exhausted. The thresholds: 16,384 bytes in all, cut to
// 16,383 characters on overflow, and with buffering on a flush at a line end once the text has
// reached 15,361 characters (one kilobyte of head room below the cut).
#include "database/output.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "database/messages.h"

namespace {

void defaultTextOutput(const char *text) {
    std::fputs(text, stdout);
    std::fflush(stdout);
}
void defaultCallbackA() {}
int defaultCallbackB() { return 0; }

TextOutputFn g_text = defaultTextOutput;
OutputCallbackAFn g_callbackA = defaultCallbackA;
OutputCallbackBFn g_callbackB = defaultCallbackB;

char g_buffer[KV_OUTPUT_BUFFER_SIZE];
size_t g_length = 0;
int g_buffering = 0;
std::FILE *g_file = nullptr;

void reportDiskError() { ReportError("An error occurred while writing to disk!"); }

// One piece of text to every destination.
void sendText(const char *text) {
    g_text(text);
    if (g_file) {
        bool failed = std::fputs(text, g_file) < 0 || std::fflush(g_file) != 0;
        if (failed) {
            std::fclose(g_file);
            g_file = nullptr;
            reportDiskError();
        }
    }
}

void sendBuffer() {
    if (g_length == 0) return;
    // Empty the buffer before the channel runs, so that a channel that prints again starts afresh.
    char text[KV_OUTPUT_BUFFER_SIZE];
    std::memcpy(text, g_buffer, g_length + 1);
    g_length = 0;
    g_buffer[0] = '\0';
    sendText(text);
}

void appendText(const char *text, size_t n) {
    std::memcpy(g_buffer + g_length, text, n);
    g_length += n;
    g_buffer[g_length] = '\0';
}

} // namespace

void SetOutputChannels(TextOutputFn textOutput, OutputCallbackAFn callbackA, OutputCallbackBFn callbackB) {
    g_text = textOutput ? textOutput : defaultTextOutput;
    g_callbackA = callbackA ? callbackA : defaultCallbackA;
    g_callbackB = callbackB ? callbackB : defaultCallbackB;
}

int SetOutputBuffering(int on) {
    int old = g_buffering;
    g_buffering = on ? 1 : 0;
    return old;
}

void SWprintf(const char *format, ...) {
    if (!format) return;
    const size_t room = KV_OUTPUT_BUFFER_SIZE - g_length;
    va_list ap;
    va_start(ap, format);
    int n = std::vsnprintf(g_buffer + g_length, room, format, ap);
    va_end(ap);
    if (n < 0) { // encoding error: nothing is kept
        g_buffer[g_length] = '\0';
        return;
    }
    size_t length = g_length + static_cast<size_t>(n);
    if (length >= KV_OUTPUT_BUFFER_SIZE) {
        ReportError("IE: buffer overwrite - SWprintf()");
        length = KV_OUTPUT_BUFFER_SIZE - 1;
        g_buffer[length - 1] = '\n';
        g_buffer[length] = '\0';
    }
    g_length = length;
    if (g_length > 0 && g_buffer[g_length - 1] == '\n' && !(g_buffering && g_length < KV_OUTPUT_FLUSH_LENGTH))
        FlushOutput();
}

void PrintText(const char *text) {
    if (!text || !*text) return;
    const size_t n = std::strlen(text);
    if (g_buffering && n < KV_OUTPUT_BUFFER_SIZE) {
        if (g_length + n >= KV_OUTPUT_BUFFER_SIZE) FlushOutput();
        appendText(text, n);
        if (g_length >= KV_OUTPUT_FLUSH_LENGTH && text[n - 1] == '\n') FlushOutput();
        return;
    }
    // Unbuffered (or too long for the buffer): what is pending goes first, then the text itself.
    sendBuffer();
    sendText(text);
    g_callbackA();
}

void PrintTextConverted(const char *text) {
    if (!text || !*text) return;
    // Converted in pieces through a fixed block, cut after line feeds where possible, so that no
    // allocation is needed and each piece flushes as a whole text would.
    char piece[1024];
    size_t k = 0;
    for (const char *p = text; *p; ++p) {
        char c = *p;
        if (c == '\r') {
            if (p[1] == '\n') ++p;
            c = '\n';
        } else if (static_cast<unsigned char>(c) < 0x20 && c != '\t' && c != '\n') {
            c = ' ';
        }
        piece[k++] = c;
        if (c == '\n' || k == sizeof piece - 1) {
            piece[k] = '\0';
            PrintText(piece);
            k = 0;
        }
    }
    if (k > 0) {
        piece[k] = '\0';
        PrintText(piece);
    }
}

void FlushOutput() {
    sendBuffer();
    g_callbackA();
}

int FlushOutputAndPoll() {
    FlushOutput();
    return g_callbackB();
}

void OutputNotify() { g_callbackA(); }

const char *OutputBufferText() { return g_buffer; }
size_t OutputBufferLength() { return g_length; }

void OutputClearBuffer() {
    g_length = 0;
    g_buffer[0] = '\0';
}

int OutputOpenFile(const char *path, int append) {
    if (!path || !*path) return 0;
    OutputCloseFile();
    g_file = std::fopen(path, append ? "a" : "w");
    return g_file ? 1 : 0;
}

int OutputCloseFile() {
    if (!g_file) return 1;
    int rc = std::fclose(g_file);
    g_file = nullptr;
    if (rc != 0) {
        reportDiskError();
        return 0;
    }
    return 1;
}
