// Log calls and traces whose format fits their arguments, and those where it does not.
#include "lib/ipc/ipclib/ipclibStatus.h"
#include "lib/ipc/ipclib/ipclibTrace.h"
#include "runtime/logCalls.h"

namespace runtime {

void LogCalls(const char16_t* wide, const char* narrow, int number, long long large) {
  Log("F()", 1, "%s %S %d %lld", narrow, wide, number, large);
  LogLastError("F()", 1, "%d", number);
  LogIfWanted("F()", 1, "%d", number);
  Log("F()", 1, "%s", number);           // refused
  Log("F()", 1, "%d", large);            // refused
  Log("F()", 1, "%d");                   // refused
  Log("F()", 1, "none", number);         // refused
  LogLastError("F()", 1, "%S", narrow);  // refused
  LogIfWanted("F()", 1, "%d", narrow);   // refused
  Log("F()", 1, narrow);                 // refused
}

}  // namespace runtime

namespace quill::ipc {

struct Plain {};

void Traces(const char16_t* wide, const char* narrow, int number) {
  Trace(TraceChannel::Lib, "{} {:#x} {{}}", LmIpcStatusCode::Success, number);
  Trace(TraceChannel::Lib, "none");
  Trace(TraceChannel::Lib, "{}");                               // refused
  Trace(TraceChannel::Lib, "none", number);                     // refused
  Trace(TraceChannel::Lib, "{} {}", number);                    // refused
  Trace(TraceChannel::Lib, "{:#x}", narrow);                    // refused
  Trace(TraceChannel::Lib, "{:#x}", LmIpcStatusCode::Success);  // refused
  Trace(TraceChannel::Lib, "{:d}", number);                     // refused
  Trace(TraceChannel::Lib, "{", number);                        // refused
  Trace(TraceChannel::Lib, "{}}", number);                      // refused
  Trace(TraceChannel::Lib, "{}", Plain{});                      // refused
  Trace(TraceChannel::Lib, "{}", wide);                         // refused
  Trace(TraceChannel::Lib, narrow);                             // refused
}

}  // namespace quill::ipc
