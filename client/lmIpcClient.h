// One connection to a service: messages of bytes go out, messages that come in reach the class that derives.
//
//   class Listener final : public LmIpcClient {
//    public:
//     ~Listener() override { Disconnect(); }
//     int ReservedOperation() override { return 0; }
//     void OnMessage(const std::uint8_t* data, std::uint32_t size) override { ... }
//   };
//   Listener listener;
//   if (listener.ConnectToStream(endpoint, 0) == LmIpcStatusCode::Success) {
//     listener.SendMsg(data, size);
//     listener.CloseStream();
//   }
//
// Life: used once, from ConnectToStream to CloseStream. A class that derives calls Disconnect in its destructor, for
// messages come in until then.
// Threading: one thread owns the client. OnMessage and ReceiveCB are called on threads of the library, one call at a
// time, from within ConnectToStream until Disconnect returns.
// Failure is returned and logged (runtime/logCalls.h); only want of memory throws.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

#include "lib/ipc/ipclib/ipclib.h"
#include "lib/ipc/ipclib/ipclibMsg.h"
#include "lib/ipc/ipclib/ipclibStatus.h"
#include "lib/ipc/ipclib/ipclibStream.h"
#include "platform/types.h"

namespace client {

using quill::ipc::LmIpcStatusCode;

class LmIpcBase {
 public:
  LmIpcBase() = default;
  LmIpcBase(const LmIpcBase&) = delete;
  LmIpcBase& operator=(const LmIpcBase&) = delete;
  virtual ~LmIpcBase() = default;

  // A message has come in. An empty one is the last.
  virtual void ReceiveCB(LmIpcStatusCode status, std::shared_ptr<quill::ipc::LmIpclibMsg> message) = 0;

 protected:
  virtual int SendMsg(std::uint64_t streamId, const std::uint8_t* data, std::uint32_t size) = 0;

  std::shared_ptr<quill::ipc::LmIpclib> ipclib;  // Empty until the first connect.
};

class LmIpcClient : public LmIpcBase {
 public:
  // Draws the stream's name. `stopTimeout` is that of the library.
  explicit LmIpcClient(std::chrono::milliseconds stopTimeout = quill::ipc::LmIpclib::kStopTimeout);
  // Disconnects.
  ~LmIpcClient() override;

  void ReceiveCB(LmIpcStatusCode status, std::shared_ptr<quill::ipc::LmIpclibMsg> message) override;
  // Nobody calls it.
  virtual int ReservedOperation() = 0;
  // The bytes are gone when this returns. There is at least one.
  virtual void OnMessage(const std::uint8_t* data, std::uint32_t size) = 0;

  // Waits until the service has answered. With `option` other than 0 the service must prove that it is the system's.
  //   Unexpected   the library cannot begin its work: `ipclib` is empty, and this may be called again
  //   otherwise what LmIpclib::connect says
  // After any other failure only CloseStream may be called.
  LmIpcStatusCode ConnectToStream(const platform::GUID& endpoint, int option);

  // Hands a copy of the bytes to the library: true says no more than that it took them. Not for 0 bytes.
  int SendMsg(const std::uint8_t* data, std::uint32_t size);

  // Sends what is outstanding, tells the service, and ends the library, which may take both of its time-outs. Success
  // at once when there is no stream (any more). After a failure everything is as it was.
  LmIpcStatusCode CloseStream();

 protected:
  int SendMsg(std::uint64_t streamId, const std::uint8_t* data, std::uint32_t size) override;

  // Closes, and ends the library where that has failed: from then on nothing comes in. May be called again.
  void Disconnect() noexcept;

 private:
  LmIpcStatusCode StartLibrary();

  std::shared_ptr<quill::ipc::LmIpclibStream> stream_;  // Empty unless connected.
  std::u16string streamName_;                           // A new id's text; empty when there was none.
  bool connected_ = false;                              // Stays when the stream is closed: a client is used once.
  const std::chrono::milliseconds stopTimeout_;
};

}  // namespace client
