// What the tests of inbound frames share: frames written out by hand, and a router with a proxy in
// each of its lists.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "fakes/router_fixture.h"
#include "unit/protocol/raw_frame.h"

namespace OstrandService {

constexpr char kUsing[] = "tcp://10.0.0.1:1001";
constexpr char kPreparing[] = "tcp://10.0.0.2:1002";
constexpr char kRemoving[] = "tcp://10.0.0.3:1003";
constexpr char kStranger[] = "tcp://10.0.0.4:1004";

// A package of version 127 as a proxy sends it; what is not named here is 0 or empty.
struct InboundFrame {
  explicit InboundFrame(uint32_t command, std::string body_bytes = std::string())
      : cmd(command), body(std::move(body_bytes)) {}

  uint32_t cmd;
  std::string body;
  uint64_t asyn_id = 0;
  int32_t seq = 0;
  int32_t app = OstrandFakes::RouterFixture::kAppId;
  int32_t zone = OstrandFakes::RouterFixture::kZoneId;
  std::string table;
  std::string user_buff;
  int32_t meta_version = 0;
  int32_t result = 0;

  std::string Bytes() const {
    using namespace ostrand_protocol_cs;  // NOLINT: the writers of raw bytes
    const std::string fixed =
        BigEndian(asyn_id, 8) + S32(seq) + U32(cmd) + U32(0) + S32(app) + S32(zone) + U32(0);
    const std::string no_key = U32(0xFFFFFFFF) + U32(0);
    const std::string head = fixed + (table.empty() ? U32(0) : NamedText(table)) +
                             Counted(user_buff) + no_key + S32(meta_version) + BigEndian(0, 2) +
                             U32(0) + S32(result) + U32(0) + U32(0);
    return "OT" + BigEndian(127, 2) + U32(12 + head.size()) + U32(body.size()) + head + body;
  }

 private:
  static std::string S32(int32_t value) {
    return ostrand_protocol_cs::U32(static_cast<uint32_t>(value));
  }
};

// --- The packages of the router's own conversation ---

inline InboundFrame HeartBeatRes(int64_t api_time_us, const std::string& user_buff = {}) {
  using ostrand_protocol_cs::BigEndian;
  InboundFrame frame(
      54, BigEndian(0, 8) + BigEndian(static_cast<uint64_t>(api_time_us), 8) + BigEndian(0, 8));
  frame.user_buff = user_buff;
  return frame;
}

// The result in the head is the verdict.
inline InboundFrame SignupRes(int32_t result, int32_t result_in_body = 0) {
  InboundFrame frame(52, ostrand_protocol_cs::U32(static_cast<uint32_t>(result_in_body)));
  frame.result = result;
  return frame;
}

inline InboundFrame MetadataRes(uint32_t type, int32_t version, int32_t idl_type,
                                const std::string& image = {}) {
  using ostrand_protocol_cs::U32;
  InboundFrame frame(28, U32(type) + U32(static_cast<uint32_t>(version)) +
                             U32(static_cast<uint32_t>(idl_type)) +
                             ostrand_protocol_cs::Counted(image));
  frame.table = "user";
  return frame;
}

inline InboundFrame StopReq(uint64_t asyn_id = 0) {
  InboundFrame frame(67);
  frame.asyn_id = asyn_id;
  return frame;
}

class RouterInboundTest : public testing::Test, public OstrandFakes::RouterFixture {
 protected:
  RouterInboundTest() {
    if (Init() != 0) {
      ADD_FAILURE() << "no router";
    }
    proxy = AddReadyProxy(peer->m_using_servers(), kUsing);
    preparing = AddReadyProxy(peer->m_preparing_servers(), kPreparing);
    removing = AddReadyProxy(peer->m_removing_servers(), kRemoving);
    logger.Clear();
    journal.Clear();
  }

  ~RouterInboundTest() override {
    for (RealServerNode* node : m_aliases) {
      node->server = nullptr;
    }
  }

  // Hands a frame to the dispatch from memory of exactly its size, so that a read behind it shows.
  int Dispatch(const std::string& url, const std::string& bytes) {
    const std::vector<char> exact(bytes.begin(), bytes.end());
    return router->ProcRouterMsg(url.c_str(), exact.data(), static_cast<int>(exact.size()),
                                 pass_to_user);
  }
  int Dispatch(const std::string& url, const InboundFrame& frame) {
    return Dispatch(url, frame.Bytes());
  }

  // What the dispatch says of itself.
  static OstrandFakes::Said Says(OstrandCommon::LogLevel level, const std::string& text) {
    return {level, "ProcRouterMsg", text};
  }
  static OstrandFakes::Said TurnsToRemoving(const std::string& url) {
    return Says(OstrandCommon::OSTRAND_LOG_LEVEL_TRACE,
                "can not find RealServerNode in m_using_servers for URL(" + url +
                    "), turn to m_removing_servers...");
  }

  // Appends an element of another url for a record that a list holds already, or for none. A router
  // never does that, so the element lets go of the record before the lists are released.
  void Alias(List* list, const std::string& url, ProxyServer* record) {
    auto* node = static_cast<RealServerNode*>(list->PushBack());
    std::snprintf(node->server_url, sizeof(node->server_url), "%s", url.c_str());
    node->server = record;
    m_aliases.push_back(node);
  }

  ProxyServer* proxy;
  ProxyServer* preparing;
  ProxyServer* removing;
  bool pass_to_user = false;

 private:
  std::vector<RealServerNode*> m_aliases;
};

}  // namespace OstrandService
