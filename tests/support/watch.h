// What watches over every test of a program.
#pragma once

#include <string>

namespace support {

// The test that runs now leaves so many handles of that kind open, as the code under test promises: it fails when there
// are more, and when there are fewer. Where the platform lists no handles this does nothing.
void PromiseLeftOpen(const std::string& kind, unsigned count = 1);

// From now on each test fails that ends with other live handles than it began with, where the platform lists them; and
// a test that hangs prints the stacks of all threads before the program gives up.
void WatchTests();

}  // namespace support
