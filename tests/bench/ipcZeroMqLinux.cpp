#include <zmq.h>

#include <cstdlib>
#include <string>

#include "tests/bench/ipcPeersLinux.h"

namespace bench {
namespace {

void MustZeroMq(bool done) {
  if (!done) Fail(std::string("ZeroMQ: ") + zmq_strerror(zmq_errno()));
}

class ZeroMqLine final : public BlockingLine {
 public:
  ~ZeroMqLine() override {
    if (socket_ == nullptr) return;
    zmq_close(socket_);
    zmq_ctx_term(context_);
  }
  void Open() override {
    MakeSocket();
    MustZeroMq(zmq_connect(socket_, address_.c_str()) == 0);
  }

 private:
  void OpenFar() override {
    MakeSocket();
    MustZeroMq(zmq_bind(socket_, address_.c_str()) == 0);
  }
  void Send(std::span<const std::byte> message) override {
    MustZeroMq(zmq_send(socket_, message.data(), message.size(), 0) == static_cast<int>(message.size()));
  }
  std::byte Receive() override {
    zmq_msg_t message;
    zmq_msg_init(&message);
    MustZeroMq(zmq_msg_recv(&message, socket_, 0) > 0);
    const std::byte first = *static_cast<const std::byte*>(zmq_msg_data(&message));
    zmq_msg_close(&message);
    return first;
  }
  // The library has threads of its own, which must not be there before the processes part.
  void MakeSocket() {
    context_ = zmq_ctx_new();
    socket_ = zmq_socket(context_, ZMQ_PAIR);
    MustZeroMq(socket_ != nullptr);
  }

  const std::string address_ = std::string("ipc://") + std::getenv("XDG_RUNTIME_DIR") + "/zeromq";
  void* context_ = nullptr;
  void* socket_ = nullptr;
};

}  // namespace

std::unique_ptr<IpcLine> NewZeroMqLine() { return std::make_unique<ZeroMqLine>(); }

}  // namespace bench
