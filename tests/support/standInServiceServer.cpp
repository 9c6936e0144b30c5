#include "tests/support/standInServiceServer.h"

#include <string>
#include <system_error>
#include <type_traits>
#include <utility>

namespace standIn {
namespace {

constexpr std::int32_t kUnexpected = 1;

std::string Described(const support::ConnectRequest& request) {
  return "connect stream " + Escaped(request.streamName) + " procedure " + std::to_string(request.procedure) +
         (request.authenticated ? " authenticated" : "");
}

std::string DescribedIds(const support::ConnectRequest& request) {
  const auto hex = [](auto number) { return Hex(static_cast<std::make_unsigned_t<decltype(number)>>(number)); };
  return "asks version " + std::to_string(request.clientVersion) + " link " + hex(request.linkId) + " flags " +
         hex(request.linkFlags) + " stream " + hex(request.streamId) + " flags " + hex(request.streamFlags) +
         " channel size " + std::to_string(request.channelSizeHint);
}

}  // namespace

Server::Server(Options options, Lines& lines, std::function<void()> die)
    : options_(std::move(options)),
      surroundings_{lines, [this] { CommandCame(); }, [this] { LinkEnded(); }, std::move(die)} {}

support::ConnectReply Server::Connect(const support::ConnectRequest& request) {
  surroundings_.lines.Print(Described(request));
  surroundings_.lines.Print(DescribedIds(request));
  support::ConnectReply reply;
  reply.result = options_.callStatus;
  reply.connectStatus = options_.connectStatus;
  reply.hasConnectStatus = !options_.leaveStatusPreset;
  if (options_.dieWhen == DieWhen::BeforeAnswer) surroundings_.die();
  if (reply.result != 0 || reply.connectStatus != 0 || !reply.hasConnectStatus) {
    reply.hasPeerProcess = false;
    surroundings_.lines.Print("refused");
    return reply;
  }
  try {
    Serve(request, reply);
  } catch (const std::system_error& error) {
    surroundings_.lines.Print(std::string("error no link can be made: ") + error.what());
    reply.connectStatus = kUnexpected;
    LinkEnded();
  }
  return reply;
}

void Server::Serve(const support::ConnectRequest& request, support::ConnectReply& reply) {
  {
    const std::lock_guard counting(lock_);
    ++liveLinks_;
  }
  const std::lock_guard guard(linksLock_);
  std::erase_if(links_, [](ServedLink& link) { return link.HasEnded(); });
  links_.emplace_back(options_, surroundings_, request).Describe(reply);
}

void Server::CarryOut(const Order& order) {
  if (order.deed == Deed::Die) surroundings_.die();
  const std::lock_guard guard(linksLock_);
  for (ServedLink& link : links_) link.Post(order);
}

void Server::CommandCame() {
  const std::lock_guard guard(lock_);
  if (options_.commands && ++commands_ >= *options_.commands) endsOnceIdle_ = true;
  changed_.notify_all();
}

void Server::LinkEnded() {
  const std::lock_guard guard(lock_);
  --liveLinks_;
  changed_.notify_all();
}

void Server::InputHasEnded() {
  const std::lock_guard guard(lock_);
  inputHasEnded_ = true;
  changed_.notify_all();
}

void Server::EndOnceIdle() {
  const std::lock_guard guard(lock_);
  endsOnceIdle_ = true;
  changed_.notify_all();
}

void Server::AwaitEnd() {
  std::unique_lock guard(lock_);
  changed_.wait(guard, [this] { return inputHasEnded_ || (endsOnceIdle_ && liveLinks_ == 0); });
}

void Server::EndLinks() {
  const std::lock_guard guard(linksLock_);
  links_.clear();
}

}  // namespace standIn
