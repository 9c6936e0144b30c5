// Formats that fit their arguments, and those that do not.
#include "platform/format.h"

namespace platform {

void Formats(const char16_t* wide, const char* narrow, int number, long long large) {
  (void)Format(u"%s %S %d %lld", wide, narrow, number, large);
  (void)FormatNarrow("%s %S", narrow, wide);
  (void)Format(u"%s", narrow);     // refused
  (void)Format(u"%S", wide);       // refused
  (void)FormatNarrow("%s", wide);  // refused
  (void)Format(u"%d", wide);       // refused
  (void)Format(u"%s", number);     // refused
  (void)Format(u"%d", large);      // refused
  (void)Format(u"%lld", number);   // refused
  (void)Format(u"%d", 1.5);        // refused
  (void)Format(u"%d", true);       // refused
  (void)Format(u"%p", number);     // refused
  (void)Format(u"%d");             // refused
  (void)Format(u"none", number);   // refused
  (void)Format(u"%q", number);     // refused
  (void)Format(u"100%");           // refused
  (void)Format(wide);              // refused
}

}  // namespace platform
