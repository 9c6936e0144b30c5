// Imports files of the registry editor's text format into the machine, as the registry editor does on Windows.
//
//   standInRegedit FILE.reg ...
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>

#include "platform/linux/registryImport.h"

int main(int argc, char** argv) {
  if (argc < 2) {
    std::cerr << "usage: standInRegedit FILE.reg ...\n";
    return 2;
  }
  for (int i = 1; i < argc; ++i) {
    std::ifstream file(argv[i], std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(file)), {});
    if (!file) {
      std::cerr << argv[i] << ": cannot be read\n";
      return 1;
    }
    if (!platform::registry::ImportRegText(bytes)) {
      std::cerr << argv[i] << ": the machine's registry cannot be read or written\n";
      return 1;
    }
  }
  return 0;
}
