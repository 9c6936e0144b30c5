// What a peer may do to a window's socket without the help of this layer.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <thread>

#include "platform/linux/windowPacket.h"
#include "platform/linux/windowSocket.h"
#include "tests/platform/windowSupport.h"
#include "tests/support/descriptorsLinux.h"
#include "tests/support/machine.h"
#include "tests/support/meeting.h"

using namespace platform;
using namespace windowTests;
using windowPacket::Carriage;
using windowPacket::Head;

namespace {

std::filesystem::path MeetingFolder() { return windowSocket::Folder(); }

std::vector<std::filesystem::path> SocketFiles() {
  std::vector<std::filesystem::path> files;
  for (const auto& entry : std::filesystem::directory_iterator(MeetingFolder())) files.push_back(entry.path());
  return files;
}

// A window with a thread of its own, which counts what reaches its procedure.
class Target {
 public:
  Target() {
    support::Signal ready;
    thread_ = std::thread([this, &ready] {
      const TestWindow window(u"LumenarTest_Target", [this](UINT message, WPARAM, LPARAM) { return Count(message); });
      window_ = window.get();
      ready.Give();
      RunMessageLoop();
    });
    ready.Await();
  }
  ~Target() {
    PostMessageW(window_, kQuit, 0, 0);
    thread_.join();
  }
  Target(const Target&) = delete;
  Target& operator=(const Target&) = delete;

  // How many messages a peer brought to the procedure, up to now.
  std::uintptr_t Reached() { return Ask(WM_USER); }
  // How many descriptors are open in this process, counted while the window's thread serves this question alone.
  std::uintptr_t Descriptors() { return Ask(kCountDescriptors); }
  [[nodiscard]] static Descriptor Connected() {
    return windowSocket::Connect({.folder = MeetingFolder().string(), .name = SocketFiles().at(0).filename().string()},
                                 windowSocket::Clock::now() + std::chrono::minutes(2));
  }

 private:
  static constexpr UINT kCountDescriptors = WM_USER + 9;

  std::uintptr_t Ask(UINT question) {
    std::uintptr_t answer = 9999;
    EXPECT_NE(SendMessageTimeoutW(window_, question, 0, 0, SMTO_ABORTIFHUNG, 120'000, &answer), 0);
    return answer;
  }
  std::optional<LRESULT> Count(UINT message) {
    switch (message) {
      case WM_USER: return static_cast<LRESULT>(reached_);
      case kCountDescriptors: return support::OpenDescriptors();
      case kQuit: PostQuitMessage(0); return 0;
      case kMark:
      case WM_COPYDATA: ++reached_; return 0;
      default: return std::nullopt;
    }
  }

  HWND window_;
  std::uintptr_t reached_ = 0;
  std::thread thread_;
};

Head Sound() {
  return {.magic = windowPacket::kRequestMagic,
          .kind = windowPacket::Kind::Sent,
          .message = kMark,
          .carriage = Carriage::Nothing,
          .wParam = 0,
          .lParam = 0,
          .size = 0};
}

Head SoundData(Carriage carriage, std::uint64_t size) {
  Head head = Sound();
  head.message = WM_COPYDATA;
  head.carriage = carriage;
  head.size = size;
  return head;
}

std::string Bytes(const Head& head, std::size_t dataLength = 0) {
  return std::string(reinterpret_cast<const char*>(&head), sizeof head) + std::string(dataLength, 'x');
}

// Sends a packet with so many copies of a descriptor, and waits until the receiver has dropped or answered it.
void SendPacket(const std::string& bytes, int descriptor = -1, std::size_t copies = 0) {
  const Descriptor connection = Target::Connected();
  ASSERT_TRUE(connection);
  iovec part{const_cast<char*>(bytes.data()), bytes.size()};
  msghdr packet{};
  packet.msg_iov = &part;
  packet.msg_iovlen = 1;
  std::vector<std::uint64_t> control(CMSG_SPACE(sizeof(int) * copies) / sizeof(std::uint64_t) + 1);
  if (copies > 0) {
    packet.msg_control = control.data();
    packet.msg_controllen = CMSG_SPACE(sizeof(int) * copies);
    cmsghdr* entry = CMSG_FIRSTHDR(&packet);
    entry->cmsg_level = SOL_SOCKET;
    entry->cmsg_type = SCM_RIGHTS;
    entry->cmsg_len = CMSG_LEN(sizeof(int) * copies);
    for (std::size_t i = 0; i < copies; ++i) {
      std::memcpy(CMSG_DATA(entry) + i * sizeof descriptor, &descriptor, sizeof descriptor);
    }
  }
  ASSERT_EQ(sendmsg(connection.get(), &packet, MSG_NOSIGNAL), static_cast<ssize_t>(bytes.size()));
  char answer[64];
  (void)recv(connection.get(), answer, sizeof answer, 0);
}

Descriptor MemoryFile(std::size_t size, int seals) {
  Descriptor file(memfd_create("test", MFD_CLOEXEC | MFD_ALLOW_SEALING));
  EXPECT_EQ(ftruncate(file.get(), static_cast<off_t>(size)), 0);
  EXPECT_EQ(fcntl(file.get(), F_ADD_SEALS, seals), 0);
  return file;
}

constexpr int kSeals = F_SEAL_SEAL | F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE;

}  // namespace

TEST(HostilePeer, CanWriteASoundPacket) {
  const support::Machine machine;
  Target target;
  const Descriptor file = MemoryFile(20'000, kSeals);
  SendPacket(Bytes(Sound()));
  SendPacket(Bytes(SoundData(Carriage::NoData, 0)));
  SendPacket(Bytes(SoundData(Carriage::Inline, 5), 5));
  SendPacket(Bytes(SoundData(Carriage::MemoryFile, 20'000)), file.get(), 1);
  EXPECT_EQ(target.Reached(), 4U);
}

TEST(HostilePeer, ReachesNothingWithAMalformedPacket) {
  const support::Machine machine;
  Target target;
  const auto changed = [](auto change) {
    Head head = Sound();
    change(head);
    return Bytes(head);
  };
  SendPacket("x");
  SendPacket(Bytes(Sound()).substr(1));
  SendPacket(Bytes(Sound(), 1));
  SendPacket(std::string(40, '\xFF'));
  SendPacket(std::string(100'000, 'x'));
  SendPacket(changed([](Head& head) { ++head.magic; }));
  SendPacket(changed([](Head& head) { head.kind = static_cast<windowPacket::Kind>(0); }));
  SendPacket(changed([](Head& head) { head.kind = static_cast<windowPacket::Kind>(3); }));
  SendPacket(changed([](Head& head) { head.carriage = static_cast<Carriage>(4); }));
  SendPacket(changed([](Head& head) { head.carriage = Carriage::NoData; }));
  SendPacket(changed([](Head& head) { head.size = 1; }));
  SendPacket(changed([](Head& head) { head.message = WM_COPYDATA; }));
  SendPacket(Bytes(SoundData(Carriage::NoData, 1)));
  SendPacket(Bytes(SoundData(Carriage::Inline, 6), 5));
  SendPacket(Bytes(SoundData(Carriage::Inline, 4), 5));
  SendPacket(Bytes(SoundData(Carriage::Inline, ~0ULL), 5));
  SendPacket(Bytes(SoundData(Carriage::Inline, 100'000), 100'000));
  Head posted = SoundData(Carriage::Inline, 5);
  posted.kind = windowPacket::Kind::Posted;
  SendPacket(Bytes(posted, 5));
  EXPECT_EQ(target.Reached(), 0U);
}

TEST(HostilePeer, ReachesNothingWithADescriptorThatLies) {
  const support::Machine machine;
  Target target;
  const Descriptor file = MemoryFile(20'000, kSeals);
  const Descriptor unsealed = MemoryFile(20'000, F_SEAL_GROW);
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  const Descriptor silent(ends[0]);
  const Descriptor writer(ends[1]);
  const Descriptor folder(open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  const std::string sound = Bytes(SoundData(Carriage::MemoryFile, 20'000));
  SendPacket(sound);
  SendPacket(sound, unsealed.get(), 1);
  SendPacket(sound, silent.get(), 1);
  SendPacket(sound, folder.get(), 1);
  SendPacket(Bytes(SoundData(Carriage::MemoryFile, 20'001)), file.get(), 1);
  SendPacket(Bytes(SoundData(Carriage::MemoryFile, 19'999)), file.get(), 1);
  SendPacket(Bytes(SoundData(Carriage::MemoryFile, ~0ULL)), file.get(), 1);
  SendPacket(Bytes(SoundData(Carriage::MemoryFile, windowPacket::kLargestData + 1ULL)), file.get(), 1);
  EXPECT_EQ(target.Reached(), 0U);
}

TEST(HostilePeer, LeavesNoDescriptorBehind) {
  const support::Machine machine;
  Target target;
  const Descriptor file = MemoryFile(20'000, kSeals);
  const std::uintptr_t before = target.Descriptors();
  for (const std::size_t copies : {1U, 2U, 8U, 9U, 100U}) {
    SendPacket(Bytes(Sound()), file.get(), copies);
    SendPacket("x", file.get(), copies);
    if (copies > 1) SendPacket(Bytes(SoundData(Carriage::MemoryFile, 20'000)), file.get(), copies);
  }
  EXPECT_EQ(target.Reached(), 0U);
  EXPECT_EQ(target.Descriptors(), before);
}

TEST(HostilePeer, ThatSaysNothingHoldsNobodyUp) {
  const support::Machine machine;
  Target target;
  std::vector<Descriptor> silent;
  for (int i = 0; i < 200; ++i) {
    silent.push_back(Target::Connected());
    ASSERT_TRUE(silent.back());
  }
  EXPECT_EQ(target.Reached(), 0U);
}

TEST(HostilePeer, CannotMakeASenderBelieveAMalformedAnswer) {
  int ends[2];
  for (const std::string& answer : {std::string("x"), std::string(16, 'x'), std::string(17, 'x')}) {
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends), 0);
    const Descriptor near(ends[0]);
    const Descriptor far(ends[1]);
    ASSERT_EQ(send(far.get(), answer.data(), answer.size(), 0), static_cast<ssize_t>(answer.size()));
    EXPECT_FALSE(windowPacket::ReadAnswer(near).has_value());
  }
}

TEST(WindowSocket, IsTheUsersAlone) {
  const support::Machine machine;
  const TestWindow window(u"LumenarTest_Window");
  struct stat status {};
  ASSERT_EQ(stat(MeetingFolder().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777U, 0700U);
  ASSERT_EQ(SocketFiles().size(), 1U);
  ASSERT_EQ(stat(SocketFiles()[0].c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777U, 0600U);
}

TEST(WindowSocket, EndsWithItsWindowAndItsProcess) {
  const support::Machine machine;
  { const TestWindow window(u"LumenarTest_Window"); }
  support::Process receiver = StartReceiver();
  ASSERT_EQ(SocketFiles().size(), 1U);
  ASSERT_TRUE(PostMessageW(FindReceiver(), kQuit, 0, 0));
  receiver.Wait();
  EXPECT_TRUE(SocketFiles().empty());
}

TEST(WindowSocket, OfAKilledProcessIsRemovedByTheNextFinder) {
  const support::Machine machine;
  support::Process receiver = StartReceiver();
  receiver.Kill();
  receiver.Wait();
  ASSERT_EQ(SocketFiles().size(), 1U);
  EXPECT_FALSE(FindReceiver());
  EXPECT_TRUE(SocketFiles().empty());
}

TEST(WindowSocket, MayLieInADeepFolder) {
  const support::Machine machine;
  const std::filesystem::path deep =
      std::filesystem::path(std::getenv("XDG_RUNTIME_DIR")) / std::string(100, 'd') / std::string(100, 'e');
  std::filesystem::create_directories(deep);
  support::SetEnvironment("XDG_RUNTIME_DIR", deep.string());
  const TestWindow window(u"LumenarTest_Window");
  EXPECT_EQ(FindWindowW(u"LumenarTest_Window", nullptr), window.get());
}

TEST(FindWindow, PassesOverFilesThatAreNoWindows) {
  const support::Machine machine;
  const TestWindow window(u"LumenarTest_Window");
  const std::string own = SocketFiles().at(0).filename().string();
  for (const std::string& name : {std::string("x"), std::string("m."), std::string("m...."), own + ".1", "x" + own,
                                  std::string("m.a.-1.1.1"), std::string("m.a.99999999999999999999.1.1")}) {
    std::ofstream(MeetingFolder() / name) << "x";
  }
  EXPECT_EQ(FindWindowW(u"LumenarTest_Window", nullptr), window.get());
  EXPECT_FALSE(FindWindowW(u"a", nullptr));
}
