// A million random requests and answers, against a plain model of who must get what.
//
// Real requests, responses, in-flight table and statistics; proxies in memory that answer late,
// twice, in the wrong order, with forged and damaged contexts, or never. Each thing delivered is
// compared whole: nothing reaches the wrong one. In the end each registered request was answered or
// timed out, once, and no other request timed out. A request that fails after its registration
// times out as well; an answer that comes after the time-out, or with a damaged context, is
// delivered all the same.
//
// REQUESTS_SEED repeats a run.
#include "property/requests_model.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "client/client_request.h"
#include "client/client_response.h"
#include "client/judge.h"
#include "client/latency_data_table.h"
#include "client/package_table_name.h"
#include "client/request_form.h"
#include "client/router_request.h"
#include "client/router_response.h"
#include "client/statistic_mgr.h"
#include "fakes/router_fixture.h"
#include "fakes/sanitizers.h"
#include "protocol/codec.h"
#include "protocol/record_buffer.h"

namespace OstrandService {
namespace {

using namespace ostrand_protocol_cs;  // NOLINT: packages
using OstrandFakes::RequestsModel;
using OstrandFakes::RouterFixture;
using OstrandFakes::ScriptedConnector;
using Answer = RequestsModel::Answer;
using Delivery = RequestsModel::Delivery;
using Lane = RequestsModel::Lane;

constexpr uint64_t kEvents = OstrandFakes::Rounds(250000);  // requests and answers of one life

constexpr char kTable[] = "player";
constexpr size_t kMaxInFlight = 40;
constexpr size_t kMaxUnanswered = 30;
constexpr int32_t kFirstId = INT32_MAX - 1000;  // the ids start anew within the first requests
constexpr uint32_t kCmds[] = {OSTRAND_API_GET_REQ,
                              OSTRAND_API_GET_REQ,
                              OSTRAND_API_GET_REQ,
                              OSTRAND_API_INSERT_REQ,
                              OSTRAND_API_GET_BY_PARTKEY_REQ,
                              OSTRAND_API_LIST_GETALL_REQ,
                              OSTRAND_API_BATCH_GET_REQ,
                              OSTRAND_API_METADATA_GET_REQ};
constexpr size_t kUserLens[] = {0, 1, 4, 14, 20, 100, 1009, 1010, 1024};

enum class LocalBuffer { kOff, kOn, kChanging };

struct Life {
  const char* name;
  uint64_t seed;
  LocalBuffer local_buffer;
};

std::ostream& operator<<(std::ostream& out, const Life& life) { return out << life.name; }

std::string Text(const Delivery& delivery) {
  std::ostringstream text;
  text << "async id " << delivery.async_id << ", seq " << delivery.seq << ", cmd " << delivery.cmd
       << ", result " << delivery.result << ", more " << delivery.more << ", "
       << delivery.user.size() << " user bytes, record " << delivery.value;
  return text.str();
}

class RequestsModelTest : public testing::TestWithParam<Life>, public RouterFixture {
 protected:
  // A request that a proxy has received.
  struct Received {
    uint64_t async_id;
    int32_t seq;
    uint32_t cmd;
    std::string user_buff;
    std::string perf;
    uint32_t next_number;
    uint32_t packages;
  };
  struct Proxy {
    ProxyServer* server;
    ScriptedConnector* connector;
  };

  RequestsModelTest()
      : random(SeedOf(GetParam())), model(kFirstId, kMaxInFlight, 0), table(kAppId, kMaxInFlight) {
    logger.SetThreshold(OstrandCommon::OSTRAND_LOG_LEVEL_FATAL);
    real_statistics.RegisterApp(kAppId, kZoneId);
    real_statistics.RegisterTable(kAppId, kZoneId, kTable);
    table.SetNextId(kFirstId);
    router = NewRouter(&table, &real_statistics, &real_judge);
    peer = std::make_unique<OstrandRouterPeer>(*router);
    EXPECT_EQ(0, Init());
    std::snprintf(qos.szTableName, sizeof(qos.szTableName), "%s", kTable);
    qos.iZoneID = kZoneId;
    router->SetQos(&qos);
    router->SetPerfSampPercent(20);
    for (int i = 1; i <= 5; ++i) {  // in the order in which they are asked
      List* const list = i <= 1 ? peer->m_removing_servers() : peer->m_using_servers();
      const std::string url = "tcp://10.0.0." + std::to_string(i) + ":8000";
      ProxyServer* const proxy = AddReadyProxy(list, url);
      mgr.At(url).SetAddress(i, 8000);
      real_statistics.AddAccess(kAppId, kZoneId, url.c_str(), i, 8000, "id");
      proxies.push_back({proxy, &mgr.At(url)});
    }
    lanes.resize(proxies.size());
    peer->WriteHashCircle();
  }

  static uint64_t SeedOf(const Life& life) {
    const char* const given = std::getenv("REQUESTS_SEED");
    const uint64_t seed = given != nullptr ? std::strtoull(given, nullptr, 10) : life.seed;
    std::printf("REQUESTS_SEED=%llu\n", static_cast<unsigned long long>(seed));
    return seed;
  }

  uint64_t Random(uint64_t below) { return random() % below; }
  bool OneIn(uint64_t rate) { return Random(rate) == 0; }
  bool IsLocal() const { return server.m_local_buffer != nullptr; }

  // --- the world ---

  void Change() {
    clock.AdvanceMs(OneIn(100) ? -5 : static_cast<int64_t>(Random(4)));
    if (OneIn(300)) {
      const bool all_out = OneIn(12);
      for (size_t i = 0; i < proxies.size(); ++i) {
        SetState(i, all_out || OneIn(4) ? Random(3) : 3);
      }
    }
    if (OneIn(200)) {
      pinned = OneIn(2);
      pinned ? router->SetSpecialOstrroxyIPAndPort("10.0.0.3", 8000)
             : router->ReSetSpecialOstrroxyIPAndPort();
    }
    peer->m_proxy_sign_up_recv() = !OneIn(100);
    const LocalBuffer local = GetParam().local_buffer;
    const bool on = local == LocalBuffer::kOn || (local == LocalBuffer::kChanging && OneIn(2));
    server.m_local_buffer = on ? &server : nullptr;
  }

  // 0: not connected, 1: not signed up, 2: isolated, 3: usable.
  void SetState(size_t i, uint64_t state) {
    proxies[i].connector->SetStatus(state == 0 ? 1 : 2);
    proxies[i].server->auth_succeed = state != 1;
    proxies[i].server->is_available = state != 2;
    lanes[i].asked = state >= 2;
  }

  static bool IsUsable(const ProxyServer& proxy) {
    return proxy.auth_succeed && proxy.is_available && proxy.connector->GetStatus() == 2;
  }

  bool HasRoute() const {
    return std::any_of(proxies.begin() + 1, proxies.end(),
                       [](const Proxy& proxy) { return IsUsable(*proxy.server); });
  }

  // --- requests ---

  void Send() {
    if (sent.async_id == 0 || !OneIn(8)) {  // else the one before once more
      BuildRequest();
    }
    sent.async_id = ++last_async_id;
    built.SetAsynID(sent.async_id);
    request.Load(built.Head(), built.Bytes());
    request.SetTableSubscript(0);

    RequestsModel::Circumstances circumstances;
    circumstances.now_ms = clock.Ms();
    circumstances.signed_up = peer->m_proxy_sign_up_recv();
    circumstances.has_route = HasRoute();
    circumstances.local_buffer = IsLocal();
    circumstances.pack_result = too_large ? int{OSTRAND_CODEC_ERR_BUFFER_FULL} : 0;
    circumstances.send_result = OneIn(50) ? (OneIn(2) ? 0 : -5) : 1;
    for (const Proxy& proxy : proxies) {
      proxy.connector->SetSendResult(circumstances.send_result);
    }
    const RequestsModel::Sending expected = model.Send(sent, circumstances);
    ASSERT_EQ(expected.result, router->SendRequest(&request));
    ASSERT_NO_FATAL_FAILURE(Transmit(expected, circumstances.send_result > 0));
  }

  void BuildRequest() {
    sent.cmd = kCmds[Random(std::size(kCmds))];
    sent.seq = static_cast<int32_t>(random());
    sent.timeout_ms = static_cast<int32_t>(Random(300));
    sent.user.assign(kUserLens[OneIn(4) ? Random(std::size(kUserLens)) : Random(6)],
                     static_cast<char>(random()));
    too_large = sent.cmd == OSTRAND_API_INSERT_REQ && OneIn(100);
    built.Begin(sent.cmd, kTable).Zone(kZoneId).SetSequence(sent.seq).SetTimeout(sent.timeout_ms);
    built.SetUserBuff(sent.user);
    const uint64_t key = random();
    if (KeyPlaceOf(sent.cmd) == KeyPlace::kHead) {
      built.Key("id", key);
    }
    if (too_large) {
      built.Set("value", std::string(kPackBufferSize, 'v'));
    }
    ASSERT_EQ(0, built.Fault()) << built.FaultText();
  }

  // What reached a connector reaches its proxy.
  void Transmit(const RequestsModel::Sending& expected, bool arrives) {
    std::string frame;
    for (const Proxy& proxy : proxies) {
      for (std::string& one : proxy.connector->sent()) {
        ASSERT_TRUE(frame.empty()) << "sent twice";
        const auto& target = *proxy.server;
        ASSERT_TRUE(pinned ? &target == proxies[2].server : IsUsable(target));
        ASSERT_NE(&target, proxies[0].server) << "to a proxy that is being removed";
        frame = std::move(one);
      }
      proxy.connector->ClearSent();
    }
    ASSERT_EQ(expected.reaches_connector, !frame.empty());
    if (frame.empty()) {
      return;
    }
    ASSERT_EQ(0, UnpackWholeCsPkgMaybeDecompress(*pkg, nullptr, 0, frame.data(), frame.size(),
                                                 nullptr, nullptr, 0));
    const OStrandPkgHead& head = pkg->stHead;
    ASSERT_EQ(sent.async_id, head.ullAsynID);
    ASSERT_EQ(sent.seq, head.iSeq);
    ASSERT_EQ(sent.cmd, head.dwCmd);
    ASSERT_TRUE(expected.user_buff == std::string(head.szUserBuff, head.dwUserBuffLen));
    if (arrives) {
      const uint32_t packages =
          RequestsModel::IsMultiPackage(sent.cmd) ? static_cast<uint32_t>(Random(4)) + 1 : 1;
      unanswered.push_back({sent.async_id, sent.seq, sent.cmd, expected.user_buff,
                            std::string(head.szPerfTest, head.dwPerfTestLen), 0, packages});
    }
  }

  // --- answers ---

  void Respond() {
    if (unanswered.size() > kMaxUnanswered) {
      unanswered.erase(unanswered.begin() + static_cast<ptrdiff_t>(Random(unanswered.size())));
    }
    if (unanswered.empty()) {
      return;
    }
    const size_t i = Random(unanswered.size());
    Received& to = unanswered[i];
    Answer answer;
    answer.async_id = to.async_id;
    answer.seq = to.seq;
    answer.cmd = to.cmd + 1;
    answer.result = OneIn(20) ? -269 : 0;
    answer.number = OneIn(30) ? WildNumber() : to.next_number;
    to.next_number += 1;
    answer.more = RequestsModel::IsMultiPackage(to.cmd) && to.next_number < to.packages;
    answer.user_buff = OneIn(12) ? Tampered(to.user_buff) : to.user_buff;
    answer.decodes = !OneIn(100);
    Put(answer, OneIn(50) ? "damaged" : to.perf);
    if (to.next_number >= to.packages && !OneIn(10)) {  // else once more
      unanswered.erase(unanswered.begin() + static_cast<ptrdiff_t>(i));
    }
    ++answers;
  }

  uint32_t WildNumber() {
    static constexpr uint32_t kNumbers[] = {0, 1, 2, 3, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF};
    return kNumbers[Random(std::size(kNumbers))];
  }

  std::string Tampered(std::string user_buff) {
    switch (Random(5)) {
      case 0: return user_buff.substr(0, Random(std::min<size_t>(user_buff.size() + 1, 14)));
      case 1: return std::string(Random(1025), static_cast<char>(random()));
      case 2: {  // whole, but of no request
        const auto id = static_cast<int32_t>(random());
        return "forged" + RequestsModel::ContextOf(model.IsInFlight(id) ? -1 : id, 0);
      }
      default: {
        if (user_buff.size() < 14) {
          return user_buff;
        }
        const size_t bit = Random(14 * 8);
        char& byte = user_buff[user_buff.size() - 14 + bit / 8];
        byte = static_cast<char>(static_cast<uint8_t>(byte) ^ (1U << bit % 8));
        return user_buff;
      }
    }
  }

  // Of the package that is an answer; null for commands without records.
  OStrandRecords* RecordsOf(uint32_t cmd) {
    switch (BodyKindOfCmd(cmd)) {
      case BodyKind::kRecord:
      case BodyKind::kRecords: return &pkg->stBody.stRecords;
      case BodyKind::kListGetAllRes: return &pkg->stBody.stListGetAllRes.stRecords;
      case BodyKind::kGetByPartKeyRes: return &pkg->stBody.stGetByPartKeyRes.stRecords;
      default: return nullptr;
    }
  }

  // Any proxy may bring it.
  void Put(Answer& answer, const std::string& perf) {
    OStrandPkgHead& head = pkg->stHead;
    head.construct();
    ASSERT_EQ(0, pkg->stBody.construct(answer.cmd));
    head.ullAsynID = answer.async_id;
    head.iSeq = answer.seq;
    head.dwCmd = answer.cmd;
    head.dwSubCmd = answer.number;
    head.iResult = answer.result;
    head.stRouterInfo.iZoneID = kZoneId;
    SetTableName(head.stRouterInfo, OneIn(20) ? nullptr : kTable);
    std::memcpy(head.szUserBuff, answer.user_buff.data(), answer.user_buff.size());
    head.dwUserBuffLen = static_cast<uint32_t>(answer.user_buff.size());
    std::memcpy(head.szPerfTest, perf.data(), perf.size());
    head.dwPerfTestLen = static_cast<uint32_t>(perf.size());
    if (answer.cmd == OSTRAND_API_GET_BY_PARTKEY_RES) {
      pkg->stBody.stGetByPartKeyRes.bHasMorePkgs = answer.more ? 1 : 0;
    } else if (answer.cmd == OSTRAND_API_LIST_GETALL_RES) {
      pkg->stBody.stListGetAllRes.bHasMorePkgs = answer.more ? 1 : 0;
    }
    if (OStrandRecords* const records = RecordsOf(answer.cmd)) {
      answer.value = std::to_string(++last_value);
      RecordWriter writer(*records);
      ASSERT_EQ(0, writer.BeginRecord());
      ASSERT_EQ(0, writer.AddValueField("value", answer.value));
    }
    size_t len = frame_buffer.size();
    ASSERT_EQ(0, PackWholeCsPkgMaybeCompress(frame_buffer.data(), len, nullptr, 0, *pkg,
                                             OSTRAND_PKG_CURRENT_VERSION, nullptr));
    if (!answer.decodes) {
      len -= 1;
    }
    const size_t i = Random(proxies.size());
    proxies[i].connector->QueueFrame(frame_buffer.substr(0, len));
    lanes[i].answers.push_back(answer);
    if (OneIn(100)) {
      lanes[i].peek_errors.push_back(OneIn(2) ? -12563 : -1);
      proxies[i].connector->PushPeekError(lanes[i].peek_errors.back());
    }
  }

  // False: nothing came.
  bool Receive() {
    received.SetTarget(&response);
    const int32_t ret = router->RecvResponse(&received, nullptr);
    if (ret == 1) {
      received.HandOver();
    }
    Delivery expected;
    const bool delivers =
        model.Receive(clock.Ms(), IsLocal(), lanes, ret == 1 ? response.GetAsynID() : 0, expected);
    EXPECT_EQ(delivers ? 1 : 0, ret);
    if (ret == 1) {
      const Delivery got = Got();
      const bool is_expected = expected == got;
      EXPECT_TRUE(is_expected) << Text(expected) << " expected, but got " << Text(got);
      if (is_expected && got.result == ClientResponse::kResultTimeOut) {
        timed_out.resize(last_async_id + 1);
        ++timed_out[got.async_id];
      }
    }
    EXPECT_EQ(model.in_flight(), table.InFlight());
    return ret == 1;
  }

  Delivery Got() {
    FieldView value;
    response.GetValue("value", value);
    return {response.GetAsynID(),
            response.GetSequence(),
            response.GetCmd(),
            response.GetResult(),
            received.HaveMoreResPkgs() == 1,
            std::string(response.GetUserBuff()),
            std::string(value.value)};
  }

  // --- a life ---

  void Live() {
    while (last_async_id + answers < kEvents && !HasFailure()) {
      Change();
      Random(100) < 46 ? Send() : Respond();
      for (uint64_t polls = Random(3); polls > 0; --polls) {
        Receive();
      }
    }
  }

  void DrainAll() {
    clock.AdvanceMs(1000);
    for (size_t i = 0; i < proxies.size(); ++i) {
      SetState(i, 3);
    }
    const auto waits = [](const Lane& lane) {
      return !lane.answers.empty() || !lane.peek_errors.empty();
    };
    while (!HasFailure() && (Receive() || std::any_of(lanes.begin(), lanes.end(), waits))) {
    }
  }

  void ExpectEachEndedOnce() {
    EXPECT_EQ(0U, table.InFlight());
    timed_out.resize(last_async_id + 1);
    const std::vector<RequestsModel::Fate>& fates = model.fates();
    for (uint64_t id = 1; id <= last_async_id; ++id) {
      const RequestsModel::Fate& fate = fates[id];
      ASSERT_EQ(fate.registered ? 1 : 0, fate.answered + timed_out[id]) << "async id " << id;
      ASSERT_EQ(fate.timed_out, timed_out[id]) << "async id " << id;
    }
    uint64_t counted = 0;
    tagServiceApiStatistic& statistic = *real_statistics.GetServiceApiStatistic(kAppId, kZoneId);
    for (int i = 1; i <= static_cast<int>(proxies.size()); ++i) {
      counted += real_statistics.GetAccessRunStatus(statistic, i, 8000)->dwTimeOutCountPerMin;
    }
    EXPECT_EQ(model.Seen(RequestsModel::kTimedOut), counted) << "of all proxies, for the judge";
  }

  // Or the life above would prove nothing.
  void ExpectAllCasesSeen() {
    const bool never_local = GetParam().local_buffer == LocalBuffer::kOff;
    const bool always_local = GetParam().local_buffer == LocalBuffer::kOn;
    for (size_t i = 0; i < RequestsModel::kCases; ++i) {
      const auto which = static_cast<RequestsModel::Case>(i);
      const bool never = always_local && (which == RequestsModel::kTooLongForContext ||
                                          which == RequestsModel::kSentWithoutRecord ||
                                          which == RequestsModel::kAnswered ||
                                          which == RequestsModel::kNoRecordDelivered);
      EXPECT_EQ(never, model.Seen(which) == 0) << "case " << i << (never_local ? ", normal" : "");
      RecordProperty("case_" + std::to_string(i), std::to_string(model.Seen(which)));
    }
  }

  std::mt19937_64 random;
  RequestsModel model;
  LatencyDataTable table;
  StatisticMgr real_statistics;
  Judge real_judge;
  tagTableQos qos{};
  std::vector<Proxy> proxies;
  std::vector<Lane> lanes;  // one a proxy
  ClientRequest built;
  RouterRequest request;
  RequestsModel::Request sent;
  bool too_large = false;
  bool pinned = false;  // to the third proxy
  ClientResponse response;
  RouterResponse received;
  std::unique_ptr<OStrandPkg> pkg = NewOStrandPkg();  // the proxies'
  std::string frame_buffer = std::string(8192, '\0');
  std::vector<Received> unanswered;
  uint64_t last_async_id = 0;
  uint64_t answers = 0;
  uint64_t last_value = 0;
  std::vector<int> timed_out;  // by async id, as delivered
};

TEST_P(RequestsModelTest, EachGetsItsOwnAndEndsOnce) {
  Live();
  DrainAll();
  ExpectEachEndedOnce();
  ExpectAllCasesSeen();
}

INSTANTIATE_TEST_SUITE_P(Lives, RequestsModelTest,
                         testing::Values(Life{"normal", 11, LocalBuffer::kOff},
                                         Life{"normal_again", 12, LocalBuffer::kOff},
                                         Life{"local", 13, LocalBuffer::kOn},
                                         Life{"changing", 14, LocalBuffer::kChanging}),
                         [](const auto& life) { return life.param.name; });

}  // namespace
}  // namespace OstrandService
