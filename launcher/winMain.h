// The program's entry, and the choice of the role that a start of the process plays.
//
//   no argument                               the resident helper
//   "...tavrix-prism-url-launch://TEXT"       a launcher: TEXT is routed, or asks the resident for a refresh
//   --url URL                                 opens the URL on this machine
//   anything else                             tells the user that nothing is associated with it
#pragma once

namespace launcher {

// Takes its arguments from the process's command line. Returns 0 on every path.
int WinMain();

}  // namespace launcher
