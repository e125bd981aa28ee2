#include "client/client_request.h"

#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include "client/runtime_errors.h"
#include "fakes/allocation_faults.h"
#include "protocol/codec.h"
#include "service_api/ostrand_router.h"
#include "service_api/routing_context.h"

namespace OstrandService {
namespace {

using namespace ostrand_protocol_cs;  // NOLINT: the whole file is about it

constexpr int32_t kZone = 3;

std::string Packed(ClientRequest& request, int* ret = nullptr) {
  std::string frame(1 << 20, '\0');
  size_t len = frame.size();
  const int packed = request.Pack(frame.data(), len);
  if (ret != nullptr) {
    *ret = packed;
  } else {
    EXPECT_EQ(0, packed);
  }
  frame.resize(packed == 0 ? len : 0);
  return frame;
}

// What the other side reads.
std::unique_ptr<OStrandPkg> Unpacked(const std::string& frame) {
  auto pkg = NewOStrandPkg();
  EXPECT_EQ(0, UnpackWholeCsPkgMaybeDecompress(*pkg, nullptr, 0, frame.data(), frame.size(),
                                               nullptr, nullptr, 0));
  return pkg;
}

std::string UserBuffOf(const OStrandPkg& pkg) {
  return {pkg.stHead.szUserBuff, pkg.stHead.dwUserBuffLen};
}

TEST(ClientRequest, IsEmptyAfterInit) {
  ClientRequest request;
  ASSERT_EQ(0, request.Init(OSTRAND_API_GET_REQ, kZone, "player"));
  size_t len = 99;
  EXPECT_STREQ("player", request.GetTableName(&len));
  EXPECT_EQ(6U, len);
  EXPECT_EQ(kZone, request.GetZoneId());
  EXPECT_EQ(7U, request.GetCmd());
  EXPECT_EQ(0U, request.GetSubCmd());
  EXPECT_EQ(-1, request.GetTableSubscript());
  EXPECT_EQ(0, request.GetSequence());
  EXPECT_EQ(0U, request.GetAsynID());
  EXPECT_EQ(0, request.timeout_ms);
  EXPECT_EQ(0U, request.net_size);
  EXPECT_NE(nullptr, request.GetUserBuff(&len));
  EXPECT_EQ(0U, len);
  EXPECT_EQ(0U, request.GetKeyCount());
  EXPECT_EQ(0U, request.GetRecordCount());
  EXPECT_NE(nullptr, request.GetPkg());
}

TEST(ClientRequest, InitLeavesNothingOfTheOldRequest) {
  ClientRequest request;
  ASSERT_EQ(0, request.Init(OSTRAND_API_INSERT_REQ, kZone, "player"));
  request.SetAppId(7);
  request.SetAsynID(8);
  request.SetSequence(9);
  request.SetTimeout(10);
  request.SetTableSubscript(11);
  request.SetMetaVersion(12);
  request.SetRecordVersion(13);
  request.SetUserBuff("user", 4);
  request.SetPerfTest("perf", 4);
  request.SetKey("id", "42");
  request.AddValue("level", "1");
  request.net_size = 14;
  ASSERT_EQ(0, request.Init(OSTRAND_API_GET_REQ, 5, nullptr));

  ClientRequest fresh;
  ASSERT_EQ(0, fresh.Init(OSTRAND_API_GET_REQ, 5, nullptr));
  EXPECT_EQ(Packed(fresh), Packed(request));
  EXPECT_EQ(0, request.timeout_ms);
  EXPECT_EQ(0U, request.net_size);
  EXPECT_EQ(-1, request.GetTableSubscript());
  size_t len = 99;
  request.GetUserBuff(&len);
  EXPECT_EQ(0U, len);

  ASSERT_EQ(0, request.Init(OSTRAND_API_INSERT_REQ, kZone, "player"));
  ASSERT_EQ(0, request.AddValue("level", "1"));
  ASSERT_EQ(0, request.Init(OSTRAND_API_BATCH_INSERT_REQ, kZone, "player"));
  EXPECT_EQ(RUNTIME_ERR_NO_RECORD, request.AddValue("level", "1")) << "of the old request";
}

TEST(ClientRequest, TellsNoTableNameFromAnEmptyOne) {
  ClientRequest request;
  size_t len = 99;
  ASSERT_EQ(0, request.Init(OSTRAND_API_GET_REQ, kZone, nullptr));
  EXPECT_EQ(nullptr, request.GetTableName(&len));
  EXPECT_EQ(0U, len);
  ASSERT_EQ(0, request.Init(OSTRAND_API_GET_REQ, kZone, ""));
  len = 99;
  EXPECT_STREQ("", request.GetTableName(&len));
  EXPECT_EQ(0U, len);
  ASSERT_EQ(0, request.Init(OSTRAND_API_GET_REQ, kZone, std::string(31, 't').c_str()));
  EXPECT_EQ(std::string(31, 't'), request.GetTableName(nullptr));
}

TEST(ClientRequest, ARefusedInitChangesNothing) {
  ClientRequest request;
  ASSERT_EQ(0, request.Init(OSTRAND_API_INSERT_REQ, kZone, "player"));
  request.AddValue("level", "1");
  const std::string before = Packed(request);
  EXPECT_EQ(OSTRAND_CODEC_ERR_COMMAND, request.Init(999, kZone, "guild"));
  EXPECT_EQ(OSTRAND_CODEC_ERR_COMMAND, request.Init(0, kZone, "guild"));
  EXPECT_EQ(OSTRAND_CODEC_ERR_TABLE_NAME,
            request.Init(OSTRAND_API_GET_REQ, kZone, std::string(32, 't').c_str()));
  EXPECT_EQ(before, Packed(request));
  EXPECT_EQ(0, request.AddValue("name", "2")) << "the record is still the current one";
}

TEST(ClientRequest, PutsEverythingIntoItsPackage) {
  ClientRequest request;
  ASSERT_EQ(0, request.Init(OSTRAND_API_UPDATE_REQ, kZone, "player"));
  request.SetAppId(7);
  request.SetAsynID(UINT64_MAX);
  request.SetSequence(-110);
  request.SetMetaVersion(12);
  request.SetRecordVersion(13);
  ASSERT_EQ(0, request.SetUserBuff("user", 4));
  ASSERT_EQ(0, request.SetKey("id", "42"));
  ASSERT_EQ(0, request.SetKey("region", "eu\0x", 4));
  ASSERT_EQ(0, request.AddValue("level", "1"));
  ASSERT_EQ(0, request.AddValue("name", ""));
  EXPECT_EQ(UINT64_MAX, request.GetAsynID());
  EXPECT_EQ(-110, request.GetSequence());

  const auto pkg = Unpacked(Packed(request));
  const OStrandPkgHead& head = pkg->stHead;
  EXPECT_EQ(5U, head.dwCmd);
  EXPECT_EQ(7, head.stRouterInfo.iAppID);
  EXPECT_EQ(kZone, head.stRouterInfo.iZoneID);
  EXPECT_STREQ("player", head.stRouterInfo.szTableName);
  EXPECT_EQ(UINT64_MAX, head.ullAsynID);
  EXPECT_EQ(-110, head.iSeq);
  EXPECT_EQ(12, head.iVexMetaVersion);
  EXPECT_EQ("user", UserBuffOf(*pkg));
  ASSERT_EQ(2U, head.stKeyInfo.dwFieldNum);
  EXPECT_EQ(13, head.stKeyInfo.iVersion);
  EXPECT_STREQ("region", head.stKeyInfo.astFields[1].szFieldName);
  EXPECT_EQ(4U, head.stKeyInfo.astFields[1].dwFieldLen);
  RecordReader reader(pkg->stBody.stRecords);
  RecordView record;
  ASSERT_TRUE(reader.Next(record));
  EXPECT_EQ(-1, record.mark.index);
  EXPECT_EQ(0U, record.keys.left());
  FieldView field;
  ASSERT_TRUE(record.FindValue("level", field));
  EXPECT_EQ("1", field.value);
  ASSERT_TRUE(record.FindValue("name", field));
  EXPECT_EQ("", field.value);
  EXPECT_FALSE(reader.Next(record));
}

TEST(ClientRequest, AKeyFieldSetAgainGetsTheNewValue) {
  ClientRequest request;
  ASSERT_EQ(0, request.Init(OSTRAND_API_GET_REQ, kZone, "player"));
  ASSERT_EQ(0, request.SetKey("id", "a longer value"));
  ASSERT_EQ(0, request.SetKey("region", "eu"));
  ASSERT_EQ(0, request.SetKey("id", "7"));
  EXPECT_EQ(2U, request.GetKeyCount());
  FieldView field;
  ASSERT_TRUE(request.GetKey("id", field));
  EXPECT_EQ("id", field.name);
  EXPECT_EQ("7", field.value);
  EXPECT_FALSE(request.GetKey("i", field));
  EXPECT_FALSE(request.GetKey("id2", field));
}

TEST(ClientRequest, KeyFieldsAreFoundAfterTheRouterSortedThem) {
  ClientRequest request;
  ASSERT_EQ(0, request.Init(OSTRAND_API_GET_REQ, kZone, "player"));
  request.SetKey("a", "1");
  request.SetKey("b", "2");
  std::swap(request.GetPkg()->stHead.stKeyInfo.astFields[0],
            request.GetPkg()->stHead.stKeyInfo.astFields[1]);
  request.SetKey("a", "3");
  FieldView field;
  ASSERT_TRUE(request.GetKey("a", field));
  EXPECT_EQ("3", field.value);
  ASSERT_TRUE(request.GetKey("b", field));
  EXPECT_EQ("2", field.value);
  EXPECT_EQ(2U, request.GetKeyCount());
}

struct RefusedField {
  std::string name;
  size_t value_len;
  int code;
};

TEST(ClientRequest, RefusesKeyFieldsThatDoNotFit) {
  const RefusedField cases[] = {
      {"", 1, OSTRAND_CODEC_ERR_FIELD_NAME},
      {std::string(32, 'n'), 1, OSTRAND_CODEC_ERR_FIELD_NAME},
      {std::string("a\0b", 3), 1, OSTRAND_CODEC_ERR_FIELD_NAME},
      {"id", 1025, OSTRAND_CODEC_ERR_KEY_FIELD_LEN},
      {"id", 1024, 0},
      {std::string(31, 'n'), 0, 0},
  };
  for (const RefusedField& c : cases) {
    ClientRequest request;
    ASSERT_EQ(0, request.Init(OSTRAND_API_GET_REQ, kZone, "player"));
    EXPECT_EQ(c.code, request.SetKey(c.name, std::string(c.value_len, 'v'))) << c.name;
    EXPECT_EQ(c.code == 0 ? 1U : 0U, request.GetKeyCount());
    int ret = -1;
    Packed(request, &ret);
    EXPECT_EQ(0, ret);
  }
  ClientRequest request;
  ASSERT_EQ(0, request.Init(OSTRAND_API_GET_REQ, kZone, "player"));
  for (int i = 0; i < 8; ++i) {
    ASSERT_EQ(0, request.SetKey("k" + std::to_string(i), "v"));
  }
  EXPECT_EQ(OSTRAND_CODEC_ERR_KEY_FIELD_NUM, request.SetKey("k8", "v"));
  EXPECT_EQ(0, request.SetKey("k7", "other"));
  EXPECT_EQ(8U, request.GetKeyCount());
}

TEST(ClientRequest, RefusesASecondValueOfOneName) {
  ClientRequest request;
  ASSERT_EQ(0, request.Init(OSTRAND_API_INSERT_REQ, kZone, "player"));
  ASSERT_EQ(0, request.AddValue("level", "1"));
  ASSERT_EQ(0, request.AddValue("name", "x"));
  EXPECT_EQ(RUNTIME_ERR_DUPLICATE_FIELD, request.AddValue("level", "2"));
  FieldView field;
  ASSERT_TRUE(request.GetValue("level", field));
  EXPECT_EQ("1", field.value);
  EXPECT_FALSE(request.GetValue("nothing", field));
  EXPECT_EQ(1U, request.GetRecordCount());
}

TEST(ClientRequest, RefusesValuesThatDoNotFit) {
  ClientRequest request;
  ASSERT_EQ(0, request.Init(OSTRAND_API_INSERT_REQ, kZone, "player"));
  EXPECT_EQ(OSTRAND_CODEC_ERR_FIELD_NAME, request.AddValue("", "1"));
  EXPECT_EQ(OSTRAND_CODEC_ERR_VALUE_LEN, request.AddValue("large", std::string(1048577, 'v')));
  EXPECT_EQ(0, request.AddValue("large", std::string(1048576, 'v')));
  EXPECT_EQ(OSTRAND_CODEC_ERR_VALUE_LEN, request.AddValue("more", "v"));
}

TEST(ClientRequest, HasOneRecordWhereTheCommandIsAboutOne) {
  ClientRequest request;
  ASSERT_EQ(0, request.Init(OSTRAND_API_REPLACE_REQ, kZone, "player"));
  EXPECT_EQ(0, request.AddRecord());
  EXPECT_EQ(RUNTIME_ERR_BODY_KIND, request.AddRecord());
  EXPECT_EQ(0, request.AddValue("level", "1"));
}

TEST(ClientRequest, HasNoRecordsWhereTheCommandHasNone) {
  for (const uint32_t cmd : {27U, 29U, 53U, 89U, 91U, 4225U}) {
    ClientRequest request;
    ASSERT_EQ(0, request.Init(cmd, kZone, "player"));
    EXPECT_EQ(RUNTIME_ERR_BODY_KIND, request.AddRecord()) << cmd;
    EXPECT_EQ(RUNTIME_ERR_NO_RECORD, request.AddRecordKey("id", "1")) << cmd;
    EXPECT_EQ(RUNTIME_ERR_NO_RECORD, request.AddValue("level", "1")) << cmd;
    EXPECT_EQ(nullptr, request.GetRecords()) << cmd;
    FieldView field;
    EXPECT_FALSE(request.GetValue("level", field)) << cmd;
  }
}

TEST(ClientRequest, ABatchHasRecordsWithKeysAndPlaces) {
  ClientRequest request;
  ASSERT_EQ(0, request.Init(OSTRAND_API_BATCH_INSERT_REQ, kZone, "player"));
  EXPECT_EQ(RUNTIME_ERR_NO_RECORD, request.AddRecordKey("id", "1"));
  EXPECT_EQ(RUNTIME_ERR_NO_RECORD, request.AddValue("level", "1"));
  for (int i = 0; i < 3; ++i) {
    ASSERT_EQ(0, request.AddRecord());
    ASSERT_EQ(0, request.AddRecordKey("id", std::to_string(i)));
    ASSERT_EQ(0, request.AddRecordKey("region", "eu"));
    EXPECT_EQ(RUNTIME_ERR_DUPLICATE_FIELD, request.AddRecordKey("id", "x"));
    ASSERT_EQ(0, request.AddValue("level", std::to_string(10 * i)));
    ASSERT_EQ(0, request.AddValue("name", "n"));
    EXPECT_EQ(RUNTIME_ERR_DUPLICATE_FIELD, request.AddValue("level", "x"));
    EXPECT_EQ(OSTRAND_CODEC_ERR_RECORD_ORDER, request.AddRecordKey("late", "x"));
  }
  EXPECT_EQ(3U, request.GetRecordCount());

  const auto pkg = Unpacked(Packed(request));
  RecordReader reader(pkg->stBody.stRecords);
  RecordView record;
  for (int i = 0; i < 3; ++i) {
    ASSERT_TRUE(reader.Next(record));
    EXPECT_EQ(i, record.mark.index);
    EXPECT_EQ(-1, record.mark.version);
    FieldView field;
    ASSERT_TRUE(record.FindKey("id", field));
    EXPECT_EQ(std::to_string(i), field.value);
    ASSERT_TRUE(record.FindValue("level", field));
    EXPECT_EQ(std::to_string(10 * i), field.value);
  }
  EXPECT_FALSE(reader.Next(record));
}

TEST(ClientRequest, ListElementsAreMarkedByTheirIndex) {
  ClientRequest request;
  ASSERT_EQ(0, request.Init(OSTRAND_API_LIST_GET_REQ, kZone, "mail"));
  request.SetKey("id", "42");
  RecordMark mark;
  mark.index = 17;
  mark.version = 3;
  ASSERT_EQ(0, request.AddRecord(mark));
  ASSERT_EQ(0, request.AddRecord());
  RecordReader reader(*request.GetRecords());
  RecordView record;
  ASSERT_TRUE(reader.Next(record));
  EXPECT_EQ(17, record.mark.index);
  EXPECT_EQ(3, record.mark.version);
  ASSERT_TRUE(reader.Next(record));
  EXPECT_EQ(-1, record.mark.index);
}

TEST(ClientRequest, ClearedRecordsMakeRoomForTheNext) {
  ClientRequest request;
  ASSERT_EQ(0, request.Init(OSTRAND_API_INSERT_REQ, kZone, "player"));
  request.SetKey("id", "1");
  request.AddValue("level", "1");
  request.ClearRecords();
  EXPECT_EQ(0U, request.GetRecordCount());
  EXPECT_EQ(1U, request.GetKeyCount()) << "the key stays";
  EXPECT_EQ(0, request.AddValue("level", "2"));
  FieldView field;
  ASSERT_TRUE(request.GetValue("level", field));
  EXPECT_EQ("2", field.value);
}

TEST(ClientRequest, TTLEntriesHaveKeysAndTimes) {
  ClientRequest request;
  ASSERT_EQ(0, request.Init(OSTRAND_API_SET_TTL_REQ, kZone, "player"));
  EXPECT_EQ(RUNTIME_ERR_NO_RECORD, request.AddTTLKey("id", "1"));
  ASSERT_EQ(0, request.AddTTL(60000));
  ASSERT_EQ(0, request.AddTTLKey("id", "1"));
  ASSERT_EQ(0, request.AddTTLKey("region", "eu"));
  ASSERT_EQ(0, request.AddTTL(-1));
  ASSERT_EQ(0, request.AddTTLKey("id", "2"));
  EXPECT_EQ(2U, request.GetTTLCount());
  const auto pkg = Unpacked(Packed(request));
  const OStrandSetTTLReq& body = pkg->stBody.stSetTTLReq;
  ASSERT_EQ(2U, body.dwRecordNum);
  EXPECT_EQ(60000, body.allTTLMs[0]);
  EXPECT_EQ(-1, body.allTTLMs[1]);
  EXPECT_EQ(2U, body.astKeyInfo[0].dwFieldNum);
  EXPECT_EQ(-1, body.astKeyInfo[0].iVersion);
  EXPECT_EQ('2', body.astKeyInfo[1].astFields[0].szFieldBuff[0]);
}

TEST(ClientRequest, GetTTLEntriesHaveKeysAlone) {
  ClientRequest request;
  ASSERT_EQ(0, request.Init(OSTRAND_API_GET_TTL_REQ, kZone, "player"));
  for (int i = 0; i < 1024; ++i) {
    ASSERT_EQ(0, request.AddTTL(0));
    ASSERT_EQ(0, request.AddTTLKey("id", std::to_string(i)));
  }
  EXPECT_EQ(OSTRAND_CODEC_ERR_RECORD_NUM, request.AddTTL(0));
  EXPECT_EQ(1024U, request.GetTTLCount());
  EXPECT_EQ(1024U, Unpacked(Packed(request))->stBody.stGetTTLReq.dwRecordNum);
  request.ClearRecords();
  EXPECT_EQ(0U, request.GetTTLCount());
  EXPECT_EQ(RUNTIME_ERR_NO_RECORD, request.AddTTLKey("id", "1"));

  ASSERT_EQ(0, request.Init(OSTRAND_API_GET_REQ, kZone, "player"));
  EXPECT_EQ(RUNTIME_ERR_BODY_KIND, request.AddTTL(0));
  EXPECT_EQ(0U, request.GetTTLCount());
}

TEST(ClientRequest, TheKeyOfASingleTTLEntryDoesNotStayInTheHead) {
  ClientRequest request;
  ASSERT_EQ(0, request.Init(OSTRAND_API_SET_TTL_REQ, kZone, "player"));
  request.AddTTL(1);
  request.AddTTLKey("id", "1");
  // What the routing does.
  CTRecordDecodeHelper::CopyKeySet(request.GetPkg()->stHead.stKeyInfo,
                                   request.GetPkg()->stBody.stSetTTLReq.astKeyInfo[0]);
  EXPECT_EQ(1U, request.GetKeyCount());
  request.ClearRecords();
  request.AddTTL(2);
  EXPECT_EQ(0U, request.GetKeyCount());
}

// One sending as the router does it, up to the packing.
std::string SendWithContext(ClientRequest& request, int32_t id) {
  size_t len = 0;
  char* const user_buff = request.GetUserBuff(&len);
  WriteRoutingContext(user_buff + len, id, 0);
  EXPECT_EQ(0, request.SetPkgUserBuff(user_buff, len + kRoutingContextLen));
  return UserBuffOf(*Unpacked(Packed(request)));
}

// The same when the user's bytes stay behind.
std::string SendContextAlone(ClientRequest& request, int32_t id) {
  size_t len = 0;
  char* const user_buff = request.GetUserBuff(&len);
  WriteRoutingContext(user_buff, id, 0);
  EXPECT_EQ(0, request.SetPkgUserBuff(user_buff, kRoutingContextLen));
  return UserBuffOf(*Unpacked(Packed(request)));
}

std::string SendWithoutContext(ClientRequest& request) {
  request.GetUserBuff(nullptr);
  return UserBuffOf(*Unpacked(Packed(request)));
}

std::string OwnUserBuff(ClientRequest& request) {
  size_t len = 0;
  const char* const user_buff = request.GetUserBuff(&len);
  return {user_buff, len};
}

int32_t IdIn(const std::string& user_buff) {
  return ReadRoutingContext(user_buff.data() + user_buff.size() - kRoutingContextLen).id;
}

TEST(ClientRequest, SentTwiceItCarriesTheSameUserBytesWithAContextOfItsOwn) {
  for (const size_t user_len : std::initializer_list<size_t>{0, 1, 13, 14, 15, 1009}) {
    ClientRequest request;
    ASSERT_EQ(0, request.Init(OSTRAND_API_GET_REQ, kZone, "player"));
    const std::string bytes(user_len, 'u');
    ASSERT_EQ(0, request.SetUserBuff(bytes.data(), bytes.size()));
    for (int32_t id = 1; id <= 3; ++id) {
      const std::string sent = SendWithContext(request, id);
      ASSERT_EQ(user_len + 14, sent.size());
      EXPECT_EQ(bytes, sent.substr(0, user_len));
      EXPECT_EQ(id, IdIn(sent));
      EXPECT_EQ(bytes, OwnUserBuff(request)) << "its own length stays";
    }
  }
}

TEST(ClientRequest, AnOldContextDoesNotTravelWithARequestThatGetsNone) {
  ClientRequest request;
  ASSERT_EQ(0, request.Init(OSTRAND_API_GET_REQ, kZone, "player"));
  ASSERT_EQ(0, request.SetUserBuff("user", 4));
  SendWithContext(request, 1);
  EXPECT_EQ("user", SendWithoutContext(request));
}

TEST(ClientRequest, ItsBytesAreWholeAgainAfterTheContextWasWrittenOverThem) {
  for (const size_t user_len : std::initializer_list<size_t>{0, 5, 14, 1024}) {
    ClientRequest request;
    ASSERT_EQ(0, request.Init(OSTRAND_API_GET_REQ, kZone, "player"));
    const std::string bytes(user_len, 'u');
    ASSERT_EQ(0, request.SetUserBuff(bytes.data(), bytes.size()));
    EXPECT_EQ(14U, SendContextAlone(request, 1).size());
    EXPECT_EQ(14U, request.GetPkg()->stHead.dwUserBuffLen) << "as it was sent";
    EXPECT_EQ(bytes, OwnUserBuff(request));
    EXPECT_EQ(14U, SendContextAlone(request, 2).size());
    EXPECT_EQ(bytes, SendWithoutContext(request));
  }
}

TEST(ClientRequest, TakesUpTo1024UserBytesAndHasRoomFor14Behind) {
  ClientRequest request;
  ASSERT_EQ(0, request.Init(OSTRAND_API_GET_REQ, kZone, "player"));
  const std::string bytes(1025, 'u');
  EXPECT_EQ(OSTRAND_CODEC_ERR_USER_BUFF_LEN, request.SetUserBuff(bytes.data(), 1025));
  EXPECT_EQ(ROUTER_ERR_ARGUMENT, request.SetUserBuff(nullptr, 1));
  EXPECT_EQ("", OwnUserBuff(request));
  ASSERT_EQ(0, request.SetUserBuff(bytes.data(), 1024));
  size_t len = 0;
  char* const user_buff = request.GetUserBuff(&len);
  std::memset(user_buff + len, 'c', 14);  // the address sanitizer watches
  EXPECT_EQ(OSTRAND_CODEC_ERR_USER_BUFF_LEN, request.SetPkgUserBuff(user_buff, 1025));
  EXPECT_EQ(1024U, SendWithoutContext(request).size());
  EXPECT_EQ(0, request.SetUserBuff(nullptr, 0));
  EXPECT_EQ("", SendWithoutContext(request));
}

// A sampled sending: the record is set first, then the user buffer is asked for.
TEST(ClientRequest, APerformanceRecordBelongsToOneSending) {
  ClientRequest request;
  ASSERT_EQ(0, request.Init(OSTRAND_API_GET_REQ, kZone, "player"));
  const auto perf_len = [&request] { return request.GetPkg()->stHead.dwPerfTestLen; };
  ASSERT_EQ(0, request.SetPerfTest("stamps", 6));
  SendWithContext(request, 1);
  EXPECT_EQ(6U, perf_len());
  SendWithContext(request, 2);
  EXPECT_EQ(0U, perf_len()) << "this one is not sampled";
  ASSERT_EQ(0, request.SetPerfTest("again", 5));
  SendWithContext(request, 3);
  EXPECT_EQ(5U, perf_len());
  ASSERT_EQ(0, request.SetPerfTest("and again", 9));
  SendWithContext(request, 4);
  EXPECT_EQ(9U, perf_len());
  ASSERT_EQ(0, request.SetPerfTest(nullptr, 0));
  SendWithContext(request, 5);
  EXPECT_EQ(0U, perf_len());
}

TEST(ClientRequest, RefusesAPerformanceRecordThatDoesNotFit) {
  ClientRequest request;
  ASSERT_EQ(0, request.Init(OSTRAND_API_GET_REQ, kZone, "player"));
  const std::string bytes(257, 'p');
  EXPECT_EQ(0, request.SetPerfTest(bytes.data(), 256));
  EXPECT_EQ(OSTRAND_CODEC_ERR_PERF_TEST_LEN, request.SetPerfTest(bytes.data(), 257));
  EXPECT_EQ(ROUTER_ERR_ARGUMENT, request.SetPerfTest(nullptr, 1));
  EXPECT_EQ(256U, request.GetPkg()->stHead.dwPerfTestLen);
}

TEST(ClientRequest, PrintsItselfCutToTheBuffer) {
  ClientRequest request;
  ASSERT_EQ(0, request.Init(OSTRAND_API_GET_REQ, kZone, "player"));
  std::string text(65536, 'x');
  EXPECT_EQ(0, request.Print(text.data(), text.size()));
  EXPECT_NE(std::string::npos, text.find("player"));
  EXPECT_LT(std::strlen(text.c_str()), text.size());
  EXPECT_EQ(0, request.Print(text.data(), 10));
  EXPECT_EQ(9U, std::strlen(text.c_str()));
  EXPECT_GT(0, request.Print(text.data(), 0));
}

TEST(ClientRequest, PackingAnswersTheCodecsCode) {
  ClientRequest request;
  ASSERT_EQ(0, request.Init(OSTRAND_API_GET_REQ, kZone, "player"));
  char buffer[10];
  size_t len = sizeof(buffer);
  EXPECT_EQ(OSTRAND_CODEC_ERR_BUFFER_FULL, request.Pack(buffer, len));
}

TEST(ClientRequest, SaysSoWithoutMemory) {
  OstrandFakes::AllocationFaults faults;
  faults.FailNothrow(1);
  ClientRequest request;
  ASSERT_TRUE(faults.struck());
  EXPECT_EQ(ROUTER_ERR_ALLOCATION, request.Init(OSTRAND_API_GET_REQ, kZone, "player"));
  EXPECT_EQ(ROUTER_ERR_ALLOCATION, request.SetKey("id", "1"));
  EXPECT_EQ(ROUTER_ERR_ALLOCATION, request.SetUserBuff("user", 4));
  EXPECT_EQ(ROUTER_ERR_ALLOCATION, request.SetPerfTest("perf", 4));
  EXPECT_EQ(ROUTER_ERR_ALLOCATION, request.AddRecord());
  EXPECT_EQ(ROUTER_ERR_ALLOCATION, request.AddTTL(1));
  EXPECT_GT(0, request.AddRecordKey("id", "1"));
  EXPECT_GT(0, request.AddValue("level", "1"));
  EXPECT_GT(0, request.AddTTLKey("id", "1"));
  request.SetAppId(1);
  request.SetAsynID(1);
  request.SetSequence(1);
  request.SetMetaVersion(1);
  request.SetRecordVersion(1);
  request.ClearRecords();
  char buffer[100];
  size_t len = sizeof(buffer);
  EXPECT_EQ(ROUTER_ERR_ALLOCATION, request.Pack(buffer, len));
  EXPECT_EQ(ROUTER_ERR_ALLOCATION, request.Print(buffer, sizeof(buffer)));
  EXPECT_EQ(nullptr, request.GetTableName(nullptr));
  EXPECT_EQ(0U, request.GetCmd());
  EXPECT_EQ(0U, request.GetSubCmd());
  EXPECT_EQ(0, request.GetZoneId());
  EXPECT_EQ(0, request.GetSequence());
  EXPECT_EQ(0U, request.GetAsynID());
  EXPECT_EQ(0U, request.GetKeyCount());
  EXPECT_EQ(0U, request.GetRecordCount());
  EXPECT_EQ(0U, request.GetTTLCount());
  EXPECT_EQ(nullptr, request.GetPkg());
  EXPECT_NE(nullptr, request.GetUserBuff(nullptr)) << "never null";
}

TEST(ClientRequest, BuildingAndPackingAllocatesNothing) {
  ClientRequest request;
  char buffer[4096];
  OstrandFakes::AllocationFaults faults;
  for (int i = 0; i < 10; ++i) {
    request.Init(OSTRAND_API_INSERT_REQ, kZone, "player");
    request.SetKey("id", "42");
    request.AddValue("level", "1");
    request.SetUserBuff("user", 4);
    request.GetUserBuff(nullptr);
    size_t len = sizeof(buffer);
    request.Pack(buffer, len);
  }
  EXPECT_EQ(0, faults.count());
}

// Sanitizers keep books of every byte of address space.
#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define OSTRAND_SANITIZED
#endif
#elif defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define OSTRAND_SANITIZED
#endif

#ifndef OSTRAND_SANITIZED

// Resident memory of the process in bytes.
int64_t Resident() {
  std::ifstream statm("/proc/self/statm");
  int64_t pages_of_address_space = 0;
  int64_t pages = 0;
  statm >> pages_of_address_space >> pages;
  return pages * 4096;
}

TEST(ClientRequest, ASmallRequestTakesLittleMemory) {
  constexpr int kRequests = 200;
  std::vector<std::unique_ptr<ClientRequest>> requests;
  const int64_t before = Resident();
  for (int i = 0; i < kRequests; ++i) {
    requests.push_back(std::make_unique<ClientRequest>());
    ASSERT_EQ(0, requests.back()->Init(OSTRAND_API_INSERT_REQ, kZone, "player"));
    requests.back()->SetKey("id", "42");
    requests.back()->AddValue("level", "1");
  }
  EXPECT_LT((Resident() - before) / kRequests, 64 * 1024);
}

#endif

}  // namespace
}  // namespace OstrandService
