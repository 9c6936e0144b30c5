// What a resident helper costs that has nothing to do: how often its threads were woken, and its memory.
//
//   idle [--seconds COUNT]      default 10
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

#include "tests/bench/clientMachineLinux.h"
#include "tests/bench/figures.h"

namespace {

namespace files = std::filesystem;

// The number behind the name in a status file of the system.
long NumberIn(const files::path& status, const std::string& name) {
  std::ifstream file(status);
  std::string word;
  while (file >> word) {
    long number = 0;
    if (word == name && file >> number) return number;
  }
  return 0;
}

struct Wakings {
  long threads = 0;
  long switches = 0;
};

Wakings WakingsOf(const files::path& process) {
  Wakings wakings;
  for (const auto& thread : files::directory_iterator(process / "task")) {
    ++wakings.threads;
    wakings.switches += NumberIn(thread.path() / "status", "voluntary_ctxt_switches:") +
                        NumberIn(thread.path() / "status", "nonvoluntary_ctxt_switches:");
  }
  return wakings;
}

}  // namespace

int main(int argc, char** argv) {
  const unsigned seconds = bench::CountFrom(argc, argv, "--seconds", 10);
  const bench::ClientMachine machine;
  const bench::Resident resident;
  const files::path process = "/proc/" + std::to_string(resident.Id());
  // What the start has left to do is done within moments; after that nothing may happen.
  std::this_thread::sleep_for(std::chrono::seconds(1));
  const Wakings before = WakingsOf(process);
  std::this_thread::sleep_for(std::chrono::seconds(seconds));
  const Wakings after = WakingsOf(process);
  std::printf("resident helper, idle for %u s, %ld threads\n", seconds, after.threads);
  std::printf("context switches  %ld\n", after.switches - before.switches);
  std::printf("resident memory   %.2f MiB (most: %.2f MiB)\n",
              static_cast<double>(NumberIn(process / "status", "VmRSS:")) / 1024,
              static_cast<double>(NumberIn(process / "status", "VmHWM:")) / 1024);
  return 0;
}
