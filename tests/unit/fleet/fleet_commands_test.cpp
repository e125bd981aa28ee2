// Every command on tables, over TCP, through one proxy or two.
#include <gtest/gtest.h>

#include "fakes/fake_clock.h"
#include "protocol/ostrand_api_cmds.h"
#include "unit/fleet/fleet_test_kit.h"

namespace OstrandFleet {
namespace {

using namespace ostrand_protocol_cs;  // NOLINT: commands and records

class FleetCommands : public ::testing::Test {
 protected:
  explicit FleetCommands(const FleetOptions& options = TestOptions()) : m_fleet(options) {
    EXPECT_EQ(m_fleet.Start(), 0) << m_fleet.Error();
    m_client = TestClient::SignedUp(m_fleet.ProxyUrl(0));
  }

  int32_t Insert(uint32_t uid, const std::string& name) {
    return Result(Request(OSTRAND_API_INSERT_REQ).Key(Uid(uid)).Record({{"name", name}}));
  }
  int32_t Result(const Request& request) { return m_client->CallForResult(request); }
  std::vector<AnswerRecord> Records(const Request& request) {
    const OStrandPkg* const answer = m_client->Call(request);
    EXPECT_NE(answer, nullptr);
    EXPECT_EQ(answer->stHead.iResult, 0);
    return RecordsOf(answer->stBody.stRecords);
  }
  FieldList Get(uint32_t uid) {
    const auto records = Records(Request(OSTRAND_API_GET_REQ).Key(Uid(uid)));
    return records.size() == 1 ? records[0].values : FieldList();
  }

  Fleet m_fleet;
  std::unique_ptr<TestClient> m_client;
};

TEST_F(FleetCommands, InsertStoresARecordThatGetAnswers) {
  EXPECT_EQ(Result(Request(OSTRAND_API_INSERT_REQ)
                       .Key(Uid(1))
                       .Record({{"name", "ann"}, {"level", Uint32(5)}})),
            0);
  const auto records = Records(Request(OSTRAND_API_GET_REQ).Key(Uid(1)));
  ASSERT_EQ(records.size(), 1U);
  EXPECT_EQ(records[0].result, 0);
  EXPECT_EQ(records[0].version, 1);
  EXPECT_EQ(records[0].values, (FieldList{{"name", "ann"}, {"level", Uint32(5)}}));
}

TEST_F(FleetCommands, GetAnswersTheFieldsThatAreNamed) {
  Result(
      Request(OSTRAND_API_INSERT_REQ).Key(Uid(1)).Record({{"name", "ann"}, {"level", Uint32(5)}}));
  const auto records = Records(Request(OSTRAND_API_GET_REQ).Key(Uid(1)).Record({{"level", ""}}));
  ASSERT_EQ(records.size(), 1U);
  EXPECT_EQ(records[0].values, (FieldList{{"level", Uint32(5)}}));
}

TEST_F(FleetCommands, InsertOfAnExistingKeyIsRefused) {
  EXPECT_EQ(Insert(1, "ann"), 0);
  EXPECT_EQ(Insert(1, "eve"), -1293);
  EXPECT_EQ(Get(1), (FieldList{{"name", "ann"}}));
}

TEST_F(FleetCommands, GetUpdateAndDeleteOfAMissingKeyAreRefused) {
  EXPECT_EQ(Result(Request(OSTRAND_API_GET_REQ).Key(Uid(9))), -7949);
  EXPECT_EQ(Result(Request(OSTRAND_API_UPDATE_REQ).Key(Uid(9)).Record({{"name", "x"}})), -7949);
  EXPECT_EQ(Result(Request(OSTRAND_API_DELETE_REQ).Key(Uid(9))), -7949);
}

TEST_F(FleetCommands, UpdateChangesTheFieldsThatItCarries) {
  Result(
      Request(OSTRAND_API_INSERT_REQ).Key(Uid(1)).Record({{"name", "ann"}, {"level", Uint32(5)}}));
  EXPECT_EQ(Result(Request(OSTRAND_API_UPDATE_REQ).Key(Uid(1)).Record({{"level", Uint32(6)}})), 0);
  EXPECT_EQ(Get(1), (FieldList{{"name", "ann"}, {"level", Uint32(6)}}));
}

TEST_F(FleetCommands, ReplacePutsAWholeRecordInPlaceOfAnyOther) {
  const auto replace = [this](const FieldList& values) {
    return Result(Request(OSTRAND_API_REPLACE_REQ).Key(Uid(1)).Record(values));
  };
  EXPECT_EQ(replace({{"name", "ann"}}), 0);
  EXPECT_EQ(replace({{"level", Uint32(6)}}), 0);
  EXPECT_EQ(Get(1), (FieldList{{"level", Uint32(6)}}));
}

TEST_F(FleetCommands, DeleteTakesTheRecordOut) {
  Insert(1, "ann");
  EXPECT_EQ(Result(Request(OSTRAND_API_DELETE_REQ).Key(Uid(1))), 0);
  EXPECT_EQ(Result(Request(OSTRAND_API_GET_REQ).Key(Uid(1))), -7949);
  EXPECT_EQ(m_fleet.CountRecords(kZone, "user"), 0U);
}

TEST_F(FleetCommands, ARequestThatNamesAnotherVersionIsRefused) {
  Insert(1, "ann");
  Result(Request(OSTRAND_API_UPDATE_REQ).Key(Uid(1)).Record({{"name", "eve"}}));  // version 2
  EXPECT_EQ(Result(Request(OSTRAND_API_UPDATE_REQ).Key(Uid(1), 1).Record({{"name", "x"}})), -9485);
  EXPECT_EQ(Result(Request(OSTRAND_API_REPLACE_REQ).Key(Uid(1), 1).Record({{"name", "x"}})), -9485);
  EXPECT_EQ(Result(Request(OSTRAND_API_DELETE_REQ).Key(Uid(1), 1)), -9485);
  EXPECT_EQ(Get(1), (FieldList{{"name", "eve"}}));
  EXPECT_EQ(Result(Request(OSTRAND_API_DELETE_REQ).Key(Uid(1), 2)), 0);
}

TEST_F(FleetCommands, FieldsAreCheckedAgainstTheSchema) {
  const struct {
    const char* what;
    FieldList key;
    FieldList values;
    int32_t result;
  } kCases[] = {
      {"no key", {}, {}, -6929},
      {"a key of another table", {{"id", Uint32(1)}}, {}, -6929},
      {"a key field too many", {{"uid", Uint32(1)}, {"day", "mon"}}, {}, -1549},
      {"a key field twice", {{"uid", Uint32(1)}, {"uid", Uint32(1)}}, {}, -1549},
      {"a key of three bytes", {{"uid", "abc"}}, {}, -2061},
      {"an unknown value", Uid(1), {{"age", "1"}}, -1549},
      {"a value twice", Uid(1), {{"name", "a"}, {"name", "b"}}, -1549},
      {"a number of five bytes", Uid(1), {{"level", "12345"}}, -2061},
      {"a text of 33 bytes", Uid(1), {{"name", std::string(33, 'x')}}, -2061},
      {"a text of 32 bytes", Uid(1), {{"name", std::string(32, 'x')}}, 0},
  };
  for (const auto& one : kCases) {
    EXPECT_EQ(Result(Request(OSTRAND_API_INSERT_REQ).Key(one.key).Record(one.values)), one.result)
        << one.what;
  }
  EXPECT_EQ(Result(Request(OSTRAND_API_GET_REQ).Key(Uid(1)).Record({{"age", ""}})), -1549);
}

TEST_F(FleetCommands, TablesAreThoseOfTheirZone) {
  EXPECT_EQ(Result(Request(OSTRAND_API_GET_REQ, "nobodys").Key(Uid(1))), -7185);
  EXPECT_EQ(Result(Request(OSTRAND_API_GET_REQ).Zone(kZone + 1).Key(Uid(1))), -7185);
}

TEST_F(FleetCommands, ListCommandsAndRecordCommandsKeepToTheirTables) {
  EXPECT_EQ(Result(Request(OSTRAND_API_GET_REQ, "mail").Key(Uid(1))), -11277);
  EXPECT_EQ(Result(Request(OSTRAND_API_LIST_GETALL_REQ, "user").Key(Uid(1))), -11277);
}

TEST_F(FleetCommands, CommandsWithoutADefinedBodyAreRefused) {
  for (const uint32_t cmd : {29U, 83U, 117U, 129U, 153U, 155U, 157U, 4215U, 4225U, 4239U}) {
    const OStrandPkg* const answer = m_client->Call(Request(cmd));
    ASSERT_NE(answer, nullptr) << cmd;
    EXPECT_EQ(answer->stHead.dwCmd, cmd + 1);
    EXPECT_EQ(answer->stHead.iResult, -3597) << cmd;
  }
}

TEST_F(FleetCommands, BatchWritesAnswerAResultForEachRecord) {
  const auto batch = [this](uint32_t cmd) {
    std::vector<int32_t> results;
    const auto records = Records(Request(cmd)
                                     .Record({}, Uid(1), {{"name", "a"}})
                                     .Record({}, Uid(2), {{"level", "no number"}})
                                     .Record({}, Uid(3), {{"name", "c"}}));
    for (size_t i = 0; i < records.size(); ++i) {
      EXPECT_EQ(records[i].index, static_cast<int32_t>(i));
      results.push_back(records[i].result);
    }
    return results;
  };
  Insert(3, "old");
  EXPECT_EQ(batch(OSTRAND_API_BATCH_INSERT_REQ), (std::vector<int32_t>{0, -2061, -1293}));
  EXPECT_EQ(batch(OSTRAND_API_BATCH_REPLACE_REQ), (std::vector<int32_t>{0, -2061, 0}));
  EXPECT_EQ(batch(OSTRAND_API_BATCH_UPDATE_REQ), (std::vector<int32_t>{0, -2061, 0}));
  EXPECT_EQ(batch(OSTRAND_API_BATCH_DELETE_REQ), (std::vector<int32_t>{0, -7949, 0}));
  EXPECT_EQ(m_fleet.CountRecords(kZone, "user"), 0U);
}

TEST_F(FleetCommands, BatchGetAnswersEachKeyInItsPlace) {
  Insert(1, "ann");
  Insert(2, "ben");
  RecordMark old_version;
  old_version.version = 4;
  const auto records = Records(Request(OSTRAND_API_BATCH_GET_REQ)
                                   .Record({}, Uid(2), {{"name", ""}})
                                   .Record({}, Uid(8), {})
                                   .Record({}, Uid(1), {{"age", ""}})
                                   .Record(old_version, Uid(1), {})
                                   .Record({}, Uid(1), {}));
  ASSERT_EQ(records.size(), 5U);
  const std::vector<int32_t> results = {0, -7949, -1549, -9485, 0};
  for (size_t i = 0; i < records.size(); ++i) {
    EXPECT_EQ(records[i].index, static_cast<int32_t>(i));
    EXPECT_EQ(records[i].result, results[i]) << i;
  }
  EXPECT_EQ(records[0].key, Uid(2));
  EXPECT_EQ(records[0].values, (FieldList{{"name", "ben"}}));
  EXPECT_EQ(records[4].values, (FieldList{{"name", "ann"}}));
}

TEST_F(FleetCommands, ABatchOfRecordsThatDoNotFitInAnAnswerSaysSoPerRecord) {
  TableSetup blobs;
  blobs.zone = kZone;
  blobs.schema.name = "blobs";
  m_fleet.AddTable(blobs);
  const std::string megabyte(1048576, 'm');
  EXPECT_EQ(Result(Request(OSTRAND_API_INSERT_REQ, "blobs").Key(Uid(1)).Record({{"b", megabyte}})),
            0);
  Request nine(OSTRAND_API_BATCH_GET_REQ, "blobs");
  for (int i = 0; i < 9; ++i) {
    nine.Record({}, Uid(1), {});
  }
  const auto records = Records(nine);  // seven are within 8 MiB together with what is around them
  ASSERT_EQ(records.size(), 9U);
  for (size_t i = 0; i < records.size(); ++i) {
    EXPECT_EQ(records[i].result, i < 7 ? 0 : -9741) << i;
  }
}

class FleetParts : public FleetCommands {
 protected:
  FleetParts() : FleetCommands(Options()) {}

  static FleetOptions Options() {
    FleetOptions options = TestOptions();
    options.records_per_package = 2;
    return options;
  }

  // Receives all packages of the answer to a request; checks that they are numbered and flagged.
  std::vector<AnswerRecord> AllParts(const Request& request, size_t packages) {
    EXPECT_TRUE(m_client->Send(request.Frame()));
    std::vector<AnswerRecord> all;
    for (size_t i = 0; i < packages; ++i) {
      const OStrandPkg* const part = m_client->ReceivePkg();
      EXPECT_NE(part, nullptr);
      const OStrandMultiPkgRes& body = part->stBody.stGetByPartKeyRes;
      EXPECT_EQ(part->stHead.dwSubCmd, i);
      EXPECT_EQ(body.bHasMorePkgs, i + 1 < packages ? 1 : 0);
      EXPECT_EQ(std::string(part->stHead.szUserBuff, part->stHead.dwUserBuffLen), "context");
      for (const AnswerRecord& record : RecordsOf(body.stRecords)) {
        all.push_back(record);
      }
    }
    EXPECT_TRUE(m_client->HasReceivedAll());
    return all;
  }
};

TEST_F(FleetParts, GetByPartOfAKeyAnswersInNumberedPackages) {
  for (const char* day : {"1", "2", "3", "4", "5"}) {
    const FieldList key = {{"day", day}, {"uid", Uint32(1)}};
    Result(Request(OSTRAND_API_INSERT_REQ, "log").Key(key).Record({{"text", day}}));
  }
  Result(Request(OSTRAND_API_INSERT_REQ, "log").Key({{"day", "1"}, {"uid", Uint32(2)}}));
  const auto records =
      AllParts(Request(OSTRAND_API_GET_BY_PARTKEY_REQ, "log").Key(Uid(1)).UserBuffer("context"), 3);
  ASSERT_EQ(records.size(), 5U);
  for (size_t i = 0; i < records.size(); ++i) {
    const std::string day = std::to_string(i + 1);
    EXPECT_EQ(records[i].key, (FieldList{{"day", day}, {"uid", Uint32(1)}}));
    EXPECT_EQ(records[i].values, (FieldList{{"text", day}}));
  }
  const auto all_of_a_day = AllParts(
      Request(OSTRAND_API_GET_BY_PARTKEY_REQ, "log").Key({{"day", "1"}}).UserBuffer("context"), 1);
  EXPECT_EQ(all_of_a_day.size(), 2U);
}

TEST_F(FleetParts, GetByPartOfAKeyWithoutMatchOrWithoutKeyIsRefused) {
  EXPECT_EQ(Result(Request(OSTRAND_API_GET_BY_PARTKEY_REQ, "log").Key(Uid(4))), -7949);
  EXPECT_EQ(Result(Request(OSTRAND_API_GET_BY_PARTKEY_REQ, "log")), -6929);
  EXPECT_EQ(Result(Request(OSTRAND_API_GET_BY_PARTKEY_REQ, "log").Key({{"hour", "1"}})), -1549);
  const OStrandPkg* const answer =
      m_client->Call(Request(OSTRAND_API_GET_BY_PARTKEY_REQ, "log").Key(Uid(4)));
  EXPECT_EQ(answer->stBody.stGetByPartKeyRes.iResult, -7949);
  EXPECT_EQ(answer->stBody.stGetByPartKeyRes.bHasMorePkgs, 0);
}

TEST_F(FleetParts, DeleteByPartOfAKeyNamesWhatItDeleted) {
  for (const char* day : {"1", "2", "3"}) {
    Result(Request(OSTRAND_API_INSERT_REQ, "log").Key({{"day", day}, {"uid", Uint32(1)}}));
  }
  Result(Request(OSTRAND_API_INSERT_REQ, "log").Key({{"day", "1"}, {"uid", Uint32(2)}}));
  const auto deleted = Records(Request(OSTRAND_API_DELETE_BY_PARTKEY_REQ, "log").Key(Uid(1)));
  ASSERT_EQ(deleted.size(), 3U);
  EXPECT_EQ(deleted[2].key, (FieldList{{"day", "3"}, {"uid", Uint32(1)}}));
  EXPECT_EQ(m_fleet.CountRecords(kZone, "log"), 1U);
  EXPECT_EQ(Result(Request(OSTRAND_API_DELETE_BY_PARTKEY_REQ, "log").Key(Uid(1))), -7949);
}

TEST_F(FleetCommands, RecordsOfOverEightMegabytesComeInSeveralPackages) {
  TableSetup blobs;
  blobs.zone = kZone;
  blobs.schema.name = "blobs";
  m_fleet.AddTable(blobs);
  const std::string megabyte(1048576, 'm');
  for (uint32_t i = 0; i < 9; ++i) {
    const FieldList key = {{"day", "1"}, {"uid", Uint32(i)}};
    Result(Request(OSTRAND_API_INSERT_REQ, "blobs").Key(key).Record({{"b", megabyte}}));
  }
  m_client->Send(Request(OSTRAND_API_GET_BY_PARTKEY_REQ, "blobs").Key({{"day", "1"}}).Frame());
  for (const size_t records : {7U, 2U}) {
    const OStrandPkg* const part = m_client->ReceivePkg();
    ASSERT_NE(part, nullptr);
    EXPECT_EQ(RecordsOf(part->stBody.stGetByPartKeyRes.stRecords).size(), records);
    EXPECT_EQ(part->stBody.stGetByPartKeyRes.bHasMorePkgs, records == 7 ? 1 : 0);
  }
}

class FleetLists : public FleetParts {
 protected:
  Request List(uint32_t cmd) {
    Request request(cmd, "mail");
    request.Key(Uid(1)).UserBuffer("context");
    return request;
  }
  static RecordMark At(int32_t index) {
    RecordMark mark;
    mark.index = index;
    return mark;
  }
  void InsertAtEnd(const std::vector<std::string>& texts) {
    Request request = List(OSTRAND_API_LIST_INSERT_REQ);
    for (const std::string& text : texts) {
      request.Record(At(-1), {}, {{"text", text}});
    }
    Records(request);
  }
  std::vector<std::string> Texts() {
    StoredRecord list;
    std::vector<std::string> texts;
    if (m_fleet.FindRecord(kZone, "mail", Uid(1), list)) {
      for (const FieldList& element : list.elements) {
        texts.push_back(element.at(0).value);
      }
    }
    return texts;
  }
};

TEST_F(FleetLists, InsertPutsElementsBehindTheNamedOneOrAtTheEnd) {
  const auto first = Records(List(OSTRAND_API_LIST_INSERT_REQ)
                                 .Record(At(-1), {}, {{"text", "a"}})
                                 .Record(At(-1), {}, {{"text", "d"}})
                                 .Record(At(0), {}, {{"text", "b"}})
                                 .Record(At(7), {}, {{"text", "x"}})
                                 .Record(At(1), {}, {{"text", "c"}}));
  ASSERT_EQ(first.size(), 5U);
  EXPECT_EQ(Texts(), (std::vector<std::string>{"a", "b", "c", "d"}));
  const std::vector<int32_t> places = {0, 1, 1, 7, 2};
  for (size_t i = 0; i < first.size(); ++i) {
    EXPECT_EQ(first[i].result, i == 3 ? -4109 : 0) << i;
    EXPECT_EQ(first[i].index, places[i]) << i;
  }
}

TEST_F(FleetLists, GetAllAnswersInNumberedPackages) {
  InsertAtEnd({"a", "b", "c"});
  const auto elements = AllParts(List(OSTRAND_API_LIST_GETALL_REQ), 2);
  ASSERT_EQ(elements.size(), 3U);
  for (size_t i = 0; i < elements.size(); ++i) {
    EXPECT_EQ(elements[i].index, static_cast<int32_t>(i));
    EXPECT_EQ(elements[i].values,
              (FieldList{{"text", std::string(1, static_cast<char>('a' + i))}}));
  }
}

TEST_F(FleetLists, GetAnswersTheNamedElements) {
  InsertAtEnd({"a", "b", "c"});
  const auto elements = Records(List(OSTRAND_API_LIST_GET_REQ)
                                    .Record(At(2), {}, {})
                                    .Record(At(3), {}, {})
                                    .Record(At(-1), {}, {}));
  ASSERT_EQ(elements.size(), 3U);
  EXPECT_EQ(elements[0].values, (FieldList{{"text", "c"}}));
  EXPECT_EQ(elements[1].result, -4109);
  EXPECT_EQ(elements[2].result, -4109);
}

TEST_F(FleetLists, UpdateChangesTheNamedElements) {
  InsertAtEnd({"a", "b"});
  const auto results = Records(List(OSTRAND_API_LIST_UPDATE_REQ)
                                   .Record(At(1), {}, {{"text", "B"}})
                                   .Record(At(0), {}, {{"read", "1"}})
                                   .Record(At(0), {}, {{"age", "1"}})
                                   .Record(At(9), {}, {{"text", "x"}}));
  ASSERT_EQ(results.size(), 4U);
  const std::vector<int32_t> expected = {0, 0, -1549, -4109};
  for (size_t i = 0; i < results.size(); ++i) {
    EXPECT_EQ(results[i].result, expected[i]) << i;
  }
  EXPECT_EQ(Texts(), (std::vector<std::string>{"a", "B"}));
}

TEST_F(FleetLists, DeleteCountsPlacesBeforeItTakesAnyOut) {
  InsertAtEnd({"a", "b", "c", "d"});
  const auto results = Records(List(OSTRAND_API_LIST_DELETE_REQ)
                                   .Record(At(0), {}, {})
                                   .Record(At(2), {}, {})
                                   .Record(At(4), {}, {}));
  ASSERT_EQ(results.size(), 3U);
  EXPECT_EQ(results[1].result, 0);
  EXPECT_EQ(results[2].result, -4109);
  EXPECT_EQ(Texts(), (std::vector<std::string>{"b", "d"}));
}

TEST_F(FleetLists, DeleteAllTakesTheListOut) {
  InsertAtEnd({"a"});
  EXPECT_EQ(Result(List(OSTRAND_API_LIST_DELETE_ALL_REQ)), 0);
  for (const uint32_t cmd :
       {OSTRAND_API_LIST_DELETE_ALL_REQ, OSTRAND_API_LIST_GETALL_REQ, OSTRAND_API_LIST_GET_REQ,
        OSTRAND_API_LIST_UPDATE_REQ, OSTRAND_API_LIST_DELETE_REQ}) {
    EXPECT_EQ(Result(List(cmd)), -7949) << cmd;
  }
}

TEST_F(FleetLists, AListThatNamesAnotherVersionIsLeftAlone) {
  InsertAtEnd({"a"});  // version 1
  const auto results = Records(List(OSTRAND_API_LIST_INSERT_REQ)
                                   .Key(Uid(1), 1)
                                   .Record(At(-1), {}, {{"text", "b"}})
                                   .Record(At(-1), {}, {{"text", "c"}}));
  EXPECT_EQ(results[0].result, 0);
  EXPECT_EQ(results[1].result, 0);
  EXPECT_EQ(Result(List(OSTRAND_API_LIST_GETALL_REQ).Key(Uid(1), 1)), -9485);
}

TEST(FleetStore, ListsAndMemoryHaveLimits) {
  FleetOptions options = TestOptions();
  options.store.max_list_elements = 2;
  options.store.max_bytes = 4096;
  Fleet fleet(options);
  ASSERT_EQ(fleet.Start(), 0);
  const auto client = TestClient::SignedUp(fleet.ProxyUrl(0));
  Request three(OSTRAND_API_LIST_INSERT_REQ, "mail");
  three.Key(Uid(1)).Record({{"text", "a"}}).Record({{"text", "b"}}).Record({{"text", "c"}});
  const auto results = RecordsOf(client->Call(three)->stBody.stRecords);
  ASSERT_EQ(results.size(), 3U);
  EXPECT_EQ(results[1].result, 0);
  EXPECT_EQ(results[2].result, -6157);
  int32_t result = 0;
  for (uint32_t uid = 0; uid < 100 && result == 0; ++uid) {
    result = client->CallForResult(Request(OSTRAND_API_INSERT_REQ).Key(Uid(uid)));
  }
  EXPECT_EQ(result, -8205);
}

TEST(FleetStore, RecordsExpireByTheWallClock) {
  OstrandFakes::FakeClock clock;
  Fleet fleet(TestOptions());
  ASSERT_EQ(fleet.Start(), 0);
  const auto client = TestClient::SignedUp(fleet.ProxyUrl(0));
  const auto key_set = [](OStrandKeySet& keys, uint32_t uid) {
    CTRecordDecodeHelper::CopyKeySet(
        keys, Request(OSTRAND_API_GET_REQ).Key(Uid(uid)).pkg().stHead.stKeyInfo);
  };
  const auto times = [&] {
    Request request(OSTRAND_API_GET_TTL_REQ);
    OStrandGetTTLReq& body = request.pkg().stBody.stGetTTLReq;
    body.dwRecordNum = 3;
    for (uint32_t i = 0; i < 3; ++i) {
      key_set(body.astKeyInfo[i], i);
    }
    const OStrandTTLRes& answer = client->Call(request)->stBody.stTTLRes;
    std::vector<std::pair<int32_t, int64_t>> list;
    for (uint32_t i = 0; i < answer.dwRecordNum; ++i) {
      list.emplace_back(answer.astRecordTTL[i].iResult, answer.astRecordTTL[i].llTTLMs);
    }
    return list;
  };
  using Times = std::vector<std::pair<int32_t, int64_t>>;
  client->Call(Request(OSTRAND_API_INSERT_REQ).Key(Uid(0)));
  client->Call(Request(OSTRAND_API_INSERT_REQ).Key(Uid(1)));
  EXPECT_EQ(times(), (Times{{0, -1}, {0, -1}, {-7949, -1}}));

  Request set(OSTRAND_API_SET_TTL_REQ);
  OStrandSetTTLReq& body = set.pkg().stBody.stSetTTLReq;
  body.dwRecordNum = 2;
  key_set(body.astKeyInfo[0], 0);
  body.allTTLMs[0] = 1000;
  key_set(body.astKeyInfo[1], 5);
  body.allTTLMs[1] = 1000;
  const OStrandPkg* const answer = client->Call(set);
  EXPECT_EQ(answer->stBody.stTTLRes.astRecordTTL[0].iResult, 0);
  EXPECT_EQ(answer->stBody.stTTLRes.astRecordTTL[1].iResult, -7949);

  clock.AdvanceMs(999);
  EXPECT_EQ(times(), (Times{{0, 1}, {0, -1}, {-7949, -1}}));
  clock.AdvanceMs(1);
  EXPECT_EQ(times(), (Times{{-7949, -1}, {0, -1}, {-7949, -1}}));
  EXPECT_EQ(fleet.CountRecords(kZone, "user"), 1U);
}

TEST(FleetStore, AllProxiesShareOneStore) {
  Fleet fleet(TestOptions(2));
  ASSERT_EQ(fleet.Start(), 0);
  const auto first = TestClient::SignedUp(fleet.ProxyUrl(0));
  const auto second = TestClient::SignedUp(fleet.ProxyUrl(1));
  EXPECT_EQ(first->CallForResult(Request(OSTRAND_API_INSERT_REQ).Key(Uid(1))), 0);
  EXPECT_EQ(second->CallForResult(Request(OSTRAND_API_GET_REQ).Key(Uid(1))), 0);
}

TEST(FleetStore, UnknownTablesComeToBeWhereThatIsWanted) {
  FleetOptions options;
  options.create_unknown_tables = true;
  options.store.max_tables = 2;
  Fleet fleet(options);
  ASSERT_EQ(fleet.Start(), 0);
  const auto client = TestClient::SignedUp(fleet.ProxyUrl(0));
  const FieldList any_key = {{"anything", "at all"}};
  const auto insert = [&](const char* table) {
    return client->CallForResult(
        Request(OSTRAND_API_INSERT_REQ, table).Key(any_key).Record({{"whatever", "v"}}));
  };
  EXPECT_EQ(insert("one"), 0);
  EXPECT_EQ(insert("two"), 0);
  EXPECT_EQ(insert("three"), -7185) << "one table too many";
  StoredRecord record;
  ASSERT_TRUE(fleet.FindRecord(kZone, "one", any_key, record));
  EXPECT_EQ(record.values, (FieldList{{"whatever", "v"}}));
}

}  // namespace
}  // namespace OstrandFleet
