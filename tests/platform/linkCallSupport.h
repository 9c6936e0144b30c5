// What the tests of the call by which a client sets up a link share.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <string>

#include "platform/linkCall.h"
#include "platform/raii.h"
#include "platform/sections.h"
#include "tests/platform/handleSupport.h"
#include "tests/support/rpcService.h"

namespace linkCalls {

using namespace platform;
using handles::NewEvent;

// One that nobody has used: the runtime of Windows takes no endpoint back as long as its process lives.
inline GUID NewEndpoint() {
  GUID endpoint{};
  EXPECT_EQ(UuidCreate(&endpoint), RPC_S_OK);
  return endpoint;
}

// A binding to an endpoint.
class Binding {
 public:
  explicit Binding(const GUID& endpoint) {
    std::array<char16_t, 40> text{};
    EXPECT_NE(StringFromGUID2(endpoint, text.data(), text.size()), 0);
    char16_t* binding = nullptr;
    EXPECT_EQ(RpcStringBindingComposeW(nullptr, u"ncalrpc", nullptr, text.data(), nullptr, &binding), RPC_S_OK);
    EXPECT_EQ(RpcBindingFromStringBindingW(binding, &handle_), RPC_S_OK);
    EXPECT_EQ(RpcStringFreeW(&binding), RPC_S_OK);
    EXPECT_EQ(RpcBindingSetObject(handle_, &endpoint), RPC_S_OK);
  }
  Binding(const Binding&) = delete;
  Binding& operator=(const Binding&) = delete;
  ~Binding() { EXPECT_EQ(RpcBindingFree(&handle_), RPC_S_OK); }

  [[nodiscard]] RPC_BINDING_HANDLE get() const { return handle_; }
  [[nodiscard]] RPC_STATUS Authenticate() const {
    const RPC_SECURITY_QOS quality{.Version = RPC_C_SECURITY_QOS_VERSION,
                                   .Capabilities = RPC_C_QOS_CAPABILITIES_MUTUAL_AUTH,
                                   .IdentityTracking = RPC_C_QOS_IDENTITY_STATIC,
                                   .ImpersonationType = RPC_C_IMP_LEVEL_IDENTIFY};
    return RpcBindingSetAuthInfoExW(handle_, u"SYSTEM", RPC_C_AUTHN_LEVEL_PKT_PRIVACY, RPC_C_AUTHN_WINNT, nullptr,
                                    RPC_C_AUTHZ_NONE, &quality);
  }

 private:
  RPC_BINDING_HANDLE handle_;
};

// The text must outlive the request.
inline LinkRequest RequestWithName(const std::u16string& name) {
  LinkRequest request;
  request.nameLength = static_cast<LONG>(name.size() + 1);
  request.streamName = name.c_str();
  return request;
}

inline std::array<KernelHandle, 11> HandlesOf(const LinkReply& reply) {
  const LinkChannelHandles& in = reply.receive;
  const LinkChannelHandles& out = reply.send;
  return {in.mapping,    in.dataReady,     in.dataConsumed, in.error, in.stop,          out.mapping,
          out.dataReady, out.dataConsumed, out.error,       out.stop, reply.peerProcess};
}

// Closes what a reply has brought.
inline void CloseAll(LinkReply& reply) {
  for (const KernelHandle handle : HandlesOf(reply)) {
    if (handle.value() != 0) {
      EXPECT_TRUE(CloseHandle(handle));
    }
  }
  reply = {};
}

// What a service makes for one channel. One of its events stays signalled: so it can be seen that each keeps its kind.
struct ServedChannel {
  UniqueSection mapping{CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 4096, nullptr)};
  UniqueEvent dataReady = NewEvent(false);
  UniqueEvent dataConsumed = NewEvent(false);
  UniqueEvent error = NewEvent(false);
  UniqueEvent stop = NewEvent(true);

  [[nodiscard]] support::ChannelHandles Lent() const {
    return {.mapping = mapping.get(),
            .dataReady = dataReady.get(),
            .dataConsumed = dataConsumed.get(),
            .error = error.get(),
            .stop = stop.get()};
  }

  void ExpectToBe(const LinkChannelHandles& brought) const {
    const UniqueView ours(MapViewOfFile(mapping.get(), FILE_MAP_READ | FILE_MAP_WRITE, 0, 0, 0));
    const UniqueView theirs(MapViewOfFile(brought.mapping, FILE_MAP_READ | FILE_MAP_WRITE, 0, 0, 0));
    ASSERT_TRUE(ours && theirs);
    static_cast<std::uint8_t*>(ours.get())[4095] = 42;
    EXPECT_EQ(static_cast<std::uint8_t*>(theirs.get())[4095], 42);
    EXPECT_NE(brought.mapping, mapping.get());
    ExpectSame(dataReady.get(), brought.dataReady, false);
    ExpectSame(dataConsumed.get(), brought.dataConsumed, false);
    ExpectSame(error.get(), brought.error, false);
    ExpectSame(stop.get(), brought.stop, true);
  }

 private:
  static void ExpectSame(EventHandle ours, EventHandle theirs, bool manualReset) {
    EXPECT_NE(ours, theirs);
    EXPECT_EQ(WaitForSingleObject(theirs, 0), WAIT_TIMEOUT);
    EXPECT_TRUE(SetEvent(ours));
    EXPECT_EQ(WaitForSingleObject(theirs, 0), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObject(theirs, 0), manualReset ? WAIT_OBJECT_0 : WAIT_TIMEOUT);
    EXPECT_TRUE(SetEvent(theirs));
    EXPECT_EQ(WaitForSingleObject(ours, 0), WAIT_OBJECT_0);
  }
};

}  // namespace linkCalls
