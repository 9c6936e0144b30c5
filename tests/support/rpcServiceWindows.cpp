#include "tests/support/rpcService.h"

#include "platform/raii.h"

#include <windows.h>

#include <objbase.h>
#include <rpc.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <system_error>
#include <utility>

#include "tests/support/linkService.h"

extern "C" void* __RPC_USER MIDL_user_allocate(std::size_t size) { return std::malloc(size); }
extern "C" void __RPC_USER MIDL_user_free(void* memory) { std::free(memory); }

namespace support {
namespace {

void Check(::RPC_STATUS status, const char* what) {
  if (status != RPC_S_OK) throw std::system_error(static_cast<int>(status), std::system_category(), what);
}

class Service;

struct BeforeEndpoint {
  bool operator()(const platform::GUID& left, const platform::GUID& right) const {
    return std::memcmp(&left, &right, sizeof left) < 0;
  }
};

// The services of this process. The runtime knows one interface, and gives no endpoint back.
struct Services {
  std::mutex lock;
  std::map<platform::GUID, std::shared_ptr<Service>, BeforeEndpoint> byEndpoint;
  std::set<platform::GUID, BeforeEndpoint> owned;
};

Services& TheServices() {
  static Services& services = *new Services;
  return services;
}

class Service {
 public:
  explicit Service(RpcService::Answer answer) : answer_(std::move(answer)) {}

  // Nothing when the service has ended.
  bool Serve(const ConnectRequest& request, ConnectReply& reply) {
    const std::lock_guard guard(lock_);
    if (ended_) return false;
    reply = answer_(request);
    return true;
  }
  void End() {
    const std::lock_guard guard(lock_);
    ended_ = true;
  }

 private:
  std::mutex lock_;  // One call at a time.
  bool ended_ = false;
  const RpcService::Answer answer_;
};

class Listener final : public RpcService {
 public:
  explicit Listener(const platform::GUID& endpoint) : endpoint_(endpoint) {}
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;
  ~Listener() override {
    Services& services = TheServices();
    std::shared_ptr<Service> ended;
    {
      const std::lock_guard guard(services.lock);
      ended = std::move(services.byEndpoint.extract(endpoint_).mapped());
    }
    ended->End();
  }

 private:
  const platform::GUID endpoint_;
};

// The endpoint that a call came for: its binding's object.
std::shared_ptr<Service> ServiceFor(::RPC_BINDING_HANDLE binding) {
  ::UUID object{};
  if (::RpcBindingInqObject(binding, &object) != RPC_S_OK) return nullptr;
  platform::GUID endpoint{};
  static_assert(sizeof endpoint == sizeof object);
  std::memcpy(&endpoint, &object, sizeof object);
  Services& services = TheServices();
  const std::lock_guard guard(services.lock);
  const auto found = services.byEndpoint.find(endpoint);
  return found != services.byEndpoint.end() ? found->second : nullptr;
}

bool IsAuthenticated(::RPC_BINDING_HANDLE binding) {
  unsigned long level = 0;
  unsigned long service = 0;
  return ::RpcBindingInqAuthClientW(binding, nullptr, nullptr, &level, &service, nullptr) == RPC_S_OK &&
         level == RPC_C_AUTHN_LEVEL_PKT_PRIVACY && service == RPC_C_AUTHN_WINNT;
}

platform::UniqueProcess OpenClient() {
  unsigned long id = 0;
  if (::I_RpcBindingInqLocalClientPID(nullptr, &id) != RPC_S_OK) return {};
  return platform::UniqueProcess(platform::ProcessHandle(
      reinterpret_cast<std::uintptr_t>(::OpenProcess(PROCESS_DUP_HANDLE | SYNCHRONIZE, FALSE, id))));
}

// The value that the handle has in the client; 0 for a null handle.
hyper PutInto(platform::ProcessHandle client, platform::KernelHandle handle) {
  std::uintptr_t value = 0;
  if (handle.value() != 0) {
    static_cast<void>(platform::DuplicateToValue(platform::GetCurrentProcess(), handle, client, &value));
  }
  return static_cast<hyper>(value);
}

void Register() {
  static std::once_flag registered;
  std::call_once(registered, [] {
    Check(::RpcServerRegisterIfEx(LinkService_ServerIfHandle, nullptr, nullptr, RPC_IF_AUTOLISTEN,
                                  RPC_C_LISTEN_MAX_CALLS_DEFAULT, nullptr),
          "RpcServerRegisterIfEx");
    Check(::RpcServerRegisterAuthInfoW(nullptr, RPC_C_AUTHN_WINNT, nullptr, nullptr), "RpcServerRegisterAuthInfoW");
  });
}

void Own(const platform::GUID& endpoint) {
  std::array<wchar_t, 40> text{};
  ::StringFromGUID2(reinterpret_cast<const ::GUID&>(endpoint), text.data(), static_cast<int>(text.size()));
  wchar_t protocol[] = L"ncalrpc";
  Check(::RpcServerUseProtseqEpW(reinterpret_cast<::RPC_WSTR>(protocol), RPC_C_PROTSEQ_MAX_REQS_DEFAULT,
                                 reinterpret_cast<::RPC_WSTR>(text.data()), nullptr),
        "RpcServerUseProtseqEpW");
}

}  // namespace

std::unique_ptr<RpcService> RpcService::Listen(const platform::GUID& endpoint, Answer answer) {
  Services& services = TheServices();
  const std::lock_guard guard(services.lock);
  if (services.byEndpoint.contains(endpoint)) Check(RPC_S_DUPLICATE_ENDPOINT, "the endpoint is taken");
  if (!services.owned.contains(endpoint)) {
    Own(endpoint);
    services.owned.insert(endpoint);
  }
  services.byEndpoint.emplace(endpoint, std::make_shared<Service>(std::move(answer)));
  Register();
  return std::make_unique<Listener>(endpoint);
}

}  // namespace support

error_status_t LinkService_ConnectByValues(handle_t binding, LONG clientVersion, hyper linkId, LONG linkFlags,
                                           hyper streamId, LONG streamFlags, LONG, const wchar_t* streamName,
                                           LONG channelSizeHint, LONG* channelSize, LONG* linkValue,
                                           hyper* remoteLinkValue, LONG* peerLinkFlags, hyper* receiveMapping,
                                           hyper* receiveDataReady, hyper* receiveDataConsumed, hyper* receiveError,
                                           hyper* receiveStop, hyper* sendMapping, hyper* sendDataReady,
                                           hyper* sendDataConsumed, hyper* sendError, hyper* sendStop,
                                           hyper* peerProcess, LONG* peerValue, hyper* remoteStreamId,
                                           LONG* remoteStreamFlags, LONG* connectStatus) {
  using namespace support;
  const auto service = ServiceFor(binding);
  if (!service) return RPC_S_SERVER_UNAVAILABLE;
  const platform::UniqueProcess client = OpenClient();
  const ConnectRequest request{.procedure = 0,
                               .authenticated = IsAuthenticated(binding),
                               .clientVersion = clientVersion,
                               .linkId = linkId,
                               .linkFlags = linkFlags,
                               .streamId = streamId,
                               .streamFlags = streamFlags,
                               .streamName = reinterpret_cast<const char16_t*>(streamName),
                               .channelSizeHint = channelSizeHint,
                               .clientPipe = {},
                               .clientProcess = client.get()};
  ConnectReply reply;
  if (!service->Serve(request, reply)) return RPC_S_SERVER_UNAVAILABLE;
  *channelSize = reply.channelSize;
  *linkValue = reply.linkValue;
  *remoteLinkValue = reply.remoteLinkValue;
  *peerLinkFlags = reply.peerLinkFlags;
  *receiveMapping = PutInto(client.get(), reply.receive.mapping);
  *receiveDataReady = PutInto(client.get(), reply.receive.dataReady);
  *receiveDataConsumed = PutInto(client.get(), reply.receive.dataConsumed);
  *receiveError = PutInto(client.get(), reply.receive.error);
  *receiveStop = PutInto(client.get(), reply.receive.stop);
  *sendMapping = PutInto(client.get(), reply.send.mapping);
  *sendDataReady = PutInto(client.get(), reply.send.dataReady);
  *sendDataConsumed = PutInto(client.get(), reply.send.dataConsumed);
  *sendError = PutInto(client.get(), reply.send.error);
  *sendStop = PutInto(client.get(), reply.send.stop);
  if (reply.hasPeerProcess) *peerProcess = PutInto(client.get(), platform::GetCurrentProcess());
  *peerValue = reply.peerValue;
  *remoteStreamId = reply.remoteStreamId;
  *remoteStreamFlags = reply.remoteStreamFlags;
  // A value always travels: the one that every client has preset.
  *connectStatus = reply.hasConnectStatus ? reply.connectStatus : 1;
  return reply.result;
}
