#include "fakes/fake_ostrand_server.h"

#include "fakes/allocation_faults.h"
#include "fakes/fault.h"
#include "protocol/ostrand_protocol_cs.h"

namespace OstrandFakes {

using Lock = std::lock_guard<std::mutex>;
using ostrand_protocol_cs::OStrandPkg;

FakeOstrandServer::FakeOstrandServer(OstrandCommon::Logger* logger, Journal* journal)
    : m_journal(journal), m_net_thread(journal), m_logger(logger), m_buffer(kScratchSize) {}

FakeOstrandServer::~FakeOstrandServer() = default;

void FakeOstrandServer::PkgDeleter::operator()(OStrandPkg* pkg) const { delete pkg; }

OstrandCommon::Logger* FakeOstrandServer::GetLogger() {
  const Lock lock(m_mutex);
  return m_logger;
}

void FakeOstrandServer::NetThreadGetBufPkg(char*& buffer, size_t& size, OStrandPkg*& pkg) {
  const UnwatchedAllocations unwatched;
  OStrandPkg& record = scratch_pkg();
  const Lock lock(m_mutex);
  ++m_scratch_requests;
  buffer = m_has_buffer ? m_buffer.data() : nullptr;
  size = m_has_buffer ? m_buffer.size() : 0;
  pkg = m_has_pkg ? &record : nullptr;
}

const char* FakeOstrandServer::GetApiVersion() {
  const Lock lock(m_mutex);
  return m_api_version;
}

int FakeOstrandServer::GetTableMetaVersion(int zone_id, const char* table_name) {
  const UnwatchedAllocations unwatched;
  const Lock lock(m_mutex);
  m_meta_version_requests.emplace_back(zone_id, table_name != nullptr ? table_name : "(null)");
  if (table_name == nullptr) {
    return m_version_without_table;
  }
  const auto found = m_meta_versions.find({zone_id, table_name});
  return found != m_meta_versions.end() ? found->second : 0;
}

void FakeOstrandServer::SetDirAlarmErrorCode(int code) {
  const UnwatchedAllocations unwatched;
  if (m_journal != nullptr) {
    m_journal->Add("SetDirAlarmErrorCode " + std::to_string(code));
  }
  const Lock lock(m_mutex);
  m_dir_alarm_codes.push_back(code);
}

int FakeOstrandServer::CompareEntryValueField(LPVEXMETA local, LPVEXMETA server) {
  const UnwatchedAllocations unwatched;
  const Lock lock(m_mutex);
  m_comparisons.emplace_back(local, server);
  return m_compares ? vex_compare_value_fields(local, server) : m_compare_result;
}

int FakeOstrandServer::ReportDirHashCircleStat(int zone_id, std::string& line) {
  const UnwatchedAllocations unwatched;
  if (m_journal != nullptr) {
    m_journal->Add("ReportDirHashCircleStat " + line);
  }
  const Lock lock(m_mutex);
  m_reports.emplace_back(zone_id, line);
  return m_report_result;
}

void FakeOstrandServer::SetLogger(OstrandCommon::Logger* logger) {
  const Lock lock(m_mutex);
  m_logger = logger;
}

void FakeOstrandServer::SetScratch(bool has_buffer, bool has_pkg) {
  const Lock lock(m_mutex);
  m_has_buffer = has_buffer;
  m_has_pkg = has_pkg;
}

void FakeOstrandServer::SetScratchSize(size_t size) {
  const Lock lock(m_mutex);
  // A new block of exactly this size: writing behind it is an error that shows.
  m_buffer = std::vector<char>(size);
}

void FakeOstrandServer::SetApiVersion(const char* version) {
  const Lock lock(m_mutex);
  m_api_version = version;
}

void FakeOstrandServer::SetTableMetaVersion(int zone_id, const std::string& table_name,
                                            int version) {
  const Lock lock(m_mutex);
  m_meta_versions[{zone_id, table_name}] = version;
}

void FakeOstrandServer::SetVersionWithoutTable(int version) {
  const Lock lock(m_mutex);
  m_version_without_table = version;
}

void FakeOstrandServer::SetCompareResult(int result) {
  const Lock lock(m_mutex);
  m_compares = false;
  m_compare_result = result;
}

void FakeOstrandServer::SetReportResult(int result) {
  const Lock lock(m_mutex);
  m_report_result = result;
}

void FakeOstrandServer::RegisterTable(int zone_id, const std::string& table_name, LPVEXMETA local) {
  const OstrandCommon::ScopedWriteLock lock(m_register_table_lock);
  m_register_table[zone_id][table_name].local_meta = local;
}

OStrandPkg& FakeOstrandServer::scratch_pkg() {
  const UnwatchedAllocations unwatched;
  const Lock lock(m_mutex);
  if (m_pkg == nullptr) {
    m_pkg.reset(ostrand_protocol_cs::NewOStrandPkg().release());
  }
  if (m_pkg == nullptr) {
    Fault("no memory for a scratch package");
  }
  return *m_pkg;
}

char* FakeOstrandServer::scratch_buffer() {
  const Lock lock(m_mutex);
  return m_buffer.data();
}

int FakeOstrandServer::scratch_requests() const {
  const Lock lock(m_mutex);
  return m_scratch_requests;
}

std::vector<std::pair<int, std::string>> FakeOstrandServer::meta_version_requests() const {
  const Lock lock(m_mutex);
  return m_meta_version_requests;
}

std::vector<int> FakeOstrandServer::dir_alarm_codes() const {
  const Lock lock(m_mutex);
  return m_dir_alarm_codes;
}

std::vector<std::pair<LPVEXMETA, LPVEXMETA>> FakeOstrandServer::comparisons() const {
  const Lock lock(m_mutex);
  return m_comparisons;
}

std::vector<std::pair<int, std::string>> FakeOstrandServer::reports() const {
  const Lock lock(m_mutex);
  return m_reports;
}

}  // namespace OstrandFakes
