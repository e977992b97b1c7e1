// The message channel: a process-wide sink that is never null.
#include "database/messages.h"

#include <cstdio>

namespace {
void defaultSink(const char *title, const char *text) { std::printf("\n%s: %s\n", title, text); }

MessageSinkFn g_sink = defaultSink;
} // namespace

void ReportError(const char *text) { g_sink("Error", text ? text : ""); }
void ReportWarning(const char *text) { g_sink("Warning", text ? text : ""); }
void SetMessageSink(MessageSinkFn sink) { g_sink = sink ? sink : defaultSink; }
