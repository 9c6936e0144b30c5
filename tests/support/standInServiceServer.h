// Answers the calls of clients, and keeps the links that come of them.
#pragma once

#include <condition_variable>
#include <functional>
#include <list>
#include <mutex>

#include "tests/support/rpcService.h"
#include "tests/support/standInServiceLink.h"
#include "tests/support/standInServiceOptions.h"
#include "tests/support/standInServiceText.h"

namespace standIn {

// Every call may be made from any thread.
class Server {
 public:
  // `die` is called where the service is to end without a word.
  Server(Options options, Lines& lines, std::function<void()> die);

  // A call's answer. Its handles stay good until the next call.
  [[nodiscard]] support::ConnectReply Connect(const support::ConnectRequest& request);
  // On every link.
  void CarryOut(const Order& order);

  // Nobody tells this service anything any more.
  void InputHasEnded();
  // No more clients will come; those that are here may finish.
  void EndOnceIdle();
  // Until the input has ended; or until no link is left, once this has been asked for or as many commands have come as
  // were to come.
  void AwaitEnd();
  // Leaves the links that are left, without a word to their clients.
  void EndLinks();

 private:
  void Serve(const support::ConnectRequest& request, support::ConnectReply& reply);
  void CommandCame();
  void LinkEnded();

  const Options options_;
  const Surroundings surroundings_;

  std::mutex lock_;  // Guards what follows, and is never held while a link is made, told or destroyed.
  std::condition_variable changed_;
  bool inputHasEnded_ = false;
  bool endsOnceIdle_ = false;
  unsigned commands_ = 0;
  int liveLinks_ = 0;

  std::mutex linksLock_;  // Guards the links. A link's thread never takes it.
  std::list<ServedLink> links_;
};

}  // namespace standIn
