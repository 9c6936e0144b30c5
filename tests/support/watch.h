// What watches over every test of a program.
#pragma once

namespace support {

// From now on each test fails that ends with other live handles than it began with, where the platform lists them; and
// a test that hangs prints the stacks of all threads before the program gives up.
void WatchTests();

}  // namespace support
