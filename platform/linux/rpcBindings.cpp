#include "platform/linux/rpcBindings.h"

#include <algorithm>
#include <new>
#include <string>
#include <string_view>
#include <utility>

#include "platform/linux/faults.h"
#include "platform/linux/rpcText.h"

namespace platform {
namespace {

constexpr std::u16string_view kProtocol = u"ncalrpc";

// The part of the text ahead of the separator, which both go from the text. All of it when there is no separator.
std::u16string_view TakeUntil(std::u16string_view& text, char16_t separator) {
  const std::size_t end = std::min(text.find(separator), text.size());
  const std::u16string_view part = text.substr(0, end);
  text.remove_prefix(std::min(end + 1, text.size()));
  return part;
}

bool IsOneOf(std::u16string_view word, std::initializer_list<std::u16string_view> words) {
  return std::ranges::find(words, word) != words.end();
}

// "Security=identification dynamic true". A service of the same user's is no place to hide from: on this machine there
// is nothing to do about it.
bool AreOptions(std::u16string_view options) {
  if (TakeUntil(options, u'=') != u"Security") return false;
  const auto level = TakeUntil(options, u' ');
  const auto tracking = TakeUntil(options, u' ');
  return IsOneOf(level, {u"anonymous", u"identification", u"impersonation", u"delegation"}) &&
         IsOneOf(tracking, {u"dynamic", u"static"}) && IsOneOf(options, {u"true", u"false"});
}

RPC_STATUS Parse(std::u16string_view text, std::u16string_view& endpoint) {
  const bool hasProtocol = text.contains(u':');
  const auto protocol = TakeUntil(text, u':');
  if (!hasProtocol || !text.starts_with(u'[') || !text.ends_with(u']')) return RPC_S_INVALID_STRING_BINDING;
  if (protocol != kProtocol) return RPC_S_PROTSEQ_NOT_SUPPORTED;
  text = text.substr(1, text.size() - 2);
  const bool hasOptions = text.contains(u',');
  endpoint = TakeUntil(text, u',');
  if (endpoint.empty() || IsOneOf(endpoint, {u".", u".."}) || endpoint.find_first_of(u"/\\[]") != endpoint.npos) {
    return RPC_S_INVALID_ENDPOINT_FORMAT;
  }
  return hasOptions && !AreOptions(text) ? RPC_S_INVALID_NETWORK_OPTIONS : RPC_S_OK;
}

}  // namespace

std::shared_ptr<RpcBinding> FindBinding(RPC_BINDING_HANDLE binding) noexcept {
  return handleTable::FindAs<RpcBinding>(binding.value());
}

RPC_STATUS RpcStringBindingComposeW(std::nullptr_t, const char16_t* protocol, std::nullptr_t, const char16_t* endpoint,
                                    const char16_t* options, char16_t** text) noexcept try {
  if (FaultInjected("RpcStringBindingComposeW")) return InjectedRpcStatus();
  std::u16string whole = std::u16string(protocol) + u":[" + endpoint;
  if (options != nullptr) whole.append(u",").append(options);
  return rpcText::HandOut(whole + u"]", text);
} catch (const std::bad_alloc&) {
  return RPC_S_OUT_OF_MEMORY;
}

RPC_STATUS RpcBindingFromStringBindingW(const char16_t* text, RPC_BINDING_HANDLE* binding) noexcept try {
  *binding = nullptr;
  if (FaultInjected("RpcBindingFromStringBindingW")) return InjectedRpcStatus();
  std::u16string_view endpoint;
  const RPC_STATUS status = Parse(text, endpoint);
  if (status != RPC_S_OK) return status;
  *binding = RPC_BINDING_HANDLE(handleTable::Add(std::make_shared<RpcBinding>(std::u16string(endpoint))));
  return *binding ? RPC_S_OK : RPC_S_OUT_OF_MEMORY;
} catch (const std::bad_alloc&) {
  return RPC_S_OUT_OF_MEMORY;
}

RPC_STATUS RpcBindingSetObject(RPC_BINDING_HANDLE handle, const GUID* object) noexcept {
  if (FaultInjected("RpcBindingSetObject")) return InjectedRpcStatus();
  const auto binding = FindBinding(handle);
  if (!binding) return RPC_S_INVALID_BINDING;
  binding->object = *object;
  return RPC_S_OK;
}

// Whoever answers is the user's own, as nobody else can own an endpoint of the machine: the host has seen to the proof.
RPC_STATUS RpcBindingSetAuthInfoExW(RPC_BINDING_HANDLE handle, const char16_t*, DWORD level, DWORD service,
                                    std::nullptr_t, DWORD, const RPC_SECURITY_QOS* quality) noexcept {
  if (FaultInjected("RpcBindingSetAuthInfoExW")) return InjectedRpcStatus();
  const auto binding = FindBinding(handle);
  if (!binding) return RPC_S_INVALID_BINDING;
  if (service != RPC_C_AUTHN_WINNT) return RPC_S_UNKNOWN_AUTHN_SERVICE;
  if (level != RPC_C_AUTHN_LEVEL_PKT_PRIVACY) return RPC_S_UNKNOWN_AUTHN_LEVEL;
  if (quality->Version != RPC_C_SECURITY_QOS_VERSION) return RPC_S_INVALID_ARG;
  binding->authenticated = true;
  return RPC_S_OK;
}

RPC_STATUS RpcBindingFree(RPC_BINDING_HANDLE* binding) noexcept {
  const RPC_BINDING_HANDLE freed = std::exchange(*binding, nullptr);
  return handleTable::Close(freed.value()) ? RPC_S_OK : RPC_S_INVALID_BINDING;
}

}  // namespace platform
