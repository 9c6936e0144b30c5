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

// Makes the machine whose data lies in that folder one of the Agent kind, by the sample policy, without the daily log.
void FurnishAgent(const std::string& dataHome);

// The stand-in of the service that URLs are posted to, listening.
class Service {
 public:
  Service();
  // Until a launcher that has posted is gone. Ends the program when its command has not come.
  void AwaitCommand();

 private:
  support::Process process_;
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
