// A user of the library, with one stream to a service in another process.
#pragma once

#include <gmock/gmock.h>

#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include "lib/ipc/ipclib/ipclib.h"
#include "tests/service/serviceProcess.h"

namespace roads {

using quill::ipc::LmIpclib;
using quill::ipc::LmIpclibMsg;
using quill::ipc::StreamFlags;
using service::kNoLimit;
using service::kPlain;
using service::Status;

// What has become of messages. Any thread may ask.
struct Posted {
  int accepted = 0;
  int sent = 0;     // Completed with success.
  int givenUp = 0;  // Completed as the stream was closed.
  int failed = 0;   // Completed otherwise, which is wrong.

  [[nodiscard]] int Completed() const { return sent + givenUp + failed; }
};

class LibraryUser {
 public:
  LibraryUser() { EXPECT_EQ(library_->init(0), Status::Success); }
  LibraryUser(const LibraryUser&) = delete;
  LibraryUser& operator=(const LibraryUser&) = delete;
  ~LibraryUser() {
    if (library_) static_cast<void>(library_->uninit());
  }

  // A stream that hears the service from now on.
  Status Connect(const platform::GUID& endpoint, StreamFlags flags = kPlain, platform::DWORD timeoutMs = 0,
                 platform::EventHandle abortEvent = nullptr) {
    const auto stream = library_->connect(endpoint, u"talk", flags, heard.Callback(), timeoutMs, abortEvent);
    if (!stream) return stream.status();
    stream_ = *stream;
    return stream_->completeConnect();
  }
  // Keeps the text until it has gone.
  Status Post(std::string text) {
    const auto kept = std::make_shared<const std::string>(std::move(text));
    Count([](Posted& posted) { ++posted.accepted; });
    const Status status = stream_
                              ->send({}, static_cast<std::uint32_t>(kept->size()), kept->data(),
                                     [this, kept](Status completion, const std::shared_ptr<LmIpclibMsg>&) {
                                       Count([&](Posted& posted) { ++Counter(posted, completion); });
                                     })
                              .status();
    if (status != Status::Success) Count([](Posted& posted) { --posted.accepted; });
    return status;
  }
  // Waits until at most so many are neither sent nor given up.
  void AwaitOutstanding(int atMost) {
    std::unique_lock guard(lock_);
    changed_.wait(guard, [&] { return posted_.accepted - posted_.Completed() <= atMost; });
  }
  // Closes the stream, and hears the service agree.
  void Close() {
    EXPECT_EQ(stream_->close(kNoLimit), Status::Success);
    heard.end.Await();
  }
  // Ends the library; every message is completed by then.
  Status End() {
    stream_.reset();
    return std::exchange(library_, nullptr)->uninit();
  }

  [[nodiscard]] Posted Fates() const {
    const std::lock_guard guard(lock_);
    return posted_;
  }
  [[nodiscard]] const std::shared_ptr<quill::ipc::LmIpclibStream>& Stream() const { return stream_; }
  [[nodiscard]] LmIpclib& Library() { return *library_; }

  service::Heard heard;

 private:
  static int& Counter(Posted& posted, Status completion) {
    if (completion == Status::Success) return posted.sent;
    return completion == Status::StreamClosed ? posted.givenUp : posted.failed;
  }
  template <class Change>
  void Count(const Change& change) {
    const std::lock_guard guard(lock_);
    change(posted_);
    changed_.notify_all();
  }

  mutable std::mutex lock_;
  std::condition_variable changed_;
  Posted posted_;
  std::shared_ptr<LmIpclib> library_ = std::make_shared<LmIpclib>();
  std::shared_ptr<quill::ipc::LmIpclibStream> stream_;
};

}  // namespace roads
