// The native calls of the registry; module.cpp gives them out by name.
#pragma once

#include "platform/registry.h"

namespace platform::registry {

void RtlInitUnicodeString(UNICODE_STRING* destination, const char16_t* source);
// Of the object manager's names only "\Registry\Machine\..." is there.
NTSTATUS NtOpenKey(NativeKeyHandle* key, REGSAM access, const OBJECT_ATTRIBUTES* attributes);
NTSTATUS NtQueryValueKey(NativeKeyHandle key, const UNICODE_STRING* valueName, DWORD informationClass,
                         void* information, DWORD length, DWORD* resultLength);
NTSTATUS RtlOpenCurrentUser(REGSAM access, NativeKeyHandle* key);

}  // namespace platform::registry
