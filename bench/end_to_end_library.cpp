#include "end_to_end_library.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdio>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>

#include "client/client.h"
#include "client/error_text.h"
#include "client/polling_client.h"

namespace ostrand_bench {
namespace {

using OstrandService::Client;
using OstrandService::ClientOptions;
using OstrandService::ClientRequest;
using OstrandService::ClientResponse;
using OstrandService::PollingClient;

constexpr size_t kKeys = 65536;
constexpr char kTable[] = "bench";
constexpr int32_t kZone = 1;

ClientOptions OptionsFor(const std::vector<std::string>& urls) {
  ClientOptions options;
  options.app_id = 1;
  options.zones = {kZone};
  options.directory_urls = {urls[0]};
  options.tables = {{kTable, kZone, nullptr}};
  options.signature = "bench";
  return options;
}

template <typename AnyClient>
bool Begin(AnyClient& client) {
  int ret = client.Start();
  ret = ret == 0 ? client.WaitReady(10000) : ret;
  if (ret != 0) {
    std::fprintf(stderr, "end_to_end: %s\n", OstrandService::ErrorText(ret));
  }
  return ret == 0;
}

// The requests that all modes send: half reads, half writes.
class Traffic {
 public:
  explicit Traffic(const Configuration& configuration)
      : m_value(configuration.value_len, 'v'), m_keys(kKeys) {
    for (size_t i = 0; i < kKeys; ++i) {
      char key[17];
      std::snprintf(key, sizeof(key), "key%013llu",
                    static_cast<unsigned long long>(i * 2654435761u % kKeys));
      m_keys[i] = key;
    }
  }

  void Build(uint64_t number, ClientRequest& request) const {
    if (number % 2 == 0) {
      request.Get(kTable);
    } else {
      request.Replace(kTable).Set("value", m_value);
    }
    request.Zone(kZone).Key("k", m_keys[number % kKeys]);
  }

 private:
  const std::string m_value;
  std::vector<std::string> m_keys;
};

// When the requests in flight were sent.
class SendTimes {
 public:
  void Sent(uint64_t asyn_id) { m_sent_at[asyn_id % m_sent_at.size()] = NowNs(); }
  void Answered(uint64_t asyn_id, Figures& figures) const {
    figures.latency_ns.Add(static_cast<uint64_t>(NowNs() - m_sent_at[asyn_id % m_sent_at.size()]));
  }

 private:
  std::vector<int64_t> m_sent_at = std::vector<int64_t>(kKeys * 2);  // more than are in flight
};

class PollingLoad {
 public:
  PollingLoad(PollingClient& client, const Configuration& configuration)
      : m_client(client), m_traffic(configuration) {}

  // Keeps `window` requests in flight until `requests` had their outcome.
  void Run(uint64_t requests, uint64_t window, Figures& figures) {
    uint64_t sent = 0;
    uint64_t done = 0;
    while (done < requests) {
      while (sent < requests && sent - done < window) {
        done += SendOne(sent, figures) ? 0 : 1;
        ++sent;
      }
      int ret = m_client.Receive(m_response, 1000);
      while (ret == 1) {
        TakeOutcome(figures);
        ++done;
        ret = sent < requests && sent - done > window / 2 ? m_client.Receive(m_response, 0) : 0;
      }
    }
  }

 private:
  bool SendOne(uint64_t number, Figures& figures) {
    m_traffic.Build(number, m_request);
    if (m_client.Send(m_request) != 0) {
      ++figures.errors;
      return false;
    }
    m_times.Sent(m_request.GetAsynID());
    return true;
  }

  void TakeOutcome(Figures& figures) {
    if (m_response.GetResult() != 0) {
      ++figures.errors;
      return;
    }
    m_times.Answered(m_response.GetAsynID(), figures);
  }

  PollingClient& m_client;
  const Traffic m_traffic;
  SendTimes m_times;
  ClientRequest m_request;
  ClientResponse m_response;
};

// Sends from the calling thread; the callbacks, on the client's thread, count.
class CallbackLoad {
 public:
  CallbackLoad(Client& client, const Configuration& configuration)
      : m_client(client), m_traffic(configuration) {}

  void Run(uint64_t requests, uint64_t window, Figures& figures) {
    m_figures = &figures;
    m_window = window;
    for (uint64_t sent = 0; sent < requests; ++sent) {
      if (m_in_flight.load() >= m_window) {
        WaitUntilAtMost(m_window / 2);
      }
      m_traffic.Build(sent, m_request);
      m_in_flight.fetch_add(1);
      const int64_t sent_at = NowNs();
      const int ret = m_client.Send(
          m_request, [this, sent_at](ClientResponse& response) { OnOutcome(response, sent_at); });
      if (ret != 0) {
        m_in_flight.fetch_sub(1);
        m_refused += 1;
      }
    }
    WaitUntilAtMost(0);
    figures.errors += std::exchange(m_refused, 0);
  }

 private:
  void OnOutcome(const ClientResponse& response, int64_t sent_at) {
    if (response.GetResult() == 0) {
      m_figures->latency_ns.Add(static_cast<uint64_t>(NowNs() - sent_at));
    } else {
      ++m_figures->errors;
    }
    if (m_in_flight.fetch_sub(1) - 1 == m_waits_for.load()) {
      const std::lock_guard<std::mutex> lock(m_mutex);
      m_changed.notify_one();
    }
  }

  void WaitUntilAtMost(uint64_t in_flight) {
    m_waits_for = in_flight;
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait(lock, [this, in_flight] { return m_in_flight.load() <= in_flight; });
    m_waits_for = UINT64_MAX;
  }

  Client& m_client;
  const Traffic m_traffic;
  ClientRequest m_request;
  Figures* m_figures = nullptr;  // of the callbacks, until none is in flight
  uint64_t m_window = 0;
  uint64_t m_refused = 0;
  std::atomic<uint64_t> m_in_flight{0};
  std::atomic<uint64_t> m_waits_for{UINT64_MAX};
  std::mutex m_mutex;
  std::condition_variable m_changed;
};

// What both kinds of load are measured with. A tenth more comes before, to warm up.
template <typename Load, typename AnyClient>
void Measure(Load& load, const AnyClient& client, const Configuration& configuration,
             Figures& figures) {
  Figures warm_up;
  load.Run(configuration.requests / 10, configuration.window, warm_up);
  const uint64_t calls_before = client.SystemCalls();
  const Meter meter;
  load.Run(configuration.requests, configuration.window, figures);
  meter.Stop(figures);
  figures.system_calls = client.SystemCalls() - calls_before;
}

template <typename AnyClient>
void CallInTurn(AnyClient& client, const Traffic& traffic, uint64_t calls, Figures& figures) {
  ClientRequest request;
  ClientResponse response;
  for (uint64_t i = 0; i < calls; ++i) {
    traffic.Build(i, request);
    const int64_t sent_at = NowNs();
    if (client.Call(request, response) == 0 && response.GetResult() == 0) {
      figures.latency_ns.Add(static_cast<uint64_t>(NowNs() - sent_at));
    } else {
      ++figures.errors;
    }
  }
}

// clients: one of each caller, the same one or each its own.
template <typename AnyClient>
void CallTogether(const std::vector<AnyClient*>& clients, const Configuration& configuration,
                  Figures& figures) {
  const Traffic traffic(configuration);
  std::vector<Figures> parts(clients.size());
  const Meter meter;
  std::vector<std::thread> callers;
  for (size_t i = 0; i < clients.size(); ++i) {
    callers.emplace_back([&clients, &traffic, &configuration, &parts, i] {
      CallInTurn(*clients[i], traffic, configuration.requests / clients.size(), parts[i]);
    });
  }
  for (std::thread& caller : callers) {
    caller.join();
  }
  meter.Stop(figures);
  for (const Figures& part : parts) {
    figures.errors += part.errors;
    figures.latency_ns.Merge(part.latency_ns);
  }
}

template <typename AnyClient>
bool BeginSeveral(const std::vector<std::string>& urls, size_t count,
                  std::vector<std::unique_ptr<AnyClient>>& clients) {
  for (size_t i = 0; i < count; ++i) {
    clients.push_back(std::make_unique<AnyClient>(OptionsFor(urls)));
    if (!Begin(*clients.back())) {
      return false;
    }
  }
  return true;
}

double ResidentKib() {
  long pages = 0;
  FILE* const file = std::fopen("/proc/self/statm", "r");
  if (file == nullptr || std::fscanf(file, "%*d %ld", &pages) != 1) {
    pages = 0;
  }
  if (file != nullptr) {
    std::fclose(file);
  }
  return static_cast<double>(pages) * static_cast<double>(sysconf(_SC_PAGESIZE)) / 1024.0;
}

// Lets time pass. A Client needs nobody for it.
void PassTime(std::vector<std::unique_ptr<Client>>& /*clients*/, int64_t until_ns) {
  for (int64_t left_ns = 0; (left_ns = until_ns - NowNs()) > 0;) {
    poll(nullptr, 0, static_cast<int>(left_ns / 1000000 + 1));
  }
}

// Sleeps until one of them has something to do, by the clock or on its sockets.
void PassTime(std::vector<std::unique_ptr<PollingClient>>& clients, int64_t until_ns) {
  std::vector<pollfd> descriptors;
  for (const auto& client : clients) {
    descriptors.push_back({client->Fd(), POLLIN, 0});
  }
  for (int64_t left_ns = 0; (left_ns = until_ns - NowNs()) > 0;) {
    int64_t wait_ms = left_ns / 1000000 + 1;
    for (const auto& client : clients) {
      wait_ms = std::min(wait_ms, client->NextDueMs());
    }
    poll(descriptors.data(), descriptors.size(), static_cast<int>(wait_ms));
    for (size_t i = 0; i < clients.size(); ++i) {
      if (descriptors[i].revents != 0 || clients[i]->NextDueMs() == 0) {
        ClientResponse response;
        clients[i]->Receive(response, 0);
      }
    }
  }
}

template <typename AnyClient>
bool MeasureIdleOf(const std::vector<std::string>& urls, int seconds, IdleFigures& figures) {
  constexpr int64_t kSecondNs = 1000000000;
  std::vector<std::unique_ptr<AnyClient>> clients;
  const double resident_before = ResidentKib();
  if (!BeginSeveral(urls, size_t{kIdleClients}, clients)) {
    return false;
  }
  PassTime(clients, NowNs() + kSecondNs);  // what follows the start
  const Meter meter;
  PassTime(clients, NowNs() + seconds * kSecondNs);
  Figures passed;
  meter.Stop(passed);
  figures.wake_ups_a_second =
      static_cast<double>(passed.voluntary_switches) / passed.seconds / kIdleClients;
  figures.resident_kib = (ResidentKib() - resident_before) / kIdleClients;
  return true;
}

}  // namespace

bool MeasureOwn(const std::vector<std::string>& /*urls*/, const Configuration& configuration,
                Figures& figures) {
  const Traffic traffic(configuration);
  SendTimes times;
  ClientRequest request;
  const Meter meter;
  for (uint64_t i = 0; i < configuration.requests; i += configuration.window) {
    const uint64_t end = std::min(i + configuration.window, configuration.requests);
    for (uint64_t number = i; number < end; ++number) {
      traffic.Build(number, request);
      times.Sent(number);
    }
    for (uint64_t number = i; number < end; ++number) {
      times.Answered(number, figures);
    }
  }
  meter.Stop(figures);
  return true;
}

bool MeasurePolling(const std::vector<std::string>& urls, const Configuration& configuration,
                    Figures& figures) {
  PollingClient client(OptionsFor(urls));
  if (!Begin(client)) {
    return false;
  }
  PollingLoad load(client, configuration);
  Measure(load, client, configuration, figures);
  return true;
}

bool MeasureClient(const std::vector<std::string>& urls, const Configuration& configuration,
                   Figures& figures) {
  Client client(OptionsFor(urls));
  if (!Begin(client)) {
    return false;
  }
  CallbackLoad load(client, configuration);
  Measure(load, client, configuration, figures);
  client.Stop(1000);  // before the load, which its callbacks use
  return true;
}

bool MeasureCalls(const std::vector<std::string>& urls, const Configuration& configuration,
                  Figures& figures) {
  Client client(OptionsFor(urls));
  if (!Begin(client)) {
    return false;
  }
  const uint64_t calls_before = client.SystemCalls();
  CallTogether(std::vector<Client*>(kCallers, &client), configuration, figures);
  figures.system_calls = client.SystemCalls() - calls_before;
  return true;
}

bool MeasurePollingCalls(const std::vector<std::string>& urls, const Configuration& configuration,
                         Figures& figures) {
  std::vector<std::unique_ptr<PollingClient>> owned;
  if (!BeginSeveral(urls, kCallers, owned)) {
    return false;
  }
  std::vector<PollingClient*> clients;
  uint64_t calls_before = 0;
  for (const auto& client : owned) {
    clients.push_back(client.get());
    calls_before += client->SystemCalls();
  }
  CallTogether(clients, configuration, figures);
  for (const auto& client : owned) {
    figures.system_calls += client->SystemCalls();
  }
  figures.system_calls -= calls_before;
  return true;
}

bool MeasureIdle(const std::vector<std::string>& urls, bool with_threads, int seconds,
                 IdleFigures& figures) {
  return with_threads ? MeasureIdleOf<Client>(urls, seconds, figures)
                      : MeasureIdleOf<PollingClient>(urls, seconds, figures);
}

}  // namespace ostrand_bench
