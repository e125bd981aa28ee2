#include "fleet/fleet.h"

#include <utility>

#include "fleet/fleet_impl.h"

namespace OstrandFleet {
namespace {

// Has `work` done on the loop and answers what it answers.
template <typename Work>
auto Ask(FleetLoop& loop, const Work& work) {
  decltype(work()) answer{};
  loop.Run([&] { answer = work(); });
  return answer;
}

}  // namespace

Fleet::Fleet(FleetOptions options) : m_impl(std::make_unique<Impl>(std::move(options))) {}

Fleet::~Fleet() { Stop(); }

int Fleet::Start() {
  if (Ask(m_impl->loop(), [this] { return m_impl->StartAll(); }) == 0 &&
      m_impl->loop().Start() == 0) {
    return 0;
  }
  Stop();
  return -1;
}

void Fleet::Stop() {
  m_impl->loop().Run([this] { m_impl->StopAll(); });
  m_impl->loop().Stop();
}

std::string Fleet::Error() {
  return Ask(m_impl->loop(), [this] { return m_impl->error(); });
}

std::string Fleet::DirectoryUrl() {
  return Ask(m_impl->loop(), [this] { return m_impl->directory().Url(); });
}

std::vector<std::string> Fleet::ProxyUrls() {
  return Ask(m_impl->loop(), [this] {
    std::vector<std::string> urls;
    for (const auto& proxy : m_impl->proxies()) {
      urls.push_back(proxy->Url());
    }
    return urls;
  });
}

std::string Fleet::ProxyUrl(size_t proxy) {
  return Ask(m_impl->loop(), [this, proxy] {
    return m_impl->proxy(proxy) != nullptr ? m_impl->proxy(proxy)->Url() : std::string();
  });
}

size_t Fleet::ProxyCount() {
  return Ask(m_impl->loop(), [this] { return m_impl->proxies().size(); });
}

int Fleet::AddProxy() {
  return Ask(m_impl->loop(), [this] { return m_impl->AddProxy(); });
}

void Fleet::SetFaults(size_t proxy, const ProxyFaults& faults) {
  OnProxy(proxy, [&faults](FleetProxy& one) { one.SetFaults(faults); });
}

ProxyFaults Fleet::Faults(size_t proxy) {
  ProxyFaults faults;
  OnProxy(proxy, [&faults](FleetProxy& one) { faults = one.faults(); });
  return faults;
}

void Fleet::CloseConnections(size_t proxy, CloseKind kind) {
  OnProxy(proxy, [kind](FleetProxy& one) { one.CloseConnections(kind); });
}

void Fleet::CloseInsideFrame(size_t proxy) {
  OnProxy(proxy, [](FleetProxy& one) { one.CloseInsideFrame(); });
}

void Fleet::SendBytes(size_t proxy, std::string_view bytes) {
  OnProxy(proxy, [bytes](FleetProxy& one) { one.SendBytes(bytes); });
}

void Fleet::AskToStop(size_t proxy) {
  OnProxy(proxy, [](FleetProxy& one) { one.AskToStop(); });
}

void Fleet::Kill(size_t proxy) {
  OnProxy(proxy, [](FleetProxy& one) { one.Kill(); });
}

int Fleet::Restart(size_t proxy) {
  return Ask(m_impl->loop(), [this, proxy] { return m_impl->RestartProxy(proxy); });
}

ProxyState Fleet::State(size_t proxy) {
  ProxyState state = ProxyState::kDown;
  OnProxy(proxy, [&state](FleetProxy& one) { state = one.state(); });
  return state;
}

ProxyCounters Fleet::Counters(size_t proxy) {
  ProxyCounters counters;
  OnProxy(proxy, [&counters](FleetProxy& one) { counters = one.Counters(); });
  return counters;
}

void Fleet::SetRoute(int32_t zone, const std::vector<std::string>& urls) {
  m_impl->loop().Run([&] { m_impl->directory().SetRoute(zone, m_impl->RouteOf(urls)); });
}

void Fleet::SetRoute(int32_t zone, const Route& route) {
  m_impl->loop().Run([&] { m_impl->directory().SetRoute(zone, route); });
}

int Fleet::SetDirectoryFault(DirectoryFault fault, int64_t value) {
  return Ask(m_impl->loop(),
             [this, fault, value] { return m_impl->SetDirectoryFault(fault, value); });
}

void Fleet::SetDirectoryEdit(DirectoryEdit edit) {
  m_impl->loop().Run([&] { m_impl->directory().SetEdit(std::move(edit)); });
}

void Fleet::SetConf(const ostrand_protocol_dir::tagConfData& conf) {
  m_impl->loop().Run([&] { m_impl->directory().SetConf(conf); });
}

DirectoryCounters Fleet::CountersOfDirectory() {
  return Ask(m_impl->loop(), [this] { return m_impl->directory().Counters(); });
}

bool Fleet::AddTable(const TableSetup& table) {
  return Ask(m_impl->loop(), [&] { return m_impl->store().AddTable(table); });
}

bool Fleet::SetMetadata(int32_t zone, const std::string& table, const MetadataAnswer& answer) {
  return Ask(m_impl->loop(), [&] {
    Table* const found = m_impl->store().Find(zone, table);
    if (found != nullptr) {
      found->SetMetadata(answer);
    }
    return found != nullptr;
  });
}

bool Fleet::FindRecord(int32_t zone, const std::string& table, const FieldList& key,
                       StoredRecord& record) {
  return Ask(m_impl->loop(), [&] {
    Table* const found = m_impl->store().Find(zone, table);
    Row* row = nullptr;
    if (found == nullptr || found->Find(RecordKey{key}, row) != kDone) {
      return false;
    }
    record = *row;
    return true;
  });
}

size_t Fleet::CountRecords(int32_t zone, const std::string& table) {
  return Ask(m_impl->loop(), [&] {
    Table* const found = m_impl->store().Find(zone, table);
    return found == nullptr ? 0 : found->CountRows();
  });
}

std::vector<RecordedRequest> Fleet::Requests() {
  return Ask(m_impl->loop(), [this] { return m_impl->log().Requests(); });
}

void Fleet::ClearRequests() {
  m_impl->loop().Run([this] { m_impl->log().Clear(); });
}

void Fleet::RecordRequests(bool is_on) {
  m_impl->loop().Run([this, is_on] { m_impl->log().Switch(is_on); });
}

bool Fleet::WaitFor(int64_t timeout_ms, const std::function<bool()>& condition) {
  return m_impl->loop().WaitFor(timeout_ms, condition);
}

void Fleet::OnProxy(size_t proxy, const std::function<void(FleetProxy&)>& work) {
  m_impl->loop().Run([&] {
    if (FleetProxy* const found = m_impl->proxy(proxy)) {
      work(*found);
    }
  });
}

}  // namespace OstrandFleet
