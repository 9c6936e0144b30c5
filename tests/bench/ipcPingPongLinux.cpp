#include <sys/eventfd.h>
#include <unistd.h>

#include <cstdint>

#include "tests/bench/ipcFloorLinux.h"

namespace bench {
namespace {

class PingPong final : public IpcLine {
 public:
  void Serve() override {
    while (true) {
      Await(there_);
      Signal(back_);
    }
  }
  void Open() override {}
  void GoRound(unsigned count) override {
    for (; count != 0; --count) {
      Signal(there_);
      Await(back_);
    }
  }
  void GoOneWay(unsigned, std::size_t) override { Fail("an event carries no message"); }

 private:
  static void Signal(int event) {
    const std::uint64_t one = 1;
    if (write(event, &one, sizeof one) != sizeof one) Fail("no event can be set");
  }
  static void Await(int event) {
    std::uint64_t count = 0;
    if (read(event, &count, sizeof count) != sizeof count) Fail("no event can be awaited");
  }

  const int there_ = eventfd(0, EFD_CLOEXEC);
  const int back_ = eventfd(0, EFD_CLOEXEC);
};

}  // namespace

std::unique_ptr<IpcLine> NewPingPong() { return std::make_unique<PingPong>(); }

}  // namespace bench
