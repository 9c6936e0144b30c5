// What open streams cost: two links of this process face each other, and streams are opened on them one by one. Their
// memory is that of both ends; their threads are those of the pool.
//
//   streams [--streams COUNT]      default 10,000
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <mutex>
#include <vector>

#include "lib/ipc/ipclib/ipclibLinkListener.h"
#include "lib/ipc/ipclib/ipclibStream.h"
#include "tests/bench/figures.h"
#include "tests/streams/openLink.h"

namespace {

using namespace quill::ipc;
using streams::OpenLink;
using Clock = std::chrono::steady_clock;

constexpr std::uint32_t kChannelSize = 65536;

void MustSucceed(LmIpcStatusCode status) {
  if (status == LmIpcStatusCode::Success) return;
  std::fprintf(stderr, "failed with status %u\n", static_cast<unsigned>(status));
  std::exit(1);
}

double Kibibytes() {
  std::size_t pages = 0;
  std::ifstream statm("/proc/self/statm");
  statm >> pages >> pages;
  return static_cast<double>(pages) * 4;
}

long Threads() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/task"), std::filesystem::directory_iterator());
}

// Tells when it has been called so many times.
class Countdown {
 public:
  explicit Countdown(unsigned count) : left_(count) {}
  void One() {
    const std::lock_guard lock(lock_);
    if (--left_ == 0) done_.notify_one();
  }
  void Await() {
    std::unique_lock lock(lock_);
    done_.wait(lock, [this] { return left_ == 0; });
  }

 private:
  std::mutex lock_;
  std::condition_variable done_;
  unsigned left_;
};

}  // namespace

int main(int argc, char** argv) {
  const unsigned count = bench::CountFrom(argc, argv, "--streams", 10'000);
  const auto executor = quill::task::CreateWindowsThreadPoolExecutor(nullptr, 0);
  const streams::Wire wires[] = {streams::Wire(kChannelSize), streams::Wire(kChannelSize)};
  Countdown closed(2);
  const auto newLink = [&closed] {
    return std::make_shared<OpenLink>([](LmIpclibLink&) {}, [&closed](LmIpclibLink&) { closed.One(); });
  };
  const std::shared_ptr<OpenLink> links[] = {newLink(), newLink()};
  const auto listener =
      std::make_shared<LmIpclibLinkListener>(streams::kEndpoint, [](const std::shared_ptr<LmIpclibStream>& stream) {
        return stream->accept({}, [](LmIpcStatusCode, const std::shared_ptr<LmIpclibMsg>&) {});
      });
  for (std::size_t side = 0; side < 2; ++side) {
    MustSucceed(links[side]->connecting());
    MustSucceed(streams::Attach(*links[side], wires[1 - side], wires[side], kChannelSize));
    unsigned errorCode = 0;
    MustSucceed(links[side]->start(executor, errorCode));
    links[side]->Listen(listener);
  }

  Countdown ends(count);
  std::vector<std::shared_ptr<LmIpclibStream>> all;
  all.reserve(count);
  const auto open = [&] {
    all.push_back(
        std::make_shared<LmIpclibStream>(streams::kEndpoint, u"bench", StreamFlags(), executor,
                                         [&ends](LmIpcStatusCode, const std::shared_ptr<LmIpclibMsg>& message) {
                                           if (message->size() == 0) ends.One();
                                         }));
    MustSucceed(all.back()->connect({}, links[0], nullptr));
    MustSucceed(all.back()->completeConnect());
  };
  open();  // What is there once.
  const double before = Kibibytes();
  const auto began = Clock::now();
  for (unsigned i = 1; i < count; ++i) open();
  const double seconds = std::chrono::duration<double>(Clock::now() - began).count();
  const double memory = Kibibytes() - before;
  std::printf("%u streams open: %ld threads, %.2f KiB for both ends of one, %.0f us to open one\n", count, Threads(),
              memory / (count - 1), seconds * 1e6 / (count - 1));
  links[0]->close();
  ends.Await();
  closed.Await();
  return 0;
}
