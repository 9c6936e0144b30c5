// Runs a fuzz target over files: replay FILE_OR_FOLDER ...
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "tests/fuzz/fuzzTarget.h"

namespace {

void Replay(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  const std::vector<char> bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
}

}  // namespace

int main(int argc, char** argv) {
  int replayed = 0;
  for (int at = 1; at < argc; ++at) {
    const std::filesystem::path path = argv[at];
    if (!std::filesystem::is_directory(path)) {
      Replay(path);
      ++replayed;
      continue;
    }
    for (const auto& entry : std::filesystem::directory_iterator(path)) {
      Replay(entry.path());
      ++replayed;
    }
  }
  std::printf("replayed %d inputs\n", replayed);
  return replayed > 0 ? 0 : 1;  // A corpus that is not found is no success.
}
