#include "client/client_response.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <memory>
#include <string>

#include "client/router_response.h"
#include "fakes/allocation_faults.h"
#include "protocol/codec.h"
#include "service_api/ostrand_router.h"

namespace OstrandService {
namespace {

using namespace ostrand_protocol_cs;  // NOLINT: the whole file is about it

// The frame of an answer, made by `fill`.
std::string Frame(uint32_t cmd, const std::function<void(OStrandPkg&)>& fill = nullptr) {
  const auto pkg = NewOStrandPkg();
  pkg->stHead.dwCmd = cmd;
  EXPECT_EQ(0, pkg->stBody.construct(cmd));
  if (fill) {
    fill(*pkg);
  }
  std::string frame(1 << 20, '\0');
  size_t len = frame.size();
  EXPECT_EQ(0, PackWholeCsPkgMaybeCompress(frame.data(), len, nullptr, 0, *pkg, 127, nullptr));
  frame.resize(len);
  return frame;
}

void SetUserBuff(OStrandPkg& pkg, const std::string& bytes) {
  std::memcpy(pkg.stHead.szUserBuff, bytes.data(), bytes.size());
  pkg.stHead.dwUserBuffLen = static_cast<uint32_t>(bytes.size());
}

// A response and the adaptor through which it gets its answers.
class Received {
 public:
  Received() { routed.SetTarget(&response); }

  int Unpack(const char* data, size_t len) {
    const int ret = routed.Unpack(data, len);
    routed.HandOver();
    return ret;
  }
  int Unpack(const std::string& frame) { return Unpack(frame.data(), frame.size()); }
  OStrandPkg& Pkg() {
    const OStrandPkg* pkg = nullptr;
    EXPECT_EQ(0, routed.GetOstrandPackagePtr(pkg));
    return *const_cast<OStrandPkg*>(pkg);  // NOLINT: to be changed as the router does
  }
  std::string RoutedUserBuff() {
    size_t len = 0;
    const char* const bytes = routed.GetUserBuff(&len);
    return bytes != nullptr ? std::string(bytes, len) : std::string("(null)");
  }

  RouterResponse routed;
  ClientResponse response;
};

TEST(ClientResponse, IsEmptyAtFirst) {
  ClientResponse response;
  size_t len = 99;
  EXPECT_EQ(0U, response.GetCmd());
  EXPECT_EQ(0, response.GetResult());
  EXPECT_EQ(nullptr, response.GetTableName(&len));
  EXPECT_EQ(0U, len);
  EXPECT_EQ("", response.GetUserBuff());
  EXPECT_EQ(0, response.HaveMoreResPkgs());
  EXPECT_EQ(0U, response.GetRecordCount());
  RecordView record;
  EXPECT_FALSE(response.NextRecord(record));
  FieldView field;
  EXPECT_FALSE(response.GetKey("id", field));
  EXPECT_FALSE(response.GetValue("level", field));
  EXPECT_EQ(0U, response.GetTTLCount());
  TableMetadata metadata;
  EXPECT_FALSE(response.GetMetadata(metadata));
}

void SetTable(OStrandPkg& pkg, const char* name) {
  std::strcpy(pkg.stHead.stRouterInfo.szTableName, name);  // NOLINT: it fits
  pkg.stHead.stRouterInfo.dwTableNameLen = static_cast<uint32_t>(std::strlen(name)) + 1;
}

TEST(ClientResponse, ShowsTheHeadOfAnAnswer) {
  Received received;
  ASSERT_EQ(0, received.Unpack(Frame(OSTRAND_API_GET_RES, [](OStrandPkg& pkg) {
    OStrandPkgHead& head = pkg.stHead;
    head.iResult = -8205;
    head.dwSubCmd = 4;
    head.ullAsynID = UINT64_MAX;
    head.iSeq = -110;
    head.iVexMetaVersion = 9;
    head.stRouterInfo.iAppID = 7;
    head.stRouterInfo.iZoneID = 3;
    SetTable(pkg, "player");
    SetUserBuff(pkg, "user");
    head.stKeyInfo.dwFieldNum = 1;
    std::memcpy(head.stKeyInfo.astFields[0].szFieldName, "id", 3);
    std::memcpy(head.stKeyInfo.astFields[0].szFieldBuff, "42", 2);
    head.stKeyInfo.astFields[0].dwFieldLen = 2;
  })));
  const ClientResponse& response = received.response;
  size_t len = 0;
  EXPECT_EQ(8U, response.GetCmd());
  EXPECT_EQ(-8205, response.GetResult());
  EXPECT_EQ(4U, response.GetSubCmd());
  EXPECT_EQ(UINT64_MAX, response.GetAsynID());
  EXPECT_EQ(-110, response.GetSequence());
  EXPECT_EQ(9, response.GetMetaVersion());
  EXPECT_EQ(7, response.GetAppId());
  EXPECT_EQ(3, response.GetZoneId());
  EXPECT_STREQ("player", response.GetTableName(&len));
  EXPECT_EQ(6U, len);
  EXPECT_EQ("user", response.GetUserBuff());
  FieldView field;
  ASSERT_TRUE(response.GetKey("id", field));
  EXPECT_EQ("42", field.value);
  EXPECT_FALSE(response.GetKey("level", field));
}

TEST(ClientResponse, HasWhatTheRouterChanged) {
  Received received;
  const std::string frame =
      Frame(OSTRAND_API_GET_RES, [](OStrandPkg& pkg) { SetUserBuff(pkg, "user and a context"); });
  ASSERT_EQ(0, received.routed.Unpack(frame.data(), frame.size()));
  EXPECT_EQ(0U, received.response.GetCmd()) << "no outcome before it is handed over";
  received.Pkg().stHead.dwUserBuffLen = 4;
  received.Pkg().stHead.iResult = -18963;
  received.routed.HandOver();
  EXPECT_EQ("user", received.response.GetUserBuff());
  EXPECT_EQ(-18963, received.response.GetResult());
}

TEST(ClientResponse, HasTheUserBytesThatWereKeptInTheirPlace) {
  Received received;
  const std::string frame = Frame(OSTRAND_API_GET_RES, [](OStrandPkg& pkg) {
    SetUserBuff(pkg, "package");
    RecordWriter writer(pkg.stBody.stRecords);
    writer.BeginRecord();
    writer.AddValueField("level", "80");
  });
  for (const size_t len : {0U, 1U, 1024U, 5000000U, 10U}) {
    const std::string bytes(len, 'u');
    ASSERT_EQ(0, received.routed.Unpack(frame.data(), frame.size()));
    ASSERT_EQ(0, received.routed.SetUserBuff(bytes.data(), static_cast<unsigned int>(len)));
    EXPECT_EQ(bytes, received.RoutedUserBuff());
    received.routed.HandOver();
    EXPECT_EQ(bytes, received.response.GetUserBuff());
    FieldView field;
    ASSERT_TRUE(received.response.GetValue("level", field));
    EXPECT_EQ("80", field.value);
  }
  EXPECT_EQ(ROUTER_ERR_ARGUMENT, received.routed.SetUserBuff(nullptr, 1));
  ASSERT_EQ(0, received.Unpack(frame));
  EXPECT_EQ("package", received.response.GetUserBuff()) << "they belonged to the answer before";
  EXPECT_EQ("package", received.RoutedUserBuff());
}

TEST(ClientResponse, KeepsACopyOfTheFrame) {
  Received received;
  std::string frame = Frame(OSTRAND_API_GET_RES, [](OStrandPkg& pkg) {
    RecordWriter writer(pkg.stBody.stRecords);
    writer.BeginRecord();
    writer.AddValueField("level", "80");
  });
  ASSERT_EQ(0, received.Unpack(frame));
  frame.assign(frame.size(), 'x');
  FieldView field;
  ASSERT_TRUE(received.response.GetValue("level", field));
  EXPECT_EQ("80", field.value);
  EXPECT_FALSE(received.response.GetValue("name", field));
}

// The records of an answer, each with its own result.
void FillRecords(OStrandRecords& records) {
  RecordWriter writer(records);
  for (int i = 0; i < 3; ++i) {
    RecordMark mark;
    mark.result = i == 1 ? -7949 : 0;
    mark.index = i;
    mark.version = 100 + i;
    writer.BeginRecord(mark);
    writer.AddKeyField("id", std::to_string(i));
    writer.AddValueField("level", std::to_string(10 * i));
  }
}

void ExpectThreeRecords(ClientResponse& response) {
  EXPECT_EQ(3U, response.GetRecordCount());
  RecordView record;
  FieldView field;
  for (int i = 0; i < 3; ++i) {
    ASSERT_TRUE(response.NextRecord(record));
    EXPECT_EQ(i == 1 ? -7949 : 0, record.mark.result);
    EXPECT_EQ(i, record.mark.index);
    EXPECT_EQ(100 + i, record.mark.version);
    ASSERT_TRUE(record.FindKey("id", field));
    EXPECT_EQ(std::to_string(i), field.value);
    ASSERT_TRUE(record.values.Next(field));
    EXPECT_EQ("level", field.name);
    EXPECT_EQ(std::to_string(10 * i), field.value);
    EXPECT_FALSE(record.values.Next(field));
  }
  EXPECT_FALSE(response.NextRecord(record));
  EXPECT_FALSE(response.NextRecord(record));
}

TEST(ClientResponse, WalksTheRecordsOfABatchOfAListAndOfAPartKey) {
  Received received;
  for (const auto& frame :
       {Frame(OSTRAND_API_BATCH_GET_RES,
              [](OStrandPkg& pkg) { FillRecords(pkg.stBody.stRecords); }),
        Frame(OSTRAND_API_LIST_GETALL_RES,
              [](OStrandPkg& pkg) { FillRecords(pkg.stBody.stListGetAllRes.stRecords); }),
        Frame(OSTRAND_API_GET_BY_PARTKEY_RES,
              [](OStrandPkg& pkg) { FillRecords(pkg.stBody.stGetByPartKeyRes.stRecords); })}) {
    ASSERT_EQ(0, received.Unpack(frame));
    ExpectThreeRecords(received.response);
    received.response.RewindRecords();
    ExpectThreeRecords(received.response);
  }
}

TEST(ClientResponse, ANewAnswerIsWalkedFromItsFirstRecord) {
  Received received;
  const std::string frame =
      Frame(OSTRAND_API_BATCH_GET_RES, [](OStrandPkg& pkg) { FillRecords(pkg.stBody.stRecords); });
  ASSERT_EQ(0, received.Unpack(frame));
  RecordView record;
  ASSERT_TRUE(received.response.NextRecord(record));
  ASSERT_EQ(0, received.Unpack(frame));
  ExpectThreeRecords(received.response);
  ASSERT_EQ(0, received.Unpack(Frame(OSTRAND_API_QUERY_RES)));
  EXPECT_FALSE(received.response.NextRecord(record));
  EXPECT_EQ(0U, received.response.GetRecordCount());
}

TEST(ClientResponse, AnErrorWithoutBodyHasNoRecords) {
  Received received;
  for (const uint32_t cmd : {OSTRAND_API_GET_RES, OSTRAND_API_LIST_GETALL_RES,
                             OSTRAND_API_GET_TTL_RES, OSTRAND_API_METADATA_GET_RES}) {
    std::string frame = Frame(cmd, [](OStrandPkg& pkg) { pkg.stHead.iResult = -8205; });
    const auto body_len = LoadBigEndian<uint32_t>(&frame[8]);
    StoreBigEndian(&frame[8], uint32_t{0});
    frame.resize(frame.size() - body_len);
    ASSERT_EQ(0, received.Unpack(frame)) << cmd;
    EXPECT_EQ(-8205, received.response.GetResult());
    EXPECT_EQ(0U, received.response.GetRecordCount());
    EXPECT_EQ(0U, received.response.GetTTLCount());
    RecordView record;
    EXPECT_FALSE(received.response.NextRecord(record));
    TableMetadata metadata;
    EXPECT_FALSE(received.response.GetMetadata(metadata));
  }
}

TEST(ClientResponse, IsReadTypedAndRefusesAWrongLength) {
  Received received;
  ASSERT_EQ(0, received.Unpack(Frame(OSTRAND_API_GET_RES, [](OStrandPkg& pkg) {
    RecordWriter writer(pkg.stBody.stRecords);
    writer.BeginRecord();
    writer.AddValueField("level", std::string("\0\0\0\0\0\0\0\x07", 8));
    writer.AddValueField("name", "Ada");
  })));
  int64_t level = 0;
  EXPECT_EQ(0, received.response.Get("level", level));
  EXPECT_EQ(7, level);
  EXPECT_EQ(0, received.response.Get<int64_t>("level", level));
  std::string_view name;
  EXPECT_EQ(0, received.response.Get("name", name));
  EXPECT_EQ("Ada", name);
  int32_t narrow = 5;
  EXPECT_EQ(OSTRAND_CODEC_ERR_FIELD_WIDTH, received.response.Get("level", narrow));
  EXPECT_EQ(OSTRAND_CODEC_ERR_NO_FIELD, received.response.Get("city", narrow));
  EXPECT_EQ(5, narrow);
}

TEST(ClientResponse, TellsWhetherPackagesFollowButNeverAfterAnError) {
  Received received;
  for (const int32_t result : {0, -18963}) {
    for (const uint8_t more : {uint8_t{0}, uint8_t{1}, uint8_t{255}}) {
      for (const auto& frame : {Frame(OSTRAND_API_LIST_GETALL_RES,
                                      [&](OStrandPkg& pkg) {
                                        pkg.stHead.iResult = result;
                                        pkg.stBody.stListGetAllRes.bHasMorePkgs = more;
                                      }),
                                Frame(OSTRAND_API_GET_BY_PARTKEY_RES, [&](OStrandPkg& pkg) {
                                  pkg.stHead.iResult = result;
                                  pkg.stBody.stGetByPartKeyRes.bHasMorePkgs = more;
                                })}) {
        ASSERT_EQ(0, received.Unpack(frame));
        EXPECT_EQ(more != 0 && result == 0 ? 1 : 0, received.response.HaveMoreResPkgs());
        EXPECT_EQ(more != 0 ? 1 : 0, received.routed.HaveMoreResPkgs()) << "for the router's books";
      }
    }
  }
  ASSERT_EQ(0, received.Unpack(Frame(OSTRAND_API_GET_RES)));
  EXPECT_EQ(0, received.response.HaveMoreResPkgs());
}

TEST(ClientResponse, ShowsTTLEntries) {
  Received received;
  for (const uint32_t cmd : {OSTRAND_API_SET_TTL_RES, OSTRAND_API_GET_TTL_RES}) {
    ASSERT_EQ(0, received.Unpack(Frame(cmd, [](OStrandPkg& pkg) {
      pkg.stBody.stTTLRes.dwRecordNum = 2;
      pkg.stBody.stTTLRes.astRecordTTL[0] = {0, 60000};
      pkg.stBody.stTTLRes.astRecordTTL[1] = {-7949, -1};
    })));
    const ClientResponse& response = received.response;
    ASSERT_EQ(2U, response.GetTTLCount());
    RecordTTL ttl;
    ASSERT_TRUE(response.GetTTL(0, ttl));
    EXPECT_EQ(60000, ttl.ttl_ms);
    ASSERT_TRUE(response.GetTTL(1, ttl));
    EXPECT_EQ(-7949, ttl.result);
    EXPECT_EQ(-1, ttl.ttl_ms);
    EXPECT_FALSE(response.GetTTL(2, ttl));
    EXPECT_FALSE(response.GetTTL(UINT32_MAX, ttl));
  }
}

TEST(ClientResponse, ShowsMetadata) {
  Received received;
  ASSERT_EQ(0, received.Unpack(Frame(OSTRAND_API_METADATA_GET_RES, [](OStrandPkg& pkg) {
    OStrandMetadataGetRes& body = pkg.stBody.stMetadataGetRes;
    body.dwOstrandType = 3;
    body.iVexMetaCurrentVersion = 5;
    body.iIdlType = 2;
    body.iIdlConLen = 5;
    std::memcpy(body.szIdlContent, "image", 5);
  })));
  TableMetadata metadata;
  ASSERT_TRUE(received.response.GetMetadata(metadata));
  EXPECT_EQ(3U, metadata.table_type);
  EXPECT_EQ(5, metadata.version);
  EXPECT_EQ(2, metadata.idl_type);
  EXPECT_EQ("image", metadata.image);
  EXPECT_EQ(5, received.Pkg().stBody.stMetadataGetRes.iVexMetaCurrentVersion)
      << "the router looks at them";
}

TEST(ClientResponse, ATimeOutCarriesWhatTheRequestHad) {
  Received received;
  std::string table = "player";
  std::string bytes(3000, 'u');
  ASSERT_EQ(
      0, received.routed.BuildTimeOutRes(int64_t{1} << 32 | 7, 3, table.c_str(),
                                         OSTRAND_API_GET_RES, bytes.data(), 3000, UINT64_MAX, -5));
  table = "xxxxxx";
  bytes.assign(3000, 'x');
  received.routed.HandOver();
  const ClientResponse& response = received.response;
  EXPECT_EQ(-20499, response.GetResult());
  EXPECT_EQ(8U, response.GetCmd());
  EXPECT_EQ(7, response.GetAppId());
  EXPECT_EQ(3, response.GetZoneId());
  EXPECT_STREQ("player", response.GetTableName());
  EXPECT_STREQ("player", received.routed.GetTableName(nullptr));
  EXPECT_EQ(UINT64_MAX, response.GetAsynID());
  EXPECT_EQ(-5, response.GetSequence());
  EXPECT_EQ(std::string(3000, 'u'), response.GetUserBuff());
  EXPECT_EQ(0U, response.GetRecordCount());
  size_t len = 99;
  received.routed.GetPerfTest(&len);
  EXPECT_EQ(0U, len);
}

TEST(ClientResponse, ATimeOutLeavesNothingOfTheAnswerBefore) {
  Received received;
  const std::string frame = Frame(OSTRAND_API_GET_BY_PARTKEY_RES, [](OStrandPkg& pkg) {
    SetUserBuff(pkg, "package");
    SetTable(pkg, "guild");
    pkg.stBody.stGetByPartKeyRes.bHasMorePkgs = 1;
    FillRecords(pkg.stBody.stGetByPartKeyRes.stRecords);
  });
  for (const char* const table : {static_cast<const char*>(nullptr), "", "player"}) {
    ASSERT_EQ(0, received.Unpack(frame));
    RecordView record;
    ASSERT_TRUE(received.response.NextRecord(record));
    ASSERT_EQ(0, received.routed.BuildTimeOutRes(7, 3, table, OSTRAND_API_GET_BY_PARTKEY_RES,
                                                 nullptr, 1009, 1, 2));
    received.routed.HandOver();
    EXPECT_EQ("", received.response.GetUserBuff()) << "a length without bytes is no buffer";
    EXPECT_EQ(0, received.response.HaveMoreResPkgs());
    EXPECT_EQ(-20499, received.Pkg().stBody.stGetByPartKeyRes.iResult);
    EXPECT_FALSE(received.response.NextRecord(record));
    FieldView field;
    EXPECT_FALSE(received.response.GetKey("id", field));
    EXPECT_STREQ(table, received.response.GetTableName());
  }
  ASSERT_EQ(0, received.routed.BuildTimeOutRes(7, 3, std::string(50, 't').c_str(), 999999, nullptr,
                                               0, 1, 2));
  received.routed.HandOver();
  EXPECT_EQ(std::string(31, 't'), received.response.GetTableName());
  EXPECT_EQ(999999U, received.response.GetCmd());
}

TEST(ClientResponse, AnOutcomeOfTheRuntimesOwnHasWhatItWasGiven) {
  ClientResponse response;
  OutcomeHead outcome;
  outcome.result = -12345;
  outcome.cmd = 8;
  outcome.async_id = UINT64_MAX;
  outcome.sequence = -5;
  outcome.app_id = 7;
  outcome.zone_id = 3;
  outcome.table = "player";
  outcome.user_bytes = "user";
  ASSERT_EQ(0, response.SetOutcome(outcome));
  EXPECT_EQ(-12345, response.GetResult());
  EXPECT_EQ(8U, response.GetCmd());
  EXPECT_EQ(UINT64_MAX, response.GetAsynID());
  EXPECT_EQ(-5, response.GetSequence());
  EXPECT_EQ(7, response.GetAppId());
  EXPECT_EQ(3, response.GetZoneId());
  EXPECT_STREQ("player", response.GetTableName());
  EXPECT_EQ("user", response.GetUserBuff());
  EXPECT_EQ(0U, response.GetRecordCount());
  EXPECT_EQ(0, response.HaveMoreResPkgs());
  OstrandFakes::AllocationFaults faults;
  ASSERT_EQ(0, response.SetOutcome(outcome));
  EXPECT_EQ(0, faults.count()) << "warm";
  ASSERT_EQ(0, response.SetOutcome(OutcomeHead()));
  EXPECT_EQ("", response.GetUserBuff());
  const std::string long_bytes(1000, 'u');
  outcome.user_bytes = long_bytes;
  faults.FailNothrow(1);
  EXPECT_EQ(ROUTER_ERR_ALLOCATION, response.SetOutcome(outcome));
  EXPECT_EQ(-12345, response.GetResult()) << "all else is there";
  EXPECT_EQ("", response.GetUserBuff());
  EXPECT_EQ(nullptr, response.GetTableName());
}

TEST(ClientResponse, AFrameThatIsRefusedLeavesNothing) {
  Received received;
  std::string frame = Frame(OSTRAND_API_BATCH_GET_RES, [](OStrandPkg& pkg) {
    SetUserBuff(pkg, "package");
    FillRecords(pkg.stBody.stRecords);
  });
  ASSERT_EQ(0, received.Unpack(frame));
  RecordView record;
  ASSERT_TRUE(received.response.NextRecord(record));
  EXPECT_EQ(OSTRAND_CODEC_ERR_FRAME_LEN, received.Unpack(frame.data(), frame.size() - 1));
  EXPECT_EQ(0U, received.response.GetCmd());
  EXPECT_EQ("", received.response.GetUserBuff());
  EXPECT_FALSE(received.response.NextRecord(record));
  frame[frame.size() - 20] = 'x';
  EXPECT_NE(0, received.Unpack(frame)) << "its body is broken";
  EXPECT_EQ(0U, received.response.GetRecordCount());
  frame[0] = 'x';
  EXPECT_EQ(OSTRAND_CODEC_ERR_MAGIC, received.Unpack(frame));
  EXPECT_EQ(OSTRAND_CODEC_ERR_ARGUMENT, received.Unpack(nullptr, 0));
}

TEST(ClientResponse, IsMovedWholeAndWhatItHandedOutHolds) {
  Received received;
  const std::string frame =
      Frame(OSTRAND_API_BATCH_GET_RES, [](OStrandPkg& pkg) { FillRecords(pkg.stBody.stRecords); });
  ASSERT_EQ(0, received.Unpack(frame));
  RecordView first;
  ASSERT_TRUE(received.response.NextRecord(first));
  ClientResponse moved = std::move(received.response);
  FieldView field;
  ASSERT_TRUE(first.FindValue("level", field));
  EXPECT_EQ("0", field.value);
  RecordView second;
  ASSERT_TRUE(moved.NextRecord(second));
  EXPECT_EQ(1, second.mark.index);
  EXPECT_EQ(0U, received.response.GetCmd()) << "as a new one";  // NOLINT: what a moved-from one is
  EXPECT_EQ(0U, received.response.GetRecordCount());
  EXPECT_FALSE(received.response.NextRecord(second));
  ASSERT_EQ(0, received.Unpack(frame));
  ExpectThreeRecords(received.response);
  received.response = std::move(moved);
  EXPECT_EQ(3U, received.response.GetRecordCount());
}

TEST(ClientResponse, AHundredThousandAreAliveAtTheCostOfTheirBytes) {
  constexpr int kAlive = 100000;
  const std::string frame = Frame(OSTRAND_API_GET_RES, [](OStrandPkg& pkg) {
    RecordWriter writer(pkg.stBody.stRecords);
    writer.BeginRecord();
    writer.AddValueField("value", std::string(100, 'v'));
  });
  RouterResponse routed;
  std::vector<ClientResponse> alive(kAlive);
  OstrandFakes::AllocationFaults faults;
  for (ClientResponse& response : alive) {
    routed.SetTarget(&response);
    ASSERT_EQ(0, routed.Unpack(frame.data(), frame.size()));
    routed.HandOver();
  }
  EXPECT_EQ(kAlive, faults.count()) << "its bytes, and nothing else";
  EXPECT_LT(sizeof(ClientResponse), 400U);
  FieldView field;
  ASSERT_TRUE(alive[kAlive / 2].GetValue("value", field));
  EXPECT_EQ(100U, field.value.size());
}

TEST(ClientResponse, AllocatesNothingOnceWarm) {
  Received received;
  const std::string frame =
      Frame(OSTRAND_API_BATCH_GET_RES, [](OStrandPkg& pkg) { FillRecords(pkg.stBody.stRecords); });
  const auto take_all = [&] {
    received.routed.Unpack(frame.data(), frame.size());
    received.routed.SetUserBuff("user", 4);
    received.routed.HandOver();
    RecordView record;
    FieldView field;
    while (received.response.NextRecord(record)) {
      record.FindValue("level", field);
    }
    received.routed.BuildTimeOutRes(7, 3, "player", 8, "user", 4, 1, 2);
    received.routed.HandOver();
  };
  take_all();
  OstrandFakes::AllocationFaults faults;
  take_all();
  EXPECT_EQ(0, faults.count());
}

TEST(ClientResponse, SaysSoWithoutMemory) {
  OstrandFakes::AllocationFaults faults;
  faults.FailNothrow(1);
  RouterResponse without_package;
  ASSERT_TRUE(faults.struck());
  const OStrandPkg* pkg = nullptr;
  EXPECT_EQ(ROUTER_ERR_ALLOCATION, without_package.GetOstrandPackagePtr(pkg));
  EXPECT_EQ(nullptr, pkg);
  EXPECT_EQ(ROUTER_ERR_ALLOCATION, without_package.Unpack("", 0));
  EXPECT_EQ(ROUTER_ERR_ALLOCATION,
            without_package.BuildTimeOutRes(7, 3, "player", 8, nullptr, 0, 1, 2));
  EXPECT_EQ(0U, without_package.GetCmd());
  EXPECT_EQ(0U, without_package.GetSubCmd());
  EXPECT_EQ(0, without_package.GetResult());
  EXPECT_EQ(0, without_package.GetZoneId());
  EXPECT_EQ(0, without_package.GetSequence());
  EXPECT_EQ(0U, without_package.GetAsynID());
  EXPECT_EQ(nullptr, without_package.GetTableName(nullptr));
  EXPECT_EQ(nullptr, without_package.GetPerfTest(nullptr));
  EXPECT_EQ(nullptr, without_package.GetPkgUserBuff(nullptr));
  EXPECT_EQ(0, without_package.HaveMoreResPkgs());
  without_package.HandOver();

  const std::string frame = Frame(OSTRAND_API_GET_RES);
  Received received;
  faults.FailNothrow(1);
  EXPECT_EQ(ROUTER_ERR_ALLOCATION, received.Unpack(frame)) << "for the bytes";
  EXPECT_EQ(0U, received.response.GetCmd());
  ASSERT_EQ(0, received.Unpack(frame));
  const std::string bytes(1000, 'u');
  faults.FailNothrow(1);
  EXPECT_EQ(ROUTER_ERR_ALLOCATION, received.routed.SetUserBuff(bytes.data(), 1000));
  received.routed.HandOver();
  EXPECT_EQ(8U, received.response.GetCmd());
  EXPECT_EQ("", received.response.GetUserBuff());
  faults.FailNothrow(1);
  EXPECT_EQ(ROUTER_ERR_ALLOCATION,
            received.routed.BuildTimeOutRes(7, 3, "player", 8, bytes.data(), 1000, 1, 2));
  received.routed.HandOver();
  EXPECT_EQ(-20499, received.response.GetResult()) << "all else is there";
  EXPECT_STREQ("player", received.response.GetTableName());
  EXPECT_EQ("", received.response.GetUserBuff());
}

}  // namespace
}  // namespace OstrandService
