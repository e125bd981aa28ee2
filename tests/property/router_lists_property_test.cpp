// Random lives of a router: thousands of sequences of directory answers, connections, sign-ups,
// losses and updates.
//
// After each step the invariants of lists, records and ring hold (router_invariants.h) and lookups
// agree with a plain search. In the first test lists, index and ring are also what a plain model of
// them says; in the second proxies are judged, fail to connect and to send, and say that they stop.
//
// Each sequence has a seed of its own. ROUTER_LISTS_SEED sets the first one and
// ROUTER_LISTS_SEQUENCES the number of sequences: with the seed that a failure names and 1 it is
// repeated alone.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <iterator>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "fakes/directory_answer.h"
#include "fakes/keyed_request.h"
#include "fakes/proxy_answers.h"
#include "fakes/router_fixture.h"
#include "fakes/sanitizers.h"
#include "property/router_lists_model.h"
#include "service_api/table_qos.h"

namespace OstrandService {
namespace {

using OstrandFakes::DirectoryAnswer;
using OstrandFakes::FakeClock;
using OstrandFakes::KeyedRequest;
using OstrandFakes::Rounds;
using OstrandFakes::RouterFixture;
using OstrandFakes::RouterListsModel;
using OstrandFakes::ScriptedConnector;

using Texts = std::vector<std::string>;

constexpr char kTable[] = "table";
constexpr uint64_t kDefaultSeed = 20240229;
constexpr int kStepsPerSequence = 30;
constexpr int kSequencesPerRouter = 100;  // making one is slow
constexpr int kUniverse = 8;              // proxies that the directory knows of
constexpr int kNoRoute = -13843;

uint64_t FromEnvironment(const char* name, uint64_t otherwise) {
  const char* given = std::getenv(name);
  return given != nullptr ? std::strtoull(given, nullptr, 10) : otherwise;
}

class RouterListsPropertyTest : public testing::Test, public RouterFixture {
 protected:
  RouterListsPropertyTest() {
    std::snprintf(m_qos.szTableName, sizeof(m_qos.szTableName), "%s", kTable);
    m_qos.iZoneID = kZoneId;
    router->SetQos(&m_qos);
  }

  // Runs the sequences; each begins with an initialised router that knows nothing yet.
  void Run(int count, const std::function<void()>& step) {
    const uint64_t seed = FromEnvironment("ROUTER_LISTS_SEED", kDefaultSeed);
    const uint64_t sequences =
        FromEnvironment("ROUTER_LISTS_SEQUENCES", static_cast<uint64_t>(count));
    std::printf("ROUTER_LISTS_SEED=%llu ROUTER_LISTS_SEQUENCES=%llu\n",
                static_cast<unsigned long long>(seed), static_cast<unsigned long long>(sequences));
    for (uint64_t i = 0; i < sequences; ++i) {
      SCOPED_TRACE("ROUTER_LISTS_SEED=" + std::to_string(seed + i) + " ROUTER_LISTS_SEQUENCES=1");
      random.seed(seed + i);
      Begin(i % kSequencesPerRouter == 0);
      for (int n = 0; n < kStepsPerSequence; ++n) {
        SCOPED_TRACE(testing::Message() << "step " << n);
        logger.Clear();
        journal.Clear();
        step();
        ExpectSound();
        if (HasFailure()) {
          return;
        }
      }
    }
  }

  // --- The steps ---

  void FlushRoute();
  void Update();
  void ConnectSome();
  void LoseSome();
  void AnswerSignups();
  void AnswerHeartbeats();
  void ForceTheRing();
  void ModelledStep();

  void SpoilConnectors();
  void JudgeSome();
  void AnnounceStops();
  void WildStep();

  // --- What must hold ---

  void ExpectSound() {
    ASSERT_EQ(Texts(), Broken());
    for (int i = 0; i < 3; ++i) {
      ExpectPlainRoute();
    }
  }
  void ExpectPlainRoute();
  void ExpectAsModelled();

  bool Chance(int per_cent) { return static_cast<int>(random() % 100) < per_cent; }
  uint64_t Below(uint64_t limit) { return random() % limit; }

  std::mt19937_64 random;
  std::unique_ptr<RouterListsModel> model;

 private:
  void Begin(bool with_a_new_router);
  DirectoryAnswer RandomAnswer();
  static std::string UrlOf(uint64_t number) {
    return "tcp://10.0.0." + std::to_string(number) + ":9000";
  }
  // The connectors that a step is about.
  std::vector<ScriptedConnector*> Some(int per_cent) {
    std::vector<ScriptedConnector*> some;
    for (ScriptedConnector* connector : mgr.Live()) {
      if (Chance(per_cent)) {
        some.push_back(connector);
      }
    }
    return some;
  }
  RouterListsModel::Entries EntriesOf(List* list) {
    RouterListsModel::Entries entries;
    for (const RealServerNode& node : ServersOf(list)) {
      entries.push_back({node.server_url, ServerIdText(node.server_id).c_str(), node.server});
    }
    return entries;
  }

  tagTableQos m_qos = {};
  KeyedRequest m_request;
  Texts m_last_urls;
  const std::string m_accepted = OstrandFakes::SignupAnswer(0);
  const std::string m_refused = OstrandFakes::SignupAnswer(-6413);
  const std::string m_heartbeat = OstrandFakes::HeartbeatAnswer(FakeClock::kStartMs * 1000);
  const std::string m_stop = OstrandFakes::StopNotice();
};

void RouterListsPropertyTest::Begin(bool with_a_new_router) {
  clock.SetMs(FakeClock::kStartMs);
  judge.should_check = false;
  judge.unavailable.clear();
  mgr.FailCreation(0, "");
  logger.SetThreshold(OstrandCommon::OSTRAND_LOG_LEVEL_DEBUG);
  m_last_urls = {UrlOf(0)};
  if (with_a_new_router) {
    router->Fini();
    ASSERT_EQ(0, Init());
  }
  // What Fini and Init would not change, or only slowly.
  for (List* list :
       {peer->m_using_servers(), peer->m_preparing_servers(), peer->m_removing_servers()}) {
    peer->ReleaseServerList(list);
  }
  peer->m_virtual_node_count() = 0;
  peer->m_last_auth_succ_count() = 0;
  peer->m_last_flush_hash_circle_time() = 0;
  peer->m_last_flush_route_time() = 0;
  peer->m_last_send_heartbeat_time() = 0;
  peer->m_last_recheck_availabe_time() = 0;
  peer->m_lastCheckProxyTime() = 0;
  peer->m_last_check_time() = 0;
  peer->m_force_flush_hash() = false;
  peer->m_is_all_connected() = false;
  peer->m_all_servers().clear();

  std::vector<std::vector<uint64_t>> endings;
  for (const Len2Ending& arcs : peer->m_len2ending()) {
    endings.emplace_back();
    for (const auto& [length, ending] : arcs) {
      endings.back().push_back(ending);
    }
  }
  model = std::make_unique<RouterListsModel>(std::move(endings));
}

// --- Directory answers ---

DirectoryAnswer RouterListsPropertyTest::RandomAnswer() {
  Texts urls = m_last_urls;
  if (Chance(80)) {
    urls.clear();
    std::set<uint64_t> numbers;
    for (uint64_t n = 1 + Below(5); n > 0; --n) {
      numbers.insert(Below(kUniverse));
    }
    for (const uint64_t number : numbers) {
      urls.push_back(UrlOf(number));
    }
  }
  std::shuffle(urls.begin(), urls.end(), random);
  m_last_urls = urls;
  if (Chance(5)) {
    urls.insert(urls.begin() + static_cast<long>(Below(urls.size() + 1)), urls.front());
  }
  if (Chance(5)) {
    urls.insert(urls.begin() + static_cast<long>(Below(urls.size() + 1)), "tcp://a:10");
  }
  DirectoryAnswer answer(urls);
  for (size_t i = 0; i < urls.size(); ++i) {
    answer.SetRow(static_cast<int>(i), urls[i], "id" + std::to_string(Below(1000)));
  }
  if (Chance(4)) {
    const int32_t kCounts[] = {0, -1, INT32_MIN, 201, INT32_MAX};
    answer.SetCount(kCounts[Below(5)]);
  }
  return answer;
}

void RouterListsPropertyTest::FlushRoute() {
  const DirectoryAnswer answer = RandomAnswer();
  const int failing = Chance(10) ? static_cast<int>(1 + Below(3)) : 0;
  mgr.FailCreation(failing, "no socket");
  const int expected = model->FlushRoute(answer, failing, clock.Ms());
  EXPECT_EQ(expected, router->FlushRoute(answer.get()));
  mgr.FailCreation(0, "");
  for (List* list : {peer->m_using_servers(), peer->m_preparing_servers()}) {
    for (const RealServerNode& node : ServersOf(list)) {
      model->Resolve(node.server_url, node.server);
    }
  }
}

// --- Time and the proxies ---

void RouterListsPropertyTest::Update() {
  const int64_t kPauses[] = {10, 100, 1001, 5000, 10000, 10001, 30000, 60000, 60001};
  clock.AdvanceMs(kPauses[Below(std::size(kPauses))]);
  const int writes = model->Update(clock.Ms());
  router->OnUpdate(clock.Ms(), 0, kSignature, nullptr, nullptr);
  EXPECT_EQ(writes, static_cast<int>(journal.EntriesWith("ReportDirHash").size()));
}

void RouterListsPropertyTest::ConnectSome() {
  for (ScriptedConnector* connector : Some(70)) {
    if (connector->GetStatus() == 1) {
      connector->SetStatus(2);
    }
  }
}

void RouterListsPropertyTest::LoseSome() {
  for (ScriptedConnector* connector : Some(20)) {
    connector->SetStatus(0);
  }
}

void RouterListsPropertyTest::AnswerSignups() {
  for (ScriptedConnector* connector : Some(70)) {
    if (connector->GetStatus() == 2) {
      EXPECT_EQ(1, mgr.Deliver(*connector, Chance(90) ? m_accepted : m_refused));
    }
  }
}

void RouterListsPropertyTest::AnswerHeartbeats() {
  for (ScriptedConnector* connector : Some(70)) {
    if (connector->GetStatus() == 2) {
      EXPECT_EQ(1, mgr.Deliver(*connector, m_heartbeat));
    }
  }
}

void RouterListsPropertyTest::ForceTheRing() {
  router->SetForceFlushHash(true);
  model->SetForceFlushHash();
}

void RouterListsPropertyTest::ModelledStep() {
  const struct {
    uint64_t weight;
    void (RouterListsPropertyTest::*step)();
  } kSteps[] = {{15, &RouterListsPropertyTest::FlushRoute},
                {40, &RouterListsPropertyTest::Update},
                {15, &RouterListsPropertyTest::ConnectSome},
                {15, &RouterListsPropertyTest::AnswerSignups},
                {8, &RouterListsPropertyTest::AnswerHeartbeats},
                {5, &RouterListsPropertyTest::LoseSome},
                {2, &RouterListsPropertyTest::ForceTheRing}};
  uint64_t drawn = Below(100);
  for (const auto& [weight, step] : kSteps) {
    if (drawn < weight) {
      (this->*step)();
      break;
    }
    drawn -= weight;
  }
  ExpectAsModelled();
}

// --- Sick proxies ---

void RouterListsPropertyTest::SpoilConnectors() {
  for (ScriptedConnector* connector : Some(50)) {
    if (Chance(50)) {
      connector->SetConnect(Chance(50) ? -1 : 0, Chance(20) ? 2 : 1);
    } else {
      connector->SetSendResult(Chance(50) ? 1 : static_cast<int>(Below(2)) - 1);
    }
  }
}

void RouterListsPropertyTest::JudgeSome() {
  judge.should_check = Chance(50);
  for (ScriptedConnector* connector : Some(30)) {
    judge.unavailable.insert(connector->GetURL());
  }
  for (ScriptedConnector* connector : Some(30)) {
    ProxyServer* proxy = nullptr;
    for (List* list : {peer->m_using_servers(), peer->m_removing_servers()}) {
      if (RealServerNode* node = peer->FindServerNode(list, connector->GetURL())) {
        proxy = node->server;
      }
    }
    if (proxy != nullptr) {
      proxy->m_request_count += Below(50);
    }
  }
}

void RouterListsPropertyTest::AnnounceStops() {
  for (ScriptedConnector* connector : Some(20)) {
    if (connector->GetStatus() == 2) {
      EXPECT_EQ(1, mgr.Deliver(*connector, m_stop));
    }
  }
}

void RouterListsPropertyTest::WildStep() {
  if (Chance(10)) {
    logger.SetThreshold(Chance(50) ? OstrandCommon::OSTRAND_LOG_LEVEL_TRACE
                                   : OstrandCommon::OSTRAND_LOG_LEVEL_ERROR);
  }
  switch (Below(20)) {
    case 0: return SpoilConnectors();
    case 1: return JudgeSome();
    case 2: return AnnounceStops();
    case 3: return LoseSome();
    case 4: return ForceTheRing();
    case 5:
    case 6:
    case 7: return AnswerHeartbeats();
    case 8:
    case 9:
    case 10: return ConnectSome();
    case 11:
    case 12:
    case 13: return AnswerSignups();
    case 14:
    case 15: {
      const DirectoryAnswer answer = RandomAnswer();
      mgr.FailCreation(static_cast<int>(Below(10)), nullptr);
      router->FlushRoute(answer.get());
      return;
    }
    default: {
      clock.AdvanceMs(static_cast<int64_t>(Below(40000)) - 1000);
      router->OnUpdate(clock.Ms() + static_cast<int64_t>(Below(3)) - 1, 0, kSignature, nullptr,
                       nullptr);
    }
  }
}

// --- What must hold ---

void RouterListsPropertyTest::ExpectAsModelled() {
  EXPECT_TRUE(model->in_use() == EntriesOf(peer->m_using_servers()));
  EXPECT_TRUE(model->preparing() == EntriesOf(peer->m_preparing_servers()));
  EXPECT_TRUE(model->removing() == EntriesOf(peer->m_removing_servers()));
  EXPECT_EQ(model->index(), peer->m_all_servers());
  EXPECT_EQ(model->last_flush_route_time(), peer->m_last_flush_route_time());
  EXPECT_EQ(model->is_all_connected(), peer->m_is_all_connected());
  std::vector<RouterListsModel::Point> ring;
  for (uint32_t i = 0; i < peer->m_virtual_node_count(); ++i) {
    const VirtualServerNode& node = peer->m_virtual_nodes()[i];
    ring.emplace_back(node.hash_code, node.server);
  }
  EXPECT_TRUE(model->ring() == ring);
}

// One request of a random key goes where a search from the first point to the last finds it.
void RouterListsPropertyTest::ExpectPlainRoute() {
  std::string key(16, '\0');
  for (char& byte : key) {
    byte = static_cast<char>(random());
  }
  m_request.SetKey({{"id", key}});
  const uint64_t hash = con_hash_func(key.data(), key.size());

  const VirtualServerNode* points = peer->m_virtual_nodes();
  const uint32_t count = peer->m_virtual_node_count();
  uint32_t start = 0;
  while (start < count && points[start].hash_code < hash) {
    ++start;
  }
  ProxyServer* expected = nullptr;
  for (uint32_t step = 0; step < count && expected == nullptr; ++step) {
    ProxyServer* proxy = points[(start + step) % count].server;
    if (proxy != nullptr && proxy->auth_succeed && proxy->last_auth_result == 0 &&
        proxy->connector->GetStatus() == 2 && proxy->is_available) {
      expected = proxy;
    }
  }
  ProxyServer* found = nullptr;
  EXPECT_EQ(expected != nullptr ? 0 : kNoRoute,
            peer->GetRouterProxyServer(found, &m_request, kZoneId, kTable));
  EXPECT_EQ(expected, found);
}

// --- The properties ---

TEST_F(RouterListsPropertyTest, ListsIndexAndRingAreWhatThePlainModelSays) {
  judge.option.max_remove_rate = 0;
  Run(Rounds(1500), [this] { ModelledStep(); });
}

TEST_F(RouterListsPropertyTest, SickProxiesBreakNoInvariant) {
  judge.recheck_interval = 5;
  Run(Rounds(1000), [this] { WildStep(); });
}

}  // namespace
}  // namespace OstrandService
