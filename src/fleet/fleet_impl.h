// The parts of a fleet, put together. On the loop only, Start and Stop of the loop excepted.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "fleet/file_watch.h"
#include "fleet/fleet.h"
#include "fleet/fleet_directory.h"
#include "fleet/fleet_file.h"
#include "fleet/fleet_proxy.h"

namespace OstrandFleet {

class Fleet::Impl {
 public:
  explicit Impl(FleetOptions options);

  FleetLoop& loop() { return m_loop; }
  TableStore& store() { return m_store; }
  RequestLog& log() { return m_log; }
  FleetDirectory& directory() { return m_directory; }
  const std::vector<std::unique_ptr<FleetProxy>>& proxies() const { return m_proxies; }
  // Null when there is none.
  FleetProxy* proxy(size_t index);
  const std::string& error() const { return m_error; }

  int StartAll();
  void StopAll();
  int AddProxy();
  int RestartProxy(size_t index);
  int SetDirectoryFault(DirectoryFault fault, int64_t value);
  Route RouteOf(const std::vector<std::string>& urls) const;

 private:
  int Fail(const std::string& what);
  FleetProxy& NewProxy();
  void UpdateCommonRoute();

  // The fleet file.
  int FollowFile();
  void ReadFile();
  void Apply(const FleetFile& file);
  void ApplyState(FleetProxy& proxy, const FleetFile& file);
  void Remark(const std::string& line) const;

  const FleetOptions m_options;
  FleetLoop m_loop;
  TableStore m_store;
  AnswerWriter m_writer;
  CommandRunner m_commands;
  const std::unique_ptr<ostrand_protocol_cs::OStrandPkg> m_request;
  RequestLog m_log;
  const std::unique_ptr<StandIn> m_stand_in;
  SessionContext m_context;
  FleetDirectory m_directory;
  std::vector<std::unique_ptr<FleetProxy>> m_proxies;
  FileWatch m_file_watch;
  bool m_follows_file = false;
  FleetFile m_file;  // as it was applied last
  std::string m_error;
};

}  // namespace OstrandFleet
