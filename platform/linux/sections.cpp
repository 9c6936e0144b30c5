#include "platform/sections.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <limits>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <utility>

#include "platform/linux/faults.h"
#include "platform/linux/hostError.h"
#include "platform/linux/sectionObjects.h"

namespace platform {
namespace {

// One mapping, unmapped when it goes.
class View {
 public:
  // Without a base, and with errno set, when the host does not map it.
  explicit View(const Section& section) noexcept {
    struct stat status {};
    if (fstat(section.Get(), &status) != 0) return;
    const auto size = static_cast<std::size_t>(status.st_size);
    void* const base = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, section.Get(), 0);
    if (base == MAP_FAILED) return;
    base_ = base;
    size_ = size;
  }
  View(View&& other) noexcept : base_(std::exchange(other.base_, nullptr)), size_(other.size_) {}
  View& operator=(View&&) = delete;
  View(const View&) = delete;
  View& operator=(const View&) = delete;
  ~View() {
    if (base_ != nullptr) munmap(base_, size_);
  }
  [[nodiscard]] void* base() const noexcept { return base_; }

 private:
  void* base_ = nullptr;
  std::size_t size_ = 0;
};

struct Views {
  std::mutex lock;
  std::map<const void*, View> byBase;
};

Views& TheViews() {
  static Views& views = *new Views;
  return views;
}

Descriptor NewMemory(off_t size) noexcept {
  Descriptor memory(memfd_create("section", MFD_CLOEXEC | MFD_ALLOW_SEALING));
  const bool done =
      memory && ftruncate(memory.get(), size) == 0 && fcntl(memory.get(), F_ADD_SEALS, kSectionSeals) == 0;
  if (done) return memory;
  SetLastError(ErrorFromHost(errno));
  return {};
}

}  // namespace

SectionHandle CreateFileMappingW(NoFile, std::nullptr_t, Only<PAGE_READWRITE>, DWORD sizeHigh, DWORD sizeLow,
                                 std::nullptr_t) noexcept try {
  if (FaultInjected("CreateFileMappingW")) return {};
  const std::uint64_t size = (std::uint64_t{sizeHigh} << 32) | sizeLow;
  if (size == 0 || size > std::uint64_t{std::numeric_limits<off_t>::max()}) {
    SetLastError(ERROR_INVALID_PARAMETER);
    return {};
  }
  Descriptor memory = NewMemory(static_cast<off_t>(size));
  if (!memory) return {};
  return SectionHandle(handleTable::Add(std::make_shared<Section>(std::move(memory))));
} catch (const std::bad_alloc&) {
  SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return {};
}

void* MapViewOfFile(SectionHandle handle, Only<FILE_MAP_READ | FILE_MAP_WRITE>, Only<DWORD{0}>, Only<DWORD{0}>,
                    Only<std::size_t{0}>) noexcept try {
  if (FaultInjected("MapViewOfFile")) return nullptr;
  const auto section = handleTable::FindAs<Section>(handle.value());
  if (!section) return nullptr;
  View view(*section);
  void* const base = view.base();
  if (base == nullptr) {
    SetLastError(ErrorFromHost(errno));
    return nullptr;
  }
  Views& views = TheViews();
  const std::lock_guard guard(views.lock);
  views.byBase.emplace(base, std::move(view));
  return base;
} catch (const std::bad_alloc&) {
  SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return nullptr;
}

bool UnmapViewOfFile(const void* base) noexcept {
  Views& views = TheViews();
  const std::lock_guard guard(views.lock);
  const bool mapped = views.byBase.erase(base) != 0;
  if (!mapped) SetLastError(ERROR_INVALID_ADDRESS);
  return mapped;
}

}  // namespace platform
