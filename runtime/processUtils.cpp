#include "runtime/processUtils.h"

#include <array>
#include <bit>
#include <memory>

#include "platform/module.h"
#include "platform/raii.h"
#include "platform/session.h"
#include "runtime/logCalls.h"
#include "runtime/xString.h"

namespace runtime::ProcessUtils {
namespace {

using platform::SetThreadDescriptionFunction;

constexpr const char* kGetSessionID = "ProcessUtils::GetSessionID()";
constexpr const char* kSetThreadName = "ProcessUtils::SetThreadName()";

// Null where the system does not have it yet. Looked up once.
SetThreadDescriptionFunction SetThreadDescription() {
  static const auto function = [] {
    platform::HMODULE kernel;
    SetThreadDescriptionFunction found = nullptr;
    if (platform::GetModuleHandleExW(platform::GET_MODULE_HANDLE_EX_FLAG_PIN, u"Kernel32.dll", &kernel)) {
      found = reinterpret_cast<SetThreadDescriptionFunction>(platform::GetProcAddress(kernel, "SetThreadDescription"));
    }
    Log(kSetThreadName, 3, "SetThreadDescription() is%s supported", found != nullptr ? "" : " not");
    return found;
  }();
  return function;
}

bool Describe(SetThreadDescriptionFunction describe, std::uint32_t threadId, const char* name) {
  platform::UniqueThread opened;
  if (threadId != kCallersThread) {
    opened.reset(platform::OpenThread(platform::THREAD_SET_LIMITED_INFORMATION, false, threadId));
    if (!opened) {
      LogLastError(kSetThreadName, 4, "OpenThread(0x%04X) failed", threadId);
      return false;
    }
  }
  StringUtils::XString wide;
  wide.SetNarrow(name, false);
  const char16_t* const description = wide.GetWide();
  const platform::HRESULT result =
      describe(opened ? opened.get() : platform::GetCurrentThread(), description != nullptr ? description : u"");
  if (result >= 0) {
    Log(kSetThreadName, 6, "SetThreadDescription(0x%04X, \"%s\") [OK]", threadId, name);
  } else {
    Log(kSetThreadName, 4, "SetThreadDescription(0x%04X, \"%s\") failed (err=0x%x)", threadId, name, result);
  }
  return result >= 0;
}

// The way by which debuggers learnt a thread's name before.
void RaiseName(std::uint32_t threadId, const char* name) {
  const platform::THREADNAME_INFO information{.szName = name, .dwThreadID = threadId};
  const auto words = std::bit_cast<std::array<std::uintptr_t, 3>>(information);
  platform::RaiseException(platform::MS_VC_EXCEPTION, 0, words.size(), words.data());
}

constexpr std::uint32_t kNoSession = 0xFFFFFFFF;

std::uint32_t SessionOf(platform::TokenHandle token) {
  platform::DWORD session = kNoSession;
  platform::DWORD needed = 0;
  if (!platform::GetTokenInformation(token, platform::TokenSessionId, &session, sizeof session, &needed)) {
    LogLastError(kGetSessionID, 1, "GetTokenInformation(0x%p) failed", token);
  }
  return session;
}

// Of the user whom the thread impersonates.
std::uint32_t SessionOfThread() {
  const platform::ThreadHandle thread = platform::GetCurrentThread();
  platform::UniqueToken token;
  if (!platform::OpenThreadToken(thread, platform::TOKEN_QUERY, false, token.put())) {
    if (platform::GetLastError() != platform::ERROR_NO_TOKEN) {
      LogLastError(kGetSessionID, 1, "OpenThreadToken(0x%x) failed", static_cast<std::uint32_t>(thread.value()));
    }
    return kNoSession;
  }
  return SessionOf(token.get());
}

}  // namespace

std::uint32_t GetSessionID(bool checkThreadToken, std::uint32_t sessionId) {
  if (sessionId != kNoSession) return sessionId;
  if (checkThreadToken) sessionId = SessionOfThread();
  if (sessionId != kNoSession) return sessionId;
  const platform::DWORD process = platform::GetCurrentProcessId();
  platform::DWORD session = kNoSession;
  if (!platform::ProcessIdToSessionId(process, &session)) {
    LogLastError(kGetSessionID, 1, "ProcessIdToSessionId(%d) failed", process);
  }
  return session;
}

std::u16string GetUserName(std::uint32_t sessionId) {
  void* information = nullptr;
  platform::DWORD bytes = 0;
  if (!platform::WTSQuerySessionInformationW(nullptr, GetSessionID(true, sessionId), platform::WTSUserName,
                                             &information, &bytes)) {
    return {};
  }
  const std::unique_ptr<void, decltype(&platform::WTSFreeMemory)> owner(information, &platform::WTSFreeMemory);
  return static_cast<const char16_t*>(information);
}

void SetThreadName(std::uint32_t threadId, const char* name) {
  const SetThreadDescriptionFunction describe = SetThreadDescription();
  if (describe == nullptr || !Describe(describe, threadId, name)) RaiseName(threadId, name);
}

std::string GetModulePath(bool ownModule) {
  using namespace platform;
  HMODULE module;
  if (ownModule) {
    GetModuleHandleExA(GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT | GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS,
                       reinterpret_cast<const void*>(&GetModulePath), &module);
  }
  char path[MAX_PATH];
  const DWORD length = GetModuleFileNameA(module, path, MAX_PATH);
  const bool cut = length == MAX_PATH && GetLastError() == ERROR_INSUFFICIENT_BUFFER;
  return length == 0 || cut ? std::string() : std::string(path, length);
}

}  // namespace runtime::ProcessUtils
