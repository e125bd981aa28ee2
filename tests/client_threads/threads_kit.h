// What the tests of Client share: a fleet in this process, a client that is ready, requests.
//
// Ownership: the fixture owns fleet and client. Threads: the test's thread, but Gate.
#pragma once

#include <gtest/gtest.h>

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "client/client.h"
#include "fakes/recording_logger.h"
#include "fleet/fleet.h"

namespace OstrandTests {

constexpr int32_t kZone = 1;
constexpr char kTable[] = "user";
constexpr char kListTable[] = "friends";
constexpr int kPatienceMs = 30000;

// Opens once, by whoever calls Open; who passes waits for that. It stands until the last one has
// passed: it dies with a test's scope, and who passes is another thread.
class Gate {
 public:
  ~Gate();
  void Open();
  void Pass();

 private:
  std::mutex m_mutex;
  std::condition_variable m_condition;
  bool m_is_open = false;
  int m_passing = 0;
};

// Counts up; who waits for a number waits until it is reached.
class Tally {
 public:
  void Add();
  void WaitFor(int number);
  int Count();

 private:
  std::mutex m_mutex;
  std::condition_variable m_condition;
  int m_count = 0;
};

class ClientThreads : public testing::Test {
 protected:
  void TearDown() override;

  // Quick to refresh, slow to time out.
  OstrandService::ClientOptions Options();
  void StartFleet(size_t proxies = 1, size_t records_per_package = 100);
  void StartClient() { StartClient(Options()); }
  void StartClient(const OstrandService::ClientOptions& options);

  void SetFaults(const std::function<void(OstrandFleet::ProxyFaults&)>& edit);
  // Table requests are not answered from now on; sign-ups and heartbeats are.
  void KeepAnswersBack();
  // Waits until so many requests came since the fleet was started.
  void WaitForRequests(uint64_t count);
  // Writes a list with so many elements of `len` bytes each.
  void WriteList(int elements, size_t len);

  OstrandFakes::RecordingLogger m_logger;
  std::unique_ptr<OstrandFleet::Fleet> m_fleet;
  std::unique_ptr<OstrandService::Client> m_client;
  OstrandService::ClientResponse m_response;
};

// Entries of a folder such as /proc/self/task.
size_t CountEntries(const char* folder);

OstrandService::ClientRequest Write(int id, const std::string& name = "Ada");
OstrandService::ClientRequest Read(int id);
OstrandService::ClientRequest ReadList();

}  // namespace OstrandTests
