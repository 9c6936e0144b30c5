// A client's window comes forward once it is there. Only on this target: on the other a start does not wait for it.
#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "platform/handles.h"
#include "platform/raii.h"
#include "tests/roads/roadMachine.h"

namespace roads {
namespace {

namespace fs = std::filesystem;

// Nothing tells when the file is there, or the program has ended, so these look now and then until it is so.
void Pause() {
  const platform::UniqueEvent never(platform::CreateEventW(nullptr, true, false, nullptr));
  platform::WaitForSingleObject(never.get(), 5);
}

std::string AwaitedContent(const fs::path& path) {
  std::string content;
  while (content.empty()) {
    Pause();
    std::ifstream(path) >> content;
  }
  return content;
}

void AwaitEndOf(const fs::path& program) {
  std::error_code error;
  while (!fs::remove(program, error)) Pause();
}

TEST(ClientActivation, FollowsItsStart) {
  RoadMachine machine;
  machine.SetUp(u"Client");
  const fs::path folder = machine.HostPath(machine.Folder());
  const fs::path program = folder / "lumenar-client.exe";
  fs::copy_file(support::Beside("lumenar-client.exe"), program, fs::copy_options::overwrite_existing);
  machine.StartResident();
  // One that takes longer to come up than a resident waits for it stays behind; then the next one is looked at. Where
  // none ever comes forward, the watch over hanging tests ends this.
  std::string activated;
  while (activated != "yes") {
    fs::remove(folder / "activated.txt");
    ASSERT_EQ(machine.Launch(u"apppathrd/path=x"), 0);
    activated = AwaitedContent(folder / "activated.txt");
  }
  AwaitEndOf(program);
  EXPECT_EQ(machine.EndResident(), 0);
}

}  // namespace
}  // namespace roads
