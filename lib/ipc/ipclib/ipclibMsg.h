// One logical message, on its way in or out. Always lives in a std::shared_ptr.
//
// Threading: one thread fills a message before it is handed on. What remains of an outgoing one is changed by the one
// thread alone that has the link's sending role.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <memory>
#include <span>

#include "lib/ipc/ipclib/ipclibStatus.h"
#include "lib/ipc/ipclib/ipclibWire.h"

namespace quill::ipc {

class LmIpclibStream;

class LmIpclibMsg : public std::enable_shared_from_this<LmIpclibMsg> {
 public:
  using OnComplete = std::function<void(LmIpcStatusCode, std::shared_ptr<LmIpclibMsg>)>;

  // A bit of a message's flags, whose low half never leaves the process: a user's send, which its stream counts until
  // it is complete.
  static constexpr std::uint32_t kCountsAsOutstanding = 1;

  // completionStatus() until sendComplete has run.
  static constexpr LmIpcStatusCode kNotComplete{65535};

  // Reassembly of an incoming message of `size` bytes.
  LmIpclibMsg(LmIpclibMsgType type, std::uint32_t flags, LmIpcStatusCode status, std::uint64_t srcStreamId,
              std::uint64_t destStreamId, std::uint32_t size);
  // An outgoing message that borrows its payload: `data` stays the caller's, and valid until sendComplete. For one
  // without payload `size` is 0 and `data` null.
  LmIpclibMsg(LmIpclibMsgType type, std::uint32_t flags, LmIpcStatusCode status, std::shared_ptr<LmIpclibStream> stream,
              std::uint64_t srcStreamId, std::uint64_t destStreamId, std::uint32_t size, const std::byte* data,
              OnComplete onComplete);
  // An outgoing message whose payload of `size` bytes is put together by appendData; prepareSend follows.
  LmIpclibMsg(LmIpclibMsgType type, std::uint32_t flags, LmIpcStatusCode status, std::uint64_t srcStreamId,
              std::uint64_t destStreamId, std::uint32_t size, OnComplete onComplete);
  LmIpclibMsg(const LmIpclibMsg&) = delete;
  LmIpclibMsg& operator=(const LmIpclibMsg&) = delete;
  virtual ~LmIpclibMsg();

  // Adds `size` bytes to the payload. The first call gets the room for all of it, even for 0 bytes.
  //   InvalidState     the payload is borrowed
  //   BufferTooSmall   more bytes than remain; nothing has been taken
  // Throws std::bad_alloc when there is no room; the message is as before.
  LmIpcStatusCode appendData(std::uint32_t size, const std::byte* data);

  // Ends an outgoing message: tells its callback, and then its stream. Success says that its last block was handed to
  // the peer, not that the peer has read it; StreamClosed that the link gave it up. Call once, with no lock held.
  // Throws std::bad_function_call for a message without a callback: one that goes out must have one.
  void sendComplete(LmIpcStatusCode status);

  // All of the payload remains to be sent.
  void prepareSend() noexcept;

  // The next bytes that remain to be sent, at most `limit`: from here on they count as sent.
  [[nodiscard]] std::span<const std::byte> takeRemaining(std::uint32_t limit) noexcept;

  [[nodiscard]] std::uint64_t msgId() const noexcept { return msgId_; }  // Of this process, for traces. Never 0.
  [[nodiscard]] LmIpclibMsgType msgType() const noexcept { return msgType_; }
  [[nodiscard]] std::uint32_t flags() const noexcept { return flags_; }
  [[nodiscard]] LmIpcStatusCode status() const noexcept { return status_; }
  [[nodiscard]] std::uint32_t size() const noexcept { return size_; }
  // Null while no byte has come in.
  [[nodiscard]] const std::byte* data() const noexcept { return data_; }
  // Bytes of the payload that have not come in yet, or have not been sent yet.
  [[nodiscard]] std::uint32_t remaining() const noexcept { return remaining_; }
  [[nodiscard]] std::uint64_t srcStreamId() const noexcept { return srcStreamId_; }
  [[nodiscard]] std::uint64_t destStreamId() const noexcept { return destStreamId_; }
  [[nodiscard]] LmIpcStatusCode completionStatus() const noexcept { return completionStatus_; }
  // The stream that owns the message; may be empty.
  [[nodiscard]] std::shared_ptr<LmIpclibStream> stream() const { return stream_; }
  void setStream(std::shared_ptr<LmIpclibStream> stream) noexcept { stream_ = std::move(stream); }

 private:
  struct Free {
    void operator()(std::byte* bytes) const noexcept { std::free(bytes); }
  };

  LmIpcStatusCode append(std::uint32_t size, const std::byte* data);
  void allocate();

  const std::uint64_t msgId_;
  const LmIpclibMsgType msgType_;
  const std::uint32_t flags_;
  const LmIpcStatusCode status_;
  std::shared_ptr<LmIpclibStream> stream_;
  const std::uint64_t srcStreamId_;
  const std::uint64_t destStreamId_;
  const std::uint32_t size_;
  std::uint32_t remaining_;
  std::uint8_t sendQueued_ = 0;  // Nobody reads it. It is kept.
  const std::byte* data_ = nullptr;
  LmIpcStatusCode completionStatus_ = kNotComplete;
  OnComplete onComplete_;
  const bool ownsData_;
  std::unique_ptr<std::byte, Free> buffer_;  // The payload, if it is our own.
};

}  // namespace quill::ipc
