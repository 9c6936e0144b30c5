// Two links of this process that face each other, on the threads of the system's pool.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <functional>
#include <list>
#include <memory>
#include <string>
#include <utility>

#include "lib/ipc/ipclib/ipclibLinkListener.h"
#include "lib/ipc/ipclib/ipclibStream.h"
#include "tests/streams/openLink.h"
#include "tests/support/meeting.h"
#include "tests/task/taskSupport.h"

namespace conversations {

using namespace quill::ipc;
using streams::OpenLink;
using streams::TextOf;
using Status = LmIpcStatusCode;
using State = LmIpclibStream::State;
using LinkState = LmIpclibLink::State;

inline constexpr auto kNoLimit = std::chrono::milliseconds::max();

// Its own data, which live until they are sent.
inline Status SendText(LmIpclibStream& stream, std::string text, std::function<void(Status)> then = {}) {
  const auto kept = std::make_shared<const std::string>(std::move(text));
  return stream
      .send({}, static_cast<std::uint32_t>(kept->size()), kept->data(),
            [kept, then = std::move(then)](Status status, const std::shared_ptr<LmIpclibMsg>&) {
              if (then) then(status);
            })
      .status();
}

class Joined {
 public:
  using Callback = LmIpclibLink::Callback;

  explicit Joined(
      std::uint32_t channelSize = 65536, const Callback& stopping = [](LmIpclibLink&) {},
      const Callback& closed = [](LmIpclibLink&) {})
      : wires_{streams::Wire(channelSize), streams::Wire(channelSize)} {
    for (std::size_t side = 0; side < 2; ++side) {
      links[side] = std::make_shared<OpenLink>(stopping, [this, closed](LmIpclibLink& link) {
        closed(link);
        closed_.Give();
      });
      EXPECT_EQ(links[side]->connecting(), Status::Success);
      EXPECT_EQ(streams::Attach(*links[side], wires_[1 - side], wires_[side], channelSize), Status::Success);
    }
    for (const auto& link : links) {
      unsigned errorCode = 0;
      EXPECT_EQ(link->start(executor.Share(), errorCode), Status::Success);
    }
  }
  Joined(const Joined&) = delete;
  Joined& operator=(const Joined&) = delete;
  // What the links keep goes on the pool's threads, and is waited for.
  ~Joined() {
    for (const auto& link : links) link->shutdown();
    AwaitClosed();
    listeners_ = {};
    links = {};
  }

  // Who takes the streams that the other side opens.
  void Listen(std::size_t side, LmIpclibLinkListener::OnStream onStream) {
    listeners_[side] = std::make_shared<LmIpclibLinkListener>(streams::kEndpoint, std::move(onStream));
    links[side]->Listen(listeners_[side]);
  }
  [[nodiscard]] std::shared_ptr<LmIpclibStream> NewStream(LmIpclibStream::RecvCallback callback,
                                                          std::u16string name = u"talk") const {
    return std::make_shared<LmIpclibStream>(streams::kEndpoint, std::move(name), StreamFlags(), executor.Share(),
                                            std::move(callback));
  }
  // A connected stream; the messages flow.
  [[nodiscard]] std::shared_ptr<LmIpclibStream> Connect(std::size_t side, LmIpclibStream::RecvCallback callback) const {
    auto stream = NewStream(std::move(callback));
    EXPECT_EQ(stream->connect({}, links[side], nullptr), Status::Success);
    EXPECT_EQ(stream->completeConnect(), Status::Success);
    return stream;
  }
  // Until both links are closed.
  void AwaitClosed() {
    for (; closedAwaited_ < 2; ++closedAwaited_) closed_.Await();
  }

  task::Executor executor;
  std::array<std::shared_ptr<OpenLink>, 2> links;

 private:
  const std::array<streams::Wire, 2> wires_;  // Each carries what its side sends.
  std::array<std::shared_ptr<LmIpclibLinkListener>, 2> listeners_;
  support::Signal closed_;
  int closedAwaited_ = 0;
};

// Answers each message, and closes when the other side does.
inline LmIpclibLinkListener::OnStream Echo() {
  return [](const std::shared_ptr<LmIpclibStream>& stream) {
    return stream->accept({}, [weak = std::weak_ptr(stream)](Status, const std::shared_ptr<LmIpclibMsg>& message) {
      const auto self = weak.lock();
      if (message->size() == 0) {
        static_cast<void>(self->close(kNoLimit));
      } else {
        static_cast<void>(SendText(*self, TextOf(*message)));
      }
    });
  };
}

}  // namespace conversations
