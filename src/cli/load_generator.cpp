#include "cli/load_generator.h"

#include <sys/resource.h>

#include <algorithm>
#include <numeric>

#include "common/clock.h"
#include "service_api/ostrand_router.h"

namespace OstrandCli {
namespace {

using OstrandCommon::GetMonotonicNanoseconds;
using OstrandService::ClientResponse;

constexpr int kRoundMs = 100;       // the longest wait between two looks at the limits
constexpr int kAfterFailureMs = 5;  // so long a client that takes nothing is left alone

double Seconds(const timeval& time) {
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

}  // namespace

// What a Run cost, from its beginning to its end.
class LoadGenerator::Meter {
 public:
  Meter(const OstrandService::PollingClient& client, LoadFigures& figures)
      : m_client(client), m_figures(figures) {
    Add(-1);
  }
  ~Meter() { Add(1); }
  Meter(const Meter&) = delete;
  Meter& operator=(const Meter&) = delete;

 private:
  void Add(int sign) {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    m_figures.seconds += sign * static_cast<double>(GetMonotonicNanoseconds()) / 1e9;
    m_figures.user_cpu_seconds += sign * Seconds(usage.ru_utime);
    m_figures.system_cpu_seconds += sign * Seconds(usage.ru_stime);
    m_figures.system_calls += static_cast<uint64_t>(sign) * m_client.SystemCalls();
  }

  const OstrandService::PollingClient& m_client;
  LoadFigures& m_figures;
};

LoadGenerator::LoadGenerator(OstrandService::PollingClient& client) : m_client(client) {}

int LoadGenerator::Run(RequestSource& source, const LoadLimits& limits) {
  m_slots.assign(std::max<size_t>(limits.window, 1), Slot());
  m_free.resize(m_slots.size());
  std::iota(m_free.rbegin(), m_free.rend(), size_t{0});
  m_counts_proxies = limits.count_proxies;

  const Meter meter(m_client, m_figures);
  const int64_t end_ns =
      limits.duration_ms > 0 ? GetMonotonicNanoseconds() + limits.duration_ms * 1000000 : INT64_MAX;
  const uint64_t sent_at_most = limits.requests > 0 ? m_figures.sent + limits.requests : UINT64_MAX;
  for (bool sends = true;;) {
    sends = sends && GetMonotonicNanoseconds() < end_ns;
    const bool all_accepted = !sends || Fill(source, sent_at_most);
    if (InFlight() == 0 && all_accepted) {
      return 0;  // all is sent, or there is nothing to send
    }
    sends = sends && (!limits.go_on || limits.go_on());
    const int ret = Drain(source, all_accepted ? kRoundMs : kAfterFailureMs);
    if (ret < 0) {
      return ret;
    }
  }
}

// Sends until the window is full or there is nothing to send. False: the client refused one.
bool LoadGenerator::Fill(RequestSource& source, uint64_t sent_at_most) {
  uint64_t tag = 0;
  while (m_figures.sent < sent_at_most && !m_free.empty() && source.Next(m_request, tag)) {
    if (!SendOne(source, tag)) {
      return false;
    }
  }
  return true;
}

bool LoadGenerator::SendOne(RequestSource& source, uint64_t tag) {
  const size_t place = m_free.back();
  m_request.SetSequence(static_cast<int32_t>(place));
  ++m_figures.sent;
  const int64_t now_ns = GetMonotonicNanoseconds();
  const int ret = m_client.Send(m_request);
  if (ret != 0) {
    ++m_figures.failed;
    ++m_figures.codes[ret];
    source.OnOutcome(tag, LoadOutcome::kFailed, ret, nullptr);
    return false;
  }
  m_free.pop_back();
  m_slots[place] = {m_request.GetAsynID(), tag, now_ns};
  if (m_counts_proxies) {
    CountProxy();
  }
  return true;
}

void LoadGenerator::CountProxy() {
  const char* const url = m_client.UsedProxyUrl(m_request.GetZoneId());
  if (url == nullptr) {
    return;
  }
  const auto known = m_proxy_counts.find(url);
  if (known != m_proxy_counts.end()) {
    ++*known->second;
    return;
  }
  const auto entry = m_figures.by_proxy.emplace(url, 0).first;
  m_proxy_counts.emplace(entry->first, &entry->second);
  ++entry->second;
}

// Takes what is there, waiting for the first outcome.
int LoadGenerator::Drain(RequestSource& source, int timeout_ms) {
  int ret = m_client.Receive(m_response, timeout_ms);
  while (ret == 1) {
    Settle(source);
    ret = InFlight() != 0 ? m_client.Receive(m_response, 0) : 0;
  }
  return ret;
}

// Whether a result stands in the place of an answer: none came in its time, its connection was
// lost, or it waited in vain to be sent.
bool LoadGenerator::IsNoAnswer(int32_t result) {
  static constexpr int32_t kNoAnswers[] = {
      ClientResponse::kResultTimeOut,       OstrandService::CLIENT_ERR_CONNECTION_LOST,
      OstrandService::CLIENT_ERR_NOT_READY, OstrandService::CLIENT_ERR_DIRECTORY,
      OstrandService::ROUTER_ERR_NO_ROUTE,  OstrandService::ROUTER_ERR_SEND_BUFFER_FULL,
  };
  return std::find(std::begin(kNoAnswers), std::end(kNoAnswers), result) != std::end(kNoAnswers);
}

void LoadGenerator::Settle(RequestSource& source) {
  Slot* const slot = FindSlot();
  if (slot == nullptr) {
    ++m_figures.strays;
    return;
  }
  const uint64_t tag = slot->tag;
  const int32_t result = m_response.GetResult();
  const bool is_time_out = IsNoAnswer(result);
  if (is_time_out) {
    ++m_figures.timed_out;
  } else {
    ++m_figures.answered;
    m_figures.latency_ns.Add(
        static_cast<uint64_t>(std::max<int64_t>(GetMonotonicNanoseconds() - slot->began_ns, 0)));
    if (result != 0) {
      ++m_figures.refused;
      ++m_figures.codes[result];
    }
  }
  *slot = Slot();
  m_free.push_back(static_cast<size_t>(slot - m_slots.data()));
  source.OnOutcome(tag, is_time_out ? LoadOutcome::kTimedOut : LoadOutcome::kAnswered, result,
                   &m_response);
}

// The slot of the response: where its sequence number says, unless a proxy changed that.
LoadGenerator::Slot* LoadGenerator::FindSlot() {
  const uint64_t asyn_id = m_response.GetAsynID();
  const auto place = static_cast<size_t>(static_cast<uint32_t>(m_response.GetSequence()));
  if (place < m_slots.size() && m_slots[place].asyn_id == asyn_id) {
    return &m_slots[place];
  }
  const auto found = std::find_if(m_slots.begin(), m_slots.end(),
                                  [asyn_id](const Slot& slot) { return slot.asyn_id == asyn_id; });
  return found != m_slots.end() ? &*found : nullptr;
}

}  // namespace OstrandCli
