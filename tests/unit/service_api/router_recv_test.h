// What the tests of receiving share.
#pragma once

#include <cstring>
#include <string>
#include <vector>

#include "fakes/allocation_faults.h"
#include "fakes/fake_response.h"
#include "protocol/codec.h"
#include "unit/service_api/router_traffic_test.h"

namespace OstrandService {

inline constexpr uint32_t kGetRes = ostrand_protocol_cs::OSTRAND_API_GET_RES;
inline constexpr uint32_t kInsertRes = ostrand_protocol_cs::OSTRAND_API_INSERT_RES;
inline constexpr uint32_t kListGetAllRes = ostrand_protocol_cs::OSTRAND_API_LIST_GETALL_RES;
inline constexpr uint32_t kBatchGetRes = ostrand_protocol_cs::OSTRAND_API_BATCH_GET_RES;
inline constexpr uint32_t kGetByPartKeyRes = ostrand_protocol_cs::OSTRAND_API_GET_BY_PARTKEY_RES;
inline constexpr uint32_t kMetadataRes = ostrand_protocol_cs::OSTRAND_API_METADATA_GET_RES;

// An answer as a proxy sends it.
struct Answer {
  uint32_t cmd = kGetRes;
  int32_t result = 0;
  std::string user_buff;
  int32_t zone_id = OstrandFakes::RouterFixture::kZoneId;
  std::string table_name = kTable;
  std::string perf_test;
  uint32_t number = 0;  // of an answer in several packages
  bool more = false;    // the same: others follow
  int32_t seq = 0;
  uint64_t async_id = 0;
};

inline Answer AnswerOf(uint32_t cmd, int32_t result, const std::string& user_buff,
                       uint32_t number = 0) {
  Answer answer;
  answer.cmd = cmd;
  answer.result = result;
  answer.user_buff = user_buff;
  answer.number = number;
  return answer;
}

// As a frame.
inline std::string FrameOf(const Answer& answer) {
  const OstrandFakes::UnwatchedAllocations unwatched;
  static OstrandFakes::FakeResponse filled;  // Making one costs more than all the rest.
  filled.Begin(answer.cmd, answer.zone_id, answer.table_name);
  filled.SetPkgUserBytes(answer.user_buff);
  auto& pkg = filled.pkg();
  pkg.stHead.iResult = answer.result;
  pkg.stHead.dwSubCmd = answer.number;
  pkg.stHead.iSeq = answer.seq;
  pkg.stHead.ullAsynID = answer.async_id;
  pkg.stHead.dwPerfTestLen = static_cast<uint32_t>(answer.perf_test.size());
  std::memcpy(pkg.stHead.szPerfTest, answer.perf_test.data(), answer.perf_test.size());
  if (answer.cmd == kListGetAllRes || answer.cmd == kGetByPartKeyRes) {
    pkg.stBody.stGetByPartKeyRes.bHasMorePkgs = answer.more ? 1 : 0;
  }
  std::string frame(16 * 1024, '\0');
  size_t len = frame.size();
  EXPECT_EQ(0, ostrand_protocol_cs::PackWholeCsPkgMaybeCompress(&frame[0], len, nullptr, 0, pkg,
                                                                127, nullptr))
      << "command " << answer.cmd;
  frame.resize(len);
  return frame;
}

class RouterRecvTest : public RouterTrafficTest {
 protected:
  static constexpr int32_t kSubscript = 2;
  static constexpr int32_t kTimeoutMs = 3000;
  static constexpr int32_t kUnknownId = 4711;  // of no record

  void Queue(const Answer& answer) { connector->QueueFrame(FrameOf(answer)); }
  // Registers a request of this command; user_buff: kept with it.
  int32_t InFlight(uint32_t cmd) {
    return latency.PushBack(kZoneId, clock.Ms(), kTimeoutMs, kIp, kPort, cmd, kSubscript, kTable,
                            0xABCD, -9, nullptr, 0);
  }
  int32_t InFlight(uint32_t cmd, const std::string& user_buff) {
    return latency.PushBack(kZoneId, clock.Ms(), kTimeoutMs, kIp, kPort, cmd, kSubscript, kTable,
                            0xABCD, -9, user_buff.data(), static_cast<uint32_t>(user_buff.size()));
  }

  int32_t Recv() {
    StartOver();
    return router->RecvResponse(&response, nullptr);
  }
  int32_t InnerRecv() {
    StartOver();
    return peer->InnerRecvResponse(proxy, &response);
  }

  // Delivers an answer, with nothing counted before. Its user buffer tells the table.
  void Deliver(uint32_t cmd, int32_t result, const std::string& user_buff) {
    ForgetCounts();
    Queue(AnswerOf(cmd, result, user_buff));
    EXPECT_EQ(1, InnerRecv());
  }
  void Deliver(uint32_t cmd, int32_t result) {
    Deliver(cmd, result, Context(kUnknownId, kSubscript));
  }

  OstrandFakes::FakeResponse response{&journal};
};

}  // namespace OstrandService
