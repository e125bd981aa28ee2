// The schema check: which tables are examined, what the versions decide, what runs under the lock.
#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <string>
#include <vector>

#include "unit/service_api/router_schema_test.h"

namespace OstrandService {
namespace {

using OstrandCommon::OSTRAND_LOG_LEVEL_DEBUG;
using OstrandCommon::OSTRAND_LOG_LEVEL_ERROR;
using OstrandCommon::OSTRAND_LOG_LEVEL_INFO;
using OstrandCommon::OSTRAND_LOG_LEVEL_WARN;
using OstrandFakes::IsHeldForReading;
using OstrandFakes::IsHeldForWriting;

constexpr char kLongestName[] = "a_table_name_of_32_characters_xx";
static_assert(sizeof(kLongestName) - 1 == 32);

// --- Which table ---

TEST_F(SchemaCheckTest, RefusesANullPackage) {
  EXPECT_EQ(-1, router->ProcessGetMetaResForCheckTable(nullptr));
  EXPECT_EQ(Lines({Check(OSTRAND_LOG_LEVEL_ERROR,
                         "ProcessGetMetaResForCheckTable failed as pkg == NULL.")}),
            logger.Lines());
  EXPECT_EQ(kUntouched, Result());
  ExpectLastErrorUntouched();
}

TEST_F(SchemaCheckTest, EntersAnEmptyMapForAnUnknownZone) {
  SetTable(9, "user");
  EXPECT_EQ(SIZE_MAX, RegisteredTables(9));
  for (int i = 0; i < 2; ++i) {
    logger.Clear();
    EXPECT_EQ(0, Check());
    EXPECT_EQ(0U, RegisteredTables(9));
    EXPECT_EQ(Lines({Check(OSTRAND_LOG_LEVEL_INFO,
                           "get zone:9,table user vex info from rsp, meta size:0"),
                     Check(OSTRAND_LOG_LEVEL_WARN, "zone:9 not exist in register_table")}),
              logger.Lines());
  }
  EXPECT_EQ(kUntouched, Result());
  ExpectLastErrorUntouched();
}

TEST_F(SchemaCheckTest, PassesOverATableThatIsNotRegistered) {
  SetTable(kZone, "item");
  EXPECT_EQ(0, Check());
  EXPECT_EQ(
      Lines({Check(OSTRAND_LOG_LEVEL_INFO, "get zone:5,table item vex info from rsp, meta size:0"),
             Check(OSTRAND_LOG_LEVEL_WARN, "zone:5,table item not exist in register_table")}),
      logger.Lines());
  EXPECT_EQ(1U, RegisteredTables(kZone)) << "a table is not entered, unlike a zone";
  EXPECT_EQ(kUntouched, Result());
  ExpectLastErrorUntouched();
}

TEST_F(SchemaCheckTest, ReadsNoMoreThan32CharactersOfTheName) {
  server.RegisterTable(kZone, kLongestName, &local);
  SetTable(kZone, kLongestName);
  pkg.stHead.dwUserBuffLen = 0x41414141;  // Would read as text behind the name.
  SetImage("no image");
  EXPECT_EQ(kFailed, Check());
  EXPECT_EQ(kFailed, Result(kLongestName).check_ret);
  const std::string table = kLongestName;
  EXPECT_EQ(
      Lines({Check(OSTRAND_LOG_LEVEL_INFO,
                   "get zone:5,table " + table + " vex info from rsp, meta size:8"),
             Check(OSTRAND_LOG_LEVEL_INFO, "get zone:5,table " + table +
                                               " client vex version 4 svr vex version 4, compare "
                                               "version success"),
             Check(OSTRAND_LOG_LEVEL_ERROR,
                   "get metalib from zone_5_table_" + table + ".vex  failed.")}),
      logger.Lines());
}

TEST_F(SchemaCheckTest, ChecksTheTableOfTheAnswerAlone) {
  server.RegisterTable(kZone, "item", &local);
  server.RegisterTable(kZone + 1, "user", &local);
  EXPECT_EQ(0, Check());
  EXPECT_EQ(0, Result().check_ret);
  EXPECT_EQ(kPending, Result("item").check_ret);
  EXPECT_EQ(kPending, server.m_register_table[kZone + 1]["user"].check_ret);
}

// --- What needs no check ---

TEST_F(SchemaCheckTest, AcceptsATableOfAnotherLanguageUnseen) {
  Answer().iIdlType = 2;
  SetImage("no image");
  EXPECT_EQ(0, Check());
  EXPECT_EQ((Verdict{0, 3, -1}), Result());
  EXPECT_EQ(Lines({Received(8)}), logger.Lines());
  ExpectLastErrorUntouched();
}

TEST_F(SchemaCheckTest, LooksForAnotherLanguageBeforeTheEarlierVerdict) {
  SetVerdict("user", {0, 61, 1});
  Answer().iIdlType = 2;
  EXPECT_EQ(0, Check());
  EXPECT_EQ((Verdict{0, 3, -1}), Result());
}

TEST_F(SchemaCheckTest, LooksForAnotherLanguageBeforeTheLocalSchema) {
  Info("user").local_meta = nullptr;
  Answer().iIdlType = 2;
  EXPECT_EQ(0, Check());
  EXPECT_EQ((Verdict{0, 3, -1}), Result());
  EXPECT_EQ(Lines({Received(0)}), logger.Lines());
}

TEST_F(SchemaCheckTest, ComparesTablesOfEveryOtherLanguageNumber) {
  for (const int type : {0, 1, 3, -2, INT32_MAX}) {
    SetVerdict("user", kUntouched);
    Answer().iIdlType = type;
    Answer().iVexMetaCurrentVersion = 3;
    EXPECT_EQ(kFailed, Check()) << type;
  }
}

TEST_F(SchemaCheckTest, ExaminesATableThatPassedNoMore) {
  const Verdict passed = {0, 61, 1};
  SetVerdict("user", passed);
  Answer().iVexMetaCurrentVersion = 0;
  SetImage("no image");
  EXPECT_EQ(0, Check());
  EXPECT_EQ(passed, Result());
  EXPECT_EQ(Lines({Received(8)}), logger.Lines());
  ExpectLastErrorUntouched();
}

TEST_F(SchemaCheckTest, ExaminesATableWithAnyOtherVerdictAgain) {
  for (const int32_t verdict : {kFailed, 1, -1, INT32_MAX}) {
    SetVerdict("user", {verdict, 61, 62});
    EXPECT_EQ(0, Check()) << verdict;
    EXPECT_EQ(0, Result().check_ret) << verdict;
  }
}

TEST_F(SchemaCheckTest, PassesOverATableWithoutALocalSchema) {
  Info("user").local_meta = nullptr;
  SetImage("no image");
  EXPECT_EQ(0, Check());
  EXPECT_EQ(kUntouched, Result()) << "not even its type";
  EXPECT_EQ(Lines({Received(8), Check(OSTRAND_LOG_LEVEL_WARN,
                                      "zone:5,table user vexmeta is NULL in register_table")}),
            logger.Lines());
  ExpectLastErrorUntouched();
}

// --- Versions ---

TEST_F(SchemaCheckTest, RefusesAClientWithANewerSchema) {
  struct Case {
    int32_t client;
    int32_t server;
  };
  for (const Case& one : {Case{5, 4}, Case{1, 0}, Case{0, -1}, Case{INT32_MAX, INT32_MIN}}) {
    SetVerdict("user", kUntouched);
    server.SetLastError(-1, "earlier");
    logger.Clear();
    local.version = one.client;
    Answer().iVexMetaCurrentVersion = one.server;
    SetImage(ImageOf(UserTable(4)));
    EXPECT_EQ(kFailed, Check());
    EXPECT_EQ((Verdict{kFailed, 3, 62}), Result()) << "the type is set before the comparison";
    EXPECT_EQ(
        Lines({Received(Answer().iIdlConLen),
               Check(OSTRAND_LOG_LEVEL_ERROR,
                     "get zone:5,table user client vex version " + std::to_string(one.client) +
                         " > svr vex version " + std::to_string(one.server) +
                         ", please chang table on ostrand OMS")}),
        logger.Lines());
    ExpectLastError(kFailed, "earlier");
  }
}

TEST_F(SchemaCheckTest, AcceptsAClientWithTheSameOrAnOlderSchema) {
  for (const int32_t client : {0, 3, 4}) {
    SetVerdict("user", kUntouched);
    logger.Clear();
    local.version = client;
    EXPECT_EQ(0, Check());
    EXPECT_EQ(Lines({Received(0), VersionsFit(client, 4),
                     Check(OSTRAND_LOG_LEVEL_DEBUG, "get zone:5,table user vex info empty.")}),
              logger.Lines());
  }
}

// --- The lock ---

TEST_F(SchemaCheckTest, HoldsTheTablesLockForReadingFromTheLookUpToTheEnd) {
  std::vector<std::string> free;
  std::vector<std::string> read;
  logger.OnLine([&](const OstrandFakes::LogLine& line) {
    EXPECT_FALSE(IsHeldForWriting(server.m_register_table_lock)) << line;
    (IsHeldForReading(server.m_register_table_lock) ? read : free).push_back(line.text);
  });
  VexMeta longer = UserTable(4);
  longer.value_fields[0].size = 301;
  for (const std::string& image : {ImageOf(UserTable(4)), ImageOf(longer), std::string("none")}) {
    SetVerdict("user", kUntouched);
    SetImage(image);
    Check();
  }
  SetTable(kZone, "item");
  Check();
  SetTable(9, "user");
  Check();
  logger.OnLine(nullptr);
  EXPECT_EQ(5U, free.size()) << "the first line of each";
  EXPECT_EQ(11U, read.size());
}

// --- The order of effects ---

TEST_F(SchemaCheckTest, LogsTheVersionsBeforeItSetsTheVerdict) {
  local.version = 5;
  logger.OnLine([&](const OstrandFakes::LogLine&) {
    ExpectLastErrorUntouched();
    EXPECT_EQ(kPending, server.m_register_table[kZone]["user"].check_ret);
  });
  EXPECT_EQ(kFailed, Check());
  logger.OnLine(nullptr);
}

TEST_F(SchemaCheckTest, LogsAnImageThatIsTooLargeBeforeItSetsTheVerdict) {
  SetImage("", 10485760);
  SetVerdict("user", {kPending, 3, 62});
  int errors = 0;
  logger.OnLine([&](const OstrandFakes::LogLine& line) {
    errors += line.level == OSTRAND_LOG_LEVEL_ERROR ? 1 : 0;
    const RegisterTableInfo& info = server.m_register_table[kZone]["user"];
    EXPECT_EQ(kPending, info.check_ret) << line;
    EXPECT_EQ(62, info.data_protocol_type) << line;
  });
  EXPECT_EQ(kFailed, Check());
  logger.OnLine(nullptr);
  EXPECT_EQ(1, errors);
  EXPECT_EQ((Verdict{kFailed, 3, -1}), Result());
}

TEST_F(SchemaCheckTest, LogsAnImageThatDoesNotLoadBeforeItSetsLastErrorAndVerdict) {
  SetImage("no image");
  int errors = 0;
  logger.OnLine([&](const OstrandFakes::LogLine& line) {
    errors += line.level == OSTRAND_LOG_LEVEL_ERROR ? 1 : 0;
    ExpectLastErrorUntouched();
    EXPECT_EQ(kPending, server.m_register_table[kZone]["user"].check_ret) << line;
  });
  EXPECT_EQ(kFailed, Check());
  logger.OnLine(nullptr);
  EXPECT_EQ(1, errors);
  EXPECT_EQ(kFailed, Result().check_ret);
  ExpectLastError(kFailed, "earlier");
}

TEST_F(SchemaCheckTest, SetsTheVerdictBeforeItLogsAnEmptyImage) {
  int seen = 0;
  logger.OnLine([&](const OstrandFakes::LogLine& line) {
    const bool is_empty = line.level == OSTRAND_LOG_LEVEL_DEBUG;
    seen += is_empty ? 1 : 0;
    EXPECT_EQ(is_empty ? 0 : kPending, server.m_register_table[kZone]["user"].check_ret) << line;
  });
  EXPECT_EQ(0, Check());
  logger.OnLine(nullptr);
  EXPECT_EQ(1, seen);
}

TEST_F(SchemaCheckTest, SetsTheVerdictBeforeItLogsWhatTheLibraryLacksOrHasDifferently) {
  VexMeta other = UserTable(4);
  other.name = "item";
  VexMeta longer = UserTable(4);
  longer.value_fields[0].size = 301;
  for (const VexMeta& table : {other, longer}) {
    SetVerdict("user", kUntouched);
    SetImage(ImageOf(table));
    int errors = 0;
    logger.OnLine([&](const OstrandFakes::LogLine& line) {
      const bool is_error = line.level == OSTRAND_LOG_LEVEL_ERROR;
      errors += is_error ? 1 : 0;
      EXPECT_EQ(is_error ? kFailed : kPending, server.m_register_table[kZone]["user"].check_ret);
      ExpectLastErrorUntouched();
    });
    Check();
    EXPECT_EQ(1, errors);
  }
  logger.OnLine(nullptr);
}

TEST_F(SchemaCheckTest, SetsTheVerdictBeforeItLogsASuccess) {
  SetImage(ImageOf(UserTable(4, "DataProtocolType=PB")));
  logger.OnLine([&](const OstrandFakes::LogLine& line) {
    if (line.text.find("CompareEntryValueField success.") != std::string::npos) {
      const RegisterTableInfo& info = server.m_register_table[kZone]["user"];
      EXPECT_EQ(0, info.check_ret);
      EXPECT_EQ(2, info.data_protocol_type);
    }
  });
  EXPECT_EQ(0, Check());
  logger.OnLine(nullptr);
}

}  // namespace
}  // namespace OstrandService
