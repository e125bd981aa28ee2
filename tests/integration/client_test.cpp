// The client library against a fleet of its own over loopback.
#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>

#include "client/error_text.h"
#include "client/polling_client.h"
#include "fleet/fleet.h"
#include "protocol/ostrand_api_cmds.h"

namespace OstrandService {
namespace {

using ostrand_protocol_cs::FieldView;
using namespace ostrand_protocol_cs;  // NOLINT: commands

constexpr int32_t kZone = 1;
constexpr char kTable[] = "user";

class ClientTest : public testing::Test {
 protected:
  void StartFleet(size_t proxies) {
    OstrandFleet::FleetOptions options;
    options.proxies = proxies;
    options.create_unknown_tables = true;
    m_fleet = std::make_unique<OstrandFleet::Fleet>(options);
    ASSERT_EQ(m_fleet->Start(), 0) << m_fleet->Error();
  }

  ClientOptions Options() {
    ClientOptions options;
    options.app_id = 7;
    options.zones = {kZone};
    options.directory_urls = {m_fleet->DirectoryUrl()};
    options.tables = {{kTable, kZone, nullptr}};
    options.signature = "a signature";
    options.directory_refresh_ms = 50;
    return options;
  }

  void StartClient(const ClientOptions& options) {
    m_client = std::make_unique<PollingClient>(options);
    ASSERT_EQ(m_client->Start(), 0);
    ASSERT_EQ(m_client->WaitReady(5000), 0) << m_client->StatusText();
  }

  // The result of one request with one value field.
  int32_t Do(uint32_t cmd, const std::string& key, const std::string& value = "") {
    m_request.Begin(cmd, kTable).Zone(kZone);
    m_request.Key("id", key);
    if (!value.empty()) {
      m_request.Set("name", value);
    }
    const int ret = m_client->Call(m_request, m_response);
    EXPECT_EQ(ret, 0) << ErrorText(ret);
    return ret != 0 ? ret : m_response.GetResult();
  }

  std::string Value() {
    FieldView value;
    return m_response.GetValue("name", value) ? std::string(value.value) : std::string();
  }

  std::unique_ptr<OstrandFleet::Fleet> m_fleet;
  std::unique_ptr<PollingClient> m_client;
  ClientRequest m_request;
  ClientResponse m_response;
};

TEST_F(ClientTest, WritesReadsChangesAndDeletesARecord) {
  StartFleet(3);
  StartClient(Options());
  EXPECT_EQ(Do(OSTRAND_API_INSERT_REQ, "42", "Ada"), 0);
  EXPECT_EQ(Do(OSTRAND_API_GET_REQ, "42"), 0);
  EXPECT_EQ(Value(), "Ada");
  EXPECT_EQ(Do(OSTRAND_API_REPLACE_REQ, "42", "Grace"), 0);
  EXPECT_EQ(Do(OSTRAND_API_GET_REQ, "42"), 0);
  EXPECT_EQ(Value(), "Grace");
  EXPECT_EQ(Do(OSTRAND_API_INSERT_REQ, "42", "Eve"), -1293);
  EXPECT_EQ(Do(OSTRAND_API_DELETE_REQ, "42"), 0);
  EXPECT_EQ(Do(OSTRAND_API_GET_REQ, "42"), -7949);
}

TEST_F(ClientTest, KeepsManyRequestsInFlightAndGivesEachItsOutcome) {
  StartFleet(8);
  StartClient(Options());
  std::map<uint64_t, std::string> expected;
  size_t answered = 0;
  constexpr int kRequests = 20000;
  for (int i = 0; i < kRequests;) {
    while (i < kRequests && m_client->InFlight() < 256) {
      const std::string key = std::to_string(i / 2);
      m_request.Begin(i % 2 == 0 ? OSTRAND_API_REPLACE_REQ : OSTRAND_API_GET_REQ, kTable)
          .Zone(kZone);
      m_request.Key("id", key);
      if (i % 2 == 0) {
        m_request.Set("name", "value of " + key);
      }
      ASSERT_EQ(m_client->Send(m_request), 0);
      expected[m_request.GetAsynID()] = i % 2 == 0 ? "" : "value of " + key;
      ++i;
    }
    while (m_client->Receive(m_response,
                             m_client->InFlight() >= 256 || i == kRequests ? 5000 : 0) == 1) {
      ASSERT_EQ(m_response.GetResult(), 0);
      const auto found = expected.find(m_response.GetAsynID());
      ASSERT_NE(found, expected.end());
      if (m_response.GetCmd() == OSTRAND_API_GET_RES) {
        ASSERT_EQ(Value(), found->second);
      }
      expected.erase(found);
      ++answered;
      if (m_client->InFlight() == 0) break;
    }
  }
  EXPECT_EQ(answered, static_cast<size_t>(kRequests));
  EXPECT_EQ(m_client->Counters().timed_out, 0u);
  EXPECT_EQ(m_client->Counters().dropped, 0u);
}

TEST_F(ClientTest, TimesARequestOutWhoseAnswerNeverComes) {
  StartFleet(1);
  ClientOptions options = Options();
  options.default_timeout_ms = 50;
  StartClient(options);
  OstrandFleet::ProxyFaults faults;
  faults.drop_every = 1;
  m_fleet->SetFaults(0, faults);
  EXPECT_EQ(Do(OSTRAND_API_GET_REQ, "42"), ClientResponse::kResultTimeOut);
  EXPECT_EQ(m_client->Counters().timed_out, 1u);
}

TEST_F(ClientTest, RefusesWhatCannotBeSentAndSendsNothing) {
  StartFleet(1);
  StartClient(Options());
  m_request.Begin(OSTRAND_API_GET_REQ, "unknown").Zone(kZone);
  m_request.Key("id", "1");
  EXPECT_EQ(m_client->Send(m_request), CLIENT_ERR_TABLE);
  m_request.Begin(OSTRAND_API_GET_REQ, kTable).Zone(kZone);
  EXPECT_EQ(m_client->Send(m_request), CLIENT_ERR_KEY);
  m_request.Begin(OSTRAND_API_HEART_BEAT_REQ, kTable).Zone(kZone);
  EXPECT_EQ(m_client->Send(m_request), CLIENT_ERR_REQUEST);
  EXPECT_EQ(m_client->InFlight(), 0u);
}

TEST_F(ClientTest, ATableInSeveralZonesNeedsItsZone) {
  StartFleet(1);
  ClientOptions options = Options();
  options.zones = {kZone, kZone + 1};
  options.tables = {
      {kTable, kZone, nullptr}, {kTable, kZone + 1, nullptr}, {"one", kZone, nullptr}};
  PollingClient client(options);
  ASSERT_EQ(client.Start(), 0);
  EXPECT_EQ(client.Send(Get(kTable).Key("id", 1)), CLIENT_ERR_TABLE);
  EXPECT_NE(client.Send(Get(kTable).Zone(kZone + 1).Key("id", 1)), CLIENT_ERR_TABLE);
  EXPECT_NE(client.Send(Get("one").Key("id", 1)), CLIENT_ERR_TABLE);
  EXPECT_EQ(client.Send(Get("one").Zone(kZone + 1).Key("id", 1)), CLIENT_ERR_TABLE);
}

TEST_F(ClientTest, FollowsARouteThatChangesUnderLoadWithoutAWrongAnswer) {
  StartFleet(6);
  const auto urls = m_fleet->ProxyUrls();
  m_fleet->SetRoute(kZone, {urls[0], urls[1], urls[2], urls[3]});
  StartClient(Options());
  for (int i = 0; i < 200; ++i) {
    ASSERT_EQ(Do(OSTRAND_API_REPLACE_REQ, std::to_string(i), "v" + std::to_string(i)), 0);
    if (i == 50) m_fleet->SetRoute(kZone, {urls[2], urls[3], urls[4], urls[5]});
    if (i == 120) m_fleet->SetRoute(kZone, urls);
  }
  for (int i = 0; i < 200; ++i) {
    ASSERT_EQ(Do(OSTRAND_API_GET_REQ, std::to_string(i)), 0);
    ASSERT_EQ(Value(), "v" + std::to_string(i));
  }
  EXPECT_EQ(m_client->Counters().timed_out, 0u);
}

TEST_F(ClientTest, StopTimesOutWhatIsInFlight) {
  StartFleet(2);
  StartClient(Options());
  OstrandFleet::ProxyFaults faults;
  faults.drop_every = 1;
  m_fleet->SetFaults(0, faults);
  m_fleet->SetFaults(1, faults);
  for (int i = 0; i < 10; ++i) {
    m_request.Begin(OSTRAND_API_GET_REQ, kTable).Zone(kZone);
    m_request.Key("id", std::to_string(i));
    ASSERT_EQ(m_client->Send(m_request), 0);
  }
  int outcomes = 0;
  EXPECT_EQ(m_client->Stop(0,
                           [&](ClientResponse& response) {
                             ++outcomes;
                             EXPECT_EQ(response.GetResult(), ClientResponse::kResultTimeOut);
                             EXPECT_STREQ(response.GetTableName(), kTable);
                           }),
            10u);
  EXPECT_EQ(outcomes, 10);
  EXPECT_EQ(m_client->Send(m_request), CLIENT_ERR_NOT_STARTED);
}

}  // namespace
}  // namespace OstrandService
