#include "fakes/scripted_connector.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "fakes/scripted_connector_mgr.h"

namespace OstrandFakes {
namespace {

constexpr char kUrl[] = "tcp://10.0.0.1:1001";

// A callback that answers what its argument points at.
int AnswerArgument(const char*, const char*, int, void* arg) { return *static_cast<int*>(arg); }

class ScriptedConnectorTest : public testing::Test {
 protected:
  ScriptedConnectorTest() { mgr.CreateConnector(kUrl, nullptr, -1, &AnswerArgument, &answer); }
  ~ScriptedConnectorTest() override {
    for (ScriptedConnector* connector : mgr.Live()) {
      mgr.RemoveConnector(connector);
    }
  }

  int answer = 0;
  Journal journal;
  ScriptedConnectorMgr mgr{&journal};
};

TEST_F(ScriptedConnectorTest, ConnectsAsScripted) {
  ScriptedConnector& connector = mgr.At(kUrl);
  EXPECT_EQ(0, connector.GetStatus());
  EXPECT_EQ(0, connector.Connect());
  EXPECT_EQ(1, connector.GetStatus());
  connector.SetConnect(0, 2);
  EXPECT_EQ(0, connector.Connect());
  EXPECT_EQ(2, connector.GetStatus());
  connector.Disconnect(0);
  EXPECT_EQ(0, connector.GetStatus());
  connector.SetConnect(-7);
  EXPECT_EQ(-7, connector.Connect());
  EXPECT_EQ(0, connector.GetStatus());
  EXPECT_EQ(3, connector.connect_count());
  EXPECT_EQ(std::vector<int>({0}), connector.disconnects());
}

TEST_F(ScriptedConnectorTest, SendsAsScriptedAndKeepsTheBytes) {
  ScriptedConnector& connector = mgr.At(kUrl);
  connector.PushSendResult(0);
  connector.PushSendResult(-3);
  EXPECT_EQ(0, connector.SendToQ("ab", 2, nullptr));
  EXPECT_EQ(-3, connector.SendToQ("cd", 2, &connector));
  EXPECT_EQ(3, connector.SendToQ("e\0f", 3, nullptr));
  EXPECT_EQ(std::vector<std::string>({"ab", "cd", std::string("e\0f", 3)}), connector.sent());
  EXPECT_EQ(std::vector<void*>({nullptr, &connector, nullptr}), connector.send_log_handles());
  connector.SetSendResult(-1);
  EXPECT_EQ(-1, connector.SendToQ("g", 1, nullptr));
}

TEST_F(ScriptedConnectorTest, HandsOutErrorsThenFramesInOrder) {
  ScriptedConnector& connector = mgr.At(kUrl);
  connector.QueueFrame("one");
  connector.QueueFrame("two!");
  connector.PushPeekError(-12563);
  const char* buffer = nullptr;
  int size = 0;
  EXPECT_EQ(-12563, connector.PeekPkg(buffer, size, nullptr));
  EXPECT_EQ(3, connector.PeekPkg(buffer, size, nullptr));
  EXPECT_EQ("one", std::string(buffer, static_cast<size_t>(size)));
  EXPECT_EQ(3, connector.PeekPkg(buffer, size, nullptr)) << "it stays until it is consumed";
  connector.ConsumePkg();
  EXPECT_EQ(4, connector.PeekPkg(buffer, size, nullptr));
  connector.Recover(&connector);
  EXPECT_EQ(0, connector.PeekPkg(buffer, size, nullptr));
  connector.ConsumePkg();
  EXPECT_EQ(std::vector<void*>({&connector}), connector.recover_log_handles());
}

TEST_F(ScriptedConnectorTest, KnowsItsAddressOnlyWhenTold) {
  ScriptedConnector& connector = mgr.At(kUrl);
  int ip = 1;
  int port = 2;
  connector.GetIPAndPort(ip, port);
  EXPECT_EQ(1, ip);
  EXPECT_EQ(2, port);
  connector.SetAddress(3, 4);
  connector.GetIPAndPort(ip, port);
  EXPECT_EQ(3, ip);
  EXPECT_EQ(4, port);
}

TEST_F(ScriptedConnectorTest, DeliversAFrameAndQueuesItWhenItIsLeft) {
  EXPECT_EQ(0, mgr.Deliver(kUrl, "frame"));
  EXPECT_EQ(1U, mgr.At(kUrl).queued_frames());
  answer = 1;
  EXPECT_EQ(1, mgr.Deliver(kUrl, "frame"));
  EXPECT_EQ(1U, mgr.At(kUrl).queued_frames());
}

// A callback that runs until it is let go.
struct LongCallback {
  static int Run(const char*, const char*, int, void* arg) {
    auto* self = static_cast<LongCallback*>(arg);
    self->started.set_value();
    self->go_on.get_future().wait();
    self->finished = true;
    return 1;
  }

  std::promise<void> started;
  std::promise<void> go_on;
  std::atomic<bool> finished{false};
};

TEST_F(ScriptedConnectorTest, IsRemovedOnlyWhenItsCallbackHasReturned) {
  LongCallback callback;
  auto* connector = static_cast<ScriptedConnector*>(
      mgr.CreateConnector("tcp://long:1", nullptr, -1, &LongCallback::Run, &callback));
  std::thread network([&] { mgr.Deliver(*connector, "frame"); });
  callback.started.get_future().wait();
  bool finished_at_removal = false;
  std::thread application([&] {
    mgr.RemoveConnector(connector);
    finished_at_removal = callback.finished;
  });
  callback.go_on.set_value();
  application.join();
  network.join();
  EXPECT_TRUE(finished_at_removal);
}

TEST_F(ScriptedConnectorTest, FailsTheNthCreation) {
  mgr.FailCreation(2, "full");
  EXPECT_NE(nullptr, mgr.CreateConnector("tcp://a:1", nullptr, -1, nullptr, nullptr));
  EXPECT_EQ(nullptr, mgr.CreateConnector("tcp://b:1", nullptr, -1, nullptr, nullptr));
  EXPECT_STREQ("full", mgr.GetLastErrDesc());
  EXPECT_NE(nullptr, mgr.CreateConnector("tcp://c:1", nullptr, -1, nullptr, nullptr));
  EXPECT_EQ(4U, mgr.creations().size());
  EXPECT_EQ(nullptr, mgr.creations()[2].connector);
  EXPECT_EQ(3U, mgr.live_count());
}

TEST_F(ScriptedConnectorTest, WritesItsJournal) {
  mgr.At(kUrl).Connect();
  mgr.At(kUrl).SendToQ("x", 1, nullptr);
  mgr.At(kUrl).Disconnect(0);
  mgr.RemoveConnector(mgr.Find(kUrl));
  EXPECT_EQ(std::vector<std::string>({"CreateConnector tcp://10.0.0.1:1001",
                                      "Connect tcp://10.0.0.1:1001", "SendToQ tcp://10.0.0.1:1001",
                                      "Disconnect tcp://10.0.0.1:1001",
                                      "RemoveConnector tcp://10.0.0.1:1001"}),
            journal.Entries());
  EXPECT_EQ(std::vector<std::string>({"Connect tcp://10.0.0.1:1001"}),
            journal.EntriesWith("Connect "));
}

TEST_F(ScriptedConnectorTest, FaultsOnDoubleRemovalAndOnALeak) {
  EXPECT_DEATH(
      {
        OSTRNET::CConnector* connector = mgr.Find(kUrl);
        mgr.RemoveConnector(connector);
        mgr.RemoveConnector(connector);
      },
      "not alive");
  EXPECT_DEATH(
      {
        ScriptedConnectorMgr leaking;
        leaking.CreateConnector(kUrl, nullptr, -1, nullptr, nullptr);
      },
      "never removed");
}

}  // namespace
}  // namespace OstrandFakes
