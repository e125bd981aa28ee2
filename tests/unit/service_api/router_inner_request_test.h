// What the tests of the router's own packages share: a signed-up proxy to send them to, bytes and
// texts of what was sent, a host name of any length.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

#include "common/host_name.h"
#include "fakes/router_fixture.h"

namespace OstrandService {

constexpr uint32_t kProbe = 27;
constexpr uint32_t kSignUp = 51;
constexpr uint32_t kHeartBeat = 53;
constexpr uint32_t kStopReply = 68;

class InnerRequestTest : public testing::Test, public OstrandFakes::RouterFixture {
 protected:
  static constexpr char kUrl[] = "tcp://10.0.0.1:1001";
  static constexpr char kOperation[] = "InitCsPkgForInnerRequest";

  InnerRequestTest() {
    host_name = "box7";
    host_name_result = 0;
    OstrandCommon::ReplaceHostName(&ToldHostName);
    EXPECT_EQ(0, Init());
    proxy = AddReadyProxy(peer->m_using_servers(), kUrl);
    connector = &mgr.At(kUrl);
    server.SetVersionWithoutTable(9);
    server.SetTableMetaVersion(kZoneId, "players", 17);
    logger.Clear();
    journal.Clear();
  }
  ~InnerRequestTest() override { OstrandCommon::ReplaceHostName(nullptr); }

  int Request(uint32_t cmd, uint64_t asyn_id = 0, const char* signature = nullptr,
              const char* table_name = nullptr) {
    return peer->InitCsPkgForInnerRequest(proxy,
                                          static_cast<ostrand_protocol_cs::OStrandApiCmds>(cmd),
                                          asyn_id, signature, table_name);
  }

  // Takes the logger away: a repeated Init does nothing else.
  void TakeLogger() { EXPECT_EQ(-4371, router->Init(&mgr, Service(), nullptr)); }

  // The frame of the last send.
  std::string SentHex() {
    if (connector->sent().empty()) {
      return "nothing";
    }
    return ToHex(connector->sent().back());
  }
  size_t SentCount() { return connector->sent().size(); }

  ostrand_protocol_cs::OStrandPkg& pkg() { return server.scratch_pkg(); }

  // The package as text, as long as it is.
  std::string PkgText() {
    std::string text(256 * 1024, '\0');
    size_t used = 0;
    EXPECT_EQ(0, pkg().visualize(&text[0], text.size(), &used, 0, '\n'));
    text.resize(used);
    return text;
  }
  OstrandFakes::Said SendLine(uint32_t cmd, int result) {
    return {OstrandCommon::OSTRAND_LOG_LEVEL_DEBUG, kOperation,
            "InitCsPkgForInnerRequest cmd(" + std::to_string(cmd) + ") url:(" + kUrl +
                ") ret:" + std::to_string(result)};
  }
  OstrandFakes::Said DumpLine(const std::string& text) {
    return {OstrandCommon::OSTRAND_LOG_LEVEL_DEBUG, kOperation,
            "---------- request dump ----------\n" + text};
  }

  // Leaves in the scratch record what a received package may leave there: something in every field.
  void DirtyPkg() {
    std::memset(static_cast<void*>(&pkg().stHead), 0x2E, sizeof(pkg().stHead));
    std::memset(static_cast<void*>(&pkg().stBody), 0x2E, 4096);
  }

  // Writes as much of host_name as there is room for.
  static int ToldHostName(char* name, size_t size) {
    std::memcpy(name, host_name.data(), std::min(size, host_name.size()));
    return host_name_result;
  }

  static std::string Pointer(const void* pointer) {
    char text[32];
    std::snprintf(text, sizeof(text), "%p", pointer);
    return text;
  }
  static std::string ToHex(const std::string& bytes) {
    std::string hex;
    for (const char byte : bytes) {
      char digits[3];
      std::snprintf(digits, sizeof(digits), "%02X", static_cast<unsigned char>(byte));
      hex += digits;
    }
    return hex;
  }
  static std::string WithoutBlanks(std::string hex) {
    hex.erase(std::remove(hex.begin(), hex.end(), ' '), hex.end());
    return hex;
  }

  // What the machine is called, and what asking for it answers.
  static inline std::string host_name;
  static inline int host_name_result = 0;

  ProxyServer* proxy;
  OstrandFakes::ScriptedConnector* connector;
};

}  // namespace OstrandService
