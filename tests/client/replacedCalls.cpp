#include "tests/client/replacedCalls.h"

#include <cstddef>

#include "platform/rpc.h"
#include "platform/session.h"
#include "platform/threadPool.h"

namespace {
clientTests::ReplacedCalls* replaced = nullptr;
}

namespace clientTests {
ReplacedCalls::ReplacedCalls() { replaced = this; }
ReplacedCalls::~ReplacedCalls() { replaced = nullptr; }
}  // namespace clientTests

// The names are the linker's, for those that the compiler gives the calls.
extern "C" {
using namespace platform;

void* __real_calloc(std::size_t count, std::size_t size);
void* __wrap_calloc(std::size_t count, std::size_t size);
void* __wrap_calloc(std::size_t count, std::size_t size) {
  return replaced != nullptr && replaced->allocatorIsEmpty ? nullptr : __real_calloc(count, size);
}

RPC_STATUS __real__ZN8platform10UuidCreateEPNS_4GUIDE(GUID* id) noexcept;
RPC_STATUS __wrap__ZN8platform10UuidCreateEPNS_4GUIDE(GUID* id) noexcept;
RPC_STATUS __wrap__ZN8platform10UuidCreateEPNS_4GUIDE(GUID* id) noexcept {
  return replaced != nullptr && replaced->noIds ? RPC_S_CALL_FAILED : __real__ZN8platform10UuidCreateEPNS_4GUIDE(id);
}

RPC_STATUS __real__ZN8platform13UuidToStringWEPKNS_4GUIDEPPDs(const GUID* id, char16_t** text) noexcept;
RPC_STATUS __wrap__ZN8platform13UuidToStringWEPKNS_4GUIDEPPDs(const GUID* id, char16_t** text) noexcept;
RPC_STATUS __wrap__ZN8platform13UuidToStringWEPKNS_4GUIDEPPDs(const GUID* id, char16_t** text) noexcept {
  return replaced != nullptr && replaced->noIdTexts ? RPC_S_OUT_OF_MEMORY
                                                    : __real__ZN8platform13UuidToStringWEPKNS_4GUIDEPPDs(id, text);
}

RPC_STATUS __real__ZN8platform15UuidFromStringWEPKDsPNS_4GUIDE(const char16_t* text, GUID* id) noexcept;
RPC_STATUS __wrap__ZN8platform15UuidFromStringWEPKDsPNS_4GUIDE(const char16_t* text, GUID* id) noexcept;
RPC_STATUS __wrap__ZN8platform15UuidFromStringWEPKDsPNS_4GUIDE(const char16_t* text, GUID* id) noexcept {
  return replaced != nullptr && replaced->noIdFromText ? RPC_S_INVALID_STRING_UUID
                                                       : __real__ZN8platform15UuidFromStringWEPKDsPNS_4GUIDE(text, id);
}

bool __real__ZN8platform20ProcessIdToSessionIdEjPj(DWORD processId, DWORD* sessionId) noexcept;
bool __wrap__ZN8platform20ProcessIdToSessionIdEjPj(DWORD processId, DWORD* sessionId) noexcept;
bool __wrap__ZN8platform20ProcessIdToSessionIdEjPj(DWORD processId, DWORD* sessionId) noexcept {
  if (replaced != nullptr && replaced->noSession) return false;
  const bool known = __real__ZN8platform20ProcessIdToSessionIdEjPj(processId, sessionId);
  if (replaced != nullptr && replaced->session) *sessionId = *replaced->session;
  return known;
}

PTP_CLEANUP_GROUP __real__ZN8platform28CreateThreadpoolCleanupGroupEv() noexcept;
PTP_CLEANUP_GROUP __wrap__ZN8platform28CreateThreadpoolCleanupGroupEv() noexcept;
PTP_CLEANUP_GROUP __wrap__ZN8platform28CreateThreadpoolCleanupGroupEv() noexcept {
  return replaced != nullptr && replaced->noCleanupGroup ? nullptr
                                                         : __real__ZN8platform28CreateThreadpoolCleanupGroupEv();
}
}
