#include "tests/connector/rpcStandIn.h"

#include <fmt/format.h>

#include <algorithm>
#include <string_view>
#include <utility>

#include "lib/ipc/ipclib/guidText.h"
#include "tests/support/machine.h"

namespace connector {

RpcStandIn rpc;

namespace {

using namespace platform;

// The status that the call ends with.
RPC_STATUS Note(const std::string& name, const std::string& arguments = {}) {
  rpc.calls.push_back(arguments.empty() ? name : name + ": " + arguments);
  const auto failure = rpc.failures.find(name);
  return failure != rpc.failures.end() ? failure->second : RPC_S_OK;
}

std::string Narrow(const char16_t* text) { return text != nullptr ? support::Narrow(text) : "null"; }

char16_t* HandOut(std::u16string_view text) {
  ++rpc.texts;
  char16_t* const copy = rpc.memory.emplace_back(std::make_unique<char16_t[]>(text.size() + 1)).get();
  *std::ranges::copy(text, copy).out = u'\0';
  return copy;
}

RPC_STATUS Call(const char* name, const LinkRequest& request, PipeHandle pipe, LinkReply& reply) {
  const RPC_STATUS status = Note(name);
  rpc.request = request;
  rpc.streamName = request.streamName;
  rpc.pipe = pipe;
  return status == RPC_S_OK && rpc.answer ? rpc.answer(reply) : status;
}

}  // namespace
}  // namespace connector

namespace platform {

using connector::rpc;

int StringFromGUID2(const GUID& id, char16_t* text, int size) noexcept {
  if (connector::Note("StringFromGUID2", fmt::format("{}, {} units", id, size)) != RPC_S_OK) return 0;
  const std::string narrow = fmt::format("{}", id);
  *std::ranges::copy(narrow, text).out = u'\0';
  return static_cast<int>(narrow.size() + 1);
}

RPC_STATUS RpcStringFreeW(char16_t** text) noexcept {
  if (*text != nullptr) {
    static_cast<void>(connector::Note("RpcStringFreeW"));
    --rpc.texts;
  }
  *text = nullptr;
  return RPC_S_OK;
}

RPC_STATUS RpcStringBindingComposeW(std::nullptr_t, const char16_t* protocol, std::nullptr_t, const char16_t* endpoint,
                                    const char16_t* options, char16_t** text) noexcept {
  const RPC_STATUS status =
      connector::Note("RpcStringBindingComposeW", connector::Narrow(protocol) + ", " + connector::Narrow(endpoint) +
                                                      ", " + connector::Narrow(options));
  if (status == RPC_S_OK) *text = connector::HandOut(u"the binding's text");
  return status;
}

RPC_STATUS RpcBindingFromStringBindingW(const char16_t* text, RPC_BINDING_HANDLE* binding) noexcept {
  const RPC_STATUS status = connector::Note("RpcBindingFromStringBindingW", connector::Narrow(text));
  if (status == RPC_S_OK) {
    *binding = RPC_BINDING_HANDLE(0xB1);
    ++rpc.bindings;
  }
  return status;
}

RPC_STATUS RpcBindingSetObject(RPC_BINDING_HANDLE, const GUID* object) noexcept {
  return connector::Note("RpcBindingSetObject", fmt::format("{}", *object));
}

RPC_STATUS RpcBindingSetAuthInfoExW(RPC_BINDING_HANDLE, const char16_t* principal, DWORD level, DWORD service,
                                    std::nullptr_t, DWORD authorization, const RPC_SECURITY_QOS* quality) noexcept {
  return connector::Note(
      "RpcBindingSetAuthInfoExW",
      fmt::format("{}, level {}, service {}, authorization {}, version {}, capabilities {}, tracking {}, type {}",
                  connector::Narrow(principal), level, service, authorization, quality->Version, quality->Capabilities,
                  quality->IdentityTracking, quality->ImpersonationType));
}

RPC_STATUS RpcBindingFree(RPC_BINDING_HANDLE* binding) noexcept {
  static_cast<void>(connector::Note("RpcBindingFree"));
  *binding = nullptr;
  --rpc.bindings;
  return RPC_S_OK;
}

RPC_STATUS ConnectLinkByValues(RPC_BINDING_HANDLE, const LinkRequest& request, LinkReply& reply) noexcept {
  return connector::Call("ConnectLinkByValues", request, {}, reply);
}

RPC_STATUS ConnectLinkByHandles(RPC_BINDING_HANDLE, const LinkRequest& request, PipeHandle clientPipe,
                                LinkReply& reply) noexcept {
  return connector::Call("ConnectLinkByHandles", request, clientPipe, reply);
}

}  // namespace platform
