// Decides what becomes of the text behind the launch prefix.
//
//   machine   text                    rules   what happens
//   Agent     "apppathrd/path=" ...   pass    posted to rdeServer
//   Agent     "apppathrd/path=" ...   fail    dropped
//   Agent     anything else           -       posted to rdeServer
//   Client    "apppathrd/path=" ...   pass    the remote client is started through the resident helper
//   Client    "apppathrd/path=" ...   fail    dropped
//   Client    anything else           -       dropped
//
// All of it runs on the main thread of a launcher. The names follow the direction of travel.
#pragma once

#include <string>

namespace launcher {

// The entry on a Client machine, with the text as it stood on the command line.
bool SendMessageToRedirectAppPathToAgent(const std::u16string& text);
// The entry on an Agent machine, with the text after GetDecodedUrl. True when the URL was posted.
bool SendMessageToRedirectUriToClient(const std::u16string& url);
// True when the request, prefix included, passed the rules; on a Client machine the remote client has then been asked
// for. `text` may be null.
bool RedirectAppPath(const char16_t* text);

}  // namespace launcher
