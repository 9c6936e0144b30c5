// The results by which calls of this side of the layer fail.
#pragma once

#include "platform/types.h"

namespace platform {

inline constexpr HRESULT E_FAIL = static_cast<HRESULT>(0x80004005);
inline constexpr HRESULT E_FILE_NOT_FOUND = static_cast<HRESULT>(0x80070002);
inline constexpr HRESULT E_HANDLE = static_cast<HRESULT>(0x80070006);
inline constexpr HRESULT E_OUTOFMEMORY = static_cast<HRESULT>(0x8007000E);
inline constexpr HRESULT E_INVALIDARG = static_cast<HRESULT>(0x80070057);
inline constexpr HRESULT E_INSUFFICIENT_BUFFER = static_cast<HRESULT>(0x8007007A);

}  // namespace platform
