// 16 bytes are a polynomial over bits. Moving it n bits on, to lie over bytes further back, is a multiplication by x^n,
// of which only the remainder by the CRC's polynomial counts. So its two halves are multiplied by constants and added
// to the 16 bytes that are n bits further back: four times 16 bytes at once, then one, until 16 bytes have the same
// checksum as all that went before.
#include <cpuid.h>
#include <immintrin.h>

#include "lib/ipc/ipclib/crc32Methods.h"

// The instructions are used in this file alone, in functions that are only called where the processor has them.
#define WITH_CARRYLESS_MULTIPLICATION __attribute__((target("sse2,pclmul")))

namespace quill::ipc::crc32Methods {
namespace {

constexpr std::size_t kLane = 16;
constexpr std::size_t kLanes = 4;

// The remainder of x^exponent, in the reflected order of bits, one bit up: the product of two reflected 64-bit
// polynomials lies one bit lower than its place in 128 bits.
consteval std::uint64_t PowerOfX(unsigned exponent) {
  std::uint32_t remainder = 0x80000000;  // x^0
  for (unsigned power = 0; power < exponent; ++power) {
    remainder = (remainder >> 1) ^ ((remainder & 1) != 0 ? kPolynomial : 0);
  }
  return std::uint64_t{remainder} << 1;
}

// Multiplies the halves of a lane that moves on by so many bits: its first eight bytes lie 64 bits further ahead. The
// 32 are the width of the remainder.
struct Distance {
  std::uint64_t first;
  std::uint64_t last;
};
consteval Distance Moving(unsigned bits) { return {PowerOfX(bits + 32), PowerOfX(bits - 32)}; }

WITH_CARRYLESS_MULTIPLICATION inline __m128i Constants(const Distance& distance) noexcept {
  return _mm_set_epi64x(static_cast<long long>(distance.last), static_cast<long long>(distance.first));
}

WITH_CARRYLESS_MULTIPLICATION inline __m128i LoadLane(const std::byte* bytes) noexcept {
  return _mm_loadu_si128(reinterpret_cast<const __m128i_u*>(bytes));
}

WITH_CARRYLESS_MULTIPLICATION inline __m128i Fold(__m128i lane, __m128i constants, __m128i onto) noexcept {
  const __m128i first = _mm_clmulepi64_si128(lane, constants, 0x00);
  const __m128i last = _mm_clmulepi64_si128(lane, constants, 0x11);
  return _mm_xor_si128(_mm_xor_si128(first, last), onto);
}

// REQUIRES: at least kLanes * kLane bytes, a multiple of kLane. Returns 16 bytes with the checksum of all of them.
WITH_CARRYLESS_MULTIPLICATION __m128i FoldAll(std::uint32_t state, const std::byte* bytes, std::size_t size) noexcept {
  const __m128i byFour = Constants(Moving(8 * kLanes * kLane));
  const __m128i byOne = Constants(Moving(8 * kLane));
  __m128i lane0 = _mm_xor_si128(LoadLane(bytes), _mm_cvtsi32_si128(static_cast<int>(state)));
  __m128i lane1 = LoadLane(bytes + kLane);
  __m128i lane2 = LoadLane(bytes + 2 * kLane);
  __m128i lane3 = LoadLane(bytes + 3 * kLane);
  const std::byte* const end = bytes + size;
  bytes += kLanes * kLane;
  for (; static_cast<std::size_t>(end - bytes) >= kLanes * kLane; bytes += kLanes * kLane) {
    lane0 = Fold(lane0, byFour, LoadLane(bytes));
    lane1 = Fold(lane1, byFour, LoadLane(bytes + kLane));
    lane2 = Fold(lane2, byFour, LoadLane(bytes + 2 * kLane));
    lane3 = Fold(lane3, byFour, LoadLane(bytes + 3 * kLane));
  }
  __m128i folded = Fold(Fold(Fold(lane0, byOne, lane1), byOne, lane2), byOne, lane3);
  for (; bytes != end; bytes += kLane) folded = Fold(folded, byOne, LoadLane(bytes));
  return folded;
}

WITH_CARRYLESS_MULTIPLICATION std::uint32_t FoldAndSlice(std::uint32_t state,
                                                         std::span<const std::byte> bytes) noexcept {
  const std::size_t whole = bytes.size() - bytes.size() % kLane;
  alignas(kLane) std::byte folded[kLane];
  _mm_store_si128(reinterpret_cast<__m128i*>(folded), FoldAll(state, bytes.data(), whole));
  return bySlices(bySlices(0, folded), bytes.subspan(whole));
}

}  // namespace

std::uint32_t byFolding(std::uint32_t state, std::span<const std::byte> bytes) noexcept {
  return bytes.size() < kLanes * kLane ? bySlices(state, bytes) : FoldAndSlice(state, bytes);
}

// The processor is asked here, not by the compiler's own table of features: that is filled at the start of each
// process, with a dozen such questions, and a virtual machine's host answers each of them in its own time.
bool foldingWorks() noexcept {
  unsigned a = 0;
  unsigned b = 0;
  unsigned c = 0;
  unsigned d = 0;
  return __get_cpuid(1, &a, &b, &c, &d) != 0 && (d & bit_SSE2) != 0 && (c & bit_PCLMUL) != 0;
}

}  // namespace quill::ipc::crc32Methods
