// Which answers of a directory are handed on, and what is left out of them.
#include <climits>

#include "client/directory_client.h"
#include "unit/client/directory_client_test.h"

namespace OstrandTests {
namespace {

using Rows = std::vector<std::pair<std::string, std::string>>;

struct BadAnswer {
  const char* name;
  std::function<void(DirAnswer&)> edit;
  std::vector<std::string> errors;
};

class DirectoryClientRefusalTest : public DirectoryClientTest,
                                   public testing::WithParamInterface<BadAnswer> {};

TEST_P(DirectoryClientRefusalTest, SaysWhyAndHandsNothingOn) {
  MakeAccepting();
  ConnectAndAsk(kStart);
  Deliver(0, AnswerFrame(1, {"tcp://10.1.0.1:100", "tcp://10.1.0.2:100"}, GetParam().edit));
  Update(kStart);
  EXPECT_TRUE(m_handed_on.empty());
  EXPECT_EQ(m_client->Failures(), 1u);
  EXPECT_EQ(m_client->AnsweredRounds(), 0u);
  EXPECT_EQ(Errors(), GetParam().errors);
  Update(kStart + RestTold());
  EXPECT_EQ(At(1).connect_count(), 1) << "the next directory may know better";
}

std::string Refused(const char* fields) { return std::string("answer refused: ") + fields; }

INSTANTIATE_TEST_SUITE_P(
    Answers, DirectoryClientRefusalTest,
    testing::Values(
        BadAnswer{"Result",
                  [](DirAnswer& answer) { answer.iResult = -3; },
                  {Refused("result -3, application 7 (ours 7), zone 1 (asked for 1), proxies 2")}},
        BadAnswer{"PositiveResult",
                  [](DirAnswer& answer) { answer.iResult = 1; },
                  {Refused("result 1, application 7 (ours 7), zone 1 (asked for 1), proxies 2")}},
        BadAnswer{"OtherApplication",
                  [](DirAnswer& answer) { answer.iAppID = 8; },
                  {Refused("result 0, application 8 (ours 7), zone 1 (asked for 1), proxies 2")}},
        BadAnswer{"OtherZone",
                  [](DirAnswer& answer) { answer.iZoneID = 2; },
                  {Refused("result 0, application 7 (ours 7), zone 2 (asked for 1), proxies 2")}},
        BadAnswer{"NoProxies",
                  [](DirAnswer& answer) { answer.iAccessCount = 0; },
                  {Refused("result 0, application 7 (ours 7), zone 1 (asked for 1), proxies 0")}},
        BadAnswer{"MinusOneProxies",
                  [](DirAnswer& answer) { answer.iAccessCount = -1; },
                  {Refused("result 0, application 7 (ours 7), zone 1 (asked for 1), proxies -1")}},
        BadAnswer{"LeastProxies",
                  [](DirAnswer& answer) { answer.iAccessCount = INT_MIN; },
                  {Refused("result 0, application 7 (ours 7), zone 1 (asked for 1), "
                           "proxies -2147483648")}},
        BadAnswer{
            "OnlyBadRows",
            [](DirAnswer& answer) {
              SetRow(answer.aszAccessUrlList[0], "");
              SetRow(answer.aszAccessUrlList[1], "tcp://10.1.0.256:100");
            },
            {"proxy row 0 left out: \"\" is not of the form tcp://HOST:PORT or tcp://[IPV6]:PORT",
             "proxy row 1 left out: \"tcp://10.1.0.256:100\" is not of the form "
             "tcp://HOST:PORT or tcp://[IPV6]:PORT",
             "answer refused: zone 1 has no usable proxy"}}),
    [](const auto& tested) { return tested.param.name; });

TEST_F(DirectoryClientTest, TakesTheAnswersForOtherZonesThanTheOneItCannotUse) {
  m_options.zones = {1, 99, 2};
  MakeAccepting();
  ConnectAndAsk(kStart);
  for (const int32_t zone : m_options.zones) {
    Deliver(0, zone == 99 ? AnswerFrame(99, {}) : GoodFrame(zone));
    Update(kStart);
  }
  ASSERT_EQ(m_handed_on.size(), 2u);
  EXPECT_EQ(m_handed_on[0].zone, 1);
  EXPECT_EQ(m_handed_on[1].zone, 2);
  EXPECT_EQ(m_client->AnsweredRounds(), 0u);
  EXPECT_EQ(m_client->Failures(), 1u);
}

// The good answers of such a round do not make the rests short again.
TEST_F(DirectoryClientTest, AsksMoreAndMoreSeldomWhileAZoneIsUnusable) {
  m_options.urls.resize(1);
  m_options.zones = {1, 99};
  MakeAccepting();
  int64_t now_ms = kStart;
  for (int64_t expected_ms = 200; expected_ms <= 6400; expected_ms *= 2) {
    ConnectAndAsk(now_ms);
    Deliver(0, GoodFrame(1));
    Update(now_ms);
    Deliver(0, AnswerFrame(99, {}));
    Update(now_ms);
    EXPECT_GE(RestTold(), expected_ms * 3 / 4);
    now_ms += RestTold();
  }
}

class DirectoryClientRowsTest : public DirectoryClientTest {
 protected:
  // The rows that are handed on of an answer.
  Rows Pass(const std::vector<std::string>& urls,
            const std::function<void(DirAnswer&)>& edit = {}) {
    MakeAccepting();
    ConnectAndAsk(kStart);
    Deliver(0, AnswerFrame(1, urls, edit));
    Update(kStart);
    EXPECT_EQ(m_handed_on.size(), 1u);
    return m_handed_on.empty() ? Rows() : m_handed_on[0].rows;
  }
};

TEST_F(DirectoryClientRowsTest, HandsAGoodAnswerOnWhole) {
  const Rows rows = Pass({"tcp://10.1.0.1:100", "tcp://10.1.0.1:101"}, [](DirAnswer& answer) {
    answer.stConfData.iHeartbeatMs = 123;
    answer.iTableCount = 1;
    SetRow(answer.aszTableNameList[0], "user");
  });
  EXPECT_EQ(rows, (Rows{{"tcp://10.1.0.1:100", "id0"}, {"tcp://10.1.0.1:101", "id1"}}));
  EXPECT_EQ(int32_t{m_handed_on[0].answer.stConfData.iHeartbeatMs}, 123);
  EXPECT_EQ(int32_t{m_handed_on[0].answer.iTableCount}, 1);
  EXPECT_STREQ(m_handed_on[0].answer.aszTableNameList[0], "user");
  EXPECT_TRUE(m_logger.Lines().empty());
}

TEST_F(DirectoryClientRowsTest, LeavesOutRowsThatNoConnectorCouldBeMadeFor) {
  const Rows rows = Pass({"tcp://10.1.0.1:100", "", "tcp://10.1.0.1:0", "tcp://10.1.0.2:100",
                          "udp://10.1.0.3:100", "tcp://10.1.0.4:100"});
  EXPECT_EQ(rows, (Rows{{"tcp://10.1.0.1:100", "id0"},
                        {"tcp://10.1.0.2:100", "id3"},
                        {"tcp://10.1.0.4:100", "id5"}}));
  EXPECT_EQ(
      Errors(),
      (std::vector<std::string>{
          "proxy row 1 left out: \"\" is not of the form tcp://HOST:PORT or tcp://[IPV6]:PORT",
          "proxy row 2 left out: \"tcp://10.1.0.1:0\" is not of the form "
          "tcp://HOST:PORT or tcp://[IPV6]:PORT",
          "proxy row 4 left out: \"udp://10.1.0.3:100\" is not of the form "
          "tcp://HOST:PORT or tcp://[IPV6]:PORT"}));
}

TEST_F(DirectoryClientRowsTest, HandsOnNamesAndIpv6Addresses) {
  const Rows rows = Pass({"tcp://proxy-1.example:100", "tcp://[::1]:100"});
  EXPECT_EQ(rows, (Rows{{"tcp://proxy-1.example:100", "id0"}, {"tcp://[::1]:100", "id1"}}));
}

TEST_F(DirectoryClientRowsTest, LeavesOutRowsThatAreThereAlready) {
  const Rows rows = Pass(
      {"tcp://10.1.0.1:100", "tcp://10.1.0.1:100", "tcp://10.1.0.2:100", "tcp://10.1.0.1:100"});
  EXPECT_EQ(rows, (Rows{{"tcp://10.1.0.1:100", "id0"}, {"tcp://10.1.0.2:100", "id2"}}));
  EXPECT_EQ(Errors(), (std::vector<std::string>{
                          "proxy row 1 left out: \"tcp://10.1.0.1:100\" is there twice",
                          "proxy row 3 left out: \"tcp://10.1.0.1:100\" is there twice"}));
}

TEST_F(DirectoryClientRowsTest, LeavesOutARowWithoutAnEnd) {
  const std::string endless = "tcp://10.1.0.1:" + std::string(46, '0') + "100";
  ASSERT_EQ(endless.size(), 64u);
  const Rows rows = Pass({endless, endless.substr(0, 15) + endless.substr(16)});
  EXPECT_EQ(rows, (Rows{{"tcp://10.1.0.1:" + std::string(45, '0') + "100", "id1"}}));
  EXPECT_EQ(Errors(), std::vector<std::string>{"proxy row 0 left out: \"" + endless +
                                               "\" has more than 63 characters"});
}

TEST_F(DirectoryClientRowsTest, HandsOnAnIdWithoutAnEnd) {
  const Rows rows = Pass({"", "tcp://10.1.0.1:100"}, [](DirAnswer& answer) {
    SetRow(answer.aszAccessIdList[1], std::string(32, 'i'));
  });
  EXPECT_EQ(rows, (Rows{{"tcp://10.1.0.1:100", std::string(32, 'i')}}));
}

std::vector<std::string> ManyUrls(int count) {
  std::vector<std::string> urls;
  for (int i = 0; i < count; ++i) {
    urls.push_back("tcp://10.1.0.1:" + std::to_string(1000 + i));
  }
  return urls;
}

TEST_F(DirectoryClientRowsTest, HandsOnAsManyRowsAsThereAre) {
  EXPECT_EQ(Pass(ManyUrls(200)).size(), 200u);
  EXPECT_TRUE(m_logger.Lines().empty());
}

TEST_F(DirectoryClientRowsTest, DoesNotBelieveACountThatIsLargerThanTheRecord) {
  const Rows rows = Pass(ManyUrls(250));
  ASSERT_EQ(rows.size(), 200u);
  EXPECT_EQ(rows[199], (std::pair<std::string, std::string>{"tcp://10.1.0.1:1199", "id199"}));
  EXPECT_EQ(Errors(), (std::vector<std::string>{"250 proxies, only the first 200 are used"}));
}

TEST_F(DirectoryClientRowsTest, DoesNotBelieveTheLargestCountEither) {
  EXPECT_EQ(Pass(ManyUrls(200), [](DirAnswer& answer) { answer.iAccessCount = INT_MAX; }).size(),
            200u);
}

TEST_F(DirectoryClientRowsTest, TellsWhatIsWrongOnceAndAgainWhenItChanges) {
  m_options.zones = {1, 2};
  MakeAccepting();
  int64_t now_ms = kStart;
  const auto round = [&](const std::string& bad) {
    m_logger.Clear();
    ConnectAndAsk(now_ms);
    for (const int32_t zone : {1, 2}) {
      Deliver(0, AnswerFrame(zone, {"tcp://10.1.0.1:100", zone == 1 ? bad : "tcp://10.1.0.1:101"}));
      Update(now_ms);
    }
    now_ms += m_options.refresh_ms;
    return Errors().size();
  };
  EXPECT_EQ(round("bad"), 1u);
  EXPECT_EQ(round("bad"), 0u);
  EXPECT_EQ(round("bad"), 0u);
  EXPECT_EQ(round("worse"), 1u);
  EXPECT_EQ(round("worse"), 0u);
  EXPECT_EQ(round("tcp://10.1.0.1:102"), 0u);
  EXPECT_EQ(round("worse"), 1u);
  EXPECT_EQ(m_client->AnsweredRounds(), 7u);
}

// A frame that ends early is filled up with zeros.
TEST_F(DirectoryClientRowsTest, LeavesOutRowsThatAShortAnswerDoesNotCarry) {
  MakeAccepting();
  ConnectAndAsk(kStart);
  std::string frame = AnswerFrame(1, ManyUrls(2));
  frame.resize(20 + 8408 + 64);  // behind the first row
  const auto body_len = static_cast<uint32_t>(frame.size() - 20);
  for (size_t i = 0; i < 4; ++i) {
    frame[8 + i] = static_cast<char>(body_len >> (24 - 8 * i));
  }
  Deliver(0, frame);
  Update(kStart);
  ASSERT_EQ(m_handed_on.size(), 1u);
  EXPECT_EQ(m_handed_on[0].rows, (Rows{{"tcp://10.1.0.1:1000", ""}}));
}

}  // namespace
}  // namespace OstrandTests
