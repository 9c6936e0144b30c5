#include <unistd.h>

#include <array>
#include <boost/interprocess/ipc/message_queue.hpp>
#include <string>

#include "tests/bench/ipcPeersLinux.h"

namespace bench {
namespace {

using boost::interprocess::message_queue;

constexpr std::size_t kMessages = 1000;

// A queue without a name: it is where it was mapped, in both processes.
class Queue {
 public:
  explicit Queue(const std::string& name) : queue_(boost::interprocess::create_only, name.c_str(), kMessages, kSmall) {
    message_queue::remove(name.c_str());
  }
  void Put(std::span<const std::byte> message) { queue_.send(message.data(), message.size(), 0); }
  std::byte Take() {
    std::array<std::byte, kSmall> message;
    std::size_t size = 0;
    unsigned priority = 0;
    queue_.receive(message.data(), message.size(), size, priority);
    return message.front();
  }

 private:
  message_queue queue_;
};

class BoostLine final : public BlockingLine {
 public:
  void Open() override { isNear_ = true; }

 private:
  void Send(std::span<const std::byte> message) override { (isNear_ ? there_ : back_).Put(message); }
  std::byte Receive() override { return (isNear_ ? back_ : there_).Take(); }

  static std::string NameOf(const char* direction) { return "lumenar-bench-" + std::to_string(getpid()) + direction; }

  bool isNear_ = false;
  Queue there_{NameOf("-there")};
  Queue back_{NameOf("-back")};
};

}  // namespace

std::unique_ptr<IpcLine> NewBoostLine() { return std::make_unique<BoostLine>(); }

}  // namespace bench
