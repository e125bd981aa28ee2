#include "cli/demo.h"

#include <unistd.h>

#include <cstdio>
#include <utility>

#include "cli/demo_data.h"
#include "cli/demo_script.h"
#include "cli/interrupt.h"
#include "cli/output.h"
#include "cli/record_request.h"
#include "client/stderr_logger.h"
#include "common/clock.h"

namespace OstrandCli {
namespace {

using OstrandCommon::GetMonotonicMilliseconds;
using OstrandFleet::ProxyState;

constexpr int kReadyMs = 10000;
constexpr int32_t kTimeoutMs = 1000;       // of requests: those to the killed proxy wait so long
constexpr int64_t kDirectoryMs = 100;      // how often the client looks for a new route
constexpr int64_t kScriptMs = 20;          // how often the script looks at the fleet
constexpr size_t kSpoilingProxy = 2;       // stays until the end
constexpr int64_t kWrongAnswerEvery = 20;  // of its answers

OstrandFleet::FleetOptions OptionsOfFleet(size_t proxies, const VexMeta& schema) {
  OstrandFleet::TableSetup table;
  table.zone = kDemoZone;
  table.schema = schema;
  OstrandFleet::FleetOptions options;
  options.proxies = proxies;
  options.tables = {table};
  options.requests.is_on = false;
  return options;
}

OstrandCommon::Logger* QuietLogger() {
  static OstrandService::StderrLogger logger(OstrandCommon::OSTRAND_LOG_LEVEL_FATAL);
  return &logger;
}

const char* NameOf(ProxyState state) {
  switch (state) {
    case ProxyState::kDown: return "killed";
    case ProxyState::kRunning: return "runs";
    case ProxyState::kStopping: return "stopping";
    case ProxyState::kStopped: return "stopped";
  }
  return "";
}

}  // namespace

Demo::Demo(const DemoOptions& options, const std::vector<PackageRecord>& records)
    : m_options(options),
      m_records(records),
      m_deadline_ms(GetMonotonicMilliseconds() + options.patience_ms),
      m_schema(DemoSchema()),
      m_fleet(OptionsOfFleet(kProxies, m_schema)),
      m_load(records, options.seed) {}

Demo::~Demo() = default;

DemoResult Demo::Run() {
  m_result = DemoResult();
  m_result.records = m_records.size();
  const bool went_through = StartFleet() && StartClient() && WaitForAllProxies() &&
                            GoThroughAll("load", DemoLoad::Phase::kWriteAll) &&
                            GoThroughAll("read back", DemoLoad::Phase::kReadAll) && RunMixed() &&
                            GoThroughAll("read back again", DemoLoad::Phase::kReadAll);
  m_result.read_back = went_through ? m_load.Done() : 0;
  Judge();
  DescribeProxies();
  return std::move(m_result);
}

bool Demo::StartFleet() {
  if (m_fleet.Start() != 0) {
    return Fail("the fleet does not start: " + m_fleet.Error());
  }
  m_first_urls = m_fleet.ProxyUrls();
  if (m_options.inject_wrong_answers) {
    OstrandFleet::ProxyFaults faults;
    faults.answer = OstrandFleet::AnswerFault::kWrongValue;
    faults.answer_every = kWrongAnswerEvery;
    m_fleet.SetFaults(kSpoilingProxy, faults);
  }
  return true;
}

bool Demo::StartClient() {
  OstrandService::ClientOptions options;
  options.app_id = 1;
  options.zones = {kDemoZone};
  options.directory_urls = {m_fleet.DirectoryUrl()};
  options.tables = {{kDemoTable, kDemoZone, &m_schema}};
  options.signature = "demo";
  options.logger = m_options.verbose ? nullptr : QuietLogger();
  options.default_timeout_ms = kTimeoutMs;
  options.directory_refresh_ms = kDirectoryMs;
  m_client = std::make_unique<OstrandService::PollingClient>(options);
  int code = m_client->Start();
  if (code == 0) {
    code = m_client->WaitReady(kReadyMs);
  }
  return code == 0 || Fail("the client does not start: " + CodeWithText(code));
}

// Until then the proxies' shares are not those of the ring.
bool Demo::WaitForAllProxies() {
  const auto all_signed_up = [this] {
    for (size_t i = 0; i < kProxies; ++i) {
      if (m_fleet.Counters(i).signed_up == 0) {
        return false;
      }
    }
    return true;
  };
  while (!m_fleet.WaitFor(20, all_signed_up)) {
    const int code = m_client->Update();
    if (code != 0 || !GoesOn()) {
      return Fail("not all proxies took the client's sign-up");
    }
  }
  return m_client->Update() == 0;
}

bool Demo::GoThroughAll(const std::string& name, DemoLoad::Phase phase) {
  m_load.Begin(phase);
  ProgressLine progress(name, m_records.size());
  LoadLimits limits;
  limits.go_on = [&] {
    progress.Update(m_load.Done());
    return GoesOn();
  };
  const bool good = RunStage(name, limits);
  progress.Finish(m_load.Done());
  return good && (m_load.Done() == m_records.size() ||
                  Fail(std::to_string(m_records.size() - m_load.Done()) +
                       " records had no answer when the demo ended"));
}

bool Demo::RunMixed() {
  m_load.Begin(DemoLoad::Phase::kMixed);
  DemoScript script(m_fleet, m_options.mixed_ms);
  ProgressLine progress("mixed load", 0, "requests", stderr, isatty(STDERR_FILENO) == 1);
  int64_t look_ms = 0;
  LoadLimits limits;
  limits.go_on = [&] {
    progress.Update(m_load.Done());
    const int64_t now_ms = GetMonotonicMilliseconds();
    if (now_ms < look_ms) {
      return true;
    }
    look_ms = now_ms + kScriptMs;
    const bool is_over = script.Update(now_ms);
    for (const std::string& remark : script.TakeRemarks()) {
      PrintRemark(remark);
    }
    return !is_over && GoesOn();
  };
  const bool good = RunStage("mixed load", limits);
  progress.Finish(m_load.Done());
  if (!script.Fault().empty()) {
    return Fail(script.Fault());
  }
  return good && (script.IsComplete() || Fail("the demo ended before the fleet had changed"));
}

// The load of the phase, then what is left of it to repeat.
bool Demo::RunStage(const std::string& name, LoadLimits limits) {
  limits.window = m_options.window;
  LoadGenerator generator(*m_client);
  int code = generator.Run(m_load, limits);
  if (code == 0) {
    m_load.Settle();
    limits.go_on = [this] { return GoesOn(); };
    code = generator.Run(m_load, limits);
  }
  m_result.stages.push_back({name, generator.Figures()});
  return code == 0 || Fail("the client refuses to go on: " + CodeWithText(code));
}

bool Demo::GoesOn() { return !Interrupted() && GetMonotonicMilliseconds() < m_deadline_ms; }

bool Demo::Fail(const std::string& sentence) {
  m_result.faults.push_back(sentence);
  return false;
}

// All that has to hold for the demo to have succeeded.
void Demo::Judge() {
  m_result.counts = m_load.Counts();
  m_result.all_acknowledged = m_load.AllAcknowledged();
  m_result.dropped = m_client != nullptr ? m_client->Counters().dropped : 0;
  if (Interrupted()) {
    Fail("it was interrupted");
  } else if (!GoesOn()) {
    Fail("it took longer than " + std::to_string(m_options.patience_ms / 1000) + " s");
  }
  if (m_result.counts.wrong != 0) {
    Fail(WithCommas(m_result.counts.wrong) + " answers were wrong");
  }
  if (!m_result.all_acknowledged) {
    Fail("not every record was acknowledged");
  }
  if (m_result.read_back != m_result.records) {
    Fail("only " + WithCommas(m_result.read_back) + " of " + WithCommas(m_result.records) +
         " records were read back at the end");
  }
  for (const DemoStage& stage : m_result.stages) {
    if (!stage.figures.AddUp()) {
      Fail("in the stage '" + stage.name + "' not every request had its one outcome");
    }
  }
}

void Demo::DescribeProxies() {
  if (m_first_urls.empty()) {
    return;
  }
  const std::vector<std::string> urls = m_fleet.ProxyUrls();
  std::vector<std::string> last_route;  // as the directory answers it: without those that stopped
  std::vector<ProxyState> states;
  for (size_t i = 0; i < urls.size(); ++i) {
    states.push_back(m_fleet.State(i));
    if (states[i] != ProxyState::kStopped) {
      last_route.push_back(urls[i]);
    }
    m_result.proxies.push_back({urls[i], "p" + std::to_string(i), NameOf(states[i]), 0, 0});
  }
  const NamedRing first(m_first_urls);
  const NamedRing last(OstrandService::RingView::OrderAfterChange(m_first_urls, last_route));
  std::vector<bool> usable;
  for (const std::string& url : last.Urls()) {
    for (size_t i = 0; i < urls.size(); ++i) {
      if (urls[i] == url) {
        usable.push_back(states[i] == ProxyState::kRunning);
      }
    }
  }
  const auto enter = [this](const NamedRing& ring, const std::vector<double>& shares,
                            double DemoProxy::*share) {
    for (size_t i = 0; i < shares.size(); ++i) {
      for (DemoProxy& proxy : m_result.proxies) {
        proxy.*share += proxy.url == ring.Urls()[i] ? shares[i] : 0;
      }
    }
  };
  enter(first, first.Shares(), &DemoProxy::first_ring_share);
  enter(last, last.SharesOfUsable(usable), &DemoProxy::last_ring_share);
  m_result.rings = Compare(first, last);
}

}  // namespace OstrandCli
