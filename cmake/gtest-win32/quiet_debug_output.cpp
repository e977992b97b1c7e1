// GoogleTest copies every failure and skip message to the debugger with OutputDebugStringA. That
// call raises a structured exception which Wine unwinds; under a user-mode CPU emulator (the
// 32-bit Wine loader on a kernel without 32-bit support) that unwind crashes the test program.
// The messages already go to standard output, so the test programs import a do-nothing
// OutputDebugStringA instead: this definition of the import slot is found in GoogleTest's own
// archive before the linker reaches kernel32's.
namespace {
void __stdcall quietDebugOutput(const char *) {}
} // namespace

extern "C" {
void(__stdcall *kavrelQuietDebugOutput)(const char *) __asm__("__imp__OutputDebugStringA@4") = quietDebugOutput;
}
