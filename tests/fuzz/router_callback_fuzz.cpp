// Any bytes as a frame that a proxy sends to a router with proxies in all three lists: the callback
// answers 0 or 1, only answers to the user are left to the user, and no proxy but the sender is
// touched.
//
// The first byte of an input chooses
//   bits 0 to 2  the sender: in use (0, 1), in use and being prepared (2), being prepared (3; 4,
//                whose element in use has no record), on its way out (5), unknown (6), no url (7);
//   bits 3 to 4  what is put right in the bytes behind it: nothing (0), magic and lengths (1),
//   those
//                and the command (2, 3);
//   bits 5 to 6  that command: 28, 52, 54 or 67;
//   bit 7        whether the sender's connector takes a reply.
// Every input meets the same router: what a callback may change is put back before.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <memory>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "common/crc.h"
#include "fakes/fake_clock.h"
#include "fakes/fake_judge_proxy.h"
#include "fakes/fake_latency_data_mgr.h"
#include "fakes/fake_net_thread.h"
#include "fakes/fake_statistic_mgr.h"
#include "fakes/router_peer.h"
#include "fakes/scripted_connector_mgr.h"
#include "fuzz/quiet_logger.h"
#include "protocol/codec.h"
#include "service_api/ostrand_router.h"
#include "service_api/ostrand_server.h"
#include "vex/vex_image.h"

namespace {

using ostrand_protocol_cs::OStrandPkg;
using OstrandFakes::ScriptedConnector;
using OstrandService::List;
using OstrandService::OstrandServer;
using OstrandService::ProxyServer;
using OstrandService::RegisterTableInfo;

constexpr int32_t kZone = 5;
constexpr size_t kFixedHead = 28;
constexpr uint32_t kInnerCommands[] = {28, 52, 54, 67};

void Require(bool holds) {
  if (!holds) {
    std::abort();
  }
}

// Keeps nothing of what it is told, so that it does not grow.
class Service : public OstrandServer {
 public:
  OstrandCommon::Logger* GetLogger() override { return &logger; }
  void NetThreadGetBufPkg(char*& buffer, size_t& size, OStrandPkg*& pkg) override {
    buffer = m_buffer.data();
    size = m_buffer.size();
    pkg = m_pkg.get();
  }
  const char* GetApiVersion() override { return "1.2.3"; }
  int GetTableMetaVersion(int, const char*) override { return 0; }
  void SetDirAlarmErrorCode(int code) override { Require(code < 0); }
  int CompareEntryValueField(LPVEXMETA local, LPVEXMETA server) override {
    return vex_compare_value_fields(local, server);
  }
  int ReportDirHashCircleStat(int, std::string&) override { return 0; }
  OstrandService::NetThread& GetNetThread() override { return m_net_thread; }

  QuietLogger logger;

 private:
  std::vector<char> m_buffer = std::vector<char>(64 * 1024);
  std::unique_ptr<OStrandPkg> m_pkg = ostrand_protocol_cs::NewOStrandPkg();
  OstrandFakes::FakeNetThread m_net_thread{nullptr};
};

class Statistics : public OstrandFakes::FakeStatisticMgr {
 public:
  int AddAccess(int64_t, int32_t, const char*, int, int, const char*) override { return 0; }
};

VexMeta LocalSchema() {
  VexMeta user;
  user.name = "user";
  user.version = 3;
  user.value_fields = {{"nick", VexFieldType::kString, 300, 1},
                       {"gold", VexFieldType::kInt32, 4, 3}};
  return user;
}

// What callbacks may write of a record.
auto FieldsOf(const ProxyServer& proxy) {
  return std::make_tuple(
      proxy.connector, proxy.pre_status, proxy.last_recv_ms.Get(), proxy.last_auth_result.Get(),
      proxy.has_sent_auth.Get(), proxy.auth_succeed.Get(), proxy.is_available.Get(),
      proxy.m_heartbeat_num.Get(), proxy.m_total_heartbeat_latency.Get(),
      proxy.m_max_heartbeat_latency.Get(), proxy.m_heartbeat_latency_large_num.Get(),
      proxy.cpuUse.Get(), proxy.cpuTotal.Get(), proxy.m_request_count.Get(),
      proxy.m_response_count.Get(), proxy.m_ptrRouter);
}
using Fields = decltype(FieldsOf(std::declval<const ProxyServer&>()));

class World {
 public:
  World() {
    Require(router->Init(&mgr, static_cast<OstrandServer*>(&service), &service.logger) == 0);
    List* in_use = peer.m_using_servers();
    List* preparing = peer.m_preparing_servers();
    Add(in_use, 0, nullptr);
    Add(in_use, 1, nullptr);
    Add(in_use, 2, nullptr);
    Add(preparing, 2, proxies[2]);
    Add(preparing, 3, nullptr);
    Add(preparing, 4, nullptr);
    Add(in_use, 4, proxies[4]);
    peer.FindServerNode(in_use, Url(4).c_str())->server = nullptr;
    Add(peer.m_removing_servers(), 5, nullptr);
  }

  static std::string Url(size_t sender) { return "tcp://10.0.0." + std::to_string(sender) + ":1"; }

  // Everything back to where it was before the first input.
  void Reset() {
    for (size_t i = 0; i < proxies.size(); ++i) {
      ProxyServer fresh;
      fresh.connector = proxies[i]->connector;
      fresh.m_ptrRouter = router.get();
      fresh.last_auth_result = 0;
      fresh.has_sent_auth = true;
      fresh.auth_succeed = true;
      *proxies[i] = fresh;
      before[i] = FieldsOf(fresh);
      ScriptedConnector& connector = mgr.At(Url(i));
      connector.ClearSent();
      connector.SetStatus(2);
      connector.SetSendResult(1);
    }
    peer.m_proxy_sign_up_recv() = false;
    service.SetLastError(0, "");
    // A callback that kept the lock would stop here for good.
    const OstrandCommon::ScopedWriteLock lock(service.m_register_table_lock);
    service.m_register_table.clear();
    RegisterTableInfo& user = service.m_register_table[kZone]["user"];
    user.local_meta = &schema;
  }

  OstrandFakes::FakeClock clock;
  VexMeta schema = LocalSchema();
  Service service;
  OstrandFakes::ScriptedConnectorMgr mgr;
  Statistics statistics;
  OstrandFakes::FakeJudgeProxy judge;
  OstrandFakes::FakeLatencyDataMgr latency;
  std::vector<char> pack_buffer = std::vector<char>(64 * 1024);
  std::unique_ptr<OstrandService::OstrandRouter> router =
      std::make_unique<OstrandService::OstrandRouter>(7, pack_buffer.data(), pack_buffer.size(),
                                                      1001, kZone, "", 0, &latency, &statistics,
                                                      &judge, 0);
  OstrandService::OstrandRouterPeer peer{*router};
  std::vector<ProxyServer*> proxies;  // by sender
  Fields before[6];

 private:
  void Add(List* list, size_t sender, ProxyServer* known) {
    const std::string url = Url(sender);
    Require(peer.AddServerNode(list, url.c_str(), "id", known) == 0);
    if (known == nullptr) {
      proxies.push_back(peer.FindServerNode(list, url.c_str())->server);
    }
  }
};

void PutBigEndian(uint64_t value, size_t offset, std::string* frame) {
  for (size_t i = 0; i < 4; ++i) {
    (*frame)[offset + i] = static_cast<char>(value >> (24 - 8 * i));
  }
}

uint32_t BigEndianAt(const std::string& frame, size_t offset) {
  uint32_t value = 0;
  for (size_t i = offset; i < offset + 4; ++i) {
    value = value << 8 | static_cast<unsigned char>(frame[i]);
  }
  return value;
}

// Puts magic and lengths right, keeping the length of the head as far as it fits.
void PutRight(std::string* frame) {
  frame->replace(0, 2, "OT");
  const size_t head = std::max(kFixedHead, std::min<size_t>(BigEndianAt(*frame, 4), frame->size()));
  PutBigEndian(head, 4, frame);
  PutBigEndian(frame->size() - head, 8, frame);
}

// The answer to the router's probe, with the bytes as its schema image. Envelope and checksum of
// the image are put right.
std::string ProbeAnswer(std::string image) {
  static const std::unique_ptr<OStrandPkg> pkg = ostrand_protocol_cs::NewOStrandPkg();
  const size_t covered = image.size() - kVexImageChecksumBytes;
  PutBigEndian(kVexImageMagic, 0, &image);
  image.replace(4, 2, std::string("\0\1", 2));
  PutBigEndian(image.size(), 8, &image);
  PutBigEndian(OstrandCommon::CRC(image.data(), covered), covered, &image);

  auto& head = pkg->stHead;
  head.construct();
  head.dwCmd = 28;
  head.ullAsynID = 110;
  head.iSeq = -110;
  head.stRouterInfo.iZoneID = kZone;
  head.stRouterInfo.dwTableNameLen = sizeof("user");
  std::memcpy(head.stRouterInfo.szTableName, "user", sizeof("user"));
  head.dwUserBuffLen = sizeof("recheck proxy available");
  std::memcpy(head.szUserBuff, "recheck proxy available", head.dwUserBuffLen);
  auto& answer = pkg->stBody.stMetadataGetRes;
  answer.dwOstrandType = 3;
  answer.iVexMetaCurrentVersion = 3;
  answer.iIdlType = 0;
  answer.iIdlConLen = static_cast<int32_t>(image.size());
  image.copy(answer.szIdlContent, image.size());
  std::string frame(image.size() + 256, '\0');
  size_t length = frame.size();
  Require(ostrand_protocol_cs::PackWholeCsPkgMaybeCompress(&frame[0], length, nullptr, 0, *pkg, 127,
                                                           nullptr) == 0);
  frame.resize(length);
  return frame;
}

// The frame that an input stands for.
std::string FrameOf(unsigned choice, const std::string& bytes) {
  std::string frame = bytes;
  switch ((choice >> 3) & 3) {
    case 1:
      if (frame.size() >= kFixedHead) {
        PutRight(&frame);
      }
      return frame;
    case 2:
      if (frame.size() >= kFixedHead) {
        PutRight(&frame);
        PutBigEndian(kInnerCommands[(choice >> 5) & 3], 24, &frame);
      }
      return frame;
    case 3:
      return bytes.size() >= kVexImageHeaderBytes + kVexImageChecksumBytes ? ProbeAnswer(bytes)
                                                                           : frame;
    default: return frame;
  }
}

void CheckSender(const World& world, size_t sender, uint32_t cmd) {
  const ScriptedConnector& connector = world.mgr.At(World::Url(sender));
  const auto sent = connector.sent();
  Require(sent.size() <= (cmd == 67 ? 1 : 0));
  for (const std::string& reply : sent) {
    Require(reply.size() == 82 && BigEndianAt(reply, 24) == 68);
    Require(world.proxies[sender]->last_auth_result == 1);
  }
  Require(connector.GetStatus() == 2 && connector.disconnects().empty());
}

void CheckOthers(const World& world, size_t sender) {
  for (size_t i = 0; i < world.proxies.size(); ++i) {
    if (i != sender) {
      Require(FieldsOf(*world.proxies[i]) == world.before[i]);
      Require(world.mgr.At(World::Url(i)).sent().empty());
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) {
    return 0;
  }
  static World world;
  world.Reset();
  const unsigned choice = data[0];
  const std::string frame =
      FrameOf(choice, std::string(reinterpret_cast<const char*>(data) + 1, size - 1));
  // An unknown sender and one without url share the record of the first one.
  const std::string url = World::Url(choice & 7);
  const size_t sender = (choice & 7) < world.proxies.size() ? choice & 7 : 0;
  world.mgr.At(World::Url(sender)).SetSendResult((choice & 0x80) != 0 ? 0 : 1);

  // A copy that ends where its memory ends.
  const std::unique_ptr<char[]> exact(new char[frame.size()]);
  std::copy(frame.begin(), frame.end(), exact.get());
  const int result =
      OstrandService::RouterCallBack((choice & 7) == 7 ? nullptr : url.c_str(), exact.get(),
                                     static_cast<int>(frame.size()), world.proxies[sender]);

  if (frame.size() < kFixedHead) {
    Require(result == -1);
    CheckOthers(world, world.proxies.size());
    return 0;
  }
  const uint32_t cmd = BigEndianAt(frame, 24);
  const bool is_inner = std::find(std::begin(kInnerCommands), std::end(kInnerCommands), cmd) !=
                        std::end(kInnerCommands);
  Require(result == 0 || result == 1);
  Require(is_inner ? result == 1 || cmd == 28 : result == 0);
  CheckSender(world, sender, cmd);
  CheckOthers(world, sender);
  return 0;
}
