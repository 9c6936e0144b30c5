#include <gtest/gtest.h>

#include <string>

#include "platform/rpc.h"

namespace {

using namespace platform;

constexpr char16_t kEndpoint[] = u"{875AC244-B80A-420E-90A2-9C69DFD8E728}";
constexpr char16_t kOptions[] = u"Security=identification dynamic true";

std::u16string Composed(const char16_t* options) {
  char16_t* text = nullptr;
  EXPECT_EQ(RpcStringBindingComposeW(nullptr, u"ncalrpc", nullptr, kEndpoint, options, &text), RPC_S_OK);
  std::u16string copy = text;
  EXPECT_EQ(RpcStringFreeW(&text), RPC_S_OK);
  return copy;
}

RPC_STATUS StatusOf(const char16_t* text) {
  RPC_BINDING_HANDLE binding;
  const RPC_STATUS status = RpcBindingFromStringBindingW(text, &binding);
  if (status == RPC_S_OK) {
    EXPECT_EQ(RpcBindingFree(&binding), RPC_S_OK);
  }
  EXPECT_FALSE(binding);
  return status;
}

TEST(RpcBinding, TextHasTheEndpointInBrackets) {
  EXPECT_EQ(Composed(nullptr), u"ncalrpc:[{875AC244-B80A-420E-90A2-9C69DFD8E728}]");
}

TEST(RpcBinding, TextHasTheOptionsBehindTheEndpoint) {
  EXPECT_EQ(Composed(kOptions),
            u"ncalrpc:[{875AC244-B80A-420E-90A2-9C69DFD8E728},Security=identification dynamic true]");
}

TEST(RpcBinding, IsMadeFromItsTextThoughNobodyOwnsTheEndpoint) {
  EXPECT_EQ(StatusOf(Composed(nullptr).c_str()), RPC_S_OK);
  EXPECT_EQ(StatusOf(Composed(kOptions).c_str()), RPC_S_OK);
}

TEST(RpcBinding, TakesAnObjectAndAuthentication) {
  RPC_BINDING_HANDLE binding;
  ASSERT_EQ(RpcBindingFromStringBindingW(Composed(nullptr).c_str(), &binding), RPC_S_OK);
  const GUID object{1, 2, 3, {4, 5, 6, 7, 8, 9, 10, 11}};
  EXPECT_EQ(RpcBindingSetObject(binding, &object), RPC_S_OK);
  const RPC_SECURITY_QOS quality{.Version = RPC_C_SECURITY_QOS_VERSION,
                                 .Capabilities = RPC_C_QOS_CAPABILITIES_MUTUAL_AUTH,
                                 .IdentityTracking = RPC_C_QOS_IDENTITY_STATIC,
                                 .ImpersonationType = RPC_C_IMP_LEVEL_IDENTIFY};
  EXPECT_EQ(RpcBindingSetAuthInfoExW(binding, u"SYSTEM", RPC_C_AUTHN_LEVEL_PKT_PRIVACY, RPC_C_AUTHN_WINNT, nullptr,
                                     RPC_C_AUTHZ_NONE, &quality),
            RPC_S_OK);
  EXPECT_EQ(RpcBindingSetAuthInfoExW(binding, u"SYSTEM", RPC_C_AUTHN_LEVEL_PKT_PRIVACY, 99, nullptr, RPC_C_AUTHZ_NONE,
                                     &quality),
            RPC_S_UNKNOWN_AUTHN_SERVICE);
  EXPECT_EQ(RpcBindingFree(&binding), RPC_S_OK);
  EXPECT_FALSE(binding);
}

}  // namespace
