// The serving side of one link: two channels, and a thread that takes in what the client sends.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/standInServiceChannel.h"
#include "tests/support/standInServiceClient.h"
#include "tests/support/standInServiceStreams.h"

namespace standIn {

// What a link reports to. All of it may be called from any thread.
struct Surroundings {
  Lines& lines;
  std::function<void()> commandCame;
  std::function<void()> linkEnded;
  // Ends the process at once. Where it returns nevertheless, the link is left as it is.
  std::function<void()> die;
};

class ServedLink {
 public:
  // Both outlive the link. Throws std::system_error when the system lacks what the link needs.
  ServedLink(const Options& options, const Surroundings& surroundings, const support::ConnectRequest& request);
  ServedLink(const ServedLink&) = delete;
  ServedLink& operator=(const ServedLink&) = delete;
  ~ServedLink();

  // What the client is to know of the link.
  void Describe(support::ConnectReply& reply) const;
  // Carried out by the link's thread; forgotten once the link has ended.
  void Post(Order order);
  [[nodiscard]] bool HasEnded();

 private:
  void Run();
  void Wait();
  void CarryOut(const Order& order);
  void CarryOutPosted();
  void ClientMaySend() const;
  void MayWrite();
  void TakeIn();
  void WriteWhatWaits();
  [[nodiscard]] std::vector<std::byte> Wrong(Deed deed);
  void End(const std::string& why);
  void Die();

  const Options& options_;
  const Surroundings& surroundings_;
  const std::uint64_t clientLink_;
  const Channel toClient_;
  const Channel fromClient_;
  const ClientWatch client_;
  const platform::UniqueEvent posted_;

  // The thread's own.
  Outbox outbox_;
  std::deque<Deed> wrongTransactions_;  // They go ahead of what is right.
  StreamTable streams_;
  std::uint64_t firstStream_;
  std::uint64_t sent_ = 0;
  std::uint64_t received_ = 0;
  bool isUp_ = false;
  bool mayWrite_ = false;
  bool isDeaf_ = false;

  std::mutex lock_;  // Guards what follows.
  std::deque<Order> orders_;
  bool ended_ = false;

  std::thread thread_;
};

}  // namespace standIn
