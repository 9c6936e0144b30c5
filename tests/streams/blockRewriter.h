// The peer of a link as it writes to the block while the link reads it, at moments that come again with each run: when
// the link traces.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string_view>
#include <utility>

#include "lib/ipc/ipclib/ipclibTrace.h"

namespace streams {

// Watches all links of the process. The functions write to the block, and call nothing of the library.
class BlockRewriter {
 public:
  // `aheadOfTheCopy` is called once a link has looked at the size of a transaction, and has not copied it yet;
  // `behindTheCopy` at each trace from then on, until it looks at the next one's.
  BlockRewriter(std::function<void()> aheadOfTheCopy, std::function<void()> behindTheCopy) {
    quill::ipc::ipcTrace->attach(std::make_shared<Moments>(std::move(aheadOfTheCopy), std::move(behindTheCopy)));
  }
  BlockRewriter(const BlockRewriter&) = delete;
  BlockRewriter& operator=(const BlockRewriter&) = delete;
  ~BlockRewriter() { quill::ipc::ipcTrace->removeAllSinks(); }

 private:
  class Moments final : public quill::log::Sink {
   public:
    Moments(std::function<void()> aheadOfTheCopy, std::function<void()> behindTheCopy)
        : aheadOfTheCopy_(std::move(aheadOfTheCopy)), behindTheCopy_(std::move(behindTheCopy)) {}

    void Write(std::int32_t, const quill::log::Location& location, std::string_view) override {
      if (std::string_view(location.function) == "copyTransaction") {
        copies_ = true;
        aheadOfTheCopy_();
      } else if (copies_) {
        behindTheCopy_();
      }
    }

   private:
    const std::function<void()> aheadOfTheCopy_;
    const std::function<void()> behindTheCopy_;
    bool copies_ = false;
  };
};

}  // namespace streams
