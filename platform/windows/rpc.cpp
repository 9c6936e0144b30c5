#include "platform/rpc.h"

#include <windows.h>

#include <objbase.h>
#include <rpc.h>

#include <utility>

namespace platform {
namespace {

::RPC_WSTR Native(const char16_t* text) {
  // The system's declarations lack the const that its calls keep.
  return reinterpret_cast<::RPC_WSTR>(const_cast<char16_t*>(text));
}

::UUID* Native(const GUID* id) {
  static_assert(sizeof(GUID) == sizeof(::UUID));
  return reinterpret_cast<::UUID*>(const_cast<GUID*>(id));
}

::RPC_WSTR* Native(char16_t** text) { return reinterpret_cast<::RPC_WSTR*>(text); }

::RPC_BINDING_HANDLE Native(RPC_BINDING_HANDLE binding) {
  return reinterpret_cast<::RPC_BINDING_HANDLE>(binding.value());
}

}  // namespace

int StringFromGUID2(const GUID& id, char16_t* text, int size) noexcept {
  return ::StringFromGUID2(*Native(&id), reinterpret_cast<wchar_t*>(text), size);
}

RPC_STATUS UuidCreate(GUID* id) noexcept { return ::UuidCreate(Native(id)); }

RPC_STATUS UuidToStringW(const GUID* id, char16_t** text) noexcept { return ::UuidToStringW(Native(id), Native(text)); }

RPC_STATUS UuidFromStringW(const char16_t* text, GUID* id) noexcept {
  return ::UuidFromStringW(Native(text), Native(id));
}

RPC_STATUS RpcStringFreeW(char16_t** text) noexcept { return ::RpcStringFreeW(Native(text)); }

RPC_STATUS RpcStringBindingComposeW(std::nullptr_t, const char16_t* protocol, std::nullptr_t, const char16_t* endpoint,
                                    const char16_t* options, char16_t** text) noexcept {
  return ::RpcStringBindingComposeW(nullptr, Native(protocol), nullptr, Native(endpoint), Native(options),
                                    Native(text));
}

RPC_STATUS RpcBindingFromStringBindingW(const char16_t* text, RPC_BINDING_HANDLE* binding) noexcept {
  ::RPC_BINDING_HANDLE native = nullptr;
  const RPC_STATUS status = ::RpcBindingFromStringBindingW(Native(text), &native);
  *binding = RPC_BINDING_HANDLE(reinterpret_cast<std::uintptr_t>(native));
  return status;
}

RPC_STATUS RpcBindingSetObject(RPC_BINDING_HANDLE binding, const GUID* object) noexcept {
  return ::RpcBindingSetObject(Native(binding), Native(object));
}

RPC_STATUS RpcBindingSetAuthInfoExW(RPC_BINDING_HANDLE binding, const char16_t* principal, DWORD level, DWORD service,
                                    std::nullptr_t, DWORD authorization, const RPC_SECURITY_QOS* quality) noexcept {
  ::RPC_SECURITY_QOS native{.Version = quality->Version,
                            .Capabilities = quality->Capabilities,
                            .IdentityTracking = quality->IdentityTracking,
                            .ImpersonationType = quality->ImpersonationType};
  return ::RpcBindingSetAuthInfoExW(Native(binding), Native(principal), level, service, nullptr, authorization,
                                    &native);
}

RPC_STATUS RpcBindingFree(RPC_BINDING_HANDLE* binding) noexcept {
  ::RPC_BINDING_HANDLE native = Native(std::exchange(*binding, nullptr));
  return ::RpcBindingFree(&native);
}

}  // namespace platform
