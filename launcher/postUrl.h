// Posting a URL to the local service that takes it to the other side of the remote session.
#pragma once

namespace launcher {

// True when the URL was handed over. Failures have their own log lines.
[[nodiscard]] bool PostUrlToRdeServer(const char16_t* url);

}  // namespace launcher
