#include <gtest/gtest.h>

#include <vector>

#include "platform/linux/testHooks.h"
#include "platform/rpc.h"

namespace {

using namespace platform;

RPC_STATUS StatusOfMaking(const char16_t* text) {
  RPC_BINDING_HANDLE binding;
  const RPC_STATUS status = RpcBindingFromStringBindingW(text, &binding);
  EXPECT_EQ(static_cast<bool>(binding), status == RPC_S_OK);
  if (binding) {
    EXPECT_EQ(RpcBindingFree(&binding), RPC_S_OK);
  }
  return status;
}

// Wine 8 takes any text for a binding, and lets the first call fail.
TEST(RpcBindingOnLinux, IsNotMadeForAProtocolThatNobodyKnows) {
  EXPECT_EQ(StatusOfMaking(u"smoke_signals:[somewhere]"), RPC_S_PROTSEQ_NOT_SUPPORTED);
}

TEST(RpcBindingOnLinux, IsNotMadeFromATextThatIsNone) {
  for (const char16_t* text : {u"", u"ncalrpc", u"ncalrpc:", u"ncalrpc:[somewhere", u"ncalrpc:somewhere]"}) {
    EXPECT_EQ(StatusOfMaking(text), RPC_S_INVALID_STRING_BINDING);
  }
}

TEST(RpcBindingOnLinux, LeadsToNoPlaceOutsideTheFolderOfEndpoints) {
  for (const char16_t* text :
       {u"ncalrpc:[]", u"ncalrpc:[.]", u"ncalrpc:[..]", u"ncalrpc:[../windows/x]", u"ncalrpc:[a\\b]", u"ncalrpc:[[]"}) {
    EXPECT_EQ(StatusOfMaking(text), RPC_S_INVALID_ENDPOINT_FORMAT);
  }
}

TEST(RpcBindingOnLinux, TakesNoOptionsThatNobodyKnows) {
  EXPECT_EQ(StatusOfMaking(u"ncalrpc:[somewhere,Security=impersonation static false]"), RPC_S_OK);
  for (const char16_t* text : {u"ncalrpc:[somewhere,]", u"ncalrpc:[somewhere,Security=identification]",
                               u"ncalrpc:[somewhere,Security=identification dynamic maybe]",
                               u"ncalrpc:[somewhere,Safety=identification dynamic true]"}) {
    EXPECT_EQ(StatusOfMaking(text), RPC_S_INVALID_NETWORK_OPTIONS);
  }
}

TEST(RpcBindingOnLinux, ThatIsFreedIsNoneAnyMore) {
  const auto before = test::LiveHandles();
  RPC_BINDING_HANDLE binding;
  ASSERT_EQ(RpcBindingFromStringBindingW(u"ncalrpc:[somewhere]", &binding), RPC_S_OK);
  EXPECT_EQ(test::LiveHandles().size(), before.size() + 1);
  RPC_BINDING_HANDLE freed = binding;
  EXPECT_EQ(RpcBindingFree(&binding), RPC_S_OK);
  EXPECT_EQ(test::LiveHandles(), before);
  const GUID object{};
  EXPECT_EQ(RpcBindingSetObject(freed, &object), RPC_S_INVALID_BINDING);
  EXPECT_EQ(RpcBindingFree(&freed), RPC_S_INVALID_BINDING);
}

}  // namespace
