// Where the program's settings lie in the registry.
#pragma once

namespace settings {

// The root of the settings: of the user (relative to the user's hive) and of the machine (native path). The legacy
// roots are those of an earlier generation of the product.
inline constexpr const char16_t* RootPath = u"Software\\Corvane\\Lumenar\\URLRedirection";
inline constexpr const char16_t* RootMachinePath = u"\\Registry\\Machine\\Software\\Corvane\\Lumenar\\URLRedirection";
inline constexpr const char16_t* LegacyRootPath = u"Software\\Tavrix, Inc.\\Tavrix GLD\\URLRedirection";
inline constexpr const char16_t* LegacyRootMachinePath =
    u"\\Registry\\Machine\\Software\\Tavrix, Inc.\\Tavrix GLD\\URLRedirection";

// The policy on app paths, which only the machine has.
inline constexpr const char16_t* AppPathPolicyPath =
    u"\\Registry\\Machine\\Software\\Policies\\Corvane\\Lumenar\\URLRedirection\\apppath";
inline constexpr const char16_t* LegacyAppPathPolicyPath =
    u"\\Registry\\Machine\\Software\\Policies\\Tavrix, Inc.\\Tavrix GLD\\URLRedirection\\apppath";

// The URL scheme that starts this program.
inline constexpr const char16_t* CustomLaunchScheme = u"tavrix-prism-url-launch";

}  // namespace settings
