// The ANSI code page of the calling thread.
#include <gtest/gtest.h>

#include <string>

#include "platform/error.h"
#include "platform/text.h"

namespace {

using namespace platform;

std::string Ansi(std::u16string_view text) {
  char buffer[64] = {};
  const int length = WideCharToMultiByte(CP_THREAD_ACP, 0, text.data(), static_cast<int>(text.size()), buffer,
                                         sizeof buffer, nullptr, nullptr);
  return std::string(buffer, static_cast<std::size_t>(length));
}

TEST(ThreadCodePage, IsOneByteAUnit) {
  EXPECT_EQ(Ansi(u"C:\\a"), "C:\\a");
  EXPECT_EQ(Ansi(u"\u00e9\u00ff\u20ac\u0178"), "\xE9\xFF\x80\x9F");
}

TEST(ThreadCodePage, WhatItDoesNotHaveBecomesAQuestionMark) { EXPECT_EQ(Ansi(u"a\u4e2db"), "a?b"); }

TEST(ThreadCodePage, TellsTheSizeAndWhatDoesNotFit) {
  EXPECT_EQ(WideCharToMultiByte(CP_THREAD_ACP, 0, u"\u00e9a", 2, nullptr, 0, nullptr, nullptr), 2);
  char buffer[1];
  EXPECT_EQ(WideCharToMultiByte(CP_THREAD_ACP, 0, u"\u00e9a", 2, buffer, 1, nullptr, nullptr), 0);
  EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
}

}  // namespace
