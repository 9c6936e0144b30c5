// What two peers do, as a small machine of plain data: two links that face each other, the streams on them, and the
// callbacks that are queued. Written from the tables of states, without locks, tasks or bytes; so it can say for every
// step what the library must make of it.
#pragma once

#include <algorithm>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "lib/ipc/ipclib/ipclibLink.h"
#include "lib/ipc/ipclib/ipclibStream.h"

namespace streams::model {

using Status = quill::ipc::LmIpcStatusCode;
using Type = quill::ipc::LmIpclibMsgType;
using State = quill::ipc::LmIpclibStreamState;
using LinkState = quill::ipc::LmIpclibLinkState;

// What a stream's user does, settled when the stream is made.
struct Habits {
  bool accepts = true;      // Or refuses, as the one who listens.
  bool echoes = false;      // Answers each message.
  bool closesAtEnd = true;  // From within the callback of the empty message.

  friend bool operator==(const Habits&, const Habits&) = default;
};

inline bool IsEcho(const std::string& text) { return text.starts_with("re: "); }

using Id = std::size_t;  // Of a stream, of a link's side, of a send.
constexpr Id kNobody = ~Id{0};

struct Msg {
  Type type;
  Status status = Status::Success;
  std::string text{};
  Id source = kNobody;  // Streams by their number.
  Id dest = kNobody;    // kNobody: the control stream.
  Id send = kNobody;    // Of a user's message: which of the sends.
  Habits asksFor{};     // Of an Open.
};

struct Stream {
  Id side = 0;
  bool isControl = false;
  Habits habits{};
  State state = State::Init;
  enum class Closing : std::uint8_t { None, Local, Remote } closing = Closing::None;
  bool pending = false;               // Somebody waits for the answer to an Open,
  std::optional<Status> connected{};  // and has got this one.
  bool dispatchEnabled = false;
  bool dispatchQueued = false;
  bool dispatchRunning = false;
  bool hasTask = false;
  bool hasLink = false;
  bool timerSet = false;
  Id remote = kNobody;
  std::deque<Msg> incoming{};
  std::vector<std::string> heard{};
};

// An event, the wait for it, and whether the wait is armed.
struct Wait {
  bool signalled = false;
  bool set = false;
  bool armed = false;
  bool alive = true;

  void Start() {
    if (!alive || armed) return;
    armed = set = true;
  }
  void Stop() {
    if (armed) armed = set = false;
  }
};

enum class Send : std::uint8_t { Idle, Queued, WaitingForPeer };
enum class Reason : std::uint8_t { None, PeerStopped, PeerFailed };

struct Link {
  LinkState state = LinkState::Connected;
  Send send = Send::WaitingForPeer;
  Reason reason = Reason::None;
  std::deque<Msg> deferred{};
  std::vector<Msg> transaction{};  // In the block that the peer reads.
  std::set<Id> streams{};
  Id control = kNobody;
  // What the peer signals, in the order in which the library makes the waits.
  Wait recv{}, consumed{}, error{}, stop{};
};

struct Step {
  enum class Kind : std::uint8_t { Send, Recv, Consumed, Error, Stop, Dispatch, Timer } kind;
  Id of;  // The link's side, or the stream.

  friend bool operator==(const Step&, const Step&) = default;
};

class Model {
 public:
  Model() {
    for (Id side = 0; side < 2; ++side) {
      links[side].control = streams.size();
      streams.push_back({.side = side,
                         .isControl = true,
                         .state = State::Connected,
                         .dispatchEnabled = true,
                         .hasTask = true,
                         .hasLink = true});
      Link& link = links[side];
      for (Wait* wait : {&link.recv, &link.consumed, &link.error, &link.stop}) wait->Start();
      links[1 - side].consumed.signalled = true;
    }
    TakeSignals();
  }

  // The user's calls. Each may be followed by what becomes of signalled events.

  // Returns the stream's number.
  Id Connect(Id side, Habits own, Habits others) {
    const Id id = streams.size();
    streams.push_back({.side = side, .habits = own, .state = State::Connecting, .hasLink = true});
    Stream& stream = streams[id];
    if (links[side].state != LinkState::Connected) {
      stream.state = State::Closed;
      stream.connected = Status::InvalidState;
      return id;
    }
    links[side].streams.insert(id);
    stream.pending = true;
    SendOn(side, {.type = Type::Open, .source = id, .asksFor = others});
    return id;
  }
  Status CompleteConnect(Id id) {
    Stream& stream = streams[id];
    if (stream.state != State::Connected || stream.dispatchEnabled) return Status::InvalidState;
    stream.dispatchEnabled = stream.hasTask = true;
    QueueDispatch(id);
    return Status::Success;
  }
  Status SendText(Id id, const std::string& text) {
    Stream& stream = streams[id];
    if (stream.state != State::Connected && stream.closing != Stream::Closing::Remote) return Status::InvalidState;
    if (stream.state == State::Closed || !stream.hasLink) return Status::InvalidState;
    const Id number = sends.size();
    const Status status =
        SendOn(stream.side, {.type = Type::Msg, .text = text, .source = id, .dest = stream.remote, .send = number});
    if (status == Status::Success) sends.emplace_back();
    return status;
  }
  Status Close(Id id, bool withLimit) {
    Stream& stream = streams[id];
    if (stream.state == State::Closed) return Status::Success;
    if (stream.pending) {
      EndConnect(id, Status::StreamClosed);
      return Status::Success;
    }
    if (stream.state == State::Closing && stream.closing == Stream::Closing::Remote) {
      if (stream.hasLink) SendOn(stream.side, {.type = Type::CloseAck, .source = id, .dest = stream.remote});
      stream.state = State::Closed;
      return Status::Success;
    }
    if (stream.state != State::Connected) return Status::InvalidState;
    stream.state = State::Closing;
    stream.closing = Stream::Closing::Local;
    if (SendOn(stream.side, {.type = Type::Close, .source = id, .dest = stream.remote}) != Status::Success) {
      stream.incoming.push_back({.type = Type::CloseAck});
      QueueDispatch(id);
    } else if (withLimit) {
      stream.timerSet = true;
      timers.push_back(id);
    }
    return Status::Success;
  }
  void Shutdown(Id id) {
    Stream& stream = streams[id];
    const bool closesHere = stream.state == State::Closing && stream.closing == Stream::Closing::Local;
    if (stream.state == State::Connecting || stream.state == State::Connected || closesHere) CloseStream(id);
  }
  // Every limit that is set has come.
  void Fire() {
    for (const Id id : timers) {
      if (std::exchange(streams[id].timerSet, false)) queue.push_back({Step::Kind::Timer, id});
    }
  }
  void CloseLink(Id side) { StopInOrder(side); }
  void ShutDownLink(Id side) { Fail(side); }

  void Run(std::size_t place) {
    const Step step = queue[place];
    queue.erase(queue.begin() + static_cast<std::ptrdiff_t>(place));
    switch (step.kind) {
      case Step::Kind::Send: return PerformSend(step.of);
      case Step::Kind::Recv:
        if (Fired(links[step.of].recv)) Receive(step.of);
        return;
      case Step::Kind::Consumed:
        if (!Fired(links[step.of].consumed)) return;
        if (IsUp(links[step.of])) links[step.of].consumed.Start();
        return PerformSend(step.of);
      case Step::Kind::Error:
        if (!Fired(links[step.of].error)) return;
        links[step.of].reason = Reason::PeerFailed;
        return Fail(step.of);
      case Step::Kind::Stop:
        if (!Fired(links[step.of].stop)) return;
        links[step.of].reason = Reason::PeerStopped;
        return links[step.of].state == LinkState::Closing ? GiveUpSends(step.of) : StopInOrder(step.of);
      case Step::Kind::Dispatch: return Dispatch(step.of);
      case Step::Kind::Timer:
        if (streams[step.of].state == State::Closing && streams[step.of].closing == Stream::Closing::Local) {
          CloseStream(step.of);
        }
        return;
    }
  }

  // Waits whose events are signalled get their callbacks queued.
  void TakeSignals() {
    for (Id side = 0; side < 2; ++side) {
      Link& link = links[side];
      const std::pair<Wait*, Step::Kind> all[] = {{&link.recv, Step::Kind::Recv},
                                                  {&link.consumed, Step::Kind::Consumed},
                                                  {&link.error, Step::Kind::Error},
                                                  {&link.stop, Step::Kind::Stop}};
      for (const auto& [wait, kind] : all) {
        if (!wait->set || !wait->signalled) continue;
        wait->set = wait->signalled = false;
        queue.push_back({kind, side});
      }
    }
  }

  std::deque<Stream> streams;
  Link links[2];
  std::deque<Step> queue;
  std::deque<Id> offered;                    // Streams that a listener is asked about, in this order.
  std::vector<std::optional<Status>> sends;  // How the messages of users ended, those that were taken.

 private:
  std::vector<Id> timers;  // In the order in which they were made.

  static bool IsUp(const Link& link) { return link.state == LinkState::Connected || link.state == LinkState::Closing; }
  static bool Fired(Wait& wait) {
    if (!wait.alive || !wait.armed) return false;
    wait.armed = false;
    return true;
  }
  Link& PeerOf(Id side) { return links[1 - side]; }

  Status SendOn(Id side, Msg msg) {
    Link& link = links[side];
    if (link.state != LinkState::Connected) return Status::InvalidState;
    link.deferred.push_back(std::move(msg));
    if (link.send == Send::Idle) {
      link.send = Send::Queued;
      queue.push_back({Step::Kind::Send, side});
    }
    return Status::Success;
  }
  void PerformSend(Id side) {
    Link& link = links[side];
    if (link.deferred.empty()) {
      link.send = Send::Idle;
      return;
    }
    link.transaction.assign(link.deferred.begin(), link.deferred.end());
    link.deferred.clear();
    link.send = Send::WaitingForPeer;
    PeerOf(side).recv.signalled = true;
    const bool mayEnd = link.state == LinkState::Closing || link.state == LinkState::ShuttingDown;
    Complete(link.transaction, Status::Success);
    if (mayEnd) Check(side);
  }
  template <class Messages>
  void Complete(const Messages& messages, Status status) {
    for (const Msg& msg : messages) {
      if (msg.send != kNobody) sends[msg.send] = status;
      if (msg.type == Type::Open && status != Status::Success) EndConnect(msg.source, status);
    }
  }

  void Receive(Id side) {
    Link& link = links[side];
    std::set<Id> touched;
    for (const Msg& msg : PeerOf(side).transaction) {
      const Id id = msg.dest == kNobody ? link.control : msg.dest;
      if (id == kNobody || (msg.dest != kNobody && !touched.contains(id) && !link.streams.contains(id))) continue;
      touched.insert(id);
      const bool isMeant = msg.dest == kNobody || msg.type == Type::OpenAck ? streams[id].remote == kNobody
                                                                            : streams[id].remote == msg.source;
      if (isMeant && !Take(id, msg)) touched.erase(id);
    }
    if (link.recv.alive && IsUp(link)) {
      link.recv.Start();
      PeerOf(side).consumed.signalled = true;
    }
    for (const Id id : touched) QueueDispatch(id);
  }
  bool Take(Id id, const Msg& msg) {
    Stream& stream = streams[id];
    const bool takes = stream.state == State::Connecting || stream.state == State::Connected ||
                       (stream.state == State::Closing && stream.closing == Stream::Closing::Local);
    if (!takes) return false;
    if (msg.type != Type::OpenAck) {
      stream.incoming.push_back(msg);
      return true;
    }
    if (!stream.pending) return true;
    if (msg.status == Status::Success) stream.remote = msg.source;
    EndConnect(id, msg.status);
    return true;
  }
  void EndConnect(Id id, Status status) {
    Stream& stream = streams[id];
    if (!stream.pending) return;
    stream.pending = false;
    stream.connected = status;
    if (status == Status::Success) {
      stream.state = State::Connected;
    } else {
      stream.state = State::Closed;
      LetGo(id);
    }
  }

  void QueueDispatch(Id id) {
    Stream& stream = streams[id];
    if (!stream.dispatchEnabled || !stream.hasTask || stream.incoming.empty()) return;
    if (stream.dispatchQueued || stream.dispatchRunning) return;
    stream.dispatchQueued = true;
    queue.push_back({Step::Kind::Dispatch, id});
  }
  void Dispatch(Id id) {
    if (!streams[id].dispatchQueued) return;
    streams[id].dispatchQueued = false;
    streams[id].dispatchRunning = true;
    while (!streams[id].incoming.empty()) {
      const Msg msg = streams[id].incoming.front();
      streams[id].incoming.pop_front();
      Deliver(id, msg);
    }
    streams[id].dispatchRunning = false;
  }
  void Deliver(Id id, const Msg& msg) {
    Stream& stream = streams[id];
    const bool closesHere = stream.state == State::Closing && stream.closing == Stream::Closing::Local;
    switch (msg.type) {
      case Type::Open: return Serve(id, msg);
      case Type::Msg: return Hear(id, msg.text);
      case Type::Close:
        if (stream.state == State::Connected) {
          stream.state = State::Closing;
          stream.closing = Stream::Closing::Remote;
          QueueEnd(id);
        } else if (closesHere) {
          stream.timerSet = false;
          CloseStream(id);
        }
        return;
      case Type::CloseAck:
        if (!closesHere) return;
        stream.timerSet = false;
        return CloseStream(id);
      case Type::Shutdown: return Shutdown(id);
      default: return;
    }
  }
  void Hear(Id id, const std::string& text) {
    if (!streams[id].isControl) {
      streams[id].heard.push_back(text.empty() ? "<end>" : text);
      if (!text.empty() && streams[id].habits.echoes && !IsEcho(text)) SendText(id, "re: " + text);
      if (text.empty() && streams[id].habits.closesAtEnd) Close(id, false);
    }
    if (text.empty()) LetGo(id);
  }
  void Serve(Id control, const Msg& open) {
    const Id side = streams[control].side;
    const Id id = streams.size();
    streams.push_back({.side = side, .habits = open.asksFor, .hasLink = true, .remote = open.source});
    Stream& stream = streams[id];
    Status status = links[side].state == LinkState::Connected ? Status::Success : Status::InvalidState;
    if (status == Status::Success) offered.push_back(id);
    if (status == Status::Success && !open.asksFor.accepts) status = Status::AccessDenied;
    if (status == Status::Success) {
      links[side].streams.insert(id);
      SendOn(side, {.type = Type::OpenAck, .source = id, .dest = open.source});
      stream.state = State::Connected;
      stream.dispatchEnabled = stream.hasTask = true;
    } else {
      SendOn(side, {.type = Type::OpenAck, .status = status, .source = id, .dest = open.source});
      stream.state = State::Closed;
      stream.hasLink = false;
    }
  }

  void CloseStream(Id id) {
    Stream& stream = streams[id];
    const bool wasPending = stream.pending;
    const bool wasConnecting = stream.state == State::Connecting;
    stream.state = State::Closed;
    if (wasConnecting || !stream.dispatchEnabled) {
      stream.incoming.clear();
      LetGo(id);
      stream.pending = false;
      if (wasPending) stream.connected = Status::StreamClosed;
    } else {
      QueueEnd(id);
    }
  }
  void QueueEnd(Id id) {
    streams[id].incoming.push_back({.type = Type::Msg});
    QueueDispatch(id);
  }
  // The stream leaves its link.
  void LetGo(Id id) {
    Stream& stream = streams[id];
    stream.hasTask = stream.timerSet = false;
    std::erase(queue, Step{Step::Kind::Timer, id});
    std::erase(queue, Step{Step::Kind::Dispatch, id});
    if (!stream.hasLink) return;
    stream.hasLink = false;
    if (!stream.isControl && links[stream.side].streams.erase(id) != 0) Check(stream.side);
  }

  void Check(Id side) {
    Link& link = links[side];
    if (!link.streams.empty()) return;
    if (link.state == LinkState::Connected) return StopInOrder(side);
    const bool inOrder = link.state == LinkState::Closing;
    if ((!inOrder && link.state != LinkState::ShuttingDown) || !link.deferred.empty()) return;
    link.state = LinkState::Closed;
    if (link.reason == Reason::None) PeerOf(side).stop.signalled = true;
    if (inOrder) StopWorkers(side);
  }
  void StopInOrder(Id side) {
    Link& link = links[side];
    if (link.state != LinkState::Connected) return;
    link.state = LinkState::Closing;
    const std::set<Id> left = link.streams;
    if (left.empty()) return Check(side);
    std::deque<Msg> unsent;
    if (link.reason == Reason::PeerStopped) unsent.swap(link.deferred);
    Complete(unsent, Status::StreamClosed);
    for (const Id id : left) Close(id, false);
  }
  void GiveUpSends(Id side) {
    std::deque<Msg> unsent;
    unsent.swap(links[side].deferred);
    Complete(unsent, Status::StreamClosed);
    Check(side);
  }
  void Fail(Id side) {
    Link& link = links[side];
    if (link.state == LinkState::Closed || link.state == LinkState::ShuttingDown) return;
    if (link.reason == Reason::None) PeerOf(side).error.signalled = true;
    link.state = LinkState::ShuttingDown;
    std::deque<Msg> unsent;
    unsent.swap(link.deferred);
    const std::set<Id> left = link.streams;
    link.recv.Stop();
    link.recv.alive = false;
    std::erase(queue, Step{Step::Kind::Recv, side});
    StopWorkers(side);
    Complete(unsent, Status::StreamClosed);
    if (left.empty()) return Check(side);
    for (const Id id : left) Shutdown(id);
  }
  void StopWorkers(Id side) {
    Link& link = links[side];
    for (Wait* wait : {&link.recv, &link.consumed, &link.error, &link.stop}) wait->Stop();
    if (const Id control = std::exchange(link.control, kNobody); control != kNobody) Shutdown(control);
  }
};

}  // namespace streams::model
