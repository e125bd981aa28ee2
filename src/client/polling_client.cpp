#include "client/polling_client.h"

#include <algorithm>
#include <deque>
#include <new>
#include <utility>

#include "client/client_core.h"
#include "client/fork_guard.h"
#include "net/system.h"

namespace OstrandService {
namespace {

// Outcomes that are handed out before the sockets are looked at again.
constexpr int kOutcomesARound = 256;

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

struct PollingClient::Impl {
  Impl(const ClientOptions& given, OSTRNET::System& world)
      : options(given), options_error(CheckOptions(options)), system(world) {}

  int Start();
  int WaitReady(int timeout_ms);
  int Send(ClientRequest& request);
  int Receive(ClientResponse& response, int timeout_ms);
  int NextOutcome(ClientResponse& response, int64_t until_ms);
  int WaitForOutcome(ClientResponse& response, int64_t until_ms,
                     ClientCore::Taken taken = ClientCore::Taken::kNothing);
  int Call(ClientRequest& request, ClientResponse& response);
  int WaitForOutcomeOf(uint64_t id, ClientResponse& response);
  bool TakeKept(ClientResponse& response);
  size_t Drain(int drain_ms, const std::function<void(ClientResponse&)>& on_outcome);
  void TellForeignLoop();

  const ClientOptions options;
  const char* const options_error;
  OSTRNET::System& system;
  ForkGuard fork_guard;
  std::unique_ptr<ClientCore> core;     // null before Start and after Stop
  std::unique_ptr<OSTRNET::Timer> due;  // for other loops; from the first Fd on
  std::deque<ClientResponse> kept;      // outcomes that came while Call waited for its own
  size_t kept_bytes = 0;
  uint64_t last_call = 0;  // the request of the last Call, while packages of its answer may come
  int handed_out = 0;      // since the last round
  bool is_stopping = false;
  ClientCounters final_counters;  // after Stop
};

PollingClient::PollingClient(const ClientOptions& options) {
  WithCodes([this, &options] {
    m_impl = std::make_unique<Impl>(options, OSTRNET::System::Kernel());
    return 0;
  });
}

PollingClient::PollingClient(const ClientOptions& options, OSTRNET::System& system) {
  WithCodes([this, &options, &system] {
    m_impl = std::make_unique<Impl>(options, system);
    return 0;
  });
}

PollingClient::~PollingClient() {
  if (m_impl != nullptr && m_impl->fork_guard.InChild()) {
    if (m_impl->core != nullptr) {
      m_impl->core->Loop().Abandon();
    }
    return;
  }
  Stop(0);
}

// What stands before every operation that can fail: a client that has its memory, is started, and
// is no copy of a forked one.
template <typename Body>
int PollingClient::Run(Body body) {
  if (m_impl == nullptr) {
    return ROUTER_ERR_ALLOCATION;
  }
  if (m_impl->fork_guard.InChild()) {
    return CLIENT_ERR_FORKED;
  }
  if (m_impl->core == nullptr) {
    return CLIENT_ERR_NOT_STARTED;
  }
  const OSTRNET::LoopScope scope(m_impl->core->Loop());
  const int ret = WithCodes([this, &body] { return body(*m_impl); });
  m_impl->TellForeignLoop();
  return ret;
}

int PollingClient::Start() {
  if (m_impl == nullptr) {
    return ROUTER_ERR_ALLOCATION;
  }
  return m_impl->fork_guard.InChild() ? int{CLIENT_ERR_FORKED}
                                      : WithCodes([this] { return m_impl->Start(); });
}

int PollingClient::Impl::Start() {
  if (options_error != nullptr) {
    return CLIENT_ERR_OPTIONS;
  }
  if (core != nullptr) {
    return CLIENT_ERR_NOT_STARTED;
  }
  auto started = std::make_unique<ClientCore>(options, system);
  const OSTRNET::LoopScope scope(started->Loop());
  const int ret = started->Start();
  if (ret == 0) {
    core = std::move(started);
  }
  return ret;
}

int PollingClient::WaitReady(int timeout_ms) {
  return Run([timeout_ms](Impl& impl) { return impl.WaitReady(timeout_ms); });
}

int PollingClient::Impl::WaitReady(int timeout_ms) {
  core->LookAfterOwner();
  const int64_t deadline_ms = core->Loop().NowMs() + timeout_ms;
  for (;;) {
    core->Round(core->Loop().NowMs());
    if (core->GetService().IsReady()) {
      return 0;
    }
    if (const int32_t refusal = core->GetService().SchemaRefusal()) {
      return refusal;
    }
    if (core->Loop().NowMs() >= deadline_ms) {
      const int32_t trouble = core->GetService().SchemaTrouble();
      return trouble != 0 ? trouble : int32_t{CLIENT_ERR_NOT_READY_IN_TIME};
    }
    core->Round(deadline_ms);
  }
}

int PollingClient::Send(ClientRequest& request) {
  return Run([&request](Impl& impl) { return impl.Send(request); });
}

int PollingClient::Impl::Send(ClientRequest& request) {
  if (is_stopping) {
    return CLIENT_ERR_NOT_STARTED;
  }
  if (const int ret = core->Catalog().Prepare(request)) {
    return ret;
  }
  uint64_t id = 0;
  const int ret = core->Send(request.Head(), request.Bytes(), id);
  if (ret == 0) {
    request.SetAsynID(id);
  }
  return ret;
}

int PollingClient::Flush() {
  return Run([](Impl& impl) {
    impl.core->Flush();
    return 0;
  });
}

int PollingClient::Receive(ClientResponse& response, int timeout_ms) {
  return Run([&response, timeout_ms](Impl& impl) { return impl.Receive(response, timeout_ms); });
}

int PollingClient::Impl::Receive(ClientResponse& response, int timeout_ms) {
  if (TakeKept(response)) {
    return 1;
  }
  ClientCore::Taken taken = ClientCore::Taken::kLookAgain;
  if (handed_out < kOutcomesARound) {
    ++handed_out;
    taken = core->TakeOutcome(response);
    if (taken == ClientCore::Taken::kOutcome) {
      return 1;
    }
  }
  core->LookAfterOwner();
  if (taken == ClientCore::Taken::kLookAgain) {  // some may be there: the sockets, without waiting
    core->Round(INT64_MIN);
    handed_out = 0;
    taken = core->TakeOutcome(response);
    if (taken == ClientCore::Taken::kOutcome) {
      return 1;
    }
  }
  return WaitForOutcome(response, core->Loop().NowMs() + timeout_ms, taken);
}

// One that is there already, or else one that is waited for.
int PollingClient::Impl::NextOutcome(ClientResponse& response, int64_t until_ms) {
  const ClientCore::Taken taken = core->TakeOutcome(response);
  return taken == ClientCore::Taken::kOutcome ? 1 : WaitForOutcome(response, until_ms, taken);
}

// taken: what the last look at the queues found; not an outcome.
int PollingClient::Impl::WaitForOutcome(ClientResponse& response, int64_t until_ms,
                                        ClientCore::Taken taken) {
  do {
    core->Round(taken == ClientCore::Taken::kLookAgain ? INT64_MIN : until_ms);
    handed_out = 0;
    taken = core->TakeOutcome(response);
    if (taken == ClientCore::Taken::kOutcome) {
      return 1;
    }
  } while (core->Loop().NowMs() < until_ms);
  return 0;
}

int PollingClient::Call(ClientRequest& request, ClientResponse& response) {
  return Run([&request, &response](Impl& impl) { return impl.Call(request, response); });
}

int PollingClient::Impl::Call(ClientRequest& request, ClientResponse& response) {
  core->Cancel(std::exchange(last_call, 0));
  core->LookAfterOwner();
  if (const int ret = Send(request)) {
    return ret;
  }
  return WaitForOutcomeOf(request.GetAsynID(), response);
}

int PollingClient::Impl::WaitForOutcomeOf(uint64_t id, ClientResponse& response) try {
  for (;;) {
    if (kept_bytes > kMostKeptBytes) {
      core->Cancel(id);
      return CLIENT_ERR_BUSY;
    }
    kept.emplace_back();  // room first: what was taken cannot be put back
    ClientResponse& place = kept.back();
    if (NextOutcome(response, INT64_MAX) == 1 && response.GetAsynID() != id) {
      kept_bytes += response.SizeInMemory();
      place = std::move(response);
      continue;
    }
    kept.pop_back();
    if (response.GetAsynID() == id) {
      last_call = response.HaveMoreResPkgs() == 1 ? id : 0;
      return 0;
    }
  }
} catch (const std::bad_alloc&) {
  core->Cancel(id);
  return ROUTER_ERR_ALLOCATION;
}

bool PollingClient::Impl::TakeKept(ClientResponse& response) {
  if (kept.empty()) {
    return false;
  }
  kept_bytes -= kept.front().SizeInMemory();
  response = std::move(kept.front());
  kept.pop_front();
  return true;
}

bool PollingClient::Cancel(uint64_t asyn_id) {
  bool was_there = false;
  Run([asyn_id, &was_there](Impl& impl) {
    was_there = impl.core->Cancel(asyn_id);
    return 0;
  });
  return was_there;
}

int PollingClient::Update() {
  return Run([](Impl& impl) {
    impl.core->LookAfterOwner();
    impl.core->Round(impl.core->Loop().NowMs());
    return 0;
  });
}

int64_t PollingClient::NextDueMs() {
  int64_t left_ms = 0;
  Run([&left_ms](Impl& impl) {
    impl.core->Loop().LookAtClock();
    left_ms = std::max<int64_t>(impl.core->NextDueMs() - impl.core->Loop().NowMs(), 0);
    return 0;
  });
  return left_ms;
}

int PollingClient::Fd() {
  int fd = -1;
  Run([&fd](Impl& impl) {
    if (impl.due == nullptr) {
      impl.due = std::make_unique<OSTRNET::Timer>(impl.core->Loop(), [] {});
    }
    fd = impl.core->Loop().Fd();
    return 0;
  });
  return fd;
}

// Keeps the descriptor of other loops readable, or not, and its timer where something is due.
void PollingClient::Impl::TellForeignLoop() {
  if (due == nullptr) {
    return;
  }
  const bool has_work = !kept.empty() || core->HasWork();
  core->Loop().SetReady(has_work);
  if (!has_work) {
    due->SetAt(core->NextDueMs());
  }
}

size_t PollingClient::Stop(int drain_ms, const std::function<void(ClientResponse&)>& on_outcome) {
  if (m_impl == nullptr || m_impl->core == nullptr || m_impl->is_stopping ||
      m_impl->fork_guard.InChild()) {
    return 0;
  }
  m_impl->is_stopping = true;
  size_t timed_out = 0;
  const int ret = WithCodes([this, drain_ms, &on_outcome, &timed_out] {
    timed_out = m_impl->Drain(drain_ms, on_outcome);
    return 0;
  });
  if (ret != 0) {  // without memory: what is left goes without a word
    timed_out = m_impl->core->InFlight();
  }
  m_impl->final_counters = m_impl->core->Counters();
  {
    const OSTRNET::LoopScope scope(m_impl->core->Loop());
    m_impl->due.reset();
    m_impl->kept.clear();
    m_impl->kept_bytes = 0;
  }
  m_impl->core.reset();
  m_impl->is_stopping = false;
  return timed_out;
}

// Hands out what is there and comes within the time; the rest times out. Answers how many did.
size_t PollingClient::Impl::Drain(int drain_ms,
                                  const std::function<void(ClientResponse&)>& on_outcome) {
  const OSTRNET::LoopScope scope(core->Loop());
  ClientResponse response;
  const auto hand_out = [&response, &on_outcome] {
    if (on_outcome) {
      on_outcome(response);
    }
  };
  const uint64_t timed_out_before = core->Counters().timed_out;
  while (TakeKept(response)) {
    hand_out();
  }
  core->LookAfterOwner();
  const int64_t deadline_ms = core->Loop().NowMs() + drain_ms;
  while (core->InFlight() != 0 && core->Loop().NowMs() < deadline_ms) {
    if (NextOutcome(response, deadline_ms) == 1) {
      hand_out();
    }
  }
  core->EndAll(ClientResponse::kResultTimeOut);
  while (core->InFlight() != 0 && core->TakeOutcome(response) == ClientCore::Taken::kOutcome) {
    hand_out();
  }
  return static_cast<size_t>(core->Counters().timed_out - timed_out_before);
}

size_t PollingClient::InFlight() const {
  return m_impl != nullptr && m_impl->core != nullptr ? m_impl->core->InFlight() : 0;
}

ClientCounters PollingClient::Counters() const {
  if (m_impl == nullptr) {
    return ClientCounters();
  }
  return m_impl->core != nullptr ? m_impl->core->Counters() : m_impl->final_counters;
}

const char* PollingClient::OptionsError() const {
  return m_impl != nullptr ? m_impl->options_error : "out of memory";
}

void PollingClient::GetLastError(int32_t& code, std::string& text) {
  code = 0;
  text.clear();
  Run([&code, &text](Impl& impl) {
    impl.core->GetService().GetLastError(code, text);
    return 0;
  });
}

std::string PollingClient::StatusText() {
  std::string text;
  Run([&text](Impl& impl) {
    text = impl.core->GetService().StatusText();
    return 0;
  });
  return text;
}

const char* PollingClient::UsedProxyUrl(int32_t zone_id) const {
  const Zone* const zone = m_impl != nullptr && m_impl->core != nullptr
                               ? m_impl->core->GetService().FindZone(zone_id)
                               : nullptr;
  return zone != nullptr ? zone->router->GetUsedProxyUrl() : nullptr;
}

uint64_t PollingClient::SystemCalls() const {
  return m_impl != nullptr && m_impl->core != nullptr ? m_impl->core->Loop().SystemCalls() : 0;
}

}  // namespace OstrandService
