// A service of this process: the other end of the links that the library makes, on threads of its own. It takes the
// place of the way to real services, for the test program that is linked with it.
#pragma once

#include <gmock/gmock.h>

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <regex>
#include <string>
#include <utility>
#include <vector>

#include "lib/ipc/ipclib/ipclibLinkListener.h"
#include "lib/ipc/ipclib/ipclibStream.h"
#include "platform/handles.h"
#include "tests/streams/openLink.h"
#include "tests/support/meeting.h"
#include "tests/task/taskSupport.h"

namespace library {

using namespace quill::ipc;
using streams::OpenLink;
using streams::TextOf;
using Status = LmIpcStatusCode;

inline constexpr platform::GUID kEndpoint = streams::kEndpoint;
inline constexpr platform::GUID kOtherEndpoint{0x11223344, 0x5566, 0x7788, {1, 2, 3, 4, 5, 6, 7, 9}};

// The test library's own expressions know no sets of characters on Windows.
MATCHER_P(Matches, pattern, "matches '" + std::string(pattern) + "'") {
  return std::regex_match(std::string(arg), std::regex(std::string(pattern)));
}

// What the service was asked to wait for.
struct WaitAsked {
  platform::GUID endpoint;
  platform::DWORD timeoutMs;
  platform::EventHandle abortEvent;
};

// One at a time.
class Service {
 public:
  Service();
  // Ends what is left of its links.
  ~Service();
  Service(const Service&) = delete;
  Service& operator=(const Service&) = delete;

  // ---- How it behaves. To be set before it is asked. ----

  bool isReachable = true;            // There is a connector.
  bool hasLinks = true;               // The library can make links.
  Status listens = Status::TimedOut;  // What the wait for it comes to.
  std::function<Status()> answers;    // To a new link, on the thread that connects. None: Success.
  std::function<Status()> opens;      // To a further stream on a link, on a thread of the service. None: Success.
  bool closesInTurn = true;           // When a client closes its stream.
  bool isThere = true;                // False: it attaches its end, and never looks at it.
  std::uint32_t channelSize = 65536;

  // ---- What has come. ----

  [[nodiscard]] std::vector<StreamFlags> Asked() const;  // For a connector, and with which flags.
  [[nodiscard]] std::vector<WaitAsked> Waits() const;
  [[nodiscard]] std::vector<std::u16string> Names() const;  // Of the streams that have been connected.
  [[nodiscard]] std::size_t Opened() const;                 // Streams that were to share a link.
  // The next message in the order in which they come; "<end>" for the last one of a stream. Waits for it.
  [[nodiscard]] std::string NextMessage();

  // To every stream that is open.
  void Send(const std::string& text);
  // Closes every stream that is open, from the service's side; or the same for those whose clients have closed.
  void CloseStreams();
  // Until the service's ends of all links are closed.
  void AwaitLinksClosed();

  // ---- For the stand-ins. ----

  [[nodiscard]] static Service& Current();
  bool IsAsked(StreamFlags flags);
  Status IsAwaited(const WaitAsked& wait);
  Status Connect(const std::shared_ptr<LmIpclibStream>& stream, const std::shared_ptr<LmIpclibLink>& link);

 private:
  using StreamPtr = std::shared_ptr<LmIpclibStream>;
  [[nodiscard]] std::shared_ptr<OpenLink> NewLink(const streams::Wire& in, const streams::Wire& out);
  Status Accept(const StreamPtr& stream);
  Status TakeFurther(const StreamPtr& stream);
  void Hear(const std::weak_ptr<LmIpclibStream>& weak, const LmIpclibMsg& message);
  [[nodiscard]] std::vector<StreamPtr> Streams() const;

  mutable std::mutex mutex_;  // Guards what follows, but for the executor.
  std::vector<StreamFlags> asked_;
  std::vector<WaitAsked> waits_;
  std::vector<std::u16string> names_;
  std::size_t opened_ = 0;
  std::vector<std::string> messages_;
  std::size_t messagesTaken_ = 0;
  std::condition_variable messageCame_;
  std::vector<std::shared_ptr<OpenLink>> links_;
  std::vector<std::unique_ptr<streams::Wire>> wires_;
  std::vector<std::weak_ptr<LmIpclibStream>> streams_;
  std::shared_ptr<LmIpclibLinkListener> listener_;
  support::Signal linkClosed_;
  std::size_t linksAwaited_ = 0;
  task::Executor executor_;
};

}  // namespace library
