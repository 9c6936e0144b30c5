// The single reader of the redirection settings. Writes nothing; reads the registry anew at each call.
//
// The readers prefer different places, and callers must not assume that they agree:
//
//   IsURLRedirectionEnabled       the first of HKCU current, HKCU legacy, HKLM current, HKLM legacy whose key opens
//   GetUrlRedirectionOrigin       the first of HKCU current, HKLM current whose key opens
//   CheckAppPathSettings          enabled: as the origin, and the same pair of legacy keys when the value is missing;
//                                 the values: machine policy current, machine policy legacy
//   GetProtocolRedirectionSettings  one hive, current, then legacy
//   IsSupportIpRules              HKCU current, HKLM current; HKCU legacy, HKLM legacy when the value is missing
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/registry.h"

namespace settings {

// The side of the remote session that this machine is on.
enum class UrlOrigin : std::uint8_t { Client = 0, Agent = 1, Unknown = 2 };

enum class EnabledState : std::uint8_t { Unreadable = 0, Disabled = 1, Enabled = 5 };

// By the whole text of `Origin`; the legacy roots are never asked.
[[nodiscard]] UrlOrigin GetUrlRedirectionOrigin();

// Whether the first root that opens says so. `isAgent` may be null; it is set only when `Origin` could be read, to
// whether that text holds "Agent" anywhere.
bool IsURLRedirectionEnabled(bool* isAgent);

// Open the current or the legacy root, of the user or else of the machine; the status of the last open. The caller
// closes the key. `fromCurrentUser` may be null.
[[nodiscard]] platform::NTSTATUS OpenRootKey(platform::NativeKeyHandle* key, bool* fromCurrentUser) noexcept;
[[nodiscard]] platform::NTSTATUS OpenLegacyRootKey(platform::NativeKeyHandle* key, bool* fromCurrentUser) noexcept;

// Reads `Enabled` of an open root. `path` is the root's path in the user's hive: where a machine says that redirection
// is on, a value of the user's 32-bit view decides instead.
[[nodiscard]] EnabledState QueryEnabledState(bool fromCurrentUser, platform::NativeKeyHandle key,
                                             const char16_t* path) noexcept;

// Reads the policy on app paths. False, traced, when the origin is unknown, redirection is off, or there is no policy.
// On true each text that the policy does not have keeps what it held.
[[nodiscard]] bool CheckAppPathSettings(std::u16string& allowlist, std::u16string& brokerHostname,
                                        std::u16string& remoteItem, UrlOrigin& origin);

// Reads what is set for one URL scheme, under the user's roots or the machine's. False when neither root has the
// scheme. A text that is not set keeps what it held; the caller passes them in empty.
[[nodiscard]] bool GetProtocolRedirectionSettings(bool fromCurrentUser, std::u16string_view protocol, UrlOrigin origin,
                                                  std::u16string& clientRules, std::u16string& agentRules,
                                                  std::u16string& brokerHostname, std::u16string& remoteItem);

// Whether rules on IP addresses are on.
[[nodiscard]] bool IsSupportIpRules();

}  // namespace settings
