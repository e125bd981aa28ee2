#include "client_threads/threads_kit.h"

#include <dirent.h>

#include "client/error_text.h"

namespace OstrandTests {

using namespace OstrandService;  // NOLINT: the library under test

Gate::~Gate() {
  std::unique_lock<std::mutex> lock(m_mutex);
  m_condition.wait(lock, [this] { return m_passing == 0; });
}

void Gate::Open() {
  const std::lock_guard<std::mutex> lock(m_mutex);
  m_is_open = true;
  m_condition.notify_all();
}

void Gate::Pass() {
  std::unique_lock<std::mutex> lock(m_mutex);
  ++m_passing;
  m_condition.wait(lock, [this] { return m_is_open; });
  --m_passing;
  m_condition.notify_all();
}

void Tally::Add() {
  const std::lock_guard<std::mutex> lock(m_mutex);
  ++m_count;
  m_condition.notify_all();
}

void Tally::WaitFor(int number) {
  std::unique_lock<std::mutex> lock(m_mutex);
  m_condition.wait(lock, [this, number] { return m_count >= number; });
}

int Tally::Count() {
  const std::lock_guard<std::mutex> lock(m_mutex);
  return m_count;
}

void ClientThreads::TearDown() {
  if (m_client != nullptr) {
    m_client->Stop(0);
    EXPECT_EQ(m_client->InFlight(), 0u);
    const ClientCounters counters = m_client->Counters();
    EXPECT_EQ(counters.accepted, counters.outcomes + counters.cancelled);
  }
  m_client.reset();
  m_fleet.reset();
}

ClientOptions ClientThreads::Options() {
  ClientOptions options;
  options.app_id = 7;
  options.zones = {kZone};
  options.directory_urls = {m_fleet->DirectoryUrl()};
  options.tables = {{kTable, kZone, nullptr}, {kListTable, kZone, nullptr}};
  options.signature = "a signature";
  options.logger = &m_logger;
  options.default_timeout_ms = kPatienceMs;
  options.directory_refresh_ms = 20;
  return options;
}

void ClientThreads::StartFleet(size_t proxies, size_t records_per_package) {
  m_logger.SetThreshold(OstrandCommon::OSTRAND_LOG_LEVEL_WARN);
  OstrandFleet::FleetOptions options;
  options.proxies = proxies;
  options.create_unknown_tables = true;
  options.records_per_package = records_per_package;
  OstrandFleet::TableSetup lists;
  lists.zone = kZone;
  lists.schema.name = kListTable;
  lists.kind = OstrandFleet::TableKind::kLists;
  options.tables = {lists};
  m_fleet = std::make_unique<OstrandFleet::Fleet>(options);
  ASSERT_EQ(m_fleet->Start(), 0) << m_fleet->Error();
}

void ClientThreads::StartClient(const ClientOptions& options) {
  m_client = std::make_unique<Client>(options);
  ASSERT_EQ(m_client->Start(), 0);
  ASSERT_EQ(m_client->WaitReady(kPatienceMs), 0) << m_client->StatusText();
}

void ClientThreads::SetFaults(const std::function<void(OstrandFleet::ProxyFaults&)>& edit) {
  OstrandFleet::ProxyFaults faults;
  edit(faults);
  for (size_t i = 0; i < m_fleet->ProxyCount(); ++i) {
    m_fleet->SetFaults(i, faults);
  }
}

void ClientThreads::KeepAnswersBack() {
  SetFaults([](OstrandFleet::ProxyFaults& faults) { faults.drop_every = 1; });
}

void ClientThreads::WaitForRequests(uint64_t count) {
  ASSERT_TRUE(m_fleet->WaitFor(kPatienceMs, [this, count] {
    uint64_t came = 0;
    for (size_t i = 0; i < m_fleet->ProxyCount(); ++i) {
      came += m_fleet->Counters(i).table_requests;
    }
    return came >= count;
  }));
}

void ClientThreads::WriteList(int elements, size_t len) {
  for (int i = 0; i < elements; ++i) {
    ClientRequest request = ListInsert(kListTable);
    request.Key("id", 1).Element().Set("name", std::string(len, 'x'));
    ASSERT_EQ(m_client->Call(request, m_response), 0) << request.FaultText();
    ASSERT_EQ(m_response.GetResult(), 0) << ErrorText(m_response.GetResult());
  }
}

size_t CountEntries(const char* folder) {
  size_t count = 0;
  DIR* const dir = opendir(folder);
  while (dir != nullptr && readdir(dir) != nullptr) {
    ++count;
  }
  if (dir != nullptr) {
    closedir(dir);
  }
  return count;
}

ClientRequest Write(int id, const std::string& name) {
  return Replace(kTable).Key("id", id).Set("name", name);
}

ClientRequest Read(int id) { return Get(kTable).Key("id", id); }

ClientRequest ReadList() { return ListGetAll(kListTable).Key("id", 1); }

}  // namespace OstrandTests
