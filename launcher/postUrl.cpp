#include "launcher/postUrl.h"

#include "client/rdeCmdClient.h"

namespace launcher {

bool PostUrlToRdeServer(const char16_t* url) {
  client::RdeCmdClient client;
  return client.PostRedirectionRequest(client::RdeCmdClient::kOpenUrl, url) == 1;
}

}  // namespace launcher
