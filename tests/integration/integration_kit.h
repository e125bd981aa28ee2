// What the tests of the client library over real TCP share: a fixture with a fleet, a client and a
// load, and the accounts that must balance when a test is over.
//
// Ownership: the fixture owns fleet, client and load. Threads: the test's thread.
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "client/polling_client.h"
#include "fakes/recording_logger.h"
#include "fleet/fleet.h"
#include "integration/fleet_process.h"
#include "integration/warped_clock.h"
#include "integration/workload.h"
#include "net/system.h"
#include "protocol/ostrand_protocol_cs.h"

namespace OstrandTests {

constexpr int64_t kAppId = 7;

// A frame that a proxy may send, or claim to send. edit: fills in what the command needs.
std::string Frame(uint32_t cmd,
                  const std::function<void(ostrand_protocol_cs::OStrandPkg&)>& edit = {});
// The frame, so many times.
std::string Repeat(const std::string& frame, size_t times);

// Starts fleet and client, and balances the accounts at the end: without faults the client serves,
// each accepted request had exactly one outcome, no descriptor and no thread is left.
class RuntimeTest : public testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  void StartFleet(size_t proxies);
  void StartFleet(OstrandFleet::FleetOptions options);
  void StartFleetProcess(size_t proxies, const std::string& more_options = "");

  // For the fleet that was started: quick to refresh, slow to time out.
  OstrandService::ClientOptions Options();
  // Starts the client, waits until it is ready, makes a load for it.
  void StartClient() { StartClient(Options()); }
  void StartClient(const OstrandService::ClientOptions& options,
                   Workload::Store store = Workload::Store::kShared);
  // The same without waiting.
  void StartClientUnready(const OstrandService::ClientOptions& options);

  void SetFaults(size_t proxy, const std::function<void(OstrandFleet::ProxyFaults&)>& edit);
  void SetFaultsOfAll(const std::function<void(OstrandFleet::ProxyFaults&)>& edit);
  void RemoveFaults();

  // The result of one request; the code where there was none.
  int32_t Do(uint32_t cmd, const std::string& key, const std::string& value = "");
  std::string Value() const;

  // Drives the client until the condition holds; false when it does not within the time.
  bool UpdateUntil(const std::function<bool()>& condition, int64_t limit_ms = kPatienceMs);
  // Expects that the client writes and reads a record before the patience ends.
  void ExpectUsable();
  // Whether the client is signed up with this proxy of the route in use.
  bool IsServing(const std::string& url);
  // Whether a line that holds this text was logged.
  bool IsLogged(const std::string& text) const;

  // Passes so much time doing nothing.
  void Pause(int64_t ms);

  OstrandFakes::RecordingLogger m_logger;
  std::vector<std::string> m_logged;    // errors and warnings so far
  OSTRNET::System* m_system = nullptr;  // of clients that are made from now on; null: the kernel's
  std::unique_ptr<OstrandFleet::Fleet> m_fleet;
  std::unique_ptr<FleetProcess> m_process;
  std::unique_ptr<OstrandService::PollingClient> m_client;
  std::unique_ptr<Workload> m_work;
  OstrandService::ClientRequest m_request;
  OstrandService::ClientResponse m_response;
  int32_t m_call_timeout_ms = 0;  // of Do; 0: the default
  bool m_serves_at_end = true;

 private:
  size_t m_descriptors = 0;
  size_t m_threads = 0;
};

// Entries of a folder such as /proc/self/fd.
size_t CountEntries(const char* folder);

}  // namespace OstrandTests
