#include <sys/socket.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <string>

#include "tests/bench/ipcPeersLinux.h"

namespace bench {
namespace {

int MustSdBus(int result) {
  if (result < 0) Fail(std::string("sd-bus: ") + std::strerror(-result));
  return result;
}

class SdBusLine final : public BlockingLine {
 public:
  SdBusLine() {
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends_.data()) != 0)
      Fail("no pair of sockets");
  }
  ~SdBusLine() override { sd_bus_close_unref(bus_); }
  void Open() override {
    Take(ends_[0], ends_[1]);
    MustSdBus(sd_bus_start(bus_));
  }

 private:
  void OpenFar() override {
    Take(ends_[1], ends_[0]);
    MustSdBus(sd_bus_set_server(bus_, 1, sd_id128_t{}));
    MustSdBus(sd_bus_start(bus_));
  }
  void Send(std::span<const std::byte> message) override {
    sd_bus_message* signal = nullptr;
    MustSdBus(sd_bus_message_new_signal(bus_, &signal, "/bench", "bench.Line", "Message"));
    MustSdBus(sd_bus_message_append_array(signal, 'y', message.data(), message.size()));
    MustSdBus(sd_bus_send(bus_, signal, nullptr));
    sd_bus_message_unref(signal);
    MustSdBus(sd_bus_flush(bus_));
  }
  std::byte Receive() override {
    sd_bus_message* signal = nullptr;
    while (signal == nullptr) {
      if (MustSdBus(sd_bus_process(bus_, &signal)) == 0) MustSdBus(sd_bus_wait(bus_, UINT64_MAX));
    }
    const void* data = nullptr;
    std::size_t size = 0;
    MustSdBus(sd_bus_message_read_array(signal, 'y', &data, &size));
    const std::byte first = *static_cast<const std::byte*>(data);
    sd_bus_message_unref(signal);
    return first;
  }
  void Take(int own, int other) {
    close(other);
    MustSdBus(sd_bus_new(&bus_));
    MustSdBus(sd_bus_set_fd(bus_, own, own));
  }

  std::array<int, 2> ends_{};
  sd_bus* bus_ = nullptr;
};

}  // namespace

std::unique_ptr<IpcLine> NewSdBusLine() { return std::make_unique<SdBusLine>(); }

}  // namespace bench
