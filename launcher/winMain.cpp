#include "launcher/winMain.h"

#include <string>
#include <string_view>
#include <vector>

#include "launcher/launchUrl.h"
#include "launcher/localOpen.h"
#include "launcher/resident.h"
#include "platform/entry.h"
#include "platform/raii.h"
#include "platform/shell.h"
#include "runtime/loggerManager.h"
#include "settings/registryPaths.h"

namespace launcher {
namespace {

// Held from start to exit and read by nothing; deployments expect to find it in the program.
[[gnu::used]] const std::vector<std::u16string> appLaunchPaths{u"/get/apps/launch/sp-init/"};

}  // namespace

int WinMain() {
  runtime::RouteLogCalls();
  int count = 0;
  const platform::UniqueLocal<char16_t*> block(platform::CommandLineToArgvW(platform::GetCommandLineW(), &count));
  if (!block || count <= 1) return RunResident();

  const Arguments arguments(block.get(), static_cast<std::size_t>(count));
  const std::u16string launchPrefix = std::u16string(settings::CustomLaunchScheme).append(u"://");
  const std::u16string_view text(arguments[1]);
  const std::size_t prefix = text.find(launchPrefix);
  if (prefix != text.npos) {
    LaunchUrl(std::u16string(text.substr(prefix + launchPrefix.size())));
  } else {
    OpenLocally(arguments);
  }
  return 0;
}

}  // namespace launcher

int platform::ProgramMain() { return launcher::WinMain(); }
