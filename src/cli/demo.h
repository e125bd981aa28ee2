// The whole of the demo: a fleet inside the process, real records loaded through the router and
// read back, a mixed load while the fleet changes, and everything read back once more.
//
// Ownership: of the fleet and the client, for as long as Run takes; borrows the records. Threads:
// one at a time. Progress goes to standard error.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "cli/demo_load.h"
#include "cli/load_generator.h"
#include "cli/package_records.h"
#include "cli/ring_model.h"
#include "client/polling_client.h"
#include "fleet/fleet.h"

namespace OstrandCli {

struct DemoOptions {
  size_t window = 128;           // requests in flight
  int64_t mixed_ms = 20000;      // of the mixed load
  int64_t patience_ms = 110000;  // for everything; then it has failed
  uint64_t seed = 1;
  bool verbose = false;               // the library's log on standard error
  bool inject_wrong_answers = false;  // one proxy changes values: the demo must find them
};

struct DemoStage {
  std::string name;
  LoadFigures figures;
};

struct DemoProxy {
  std::string url;
  std::string id;
  std::string state;  // at the end
  double first_ring_share = 0;
  double last_ring_share = 0;  // those that do not run leave theirs to others
};

struct DemoResult {
  std::vector<DemoStage> stages;
  std::vector<DemoProxy> proxies;  // all there ever were
  DemoCounts counts;
  uint64_t records = 0;
  uint64_t read_back = 0;  // records compared in the last stage
  uint64_t dropped = 0;    // answers that came too late, or for nobody
  bool all_acknowledged = false;
  // Why the demo has failed, a sentence each; none: it has not.
  std::vector<std::string> faults;
  RingDiff rings;  // of the first and the last stage
};

class Demo {
 public:
  // REQUIRES: there are records.
  Demo(const DemoOptions& options, const std::vector<PackageRecord>& records);
  ~Demo();

  DemoResult Run();

 private:
  static constexpr size_t kProxies = 8;

  bool StartFleet();
  bool StartClient();
  bool WaitForAllProxies();
  bool GoThroughAll(const std::string& name, DemoLoad::Phase phase);
  bool RunMixed();
  bool RunStage(const std::string& name, LoadLimits limits);
  bool GoesOn();
  bool Fail(const std::string& sentence);
  void Judge();
  void DescribeProxies();

  const DemoOptions m_options;
  const std::vector<PackageRecord>& m_records;
  const int64_t m_deadline_ms;
  const VexMeta m_schema;
  OstrandFleet::Fleet m_fleet;
  std::unique_ptr<OstrandService::PollingClient> m_client;
  DemoLoad m_load;
  std::vector<std::string> m_first_urls;
  DemoResult m_result;
};

}  // namespace OstrandCli
