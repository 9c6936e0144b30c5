// What the tests of sessions share.
#pragma once

#include <gtest/gtest.h>

#include "platform/handles.h"
#include "platform/session.h"

namespace sessions {

inline platform::DWORD OwnSession() {
  platform::DWORD session = 0xFFFFFFFF;
  EXPECT_TRUE(platform::ProcessIdToSessionId(platform::GetCurrentProcessId(), &session));
  return session;
}

}  // namespace sessions
