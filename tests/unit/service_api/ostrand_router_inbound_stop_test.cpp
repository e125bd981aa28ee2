// Stop notices and their replies; metadata answers, which are the router's own or the user's.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "unit/service_api/router_inbound_test.h"
#include "vex/vex_image.h"

namespace OstrandService {
namespace {

using OstrandCommon::OSTRAND_LOG_LEVEL_DEBUG;
using OstrandCommon::OSTRAND_LOG_LEVEL_ERROR;
using OstrandCommon::OSTRAND_LOG_LEVEL_INFO;
using OstrandFakes::LogLine;
using OstrandFakes::Said;

constexpr char kSecond[] = "tcp://10.0.1.1:1";

// --- Stop notices ---

class StopReqTest : public RouterInboundTest {
 protected:
  static Said Received(const std::string& url = kUsing) {
    return Says(OSTRAND_LOG_LEVEL_INFO, "recv OSTRAND_API_NOTIFY_STOP_REQ from URL(" + url + ")");
  }
  static Said Judged(OstrandCommon::LogLevel level, const std::string& text) {
    return {level, "ProxyServerCanStop", text};
  }
  static Said Sent(const std::string& url, int ret = 82) {
    return {OSTRAND_LOG_LEVEL_DEBUG, "InitCsPkgForInnerRequest",
            "InitCsPkgForInnerRequest cmd(68) url:(" + url + ") ret:" + std::to_string(ret)};
  }
  // The lines of a dispatch without the dump of the reply.
  std::vector<LogLine> LinesWithoutDump() {
    std::vector<LogLine> lines = logger.Lines();
    const std::string dump = "---------- request dump ----------\n";
    if (!lines.empty() && lines.back().text.compare(0, dump.size(), dump) == 0) {
      lines.pop_back();
    }
    return lines;
  }
  ProxyServer* AddSecond() {
    ProxyServer* second = AddReadyProxy(peer->m_using_servers(), kSecond);
    logger.Clear();
    return second;
  }
  // A reply of the router: command 68 with the notice's asynchronous id and nothing else.
  static std::string Reply(uint64_t asyn_id) {
    InboundFrame reply(68);
    reply.asyn_id = asyn_id;
    return reply.Bytes();
  }
};

TEST_F(StopReqTest, IsGrantedWhenTheOthersSuffice) {
  ProxyServer* second = AddSecond();
  EXPECT_EQ(1, Dispatch(kUsing, StopReq(0x1122334455667788)));
  EXPECT_EQ(1, proxy->last_auth_result) << "it no longer counts as available";
  EXPECT_TRUE(proxy->auth_succeed);
  EXPECT_EQ(std::vector<std::string>({Reply(0x1122334455667788)}), mgr.At(kUsing).sent());
  EXPECT_EQ(Lines({Received(),
                   Judged(OSTRAND_LOG_LEVEL_INFO, "available proxy num 2 total 2,enough proxy so " +
                                                      std::string(kUsing) + " can stop"),
                   Sent(kUsing)}),
            LinesWithoutDump());
  EXPECT_FALSE(pass_to_user);
  EXPECT_EQ(0, second->last_auth_result);
  EXPECT_TRUE(mgr.At(kSecond).sent().empty());
}

TEST_F(StopReqTest, HasAReplyOfTheseBytes) {
  AddSecond();
  server.SetVersionWithoutTable(-1);
  Dispatch(kUsing, StopReq(258));
  const char kBytes[] =
      "OT\x00\x7F"                                        // magic, version 127
      "\x00\x00\x00\x52\x00\x00\x00\x00"                  // head of 82 bytes, no body
      "\x00\x00\x00\x00\x00\x00\x01\x02"                  // asynchronous id of the notice
      "\x00\x00\x00\x00\x00\x00\x00\x44"                  // sequence 0, command 68
      "\x00\x00\x00\x00"                                  // flags
      "\x00\x00\x03\xE9\x00\x00\x00\x05\x00\x00\x00\x00"  // app 1001, zone 5, shard 0
      "\x00\x00\x00\x00\x00\x00\x00\x00"                  // no table, no user buffer
      "\xFF\xFF\xFF\xFF\x00\x00\x00\x00"                  // key: version -1, no fields
      "\xFF\xFF\xFF\xFF\x00\x00"                          // schema version, no compression
      "\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00"  // no split key, result 0, sub-command 0
      "\x00\x00\x00\x00";                                 // no performance record
  EXPECT_EQ(std::vector<std::string>({std::string(kBytes, 82)}), mgr.At(kUsing).sent());
}

TEST_F(StopReqTest, HasItsIdEchoedWhole) {
  AddSecond();
  Dispatch(kUsing, StopReq(UINT64_MAX));
  EXPECT_EQ(std::vector<std::string>({Reply(UINT64_MAX)}), mgr.At(kUsing).sent());
}

TEST_F(StopReqTest, IsConsumedWhateverBecomesOfIt) {
  AddSecond();
  EXPECT_EQ(1, mgr.Deliver(kUsing, StopReq().Bytes()));
  EXPECT_EQ(1, mgr.Deliver(kSecond, StopReq().Bytes()));
  EXPECT_EQ(1, mgr.Deliver(kRemoving, StopReq().Bytes()));
  EXPECT_EQ(1, mgr.Deliver(kPreparing, StopReq().Bytes()));
  EXPECT_EQ(1U, mgr.At(kUsing).sent().size());
  EXPECT_TRUE(mgr.At(kSecond).sent().empty());
}

TEST_F(StopReqTest, IsRefusedWithoutAReplyWhenItCannotBeSpared) {
  EXPECT_EQ(0, Dispatch(kUsing, StopReq(9)));
  const std::string url = kUsing;
  EXPECT_EQ(
      Lines({Received(),
             Judged(OSTRAND_LOG_LEVEL_ERROR,
                    "available proxy num 1 total 1, proxy not enough " + url + " can not stop"),
             Says(OSTRAND_LOG_LEVEL_ERROR, "ProxyServer " + url + " can not stop, ret=-1")}),
      logger.Lines());
  EXPECT_EQ(0, proxy->last_auth_result);
  EXPECT_TRUE(mgr.At(kUsing).sent().empty());
}

TEST_F(StopReqTest, IsRefusedToTheSecondOfTwo) {
  ProxyServer* second = AddSecond();
  EXPECT_EQ(1, Dispatch(kUsing, StopReq()));
  EXPECT_EQ(0, Dispatch(kSecond, StopReq()));
  EXPECT_EQ(0, second->last_auth_result);
  EXPECT_TRUE(mgr.At(kSecond).sent().empty());
}

TEST_F(StopReqTest, IsGrantedAgainToWhoHasAnnouncedItsStop) {
  AddSecond();
  EXPECT_EQ(1, Dispatch(kUsing, StopReq(1)));
  EXPECT_EQ(1, Dispatch(kUsing, StopReq(2))) << "an unavailable asker may always stop";
  EXPECT_EQ(std::vector<std::string>({Reply(1), Reply(2)}), mgr.At(kUsing).sent());
}

TEST_F(StopReqTest, IsGrantedToWhoServesNothing) {
  proxy->is_available = false;
  EXPECT_EQ(1, Dispatch(kUsing, StopReq()));
  EXPECT_EQ(1, proxy->last_auth_result);
}

TEST_F(StopReqTest, IsGrantedUnaskedOnTheWayOut) {
  EXPECT_EQ(1, Dispatch(kRemoving, StopReq(3)));
  EXPECT_EQ(1, removing->last_auth_result);
  EXPECT_EQ(std::vector<std::string>({Reply(3)}), mgr.At(kRemoving).sent());
  EXPECT_EQ(Lines({TurnsToRemoving(kRemoving), Received(kRemoving), Sent(kRemoving)}),
            LinesWithoutDump());
}

TEST_F(StopReqTest, KeepsItsMarkWhenTheReplyCannotBeSent) {
  AddSecond();
  for (const int result : {0, -1}) {
    proxy->last_auth_result = 0;
    logger.Clear();
    mgr.At(kUsing).SetSendResult(result);
    EXPECT_EQ(-5, Dispatch(kUsing, StopReq()));
    EXPECT_EQ(1, proxy->last_auth_result);
    EXPECT_EQ(Line(OSTRAND_LOG_LEVEL_ERROR, "ProcRouterMsg",
                   "InitCsPkgForInnerRequest(" + std::string(kUsing) +
                       ") for OSTRAND_API_NOTIFY_STOP_REQ failed, ret=-6"),
              logger.Lines().back());
  }
}

TEST_F(StopReqTest, NamesTheReasonWhyTheReplyFailed) {
  server.SetScratchSize(81);  // One byte too small for a reply.
  EXPECT_EQ(-5, Dispatch(kRemoving, StopReq()));
  EXPECT_EQ(1, removing->last_auth_result);
  EXPECT_EQ("InitCsPkgForInnerRequest(" + std::string(kRemoving) +
                ") for OSTRAND_API_NOTIFY_STOP_REQ failed, ret=-2323",
            logger.Lines().back().text);
}

TEST_F(StopReqTest, IsDroppedForAProxyWithoutAConnector) {
  OSTRNET::CConnector* const connector = removing->connector;
  const int32_t before = removing->last_auth_result;
  removing->connector = nullptr;
  EXPECT_EQ(0, Dispatch(kRemoving, StopReq()));
  EXPECT_EQ(before, removing->last_auth_result);
  removing->connector = connector;
}

TEST_F(StopReqTest, MarksTheProxyBeforeItIsAnswered) {
  logger.OnLine([&](const LogLine& line) {
    EXPECT_EQ(line.function == "InitCsPkgForInnerRequest" ? 1 : 0, removing->last_auth_result)
        << line;
  });
  EXPECT_EQ(1, Dispatch(kRemoving, StopReq()));
  logger.OnLine(nullptr);
}

TEST_F(StopReqTest, IsReadBeforeTheReplyReusesItsPackage) {
  // The notice brings a user buffer and a table, the reply has neither.
  AddSecond();
  InboundFrame notice = StopReq(77);
  notice.user_buff = "bye";
  notice.table = "user";
  notice.seq = 5;
  EXPECT_EQ(1, Dispatch(kUsing, notice));
  EXPECT_EQ(std::vector<std::string>({Reply(77)}), mgr.At(kUsing).sent());
}

// --- Metadata answers ---

class MetadataResTest : public RouterInboundTest {
 protected:
  MetadataResTest() {
    local.name = "user";
    local.version = 4;
    local.customattr2 = "DataProtocolType=PB";
    local.value_fields = {{"gold", VexFieldType::kInt32, 4, 0}};
    server.RegisterTable(kZoneId, "user", &local);
  }

  // The answer to the router's own probe.
  static InboundFrame Probe(InboundFrame answer) {
    answer.asyn_id = 110;
    answer.seq = -110;
    answer.user_buff = std::string("recheck proxy available", 24);
    return answer;
  }
  std::string LocalImage() {
    std::string image;
    EXPECT_EQ(kVexOk, vex_write_metalib_buf(VexMetaLib{{local}}, &image));
    return image;
  }
  RegisterTableInfo& Table() {
    const OstrandCommon::ScopedWriteLock lock(server.m_register_table_lock);
    return server.m_register_table[kZoneId]["user"];
  }
  static Said Received(const std::string& url = kUsing) {
    return Says(OSTRAND_LOG_LEVEL_INFO, "recv OSTRAND_API_METADATA_GET_RES from URL(" + url + ")");
  }
  static Said Leaves(const std::string& url = kUsing) {
    return Says(OSTRAND_LOG_LEVEL_DEBUG, "recv CMD(28) from URL(" + url + ")");
  }
  std::vector<LogLine> OwnLines() { return logger.LinesFrom("ProcRouterMsg"); }

  VexMeta local;
};

TEST_F(MetadataResTest, IsTheUsersUnlessItBearsTheProbesMarks) {
  InboundFrame answer = MetadataRes(3, 4, 0, LocalImage());
  answer.user_buff = "the user's";
  EXPECT_EQ(0, Dispatch(kUsing, answer));
  EXPECT_TRUE(pass_to_user);
  EXPECT_EQ(Lines({Received(), Leaves()}), logger.Lines());
  EXPECT_EQ(1, Table().check_ret) << "it was not checked";
  EXPECT_EQ(0, mgr.Deliver(kUsing, answer.Bytes()));
  EXPECT_EQ(1U, mgr.At(kUsing).queued_frames());
}

TEST_F(MetadataResTest, IsTheUsersWhenOnlyTheSequenceIsNotTheProbes) {
  InboundFrame answer = Probe(MetadataRes(3, 4, 2));
  answer.seq = -111;
  EXPECT_EQ(0, mgr.Deliver(kUsing, answer.Bytes()));
  EXPECT_EQ(1, Table().check_ret);
}

TEST_F(MetadataResTest, IsTheUsersWithoutAUserBuffer) {
  EXPECT_EQ(-3, Dispatch(kUsing, MetadataRes(3, 4, 0)));
  EXPECT_TRUE(pass_to_user);
  EXPECT_EQ(Lines({Received(),
                   {OSTRAND_LOG_LEVEL_INFO, "ProcessGetMetaResForRecheck",
                    "user_buff_len == 0 || NULL == user_buff."},
                   Leaves()}),
            logger.Lines());
  EXPECT_EQ(0, mgr.Deliver(kUsing, MetadataRes(3, 4, 0).Bytes()));
}

TEST_F(MetadataResTest, GoesIntoTheSchemaCheckWhenItIsTheProbes) {
  EXPECT_EQ(1, mgr.Deliver(kUsing, Probe(MetadataRes(3, 4, 0, LocalImage())).Bytes()));
  EXPECT_EQ(0U, mgr.At(kUsing).queued_frames());
  EXPECT_EQ(0, Table().check_ret);
  EXPECT_EQ(3, Table().svr_table_type);
  EXPECT_EQ(2, Table().data_protocol_type);
  EXPECT_EQ(Lines({Received(), Leaves()}), OwnLines());
}

TEST_F(MetadataResTest, IsConsumedWhenTheSchemaCheckFails) {
  EXPECT_EQ(0, Dispatch(kUsing, Probe(MetadataRes(3, 3, 0))));
  EXPECT_FALSE(pass_to_user);
  EXPECT_EQ(-18451, Table().check_ret);
  EXPECT_EQ(-18451, server.last_error_code());
  EXPECT_EQ(Lines({Received(), Leaves()}), OwnLines());
  EXPECT_EQ(1, logger.Count(OSTRAND_LOG_LEVEL_ERROR, "CheckTable vexmeta failed, ret:-18451"));
}

TEST_F(MetadataResTest, IsTakenFromAProxyOnItsWayOut) {
  EXPECT_EQ(1, mgr.Deliver(kRemoving, Probe(MetadataRes(3, 4, 2)).Bytes()));
  EXPECT_EQ(0, Table().check_ret);
  EXPECT_EQ(Lines({TurnsToRemoving(kRemoving), Received(kRemoving), Leaves(kRemoving)}),
            OwnLines());
}

TEST_F(MetadataResTest, IsRefusedFromAProxyThatIsPrepared) {
  EXPECT_EQ(1, mgr.Deliver(kPreparing, Probe(MetadataRes(3, 4, 2)).Bytes()));
  EXPECT_EQ(1, Table().check_ret);
}

TEST_F(MetadataResTest, IsDroppedWhenItDoesNotDecode) {
  InboundFrame answer = Probe(MetadataRes(3, 4, 2));
  answer.body += "x";
  EXPECT_EQ(1, mgr.Deliver(kUsing, answer.Bytes())) << "the user never sees it";
  EXPECT_EQ(1U, server.dir_alarm_codes().size());
  EXPECT_EQ(1, Table().check_ret);
}

TEST_F(MetadataResTest, SurvivesImagesOfEveryMalformedKind) {
  const std::string good = LocalImage();
  for (size_t length = 0; length < good.size(); ++length) {
    Table().check_ret = 1;
    EXPECT_EQ(1, mgr.Deliver(kUsing, Probe(MetadataRes(3, 4, 0, good.substr(0, length))).Bytes()));
    EXPECT_EQ(length == 0 ? 0 : -18451, Table().check_ret) << length;
  }
  for (size_t bit = 0; bit < 8 * good.size(); ++bit) {
    std::string flipped = good;
    flipped[bit / 8] = static_cast<char>(flipped[bit / 8] ^ (1 << bit % 8));
    Table().check_ret = 1;
    EXPECT_EQ(1, mgr.Deliver(kUsing, Probe(MetadataRes(3, 4, 0, flipped)).Bytes()));
    EXPECT_EQ(-18451, Table().check_ret) << bit;
  }
}

}  // namespace
}  // namespace OstrandService
