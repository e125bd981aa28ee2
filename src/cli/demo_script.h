// What happens to the demo's fleet while the mixed load runs: two proxies join, one stops by
// negotiation, one is killed.
//
// Each step begins some time after the one before it is complete: when the client has signed up
// with a proxy that joined, when one that asked to stop has stopped. Ownership: borrows the fleet.
// Threads: one at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "fleet/fleet.h"

namespace OstrandCli {

class DemoScript {
 public:
  static constexpr size_t kStoppedProxy = 1;
  static constexpr size_t kKilledProxy = 3;

  // duration_ms: of the whole, the time before the first and behind the last step included.
  // REQUIRES: the fleet has more than kKilledProxy proxies.
  DemoScript(OstrandFleet::Fleet& fleet, int64_t duration_ms);

  // Begins what is due. True when all steps are complete and the time behind the last one is over,
  // and for good when a step did not come to its end in time.
  bool Update(int64_t now_ms);

  bool IsComplete() const { return m_step == Step::kEnd; }
  // Which step did not come to its end; "" while all is well.
  const std::string& Fault() const { return m_fault; }
  // A line for each thing that happened since the last call.
  std::vector<std::string> TakeRemarks();

 private:
  enum class Step { kFirstJoin, kSecondJoin, kStop, kKill, kEnd };
  static constexpr int kSteps = 4;
  static constexpr int64_t kPatienceMs = 20000;

  void BeginStep();
  bool StepIsComplete();
  void Join();

  OstrandFleet::Fleet& m_fleet;
  const int64_t m_pause_ms;  // before each step and behind the last one
  Step m_step = Step::kFirstJoin;
  bool m_under_way = false;
  size_t m_joined = 0;  // proxy of the step under way
  int64_t m_due_ms = -1;
  std::string m_fault;
  std::vector<std::string> m_remarks;
};

}  // namespace OstrandCli
