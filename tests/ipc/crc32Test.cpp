#include "lib/ipc/ipclib/crc32.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <random>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "lib/ipc/ipclib/crc32Methods.h"
#include "tests/ipc/tableCrc.h"

namespace {

using ipcTests::TableCrc;
using ipcTests::TableCrcState;
using quill::ipc::crc32;
namespace methods = quill::ipc::crc32Methods;

std::vector<std::byte> RandomBytes(std::size_t size, std::mt19937& random) {
  std::vector<std::byte> bytes(size);
  for (auto& byte : bytes) byte = static_cast<std::byte>(random());
  return bytes;
}

std::uint32_t OfText(std::string_view text) { return crc32(std::as_bytes(std::span(text))); }

TEST(Crc32, OfNothingIsZero) { EXPECT_EQ(crc32({}), 0u); }

TEST(Crc32, HasTheCheckValueOfItsKind) { EXPECT_EQ(OfText("123456789"), 0xCBF43926u); }

TEST(Crc32, CountsZerosAtEitherEnd) {
  using namespace std::string_view_literals;
  EXPECT_NE(OfText("\0a"sv), OfText("a"));
  EXPECT_NE(OfText("a\0"sv), OfText("a"));
}

// Every method, from every kind of address, against the table.
class Crc32Method : public testing::TestWithParam<const char*> {
 protected:
  [[nodiscard]] static std::uint32_t State(std::uint32_t state, std::span<const std::byte> bytes) {
    // A processor that cannot fold shows the slices twice.
    const bool folding = GetParam() == std::string_view("Folding") && methods::foldingWorks();
    return folding ? methods::byFolding(state, bytes) : methods::bySlices(state, bytes);
  }
};

TEST_P(Crc32Method, AgreesWithTheTableForEveryLengthUpTo1024) {
  std::mt19937 random(1);
  const auto bytes = RandomBytes(1024 + 64, random);
  for (std::size_t length = 0; length <= 1024; ++length) {
    const auto some = std::span(bytes).subspan(random() % 64, length);
    ASSERT_EQ(~State(0xFFFFFFFF, some), TableCrc(some)) << length;
  }
}

TEST_P(Crc32Method, AgreesWithTheTableAtEveryAlignment) {
  std::mt19937 random(2);
  const auto bytes = RandomBytes(512, random);
  for (std::size_t offset = 0; offset < 64; ++offset) {
    for (const std::size_t length : {1U, 63U, 64U, 65U, 127U, 128U, 129U, 300U}) {
      const auto some = std::span(bytes).subspan(offset, length);
      ASSERT_EQ(~State(0xFFFFFFFF, some), TableCrc(some)) << offset << " " << length;
    }
  }
}

TEST_P(Crc32Method, AgreesWithTheTableAtRandomOffsets) {
  std::mt19937 random(3);
  const auto bytes = RandomBytes(70'000, random);
  for (int round = 0; round < 300; ++round) {
    const std::size_t offset = random() % bytes.size();
    const auto some = std::span(bytes).subspan(offset, random() % (bytes.size() - offset));
    ASSERT_EQ(~State(0xFFFFFFFF, some), TableCrc(some)) << offset << " " << some.size();
  }
}

TEST_P(Crc32Method, CarriesItsStateFromPieceToPiece) {
  std::mt19937 random(4);
  const auto bytes = RandomBytes(1000, random);
  for (int round = 0; round < 300; ++round) {
    const std::size_t cut = random() % bytes.size();
    const std::uint32_t state = State(0xFFFFFFFF, std::span(bytes).first(cut));
    ASSERT_EQ(~State(state, std::span(bytes).subspan(cut)), TableCrc(bytes)) << cut;
  }
}

TEST_P(Crc32Method, TakesAnyStateToBeginWith) {
  std::mt19937 random(5);
  for (const std::size_t length : {0U, 5U, 64U, 200U}) {
    const auto bytes = RandomBytes(length, random);
    for (const std::uint32_t state : {0U, 1U, 0x80000000U, 0xFFFFFFFFU}) {
      ASSERT_EQ(State(state, bytes), TableCrcState(state, bytes)) << length;
    }
  }
}

TEST_P(Crc32Method, ReadsNothingOutsideItsBytes) {
  for (std::size_t length = 0; length <= 200; ++length) {
    const std::vector<std::byte> exact(length, std::byte{7});  // The address sanitizer watches both of its ends.
    ASSERT_EQ(~State(0xFFFFFFFF, exact), TableCrc(exact)) << length;
  }
}

INSTANTIATE_TEST_SUITE_P(, Crc32Method, testing::Values("Slices", "Folding"),
                         [](const auto& parameter) { return std::string(parameter.param); });

TEST(Crc32, AgreesWithTheTable) {
  std::mt19937 random(6);
  for (const std::size_t length : {1U, 16U, 73U, 64U * 1024U}) {
    const auto bytes = RandomBytes(length, random);
    EXPECT_EQ(crc32(bytes), TableCrc(bytes)) << length;
  }
}

}  // namespace
