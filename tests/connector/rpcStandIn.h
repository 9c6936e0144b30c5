// Stands in for the RPC runtime: notes what it is asked, and answers what the test says. Each call may be made to fail.
#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "platform/linkCall.h"

namespace connector {

struct RpcStandIn {
  std::vector<std::string> calls = {};                        // With their arguments.
  std::map<std::string, platform::RPC_STATUS> failures = {};  // By the name of the call.
  std::size_t texts = 0;                                      // That are handed out and not freed,
  std::size_t bindings = 0;                                   // and bindings that there are.
  platform::LinkRequest request = {};                         // The last one; its name is gone.
  std::u16string streamName = {};
  platform::PipeHandle pipe = {};
  std::function<platform::RPC_STATUS(platform::LinkReply&)> answer = {};
  std::vector<std::unique_ptr<char16_t[]>> memory = {};  // Of all texts, as one of them is meant to stay.
};

extern RpcStandIn rpc;

}  // namespace connector
