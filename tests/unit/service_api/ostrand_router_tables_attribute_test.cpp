// How a schema tells the data protocol of its table, and the order in which key fields are sorted.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <string>
#include <string_view>

#include "fakes/router_fixture.h"
#include "protocol/key_set.h"
#include "vex/vex_schema.h"

namespace OstrandService {
namespace {

using ostrand_protocol_cs::OStrandKeyField;
using OstrandCommon::LogLevel;
using OstrandCommon::OSTRAND_LOG_LEVEL_ERROR;
using OstrandCommon::OSTRAND_LOG_LEVEL_INFO;
using OstrandFakes::RouterFixture;

// --- GetDataProtocolType ---

VexMeta WithAttribute(const std::string& customattr2) {
  VexMeta meta;
  meta.name = "user";
  meta.customattr2 = customattr2;
  return meta;
}

class DataProtocolTest : public testing::Test, public RouterFixture {
 protected:
  DataProtocolTest() {
    EXPECT_EQ(0, Init());
    logger.Clear();
  }
};

TEST_F(DataProtocolTest, RefusesANullSchema) {
  EXPECT_EQ(-1, peer->GetDataProtocolType(nullptr));
  EXPECT_EQ(Lines({{OSTRAND_LOG_LEVEL_ERROR, "GetDataProtocolType", "pMeta is NULL"}}),
            logger.Lines());
}

TEST_F(DataProtocolTest, KnowsThreeProtocols) {
  struct Case {
    const char* attribute;
    int type;
  };
  for (const Case& one : {Case{"DataProtocolType=VEX", 0}, Case{"DataProtocolType=PLAIN", 1},
                          Case{"DataProtocolType=PB", 2}, Case{"a=b;DataProtocolType=PLAIN", 1},
                          Case{"DataProtocolType=PB;a=b=c", 2}, Case{"DataProtocolType=VEX;", 0},
                          Case{";;DataProtocolType=VEX;;", 0},
                          // The first item that contains the name, wherever in it.
                          Case{"DataProtocolType=PB;DataProtocolType=VEX", 2},
                          Case{"MyDataProtocolType=PB;DataProtocolType=VEX", 2},
                          // An item that names it without a value is not one.
                          Case{"DataProtocolType;DataProtocolType=PB", 2}}) {
    const VexMeta meta = WithAttribute(one.attribute);
    EXPECT_EQ(one.type, peer->GetDataProtocolType(&meta)) << one.attribute;
  }
  EXPECT_TRUE(logger.Lines().empty());
}

TEST_F(DataProtocolTest, SaysWhyItDoesNotKnow) {
  struct Case {
    std::string attribute;
    LogLevel level;
    std::string text;
  };
  const std::string table = "table customattr2:";
  const std::string failed = " parse DataProtocolType failed, ";
  const LogLevel kInfo = OSTRAND_LOG_LEVEL_INFO;
  const LogLevel kError = OSTRAND_LOG_LEVEL_ERROR;
  const Case kCases[] = {
      {"", kInfo, "table not have customattr2"},
      {"a=b;c", kInfo, table + "a=b;c not have DataProtocolType"},
      {"DataProtocolType", kInfo, table + "DataProtocolType not have DataProtocolType"},
      {"DataProtocolType =VEX", kInfo, table + "DataProtocolType =VEX not have DataProtocolType"},
      {"dataprotocoltype=VEX", kInfo, table + "dataprotocoltype=VEX not have DataProtocolType"},
      {"DataProtocolType=PLAIN=x", kError, table + "DataProtocolType=PLAIN=x" + failed + "size:3"},
      {"DataProtocolType==VEX", kError, table + "DataProtocolType==VEX" + failed + "size:3"},
      {"a=DataProtocolType=VEX", kError, table + "a=DataProtocolType=VEX" + failed + "size:3"},
      {"DataProtocolType=a=b=c=d;DataProtocolType=VEX", kError,
       table + "DataProtocolType=a=b=c=d;DataProtocolType=VEX" + failed + "size:5"},
      {"DataProtocolType=pb", kError, table + "DataProtocolType=pb" + failed + "retstr:pb"},
      {"DataProtocolType=", kError, table + "DataProtocolType=" + failed + "retstr:"},
      {"DataProtocolType=VEX ", kError, table + "DataProtocolType=VEX " + failed + "retstr:VEX "},
      {"x;DataProtocolType=VEXPB;y", kError,
       table + "x;DataProtocolType=VEXPB;y" + failed + "retstr:VEXPB"},
      {"%s%n;DataProtocolType=%d", kError,
       table + "%s%n;DataProtocolType=%d" + failed + "retstr:%d"},
  };
  for (const Case& one : kCases) {
    logger.Clear();
    const VexMeta meta = WithAttribute(one.attribute);
    EXPECT_EQ(-1, peer->GetDataProtocolType(&meta)) << one.attribute;
    EXPECT_EQ(Lines({{one.level, "GetDataProtocolType", one.text}}), logger.Lines());
  }
}

// --- OStrandKeyFieldComp ---

OStrandKeyField Field(std::string_view name, std::string_view value = {}) {
  OStrandKeyField field{};
  name.copy(field.szFieldName, sizeof(field.szFieldName));
  field.dwFieldLen = static_cast<uint32_t>(value.size());
  value.copy(field.szFieldBuff, sizeof(field.szFieldBuff));
  return field;
}

TEST(OStrandKeyFieldComp, PutsTheGreaterNameFirst) {
  struct Case {
    const char* greater;
    const char* less;
  };
  for (const Case& one :
       {Case{"b", "a"}, Case{"ab", "a"}, Case{"a", ""}, Case{"a", "B"}, Case{"\xC3\xA4", "z"}}) {
    EXPECT_TRUE(OStrandKeyFieldComp(Field(one.greater), Field(one.less))) << one.greater;
    EXPECT_FALSE(OStrandKeyFieldComp(Field(one.less), Field(one.greater))) << one.greater;
  }
}

TEST(OStrandKeyFieldComp, SortsFieldsInDescendingOrder) {
  OStrandKeyField fields[] = {Field("uid"), Field("zone"), Field("a"), Field("index")};
  std::sort(std::begin(fields), std::end(fields), OStrandKeyFieldComp);
  std::string names;
  for (const OStrandKeyField& field : fields) {
    names += field.szFieldName + std::string(" ");
  }
  EXPECT_EQ("zone uid index a ", names);
}

TEST(OStrandKeyFieldComp, FindsNoOrderBetweenFieldsOfOneName) {
  EXPECT_FALSE(OStrandKeyFieldComp(Field("uid", "1"), Field("uid", "2")));
  EXPECT_FALSE(OStrandKeyFieldComp(Field("uid", "2"), Field("uid", "1")));
}

TEST(OStrandKeyFieldComp, ReadsNothingBehindANameOf32Bytes) {
  const std::string name(32, 'n');
  OStrandKeyField a = Field(name);
  OStrandKeyField b = Field(name);
  a.dwFieldLen = 0x41414141;
  b.dwFieldLen = 0x42424242;
  EXPECT_FALSE(OStrandKeyFieldComp(a, b));
  EXPECT_FALSE(OStrandKeyFieldComp(b, a));
  EXPECT_TRUE(OStrandKeyFieldComp(a, Field(name.substr(0, 31))));
}

}  // namespace
}  // namespace OstrandService
