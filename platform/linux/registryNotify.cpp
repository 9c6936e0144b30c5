#include <sys/inotify.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <list>
#include <mutex>
#include <optional>
#include <string>
#include <system_error>
#include <thread>

#include "platform/linux/descriptor.h"
#include "platform/linux/events.h"
#include "platform/linux/fnv1a.h"
#include "platform/linux/hostError.h"
#include "platform/linux/machine.h"
#include "platform/linux/registryKey.h"
#include "platform/registry.h"

namespace platform {
namespace registry {
namespace {

constexpr DWORD kFilter = REG_NOTIFY_CHANGE_NAME | REG_NOTIFY_CHANGE_LAST_SET;

// What a watched key looks like, in one number; nothing when it is not there.
using Digest = std::optional<std::uint64_t>;

class Hasher : public Fnv1a {
 public:
  using Fnv1a::Add;
  void Add(std::uint64_t number) noexcept { Add(&number, sizeof number); }
  void Add(std::u16string_view text) noexcept {
    Add(text.size());
    Add(text.data(), text.size() * sizeof(char16_t));
  }
};

void AddTo(Hasher& hasher, const Key& key, bool withSubtree) {
  hasher.Add(key.values().size());
  for (const auto& [name, value] : key.values()) {
    hasher.Add(name);
    hasher.Add(value.type);
    hasher.Add(value.data.size());
    hasher.Add(value.data.data(), value.data.size());
  }
  hasher.Add(key.subkeys().size());
  for (const auto& [name, subkey] : key.subkeys()) {
    hasher.Add(name);
    if (withSubtree) AddTo(hasher, *subkey, true);
  }
}

Digest DigestOf(const RegistryKey& key, const Key& root, bool watchSubtree) {
  const Key* const found = key.In(root);
  if (found == nullptr) return std::nullopt;
  Hasher hasher;
  AddTo(hasher, *found, watchSubtree);
  return hasher.Get();
}

struct Registration {
  std::weak_ptr<RegistryKey> key;  // Closing the key ends the watching.
  bool watchSubtree;
  Digest seen;                   // What its owner knows of: at the call, or when it was signalled last.
  std::shared_ptr<Event> event;  // Null once it has been signalled; the next call brings another.
};

// Watches the machine folders' hives on a thread of its own, which sleeps while none of them changes. The first call
// starts it, and it stays for the life of the process.
class Watcher {
 public:
  static Watcher& Instance() {
    static Watcher& watcher = *new Watcher;
    return watcher;
  }

  LSTATUS Register(const std::shared_ptr<RegistryKey>& key, bool watchSubtree, std::shared_ptr<Event> event) {
    const std::lock_guard lock(lock_);
    if (const LSTATUS error = WatchFolder(); error != ERROR_SUCCESS) return error;
    // Watched first and looked at then, so that no change falls in between.
    const HiveReading reading(key->Hive(), Asked::File);
    if (reading.Error() != ERROR_SUCCESS) return reading.Error();
    const Digest now = DigestOf(*key, reading.Root(), watchSubtree);
    if (!now) return static_cast<LSTATUS>(ERROR_KEY_DELETED);
    Registration& registration = RegistrationOf(key, watchSubtree, now);
    registration.event = std::move(event);
    SignalIfChanged(registration, now);  // A change since the last signal is one that the caller has not seen.
    return ERROR_SUCCESS;
  }

 private:
  // REQUIRES: the lock.
  LSTATUS WatchFolder() {
    if (!inotify_) {
      Descriptor inotify(inotify_init1(IN_CLOEXEC));
      if (!inotify) return static_cast<LSTATUS>(ErrorFromHost(errno));
      inotify_ = std::move(inotify);
      try {
        std::thread([this] { Run(); }).detach();
      } catch (const std::system_error& error) {
        inotify_ = Descriptor();
        return static_cast<LSTATUS>(ErrorFromHost(error.code().value()));
      }
    }
    const std::string folder = machine::DataFolder();
    if (folder.empty()) return static_cast<LSTATUS>(GetLastError());
    // Writers put a new file in the hive's place; people may also edit it where it is.
    const int watch = inotify_add_watch(inotify_.get(), folder.c_str(), IN_MOVED_TO | IN_CLOSE_WRITE);
    return watch >= 0 ? static_cast<LSTATUS>(ERROR_SUCCESS) : static_cast<LSTATUS>(ErrorFromHost(errno));
  }

  // REQUIRES: the lock.
  Registration& RegistrationOf(const std::shared_ptr<RegistryKey>& key, bool watchSubtree, const Digest& now) {
    for (Registration& registration : registrations_) {
      if (registration.key.lock() == key && registration.watchSubtree == watchSubtree) return registration;
    }
    return registrations_.emplace_back(
        Registration{.key = key, .watchSubtree = watchSubtree, .seen = now, .event = nullptr});
  }

  static void SignalIfChanged(Registration& registration, const Digest& now) {
    if (!registration.event || registration.seen == now) return;
    registration.seen = now;
    registration.event->Set();
    registration.event.reset();
  }

  void Run() {
    while (TakeNotices()) {
      const std::lock_guard lock(lock_);
      registrations_.remove_if([](const Registration& registration) { return registration.key.expired(); });
      LookAt(HiveId::Machine);
      LookAt(HiveId::User);
    }
  }

  // Sleeps until something happens in a watched folder, and takes all notices that there are.
  [[nodiscard]] bool TakeNotices() const {
    std::array<char, 4096> notices;
    ssize_t length = 0;
    do {
      length = read(inotify_.get(), notices.data(), notices.size());
    } while (length < 0 && errno == EINTR);
    return length > 0;
  }

  // REQUIRES: the lock.
  void LookAt(HiveId hive) {
    const auto concerns = [hive](const Registration& registration) {
      const auto key = registration.key.lock();
      return key && key->Hive() == hive && registration.event;
    };
    if (std::ranges::none_of(registrations_, concerns)) return;
    const HiveReading reading(hive, Asked::File);
    if (reading.Error() != ERROR_SUCCESS) return;  // The next notice looks again.
    for (Registration& registration : registrations_) {
      if (!concerns(registration)) continue;
      if (const auto key = registration.key.lock()) {
        SignalIfChanged(registration, DigestOf(*key, reading.Root(), registration.watchSubtree));
      }
    }
  }

  std::mutex lock_;
  Descriptor inotify_;  // Set once, before the thread starts.
  std::list<Registration> registrations_;
};

LSTATUS Notify(HKEY key, bool watchSubtree, DWORD filter, EventHandle eventHandle) {
  const auto watched = KeyOf(key);
  if (!watched) return static_cast<LSTATUS>(ERROR_INVALID_HANDLE);
  if (!watched->Grants(KEY_NOTIFY)) return static_cast<LSTATUS>(ERROR_ACCESS_DENIED);
  auto event = handleTable::FindAs<Event>(eventHandle.value());
  if (!event) return static_cast<LSTATUS>(ERROR_INVALID_HANDLE);
  if (filter != kFilter) return static_cast<LSTATUS>(ERROR_INVALID_PARAMETER);
  return Watcher::Instance().Register(watched, watchSubtree, std::move(event));
}

}  // namespace
}  // namespace registry

LSTATUS RegNotifyChangeKeyValue(HKEY key, bool watchSubtree, DWORD filter, EventHandle event, OnlyTrue) noexcept {
  return registry::Win32Call("RegNotifyChangeKeyValue",
                             [&] { return registry::Notify(key, watchSubtree, filter, event); });
}

}  // namespace platform
