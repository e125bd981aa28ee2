// A window of requests against a fleet of its own over loopback: what is counted is what happened.
#include "cli/load_generator.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <memory>
#include <numeric>
#include <string>
#include <vector>

#include "cli/mixed_load.h"
#include "client/stderr_logger.h"
#include "fleet/fleet.h"
#include "protocol/ostrand_api_cmds.h"

namespace OstrandCli {
namespace {

using OstrandService::ClientRequest;
using OstrandService::ClientResponse;

constexpr int32_t kZone = 1;
constexpr char kTable[] = "default";

// Writes or reads keys 0 to keys - 1 once each, and keeps every outcome.
class Once final : public RequestSource {
 public:
  Once(uint32_t cmd, uint64_t keys) : m_cmd(cmd), m_keys(keys) {}

  bool Next(ClientRequest& request, uint64_t& tag) override {
    if (next == m_keys) {
      return false;
    }
    tag = next++;
    most_in_flight = std::max(most_in_flight, next - outcomes.size());
    request.Begin(m_cmd, table.c_str()).Zone(kZone);
    request.Key("key", KeyOfNumber(tag));
    if (m_cmd != ostrand_protocol_cs::OSTRAND_API_GET_REQ) {
      request.Set("value", "of " + KeyOfNumber(tag));
    }
    return true;
  }

  void OnOutcome(uint64_t tag, LoadOutcome outcome, int32_t code,
                 ClientResponse* response) override {
    EXPECT_EQ(outcomes.count(tag), 0u) << "one outcome a request";
    outcomes[tag] = outcome;
    codes[tag] = code;
    EXPECT_EQ(response == nullptr, outcome == LoadOutcome::kFailed);
    ostrand_protocol_cs::FieldView value;
    if (response != nullptr && response->GetValue("value", value)) {
      values[tag] = value.value;
    }
  }

  uint64_t Count(LoadOutcome wanted) const {
    return static_cast<uint64_t>(
        std::count_if(outcomes.begin(), outcomes.end(),
                      [wanted](const auto& outcome) { return outcome.second == wanted; }));
  }

  std::string table = kTable;
  uint64_t next = 0;
  size_t most_in_flight = 0;
  std::map<uint64_t, LoadOutcome> outcomes;
  std::map<uint64_t, int32_t> codes;
  std::map<uint64_t, std::string> values;

 private:
  const uint32_t m_cmd;
  const uint64_t m_keys;
};

class LoadGeneratorTest : public testing::Test {
 protected:
  void Start(size_t proxies) {
    OstrandFleet::FleetOptions options;
    options.proxies = proxies;
    options.create_unknown_tables = true;
    options.requests.is_on = false;
    fleet = std::make_unique<OstrandFleet::Fleet>(options);
    ASSERT_EQ(fleet->Start(), 0) << fleet->Error();
    OstrandService::ClientOptions client_options;
    client_options.app_id = 1;
    client_options.zones = {kZone};
    client_options.directory_urls = {fleet->DirectoryUrl()};
    client_options.tables = {{kTable, kZone, nullptr}};
    client_options.signature = "s";
    client_options.default_timeout_ms = 200;
    client_options.logger = &logger;
    client = std::make_unique<OstrandService::PollingClient>(client_options);
    ASSERT_EQ(client->Start(), 0);
    ASSERT_EQ(client->WaitReady(10000), 0);
    // Every proxy has its share only when all have signed up.
    while (!fleet->WaitFor(20, [&] { return AllSignedUp(); })) {
      ASSERT_EQ(client->Update(), 0);
    }
    generator = std::make_unique<LoadGenerator>(*client);
  }

  bool AllSignedUp() {
    for (size_t i = 0; i < fleet->ProxyCount(); ++i) {
      if (fleet->Counters(i).signed_up == 0) {
        return false;
      }
    }
    return true;
  }

  const LoadFigures& Run(RequestSource& source, LoadLimits limits = {}) {
    EXPECT_EQ(generator->Run(source, limits), 0);
    EXPECT_TRUE(generator->Figures().AddUp());
    EXPECT_EQ(client->InFlight(), 0u);
    return generator->Figures();
  }

  OstrandService::StderrLogger logger{OstrandCommon::OSTRAND_LOG_LEVEL_FATAL};
  std::unique_ptr<OstrandFleet::Fleet> fleet;
  std::unique_ptr<OstrandService::PollingClient> client;
  std::unique_ptr<LoadGenerator> generator;
};

TEST_F(LoadGeneratorTest, SendsAllThatTheSourceHasAndHandsOutEachAnswer) {
  Start(3);
  Once writes(ostrand_protocol_cs::OSTRAND_API_REPLACE_REQ, 1000);
  LoadLimits limits;
  limits.window = 17;
  Run(writes, limits);
  EXPECT_EQ(writes.Count(LoadOutcome::kAnswered), 1000u);
  EXPECT_EQ(writes.most_in_flight, 17u);
  EXPECT_EQ(fleet->CountRecords(kZone, kTable), 1000u);

  Once reads(ostrand_protocol_cs::OSTRAND_API_GET_REQ, 1000);
  const LoadFigures& figures = Run(reads, limits);
  for (const auto& [tag, value] : reads.values) {
    EXPECT_EQ(value, "of " + KeyOfNumber(tag));
  }
  EXPECT_EQ(reads.values.size(), 1000u);

  EXPECT_EQ(figures.sent, 2000u) << "of both runs";
  EXPECT_EQ(figures.answered, 2000u);
  EXPECT_EQ(figures.refused, 0u);
  EXPECT_TRUE(figures.codes.empty());
  EXPECT_EQ(figures.latency_ns.Count(), 2000u);
  EXPECT_GT(figures.latency_ns.Min(), 1000u);
  EXPECT_GT(figures.seconds, 0);
  EXPECT_GT(figures.user_cpu_seconds + figures.system_cpu_seconds, 0);
  EXPECT_GT(figures.system_calls, 0u);
  EXPECT_LT(figures.system_calls, 1000000u);
}

TEST_F(LoadGeneratorTest, CountsARequestForTheProxyThatGotIt) {
  Start(4);
  Once writes(ostrand_protocol_cs::OSTRAND_API_REPLACE_REQ, 500);
  const LoadFigures& figures = Run(writes);
  ASSERT_EQ(figures.by_proxy.size(), 4u);
  uint64_t total = 0;
  for (size_t i = 0; i < 4; ++i) {
    EXPECT_EQ(figures.by_proxy.at(fleet->ProxyUrl(i)), fleet->Counters(i).table_requests);
    total += figures.by_proxy.at(fleet->ProxyUrl(i));
  }
  EXPECT_EQ(total, 500u);
  LoadLimits limits;
  limits.count_proxies = false;
  Once more(ostrand_protocol_cs::OSTRAND_API_REPLACE_REQ, 10);
  Run(more, limits);
  EXPECT_EQ(figures.sent, 510u);
  EXPECT_EQ(std::accumulate(figures.by_proxy.begin(), figures.by_proxy.end(), uint64_t{0},
                            [](uint64_t sum, const auto& proxy) { return sum + proxy.second; }),
            500u)
      << "only when it is wanted";
}

TEST_F(LoadGeneratorTest, CountsAnswersThatRefuse) {
  Start(1);
  Once reads(ostrand_protocol_cs::OSTRAND_API_GET_REQ, 20);
  const LoadFigures& figures = Run(reads);
  EXPECT_EQ(figures.answered, 20u);
  EXPECT_EQ(figures.refused, 20u);
  EXPECT_EQ(figures.codes, (std::map<int32_t, uint64_t>{{-7949, 20}})) << "no such record";
  EXPECT_EQ(reads.codes[3], -7949);
}

TEST_F(LoadGeneratorTest, CountsRequestsWithoutAnAnswerAsTimedOut) {
  Start(1);
  OstrandFleet::ProxyFaults faults;
  faults.drop_every = 3;
  fleet->SetFaults(0, faults);
  Once writes(ostrand_protocol_cs::OSTRAND_API_REPLACE_REQ, 30);
  const LoadFigures& figures = Run(writes);
  EXPECT_EQ(figures.timed_out, 10u);
  EXPECT_EQ(figures.answered, 20u);
  EXPECT_EQ(figures.latency_ns.Count(), 20u) << "a time-out is no latency";
  EXPECT_EQ(writes.Count(LoadOutcome::kTimedOut), 10u);
}

TEST_F(LoadGeneratorTest, CountsRequestsThatTheClientRefusesAsFailed) {
  Start(1);
  Once writes(ostrand_protocol_cs::OSTRAND_API_REPLACE_REQ, 5);
  writes.table = "unknown";
  const LoadFigures& figures = Run(writes);
  EXPECT_EQ(figures.failed, 5u);
  EXPECT_EQ(figures.answered, 0u);
  EXPECT_EQ(writes.Count(LoadOutcome::kFailed), 5u);
  EXPECT_EQ(figures.codes, (std::map<int32_t, uint64_t>{{OstrandService::CLIENT_ERR_TABLE, 5}}));
}

// Proxies that answer twice, or in another order, do not confuse the books.
TEST_F(LoadGeneratorTest, KeepsItsBooksWhenAnswersComeTwiceOrInAnotherOrder) {
  Start(2);
  OstrandFleet::ProxyFaults faults;
  faults.answer = OstrandFleet::AnswerFault::kDuplicate;
  fleet->SetFaults(0, faults);
  faults.answer = OstrandFleet::AnswerFault::kReorder;
  fleet->SetFaults(1, faults);
  Once writes(ostrand_protocol_cs::OSTRAND_API_REPLACE_REQ, 400);
  const LoadFigures& figures = Run(writes);
  EXPECT_EQ(figures.strays, 0u);
  EXPECT_EQ(writes.outcomes.size(), 400u);
}

TEST_F(LoadGeneratorTest, StopsAtTheLimitOfRequests) {
  Start(1);
  Once writes(ostrand_protocol_cs::OSTRAND_API_REPLACE_REQ, 1000);
  LoadLimits limits;
  limits.requests = 10;
  EXPECT_EQ(Run(writes, limits).sent, 10u);
  EXPECT_EQ(Run(writes, limits).sent, 20u) << "of each run";
}

TEST_F(LoadGeneratorTest, StopsAtTheLimitOfTimeOrWhenAskedTo) {
  Start(1);
  MixedLoad endless{MixedLoadOptions()};
  LoadLimits limits;
  limits.duration_ms = 50;
  const LoadFigures& figures = Run(endless, limits);
  EXPECT_GT(figures.sent, 0u);
  EXPECT_GE(figures.seconds, 0.05);
  EXPECT_LT(figures.seconds, 30);

  limits.duration_ms = 0;
  int rounds = 0;
  limits.go_on = [&rounds] { return ++rounds < 4; };
  Run(endless, limits);
  EXPECT_EQ(rounds, 4);
}

TEST_F(LoadGeneratorTest, EndsAtOnceWithoutAnythingToSend) {
  Start(1);
  Once nothing(ostrand_protocol_cs::OSTRAND_API_REPLACE_REQ, 0);
  EXPECT_EQ(Run(nothing).sent, 0u);
}

TEST_F(LoadGeneratorTest, PassesOnThatTheClientIsNotStarted) {
  Start(1);
  client->Stop(0);
  MixedLoad endless{MixedLoadOptions()};
  EXPECT_EQ(generator->Run(endless, LoadLimits()), OstrandService::CLIENT_ERR_NOT_STARTED);
}

// --- The loads of bench ---

TEST_F(LoadGeneratorTest, FillingWritesEachKeyOnceAndRepeatsWhatWasLost) {
  Start(2);
  OstrandFleet::ProxyFaults faults;
  faults.drop_every = 10;
  fleet->SetFaults(0, faults);
  MixedLoadOptions options;
  options.keys = 300;
  options.value_size = 20;
  FillLoad fill(options);
  Run(fill);
  EXPECT_EQ(fill.Written(), 300u);
  EXPECT_EQ(fill.Refusal(), 0);
  EXPECT_EQ(fleet->CountRecords(kZone, kTable), 300u);
  OstrandFleet::StoredRecord record;
  ASSERT_TRUE(fleet->FindRecord(kZone, kTable, {{"key", "key-0000000299"}}, record));
  ASSERT_EQ(record.values.size(), 1u);
  EXPECT_EQ(record.values[0].name, "value");
  EXPECT_EQ(record.values[0].value.size(), 20u);
}

TEST_F(LoadGeneratorTest, FillingEndsWhenTheStoreRefuses) {
  Start(1);
  OstrandFleet::TableSetup other;
  other.zone = kZone;
  other.schema.name = kTable;
  other.schema.key_fields = {{"uid", VexFieldType::kUint32, 4, 0}};
  other.schema.value_fields = {{"name", VexFieldType::kString, 32, 0}};
  ASSERT_TRUE(fleet->AddTable(other));
  FillLoad fill{MixedLoadOptions()};
  const LoadFigures& figures = Run(fill);
  EXPECT_EQ(fill.Refusal(), -6929) << "a key of other fields";
  EXPECT_LT(figures.sent, 1000u);
  EXPECT_EQ(fill.Written(), 0u);
}

TEST_F(LoadGeneratorTest, AMixHasItsShareOfReadsAndTheSeedDecides) {
  Start(1);
  MixedLoadOptions options;
  options.read_share = 0.75;
  MixedLoad load(options);
  LoadLimits limits;
  limits.requests = 4000;
  const LoadFigures& figures = Run(load, limits);
  EXPECT_EQ(load.Reads() + load.Writes(), figures.sent);
  EXPECT_NEAR(static_cast<double>(load.Reads()) / 4000, 0.75, 0.04);

  MixedLoad same(options);
  MixedLoad again(options);
  ClientRequest one;
  ClientRequest two;
  uint64_t tag_one = 0;
  uint64_t tag_two = 0;
  for (int i = 0; i < 50; ++i) {
    ASSERT_TRUE(same.Next(one, tag_one));
    ASSERT_TRUE(again.Next(two, tag_two));
    EXPECT_EQ(tag_one, tag_two);
    EXPECT_EQ(one.GetCmd(), two.GetCmd());
  }
}

TEST(MixedLoad, KeysHaveTenDigitsOrMore) {
  EXPECT_EQ(KeyOfNumber(0), "key-0000000000");
  EXPECT_EQ(KeyOfNumber(1234567890), "key-1234567890");
  EXPECT_EQ(KeyOfNumber(12345678901), "key-12345678901");
}

}  // namespace
}  // namespace OstrandCli
