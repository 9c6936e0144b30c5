// Local RPC: identifiers and their texts, and bindings to a service of this machine.
//
// Threading: every call may be made from any thread; a binding belongs to one thread at a time.
// Failure: what returns an RPC_STATUS returns RPC_S_OK or the reason, and leaves GetLastError() undefined.
// Ownership: texts that a call hands out are freed with RpcStringFreeW, bindings with RpcBindingFree.
#pragma once

#include "platform/types.h"

namespace platform {

using RPC_STATUS = LONG;
using RPC_BINDING_HANDLE = HandleOf<struct RpcBindingKind>;

inline constexpr RPC_STATUS RPC_S_OK = 0;
inline constexpr RPC_STATUS RPC_S_ACCESS_DENIED = 5;
inline constexpr RPC_STATUS RPC_S_OUT_OF_MEMORY = 14;
inline constexpr RPC_STATUS RPC_S_INVALID_ARG = 87;
inline constexpr RPC_STATUS RPC_S_INVALID_STRING_BINDING = 1700;
inline constexpr RPC_STATUS RPC_S_INVALID_BINDING = 1702;
inline constexpr RPC_STATUS RPC_S_PROTSEQ_NOT_SUPPORTED = 1703;
inline constexpr RPC_STATUS RPC_S_INVALID_STRING_UUID = 1705;
inline constexpr RPC_STATUS RPC_S_INVALID_ENDPOINT_FORMAT = 1706;
inline constexpr RPC_STATUS RPC_S_SERVER_UNAVAILABLE = 1722;
inline constexpr RPC_STATUS RPC_S_INVALID_NETWORK_OPTIONS = 1724;
inline constexpr RPC_STATUS RPC_S_CALL_FAILED = 1726;
inline constexpr RPC_STATUS RPC_S_PROTOCOL_ERROR = 1728;
inline constexpr RPC_STATUS RPC_S_DUPLICATE_ENDPOINT = 1740;
inline constexpr RPC_STATUS RPC_S_UNKNOWN_AUTHN_SERVICE = 1747;
inline constexpr RPC_STATUS RPC_S_UNKNOWN_AUTHN_LEVEL = 1748;
inline constexpr RPC_STATUS RPC_S_ENTRY_ALREADY_EXISTS = 1760;
inline constexpr RPC_STATUS RPC_X_INVALID_BOUND = 1734;
inline constexpr RPC_STATUS RPC_X_NULL_REF_POINTER = 1780;
inline constexpr RPC_STATUS RPC_X_BAD_STUB_DATA = 1783;

// "{875AC244-B80A-420E-90A2-9C69DFD8E728}", with its NUL. The units written, the NUL included; 0 when `size` units are
// too few.
int StringFromGUID2(const GUID& id, char16_t* text, int size) noexcept;

// A new random id.
RPC_STATUS UuidCreate(GUID* id) noexcept;
// "875ac244-b80a-420e-90a2-9c69dfd8e728".
RPC_STATUS UuidToStringW(const GUID* id, char16_t** text) noexcept;
// The other way about, in either case; null gives the id of zeros. RPC_S_INVALID_STRING_UUID when the text is none.
RPC_STATUS UuidFromStringW(const char16_t* text, GUID* id) noexcept;
// Frees the text; the pointer is good for nothing afterwards. A null one is fine.
RPC_STATUS RpcStringFreeW(char16_t** text) noexcept;

// The text of a binding, "ncalrpc:[endpoint,options]"; null leaves the options out.
RPC_STATUS RpcStringBindingComposeW(std::nullptr_t objectId, const char16_t* protocol, std::nullptr_t networkAddress,
                                    const char16_t* endpoint, const char16_t* options, char16_t** text) noexcept;
// A binding from its text. Nobody is asked yet: whether somebody owns the endpoint shows in the first call.
RPC_STATUS RpcBindingFromStringBindingW(const char16_t* text, RPC_BINDING_HANDLE* binding) noexcept;
// The object that calls are meant for.
RPC_STATUS RpcBindingSetObject(RPC_BINDING_HANDLE binding, const GUID* object) noexcept;

inline constexpr DWORD RPC_C_AUTHN_LEVEL_PKT_PRIVACY = 6;
inline constexpr DWORD RPC_C_AUTHN_WINNT = 10;
inline constexpr DWORD RPC_C_AUTHZ_NONE = 0;
inline constexpr DWORD RPC_C_SECURITY_QOS_VERSION = 1;
inline constexpr DWORD RPC_C_QOS_CAPABILITIES_MUTUAL_AUTH = 1;
inline constexpr DWORD RPC_C_QOS_IDENTITY_STATIC = 0;
inline constexpr DWORD RPC_C_IMP_LEVEL_IDENTIFY = 2;

struct RPC_SECURITY_QOS {
  DWORD Version;
  DWORD Capabilities;
  DWORD IdentityTracking;
  DWORD ImpersonationType;

  friend constexpr bool operator==(const RPC_SECURITY_QOS&, const RPC_SECURITY_QOS&) noexcept = default;
};
static_assert(sizeof(RPC_SECURITY_QOS) == 16);

// From now on the calls over the binding are encrypted, and either side proves who it is, as this process's own user.
RPC_STATUS RpcBindingSetAuthInfoExW(RPC_BINDING_HANDLE binding, const char16_t* principal, DWORD level, DWORD service,
                                    std::nullptr_t identity, DWORD authorization,
                                    const RPC_SECURITY_QOS* quality) noexcept;

// Frees the binding and makes the handle null.
RPC_STATUS RpcBindingFree(RPC_BINDING_HANDLE* binding) noexcept;

}  // namespace platform
