#include <nng/nng.h>
#include <nng/protocol/pair0/pair.h>

#include <cstdlib>
#include <string>

#include "tests/bench/ipcPeersLinux.h"

namespace bench {
namespace {

void MustNng(int error) {
  if (error != 0) Fail(std::string("nng: ") + nng_strerror(error));
}

class NngLine final : public BlockingLine {
 public:
  ~NngLine() override { nng_close(socket_); }
  // The other side may not listen yet: it is tried again.
  void Open() override {
    MakeSocket();
    MustNng(nng_dial(socket_, address_.c_str(), nullptr, NNG_FLAG_NONBLOCK));
  }

 private:
  void OpenFar() override {
    MakeSocket();
    MustNng(nng_listen(socket_, address_.c_str(), nullptr, 0));
  }
  void Send(std::span<const std::byte> message) override {
    MustNng(nng_send(socket_, const_cast<std::byte*>(message.data()), message.size(), 0));
  }
  std::byte Receive() override {
    nng_msg* message = nullptr;
    MustNng(nng_recvmsg(socket_, &message, 0));
    const std::byte first = *static_cast<const std::byte*>(nng_msg_body(message));
    nng_msg_free(message);
    return first;
  }
  void MakeSocket() {
    MustNng(nng_pair0_open(&socket_));
    MustNng(nng_socket_set_size(socket_, NNG_OPT_RECVMAXSZ, 2 * kLarge));
  }

  const std::string address_ = std::string("ipc://") + std::getenv("XDG_RUNTIME_DIR") + "/nng";
  nng_socket socket_ = NNG_SOCKET_INITIALIZER;
};

}  // namespace

std::unique_ptr<IpcLine> NewNngLine() { return std::make_unique<NngLine>(); }

}  // namespace bench
