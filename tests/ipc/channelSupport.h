// The serving side of a channel, and what the tests of channels look at.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "lib/ipc/ipclib/ipclibLinkChannelResourceWin.h"
#include "lib/ipc/ipclib/ipclibTrace.h"
#include "lib/ipc/ipclib/lineSink.h"
#include "platform/raii.h"
#include "tests/ipc/openHandles.h"

namespace ipcTests {

inline constexpr std::uint32_t kChannelSize = 0x10000;

template <class Kind>
platform::HandleOf<Kind> Duplicated(platform::HandleOf<Kind> handle) {
  platform::HandleOf<Kind> duplicate;
  platform::DuplicateHandle(platform::GetCurrentProcess(), handle, platform::GetCurrentProcess(), &duplicate, 0, false,
                            platform::DUPLICATE_SAME_ACCESS);
  return duplicate;
}

template <class Kind>
bool IsOpen(platform::HandleOf<Kind> handle) {
  return static_cast<bool>(platform::Owner<platform::HandleOf<Kind>, &platform::CloseHandle>(Duplicated(handle)));
}

inline platform::UniqueEvent NewEvent() {
  return platform::UniqueEvent(platform::CreateEventW(nullptr, false, false, nullptr));
}

// True once for each signal.
inline bool Fires(platform::EventHandle event) {
  return platform::WaitForSingleObject(event, 0) == platform::WAIT_OBJECT_0;
}

// What a serving side makes for one channel.
struct ServedChannel {
  platform::UniqueSection mapping{platform::CreateFileMappingW(platform::INVALID_HANDLE_VALUE, nullptr,
                                                               platform::PAGE_READWRITE, 0, kChannelSize, nullptr)};
  platform::UniqueEvent dataReadyEvent = NewEvent();
  platform::UniqueEvent dataConsumedEvent = NewEvent();
  platform::UniqueEvent errorEvent = NewEvent();
  platform::UniqueEvent stopEvent = NewEvent();

  // The served handles themselves, which stay the server's.
  void Lend(quill::ipc::LmIpclibLinkChannelResourceWin& resources) const {
    resources.mapping = mapping.get();
    resources.dataReadyEvent = dataReadyEvent.get();
    resources.dataConsumedEvent = dataConsumedEvent.get();
    resources.errorEvent = errorEvent.get();
    resources.stopEvent = stopEvent.get();
  }
  // Duplicates of them, for the record to close.
  void Give(quill::ipc::LmIpclibLinkChannelResourceWin& resources) const {
    resources.mapping = Duplicated(mapping.get());
    resources.dataReadyEvent = Duplicated(dataReadyEvent.get());
    resources.dataConsumedEvent = Duplicated(dataConsumedEvent.get());
    resources.errorEvent = Duplicated(errorEvent.get());
    resources.stopEvent = Duplicated(stopEvent.get());
  }
};

// Collects what is traced on the channel of links, and counts handles: each test ends with as many as it began.
class ChannelFixture : public testing::Test {
 protected:
  ChannelFixture() : handlesBefore_(OpenHandles()) {
    quill::ipc::ipcTrace->link()->setLevel(quill::ipc::kTraceLevel);
    quill::ipc::ipcTrace->link()->addSink(sink_);
  }
  ~ChannelFixture() override {
    quill::ipc::ipcTrace->removeAllSinks();
    quill::ipc::ipcTrace->link()->setLevel(4);
    EXPECT_EQ(OpenHandles(), handlesBefore_);
  }
  [[nodiscard]] std::vector<std::string> Traces() { return sink_->TakeTexts(); }
  [[nodiscard]] std::vector<quill::log::LineSink::Line> TraceLines() { return sink_->Take(); }

 private:
  const std::shared_ptr<quill::log::LineSink> sink_ = std::make_shared<quill::log::LineSink>();
  const std::size_t handlesBefore_;
};

}  // namespace ipcTests
