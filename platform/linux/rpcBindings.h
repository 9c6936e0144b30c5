// The bindings of this process: each leads to one endpoint of the machine.
#pragma once

#include <memory>
#include <string>

#include "platform/linux/handleTable.h"
#include "platform/rpc.h"

namespace platform {

class RpcBinding final : public KernelObject {
 public:
  explicit RpcBinding(std::u16string endpoint) noexcept : endpoint_(std::move(endpoint)) {}
  [[nodiscard]] const char* KindName() const noexcept override { return "RpcBinding"; }
  [[nodiscard]] const std::u16string& Endpoint() const noexcept { return endpoint_; }

  GUID object{};
  bool authenticated = false;

 private:
  const std::u16string endpoint_;
};

// Null when the value is that of no binding.
[[nodiscard]] std::shared_ptr<RpcBinding> FindBinding(RPC_BINDING_HANDLE binding) noexcept;

// The status for a call that the tests make fail.
[[nodiscard]] inline RPC_STATUS InjectedRpcStatus() noexcept { return static_cast<RPC_STATUS>(GetLastError()); }

}  // namespace platform
