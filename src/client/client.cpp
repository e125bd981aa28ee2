#include "client/client.h"

#include <new>

#include "client/client_loop.h"
#include "net/system.h"
#include "service_api/ostrand_router.h"

namespace OstrandService {
namespace {

static_assert(Client::kMostPosted == ClientLoop::kMostPosted);

// Memory that runs out is a code here like everything else.
template <typename Body>
int WithCodes(Body body) {
  try {
    return body();
  } catch (const std::bad_alloc&) {
    return ROUTER_ERR_ALLOCATION;
  }
}

}  // namespace

Client::Client(const ClientOptions& options) : Client(options, OSTRNET::System::Kernel()) {}

Client::Client(const ClientOptions& options, OSTRNET::System& system) {
  WithCodes([this, &options, &system] {
    m_loop = new ClientLoop(options, system);
    return 0;
  });
}

Client::~Client() {
  if (m_loop != nullptr) {
    m_loop->Leave();
  }
}

// What stands before every operation, and before every lock: a client that has its memory and is no
// copy of a forked one.
int Client::Usable() const {
  if (m_loop == nullptr) {
    return ROUTER_ERR_ALLOCATION;
  }
  return m_loop->InChild() ? int{CLIENT_ERR_FORKED} : 0;
}

int Client::Start() {
  const int ret = Usable();
  return ret != 0 ? ret : WithCodes([this] { return m_loop->Start(); });
}

int Client::WaitReady(int timeout_ms) {
  const int ret = Usable();
  return ret != 0 ? ret : WithCodes([this, timeout_ms] { return m_loop->WaitReady(timeout_ms); });
}

int Client::Call(ClientRequest& request, ClientResponse& response) {
  if (const int ret = Usable()) {
    return ret;
  }
  if (m_loop->IsCurrent()) {
    return CLIENT_ERR_IN_CALLBACK;
  }
  return WithCodes([this, &request, &response] { return m_loop->Call(request, response); });
}

int Client::Send(ClientRequest& request, Callback callback) {
  const int ret = Usable();
  return ret != 0 ? ret : WithCodes([this, &request, &callback] {
    return m_loop->Send(request, Ticket::Kind::kCallback, callback);
  });
}

int Client::SendForWhole(ClientRequest& request, Callback callback) {
  const int ret = Usable();
  return ret != 0 ? ret : WithCodes([this, &request, &callback] {
    return m_loop->Send(request, Ticket::Kind::kWhole, callback);
  });
}

std::future<ClientResponse> Client::Send(ClientRequest& request) {
  std::future<ClientResponse> answer;
  WithCodes([this, &request, &answer] {
    ClientLoop::SendForFuture(m_loop, Usable(), request, answer);
    return 0;
  });
  return answer;
}

bool Client::Cancel(uint64_t asyn_id) {
  return Usable() == 0 &&
         WithCodes([this, asyn_id] { return m_loop->Cancel(asyn_id) ? 1 : 0; }) == 1;
}

int Client::Stop(int drain_ms) {
  if (const int ret = Usable()) {
    return ret;
  }
  return m_loop->IsCurrent() ? int{CLIENT_ERR_IN_CALLBACK} : m_loop->Stop(drain_ms);
}

size_t Client::InFlight() const { return Usable() == 0 ? m_loop->InFlight() : 0; }

ClientCounters Client::Counters() const {
  ClientCounters counters;
  if (Usable() == 0) {
    WithCodes([this, &counters] {
      counters = m_loop->Counters();
      return 0;
    });
  }
  return counters;
}

const char* Client::OptionsError() const {
  return m_loop != nullptr ? m_loop->OptionsError() : "out of memory";
}

bool Client::Ask(const std::function<void(ClientCore&)>& question) const {
  return Usable() == 0 && WithCodes([this, &question] { return m_loop->Ask(question); }) == 0;
}

void Client::GetLastError(int32_t& code, std::string& text) const {
  code = 0;
  text.clear();
  Ask([&code, &text](ClientCore& core) { core.GetService().GetLastError(code, text); });
}

std::string Client::StatusText() const {
  std::string text;
  Ask([&text](ClientCore& core) { text = core.GetService().StatusText(); });
  return text;
}

std::string Client::UsedProxyUrl(int32_t zone_id) const {
  std::string url;
  Ask([zone_id, &url](ClientCore& core) {
    const Zone* const zone = core.GetService().FindZone(zone_id);
    const char* const used = zone != nullptr ? zone->router->GetUsedProxyUrl() : nullptr;
    url = used != nullptr ? used : "";
  });
  return url;
}

uint64_t Client::SystemCalls() const {
  uint64_t calls = 0;
  Ask([&calls](ClientCore& core) { calls = core.Loop().SystemCalls(); });
  return calls;
}

}  // namespace OstrandService
