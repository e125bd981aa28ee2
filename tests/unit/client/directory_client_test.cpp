// When the client asks, whom, and what it does about directories that fail.
#include "client/directory_client.h"

#include "unit/client/directory_client_test.h"

namespace OstrandTests {
namespace {

using OSTRNET::CConnector;

TEST_F(DirectoryClientTest, ConnectsAndAsksAtTheStart) {
  Make();
  EXPECT_EQ(At(0).connect_count(), 0);
  Update(kStart);
  EXPECT_EQ(At(0).connect_count(), 1);
  EXPECT_EQ(Asked(0), 0u);
  Update(kStart + 10);
  EXPECT_EQ(Asked(0), 0u);
  At(0).SetStatus(CConnector::STATUS_CONNECTED);
  Update(kStart + 20);
  ASSERT_EQ(Asked(0), 1u);
  EXPECT_EQ(At(0).connect_count(), 1);
  EXPECT_EQ(At(1).connect_count() + At(2).connect_count(), 0);
}

TEST_F(DirectoryClientTest, NamesApplicationZoneAndItsOwnVersion) {
  m_options.zones = {-5};
  MakeAccepting();
  ConnectAndAsk(kStart);
  ASSERT_EQ(Asked(0), 1u);
  const std::string frame = At(0).sent()[0];
  const auto pkg = std::make_unique<DirPkg>();
  ASSERT_EQ(UnpackDirRequest(*pkg, frame.data(), frame.size()), 0);
  EXPECT_EQ(uint64_t{pkg->stHead.ullAppID}, 7u);
  EXPECT_EQ(int32_t{pkg->stBody.stReqGetTablesAndAccess.iAppID}, 7);
  EXPECT_EQ(int32_t{pkg->stBody.stReqGetTablesAndAccess.iZoneID}, -5);
  EXPECT_STREQ(pkg->stBody.stReqGetTablesAndAccess.szApiVersion, "1.2.3");
}

TEST_F(DirectoryClientTest, CutsAVersionThatIsTooLong) {
  m_options.api_version = std::string(1000, 'v');
  MakeAccepting();
  ConnectAndAsk(kStart);
  const auto pkg = std::make_unique<DirPkg>();
  const std::string frame = At(0).sent().at(0);
  ASSERT_EQ(UnpackDirRequest(*pkg, frame.data(), frame.size()), 0);
  EXPECT_EQ(pkg->stBody.stReqGetTablesAndAccess.szApiVersion, std::string(63, 'v'));
}

TEST_F(DirectoryClientTest, AsksForTheZonesOneBehindTheOther) {
  m_options.zones = {3, 1, 2};
  MakeAccepting();
  ConnectAndAsk(kStart);
  for (size_t i = 0; i < 3; ++i) {
    ASSERT_EQ(Asked(0), i + 1);
    EXPECT_EQ(m_client->AnsweredRounds(), 0u);
    Deliver(0, GoodFrame(m_options.zones[i]));
    Update(kStart + 1);
    ASSERT_EQ(m_handed_on.size(), i + 1);
    EXPECT_EQ(m_handed_on[i].zone, m_options.zones[i]);
  }
  EXPECT_EQ(m_client->AnsweredRounds(), 1u);
  EXPECT_EQ(Asked(0), 3u);
}

TEST_F(DirectoryClientTest, AsksAgainOverTheSameConnectionAfterTheRefreshTime) {
  m_options.refresh_ms = 5000;
  MakeAccepting();
  int64_t now_ms = kStart;
  for (size_t round = 1; round <= 5; ++round) {
    ConnectAndAsk(now_ms);
    ASSERT_EQ(Asked(0), round);
    now_ms += 100;
    Deliver(0, GoodFrame(1));
    Update(now_ms);
    EXPECT_EQ(m_client->AnsweredRounds(), round);
    Update(now_ms + 4999);
    EXPECT_EQ(Asked(0), round);
    now_ms += 5000;
  }
  EXPECT_EQ(At(0).connect_count(), 1);
  EXPECT_EQ(m_client->Failures(), 0u);
  EXPECT_TRUE(m_logger.Lines().empty());
}

TEST_F(DirectoryClientTest, ConnectsAnewWhenTheConnectionWasLostBetweenTwoRounds) {
  MakeAccepting();
  ConnectAndAsk(kStart);
  Deliver(0, GoodFrame(1));
  Update(kStart);
  At(0).SetStatus(CConnector::STATUS_DISCONNECTED);
  Update(kStart + 5000);
  EXPECT_EQ(At(0).connect_count(), 2);
  Update(kStart + 5000);
  EXPECT_EQ(Asked(0), 2u);
  EXPECT_EQ(m_client->Failures(), 0u);
}

TEST_F(DirectoryClientTest, KnowsTheFramesOfADirectory) {
  Make();
  const std::string frame = GoodFrame(1);
  OSTRNET::IPackParser* parser = m_mgr.creations()[0].parser;
  EXPECT_EQ(parser->ParsePackLength(frame.data(), 19), 0);
  EXPECT_EQ(parser->ParsePackLength(frame.data(), 20), 20 + 35908);
  EXPECT_LT(parser->ParsePackLength("this is no frame of a directory", 31), 0);
  EXPECT_GE(m_mgr.creations()[0].buffer_size, 20 + 35908);
}

TEST_F(DirectoryClientTest, DoesNothingWithoutUrlsOrZones) {
  m_options.zones.clear();
  MakeAccepting();
  ConnectAndAsk(kStart);
  EXPECT_EQ(At(0).connect_count(), 0);
  m_client.reset();
  m_options.zones = {1};
  m_options.urls.clear();
  MakeAccepting();
  ConnectAndAsk(kStart);
  EXPECT_EQ(m_client->Failures(), 0u);
}

TEST_F(DirectoryClientTest, RemovesItsConnectors) {
  Make();
  EXPECT_EQ(m_mgr.live_count(), 3u);
  m_client.reset();
  EXPECT_EQ(m_mgr.live_count(), 0u);
}

struct Failure {
  const char* name;
  // Makes the first directory, which is being connected to since `now`, fail. Answers the time at
  // which the client notices.
  std::function<int64_t(OstrandFakes::ScriptedConnector& directory, int64_t now)> happens;
  const char* reason;
};

void Accept(OstrandFakes::ScriptedConnector& directory) {
  directory.SetStatus(CConnector::STATUS_CONNECTED);
}

class DirectoryClientFailureTest : public DirectoryClientTest,
                                   public testing::WithParamInterface<Failure> {};

TEST_P(DirectoryClientFailureTest, RestsAndTurnsToTheNextDirectory) {
  MakeAccepting();
  At(0).SetConnect(0, CConnector::STATUS_CONNECTING);
  Update(kStart);
  const int64_t now_ms = GetParam().happens(At(0), kStart);
  Update(now_ms);  // notices that it is connected
  Update(now_ms);
  ASSERT_EQ(m_client->Failures(), 1u);
  const int64_t rest_ms = RestTold();
  EXPECT_EQ(Warnings(),
            (std::vector<std::string>{
                std::string("directory tcp://10.0.0.1:9000: ") + GetParam().reason +
                "; the route stays as it is, next attempt in " + std::to_string(rest_ms) + " ms"}));
  EXPECT_EQ(m_failures,
            std::vector<std::string>{std::string("tcp://10.0.0.1:9000: ") + GetParam().reason});
  EXPECT_EQ(m_client->NextDueMs(), now_ms + rest_ms);
  EXPECT_EQ(At(0).disconnects(), std::vector<int>{0});
  EXPECT_EQ(At(0).queued_frames(), 0u);
  EXPECT_TRUE(m_handed_on.empty());

  Update(now_ms + rest_ms - 1);
  EXPECT_EQ(At(1).connect_count(), 0);
  Update(now_ms + rest_ms);
  EXPECT_EQ(At(1).connect_count(), 1);
  Update(now_ms + rest_ms);
  Deliver(1, GoodFrame(1));
  Update(now_ms + rest_ms);
  EXPECT_EQ(m_handed_on.size(), 1u);
  Update(now_ms + rest_ms + 5000);
  EXPECT_EQ(Asked(1), 2u) << "it stays with the one that answers";
  EXPECT_EQ(At(0).connect_count(), 1);
}

INSTANTIATE_TEST_SUITE_P(
    Failures, DirectoryClientFailureTest,
    testing::Values(Failure{"Refused",
                            [](auto& directory, int64_t now) {
                              directory.SetStatus(CConnector::STATUS_DISCONNECTED);
                              directory.SetLastErrDesc("connect: Connection refused");
                              return now + 1;
                            },
                            "connect: Connection refused"},
                    Failure{"NotAcceptedInTime", [](auto&, int64_t now) { return now + 3000; },
                            "it does not accept the connection in time"},
                    Failure{"QueueFull",
                            [](auto& directory, int64_t now) {
                              Accept(directory);
                              directory.SetSendResult(0);
                              directory.SetLastErrDesc("full");
                              return now;
                            },
                            "full"},
                    Failure{"NotSent",
                            [](auto& directory, int64_t now) {
                              Accept(directory);
                              directory.SetSendResult(-1);
                              directory.SetLastErrDesc("not connected");
                              return now;
                            },
                            "not connected"},
                    Failure{"Undecodable",
                            [](auto& directory, int64_t now) {
                              Accept(directory);
                              directory.QueueFrame("no answer");
                              directory.QueueFrame("and another that is none");
                              return now;
                            },
                            "its answer cannot be decoded"},
                    Failure{"Unusable",
                            [](auto& directory, int64_t now) {
                              Accept(directory);
                              const auto pkg = std::make_unique<DirPkg>();
                              std::memset(static_cast<void*>(pkg.get()), 0, sizeof(*pkg));
                              std::string frame(ostrand_protocol_dir::OSTRDIR_MAX_FRAME_LEN, '\0');
                              size_t len = frame.size();
                              EXPECT_EQ(PackDirResponse(&frame[0], len, *pkg), 0);
                              directory.QueueFrame(frame.substr(0, len));
                              return now;
                            },
                            "its answer cannot be used"}),
    [](const auto& tested) { return tested.param.name; });

TEST_F(DirectoryClientTest, TurnsToTheNextWhenTheAttemptToConnectCannotBegin) {
  MakeAccepting();
  At(0).SetConnect(-1);
  At(0).SetLastErrDesc("socket: Too many open files");
  Update(kStart);
  EXPECT_EQ(m_client->Failures(), 1u);
  EXPECT_NE(Warnings().at(0).find("socket: Too many open files"), std::string::npos);
  Update(kStart + RestTold());
  EXPECT_EQ(At(1).connect_count(), 1);
}

TEST_F(DirectoryClientTest, HasThePatienceForAnAnswerAndNoLonger) {
  MakeAccepting();
  ConnectAndAsk(kStart);
  Update(kStart + 2999);
  EXPECT_EQ(m_client->Failures(), 0u);
  Update(kStart + 3000);
  EXPECT_EQ(m_client->Failures(), 1u);
  EXPECT_NE(Warnings().at(0).find("it does not answer in time"), std::string::npos);
}

TEST_F(DirectoryClientTest, HasThePatienceAnewForEachZone) {
  m_options.zones = {1, 2};
  MakeAccepting();
  ConnectAndAsk(kStart);
  Deliver(0, GoodFrame(1));
  Update(kStart + 2900);
  Update(kStart + 5899);
  EXPECT_EQ(m_client->Failures(), 0u);
  Update(kStart + 5900);
  EXPECT_EQ(m_client->Failures(), 1u);
  EXPECT_EQ(m_handed_on.size(), 1u);
}

TEST_F(DirectoryClientTest, TakesAnAnswerThatCameBeforeTheConnectionWasLost) {
  MakeAccepting();
  ConnectAndAsk(kStart);
  Deliver(0, GoodFrame(1));
  At(0).SetStatus(CConnector::STATUS_DISCONNECTED);
  Update(kStart + 10);
  EXPECT_EQ(m_handed_on.size(), 1u);
}

TEST_F(DirectoryClientTest, NoticesThatTheConnectionWasLostWhileItWaits) {
  MakeAccepting();
  ConnectAndAsk(kStart);
  At(0).SetStatus(CConnector::STATUS_DISCONNECTED);
  At(0).SetLastErrDesc("closed by the peer");
  Update(kStart + 10);
  EXPECT_EQ(m_client->Failures(), 1u);
  EXPECT_NE(Warnings().at(0).find("closed by the peer"), std::string::npos);
}

TEST_F(DirectoryClientTest, DoesNotTakeAnAnswerThatComesAfterItGaveUp) {
  m_options.urls.resize(1);
  MakeAccepting();
  ConnectAndAsk(kStart);
  Update(kStart + 3000);
  ASSERT_EQ(m_client->Failures(), 1u);
  const int64_t again_ms = kStart + 3000 + RestTold();
  ConnectAndAsk(again_ms);
  Deliver(0, AnswerFrame(1, {"tcp://10.1.0.9:100"}));
  Update(again_ms);
  ASSERT_EQ(m_handed_on.size(), 1u);
  EXPECT_EQ(m_handed_on[0].rows[0].first, "tcp://10.1.0.9:100");
}

TEST_F(DirectoryClientTest, BeginsTheRoundAnewAtTheNextDirectory) {
  m_options.zones = {1, 2};
  MakeAccepting();
  ConnectAndAsk(kStart);
  Deliver(0, GoodFrame(1));
  Update(kStart);
  Update(kStart + 3000);  // no answer for zone 2
  const int64_t again_ms = kStart + 3000 + RestTold();
  ConnectAndAsk(again_ms);
  for (const int32_t zone : {1, 2}) {
    Deliver(1, GoodFrame(zone));
    Update(again_ms);
  }
  EXPECT_EQ(m_handed_on.size(), 3u);
  EXPECT_EQ(m_client->AnsweredRounds(), 1u);
}

TEST_F(DirectoryClientTest, GoesAroundAllDirectories) {
  MakeAccepting();
  for (size_t url = 0; url < 3; ++url) {
    At(url).SetConnect(-1);
  }
  int64_t now_ms = kStart;
  for (int failure = 0; failure < 9; ++failure) {
    Update(now_ms);
    ASSERT_EQ(At(static_cast<size_t>(failure) % 3).connect_count(), failure / 3 + 1);
    now_ms += RestTold();
  }
}

TEST_F(DirectoryClientTest, SaysWhichDirectoryCannotBeUsedAndTriesTheOthers) {
  m_mgr.FailCreation(1, "the url is not of the form tcp://HOST:PORT");
  Make();
  EXPECT_EQ(Errors(), (std::vector<std::string>{
                          "no connector for directory tcp://10.0.0.1:9000: the url is not of the "
                          "form tcp://HOST:PORT"}));
  Update(kStart);
  EXPECT_EQ(m_client->Failures(), 1u);
  EXPECT_NE(Warnings().at(0).find("the address cannot be used"), std::string::npos);
  Update(kStart + RestTold());
  EXPECT_EQ(At(1).connect_count(), 1);
}

// The rests of so many failures behind each other.
class DirectoryClientRestTest : public DirectoryClientTest {
 protected:
  std::vector<int64_t> Rests(uint32_t seed, size_t count) {
    m_client.reset();
    m_logger.Clear();
    m_options.urls.resize(1);
    Seed(seed);
    MakeAccepting();
    At(0).SetConnect(-1);
    std::vector<int64_t> rests;
    int64_t now_ms = kStart;
    for (size_t i = 0; i < count; ++i) {
      Update(now_ms);
      EXPECT_EQ(At(0).connect_count(), static_cast<int>(i) + 1);
      rests.push_back(RestTold());
      now_ms += rests.back();
      Update(now_ms - 1);
      EXPECT_EQ(At(0).connect_count(), static_cast<int>(i) + 1);
    }
    return rests;
  }
};

TEST_F(DirectoryClientRestTest, DoublesFromFailureToFailureUpToALimitAndVariesByAQuarter) {
  for (uint32_t seed = 1; seed <= 50; ++seed) {
    int64_t expected_ms = 200;
    for (const int64_t rest_ms : Rests(seed, 12)) {
      EXPECT_GE(rest_ms, expected_ms * 3 / 4) << seed;
      EXPECT_LE(rest_ms, expected_ms * 5 / 4) << seed;
      expected_ms = std::min<int64_t>(2 * expected_ms, 30000);
    }
  }
}

TEST_F(DirectoryClientRestTest, VariesOverTheWholeRangeAndFromClientToClient) {
  m_options.first_backoff_ms = 1000;
  m_options.longest_backoff_ms = 1000;
  const std::vector<int64_t> rests = Rests(1, 500);
  EXPECT_LT(*std::min_element(rests.begin(), rests.end()), 770);
  EXPECT_GT(*std::max_element(rests.begin(), rests.end()), 1230);
  EXPECT_EQ(Rests(1, 20), std::vector<int64_t>(rests.begin(), rests.begin() + 20));
  EXPECT_NE(Rests(2, 20), std::vector<int64_t>(rests.begin(), rests.begin() + 20));
}

TEST_F(DirectoryClientRestTest, StandsRestsTooShortToVary) {
  m_options.first_backoff_ms = 1;
  m_options.longest_backoff_ms = 2;
  EXPECT_EQ(Rests(1, 4), (std::vector<int64_t>{1, 2, 2, 2}));
}

TEST_F(DirectoryClientRestTest, BeginsWithTheShortRestAfterAnAnswer) {
  m_options.urls.resize(1);
  MakeAccepting();
  At(0).SetConnect(-1);
  int64_t now_ms = kStart;
  for (int i = 0; i < 6; ++i) {
    Update(now_ms);
    now_ms += RestTold();
  }
  EXPECT_GE(RestTold(), 6400 * 3 / 4);
  At(0).SetConnect(0, CConnector::STATUS_CONNECTED);
  ConnectAndAsk(now_ms);
  Deliver(0, GoodFrame(1));
  Update(now_ms);
  ASSERT_EQ(m_handed_on.size(), 1u);
  Update(now_ms + 5000);
  Update(now_ms + 8000);
  ASSERT_EQ(m_client->Failures(), 7u);
  EXPECT_LE(RestTold(), 250);
}

// A caller that was stopped for an hour neither floods the directory nor forgets it.
TEST_F(DirectoryClientTest, AsksOnceHoweverLateItIsDriven) {
  MakeAccepting();
  ConnectAndAsk(kStart);
  Deliver(0, GoodFrame(1));
  Update(kStart);
  for (int i = 0; i < 10; ++i) {
    Update(kStart + 3600000);
  }
  EXPECT_EQ(Asked(0), 2u);
}

}  // namespace
}  // namespace OstrandTests
