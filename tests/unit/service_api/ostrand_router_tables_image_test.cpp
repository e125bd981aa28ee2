// The schema check: loading the server's image, finding the table in it, comparing both schemas.
#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <string>

#include "fakes/allocation_faults.h"
#include "unit/service_api/router_schema_test.h"

namespace OstrandService {
namespace {

using OstrandCommon::OSTRAND_LOG_LEVEL_DEBUG;
using OstrandCommon::OSTRAND_LOG_LEVEL_ERROR;
using OstrandCommon::OSTRAND_LOG_LEVEL_INFO;
using OstrandFakes::AllocationFaults;

// --- The image ---

TEST_F(SchemaCheckTest, AcceptsAnEmptyImage) {
  for (const int32_t length : {0, -1, INT32_MIN}) {
    SetVerdict("user", kUntouched);
    logger.Clear();
    SetImage("no image", length);
    EXPECT_EQ(0, Check());
    EXPECT_EQ((Verdict{0, 3, 62}), Result());
    EXPECT_EQ(Lines({Received(length), VersionsFit(),
                     Check(OSTRAND_LOG_LEVEL_DEBUG, "get zone:5,table user vex info empty.")}),
              logger.Lines());
    ExpectLastErrorUntouched();
  }
}

TEST_F(SchemaCheckTest, KeepsAnUnsignedTypeInItsSignedField) {
  Answer().dwOstrandType = 0xFFFFFFFE;
  EXPECT_EQ(0, Check());
  EXPECT_EQ(-2, Result().svr_table_type);
}

TEST_F(SchemaCheckTest, RefusesAnImageOf10485760BytesOrMore) {
  for (const int32_t length : {10485760, 10485761, INT32_MAX}) {
    SetVerdict("user", kUntouched);
    logger.Clear();
    SetImage(ImageOf(UserTable(4)), length);
    EXPECT_EQ(kFailed, Check());
    EXPECT_EQ((Verdict{kFailed, 3, -1}), Result());
    EXPECT_EQ(Lines({Received(length), VersionsFit(),
                     Check(OSTRAND_LOG_LEVEL_ERROR, "zone:5,table user vexmeta too large")}),
              logger.Lines());
    ExpectLastErrorUntouched();
  }
}

// Tables with the longest attributes until the image has the wanted size; "user" is one of them.
std::string ImageOfSize(size_t size) {
  VexMetaLib lib{{UserTable(4)}};
  std::string image = ImageOf(lib.tables[0]);
  size_t written = image.size();
  // A table without fields: name of 5 bytes behind its length, version, attribute, two counts.
  constexpr size_t kBare = 6 + 4 + 2 + 2;
  while (written < size) {
    VexMeta filler;
    filler.name = std::to_string(10000 + lib.tables.size());
    // The last but one leaves room for a whole table.
    const size_t left = size - written;
    const size_t attribute = left >= 2 * kBare + 4095 ? 4095
                             : left > kBare + 4095    ? 2000
                                                      : left - kBare;
    filler.customattr2 = std::string(attribute, 'x');
    written += kBare + attribute;
    lib.tables.push_back(filler);
  }
  EXPECT_EQ(kVexOk, vex_write_metalib_buf(lib, &image));
  EXPECT_EQ(size, image.size());
  return image;
}

TEST_F(SchemaCheckTest, LoadsAnImageOf10485759Bytes) {
  SetImage(ImageOfSize(10485759));
  EXPECT_EQ(0, Check());
  EXPECT_EQ(0, Result().check_ret);
  EXPECT_EQ(1U, server.comparisons().size());
}

TEST_F(SchemaCheckTest, RefusesAnImageThatDoesNotLoad) {
  const std::string good = ImageOf(UserTable(4));
  std::string wrong_magic = good;
  wrong_magic[0] = 'X';
  std::string wrong_format = good;
  wrong_format[5] = 9;
  std::string wrong_checksum = good;
  wrong_checksum.back() = static_cast<char>(wrong_checksum.back() ^ 1);
  std::string lying_length = good;
  lying_length[8] = 0x7F;
  std::string lying_count = good;
  lying_count[7] = 2;
  for (const std::string& image :
       {std::string(1, '\0'), std::string(5000, '\0'), std::string(5000, '\xFF'),
        std::string("VEXL"), good.substr(0, good.size() - 1), wrong_magic, wrong_format,
        wrong_checksum, lying_length, lying_count}) {
    SetVerdict("user", kUntouched);
    server.SetLastError(-1, "earlier");
    logger.Clear();
    SetImage(good);  // What is missing of a cut image still stands behind it.
    SetImage(image);
    EXPECT_EQ(kFailed, Check());
    EXPECT_EQ((Verdict{kFailed, 3, 62}), Result());
    EXPECT_EQ(
        Lines({Received(static_cast<int>(image.size())), VersionsFit(),
               Check(OSTRAND_LOG_LEVEL_ERROR, "get metalib from zone_5_table_user.vex  failed.")}),
        logger.Lines());
    ExpectLastError(kFailed, "earlier");
  }
  EXPECT_TRUE(server.comparisons().empty());
}

TEST_F(SchemaCheckTest, RefusesALibraryWithoutTheTable) {
  VexMeta other = UserTable(4);
  other.name = "User";
  SetImage(ImageOf(other));
  EXPECT_EQ(kFailed, Check());
  EXPECT_EQ((Verdict{kFailed, 3, 62}), Result());
  EXPECT_EQ(
      Lines({Received(Answer().iIdlConLen), VersionsFit(), Loaded(),
             Check(OSTRAND_LOG_LEVEL_ERROR, "get LPVEXMETA from zone_5_table_user.vex failed.")}),
      logger.Lines());
  ExpectLastErrorUntouched();
  EXPECT_TRUE(server.comparisons().empty());
}

// --- The comparison ---

TEST_F(SchemaCheckTest, ComparesTheLocalSchemaWithTheServers) {
  SetImage(ImageOf(UserTable(4)));
  EXPECT_EQ(0, Check());
  ASSERT_EQ(1U, server.comparisons().size());
  EXPECT_EQ(&local, server.comparisons()[0].first);
  EXPECT_NE(&local, server.comparisons()[0].second);
}

TEST_F(SchemaCheckTest, AnswersTheComparisonsOwnCode) {
  struct Case {
    const char* what;
    void (*change)(VexMeta& server_table);
    int code;
  };
  const Case kCases[] = {
      {"another type", [](VexMeta& table) { table.value_fields[1].type = VexFieldType::kUint32; },
       kVexDiffFieldType},
      {"another size", [](VexMeta& table) { table.value_fields[0].size = 301; }, kVexDiffFieldSize},
      {"a field less", [](VexMeta& table) { table.value_fields.pop_back(); },
       kVexDiffServerShorter},
  };
  for (const Case& one : kCases) {
    SetVerdict("user", kUntouched);
    server.SetLastError(-1, "earlier");
    logger.Clear();
    VexMeta changed = UserTable(4);
    one.change(changed);
    SetImage(ImageOf(changed));
    EXPECT_EQ(one.code, Check()) << one.what;
    EXPECT_EQ((Verdict{kFailed, 3, 62}), Result()) << "not the comparison's code";
    EXPECT_EQ(
        Lines({Received(Answer().iIdlConLen), VersionsFit(), Loaded(),
               Check(OSTRAND_LOG_LEVEL_ERROR,
                     "CompareEntryValueField failed,table:user,ret:" + std::to_string(one.code))}),
        logger.Lines());
    ExpectLastError(kFailed, "Compare meta failed,table:user result:" + std::to_string(one.code));
  }
}

TEST_F(SchemaCheckTest, TakesAPositiveCodeOfTheComparisonForAFailureToo) {
  server.SetCompareResult(42);
  SetImage(ImageOf(UserTable(4)));
  EXPECT_EQ(42, Check());
  EXPECT_EQ(kFailed, Result().check_ret);
  ExpectLastError(kFailed, "Compare meta failed,table:user result:42");
}

TEST_F(SchemaCheckTest, AcceptsWhatAServerOfANewerVersionAdds) {
  VexMeta newer = UserTable(5, "DataProtocolType=PB");
  newer.value_fields.push_back({"level", VexFieldType::kInt16, 2, 5});
  Answer().iVexMetaCurrentVersion = 5;
  SetImage(ImageOf(newer));
  EXPECT_EQ(0, Check());
  EXPECT_EQ((Verdict{0, 3, 2}), Result());
}

TEST_F(SchemaCheckTest, RecordsTypeAndDataProtocolOfATableThatPasses) {
  Answer().dwOstrandType = 4000000000;
  SetImage(ImageOf(UserTable(4, "a=b;DataProtocolType=PLAIN")));
  EXPECT_EQ(0, Check());
  EXPECT_EQ((Verdict{0, static_cast<int32_t>(4000000000), 1}), Result());
  EXPECT_EQ(Lines({Received(Answer().iIdlConLen), VersionsFit(), Loaded(),
                   Check(OSTRAND_LOG_LEVEL_INFO,
                         "zone:5, table user, type 4000000000, DataProtocolType 1(0 vex 1 plain 2 "
                         "pb), vex CompareEntryValueField success.")}),
            logger.Lines());
  ExpectLastErrorUntouched();
}

TEST_F(SchemaCheckTest, PassesATableWhoseDataProtocolIsNotKnown) {
  SetImage(ImageOf(UserTable(4)));
  EXPECT_EQ(0, Check());
  EXPECT_EQ((Verdict{0, 3, -1}), Result());
  EXPECT_EQ(Lines({Received(Answer().iIdlConLen),
                   VersionsFit(),
                   Loaded(),
                   {OSTRAND_LOG_LEVEL_INFO, "GetDataProtocolType", "table not have customattr2"},
                   Check(OSTRAND_LOG_LEVEL_INFO,
                         "zone:5, table user, type 3, DataProtocolType -1(0 vex 1 plain 2 pb), vex "
                         "CompareEntryValueField success.")}),
            logger.Lines());
}

TEST_F(SchemaCheckTest, ReadsTheDataProtocolOfTheServersSchema) {
  local.customattr2 = "DataProtocolType=VEX";
  SetImage(ImageOf(UserTable(4, "DataProtocolType=PB")));
  EXPECT_EQ(0, Check());
  EXPECT_EQ(2, Result().data_protocol_type);
}

TEST_F(SchemaCheckTest, RecoversFromAFailureWithTheNextAnswer) {
  SetImage("no image");
  EXPECT_EQ(kFailed, Check());
  SetImage(ImageOf(UserTable(4, "DataProtocolType=VEX")));
  EXPECT_EQ(0, Check());
  EXPECT_EQ((Verdict{0, 3, 0}), Result());
  ExpectLastError(kFailed, "earlier");
}

TEST_F(SchemaCheckTest, GivesBackEveryLibraryThatItLoads) {
  VexMeta other = UserTable(4);
  other.name = "item";
  VexMeta longer = UserTable(4);
  longer.value_fields[0].size = 301;
  for (const std::string& image : {ImageOf(UserTable(4)), ImageOf(other), ImageOf(longer)}) {
    SetVerdict("user", kUntouched);
    SetImage(image);
    const AllocationFaults allocations;
    Check();
    EXPECT_GT(allocations.count(), 0);
    EXPECT_EQ(0, allocations.outstanding());
  }
}

TEST_F(SchemaCheckTest, NeverPassesATableWithoutMemory) {
  // Longer than what a string keeps without an allocation, so that every step needs memory.
  const std::string image = ImageOf(UserTable(4, "comment=a long one;DataProtocolType=PLAIN"));
  int n = 1;
  int undecided = 0;
  for (bool struck = true; struck; ++n) {
    SetVerdict("user", kUntouched);
    SetImage(image);
    int result = 0;
    {
      AllocationFaults allocations;
      allocations.FailThrowing(n);
      result = Check();
      struck = allocations.struck();
      EXPECT_EQ(0, allocations.outstanding()) << n;
    }
    if (!struck) {
      EXPECT_EQ(0, result);
      EXPECT_EQ((Verdict{0, 3, 1}), Result());
    } else if (result == -9747) {
      ++undecided;
      EXPECT_EQ((Verdict{kPending, 3, 62}), Result()) << n;
      EXPECT_EQ(0, Check()) << n << ": the next answer is examined";
      EXPECT_EQ((Verdict{0, 3, 1}), Result()) << n;
    } else {
      EXPECT_EQ(kFailed, result) << n << ": the image does not load";
      EXPECT_EQ(kFailed, Result().check_ret) << n;
    }
  }
  EXPECT_GT(n, 3);
  EXPECT_LT(0, undecided) << "while the data protocol was read";
}

TEST_F(SchemaCheckTest, EntersAnUnknownZoneOnlyWithMemory) {
  SetTable(9, "user");
  {
    AllocationFaults allocations;
    allocations.FailThrowing(1);
    EXPECT_EQ(-9747, Check());
    EXPECT_TRUE(allocations.struck());
  }
  EXPECT_EQ(SIZE_MAX, RegisteredTables(9));
  EXPECT_EQ(0, Check());
  EXPECT_EQ(0U, RegisteredTables(9));
}

TEST_F(SchemaCheckTest, GivesTheSameVerdictsWithoutALogger) {
  ASSERT_EQ(-4371, router->Init(&mgr, Service(), nullptr));  // Takes the logger away.
  EXPECT_EQ(-1, router->ProcessGetMetaResForCheckTable(nullptr));
  SetImage("no image");
  EXPECT_EQ(kFailed, Check());
  SetImage(ImageOf(UserTable(4, "DataProtocolType=PLAIN")));
  EXPECT_EQ(0, Check());
  EXPECT_EQ((Verdict{0, 3, 1}), Result());
  EXPECT_TRUE(logger.Lines().empty());
}

}  // namespace
}  // namespace OstrandService
