// Lets a test say which allocation of this thread fails. The test program is linked so that its calls of malloc, the
// library's among them, come here.
#pragma once

#include <cstddef>

namespace ipcTests {

// Until it goes, malloc on this thread has no room for just so many bytes.
class NoRoomFor {
 public:
  explicit NoRoomFor(std::size_t size);
  ~NoRoomFor();
  NoRoomFor(const NoRoomFor&) = delete;
  NoRoomFor& operator=(const NoRoomFor&) = delete;
};

}  // namespace ipcTests
