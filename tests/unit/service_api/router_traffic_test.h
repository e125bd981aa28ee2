// What the tests of requests and responses share.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "fakes/nonzero_counters.h"
#include "fakes/router_fixture.h"

namespace OstrandService {

inline constexpr char kTable[] = "players";
inline constexpr char kFirstTable[] = "accounts";

// CRC-32, bit by bit: polynomial 0xEDB88320, initial value and final XOR 0xFFFFFFFF.
inline uint32_t CrcOf(const std::string& bytes) {
  uint32_t crc = 0xFFFFFFFF;
  for (const char byte : bytes) {
    crc ^= static_cast<uint8_t>(byte);
    for (int bit = 0; bit < 8; ++bit) {
      crc = (crc >> 1) ^ ((crc & 1) != 0 ? 0xEDB88320U : 0U);
    }
  }
  return crc ^ 0xFFFFFFFF;
}

inline std::string LittleEndian(uint64_t value, int width) {
  std::string bytes;
  for (int i = 0; i < width; ++i) {
    bytes.push_back(static_cast<char>(value >> (8 * i) & 0xFF));
  }
  return bytes;
}

// The 14 bytes behind the user's.
inline std::string Context(int32_t id, int16_t subscript, uint32_t magic = 0x12345678) {
  const std::string checked = LittleEndian(magic, 4) + LittleEndian(static_cast<uint32_t>(id), 4) +
                              LittleEndian(static_cast<uint16_t>(subscript), 2);
  return checked + LittleEndian(CrcOf(checked), 4);
}

// Bytes that no two places of a test share by chance.
inline std::string UserBytes(size_t len) {
  std::string bytes;
  for (size_t i = 0; i < len; ++i) {
    bytes.push_back(static_cast<char>('a' + i % 23));
  }
  return bytes;
}

// An initialised router with two usable proxies, their accesses 0 and 1 in the zone's statistics
// (four tables), and two registered tables, the second of which the requests are about. The first
// sign-up answer has come.
class RouterTrafficTest : public testing::Test, public OstrandFakes::RouterFixture {
 protected:
  using Counters = OstrandFakes::Counters;

  static constexpr char kUrl[] = "tcp://10.0.0.1:8001";
  static constexpr int kIp = 0x0100000A;
  static constexpr int kPort = 8001;
  static constexpr char kOtherUrl[] = "tcp://10.0.0.2:8002";
  static constexpr int kOtherIp = 0x0200000A;
  static constexpr int kOtherPort = 8002;
  static constexpr int32_t kTables = 4;
  static constexpr int64_t kNow = OstrandFakes::FakeClock::kStartMs;

  RouterTrafficTest() {
    EXPECT_EQ(0, Init());
    statistic = &statistics.Register(kAppId, kZoneId);
    statistic->iTableCount = kTables;
    proxy = AddTrafficProxy(kUrl, kIp, kPort);
    other_proxy = AddTrafficProxy(kOtherUrl, kOtherIp, kOtherPort);
    connector = &mgr.At(kUrl);
    other_connector = &mgr.At(kOtherUrl);
    router->SetQos(&first_qos);
    router->SetQos(&qos);
    peer->m_proxy_sign_up_recv() = true;
    StartOver();
  }

  ProxyServer* AddTrafficProxy(const char* url, int ip, int port) {
    ProxyServer* record = AddReadyProxy(peer->m_using_servers(), url);
    mgr.At(url).SetAddress(ip, port);
    statistics.AddAccess(kAppId, kZoneId, url, ip, port, "id");
    return record;
  }
  static tagTableQos Qos(int zone_id, const char* table_name) {
    tagTableQos record = {};
    std::snprintf(record.szTableName, sizeof(record.szTableName), "%s", table_name);
    record.iZoneID = zone_id;
    return record;
  }
  void StartOver() {
    logger.Clear();
    journal.Clear();
  }

  // The router has no statistics record, or no registered table, from now on.
  void LoseTheStatistics() { peer->m_zone_id() = kZoneId + 1; }
  void LoseTheTables() {
    router->RemoveTableQos(kZoneId, kFirstTable);
    router->RemoveTableQos(kZoneId, kTable);
    StartOver();
  }

  // All counters are 0 again.
  void ForgetCounts() {
    statistic->stOverallRunStatus = tagOverallRunStatus();
    for (tagTableStatistic& table : statistic->astTableStatistic) {
      table.stTableRunStatus = tagTableRunStatus();
    }
    statistic->stPerfDelay = PERFSTATUS();
    for (int32_t i = 0; i < statistic->iAccessCount; ++i) {
      tagAccessRunStatus& access = statistic->astAccessStatistic[i];
      tagAccessRunStatus fresh;
      fresh.iIp = access.iIp;
      fresh.iPort = access.iPort;
      access = fresh;
    }
    peer->m_recvErrorCodeMap().clear();
    proxy->m_request_count = 0;
    first_qos = Qos(kZoneId, kFirstTable);
    qos = Qos(kZoneId, kTable);
  }

  Counters Counted() const { return OstrandFakes::NonZeroCounters(*statistic); }
  // A counter of the whole and of table 2, each counted once.
  static Counters Shared(const std::string& name) {
    return {{"dw" + name, 1}, {"table 2: dwTable" + name, 1}};
  }
  static Counters Access(const std::string& name) { return {{"access 0: " + name, 1}}; }
  static Counters Sum(std::initializer_list<Counters> parts) {
    Counters sum;
    for (const Counters& part : parts) {
      for (const auto& [name, count] : part) {
        sum[name] += count;
      }
    }
    return sum;
  }
  // Those of a map that do not belong to a table.
  static Counters WithoutTables(const Counters& counters) {
    Counters rest;
    for (const auto& [name, count] : counters) {
      if (name.rfind("table ", 0) != 0) {
        rest[name] = count;
      }
    }
    return rest;
  }

  tagServiceApiStatistic* statistic;
  ProxyServer* proxy;
  ProxyServer* other_proxy;
  OstrandFakes::ScriptedConnector* connector;
  OstrandFakes::ScriptedConnector* other_connector;
  tagTableQos first_qos = Qos(kZoneId, kFirstTable);
  tagTableQos qos = Qos(kZoneId, kTable);
};

}  // namespace OstrandService
