// A stand-in of the service that clients post commands to, as a process of its own. What it can be told, and what it
// prints, stands in docs/stand-in-service.md.
#include <cstdlib>
#include <iostream>
#include <mutex>
#include <system_error>
#include <thread>

#include "platform/handles.h"
#include "platform/raii.h"
#include "platform/session.h"
#include "tests/support/rpcService.h"
#include "tests/support/standInServiceChannel.h"
#include "tests/support/standInServiceInput.h"
#include "tests/support/standInServiceOptions.h"
#include "tests/support/standInServiceServer.h"
#include "tests/support/standInServiceText.h"

namespace {

constexpr int kDied = 9;

platform::GUID EndpointOf(const standIn::Options& options) {
  platform::DWORD session = 0;
  if (options.endpoint) return *options.endpoint;
  if (!platform::ProcessIdToSessionId(platform::GetCurrentProcessId(), &session)) {
    standIn::ThrowLastError("ProcessIdToSessionId");
  }
  return standIn::CommandEndpoint(session);
}

// By this event, once it is set, clients learn that the service has come up. It lives as long as somebody holds it.
platform::UniqueEvent ReadyEvent(const std::string& endpoint) {
  const std::string name = "Global\\ipclibLinkReady(" + endpoint + ")";
  platform::UniqueEvent ready(platform::CreateEventA(nullptr, true, false, name.c_str()));
  if (!ready) standIn::ThrowLastError("the ready event");
  return ready;
}

void TakeOrders(standIn::InputLines& input, standIn::Server& server, standIn::Lines& lines) {
  while (const auto line = input.Next()) {
    if (*line == "end") {
      server.EndOnceIdle();
    } else if (const auto order = standIn::ParseOrder(*line)) {
      server.CarryOut(*order);
    } else {
      lines.Print("error no order: " + *line);
    }
  }
  server.InputHasEnded();
}

struct Service {
  explicit Service(const standIn::Options& options)
      : server(options, lines, [this] {
          lines.Cease();
          std::_Exit(kDied);
        }) {}

  standIn::Lines lines{[](const std::string& line) { std::cout << line << std::endl; }};
  standIn::InputLines input;
  std::mutex starting;  // Held until it has said that it is ready: nobody is answered before.
  standIn::Server server;

  [[nodiscard]] support::ConnectReply Answer(const support::ConnectRequest& request) {
    { const std::lock_guard started(starting); }
    return server.Connect(request);
  }
};

void Serve(const standIn::Options& options) {
  // Never destroyed: the thread that reads the input may sleep in its read until the process is gone.
  static Service& service = *new Service(options);
  const platform::GUID endpoint = EndpointOf(options);
  if (options.listenAfterLine) {
    service.lines.Print("waiting");
    if (!service.input.Next()) return;
  }
  const platform::UniqueEvent ready = ReadyEvent(standIn::GuidText(endpoint));
  {
    std::unique_lock starting(service.starting);
    const auto rpc = support::RpcService::Listen(
        endpoint, [](const support::ConnectRequest& request) { return service.Answer(request); });
    platform::SetEvent(ready.get());
    service.lines.Print("ready " + standIn::GuidText(endpoint));
    starting.unlock();
    std::thread([] { TakeOrders(service.input, service.server, service.lines); }).detach();
    service.server.AwaitEnd();
  }
  service.server.EndLinks();
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> arguments(argv + 1, argv + argc);
  if (arguments == std::vector<std::string>{"--help"}) {
    std::cout << standIn::Usage();
    return 0;
  }
  const auto options = standIn::ParseOptions(arguments);
  if (const auto* fault = std::get_if<std::string>(&options)) {
    std::cerr << "standInService: " << *fault << "\n\n" << standIn::Usage();
    return 2;
  }
  try {
    Serve(std::get<standIn::Options>(options));
  } catch (const std::system_error& error) {
    std::cerr << "standInService: " << error.what() << '\n';
    return 1;
  }
  return 0;
}
