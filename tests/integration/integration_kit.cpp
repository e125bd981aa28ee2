#include "integration/integration_kit.h"

#include <dirent.h>

#include <algorithm>
#include <sstream>
#include <thread>
#include <utility>
#include <vector>

#include "client/error_text.h"
#include "common/clock.h"
#include "protocol/codec.h"
#include "protocol/ostrand_protocol_cs.h"

namespace OstrandTests {
namespace {

using namespace ostrand_protocol_cs;  // NOLINT: commands and records
using namespace OstrandService;       // NOLINT: the library under test
using OstrandCommon::GetMonotonicMilliseconds;

}  // namespace

std::string Frame(uint32_t cmd, const std::function<void(OStrandPkg&)>& edit) {
  const auto pkg = NewOStrandPkg();
  pkg->stHead.dwCmd = cmd;
  pkg->stHead.stRouterInfo.iAppID = kAppId;
  pkg->stHead.stRouterInfo.iZoneID = kZone;
  pkg->stBody.construct(cmd);
  if (edit) {
    edit(*pkg);
  }
  std::string frame(64 * 1024, '\0');
  size_t len = frame.size();
  EXPECT_EQ(PackWholeCsPkgMaybeCompress(&frame[0], len, nullptr, 0, *pkg,
                                        OSTRAND_PKG_CURRENT_VERSION, nullptr),
            0);
  frame.resize(len);
  return frame;
}

std::string Repeat(const std::string& frame, size_t times) {
  std::string bytes;
  bytes.reserve(frame.size() * times);
  for (size_t i = 0; i < times; ++i) {
    bytes += frame;
  }
  return bytes;
}

size_t CountEntries(const char* folder) {
  DIR* const dir = opendir(folder);
  if (dir == nullptr) {
    return 0;
  }
  size_t count = 0;
  while (readdir(dir) != nullptr) {
    ++count;
  }
  closedir(dir);
  return count;
}

void RuntimeTest::SetUp() {
  m_logger.SetThreshold(OstrandCommon::OSTRAND_LOG_LEVEL_WARN);
  m_logger.OnLine([this](const OstrandFakes::LogLine& line) {
    if (line.level <= OstrandCommon::OSTRAND_LOG_LEVEL_WARN) {
      m_logged.push_back(line.text);
    }
  });
  std::thread([] {}).join();  // with the first one a sanitizer may start one of its own
  m_descriptors = CountEntries("/proc/self/fd");
  m_threads = CountEntries("/proc/self/task");
}

void RuntimeTest::TearDown() {
  RemoveFaults();
  if (m_work != nullptr) {
    EXPECT_TRUE(m_work->Drain());
    m_work->ExpectSound();
  }
  if (m_client != nullptr) {
    if (m_serves_at_end) {
      ExpectUsable();
    }
    m_client->Stop(0);
    const ClientCounters counters = m_client->Counters();
    EXPECT_EQ(counters.accepted, counters.outcomes + counters.cancelled);
    EXPECT_EQ(m_client->InFlight(), 0u);
  }
  m_work.reset();
  m_client.reset();
  m_fleet.reset();
  m_process.reset();
  EXPECT_EQ(CountEntries("/proc/self/fd"), m_descriptors);
  // A thread that was joined may be a moment from being gone.
  const int64_t deadline_ms = GetMonotonicMilliseconds() + kPatienceMs;
  while (CountEntries("/proc/self/task") > m_threads && GetMonotonicMilliseconds() < deadline_ms) {
  }
  EXPECT_LE(CountEntries("/proc/self/task"), m_threads);
}

void RuntimeTest::StartFleet(size_t proxies) {
  OstrandFleet::FleetOptions options;
  options.proxies = proxies;
  StartFleet(std::move(options));
}

void RuntimeTest::StartFleet(OstrandFleet::FleetOptions options) {
  options.create_unknown_tables = true;
  m_fleet = std::make_unique<OstrandFleet::Fleet>(std::move(options));
  ASSERT_EQ(m_fleet->Start(), 0) << m_fleet->Error();
}

void RuntimeTest::StartFleetProcess(size_t proxies, const std::string& more_options) {
  m_process = std::make_unique<FleetProcess>(proxies, more_options);
}

ClientOptions RuntimeTest::Options() {
  ClientOptions options;
  options.app_id = kAppId;
  options.zones = {kZone};
  options.directory_urls = {m_fleet != nullptr ? m_fleet->DirectoryUrl()
                                               : m_process->DirectoryUrl()};
  options.tables = {{kTable, kZone, nullptr}};
  options.signature = "a signature";
  options.logger = &m_logger;
  options.default_timeout_ms = 60000;
  options.perf_sample_percent = 20;
  options.directory_refresh_ms = 20;
  return options;
}

void RuntimeTest::StartClient(const ClientOptions& options, Workload::Store store) {
  StartClientUnready(options);
  ASSERT_EQ(m_client->WaitReady(static_cast<int>(kPatienceMs)), 0) << m_client->StatusText();
  m_work = std::make_unique<Workload>(*m_client, store);
}

void RuntimeTest::StartClientUnready(const ClientOptions& options) {
  m_client = std::make_unique<PollingClient>(
      options, m_system != nullptr ? *m_system : OSTRNET::System::Kernel());
  ASSERT_EQ(m_client->Start(), 0);
}

void RuntimeTest::SetFaults(size_t proxy,
                            const std::function<void(OstrandFleet::ProxyFaults&)>& edit) {
  OstrandFleet::ProxyFaults faults;
  edit(faults);
  m_fleet->SetFaults(proxy, faults);
}

void RuntimeTest::SetFaultsOfAll(const std::function<void(OstrandFleet::ProxyFaults&)>& edit) {
  for (size_t i = 0; i < m_fleet->ProxyCount(); ++i) {
    SetFaults(i, edit);
  }
}

void RuntimeTest::RemoveFaults() {
  if (m_fleet != nullptr) {
    SetFaultsOfAll([](OstrandFleet::ProxyFaults&) {});
    m_fleet->SetDirectoryEdit(nullptr);
    EXPECT_EQ(m_fleet->SetDirectoryFault(OstrandFleet::DirectoryFault::kNone), 0);
  }
}

int32_t RuntimeTest::Do(uint32_t cmd, const std::string& key, const std::string& value) {
  m_request.Begin(cmd, kTable).Zone(kZone);
  m_request.Key("id", key);
  if (!value.empty()) {
    m_request.Set("name", value);
  }
  m_request.SetTimeout(m_call_timeout_ms);
  const int ret = m_client->Call(m_request, m_response);
  return ret != 0 ? ret : m_response.GetResult();
}

std::string RuntimeTest::Value() const {
  FieldView value;
  return m_response.GetValue("name", value) ? std::string(value.value) : std::string();
}

bool RuntimeTest::UpdateUntil(const std::function<bool()>& condition, int64_t limit_ms) {
  const int64_t deadline_ms = GetMonotonicMilliseconds() + limit_ms;
  while (!condition()) {
    if (GetMonotonicMilliseconds() >= deadline_ms) {
      return false;
    }
    const int ret = m_client->Receive(m_response, 2);
    EXPECT_GE(ret, 0);
    if (ret == 1 && m_work != nullptr) {
      m_work->Book(m_response);
    }
  }
  return true;
}

void RuntimeTest::ExpectUsable() {
  const int64_t deadline_ms = GetMonotonicMilliseconds() + kPatienceMs;
  int32_t ret = -1;
  m_call_timeout_ms = 500;
  do {
    ret = Do(OSTRAND_API_REPLACE_REQ, "at the end", "well");
    if (ret == 0) {
      ret = Do(OSTRAND_API_GET_REQ, "at the end");
    } else {
      m_client->Receive(m_response, 2);
    }
  } while (ret != 0 && GetMonotonicMilliseconds() < deadline_ms);
  EXPECT_EQ(ret, 0) << ErrorText(ret) << "\n" << m_client->StatusText().substr(0, 1000);
  EXPECT_EQ(Value(), "well");
}

void RuntimeTest::Pause(int64_t ms) {
  m_fleet->WaitFor(ms, [] { return false; });
}

bool RuntimeTest::IsServing(const std::string& url) {
  const std::string status = m_client->StatusText();
  const std::string heading = "\tauth_success_proxy:\n";
  std::istringstream lines(status.substr(status.find(heading) + heading.size()));
  for (std::string line; std::getline(lines, line) && line.rfind("\t\t", 0) == 0;) {
    if (line.substr(2) == url) {
      return true;
    }
  }
  return false;
}

bool RuntimeTest::IsLogged(const std::string& text) const {
  return std::any_of(m_logged.begin(), m_logged.end(), [&text](const std::string& line) {
    return line.find(text) != std::string::npos;
  });
}

}  // namespace OstrandTests
