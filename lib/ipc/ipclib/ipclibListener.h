// Whoever listens for the peers of one endpoint, in every way in which it can be reached.
//
// Threading: every member may be called from any thread. Nothing of others is called with the lock held.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string_view>
#include <vector>

#include "lib/ipc/ipclib/ipclibStatus.h"
#include "platform/types.h"

namespace quill::ipc {

class LmIpclibLinkListener;

enum class LmIpclibListenerState : std::uint32_t {
  Init = 0,
  Starting = 1,
  Listening = 2,
  Accepting = 3,
  Closing = 4,
  Closed = 5,
  Error = 6,  // Closed, but for a way of being reached that could not be.
};

// "unknown" for a number that is none of the states.
[[nodiscard]] std::string_view NameOf(LmIpclibListenerState state) noexcept;

class LmIpclibListener {
 public:
  using State = LmIpclibListenerState;
  using LinkListeners = std::vector<std::shared_ptr<LmIpclibLinkListener>>;
  using OnClosed = std::function<void(LmIpclibListener&)>;

  // `state` is how far the link listeners are, as whoever has started them tells it. `onClosed` is called once, when
  // `close` is done.
  LmIpclibListener(const platform::GUID& endpoint, State state, LinkListeners linkListeners, OnClosed onClosed);
  LmIpclibListener(const LmIpclibListener&) = delete;
  LmIpclibListener& operator=(const LmIpclibListener&) = delete;

  // Closes every link listener, also behind one that fails: then the first failure is the result, and Error the state.
  //   InvalidState   neither Listening nor Accepting; nothing is called
  // Throws std::bad_function_call when there is no onClosed: the listener is closed then.
  LmIpcStatusCode close();

  [[nodiscard]] State state() const;
  [[nodiscard]] const platform::GUID& endpoint() const noexcept { return endpoint_; }

 private:
  LmIpcStatusCode closeLinkListeners();

  mutable std::mutex mutex_;  // Guards state_ and linkListeners_.
  State state_;
  const platform::GUID endpoint_;
  OnClosed onClosed_;  // Of the one thread whose `close` goes through.
  LinkListeners linkListeners_;
};

}  // namespace quill::ipc
