#include "platform/sections.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <span>

#include "platform/error.h"
#include "platform/raii.h"

namespace {

using namespace platform;

UniqueSection NewSection(DWORD size) {
  return UniqueSection(CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, size, nullptr));
}

UniqueView Map(SectionHandle section) {
  return UniqueView(MapViewOfFile(section, FILE_MAP_READ | FILE_MAP_WRITE, 0, 0, 0));
}

std::span<std::byte> Bytes(const UniqueView& view, std::size_t size) {
  return {static_cast<std::byte*>(view.get()), size};
}

TEST(Section, BeginsAsZeroes) {
  constexpr DWORD kSize = 0x10000;
  const UniqueSection section = NewSection(kSize);
  ASSERT_TRUE(section);
  const UniqueView view = Map(section.get());
  ASSERT_TRUE(view);
  EXPECT_TRUE(std::ranges::all_of(Bytes(view, kSize), [](std::byte byte) { return byte == std::byte{}; }));
}

TEST(Section, ShowsTheSameBytesInEveryView) {
  constexpr DWORD kSize = 0x10000;
  const UniqueSection section = NewSection(kSize);
  const UniqueView first = Map(section.get());
  const UniqueView second = Map(section.get());
  ASSERT_TRUE(first && second);
  EXPECT_NE(first.get(), second.get());
  Bytes(first, kSize).front() = std::byte{1};
  Bytes(second, kSize).back() = std::byte{2};
  EXPECT_EQ(Bytes(second, kSize).front(), std::byte{1});
  EXPECT_EQ(Bytes(first, kSize).back(), std::byte{2});
}

TEST(Section, OfOneByteCanBeMapped) {
  const UniqueSection section = NewSection(1);
  const UniqueView view = Map(section.get());
  ASSERT_TRUE(view);
  Bytes(view, 1).front() = std::byte{1};
  EXPECT_EQ(Bytes(Map(section.get()), 1).front(), std::byte{1});
}

TEST(Section, LivesOnInItsViewWhenItsHandleIsClosed) {
  UniqueSection section = NewSection(4096);
  const UniqueView view = Map(section.get());
  ASSERT_TRUE(view);
  section.reset();
  Bytes(view, 4096).back() = std::byte{1};
  EXPECT_EQ(Bytes(view, 4096).back(), std::byte{1});
}

TEST(Section, OfNoBytesIsRefused) {
  EXPECT_FALSE(NewSection(0));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
}

TEST(Section, LargerThanAnyMemoryIsRefused) {
  EXPECT_FALSE(CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0xFFFFFFFF, 0xFFFFF000, nullptr));
}

TEST(Section, ThatIsNoneCannotBeMapped) {
  const UniqueEvent event(CreateEventW(nullptr, true, false, nullptr));
  UniqueSection section = NewSection(4096);
  const SectionHandle closed = section.get();
  section.reset();
  for (const SectionHandle handle : {SectionHandle(), closed, SectionHandle(event.get().value())}) {
    SetLastError(ERROR_SUCCESS);
    EXPECT_FALSE(Map(handle));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
  }
}

TEST(Section, IsNoEvent) {
  const UniqueSection section = NewSection(4096);
  EXPECT_FALSE(SetEvent(EventHandle(section.get().value())));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
}

TEST(Section, IsUnmappedOnce) {
  const UniqueSection section = NewSection(4096);
  void* const view = Map(section.get()).release();
  ASSERT_NE(view, nullptr);
  EXPECT_TRUE(UnmapViewOfFile(view));
  EXPECT_FALSE(UnmapViewOfFile(view));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_ADDRESS);
}

TEST(Section, NullIsNoView) {
  EXPECT_FALSE(UnmapViewOfFile(nullptr));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_ADDRESS);
}

}  // namespace
