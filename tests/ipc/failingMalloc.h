// Lets a test say which allocation fails. The test program is linked so that its calls of malloc and realloc, those of
// the libraries that it links among them, come here.
#pragma once

#include <cstddef>

namespace ipcTests {

// Until it goes, there is no room for just so many bytes. One at a time.
class NoRoomFor {
 public:
  explicit NoRoomFor(std::size_t size);
  ~NoRoomFor();
  NoRoomFor(const NoRoomFor&) = delete;
  NoRoomFor& operator=(const NoRoomFor&) = delete;
};

}  // namespace ipcTests
