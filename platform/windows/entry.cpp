#include "platform/entry.h"

#include <windows.h>

#include <exception>

namespace {

// Ends at once: the runtime's own abort would show a message box in a program of the GUI subsystem.
[[noreturn]] void EndAbnormally() {
  TerminateProcess(GetCurrentProcess(), 3);
  __builtin_unreachable();
}

}  // namespace

int WINAPI wWinMain(HINSTANCE, HINSTANCE, PWSTR, int) {
  // What is started from here inherits this. So the boxes for crashes stay on: those are the started program's own.
  SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX);
  std::set_terminate(EndAbnormally);
  return platform::ProgramMain();
}
