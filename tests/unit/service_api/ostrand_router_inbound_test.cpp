// The receive callback and the dispatch behind it: which frames are the router's, how the sender is
// found, what becomes of frames that are none.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "fakes/lock_probe.h"
#include "protocol/codec_errors.h"
#include "service_api/ostrand_router.h"
#include "unit/service_api/router_inbound_test.h"

namespace OstrandService {
namespace {

using namespace ostrand_protocol_cs;  // NOLINT: the writers of raw bytes, the codec's codes
using OstrandCommon::OSTRAND_LOG_LEVEL_DEBUG;
using OstrandCommon::OSTRAND_LOG_LEVEL_ERROR;
using OstrandCommon::OSTRAND_LOG_LEVEL_INFO;
using OstrandFakes::LogLine;
using OstrandFakes::RecordingLogger;

constexpr uint32_t kInnerCommands[] = {28, 52, 54, 67};

// --- RouterCallBack ---

// Frames of nothing but the fixed 28 bytes of a head.
class CallBackTest : public RouterInboundTest {
 protected:
  static std::string BareHead(uint32_t cmd, int32_t seq = 0) {
    return "OT" + BigEndian(127, 2) + U32(28) + U32(0) + BigEndian(0, 8) +
           U32(static_cast<uint32_t>(seq)) + U32(cmd);
  }
  int Call(const char* url, const std::string& bytes, ProxyServer* arg) {
    const std::vector<char> exact(bytes.begin(), bytes.end());
    return RouterCallBack(url, exact.data(), static_cast<int>(exact.size()), arg);
  }
  // The callback does not know the router's module.
  static LogLine CallBackLine(const std::string& text) {
    return LogLine{OSTRAND_LOG_LEVEL_DEBUG, 0, "src/service_api/ostrand_router", "RouterCallBack",
                   text};
  }
  static LogLine UserLine(const std::string& url, int cmd) {
    return CallBackLine("RouterCallBack, recv user data len:28 from " + url +
                        " cmd:" + std::to_string(cmd) + "\n");
  }
};

TEST_F(CallBackTest, RefusesFramesUnder28Bytes) {
  for (const size_t length : {1U, 20U, 24U, 27U}) {
    EXPECT_EQ(-1, Call(kUsing, BareHead(54).substr(0, length), proxy)) << length;
  }
  const std::string frame = BareHead(54);
  EXPECT_EQ(-1, RouterCallBack(kUsing, frame.data(), 0, proxy));
  EXPECT_EQ(-1, RouterCallBack(kUsing, frame.data(), -1, proxy));
  EXPECT_EQ(-1, RouterCallBack(kUsing, frame.data(), INT32_MIN, proxy));
  EXPECT_TRUE(logger.Lines().empty());
}

TEST_F(CallBackTest, LooksAtItsOtherArgumentsFirst) {
  server.SetLogger(nullptr);
  EXPECT_EQ(-2, Call(kUsing, BareHead(54).substr(0, 27), proxy))
      << "no logger comes before a short frame";
}

TEST_F(CallBackTest, TakesTheRoutersOwnConversation) {
  for (const uint32_t cmd : kInnerCommands) {
    logger.Clear();
    EXPECT_EQ(1, Call(kUsing, BareHead(cmd, -110), proxy)) << cmd;
    EXPECT_EQ(CallBackLine("RouterCallBack, recv inner data len:28 from " + std::string(kUsing) +
                           " cmd:" + std::to_string(cmd) + " seq:-110\n"),
              logger.Lines().at(0));
    EXPECT_EQ(0U, proxy->m_response_count) << cmd;
  }
}

TEST_F(CallBackTest, CannotDecodeABareHead) {
  for (const uint32_t cmd : kInnerCommands) {
    logger.Clear();
    Call(kUsing, BareHead(cmd), proxy);
    ASSERT_EQ(2U, logger.Lines().size());
    EXPECT_EQ(Line(OSTRAND_LOG_LEVEL_ERROR, "ProcRouterMsg",
                   "UnpackWholeCsPkgMaybeDecompress failed! ret=" +
                       std::to_string(OSTRAND_CODEC_ERR_HEAD_TRUNCATED) + "."),
              logger.Lines()[1]);
  }
}

TEST_F(CallBackTest, ReadsCommandAndSequenceBigEndianAtTheirPlaces) {
  std::string frame(40, '\x7F');
  frame.replace(20, 8, std::string("\x01\x02\x03\x04\x00\x00\x00\x43", 8));
  EXPECT_EQ(1, Call(kUsing, frame, proxy));
  EXPECT_EQ(CallBackLine("RouterCallBack, recv inner data len:40 from " + std::string(kUsing) +
                         " cmd:67 seq:16909060\n"),
            logger.Lines().at(0));
  frame.replace(20, 8, std::string("\x00\x00\x00\x43\x43\x00\x00\x00", 8));
  EXPECT_EQ(0, Call(kUsing, frame, proxy)) << "another byte order, another place";
}

TEST_F(CallBackTest, LeavesEveryOtherCommandToTheUser) {
  for (const uint32_t cmd : {0U, 1U, 2U, 27U, 29U, 51U, 53U, 55U, 66U, 68U, 4240U, 0x1C000000U}) {
    logger.Clear();
    EXPECT_EQ(0, Call(kUsing, BareHead(cmd), proxy)) << cmd;
    EXPECT_EQ(std::vector<LogLine>({UserLine(kUsing, static_cast<int>(cmd))}), logger.Lines());
  }
  logger.Clear();
  EXPECT_EQ(0, Call(kUsing, BareHead(0xFFFFFFFF), proxy));
  EXPECT_EQ(std::vector<LogLine>({UserLine(kUsing, -1)}), logger.Lines());
  EXPECT_EQ(0, server.scratch_requests()) << "it is not decoded";
}

TEST_F(CallBackTest, CountsTheAnswersToSimpleReadsAndWrites) {
  const std::set<uint32_t> kCounted = {// reads
                                       8, 16, 84, 154,
                                       // writes
                                       2, 4, 6, 10, 14, 18, 20, 22, 30, 66, 156, 158};
  for (uint32_t cmd = 0; cmd < 4300; ++cmd) {
    proxy->m_response_count = 5;
    Call(kUsing, BareHead(cmd), proxy);
    EXPECT_EQ(kCounted.count(cmd) > 0 ? 6U : 5U, proxy->m_response_count) << cmd;
  }
}

TEST_F(CallBackTest, CountsForTheReceivingRecordWhateverTheUrl) {
  EXPECT_EQ(0, Call(kPreparing, BareHead(8), proxy));
  EXPECT_EQ(0, Call(kStranger, BareHead(8), proxy));
  EXPECT_EQ(2U, proxy->m_response_count);
  EXPECT_EQ(0U, preparing->m_response_count);
  EXPECT_EQ(UserLine(kPreparing, 8), logger.Lines().at(0)) << "the callback's own url";
}

TEST_F(CallBackTest, HandlesAnswersForTheRecordOfTheUrl) {
  proxy->m_response_count = 0;
  EXPECT_EQ(1, Call(kPreparing, HeartBeatRes(0).Bytes(), proxy));
  EXPECT_EQ(0, proxy->m_heartbeat_num);
  EXPECT_EQ(1, preparing->m_heartbeat_num);
}

TEST_F(CallBackTest, TouchesNothingButTheCountForTheUsersFrames) {
  clock.AdvanceMs(5000);
  const int64_t last_recv_ms = proxy->last_recv_ms;
  Call(kUsing, BareHead(8), proxy);
  EXPECT_EQ(last_recv_ms, proxy->last_recv_ms) << "data does not count as a sign of life";
  EXPECT_FALSE(peer->m_proxy_sign_up_recv());
}

TEST_F(CallBackTest, SpeaksThroughTheServicesLogger) {
  RecordingLogger services;
  server.SetLogger(&services);
  Call(kUsing, BareHead(54), proxy);
  EXPECT_EQ(1U, services.Lines().size());
  EXPECT_EQ("RouterCallBack", services.Lines().at(0).function);
  EXPECT_EQ(1U, logger.Lines().size());
  EXPECT_EQ("ProcRouterMsg", logger.Lines().at(0).function);
}

TEST_F(CallBackTest, WorksWhenTheRouterHasNoLoggerOfItsOwn) {
  ASSERT_EQ(-4371, router->Init(&mgr, Service(), nullptr));  // Takes the logger away.
  EXPECT_EQ(1, Call(kUsing, HeartBeatRes(0).Bytes(), proxy));
  EXPECT_EQ(1, Call(kUsing, SignupRes(0).Bytes(), proxy));
  EXPECT_EQ(1, Call(kRemoving, StopReq().Bytes(), removing));
  EXPECT_EQ(0, Call(kUsing, MetadataRes(1, 1, 1).Bytes(), proxy));
  EXPECT_EQ(1, Call(kStranger, HeartBeatRes(0).Bytes(), proxy));
  EXPECT_EQ(1, Call(kUsing, BareHead(54), proxy));
  EXPECT_EQ(6, logger.Count(OSTRAND_LOG_LEVEL_DEBUG)) << "the callback's, through the service's";
}

TEST_F(CallBackTest, KeepsOnlyTheUsersFramesQueued) {
  EXPECT_EQ(1, mgr.Deliver(kUsing, BareHead(54)));
  EXPECT_EQ(0U, mgr.At(kUsing).queued_frames());
  EXPECT_EQ(0, mgr.Deliver(kUsing, BareHead(8)));
  EXPECT_EQ(1U, mgr.At(kUsing).queued_frames());
}

// --- ProcRouterMsg: what must be there ---

class DispatchTest : public RouterInboundTest {
 protected:
  std::string NoScratch(const void* pkg, const void* buffer) {
    char text[128];
    std::snprintf(text, sizeof(text), "NetThreadGetCSPkg failed! pkg=%p, buff=%p", pkg, buffer);
    return text;
  }

  const InboundFrame heartbeat = HeartBeatRes(0);
};

TEST_F(DispatchTest, NeedsAService) {
  const auto homeless = NewRouter(&latency, &statistics, &judge);
  ASSERT_EQ(-256, homeless->Init(&mgr, nullptr, &logger));
  logger.Clear();
  const std::string bytes = heartbeat.Bytes();
  EXPECT_EQ(-1, homeless->ProcRouterMsg(kUsing, bytes.data(), static_cast<int>(bytes.size()),
                                        pass_to_user));
  EXPECT_EQ(Lines({Says(OSTRAND_LOG_LEVEL_ERROR, "m_ostrand_server is NULL!")}), logger.Lines());
  EXPECT_FALSE(pass_to_user);
}

TEST_F(DispatchTest, NeedsTheScratchBufferAndThePackage) {
  const void* const pkg = &server.scratch_pkg();
  const void* const buffer = server.scratch_buffer();
  struct Case {
    bool has_buffer;
    bool has_pkg;
    std::string text;
  };
  for (const Case& one :
       {Case{false, true, NoScratch(pkg, nullptr)}, Case{true, false, NoScratch(nullptr, buffer)},
        Case{false, false, NoScratch(nullptr, nullptr)}}) {
    logger.Clear();
    server.SetScratch(one.has_buffer, one.has_pkg);
    EXPECT_EQ(-1, Dispatch(kUsing, heartbeat));
    EXPECT_EQ(Lines({Says(OSTRAND_LOG_LEVEL_ERROR, one.text)}), logger.Lines());
    EXPECT_EQ(1, mgr.Deliver(kUsing, heartbeat.Bytes())) << "dropped all the same";
  }
  EXPECT_EQ(0, proxy->m_heartbeat_num);
}

TEST_F(DispatchTest, DropsWhatDoesNotDecodeAndReportsTheCode) {
  const std::string good = heartbeat.Bytes();
  std::string wrong_magic = good;
  wrong_magic[0] = 'X';
  std::string short_head_len = good;
  short_head_len.replace(4, 4, U32(27));
  std::string lying_body_len = good;
  lying_body_len.replace(8, 4, U32(25));
  std::string compressed = good;
  compressed[good.size() - 24 - 18] = 1;
  const InboundFrame short_body(54, std::string(23, '\0'));
  const InboundFrame long_body(54, std::string(25, '\0'));
  const InboundFrame long_buffer = HeartBeatRes(0, std::string(1025, 'x'));
  InboundFrame long_table = HeartBeatRes(0);
  long_table.table = std::string(32, 't');
  struct Case {
    const char* what;
    std::string bytes;
    int code;
  };
  const Case kCases[] = {
      {"27 bytes", good.substr(0, 27), OSTRAND_CODEC_ERR_FRAME_SHORT},
      {"garbage", std::string(200, '\x5A'), OSTRAND_CODEC_ERR_MAGIC},
      {"wrong magic", wrong_magic, OSTRAND_CODEC_ERR_MAGIC},
      {"a head length of 27", short_head_len, OSTRAND_CODEC_ERR_HEAD_LEN},
      {"a lying body length", lying_body_len, OSTRAND_CODEC_ERR_FRAME_LEN},
      {"a missing byte", good.substr(0, good.size() - 1), OSTRAND_CODEC_ERR_FRAME_LEN},
      {"a byte too many", good + "x", OSTRAND_CODEC_ERR_FRAME_LEN},
      {"a short body", short_body.Bytes(), OSTRAND_CODEC_ERR_BODY_TRUNCATED},
      {"a long body", long_body.Bytes(), OSTRAND_CODEC_ERR_BODY_TRAILING},
      {"a user buffer of 1025 bytes", long_buffer.Bytes(), OSTRAND_CODEC_ERR_USER_BUFF_LEN},
      {"a table name of 32 characters", long_table.Bytes(), OSTRAND_CODEC_ERR_TABLE_NAME},
      {"a compressed body", compressed, OSTRAND_CODEC_ERR_COMPRESSION},
  };
  std::vector<int> codes;
  for (const Case& one : kCases) {
    logger.Clear();
    EXPECT_EQ(0, Dispatch(kUsing, one.bytes)) << one.what;
    EXPECT_EQ(Lines({Says(OSTRAND_LOG_LEVEL_ERROR, "UnpackWholeCsPkgMaybeDecompress failed! ret=" +
                                                       std::to_string(one.code) + ".")}),
              logger.Lines())
        << one.what;
    codes.push_back(one.code);
  }
  EXPECT_EQ(codes, server.dir_alarm_codes());
  EXPECT_FALSE(pass_to_user);
  EXPECT_EQ(0, proxy->m_heartbeat_num);
}

TEST_F(DispatchTest, TakesANegativeLengthForNothing) {
  EXPECT_EQ(0, router->ProcRouterMsg(kUsing, "", -1, pass_to_user));
  EXPECT_EQ(std::vector<int>({OSTRAND_CODEC_ERR_FRAME_SHORT}), server.dir_alarm_codes());
}

TEST_F(DispatchTest, OnlyNamesOtherCommands) {
  EXPECT_EQ(0, Dispatch(kUsing, InboundFrame(68)));
  EXPECT_EQ(
      Lines({Says(OSTRAND_LOG_LEVEL_DEBUG, "recv CMD(68) from URL(" + std::string(kUsing) + ")")}),
      logger.Lines());
  EXPECT_FALSE(pass_to_user);
}

// --- ProcRouterMsg: finding the sender ---

// Frames of the four commands, all of which would be handled in the using list.
class SenderTest : public RouterInboundTest {
 protected:
  static InboundFrame Frame(uint32_t cmd) {
    switch (cmd) {
      case 54: return HeartBeatRes(0);
      case 52: return SignupRes(-5);
      case 28: return MetadataRes(1, 1, 2);
      default: return StopReq();
    }
  }
  static OstrandFakes::Said Received(uint32_t cmd, const std::string& url) {
    static const std::map<uint32_t, std::string> kNames = {{28, "OSTRAND_API_METADATA_GET_RES"},
                                                           {52, "OSTRAND_API_APP_SIGNUP_RES"},
                                                           {54, "OSTRAND_API_HEART_BEAT_RES"},
                                                           {67, "OSTRAND_API_NOTIFY_STOP_REQ"}};
    return Says(cmd == 54 ? OSTRAND_LOG_LEVEL_DEBUG : OSTRAND_LOG_LEVEL_INFO,
                "recv " + kNames.at(cmd) + " from URL(" + url + ")");
  }
  static OstrandFakes::Said InNoneOfTwo(const std::string& url) {
    return Says(OSTRAND_LOG_LEVEL_ERROR,
                "can not find RealServerNode neither in m_removing_servers or m_using_servers for "
                "URL(" +
                    url + ")");
  }
  static OstrandFakes::Said InNoneOfThree(const std::string& url) {
    return Says(OSTRAND_LOG_LEVEL_ERROR,
                "can not find RealServerNode neither in m_removing_servers m_preparing_servers "
                "m_using_servers for URL(" +
                    url + ")");
  }
  // The lines of one dispatch, at most the first `count` of them.
  std::vector<LogLine> LinesOfDispatch(const std::string& url, uint32_t cmd, size_t count) {
    logger.Clear();
    pass_to_user = false;
    result = Dispatch(url, Frame(cmd));
    std::vector<LogLine> lines = logger.Lines();
    lines.resize(std::min(count, lines.size()));
    return lines;
  }

  int result = 0;
};

TEST_F(SenderTest, IsLookedForInUseFirst) {
  for (const uint32_t cmd : kInnerCommands) {
    EXPECT_EQ(Lines({Received(cmd, kUsing)}), LinesOfDispatch(kUsing, cmd, 1));
  }
}

TEST_F(SenderTest, MayBeOnItsWayOut) {
  for (const uint32_t cmd : kInnerCommands) {
    EXPECT_EQ(Lines({TurnsToRemoving(kRemoving), Received(cmd, kRemoving)}),
              LinesOfDispatch(kRemoving, cmd, 2));
  }
}

TEST_F(SenderTest, MaySignUpAndHeartbeatWhileItIsPrepared) {
  for (const uint32_t cmd : {52U, 54U}) {
    EXPECT_EQ(Lines({TurnsToRemoving(kPreparing), Received(cmd, kPreparing)}),
              LinesOfDispatch(kPreparing, cmd, 2));
  }
}

TEST_F(SenderTest, MayNotAnswerForMetadataNorStopWhileItIsPrepared) {
  for (const uint32_t cmd : {28U, 67U}) {
    EXPECT_EQ(Lines({TurnsToRemoving(kPreparing), InNoneOfTwo(kPreparing)}),
              LinesOfDispatch(kPreparing, cmd, 9));
    EXPECT_EQ(0, result);
    EXPECT_FALSE(pass_to_user) << "consumed, the user's metadata answer too";
    EXPECT_EQ(1, mgr.Deliver(kPreparing, Frame(cmd).Bytes()));
  }
  EXPECT_EQ(0, preparing->last_auth_result);
  EXPECT_TRUE(mgr.At(kPreparing).sent().empty());
}

TEST_F(SenderTest, IsRefusedWhenNobodyKnowsIt) {
  for (const uint32_t cmd : kInnerCommands) {
    EXPECT_EQ(Lines({TurnsToRemoving(kStranger),
                     cmd == 52 || cmd == 54 ? InNoneOfThree(kStranger) : InNoneOfTwo(kStranger)}),
              LinesOfDispatch(kStranger, cmd, 9));
    EXPECT_EQ(0, result);
    EXPECT_FALSE(pass_to_user);
  }
  EXPECT_FALSE(peer->m_proxy_sign_up_recv());
}

TEST_F(SenderTest, IsTheRecordInUseWhenSeveralListsHaveOne) {
  Alias(peer->m_removing_servers(), kUsing, removing);
  Alias(peer->m_preparing_servers(), kUsing, preparing);
  Dispatch(kUsing, Frame(54));
  EXPECT_EQ(1, proxy->m_heartbeat_num);
  EXPECT_EQ(0, removing->m_heartbeat_num);
  EXPECT_EQ(0, preparing->m_heartbeat_num);
}

TEST_F(SenderTest, IsTheRecordOnItsWayOutRatherThanThePreparedOne) {
  Alias(peer->m_preparing_servers(), kRemoving, preparing);
  Dispatch(kRemoving, Frame(54));
  EXPECT_EQ(1, removing->m_heartbeat_num);
  EXPECT_EQ(0, preparing->m_heartbeat_num);
}

TEST_F(SenderTest, IsNotAnElementWithoutARecord) {
  Alias(peer->m_using_servers(), kRemoving, nullptr);
  for (const uint32_t cmd : kInnerCommands) {
    EXPECT_EQ(Lines({TurnsToRemoving(kRemoving), Received(cmd, kRemoving)}),
              LinesOfDispatch(kRemoving, cmd, 2));
  }
  Alias(peer->m_using_servers(), kPreparing, nullptr);
  Alias(peer->m_removing_servers(), kPreparing, nullptr);
  EXPECT_EQ(Lines({TurnsToRemoving(kPreparing), Received(54, kPreparing)}),
            LinesOfDispatch(kPreparing, 54, 2));

  Alias(peer->m_using_servers(), kStranger, nullptr);
  Alias(peer->m_removing_servers(), kStranger, nullptr);
  Alias(peer->m_preparing_servers(), kStranger, nullptr);
  EXPECT_EQ(Lines({TurnsToRemoving(kStranger), InNoneOfThree(kStranger)}),
            LinesOfDispatch(kStranger, 54, 9));
}

TEST_F(SenderTest, IsFoundByTheWholeUrl) {
  EXPECT_EQ(Lines({TurnsToRemoving("tcp://10.0.0.1:100"), InNoneOfThree("tcp://10.0.0.1:100")}),
            LinesOfDispatch("tcp://10.0.0.1:100", 54, 9));
}

TEST_F(SenderTest, IsNobodyWithoutAUrl) {
  const std::string bytes = Frame(54).Bytes();
  EXPECT_EQ(0, router->ProcRouterMsg(nullptr, bytes.data(), static_cast<int>(bytes.size()),
                                     pass_to_user));
  EXPECT_EQ(1, RouterCallBack(nullptr, bytes.data(), static_cast<int>(bytes.size()), proxy));
  EXPECT_EQ(0, proxy->m_heartbeat_num);
}

TEST_F(SenderTest, IsNobodyWithoutLists) {
  proxy = preparing = removing = nullptr;
  router->Fini();
  for (const uint32_t cmd : kInnerCommands) {
    EXPECT_EQ(Lines({TurnsToRemoving(kUsing),
                     cmd == 52 || cmd == 54 ? InNoneOfThree(kUsing) : InNoneOfTwo(kUsing)}),
              LinesOfDispatch(kUsing, cmd, 9));
  }
}

// --- Locks ---

TEST_F(SenderTest, IsAnsweredWithoutTheRoutersLocks) {
  logger.OnLine([&](const LogLine& line) {
    EXPECT_FALSE(OstrandFakes::IsHeld(peer->m_mutex_list())) << line;
    EXPECT_FALSE(OstrandFakes::IsHeld(peer->m_mutex_vistual_nodes())) << line;
  });
  for (const char* url : {kUsing, kPreparing, kRemoving, kStranger}) {
    for (const uint32_t cmd : kInnerCommands) {
      Dispatch(url, Frame(cmd));
    }
  }
  EXPECT_GT(logger.Lines().size(), 16U);
  logger.OnLine(nullptr);
}

// --- Whatever a proxy sends ---

// Every truncation and every flipped bit of a frame of each command, from a proxy that the router
// knows: the callback answers 0 or 1, the other proxies stay as they are.
class MangledFrameTest : public SenderTest {
 protected:
  void Deliver(const std::string& bytes) {
    const int answer = mgr.Deliver(kRemoving, bytes);
    EXPECT_TRUE(answer == 0 || answer == 1 || (answer == -1 && bytes.size() < 28)) << answer;
    logger.Clear();
  }
  void ExpectUntouched(const ProxyServer& other) {
    EXPECT_EQ(0, other.m_heartbeat_num);
    EXPECT_EQ(0, other.cpuUse);
    EXPECT_EQ(0, other.last_auth_result);
    EXPECT_TRUE(other.auth_succeed);
    EXPECT_TRUE(other.is_available);
    EXPECT_EQ(0U, other.m_response_count);
  }
};

TEST_F(MangledFrameTest, HurtsNobodyElse) {
  for (const uint32_t cmd : kInnerCommands) {
    InboundFrame frame = Frame(cmd);
    frame.table = "user";
    frame.user_buff = "CpuUse=75;CpuTotal=400;";
    const std::string good = frame.Bytes();
    for (size_t length = 0; length < good.size(); ++length) {
      Deliver(good.substr(0, length));
    }
    for (size_t bit = 0; bit < 8 * good.size(); ++bit) {
      std::string flipped = good;
      flipped[bit / 8] = static_cast<char>(flipped[bit / 8] ^ (1 << bit % 8));
      Deliver(flipped);
    }
  }
  ExpectUntouched(*proxy);
  ExpectUntouched(*preparing);
  EXPECT_TRUE(mgr.At(kUsing).sent().empty());
  EXPECT_TRUE(mgr.At(kPreparing).sent().empty());
  EXPECT_EQ(1U, peer->m_using_servers()->GetUsed());
}

}  // namespace
}  // namespace OstrandService
