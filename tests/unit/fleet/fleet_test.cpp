// The life of a fleet: starting, stopping, its proxies coming and going, its file.
#include "fleet/fleet.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <set>
#include <thread>

#include "protocol/byte_order.h"
#include "unit/fleet/fleet_test_kit.h"

namespace OstrandFleet {
namespace {

using namespace ostrand_protocol_cs;  // NOLINT: commands and records

int32_t SignUpAt(const std::string& url) {
  TestClient client(url);
  return client.is_connected() ? client.CallForResult(SignUpRequest()) : INT32_MIN;
}

uint16_t PortIn(const std::string& url) {
  return static_cast<uint16_t>(std::strtoul(url.c_str() + url.rfind(':') + 1, nullptr, 10));
}

TEST(FleetLife, OneLineStartsAFleet) {
  Fleet fleet;
  ASSERT_EQ(fleet.Start(), 0);
  EXPECT_EQ(fleet.ProxyCount(), 1U);
  EXPECT_EQ(fleet.DirectoryUrl().rfind("tcp://127.0.0.1:", 0), 0U);
  EXPECT_EQ(fleet.ProxyUrls(), (std::vector<std::string>{fleet.ProxyUrl(0)}));
  EXPECT_EQ(SignUpAt(fleet.ProxyUrl(0)), 0);
}

TEST(FleetLife, BeforeTheStartThereAreNoAddresses) {
  Fleet fleet(TestOptions(2));
  EXPECT_EQ(fleet.DirectoryUrl(), "");
  EXPECT_EQ(fleet.ProxyUrls(), (std::vector<std::string>{"", ""}));
  EXPECT_EQ(fleet.State(0), ProxyState::kDown);
  EXPECT_FALSE(fleet.WaitFor(0, [] { return false; }));
  EXPECT_TRUE(fleet.WaitFor(0, [] { return true; }));
}

TEST(FleetLife, FreePortsAreAllDifferent) {
  Fleet fleet(TestOptions(200));
  ASSERT_EQ(fleet.Start(), 0);
  const std::vector<std::string> urls = fleet.ProxyUrls();
  EXPECT_EQ(std::set<std::string>(urls.begin(), urls.end()).size(), 200U);
  EXPECT_EQ(SignUpAt(urls[199]), 0);
}

TEST(FleetLife, GivenPortsFollowEachOther) {
  // The ports behind one that is free may be in use: then another place is tried.
  for (int attempt = 0; attempt < 50; ++attempt) {
    auto probe = std::make_unique<Fleet>();
    ASSERT_EQ(probe->Start(), 0);
    FleetOptions options = TestOptions(2);
    options.port = PortIn(probe->DirectoryUrl());
    probe.reset();
    Fleet fleet(options);
    if (options.port > 65533 || fleet.Start() != 0) {
      continue;
    }
    EXPECT_EQ(PortIn(fleet.DirectoryUrl()), options.port);
    EXPECT_EQ(PortIn(fleet.ProxyUrl(0)), options.port + 1);
    EXPECT_EQ(PortIn(fleet.ProxyUrl(1)), options.port + 2);
    return;
  }
  FAIL() << "no three free ports in a row";
}

TEST(FleetLife, ThePortOfAKilledProxyIsKeptForIt) {
  Fleet first(TestOptions());
  ASSERT_EQ(first.Start(), 0);
  first.Kill(0);
  FleetOptions options;
  options.port = PortIn(first.ProxyUrl(0));
  options.proxies = 0;
  Fleet second(options);
  EXPECT_EQ(first.Restart(0), 0);
  EXPECT_EQ(second.Start(), -1);
}

TEST(FleetLife, PortsThatRunOverTheLastAreAnError) {
  FleetOptions options = TestOptions(4);
  options.port = 65532;
  Fleet fleet(options);
  EXPECT_EQ(fleet.Start(), -1);
  EXPECT_NE(fleet.Error().find("do not suffice"), std::string::npos);
}

TEST(FleetLife, APortThatIsTakenIsAnErrorWithAReason) {
  Fleet first;
  ASSERT_EQ(first.Start(), 0);
  const std::string url = first.DirectoryUrl();
  FleetOptions options;
  options.port = static_cast<uint16_t>(std::strtoul(url.c_str() + url.rfind(':') + 1, nullptr, 10));
  Fleet second(options);
  EXPECT_EQ(second.Start(), -1);
  EXPECT_EQ(second.Error(), "the directory gets no port: Address already in use");
}

TEST(FleetLife, ATableThatIsNoneIsAnErrorWithAReason) {
  FleetOptions options = TestOptions();
  options.tables[0].schema.name = std::string(40, 'n');
  Fleet fleet(options);
  EXPECT_EQ(fleet.Start(), -1);
  EXPECT_NE(fleet.Error().find("has no usable schema"), std::string::npos);
}

TEST(FleetLife, StopClosesEverythingAndStartBringsItBack) {
  Fleet fleet(TestOptions());
  ASSERT_EQ(fleet.Start(), 0);
  const std::string url = fleet.ProxyUrl(0);
  const auto client = TestClient::SignedUp(url);
  EXPECT_EQ(client->CallForResult(Request(OSTRAND_API_INSERT_REQ).Key(Uid(1))), 0);
  fleet.Stop();
  fleet.Stop();
  EXPECT_TRUE(client->IsClosedByPeer());
  EXPECT_FALSE(TestClient(url).is_connected());
  ASSERT_EQ(fleet.Start(), 0);
  EXPECT_EQ(fleet.ProxyUrl(0), url);
  EXPECT_EQ(TestClient::SignedUp(url)->CallForResult(Request(OSTRAND_API_GET_REQ).Key(Uid(1))), 0);
}

TEST(FleetLife, AThousandStartsAndStopsLeaveNothingBehind) {
  const auto descriptors = [] {
    const int fd = dup(0);
    close(fd);
    return fd;  // the lowest that is free
  };
  const int before = descriptors();
  Fleet fleet(TestOptions());
  for (int i = 0; i < 1000; ++i) {
    ASSERT_EQ(fleet.Start(), 0) << fleet.Error();
    TestClient client(fleet.ProxyUrl(0));
    EXPECT_TRUE(client.Send(SignUpRequest().Frame()));
    fleet.Stop();
  }
  EXPECT_LE(descriptors(), before + 3);
}

TEST(FleetLife, AKilledProxyIsGoneAtOnceAndComesBackOnItsPort) {
  Fleet fleet(TestOptions(2));
  ASSERT_EQ(fleet.Start(), 0);
  const std::string url = fleet.ProxyUrl(0);
  const auto client = TestClient::SignedUp(url);
  fleet.Kill(0);
  EXPECT_EQ(fleet.State(0), ProxyState::kDown);
  EXPECT_TRUE(client->IsClosedByPeer());
  EXPECT_FALSE(TestClient(url).is_connected());
  EXPECT_EQ(SignUpAt(fleet.ProxyUrl(1)), 0);
  EXPECT_EQ(fleet.Restart(0), 0);
  EXPECT_EQ(fleet.Restart(0), 0) << "harmless when it runs";
  EXPECT_EQ(fleet.ProxyUrl(0), url);
  EXPECT_EQ(SignUpAt(url), 0);
}

TEST(FleetLife, AProxyThatIsKilledWhileItAsksToStopStaysDown) {
  FleetOptions options = TestOptions();
  options.proxy.stop_ask_interval_ms = 1;
  options.proxy.stop_linger_ms = 0;
  Fleet fleet(options);
  ASSERT_EQ(fleet.Start(), 0);
  const auto client = TestClient::SignedUp(fleet.ProxyUrl(0));
  fleet.AskToStop(0);
  EXPECT_EQ(fleet.State(0), ProxyState::kStopping);
  fleet.Kill(0);
  EXPECT_FALSE(fleet.WaitFor(kNothingMs, [&] { return fleet.State(0) != ProxyState::kDown; }));
}

TEST(FleetLife, AProxyIndexThatDoesNotExistDoesNothing) {
  Fleet fleet(TestOptions());
  ASSERT_EQ(fleet.Start(), 0);
  fleet.Kill(7);
  fleet.SetFaults(7, {});
  fleet.AskToStop(7);
  fleet.SendBytes(7, "x");
  EXPECT_EQ(fleet.Restart(7), -1);
  EXPECT_EQ(fleet.ProxyUrl(7), "");
  EXPECT_EQ(fleet.Counters(7).connections_accepted, 0U);
}

TEST(FleetLife, AnyThreadMayAskAndASleeperIsWoken) {
  Fleet fleet(TestOptions());
  ASSERT_EQ(fleet.Start(), 0);
  std::vector<std::thread> threads;
  for (uint32_t n = 0; n < 4; ++n) {
    threads.emplace_back([&fleet, n] {
      const auto client = TestClient::SignedUp(fleet.ProxyUrl(0));
      for (uint32_t i = 0; i < 50; ++i) {
        EXPECT_EQ(client->CallForResult(Request(OSTRAND_API_INSERT_REQ).Key(Uid(100 * n + i))), 0);
        EXPECT_GE(fleet.Counters(0).table_requests, 1U);
      }
    });
  }
  EXPECT_TRUE(
      fleet.WaitFor(kPatienceMs, [&fleet] { return fleet.CountRecords(kZone, "user") == 200; }));
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_FALSE(fleet.WaitFor(0, [] { return false; }));
}

TEST(FleetLife, AWaitEndsWhenTheFleetStops) {
  Fleet fleet(TestOptions());
  ASSERT_EQ(fleet.Start(), 0);
  bool waits = false;
  std::thread waiter([&] {
    EXPECT_FALSE(fleet.WaitFor(3600 * 1000, [&waits] {
      waits = true;
      return false;
    }));
  });
  EXPECT_TRUE(fleet.WaitFor(kPatienceMs, [&waits] { return waits; }));
  fleet.Stop();
  waiter.join();
}

TEST(FleetLife, WhenDescriptorsAreUsedUpClientsWait) {
  Fleet fleet(TestOptions());
  ASSERT_EQ(fleet.Start(), 0);
  rlimit limit{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
  const auto client = std::make_unique<TestClient>(fleet.DirectoryUrl());
  EXPECT_TRUE(fleet.WaitFor(kPatienceMs,
                            [&] { return fleet.CountersOfDirectory().connections_accepted == 1; }));
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  rlimit full = limit;
  full.rlim_cur = static_cast<rlim_t>(fd) + 1;
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &full), 0);
  sockaddr address{};
  socklen_t len = sizeof(address);
  getpeername(client->fd(), &address, &len);
  EXPECT_EQ(connect(fd, &address, len), 0);
  const std::string question = DirectoryRequest(kZone);
  EXPECT_EQ(send(fd, question.data(), question.size(), 0), static_cast<ssize_t>(question.size()));
  pollfd readable{fd, POLLIN, 0};
  EXPECT_EQ(poll(&readable, 1, static_cast<int>(kNothingMs)), 0);
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
  EXPECT_EQ(poll(&readable, 1, static_cast<int>(kPatienceMs)), 1);
  close(fd);
}

// --- Stand-in ---

class FleetStandIn : public ::testing::Test {
 protected:
  FleetStandIn() {
    FleetOptions options;
    options.stand_in = true;
    m_fleet = std::make_unique<Fleet>(options);
    EXPECT_EQ(m_fleet->Start(), 0);
  }

  std::unique_ptr<Fleet> m_fleet;
};

TEST_F(FleetStandIn, AnswersGetsWithAFixedValueAndWritesWithSuccess) {
  const auto client = TestClient::SignedUp(m_fleet->ProxyUrl(0));
  const OStrandPkg* answer =
      client->Call(Request(OSTRAND_API_GET_REQ).Key(Uid(1)).UserBuffer("context").AsynId(5));
  ASSERT_NE(answer, nullptr);
  EXPECT_EQ(answer->stHead.dwCmd, 8U);
  EXPECT_EQ(answer->stHead.ullAsynID, 5U);
  EXPECT_EQ(answer->stHead.iSeq, 77);
  EXPECT_STREQ(answer->stHead.stRouterInfo.szTableName, "user");
  EXPECT_EQ(std::string(answer->stHead.szUserBuff, answer->stHead.dwUserBuffLen), "context");
  EXPECT_EQ(RecordsOf(answer->stBody.stRecords).at(0).values,
            (FieldList{{"value", std::string(100, 'v')}}));
  for (const uint32_t cmd : {1U, 3U, 5U, 9U}) {
    answer = client->Call(Request(cmd).Key(Uid(1)).Record({{"value", "anything"}}));
    ASSERT_NE(answer, nullptr);
    EXPECT_EQ(answer->stHead.dwCmd, cmd + 1);
    EXPECT_EQ(answer->stHead.iResult, 0);
    EXPECT_EQ(answer->stBody.stRecords.dwRecordNum, 0U);
  }
  EXPECT_EQ(m_fleet->Counters(0).table_requests, 5U);
  EXPECT_EQ(m_fleet->Requests().size(), 1U) << "the sign-up alone";
}

TEST_F(FleetStandIn, AsksForASignUpAndLooksAtLengths) {
  TestClient stranger(m_fleet->ProxyUrl(0));
  EXPECT_EQ(stranger.CallForResult(Request(OSTRAND_API_GET_REQ).Key(Uid(1))), -9233);
  const auto client = TestClient::SignedUp(m_fleet->ProxyUrl(0));
  std::string frame = Request(OSTRAND_API_GET_REQ).Key(Uid(1)).Frame();
  StoreBigEndian(&frame[4], 27U);
  EXPECT_TRUE(client->Send(frame));
  EXPECT_TRUE(client->IsClosedByPeer());
}

TEST_F(FleetStandIn, MisbehavesLikeAnyProxy) {
  const auto client = TestClient::SignedUp(m_fleet->ProxyUrl(0));
  ProxyFaults faults;
  faults.drop_every = 2;
  faults.answer = AnswerFault::kDuplicate;
  m_fleet->SetFaults(0, faults);
  std::string frames;
  for (uint64_t id = 1; id <= 3; ++id) {
    frames += Request(OSTRAND_API_GET_REQ).Key(Uid(1)).AsynId(id).Frame();
  }
  EXPECT_TRUE(client->Send(frames));
  for (const uint64_t id : {1U, 1U, 3U, 3U}) {
    EXPECT_EQ(client->ReceivePkg()->stHead.ullAsynID, id);
  }
}

// --- The fleet file ---

class FleetFileTest : public ::testing::Test {
 protected:
  FleetFileTest() {
    char folder[] = "/tmp/ostrand_fleet_XXXXXX";
    m_folder = mkdtemp(folder);
    m_options = TestOptions(2);
    m_options.proxy.stop_linger_ms = 0;
    m_options.fleet_file = Path();
    m_options.remark = [this](const std::string& line) { m_remarks.push_back(line); };
  }
  ~FleetFileTest() override {
    m_fleet.reset();
    std::remove(Path().c_str());
    rmdir(m_folder.c_str());
  }

  std::string Path() const { return m_folder + "/fleet"; }
  void Start() {
    m_fleet = std::make_unique<Fleet>(m_options);
    ASSERT_EQ(m_fleet->Start(), 0) << m_fleet->Error();
  }
  void Write(const std::string& text) const { std::ofstream(Path()) << text; }
  bool WaitFor(const std::function<bool()>& condition) {
    return m_fleet->WaitFor(kPatienceMs, condition);
  }
  Route AskRoute(int32_t zone) {
    TestClient client(m_fleet->DirectoryUrl());
    const auto answer = std::make_unique<ostrand_protocol_dir::tagOStrdirCSPkg>();
    return AskDirectory(client, zone, *answer) ? RouteOf(*answer) : Route();
  }
  bool WaitForRemark(const std::string& text) {
    return WaitFor([this, &text] {
      return !m_remarks.empty() && m_remarks.back().find(text) != std::string::npos;
    });
  }

  std::string m_folder;
  FleetOptions m_options;
  std::vector<std::string> m_remarks;  // on the fleet's thread
  std::unique_ptr<Fleet> m_fleet;
};

TEST_F(FleetFileTest, RoutesAndFaultsOfTheFileHoldFromTheStart) {
  Write("zone 1\nproxy tcp://127.0.0.1:1 here\nfault p1 delay_ms 7\nfault directory slow 1\n");
  Start();
  EXPECT_EQ(AskRoute(1), (Route{{"tcp://127.0.0.1:1", "here"}}));
  EXPECT_EQ(AskRoute(2), Route()) << "the file does not speak of it";
  EXPECT_EQ(m_fleet->Faults(1).delay_ms, 7);
  EXPECT_EQ(m_fleet->Faults(0), ProxyFaults());
}

TEST_F(FleetFileTest, ChangesAreFollowedAndUndone) {
  Start();
  EXPECT_TRUE(WaitForRemark("cannot be read"));
  EXPECT_EQ(AskRoute(1).size(), 2U) << "without file as without the option";
  Write("zone 1\nproxy tcp://127.0.0.1:1\nfault p0 ignore_heartbeats\n");
  EXPECT_TRUE(WaitFor([this] { return m_fleet->Faults(0).ignore_heartbeats; }));
  EXPECT_EQ(AskRoute(1), (Route{{"tcp://127.0.0.1:1", "proxy-0"}}));
  const std::string new_file = Path() + "~";
  std::ofstream(new_file) << "zone 1\nproxy tcp://127.0.0.1:2 b\n";
  ASSERT_EQ(std::rename(new_file.c_str(), Path().c_str()), 0);
  EXPECT_TRUE(WaitFor([this] { return !m_fleet->Faults(0).ignore_heartbeats; }));
  EXPECT_EQ(AskRoute(1), (Route{{"tcp://127.0.0.1:2", "b"}}));
}

TEST_F(FleetFileTest, AFileWithAMistakeChangesNothing) {
  Write("zone 1\nproxy tcp://127.0.0.1:1 a\n");
  Start();
  Write("zone 1\nproxy tcp://127.0.0.1:2 b\nproxi tcp://127.0.0.1:3\n");
  EXPECT_TRUE(WaitForRemark("line 3: it begins with none of"));
  EXPECT_EQ(AskRoute(1), (Route{{"tcp://127.0.0.1:1", "a"}}));
}

TEST_F(FleetFileTest, ProxiesGoDownAndStopAndComeBack) {
  Write("");
  Start();
  const auto is = [this](ProxyState first, ProxyState second) {
    return WaitFor([this, first, second] {
      return m_fleet->State(0) == first && m_fleet->State(1) == second;
    });
  };
  Write("down p0\n");
  EXPECT_TRUE(is(ProxyState::kDown, ProxyState::kRunning));
  Write("stop p1\n");
  EXPECT_TRUE(is(ProxyState::kRunning, ProxyState::kStopped));
  Write("");
  EXPECT_TRUE(is(ProxyState::kRunning, ProxyState::kRunning));
  const auto client = TestClient::SignedUp(m_fleet->ProxyUrl(1));
  Write("stop p1\n");
  EXPECT_TRUE(is(ProxyState::kRunning, ProxyState::kStopping));
  Write("");
  EXPECT_TRUE(is(ProxyState::kRunning, ProxyState::kRunning)) << "the stop is taken back";
}

TEST_F(FleetFileTest, AFolderThatDoesNotExistIsAnError) {
  m_options.fleet_file = m_folder + "/no/fleet";
  Fleet fleet(m_options);
  EXPECT_EQ(fleet.Start(), -1);
  EXPECT_NE(fleet.Error().find("cannot be watched: No such file or directory"), std::string::npos);
}

}  // namespace
}  // namespace OstrandFleet
