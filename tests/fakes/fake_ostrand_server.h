// The service that owns a router, for tests.
//
// Its scratch package is over 10 MiB and is made on the heap when it is first asked for.
// Ownership: the test's; outlives the router. Borrows the logger.
// Threads: any; it locks inside. What it hands out (the scratch pair) is for one thread at a time.
// Journal entries: those of its network thread, "SetDirAlarmErrorCode <code>",
// "ReportDirHashCircleStat <line>".
#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "fakes/fake_net_thread.h"
#include "fakes/journal.h"
#include "service_api/ostrand_server.h"

namespace OstrandFakes {

class FakeOstrandServer : public OstrandService::OstrandServer {
 public:
  static constexpr size_t kScratchSize = 64 * 1024;

  explicit FakeOstrandServer(OstrandCommon::Logger* logger, Journal* journal = nullptr);
  ~FakeOstrandServer() override;

  // What the router calls.
  OstrandCommon::Logger* GetLogger() override;
  void NetThreadGetBufPkg(char*& buffer, size_t& size,
                          ostrand_protocol_cs::OStrandPkg*& pkg) override;
  const char* GetApiVersion() override;
  int GetTableMetaVersion(int zone_id, const char* table_name) override;
  void SetDirAlarmErrorCode(int code) override;
  int CompareEntryValueField(LPVEXMETA local, LPVEXMETA server) override;
  int ReportDirHashCircleStat(int zone_id, std::string& line) override;
  OstrandService::NetThread& GetNetThread() override { return m_net_thread; }

  // The script. Initially: a scratch pair is there; version "1.2.3"; every meta version is 0;
  // reports answer 0; value fields are really compared.
  void SetLogger(OstrandCommon::Logger* logger);
  void SetScratch(bool has_buffer, bool has_pkg);
  void SetScratchSize(size_t size);         // the buffer moves; REQUIRES: nobody uses it
  void SetApiVersion(const char* version);  // may be null; borrowed
  void SetTableMetaVersion(int zone_id, const std::string& table_name, int version);
  void SetVersionWithoutTable(int version);  // the answer to a null table name
  void SetCompareResult(int result);         // answered from now on instead of comparing
  void SetReportResult(int result);
  void RegisterTable(int zone_id, const std::string& table_name, LPVEXMETA local);

  // What happened.
  FakeNetThread& net_thread() { return m_net_thread; }
  ostrand_protocol_cs::OStrandPkg& scratch_pkg();
  char* scratch_buffer();
  int scratch_requests() const;
  // Zone and table name of each call of GetTableMetaVersion; a null name stands as "(null)".
  std::vector<std::pair<int, std::string>> meta_version_requests() const;
  std::vector<int> dir_alarm_codes() const;
  std::vector<std::pair<LPVEXMETA, LPVEXMETA>> comparisons() const;
  std::vector<std::pair<int, std::string>> reports() const;  // zone and line
  int32_t last_error_code() { return auth_fail_code(); }
  std::string last_error_text() { return auth_fail_text(); }

 private:
  struct PkgDeleter {
    void operator()(ostrand_protocol_cs::OStrandPkg* pkg) const;
  };

  Journal* const m_journal;
  FakeNetThread m_net_thread;

  mutable std::mutex m_mutex;  // guards everything below
  OstrandCommon::Logger* m_logger;
  std::vector<char> m_buffer;
  std::unique_ptr<ostrand_protocol_cs::OStrandPkg, PkgDeleter> m_pkg;
  bool m_has_buffer = true;
  bool m_has_pkg = true;
  const char* m_api_version = "1.2.3";
  std::map<std::pair<int, std::string>, int> m_meta_versions;
  int m_version_without_table = 0;
  bool m_compares = true;
  int m_compare_result = 0;
  int m_report_result = 0;

  int m_scratch_requests = 0;
  std::vector<std::pair<int, std::string>> m_meta_version_requests;
  std::vector<int> m_dir_alarm_codes;
  std::vector<std::pair<LPVEXMETA, LPVEXMETA>> m_comparisons;
  std::vector<std::pair<int, std::string>> m_reports;
};

}  // namespace OstrandFakes
