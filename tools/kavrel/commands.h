// The commands of kavrel, one function each: argc/argv start at the command's own arguments
// (argv[0] is the command name). Exit status: 0 a clean run, 1 the work was done with faults (its
// results are still written), 2 bad input (a bad option, a missing or unreadable file, a program
// that does not compile), with one line on standard error naming the file or option.
#ifndef KAVREL_TOOLS_COMMANDS_H
#define KAVREL_TOOLS_COMMANDS_H

enum { EXIT_CLEAN = 0, EXIT_FAULTS = 1, EXIT_BAD_INPUT = 2 };

int RunAlgebraCommand(int argc, char **argv);
int RunRlsCommand(int argc, char **argv);
int RunNlsCommand(int argc, char **argv);
int RunGarchCommand(int argc, char **argv);
int RunProbitCommand(int argc, char **argv);
int RunLogitCommand(int argc, char **argv);
int RunMsCommand(int argc, char **argv);
int RunDemoCommand(int argc, char **argv);
int RunVarCommand(int argc, char **argv);
int RunCountCommand(int argc, char **argv);

// Routes the library's messages to standard error, one line each ("Error: text").
void SendMessagesToStderr();

#endif
