#include "lib/ipc/ipclib/ipclibTrace.h"

#include <algorithm>
#include <string>

namespace quill::ipc {
namespace {

// This holder is never destroyed: threads of the library may trace while the process ends.
const std::shared_ptr<LmIpcTrace>& Kept() {
  static const auto& kept = *new std::shared_ptr<LmIpcTrace>(std::make_shared<LmIpcTrace>());
  return kept;
}

std::string UnitPath(std::string_view file) {
  std::string path(file.substr(0, file.rfind('.')));
  std::ranges::replace(path, '/', '\\');
  return path;
}

}  // namespace

LmIpcTrace::LmIpcTrace()
    : loggers_{log::CreateLogger("ipc::lib", {}), log::CreateLogger("ipc::listener", {}),
               log::CreateLogger("ipc::link", {}), log::CreateLogger("ipc::stream", {}),
               log::CreateLogger("ipc::msg", {})} {}

void LmIpcTrace::attach(const std::shared_ptr<log::Sink>& sink) const {
  for (const auto& logger : loggers_) {
    logger->setLevel(kTraceLevel);
    logger->addSink(sink);
  }
}

void LmIpcTrace::removeAllSinks() const {
  for (const auto& logger : loggers_) logger->removeSinks();
}

const std::shared_ptr<LmIpcTrace> ipcTrace = Kept();

namespace tracing {

const std::array<log::Logger*, kTraceChannels> loggers = {
    Kept()->lib().get(), Kept()->listener().get(), Kept()->link().get(), Kept()->stream().get(), Kept()->msg().get()};

void Write(log::Logger& logger, const Place& place, fmt::string_view format, fmt::format_args arguments) noexcept try {
  const std::string path = UnitPath(place.file);
  logger.Log(kTraceLevel, {path, place.line, place.function}, format, arguments);
} catch (...) {
  // As in Logger::Log: the line is lost.
}

}  // namespace tracing
}  // namespace quill::ipc
