// Messages leave the library only through a replaceable sink, with the title "Error" or
// "Warning"; the library never prints on its own.
#ifndef KAVREL_DATABASE_MESSAGES_H
#define KAVREL_DATABASE_MESSAGES_H

extern "C" {
typedef void (*MessageSinkFn)(const char *title, const char *text);
}

void ReportError(const char *text);
void ReportWarning(const char *text);
// Installs the sink; null restores the default, which prints "\n%s: %s\n" to standard output.
void SetMessageSink(MessageSinkFn sink);

#endif
