// Requests are built field by field; what is built is compared with what the codec reads from the
// frame that leaves, and, for a few, with golden bytes.
#include "client/client_request.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "client/router_request.h"
#include "client/runtime_errors.h"
#include "fakes/allocation_faults.h"
#include "protocol/codec.h"
#include "service_api/ostrand_router.h"

namespace OstrandService {
namespace {

using namespace ostrand_protocol_cs;  // NOLINT: what a frame is made of
using OstrandFakes::AllocationFaults;

std::string FrameOf(const ClientRequest& request) {
  RouterRequest routed;
  EXPECT_EQ(0, routed.Load(request.Head(), request.Bytes()));
  std::string frame(OSTRAND_MAX_REQ_FRAME_LEN, '\0');
  size_t len = frame.size();
  EXPECT_EQ(0, routed.Pack(frame.data(), len));
  frame.resize(len);
  return frame;
}

// What the other side reads.
std::unique_ptr<OStrandPkg> ReadBack(const ClientRequest& request) {
  EXPECT_EQ(0, request.Fault()) << request.FaultText();
  const std::string frame = FrameOf(request);
  auto pkg = NewOStrandPkg();
  EXPECT_EQ(0, UnpackWholeCsPkgMaybeDecompress(*pkg, nullptr, 0, frame.data(), frame.size(),
                                               nullptr, nullptr, 0));
  return pkg;
}

std::string KeysOf(const OStrandKeySet& keys) {
  std::string text;
  for (uint32_t i = 0; i < keys.dwFieldNum; ++i) {
    const OStrandKeyField& field = keys.astFields[i];
    text += std::string(field.szFieldName) + "=" + std::string(field.szFieldBuff, field.dwFieldLen);
    text += ";";
  }
  return text;
}

std::string FieldsOf(FieldReader fields) {
  std::string text;
  for (FieldView field; fields.Next(field);) {
    text += std::string(field.name) + "=" + std::string(field.value) + ";";
  }
  return text;
}

// "index/version keys|values" of each record.
std::vector<std::string> RecordsIn(const OStrandPkg& pkg) {
  std::vector<std::string> all;
  RecordReader reader(pkg.stBody.stRecords);
  for (RecordView record; reader.Next(record);) {
    all.push_back(std::to_string(record.mark.index) + "/" + std::to_string(record.mark.version) +
                  " " + FieldsOf(record.keys) + "|" + FieldsOf(record.values));
  }
  return all;
}

using Texts = std::vector<std::string>;

TEST(ClientRequest, OneRecordHasItsKeyInTheHead) {
  const auto pkg = ReadBack(Insert("player")
                                .Zone(3)
                                .Key("id", "42")
                                .Set("name", "Ada")
                                .Set("empty", "")
                                .Key("region", std::string("eu"))
                                .SetSequence(-110)
                                .SetUserBuff("user")
                                .Expect(13));
  const OStrandPkgHead& head = pkg->stHead;
  EXPECT_EQ(1U, head.dwCmd);
  EXPECT_EQ(3, head.stRouterInfo.iZoneID);
  EXPECT_STREQ("player", head.stRouterInfo.szTableName);
  EXPECT_EQ(-110, head.iSeq);
  EXPECT_EQ("user", std::string(head.szUserBuff, head.dwUserBuffLen));
  EXPECT_EQ(13, head.stKeyInfo.iVersion);
  EXPECT_EQ("id=42;region=eu;", KeysOf(head.stKeyInfo));
  EXPECT_EQ(Texts{"-1/-1 |name=Ada;empty=;"}, RecordsIn(*pkg));
}

// The frame of the protocol page's example, but for what the client adds when it sends.
TEST(ClientRequest, AGetHasTheBytesThatTheProtocolPageShows) {
  ClientRequest request = Get("t").Zone(3).Key("id", "A").SetSequence(1).SetUserBuff(
      std::string_view("\xDE\xAD\xBE\xEF", 4));
  request.SetAsynID(42);
  RouterRequest routed;
  ASSERT_EQ(0, routed.Load(request.Head(), request.Bytes()));
  routed.SetAppId(7);
  routed.SetMetaVersion(9);
  char frame[256];
  size_t len = sizeof(frame);
  ASSERT_EQ(0, routed.Pack(frame, len));
  const char kGolden[] =
      "\x4F\x54\x00\x7F\x00\x00\x00\x64\x00\x00\x00\x08\x00\x00\x00\x00\x00\x00\x00\x2A"
      "\x00\x00\x00\x01\x00\x00\x00\x07\x00\x00\x00\x00\x00\x00\x00\x07\x00\x00\x00\x03"
      "\x00\x00\x00\x00\x00\x00\x00\x02\x74\x00\x00\x00\x00\x04\xDE\xAD\xBE\xEF"
      "\xFF\xFF\xFF\xFF\x00\x00\x00\x01\x00\x00\x00\x03\x69\x64\x00\x00\x00\x00\x01\x41"
      "\x00\x00\x00\x09\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00"
      "\x00\x00\x00\x00\x00\x00\x00\x00";
  EXPECT_EQ(std::string(kGolden, sizeof(kGolden) - 1), std::string(frame, len));
}

TEST(ClientRequest, EachOperationIsItsCommand) {
  const std::pair<ClientRequest, uint32_t> operations[] = {
      {Get("t"), 7},           {Insert("t"), 1},         {Replace("t"), 3},
      {Update("t"), 5},        {Delete("t"), 9},         {BatchGet("t"), 23},
      {BatchInsert("t"), 145}, {BatchReplace("t"), 147}, {BatchUpdate("t"), 149},
      {BatchDelete("t"), 151}, {GetByPartKey("t"), 25},  {DeleteByPartKey("t"), 65},
      {ListGetAll("t"), 11},   {ListGet("t"), 15},       {ListInsert("t"), 17},
      {ListUpdate("t"), 21},   {ListDelete("t"), 13},    {ListDeleteAll("t"), 19},
      {SetTTL("t"), 89},       {GetTTL("t"), 91},        {GetMetadata("t"), 27},
  };
  for (const auto& [request, cmd] : operations) {
    EXPECT_EQ(cmd, request.GetCmd());
    EXPECT_EQ(cmd, ReadBack(request)->stHead.dwCmd);
    EXPECT_EQ(0U, request.GetRecordCount());
    EXPECT_EQ(kZoneNotGiven, request.GetZoneId());
  }
}

TEST(ClientRequest, AReadNamesWhatItWants) {
  const auto pkg = ReadBack(Get("t").Key("id", "1").Field("name").Field("city"));
  EXPECT_EQ(Texts{"-1/-1 |name=;city=;"}, RecordsIn(*pkg));
  EXPECT_EQ(Texts{}, RecordsIn(*ReadBack(Get("t").Key("id", "1"))));
  EXPECT_EQ(Texts{"-1/-1 |name=;"},
            RecordsIn(*ReadBack(GetByPartKey("t").Key("id", "1").Field("name"))));
}

TEST(ClientRequest, ABatchHasRecordsWithKeysAndPlaces) {
  const auto pkg = ReadBack(BatchUpdate("t")
                                .Record()
                                .Key("id", "1")
                                .Set("level", "7")
                                .Key("region", "eu")  // after a value, before it on the wire
                                .Record()
                                .Key("id", "2")
                                .Expect(5)
                                .Set("level", "8"));
  EXPECT_EQ("", KeysOf(pkg->stHead.stKeyInfo));
  EXPECT_EQ((Texts{"0/-1 id=1;region=eu;|level=7;", "1/5 id=2;|level=8;"}), RecordsIn(*pkg));
}

TEST(ClientRequest, ListElementsHaveTheirIndex) {
  const auto pkg = ReadBack(
      ListInsert("mail").Key("id", "1").Element().Set("text", "a").Element(4).Set("text", "b"));
  EXPECT_EQ("id=1;", KeysOf(pkg->stHead.stKeyInfo));
  EXPECT_EQ((Texts{"-1/-1 |text=a;", "4/-1 |text=b;"}), RecordsIn(*pkg));
  EXPECT_EQ((Texts{"2/-1 |", "3/-1 |"}),
            RecordsIn(*ReadBack(ListDelete("mail").Key("id", "1").Element(2).Element(3))));
}

TEST(ClientRequest, TimesToLiveHaveTheirKeys) {
  const auto set = ReadBack(SetTTL("t")
                                .Record(60000)
                                .Key("id", "1")
                                .Key("region", "eu")
                                .Expect(3)
                                .Record(-1)
                                .Key("id", "2"));
  const OStrandSetTTLReq& body = set->stBody.stSetTTLReq;
  ASSERT_EQ(2U, body.dwRecordNum);
  EXPECT_EQ(60000, body.allTTLMs[0]);
  EXPECT_EQ(-1, body.allTTLMs[1]);
  EXPECT_EQ(3, body.astKeyInfo[0].iVersion);
  EXPECT_EQ("id=1;region=eu;", KeysOf(body.astKeyInfo[0]));
  EXPECT_EQ("id=2;", KeysOf(body.astKeyInfo[1]));
  const auto get = ReadBack(GetTTL("t").Record().Key("id", "1").Record().Key("id", "2"));
  ASSERT_EQ(2U, get->stBody.stGetTTLReq.dwRecordNum);
  EXPECT_EQ("id=2;", KeysOf(get->stBody.stGetTTLReq.astKeyInfo[1]));
}

TEST(ClientRequest, UserBytesMayBeSetAnywhereAndAgain) {
  ClientRequest request;
  request.Insert("t").Key("id", "1").Set("v", "x").SetUserBuff("first, and long").SetUserBuff("u");
  const auto pkg = ReadBack(request);
  EXPECT_EQ("u", std::string(pkg->stHead.szUserBuff, pkg->stHead.dwUserBuffLen));
  EXPECT_EQ("id=1;", KeysOf(pkg->stHead.stKeyInfo));
  EXPECT_EQ(Texts{"-1/-1 |v=x;"}, RecordsIn(*pkg));
  EXPECT_EQ("u", request.GetUserBuff());
}

TEST(ClientRequest, AnIntegerHas64BitsUnlessItsWidthIsNamed) {
  ClientRequest request;
  request.Insert("t")
      .Key("int", 1)
      .Key("short", static_cast<short>(-1))
      .Key("unsigned", 3U)
      .Key<int32_t>("named", 42)
      .Set("long", 4L)
      .Set("long long", -5LL)
      .Set("unsigned long long", 6ULL)
      .Set("unsigned char", static_cast<unsigned char>(200))
      .Set<uint8_t>("byte", 255)
      .Set("float", 0.5F)
      .Set("double", -2.0);
  ASSERT_EQ(0, request.Fault()) << request.FaultText();
  FieldView field;
  const auto key = [&](const char* name) {
    EXPECT_TRUE(request.GetKey(name, field)) << name;
    return field.value;
  };
  const auto value = [&](const char* name) {
    EXPECT_TRUE(request.GetValue(name, field)) << name;
    return field.value;
  };
  EXPECT_EQ(std::string_view("\0\0\0\0\0\0\0\1", 8), key("int"));
  EXPECT_EQ(std::string_view("\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF", 8), key("short"));
  EXPECT_EQ(std::string_view("\0\0\0\0\0\0\0\3", 8), key("unsigned"));
  EXPECT_EQ(std::string_view("\0\0\0\x2A", 4), key("named"));
  EXPECT_EQ(std::string_view("\0\0\0\0\0\0\0\4", 8), value("long"));
  EXPECT_EQ(std::string_view("\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFB", 8), value("long long"));
  EXPECT_EQ(std::string_view("\0\0\0\0\0\0\0\6", 8), value("unsigned long long"));
  EXPECT_EQ(std::string_view("\0\0\0\0\0\0\0\xC8", 8), value("unsigned char"));
  EXPECT_EQ(std::string_view("\xFF", 1), value("byte"));
  EXPECT_EQ(std::string_view("\x3F\0\0\0", 4), value("float"));
  EXPECT_EQ(std::string_view("\xC0\0\0\0\0\0\0\0", 8), value("double"));
}

struct Faulty {
  const char* what;
  ClientRequest request;
  int code;
  const char* field;
};

TEST(ClientRequest, KeepsItsFirstFaultAndSaysWhichField) {
  const std::string long_name(32, 'n');
  const std::string large(1048577, 'v');
  ClientRequest many_keys = Get("t");
  ClientRequest many_values = Insert("t").Key("id", 1);
  ClientRequest many_entries = GetTTL("t");
  ClientRequest many_bytes = BatchInsert("t");
  for (int i = 0; i < 9; ++i) {
    many_keys.Key("k" + std::to_string(i), i);
    many_bytes.Record().Set("v", std::string(1048576, 'v'));
  }
  for (int i = 0; i < 129; ++i) {
    many_values.Set("v" + std::to_string(i), i);
  }
  for (int i = 0; i < 1025; ++i) {
    many_entries.Record().Key("id", i);
  }
  const Faulty faulty[] = {
      {"no command", ClientRequest().Begin(9999, "t"), OSTRAND_CODEC_ERR_COMMAND, ""},
      {"long table", Get(long_name), OSTRAND_CODEC_ERR_TABLE_NAME, "nnn"},
      {"no name", Get("t").Key("", 1), OSTRAND_CODEC_ERR_FIELD_NAME, ""},
      {"long name", Insert("t").Set(long_name, 1), OSTRAND_CODEC_ERR_FIELD_NAME, "nnn"},
      {"NUL", Get("t").Key(std::string("a\0b", 3), 1), OSTRAND_CODEC_ERR_FIELD_NAME, "a"},
      {"long key", Get("t").Key("id", std::string(1025, 'k')), OSTRAND_CODEC_ERR_KEY_FIELD_LEN,
       "id"},
      {"keys", many_keys, OSTRAND_CODEC_ERR_KEY_FIELD_NUM, "k8"},
      {"values", many_values, OSTRAND_CODEC_ERR_VALUE_FIELD_NUM, "v128"},
      {"entries", many_entries, OSTRAND_CODEC_ERR_RECORD_NUM, ""},
      {"large", Insert("t").Set("v", large), OSTRAND_CODEC_ERR_VALUE_LEN, "v"},
      {"all", many_bytes, OSTRAND_CODEC_ERR_RECORDS_LEN, "v"},
      {"same key", Get("t").Key("id", 1).Key("id", 2), RUNTIME_ERR_DUPLICATE_FIELD, "id"},
      {"same value", Insert("t").Set("v", 1).Set("v", 2), RUNTIME_ERR_DUPLICATE_FIELD, "v"},
      {"record key", BatchGet("t").Record().Key("id", 1).Key("id", 1), RUNTIME_ERR_DUPLICATE_FIELD,
       "id"},
      {"value of a read", Get("t").Set("v", 1), RUNTIME_ERR_BODY_KIND, "v"},
      {"value of a delete", Delete("t").Set("v", 1), RUNTIME_ERR_BODY_KIND, "v"},
      {"wanted of a write", Insert("t").Field("v"), RUNTIME_ERR_BODY_KIND, "v"},
      {"key of metadata", GetMetadata("t").Key("id", 1), RUNTIME_ERR_BODY_KIND, "id"},
      {"record of one", Insert("t").Record(), RUNTIME_ERR_BODY_KIND, ""},
      {"element of a batch", BatchGet("t").Element(1), RUNTIME_ERR_BODY_KIND, ""},
      {"time to live of a batch", BatchGet("t").Record(1), RUNTIME_ERR_BODY_KIND, ""},
      {"record without time", SetTTL("t").Record(), RUNTIME_ERR_BODY_KIND, ""},
      {"version of metadata", GetMetadata("t").Expect(1), RUNTIME_ERR_BODY_KIND, ""},
      {"key before its record", BatchGet("t").Key("id", 1), RUNTIME_ERR_NO_RECORD, "id"},
      {"value before its record", BatchInsert("t").Set("v", 1), RUNTIME_ERR_NO_RECORD, "v"},
      {"value before its element", ListInsert("t").Set("v", 1), RUNTIME_ERR_NO_RECORD, "v"},
      {"version before its record", BatchGet("t").Expect(1), RUNTIME_ERR_NO_RECORD, ""},
      {"time's key before it", SetTTL("t").Key("id", 1), RUNTIME_ERR_NO_RECORD, "id"},
      {"out of range", Get("t").Key<int8_t>("id", 128), RUNTIME_ERR_VALUE_RANGE, "id"},
      {"negative", Insert("t").Set<uint64_t>("v", -1), RUNTIME_ERR_VALUE_RANGE, "v"},
      {"user bytes", Get("t").SetUserBuff(std::string(1025, 'u')), OSTRAND_CODEC_ERR_USER_BUFF_LEN,
       ""},
      {"the first counts", Get("t").Key("", 1).Set("v", 1), OSTRAND_CODEC_ERR_FIELD_NAME, ""},
      {"nothing begun", ClientRequest().Key("id", 1), RUNTIME_ERR_BODY_KIND, "id"},
  };
  for (const Faulty& each : faulty) {
    EXPECT_EQ(each.code, each.request.Fault()) << each.what;
    EXPECT_NE("", each.request.FaultText()) << each.what;
    EXPECT_NE(std::string::npos, each.request.FaultText().find(each.field))
        << each.what << ": " << each.request.FaultText();
  }
  ClientRequest request = Get("t").Key("", 1);
  request.Get("t").Key("id", 1);
  EXPECT_EQ(0, request.Fault()) << "begun anew";
  EXPECT_EQ("", request.FaultText());
}

TEST(ClientRequest, TakesAsMuchAsThereMayBe) {
  ClientRequest request = Insert("t").Key(std::string(31, 'n'), std::string(1024, 'k'));
  request.Set("v", std::string(1048576, 'v')).SetUserBuff(std::string(1024, 'u'));
  const auto pkg = ReadBack(request);
  EXPECT_EQ(1024U, pkg->stHead.dwUserBuffLen);
  EXPECT_EQ(1024U, pkg->stHead.stKeyInfo.astFields[0].dwFieldLen);
}

TEST(ClientRequest, BegunAnewNothingIsLeftOfTheOldOne) {
  ClientRequest request = Insert("player").Zone(3).Key("id", 1).Set("v", 2).SetUserBuff("u");
  request.SetTimeout(5).SetRepeat(2, true).SetSequence(6).Expect(7);
  EXPECT_EQ(2, request.Head().repeats);
  EXPECT_TRUE(request.Head().repeat_writes);
  request.SetAsynID(8);
  request.Get("guild");
  EXPECT_EQ(FrameOf(Get("guild")), FrameOf(request));
  EXPECT_EQ(0, request.GetTimeout());
  EXPECT_EQ(0, request.Head().repeats);
  EXPECT_EQ(kZoneNotGiven, request.GetZoneId());
  EXPECT_STREQ("guild", request.GetTableName());
}

TEST(ClientRequest, IsCopiedAndMovedWhole) {
  ClientRequest request = BatchInsert("t").Record().Key("id", 1).Set("v", 2);
  const std::string frame = FrameOf(request);
  ClientRequest copy = request;
  copy.Record().Key("id", 2);
  EXPECT_EQ(frame, FrameOf(request));
  EXPECT_EQ(2U, copy.GetRecordCount());
  ClientRequest moved = std::move(request);
  EXPECT_EQ(frame, FrameOf(moved));
  EXPECT_EQ(0U, request.GetCmd()) << "as a new one";  // NOLINT: what a moved-from one is
  EXPECT_EQ("", request.GetUserBuff());
  moved.Set("w", 3);
  EXPECT_EQ(0, moved.Fault()) << "its record goes on";
  request.Get("t").Key("id", 9);
  EXPECT_EQ(1U, request.GetKeyCount());
  request = moved;
  EXPECT_EQ(FrameOf(moved), FrameOf(request));
  request = std::move(copy);
  EXPECT_EQ(2U, request.GetRecordCount());
}

void BuildSome(ClientRequest& request) {
  request.Insert("player").Key("id", 42).Set("name", "Ada").SetUserBuff("user");
  request.Get("player").Key("id", 42).Field("name");
  request.BatchGet("player").Record().Key("id", 1).Record().Key("id", 2);
  request.SetTTL("player").Record(5).Key("id", 42);
}

TEST(ClientRequest, AllocatesNothingOnceWarm) {
  ClientRequest request;
  RouterRequest routed;
  char buffer[4096];
  BuildSome(request);
  AllocationFaults faults;
  for (int i = 0; i < 10; ++i) {
    BuildSome(request);
    routed.Load(request.Head(), request.Bytes());
    size_t len = sizeof(buffer);
    routed.Pack(buffer, len);
  }
  EXPECT_EQ(0, faults.count());
  EXPECT_EQ(0, request.Fault());
}

TEST(ClientRequest, SaysSoWithoutMemory) {
  ClientRequest request;
  AllocationFaults faults;
  faults.FailNothrow(1);
  request.Get("t").Key("id", 1);
  EXPECT_TRUE(faults.struck());
  EXPECT_EQ(ROUTER_ERR_ALLOCATION, request.Fault());
  EXPECT_EQ(0U, request.GetCmd());
  request.Get("t").Key("id", 1);
  EXPECT_EQ(0, request.Fault()) << "there is memory again";
  const std::string before = FrameOf(request);
  faults.FailNothrow(1);
  request.Key("more", std::string(1000, 'k'));
  EXPECT_EQ(ROUTER_ERR_ALLOCATION, request.Fault());
  EXPECT_EQ(before, FrameOf(request)) << "nothing half done";
  faults.FailNothrow(1);
  const ClientRequest copy = request;
  EXPECT_EQ(ROUTER_ERR_ALLOCATION, copy.Fault());
  EXPECT_EQ(0U, copy.GetCmd());
}

TEST(ClientRequest, IsSmall) {
  EXPECT_LT(sizeof(ClientRequest), 400U);
  EXPECT_LT(sizeof(RequestHead), 128U);
}

}  // namespace
}  // namespace OstrandService
