#include "tests/support/standInServiceClient.h"

#include <thread>

#include "platform/pipes.h"
#include "tests/support/standInServiceChannel.h"

namespace standIn {
namespace {

template <class Kind>
platform::HandleOf<Kind> Duplicated(platform::HandleOf<Kind> handle) {
  platform::HandleOf<Kind> duplicate;
  if (!platform::DuplicateHandle(platform::GetCurrentProcess(), handle, platform::GetCurrentProcess(), &duplicate, 0,
                                 false, platform::DUPLICATE_SAME_ACCESS)) {
    ThrowLastError("DuplicateHandle");
  }
  return duplicate;
}

}  // namespace

// A pipe can only be read to find out that its other end is gone; so a thread sleeps in that read, for as long as the
// client lives.
struct ClientWatch::Pipe {
  platform::UniquePipe readEnd;
  platform::UniqueEvent gone;

  void Watch() const {
    char byte = 0;
    platform::DWORD count = 0;
    while (platform::ReadFile(readEnd.get(), &byte, 1, &count, nullptr)) continue;
    platform::SetEvent(gone.get());
  }
};

ClientWatch::ClientWatch(const support::ConnectRequest& request) {
  if (request.clientPipe) {
    pipe_ = std::make_shared<Pipe>(Pipe{platform::UniquePipe(Duplicated(request.clientPipe)), NewEvent(true)});
    std::thread([pipe = pipe_] { pipe->Watch(); }).detach();
  } else if (request.clientProcess) {
    process_.reset(Duplicated(request.clientProcess));
  }
}

platform::WaitableHandle ClientWatch::Gone() const {
  if (pipe_) return pipe_->gone.get();
  return process_.get();
}

}  // namespace standIn
