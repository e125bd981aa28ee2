// What becomes of a package of the router's own that cannot be built, packed or sent, and the dump
// of one that was.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "unit/service_api/router_inner_request_test.h"

namespace OstrandService {
namespace {

using OstrandCommon::OSTRAND_LOG_LEVEL_ERROR;
using OstrandCommon::OSTRAND_LOG_LEVEL_FATAL;
using OstrandFakes::LogLine;
using OstrandFakes::ScriptedConnector;

// --- No scratch pair, no such package ---

using InnerFailureTest = InnerRequestTest;

TEST_F(InnerFailureTest, WithoutAScratchPairNothingIsBuilt) {
  const std::string buffer = Pointer(server.scratch_buffer());
  const std::string record = Pointer(&pkg());
  const std::string none = Pointer(nullptr);
  struct {
    bool has_buffer;
    bool has_pkg;
    std::string text;
  } const cases[] = {
      {false, true, "NetThreadGetCSPkg failed! pkg=" + record + ", buff=" + none},
      {true, false, "NetThreadGetCSPkg failed! pkg=" + none + ", buff=" + buffer},
      {false, false, "NetThreadGetCSPkg failed! pkg=" + none + ", buff=" + none},
  };
  for (const auto& given : cases) {
    logger.Clear();
    server.SetScratch(given.has_buffer, given.has_pkg);
    for (const uint32_t cmd : {kSignUp, kHeartBeat, kStopReply, kProbe, 1U}) {
      logger.Clear();
      EXPECT_EQ(-1, Request(cmd, 0, "sig", "players")) << cmd;
      EXPECT_EQ(Lines({{OSTRAND_LOG_LEVEL_ERROR, kOperation, given.text}}), logger.Lines());
    }
  }
  EXPECT_TRUE(connector->sent().empty());
}

TEST_F(InnerFailureTest, ACodeThatIsNoCommandCannotBeConstructed) {
  struct {
    uint32_t cmd;
    const char* printed;
  } const cases[] = {{0, "0"}, {50, "50"}, {999, "999"}, {0xFFFFFFFF, "-1"}};
  for (const auto& given : cases) {
    logger.Clear();
    EXPECT_EQ(-1, Request(given.cmd, 0, "sig", "players")) << given.cmd;
    EXPECT_EQ(Lines({{OSTRAND_LOG_LEVEL_ERROR, kOperation,
                      std::string("InitOStrandPackage failed! ret=-26899, cmd=") + given.printed}}),
              logger.Lines());
  }
  EXPECT_TRUE(server.meta_version_requests().empty()) << "before the head is filled";
  EXPECT_TRUE(connector->sent().empty());
}

TEST_F(InnerFailureTest, CommandsOfOthersAreRefused) {
  for (const uint32_t cmd : {1U, 2U, 7U, 8U, 12U, 28U, 52U, 54U, 67U, 89U, 151U, 4225U, 4240U}) {
    logger.Clear();
    EXPECT_EQ(-5, Request(cmd, 0, "sig", "players")) << cmd;
    EXPECT_EQ(
        Lines({{OSTRAND_LOG_LEVEL_ERROR, kOperation, "unknowned cmd: " + std::to_string(cmd)}}),
        logger.Lines());
  }
  EXPECT_TRUE(connector->sent().empty());
}

// --- Packing ---

TEST_F(InnerFailureTest, AFrameThatDoesNotFitTheScratchBufferIsNotSent) {
  for (const size_t size : {size_t{1}, size_t{27}, size_t{28}, size_t{60}, size_t{81}}) {
    SCOPED_TRACE(size);
    server.SetScratchSize(size);
    logger.Clear();
    EXPECT_EQ(-2323, Request(kStopReply));
    EXPECT_EQ(
        Lines({{OSTRAND_LOG_LEVEL_ERROR, kOperation,
                "PackWholeCsPkgMaybeCompress() failed with ret(-24851) cmd:68. buffer=" +
                    Pointer(server.scratch_buffer()) + ", buffer_size=" + std::to_string(size)}}),
        logger.Lines());
  }
  EXPECT_TRUE(connector->sent().empty());
}

TEST_F(InnerFailureTest, AFrameMayFillTheScratchBuffer) {
  server.SetScratchSize(82);
  EXPECT_EQ(0, Request(kStopReply));
  EXPECT_EQ(82U, connector->sent().back().size());
}

// --- Sending ---

TEST_F(InnerFailureTest, AnAnswerBelow1OfTheConnectorIsAFailure) {
  for (const int result : {0, -1, -7, -2147483647}) {
    connector->SetSendResult(result);
    logger.Clear();
    journal.Clear();
    EXPECT_EQ(-6, Request(kStopReply)) << result;
    EXPECT_EQ(Lines({SendLine(kStopReply, result),
                     {OSTRAND_LOG_LEVEL_ERROR, kOperation,
                      "SendToQ Failed. buflen=82, ret=" + std::to_string(result)}}),
              logger.Lines())
        << "and no dump";
    EXPECT_EQ(std::vector<std::string>({std::string("SendToQ ") + kUrl}), journal.Entries())
        << "tried once";
    EXPECT_EQ(SentHex(), ToHex(std::string(server.scratch_buffer(), 82))) << "nothing rendered";
  }
}

TEST_F(InnerFailureTest, AnyPositiveAnswerOfTheConnectorIsASuccess) {
  for (const int result : {1, 81, 2147483647}) {
    connector->SetSendResult(result);
    logger.Clear();
    EXPECT_EQ(0, Request(kStopReply)) << result;
    EXPECT_EQ(Lines({SendLine(kStopReply, result), DumpLine(PkgText())}), logger.Lines());
  }
}

// A connector that cannot send.
class MuteConnector : public ScriptedConnector {
 public:
  explicit MuteConnector(const char* url) : ScriptedConnector(url, nullptr) {}
  int SendToQ(const char* buf, unsigned int len, void* log_handle) override {
    return CConnector::SendToQ(buf, len, log_handle);
  }
};

TEST_F(InnerFailureTest, AConnectorThatCannotSendIsAFailure) {
  MuteConnector mute(kUrl);
  proxy->connector = &mute;
  EXPECT_EQ(-6, Request(kStopReply));
  EXPECT_EQ(Lines({SendLine(kStopReply, -1),
                   {OSTRAND_LOG_LEVEL_ERROR, kOperation, "SendToQ Failed. buflen=82, ret=-1"}}),
            logger.Lines());
  proxy->connector = connector;
}

TEST_F(InnerFailureTest, NothingIsReadThroughAMissingProxyOrConnector) {
  router->SetAlarmErrorCode(5);
  proxy->connector = nullptr;
  for (const uint32_t cmd : {kSignUp, kHeartBeat, kStopReply, kProbe}) {
    EXPECT_GT(0, Request(cmd, 0, "sig", "players")) << cmd;
  }
  proxy->connector = connector;
  ProxyServer* const known = proxy;
  proxy = nullptr;
  for (const uint32_t cmd : {kSignUp, kHeartBeat, kStopReply, kProbe}) {
    EXPECT_GT(0, Request(cmd, 0, "sig", "players")) << cmd;
  }
  proxy = known;
  EXPECT_TRUE(connector->sent().empty());
}

// --- The dump ---

using RequestDumpTest = InnerRequestTest;

TEST_F(RequestDumpTest, IsThePackageAsTextOverTheSentFrame) {
  std::vector<std::string> buffers;
  std::vector<std::string> entries;
  logger.OnLine([&](const LogLine&) {
    buffers.emplace_back(server.scratch_buffer(), 82);
    entries = journal.Entries();
    journal.Clear();
    journal.Add("line");
  });
  ASSERT_EQ(0, Request(kStopReply, 42));
  const std::string text = PkgText();
  EXPECT_EQ(Lines({SendLine(kStopReply, 82), DumpLine(text)}), logger.Lines());
  ASSERT_EQ(2U, buffers.size());
  EXPECT_EQ(SentHex(), ToHex(buffers[0])) << "the frame, while the send is logged";
  EXPECT_EQ(text.substr(0, 82), buffers[1]) << "the text, while it is logged";
  EXPECT_EQ(std::vector<std::string>({"line"}), entries) << "sent before the first line";
  EXPECT_STREQ(text.c_str(), server.scratch_buffer());
}

TEST_F(RequestDumpTest, ShowsTheFieldsOnLinesOfTheirOwn) {
  ASSERT_EQ(0, Request(kStopReply, 42));
  const std::string text = logger.Lines().back().text;
  const char beginning[] =
      "---------- request dump ----------\n"
      "stHead:\n"
      "  wMagic: 20308\n"
      "  wVersion: 127\n";
  EXPECT_EQ(beginning, text.substr(0, std::strlen(beginning)));
  for (const char* line : {"\n  ullAsynID: 42\n", "\n  dwCmd: 68\n", "\n    iAppID: 1001\n"}) {
    EXPECT_NE(std::string::npos, text.find(line)) << line;
  }
}

TEST_F(RequestDumpTest, IsRenderedWhateverTheLevel) {
  logger.SetThreshold(OSTRAND_LOG_LEVEL_FATAL);
  ASSERT_EQ(0, Request(kStopReply, 42));
  EXPECT_EQ(Lines({SendLine(kStopReply, 82), DumpLine(PkgText())}), logger.Lines());
  EXPECT_STREQ(PkgText().c_str(), server.scratch_buffer());
}

TEST_F(RequestDumpTest, HasTheWholeScratchBufferAndIsCutThere) {
  for (const size_t size : {size_t{82}, size_t{83}, size_t{200}}) {
    server.SetScratchSize(size);
    logger.Clear();
    ASSERT_EQ(0, Request(kStopReply)) << size;
    EXPECT_EQ(Lines({SendLine(kStopReply, 82), DumpLine(PkgText().substr(0, size - 1))}),
              logger.Lines());
  }
}

// --- No logger ---

TEST_F(InnerRequestTest, CodesAreTheSameWithoutALogger) {
  TakeLogger();
  router->SetAlarmErrorCode(5);
  EXPECT_EQ(0, Request(kHeartBeat));
  EXPECT_EQ(0, Request(kStopReply));
  EXPECT_EQ(0, Request(kProbe, 0, nullptr, "players"));
  EXPECT_EQ(0, Request(kSignUp, 0, "sig"));
  EXPECT_EQ(-2, Request(kSignUp));
  EXPECT_EQ(-2, Request(kProbe));
  EXPECT_EQ(-3, Request(kProbe, 0, nullptr, std::string(32, 't').c_str()));
  EXPECT_EQ(-5, Request(67));
  EXPECT_EQ(-1, Request(999));
  connector->SetSendResult(0);
  EXPECT_EQ(-6, Request(kStopReply));
  server.SetScratchSize(20);
  EXPECT_EQ(-2323, Request(kStopReply));
  server.SetScratch(false, true);
  EXPECT_EQ(-1, Request(kStopReply));
  EXPECT_TRUE(logger.Lines().empty());
}

}  // namespace
}  // namespace OstrandService
