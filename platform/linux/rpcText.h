// Texts that the calls of rpc.h hand out, until RpcStringFreeW.
#pragma once

#include <algorithm>
#include <new>
#include <string_view>

#include "platform/rpc.h"

namespace platform::rpcText {

// RPC_S_OUT_OF_MEMORY, and a null text, when there is no memory.
[[nodiscard]] inline RPC_STATUS HandOut(std::u16string_view text, char16_t** handedOut) noexcept {
  *handedOut = new (std::nothrow) char16_t[text.size() + 1];
  if (*handedOut == nullptr) return RPC_S_OUT_OF_MEMORY;
  *std::ranges::copy(text, *handedOut).out = u'\0';
  return RPC_S_OK;
}

inline void TakeBack(char16_t** text) noexcept {
  delete[] * text;
  *text = nullptr;
}

}  // namespace platform::rpcText
