// Stands in for the RPC runtime: notes what it is asked, and answers what the test says. Each call may be made to fail.
#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "platform/linkCall.h"

namespace connector {

struct RpcStandIn {
  std::vector<std::string> calls = {};                        // With their arguments.
  std::map<std::string, platform::RPC_STATUS> failures = {};  // By the name of the call.
  std::size_t texts = 0;                                      // That are handed out now,
  std::size_t bindings = 0;                                   // and bindings that there are.
  platform::LinkRequest request = {};                         // The last one; its name is gone.
  std::u16string streamName = {};
  platform::PipeHandle pipe = {};
  std::function<platform::RPC_STATUS(platform::LinkReply&)> answer = {};
};

extern RpcStandIn rpc;

}  // namespace connector
