#include "service_api/proxy_server.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <string>
#include <type_traits>
#include <vector>

namespace OstrandService {
namespace {

using OstrandCommon::Relaxed;

#define EXPECT_FIELD(type, name, initial)                           \
  static_assert(std::is_same_v<type, decltype(ProxyServer::name)>); \
  EXPECT_LE(last, offsetof(ProxyServer, name)) << #name;            \
  last = offsetof(ProxyServer, name);                               \
  EXPECT_EQ(initial, record.name) << #name;

// offsetof is well-defined for this record with both compilers that build it.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
TEST(ProxyServer, HasItsFieldsInOrderWithTheirInitialValues) {
  const ProxyServer record;
  size_t last = 0;
  EXPECT_FIELD(OSTRNET::CConnector*, connector, nullptr)
  EXPECT_FIELD(int32_t, pre_status, -1)
  EXPECT_FIELD(Relaxed<int64_t>, last_recv_ms, 0)
  EXPECT_FIELD(Relaxed<int32_t>, last_auth_result, -1)
  EXPECT_FIELD(Relaxed<bool>, has_sent_auth, false)
  EXPECT_FIELD(Relaxed<bool>, auth_succeed, false)
  EXPECT_FIELD(Relaxed<bool>, is_available, true)
  EXPECT_FIELD(Relaxed<int64_t>, last_unavailable_time, 0)
  EXPECT_FIELD(int64_t, last_connect_time, 0)
  EXPECT_FIELD(Relaxed<int32_t>, m_heartbeat_num, 0)
  EXPECT_FIELD(Relaxed<int64_t>, m_total_heartbeat_latency, 0)
  EXPECT_FIELD(Relaxed<int64_t>, m_max_heartbeat_latency, 0)
  EXPECT_FIELD(Relaxed<int32_t>, m_heartbeat_latency_large_num, 0)
  EXPECT_FIELD(Relaxed<int32_t>, cpuUse, 0)
  EXPECT_FIELD(Relaxed<int32_t>, cpuTotal, 0)
  EXPECT_FIELD(Relaxed<uint64_t>, m_request_count, 0U)
  EXPECT_FIELD(Relaxed<uint64_t>, m_response_count, 0U)
  EXPECT_FIELD(void*, m_ptrRouter, nullptr)
}
#pragma GCC diagnostic pop

TEST(RealServerNode, IsOneElementOf1064Bytes) {
  EXPECT_EQ(1064U, sizeof(RealServerNode));
  EXPECT_EQ(0U, offsetof(RealServerNode, server_url));
  EXPECT_EQ(1024U, offsetof(RealServerNode, server_id));
  EXPECT_EQ(1056U, offsetof(RealServerNode, server));
  static_assert(std::is_trivially_copyable_v<RealServerNode>);
}

TEST(ServerIdText, EndsAfter32CharactersAtMost) {
  RealServerNode node;
  std::memset(&node, 'x', sizeof(node));
  EXPECT_EQ(std::string(32, 'x'), ServerIdText(node.server_id).c_str());
  node.server_id[31] = '\0';
  EXPECT_EQ(std::string(31, 'x'), ServerIdText(node.server_id).c_str());
  node.server_id[0] = '\0';
  EXPECT_STREQ("", ServerIdText(node.server_id).c_str());
}

TEST(ServerIdText, ReadsNothingBehindTheId) {
  const std::vector<char> id(32, 'y');  // Exactly the id on the heap: no byte behind it is there.
  EXPECT_EQ(std::string(32, 'y'), ServerIdText(id.data()).c_str());
}

TEST(ServersOf, WalksAListInOrder) {
  List list(sizeof(RealServerNode));
  for (const char* url : {"a", "b", "c"}) {
    *static_cast<RealServerNode*>(list.PushBack())->server_url = *url;
  }
  std::string urls;
  for (const RealServerNode& node : ServersOf(&list)) {
    urls += node.server_url;
  }
  EXPECT_EQ("abc", urls);
  EXPECT_EQ(3U, UsedCount(&list));
}

TEST(ServersOf, TakesNoListForAnEmptyOne) {
  for (const RealServerNode& node : ServersOf(nullptr)) {
    FAIL() << node.server_url;
  }
  List list(sizeof(RealServerNode));
  for (const RealServerNode& node : ServersOf(&list)) {
    FAIL() << node.server_url;
  }
  EXPECT_EQ(0U, UsedCount(nullptr));
  EXPECT_EQ(0U, UsedCount(&list));
}

}  // namespace
}  // namespace OstrandService
