// The router's frame: its fields, what construction leaves in them, its setters, its end.
#include "service_api/ostrand_router.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <string>
#include <type_traits>
#include <vector>

#include "fakes/router_fixture.h"

namespace OstrandService {
namespace {

using OstrandCommon::Mutex;
using OstrandCommon::Relaxed;
using OstrandFakes::RouterFixture;

class OstrandRouterTest : public testing::Test, public RouterFixture {};

static_assert(!std::is_polymorphic_v<OstrandRouter>);
static_assert(!std::is_copy_constructible_v<OstrandRouter>);
static_assert(!std::is_copy_assignable_v<OstrandRouter>);

// --- Fields ---

#define OSTRAND_FIELDS(X)                         \
  X(bool, m_init_called)                          \
  X(bool, m_init_succeed)                         \
  X(int32_t, m_set_id)                            \
  X(char[64], m_set_name)                         \
  X(int64_t, m_app_id)                            \
  X(char[64], m_app_name)                         \
  X(int32_t, m_zone_id)                           \
  X(char[64], m_zone_name)                        \
  X(const char*, m_signature)                     \
  X(int32_t, m_signType)                          \
  X(int32_t, m_module_id)                         \
  X(char*, m_pack_buffer)                         \
  X(size_t, m_pack_buffer_size)                   \
  X(Mutex, m_mutex_vistual_nodes)                 \
  X(VirtualServerNode[20000], m_virtual_nodes)    \
  X(uint32_t, m_virtual_node_count)               \
  X(OSTRNET::CConnectorMgr*, m_connector_mgr)     \
  X(ProxyPackParser*, m_pack_parser)              \
  X(Mutex, m_mutex_list)                          \
  X(List*, m_using_servers)                       \
  X(List*, m_preparing_servers)                   \
  X(List*, m_removing_servers)                    \
  X(tagTableQos* [256], m_table_qos)              \
  X(int32_t, m_table_qos_count)                   \
  X(int64_t, m_last_flush_route_time)             \
  X(char[1024], m_used_proxy_url)                 \
  X(int64_t, m_last_flush_hash_circle_time)       \
  X(int64_t, m_last_send_heartbeat_time)          \
  X(uint32_t, m_check_heartbeat_mseconds)         \
  X(uint32_t, m_heartbeat_mseconds)               \
  X(uint32_t, m_sync_timeout)                     \
  X(LatencyDataMgr*, m_latency_data_mgr)          \
  X(OstrandServiceStatisticMgr*, m_statistic_mgr) \
  X(JudgeProxy*, m_judge_proxy)                   \
  X(int64_t, m_last_recheck_availabe_time)        \
  X(Relaxed<bool>, m_proxy_sign_up_recv)          \
  X(Len2Ending[200], m_len2ending)                \
  X(Totallen2Id, m_totallen2id)                   \
  X(Urls, m_all_servers)                          \
  X(char[128], m_proxy_ip)                        \
  X(int32_t, m_proxy_port)                        \
  X(OstrandServer*, m_ostrand_server)             \
  X(OstrandCommon::Logger*, m_logger)             \
  X(bool, m_is_all_connected)                     \
  X(bool, m_force_flush_hash)                     \
  X(uint32_t, m_last_auth_succ_count)             \
  X(const char*, m_user_name)                     \
  X(const char*, m_password_encrypted)            \
  X(uint64_t, m_perfPercent)                      \
  X(uint64_t, m_perfId)                           \
  X(Counts, m_recvErrorCodeMap)                   \
  X(Mutex, m_alarmMutex)                          \
  X(std::set<int32_t>, m_alarmErrorCode)          \
  X(int64_t, m_lastCheckProxyTime)                \
  X(uint32_t, m_randSed)                          \
  X(time_t, m_last_check_time)

using Urls = std::map<std::string, int32_t>;
using Counts = std::map<int32_t, int32_t>;

TEST_F(OstrandRouterTest, HasItsFieldsInOrderAndOfTheirTypes) {
  std::vector<const void*> addresses;
  std::vector<std::string> names;
#define OSTRAND_LOOK_AT(type, name)                                                        \
  static_assert(std::is_same_v<std::add_lvalue_reference_t<std::remove_reference_t<type>>, \
                               decltype(peer->name())>);                                   \
  addresses.push_back(&peer->name());                                                      \
  names.push_back(#name);
  OSTRAND_FIELDS(OSTRAND_LOOK_AT)
#undef OSTRAND_LOOK_AT
  ASSERT_EQ(56U, addresses.size());
  EXPECT_EQ(static_cast<const void*>(router.get()), addresses.front());
  for (size_t i = 1; i < addresses.size(); ++i) {
    EXPECT_TRUE(std::less<>()(addresses[i - 1], addresses[i])) << names[i];
  }
}

TEST_F(OstrandRouterTest, MapsOfThePartitionAreOrderedDescending) {
  Len2Ending lengths = {{1, 10}, {3, 30}, {2, 20}};
  EXPECT_EQ(3U, lengths.begin()->first);
  EXPECT_EQ(1U, lengths.rbegin()->first);
  Totallen2Id totals = {{1, 10}, {3, 30}, {2, 20}};
  EXPECT_EQ(3U, totals.begin()->first);
  EXPECT_EQ(1U, totals.rbegin()->first);
}

// --- Construction ---

// A router in memory that was full of other bytes before.
class RouterInDirtyMemory {
 public:
  explicit RouterInDirtyMemory(RouterFixture& fixture)
      : m_memory(sizeof(OstrandRouter) + alignof(OstrandRouter), char{0x5A}) {
    void* place = m_memory.data();
    size_t space = m_memory.size();
    std::align(alignof(OstrandRouter), sizeof(OstrandRouter), place, space);
    m_router = ::new (place) OstrandRouter(
        RouterFixture::kModuleId, fixture.pack_buffer.data(), fixture.pack_buffer.size(), kBigAppId,
        RouterFixture::kZoneId, RouterFixture::kSignature, RouterFixture::kSignType,
        &fixture.latency, &fixture.statistics, &fixture.judge, RouterFixture::kSyncTimeoutMs);
  }
  ~RouterInDirtyMemory() { m_router->~OstrandRouter(); }
  RouterInDirtyMemory(const RouterInDirtyMemory&) = delete;
  RouterInDirtyMemory& operator=(const RouterInDirtyMemory&) = delete;

  static constexpr int64_t kBigAppId = 0x1234567800000009;

  OstrandRouter& router() { return *m_router; }

 private:
  std::vector<char> m_memory;
  OstrandRouter* m_router;
};

template <typename Array>
bool IsAllZero(const Array& array) {
  const char* bytes = reinterpret_cast<const char*>(&array);
  return std::all_of(bytes, bytes + sizeof(array), [](char byte) { return byte == 0; });
}

TEST_F(OstrandRouterTest, StoresWhatItIsConstructedWith) {
  RouterInDirtyMemory fresh(*this);
  OstrandRouterPeer fields(fresh.router());
  EXPECT_EQ(kModuleId, fields.m_module_id());
  EXPECT_EQ(pack_buffer.data(), fields.m_pack_buffer());
  EXPECT_EQ(pack_buffer.size(), fields.m_pack_buffer_size());
  EXPECT_EQ(RouterInDirtyMemory::kBigAppId, fields.m_app_id());
  EXPECT_EQ(kZoneId, fields.m_zone_id());
  EXPECT_EQ(kSignature, fields.m_signature()) << "borrowed, not copied";
  EXPECT_EQ(kSignType, fields.m_signType());
  EXPECT_EQ(&latency, fields.m_latency_data_mgr());
  EXPECT_EQ(&statistics, fields.m_statistic_mgr());
  EXPECT_EQ(&judge, fields.m_judge_proxy());
  EXPECT_EQ(kSyncTimeoutMs, fields.m_sync_timeout());
}

TEST_F(OstrandRouterTest, StartsWithDefaults) {
  RouterInDirtyMemory fresh(*this);
  OstrandRouterPeer fields(fresh.router());
  EXPECT_EQ(30000U, fields.m_check_heartbeat_mseconds());
  EXPECT_EQ(1000U, fields.m_heartbeat_mseconds());
  EXPECT_EQ(0U, fields.m_perfPercent());
  EXPECT_EQ(1U, fields.m_perfId());
  EXPECT_FALSE(fields.m_init_called());
  EXPECT_FALSE(fields.m_init_succeed());
  EXPECT_EQ(0, fields.m_set_id());
  EXPECT_EQ(0, fields.m_proxy_port());
  EXPECT_EQ(0U, fields.m_last_auth_succ_count());
  EXPECT_FALSE(fields.m_is_all_connected());
  EXPECT_FALSE(fields.m_force_flush_hash());
  EXPECT_FALSE(fields.m_proxy_sign_up_recv());
}

TEST_F(OstrandRouterTest, StartsWithAnEmptyRingAndNoQosRecords) {
  RouterInDirtyMemory fresh(*this);
  OstrandRouterPeer fields(fresh.router());
  EXPECT_TRUE(IsAllZero(fields.m_virtual_nodes()));
  EXPECT_EQ(0U, fields.m_virtual_node_count());
  EXPECT_TRUE(IsAllZero(fields.m_table_qos()));
  EXPECT_EQ(0, fields.m_table_qos_count());
}

TEST_F(OstrandRouterTest, StartsWithoutPointersTimesAndTexts) {
  RouterInDirtyMemory fresh(*this);
  OstrandRouterPeer fields(fresh.router());
  EXPECT_EQ(nullptr, fields.m_using_servers());
  EXPECT_EQ(nullptr, fields.m_preparing_servers());
  EXPECT_EQ(nullptr, fields.m_removing_servers());
  EXPECT_EQ(nullptr, fields.m_pack_parser());
  EXPECT_EQ(nullptr, fields.m_connector_mgr());
  EXPECT_EQ(nullptr, fields.m_ostrand_server());
  EXPECT_EQ(nullptr, fields.m_logger());
  EXPECT_EQ(nullptr, fields.m_user_name());
  EXPECT_EQ(nullptr, fields.m_password_encrypted());

  EXPECT_EQ(0, fields.m_last_flush_route_time());
  EXPECT_EQ(0, fields.m_last_flush_hash_circle_time());
  EXPECT_EQ(0, fields.m_last_send_heartbeat_time());
  EXPECT_EQ(0, fields.m_last_recheck_availabe_time());
  EXPECT_EQ(0, fields.m_lastCheckProxyTime());
  EXPECT_EQ(0, fields.m_last_check_time());

  EXPECT_STREQ("", fields.m_set_name());
  EXPECT_STREQ("", fields.m_app_name());
  EXPECT_STREQ("", fields.m_zone_name());
  EXPECT_STREQ("", fields.m_used_proxy_url());
  EXPECT_STREQ("", fields.m_proxy_ip());
}

TEST_F(OstrandRouterTest, StartsWithEmptyMapsAndFreeMutexes) {
  RouterInDirtyMemory fresh(*this);
  OstrandRouterPeer fields(fresh.router());
  for (const Len2Ending& bucket : fields.m_len2ending()) {
    EXPECT_TRUE(bucket.empty());
  }
  EXPECT_TRUE(fields.m_totallen2id().empty());
  EXPECT_TRUE(fields.m_all_servers().empty());
  EXPECT_TRUE(fields.m_recvErrorCodeMap().empty());
  EXPECT_TRUE(fields.m_alarmErrorCode().empty());
  const OstrandCommon::ScopedLock list_lock(fields.m_mutex_list());
  const OstrandCommon::ScopedLock ring_lock(fields.m_mutex_vistual_nodes());
  const OstrandCommon::ScopedLock alarm_lock(fields.m_alarmMutex());
}

// --- Setters and getters ---

TEST_F(OstrandRouterTest, TellsItsZoneAndItsApplication) {
  EXPECT_EQ(kZoneId, router->GetZoneId());
  EXPECT_EQ(kAppId, router->GetAppId());
  RouterInDirtyMemory big(*this);
  EXPECT_EQ(9, big.router().GetAppId()) << "the low 32 bits";
}

TEST_F(OstrandRouterTest, KeepsThePointersToUserNameAndPassword) {
  char user[] = "user";
  char password[] = "encrypted";
  router->SetUserNameAndPassword(user, password);
  EXPECT_EQ(user, peer->m_user_name());
  EXPECT_EQ(password, peer->m_password_encrypted());
  router->SetUserNameAndPassword(nullptr, nullptr);
  EXPECT_EQ(nullptr, peer->m_user_name());
  EXPECT_EQ(nullptr, peer->m_password_encrypted());
}

TEST_F(OstrandRouterTest, LoggerIsThatOfTheServiceNotItsOwn) {
  EXPECT_EQ(nullptr, router->GetLogger()) << "no service yet";
  ASSERT_EQ(0, Init());
  OstrandFakes::RecordingLogger other;
  server.SetLogger(&other);
  EXPECT_EQ(&other, router->GetLogger());
  EXPECT_EQ(&logger, peer->m_logger());
  server.SetLogger(nullptr);
  EXPECT_EQ(nullptr, router->GetLogger());
}

TEST_F(OstrandRouterTest, SamplingPercentageIsWidenedWithItsSignAndHandedOn) {
  const struct {
    int32_t percent;
    uint64_t stored;
  } kCases[] = {{0, 0},
                {10, 10},
                {100, 100},
                {1000, 1000},
                {-1, 0xFFFFFFFFFFFFFFFF},
                {std::numeric_limits<int32_t>::min(), 0xFFFFFFFF80000000}};
  for (const auto& c : kCases) {
    router->SetPerfSampPercent(c.percent);
    EXPECT_EQ(c.stored, peer->m_perfPercent()) << c.percent;
    EXPECT_EQ(c.stored, statistics.m_perfPercent) << c.percent;
  }
}

TEST_F(OstrandRouterTest, SamplingPercentageNeedsNoStatisticsManager) {
  const auto lonely = NewRouter(&latency, nullptr, &judge);
  lonely->SetPerfSampPercent(7);
  EXPECT_EQ(7U, OstrandRouterPeer(*lonely).m_perfPercent());
}

TEST_F(OstrandRouterTest, IntervalsAreNotBounded) {
  for (const uint32_t ms : {0U, 1U, 30000U, 0xFFFFFFFFU}) {
    router->SetCheckHeartbeatInterval(ms);
    router->SetHeartbeatInterval(ms / 2);
    EXPECT_EQ(ms, peer->m_check_heartbeat_mseconds());
    EXPECT_EQ(ms / 2, peer->m_heartbeat_mseconds());
  }
}

TEST_F(OstrandRouterTest, ForcesTheNextRingWriteWhenToldTo) {
  router->SetForceFlushHash(true);
  EXPECT_TRUE(peer->m_force_flush_hash());
  router->SetForceFlushHash(false);
  EXPECT_FALSE(peer->m_force_flush_hash());
}

TEST_F(OstrandRouterTest, PinsOneProxyAndForgetsIt) {
  router->SetSpecialOstrroxyIPAndPort("10.1.2.3", 8080);
  EXPECT_STREQ("10.1.2.3", peer->m_proxy_ip());
  EXPECT_EQ(8080, peer->m_proxy_port());
  router->SetSpecialOstrroxyIPAndPort("::1", -5);
  EXPECT_STREQ("::1", peer->m_proxy_ip());
  EXPECT_EQ(-5, peer->m_proxy_port());
  router->ReSetSpecialOstrroxyIPAndPort();
  EXPECT_STREQ("", peer->m_proxy_ip());
  EXPECT_EQ(0, peer->m_proxy_port());
}

TEST_F(OstrandRouterTest, PinWithoutAnIpHasAnEmptyOne) {
  router->SetSpecialOstrroxyIPAndPort("10.1.2.3", 8080);
  router->SetSpecialOstrroxyIPAndPort(nullptr, 99);
  EXPECT_STREQ("", peer->m_proxy_ip());
  EXPECT_EQ(99, peer->m_proxy_port());
}

TEST_F(OstrandRouterTest, Keeps127CharactersOfAPinnedIp) {
  for (const size_t length : {127U, 128U, 4000U}) {
    router->SetSpecialOstrroxyIPAndPort(std::string(length, '7').c_str(), 1);
    EXPECT_EQ(std::string(127, '7'), peer->m_proxy_ip()) << length;
    EXPECT_EQ(1, peer->m_proxy_port()) << "what stands behind the text is untouched";
  }
}

TEST_F(OstrandRouterTest, HandsOutThePackBuffer) {
  char* buffer = nullptr;
  int32_t length = 0;
  router->GetCombineBuf(buffer, length);
  EXPECT_EQ(pack_buffer.data(), buffer);
  EXPECT_EQ(static_cast<int32_t>(pack_buffer.size()), length);
}

}  // namespace
}  // namespace OstrandService
