// A machine of the Client kind, furnished with the sample policy and a remote client, and its resident helper.
#pragma once

#include <string>

#include "tests/support/machine.h"
#include "tests/support/process.h"

namespace bench {

// The client is a program that ends at once: what it does itself is nobody's figure. Ends the program when the machine
// cannot be furnished.
class ClientMachine {
 public:
  ClientMachine();
  [[nodiscard]] static std::string Program();
  // As the settings are without anybody's wish.
  static void StopDailyLog();

 private:
  support::Machine machine_;
};

// The resident helper, up and answering; ended in the regular way.
class Resident {
 public:
  Resident();
  ~Resident();
  Resident(const Resident&) = delete;
  Resident& operator=(const Resident&) = delete;
  [[nodiscard]] std::uint32_t Id() const { return process_.Id(); }

 private:
  support::Process process_;
};

}  // namespace bench
