// The order of fields and of virtual operations, which code that was built elsewhere relies on.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cstddef>
#include <functional>
#include <vector>

namespace support {

using Offsets = std::vector<std::ptrdiff_t>;

// Where the fields of an object lie. Not offsetof, which knows plain classes only: the object is alive.
template <class Object, class... Members>
Offsets OffsetsOf(const Object& object, Members... members) {
  const auto* const begin = reinterpret_cast<const std::byte*>(&object);
  return {reinterpret_cast<const std::byte*>(&(object.*members)) - begin...};
}

// Fields that a class keeps to itself: an explicit instantiation may name them all the same.
template <class Object, auto... members>
struct Reveal {
  friend Offsets FieldsOf(const Object& object) { return OffsetsOf(object, members...); }
};

// Makes FieldsOf for objects of the class, with the fields in their settled order. In this namespace.
#define SETTLED_FIELDS(Class, ...) \
  Offsets FieldsOf(const Class&);  \
  template struct Reveal<Class, __VA_ARGS__>

inline void ExpectInOrder(const Offsets& offsets) {
  EXPECT_EQ(std::ranges::adjacent_find(offsets, std::ranges::greater_equal()), offsets.end())
      << testing::PrintToString(offsets);
}

// The place of a virtual operation in its class's table. Both targets have the compiler's one way to point to it: its
// place in bytes, and one more, which no address of a function is.
template <class Operation>
std::size_t PlaceOf(Operation operation) {
  struct Pointer {
    std::ptrdiff_t function;
    std::ptrdiff_t adjustment;
  };
  const auto pointer = std::bit_cast<Pointer>(operation);
  EXPECT_EQ(pointer.function % 2, 1) << "not virtual";
  return static_cast<std::size_t>(pointer.function) / sizeof(void*);
}

// The destructor is there twice: with and without giving the memory back.
inline constexpr std::size_t kBehindDestructor = 2;

}  // namespace support
