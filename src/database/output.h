// Text output: one process-wide buffer of 16,384 bytes that collects formatted text and is
// flushed at line ends to a replaceable text-output channel (standard output by default), an
// optional copy of everything flushed into a file, and two host callbacks. One thread only.
#ifndef KAVREL_DATABASE_OUTPUT_H
#define KAVREL_DATABASE_OUTPUT_H

#include <cstddef>

extern "C" {
typedef void (*TextOutputFn)(const char *text);
typedef void (*OutputCallbackAFn)(void);
typedef int (*OutputCallbackBFn)(void);
}

enum {
    KV_OUTPUT_BUFFER_SIZE = 16384,  // bytes, terminator included
    KV_OUTPUT_FLUSH_LENGTH = 15361, // with buffering on, flush at a line end from this length on
};

// Installs the text output and the two callbacks; each null restores its default (standard
// output, nothing, nothing returning 0).
void SetOutputChannels(TextOutputFn textOutput, OutputCallbackAFn callbackA, OutputCallbackBFn callbackB);
// Buffering switch (off by default); returns the previous setting.
int SetOutputBuffering(int on);

// printf-style formatting onto the end of the buffer. A text that would fill the buffer is cut
// to 16,383 characters ending in a line feed and "IE: buffer overwrite - SWprintf()" is reported.
// A text ending in a line feed is flushed unless buffering is on and the buffer is still short.
void SWprintf(const char *format, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 1, 2)))
#endif
    ;
// Appends text to the buffer (buffering on) or flushes and prints it directly (buffering off).
void PrintText(const char *text);
// The same after converting line ends (CR LF and lone CR become LF) and other control characters
// (except tab and line feed) into blanks, so that text from files and hosts flushes by lines.
void PrintTextConverted(const char *text);
// Sends the buffer to the text output (and the output file), empties it, then calls callback A.
void FlushOutput();
// FlushOutput, then callback B; returns callback B's result (the host's answer, e.g. a break).
int FlushOutputAndPoll();
// Calls callback A alone (a host notification that something changed).
void OutputNotify();

// The buffered text not yet flushed, and its length.
const char *OutputBufferText();
size_t OutputBufferLength();
// Discards the buffered text without sending it.
void OutputClearBuffer();

// Copies everything flushed from now on into a file as well (append or truncate); 1 on success,
// 0 when the file cannot be opened. A failed write reports "An error occurred while writing to
// disk!" and closes the file. OutputCloseFile returns 0 when the final write failed.
int OutputOpenFile(const char *path, int append);
int OutputCloseFile();

#endif
