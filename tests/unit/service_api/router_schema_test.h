// What the tests of the schema check share.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "fakes/lock_probe.h"
#include "fakes/router_fixture.h"
#include "protocol/ostrand_protocol_cs.h"
#include "vex/vex_image.h"

namespace OstrandService {

constexpr int kZone = OstrandFakes::RouterFixture::kZoneId;
constexpr int kFailed = -18451;
constexpr int kPending = 1;

inline VexMeta UserTable(int32_t version) {
  VexMeta user;
  user.name = "user";
  user.version = version;
  user.key_fields = {{"uid", VexFieldType::kUint64, 8, 0}};
  user.value_fields = {{"nick", VexFieldType::kString, 300, 0},
                       {"gold", VexFieldType::kInt32, 4, 0}};
  return user;
}

inline VexMeta UserTable(int32_t version, const std::string& customattr2) {
  VexMeta user = UserTable(version);
  user.customattr2 = customattr2;
  return user;
}

inline std::string ImageOf(const VexMeta& table) {
  std::string image;
  EXPECT_EQ(kVexOk, vex_write_metalib_buf(VexMetaLib{{table}}, &image));
  return image;
}

// The result fields of a registered table.
struct Verdict {
  int32_t check_ret;
  int32_t svr_table_type;
  int32_t data_protocol_type;
};
inline bool operator==(const Verdict& a, const Verdict& b) {
  return a.check_ret == b.check_ret && a.svr_table_type == b.svr_table_type &&
         a.data_protocol_type == b.data_protocol_type;
}
inline std::ostream& operator<<(std::ostream& out, const Verdict& verdict) {
  return out << "check_ret " << verdict.check_ret << ", svr_table_type " << verdict.svr_table_type
             << ", data_protocol_type " << verdict.data_protocol_type;
}

// A table "user" of version 4 is registered, its result fields hold marks; the answer is about that
// table, of type 3, version 4, without a schema image. Each test changes one thing.
class SchemaCheckTest : public testing::Test, public OstrandFakes::RouterFixture {
 protected:
  static constexpr Verdict kUntouched = {kPending, 61, 62};

  SchemaCheckTest() : pkg(server.scratch_pkg()) {
    EXPECT_EQ(0, Init());
    server.RegisterTable(kZone, "user", &local);
    SetVerdict("user", kUntouched);
    server.SetLastError(-1, "earlier");
    pkg.stHead.construct();
    pkg.stBody.construct(ostrand_protocol_cs::OSTRAND_API_METADATA_GET_RES);
    SetTable(kZone, "user");
    Answer().dwOstrandType = 3;
    Answer().iVexMetaCurrentVersion = 4;
    logger.Clear();
  }

  ostrand_protocol_cs::OStrandMetadataGetRes& Answer() { return pkg.stBody.stMetadataGetRes; }
  void SetTable(int zone_id, std::string_view name) {
    pkg.stHead.stRouterInfo.iZoneID = zone_id;
    char(&field)[32] = pkg.stHead.stRouterInfo.szTableName;
    std::memset(field, 0, sizeof(field));
    name.copy(field, sizeof(field));
  }
  // Bytes of the image that do not travel follow it in the record, as an older answer's would.
  void SetImage(const std::string& image) { SetImage(image, static_cast<int32_t>(image.size())); }
  void SetImage(const std::string& image, int32_t length) {
    std::memcpy(Answer().szIdlContent, image.data(), image.size());
    Answer().iIdlConLen = length;
  }
  int Check() {
    const int result = router->ProcessGetMetaResForCheckTable(&pkg);
    EXPECT_FALSE(OstrandFakes::IsHeldForReading(server.m_register_table_lock));
    EXPECT_FALSE(OstrandFakes::IsHeldForWriting(server.m_register_table_lock));
    return result;
  }

  RegisterTableInfo& Info(const std::string& table) {
    const OstrandCommon::ScopedWriteLock lock(server.m_register_table_lock);
    return server.m_register_table[kZone][table];
  }
  void SetVerdict(const std::string& table, const Verdict& verdict) {
    RegisterTableInfo& info = Info(table);
    info.check_ret = verdict.check_ret;
    info.svr_table_type = verdict.svr_table_type;
    info.data_protocol_type = verdict.data_protocol_type;
  }
  Verdict Result(const std::string& table = "user") {
    const RegisterTableInfo& info = Info(table);
    return {info.check_ret, info.svr_table_type, info.data_protocol_type};
  }
  size_t RegisteredTables(int zone_id) {
    const OstrandCommon::ScopedWriteLock lock(server.m_register_table_lock);
    const auto zone = server.m_register_table.find(zone_id);
    return zone != server.m_register_table.end() ? zone->second.size() : SIZE_MAX;
  }

  void ExpectLastError(int32_t code, const std::string& text) {
    EXPECT_EQ(code, server.last_error_code());
    EXPECT_EQ(text, server.last_error_text());
  }
  void ExpectLastErrorUntouched() { ExpectLastError(-1, "earlier"); }

  static OstrandFakes::Said Check(OstrandCommon::LogLevel level, const std::string& text) {
    return {level, "ProcessGetMetaResForCheckTable", text};
  }
  static OstrandFakes::Said Received(int size) {
    return Check(OstrandCommon::OSTRAND_LOG_LEVEL_INFO,
                 "get zone:5,table user vex info from rsp, meta size:" + std::to_string(size));
  }
  static OstrandFakes::Said VersionsFit(int client = 4, int server_version = 4) {
    return Check(OstrandCommon::OSTRAND_LOG_LEVEL_INFO,
                 "get zone:5,table user client vex version " + std::to_string(client) +
                     " svr vex version " + std::to_string(server_version) +
                     ", compare version success");
  }
  static OstrandFakes::Said Loaded() {
    return Check(OstrandCommon::OSTRAND_LOG_LEVEL_DEBUG,
                 "get metalib from zone_5_table_user.vex success.");
  }

  ostrand_protocol_cs::OStrandPkg& pkg;
  VexMeta local = UserTable(4);
};

}  // namespace OstrandService
