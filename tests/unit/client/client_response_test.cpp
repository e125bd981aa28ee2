#include "client/client_response.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <memory>
#include <string>

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

std::string UserBuff(ClientResponse& response) {
  size_t len = 0;
  const char* const bytes = response.GetUserBuff(&len);
  return bytes != nullptr ? std::string(bytes, len) : std::string("(null)");
}

std::string PkgUserBuff(ClientResponse& response) {
  size_t len = 0;
  const char* const bytes = response.GetPkgUserBuff(&len);
  return {bytes, len};
}

// The package, to be changed as the router does.
OStrandPkg& PkgOf(ClientResponse& response) {
  const OStrandPkg* pkg = nullptr;
  EXPECT_EQ(0, response.GetOstrandPackagePtr(pkg));
  return *const_cast<OStrandPkg*>(pkg);  // NOLINT
}

TEST(ClientResponse, IsEmptyAtFirst) {
  ClientResponse response;
  size_t len = 99;
  EXPECT_EQ(0U, response.GetCmd());
  EXPECT_EQ(0, response.GetResult());
  EXPECT_EQ(nullptr, response.GetTableName(&len));
  EXPECT_EQ(0U, len);
  EXPECT_EQ("", UserBuff(response));
  EXPECT_EQ(0, response.HaveMoreResPkgs());
  EXPECT_EQ(0U, response.GetRecordCount());
  RecordView record;
  EXPECT_FALSE(response.NextRecord(record));
  EXPECT_EQ(0U, response.GetTTLCount());
  EXPECT_EQ(nullptr, response.GetMetadata());
}

TEST(ClientResponse, ShowsTheHeadOfAnAnswer) {
  ClientResponse response;
  const std::string frame = Frame(OSTRAND_API_GET_RES, [](OStrandPkg& pkg) {
    OStrandPkgHead& head = pkg.stHead;
    head.iResult = -8205;
    head.dwSubCmd = 4;
    head.ullAsynID = UINT64_MAX;
    head.iSeq = -110;
    head.iVexMetaVersion = 9;
    head.stRouterInfo.iAppID = 7;
    head.stRouterInfo.iZoneID = 3;
    std::memcpy(head.stRouterInfo.szTableName, "player", 7);
    head.stRouterInfo.dwTableNameLen = 7;
    SetUserBuff(pkg, "user");
    std::memcpy(head.szPerfTest, "perf", 4);
    head.dwPerfTestLen = 4;
    head.stKeyInfo.dwFieldNum = 1;
    std::memcpy(head.stKeyInfo.astFields[0].szFieldName, "id", 3);
    std::memcpy(head.stKeyInfo.astFields[0].szFieldBuff, "42", 2);
    head.stKeyInfo.astFields[0].dwFieldLen = 2;
  });
  ASSERT_EQ(0, response.Unpack(frame.data(), frame.size()));
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
  EXPECT_EQ("user", UserBuff(response));
  EXPECT_EQ("perf", std::string(response.GetPerfTest(&len), 4));
  EXPECT_EQ(4U, len);
  FieldView field;
  ASSERT_TRUE(response.GetKey("id", field));
  EXPECT_EQ("42", field.value);
  EXPECT_FALSE(response.GetKey("level", field));
}

TEST(ClientResponse, KeepsACopyOfTheFrame) {
  ClientResponse response;
  std::string frame = Frame(OSTRAND_API_GET_RES, [](OStrandPkg& pkg) {
    SetUserBuff(pkg, "user");
    RecordWriter writer(pkg.stBody.stRecords);
    writer.BeginRecord();
    writer.AddValueField("level", "80");
  });
  ASSERT_EQ(0, response.Unpack(frame.data(), frame.size()));
  frame.assign(frame.size(), 'x');
  EXPECT_EQ("user", UserBuff(response));
  FieldView field;
  ASSERT_TRUE(response.GetValue("level", field));
  EXPECT_EQ("80", field.value);
  EXPECT_FALSE(response.GetValue("name", field));
}

TEST(ClientResponse, GettersSeeWhatTheRouterChanges) {
  ClientResponse response;
  const std::string frame = Frame(OSTRAND_API_GET_BY_PARTKEY_RES, [](OStrandPkg& pkg) {
    SetUserBuff(pkg, "user and a context of 14 bytes");
  });
  ASSERT_EQ(0, response.Unpack(frame.data(), frame.size()));
  EXPECT_EQ(30U, UserBuff(response).size());
  PkgOf(response).stHead.dwUserBuffLen = 4;
  PkgOf(response).stHead.iResult = -18963;
  EXPECT_EQ("user", UserBuff(response));
  EXPECT_EQ("user", PkgUserBuff(response));
  EXPECT_EQ(-18963, response.GetResult());
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
  ClientResponse response;
  for (const auto& frame :
       {Frame(OSTRAND_API_BATCH_GET_RES,
              [](OStrandPkg& pkg) { FillRecords(pkg.stBody.stRecords); }),
        Frame(OSTRAND_API_LIST_GETALL_RES,
              [](OStrandPkg& pkg) { FillRecords(pkg.stBody.stListGetAllRes.stRecords); }),
        Frame(OSTRAND_API_GET_BY_PARTKEY_RES,
              [](OStrandPkg& pkg) { FillRecords(pkg.stBody.stGetByPartKeyRes.stRecords); })}) {
    ASSERT_EQ(0, response.Unpack(frame.data(), frame.size()));
    ExpectThreeRecords(response);
    response.RewindRecords();
    ExpectThreeRecords(response);
  }
}

TEST(ClientResponse, ANewAnswerIsWalkedFromItsFirstRecord) {
  ClientResponse response;
  const std::string frame =
      Frame(OSTRAND_API_BATCH_GET_RES, [](OStrandPkg& pkg) { FillRecords(pkg.stBody.stRecords); });
  ASSERT_EQ(0, response.Unpack(frame.data(), frame.size()));
  RecordView record;
  ASSERT_TRUE(response.NextRecord(record));
  ASSERT_EQ(0, response.Unpack(frame.data(), frame.size()));
  ExpectThreeRecords(response);
  const std::string none = Frame(OSTRAND_API_QUERY_RES);
  ASSERT_EQ(0, response.Unpack(none.data(), none.size()));
  EXPECT_FALSE(response.NextRecord(record));
  EXPECT_EQ(0U, response.GetRecordCount());
  FieldView field;
  EXPECT_FALSE(response.GetValue("level", field));
}

TEST(ClientResponse, TellsWhetherPackagesFollow) {
  ClientResponse response;
  for (const uint8_t more : {uint8_t{0}, uint8_t{1}, uint8_t{255}}) {
    for (const auto& frame :
         {Frame(OSTRAND_API_LIST_GETALL_RES,
                [more](OStrandPkg& pkg) { pkg.stBody.stListGetAllRes.bHasMorePkgs = more; }),
          Frame(OSTRAND_API_GET_BY_PARTKEY_RES,
                [more](OStrandPkg& pkg) { pkg.stBody.stGetByPartKeyRes.bHasMorePkgs = more; })}) {
      ASSERT_EQ(0, response.Unpack(frame.data(), frame.size()));
      EXPECT_EQ(more != 0 ? 1 : 0, response.HaveMoreResPkgs());
    }
  }
  const std::string other = Frame(OSTRAND_API_GET_RES);
  ASSERT_EQ(0, response.Unpack(other.data(), other.size()));
  EXPECT_EQ(0, response.HaveMoreResPkgs());
}

TEST(ClientResponse, ShowsTTLEntries) {
  ClientResponse response;
  for (const uint32_t cmd : {OSTRAND_API_SET_TTL_RES, OSTRAND_API_GET_TTL_RES}) {
    const std::string frame = Frame(cmd, [](OStrandPkg& pkg) {
      pkg.stBody.stTTLRes.dwRecordNum = 2;
      pkg.stBody.stTTLRes.astRecordTTL[0] = {0, 60000};
      pkg.stBody.stTTLRes.astRecordTTL[1] = {-7949, -1};
    });
    ASSERT_EQ(0, response.Unpack(frame.data(), frame.size()));
    ASSERT_EQ(2U, response.GetTTLCount());
    EXPECT_EQ(60000, response.GetTTL(0)->llTTLMs);
    EXPECT_EQ(-7949, response.GetTTL(1)->iResult);
    EXPECT_EQ(nullptr, response.GetTTL(2));
    EXPECT_EQ(nullptr, response.GetTTL(UINT32_MAX));
  }
}

TEST(ClientResponse, ShowsMetadata) {
  ClientResponse response;
  const std::string frame = Frame(OSTRAND_API_METADATA_GET_RES, [](OStrandPkg& pkg) {
    pkg.stBody.stMetadataGetRes.iVexMetaCurrentVersion = 5;
  });
  ASSERT_EQ(0, response.Unpack(frame.data(), frame.size()));
  ASSERT_NE(nullptr, response.GetMetadata());
  EXPECT_EQ(5, response.GetMetadata()->iVexMetaCurrentVersion);
}

TEST(ClientResponse, ItsOwnUserBufferGoesBeforeThePackages) {
  ClientResponse response;
  const std::string frame =
      Frame(OSTRAND_API_GET_RES, [](OStrandPkg& pkg) { SetUserBuff(pkg, "package"); });
  ASSERT_EQ(0, response.Unpack(frame.data(), frame.size()));
  std::string bytes = "own";
  ASSERT_EQ(0, response.SetUserBuff(bytes.data(), 3));
  bytes = "xxx";
  EXPECT_EQ("own", UserBuff(response));
  EXPECT_EQ("package", PkgUserBuff(response));
  ASSERT_EQ(0, response.SetUserBuff(nullptr, 0));
  EXPECT_EQ("", UserBuff(response)) << "an empty one is one, too";
  ASSERT_EQ(0, response.Unpack(frame.data(), frame.size()));
  EXPECT_EQ("package", UserBuff(response)) << "it belonged to the answer before";
}

TEST(ClientResponse, ItsUserBufferTakesAnyLength) {
  ClientResponse response;
  for (const size_t len : {0U, 1U, 63U, 64U, 1024U, 1025U, 5000000U, 10U}) {
    const std::string bytes(len, 'u');
    ASSERT_EQ(0, response.SetUserBuff(bytes.data(), static_cast<unsigned int>(len)));
    ASSERT_EQ(bytes, UserBuff(response));
  }
  EXPECT_EQ(ROUTER_ERR_ARGUMENT, response.SetUserBuff(nullptr, 1));
  EXPECT_EQ(10U, UserBuff(response).size()) << "as before";
}

TEST(ClientResponse, ItsUserBufferMayBeSetFromItself) {
  ClientResponse response;
  ASSERT_EQ(0, response.SetUserBuff("0123456789", 10));
  ASSERT_EQ(0, response.SetUserBuff(response.GetUserBuff(nullptr) + 3, 7));
  EXPECT_EQ("3456789", UserBuff(response));
}

TEST(ClientResponse, WithoutMemoryTheUserBufferStaysAsItWas) {
  ClientResponse response;
  ASSERT_EQ(0, response.SetUserBuff("before", 6));
  const std::string bytes(1000, 'u');
  OstrandFakes::AllocationFaults faults;
  faults.FailNothrow(1);
  EXPECT_EQ(ROUTER_ERR_ALLOCATION, response.SetUserBuff(bytes.data(), 1000));
  EXPECT_EQ("before", UserBuff(response));
  faults.FailNothrow(1);
  EXPECT_EQ(ROUTER_ERR_ALLOCATION,
            response.BuildTimeOutRes(7, 3, "player", 8, bytes.data(), 1000, 1, 2));
  EXPECT_EQ(-20499, response.GetResult()) << "all else is there";
  EXPECT_EQ("", UserBuff(response));
}

TEST(ClientResponse, ATimeOutCarriesWhatTheRequestHad) {
  ClientResponse response;
  std::string table = "player";
  std::string bytes(3000, 'u');
  ASSERT_EQ(0, response.BuildTimeOutRes(int64_t{1} << 32 | 7, 3, table.c_str(), OSTRAND_API_GET_RES,
                                        bytes.data(), 3000, UINT64_MAX, -5));
  table = "xxxxxx";
  bytes.assign(3000, 'x');
  EXPECT_EQ(-20499, response.GetResult());
  EXPECT_EQ(8U, response.GetCmd());
  EXPECT_EQ(7, response.GetAppId());
  EXPECT_EQ(3, response.GetZoneId());
  EXPECT_STREQ("player", response.GetTableName(nullptr));
  EXPECT_EQ(UINT64_MAX, response.GetAsynID());
  EXPECT_EQ(-5, response.GetSequence());
  EXPECT_EQ(std::string(3000, 'u'), UserBuff(response));
  EXPECT_EQ("", PkgUserBuff(response));
  EXPECT_EQ(0U, response.GetSubCmd());
  EXPECT_EQ(0U, response.GetRecordCount());
  size_t len = 99;
  response.GetPerfTest(&len);
  EXPECT_EQ(0U, len);
}

TEST(ClientResponse, ATimeOutLeavesNothingOfTheAnswerBefore) {
  ClientResponse response;
  const std::string frame = Frame(OSTRAND_API_GET_BY_PARTKEY_RES, [](OStrandPkg& pkg) {
    SetUserBuff(pkg, "package");
    pkg.stBody.stGetByPartKeyRes.bHasMorePkgs = 1;
    FillRecords(pkg.stBody.stGetByPartKeyRes.stRecords);
  });
  for (const char* own : {static_cast<const char*>(nullptr), "own"}) {
    ASSERT_EQ(0, response.Unpack(frame.data(), frame.size()));
    RecordView record;
    ASSERT_TRUE(response.NextRecord(record));
    if (own != nullptr) {
      ASSERT_EQ(0, response.SetUserBuff(own, 3));
    }
    ASSERT_EQ(0, response.BuildTimeOutRes(7, 3, "player", OSTRAND_API_GET_BY_PARTKEY_RES, nullptr,
                                          1009, 1, 2));
    EXPECT_EQ("", UserBuff(response)) << "a length without bytes is no buffer";
    EXPECT_EQ(0, response.HaveMoreResPkgs());
    EXPECT_EQ(-20499, PkgOf(response).stBody.stGetByPartKeyRes.iResult);
    EXPECT_FALSE(response.NextRecord(record));
  }
}

TEST(ClientResponse, ATimeOutTakesNullEmptyAndLongTableNames) {
  ClientResponse response;
  ASSERT_EQ(0, response.BuildTimeOutRes(7, 3, nullptr, 8, nullptr, 0, 1, 2));
  EXPECT_EQ(nullptr, response.GetTableName(nullptr));
  ASSERT_EQ(0, response.BuildTimeOutRes(7, 3, "", 8, nullptr, 0, 1, 2));
  EXPECT_STREQ("", response.GetTableName(nullptr));
  ASSERT_EQ(0, response.BuildTimeOutRes(7, 3, std::string(50, 't').c_str(), 8, nullptr, 0, 1, 2));
  EXPECT_EQ(std::string(31, 't'), response.GetTableName(nullptr));
}

TEST(ClientResponse, ATimeOutOfNoKnownCommandHasNoBody) {
  ClientResponse response;
  ASSERT_EQ(0, response.BuildTimeOutRes(7, 3, "player", 999999, nullptr, 0, 1, 2));
  EXPECT_EQ(999999U, response.GetCmd());
  EXPECT_EQ(0U, response.GetRecordCount());
  EXPECT_EQ(0, response.HaveMoreResPkgs());
}

TEST(ClientResponse, AFrameThatIsRefusedLeavesNothing) {
  ClientResponse response;
  std::string frame = Frame(OSTRAND_API_BATCH_GET_RES, [](OStrandPkg& pkg) {
    SetUserBuff(pkg, "package");
    FillRecords(pkg.stBody.stRecords);
  });
  ASSERT_EQ(0, response.Unpack(frame.data(), frame.size()));
  RecordView record;
  ASSERT_TRUE(response.NextRecord(record));
  EXPECT_EQ(OSTRAND_CODEC_ERR_FRAME_LEN, response.Unpack(frame.data(), frame.size() - 1));
  EXPECT_EQ(0U, response.GetCmd());
  EXPECT_EQ("", UserBuff(response));
  EXPECT_FALSE(response.NextRecord(record));
  frame[0] = 'x';
  EXPECT_EQ(OSTRAND_CODEC_ERR_MAGIC, response.Unpack(frame.data(), frame.size()));
  EXPECT_EQ(OSTRAND_CODEC_ERR_ARGUMENT, response.Unpack(nullptr, 0));
}

TEST(ClientResponse, SaysSoWithoutMemory) {
  OstrandFakes::AllocationFaults faults;
  faults.FailNothrow(1);
  ClientResponse response;
  ASSERT_TRUE(faults.struck());
  const OStrandPkg* pkg = nullptr;
  EXPECT_EQ(ROUTER_ERR_ALLOCATION, response.Unpack("x", 1));
  EXPECT_EQ(ROUTER_ERR_ALLOCATION, response.BuildTimeOutRes(7, 3, "player", 8, nullptr, 0, 1, 2));
  EXPECT_EQ(ROUTER_ERR_ALLOCATION, response.GetOstrandPackagePtr(pkg));
  EXPECT_EQ(nullptr, pkg);
  size_t len = 99;
  EXPECT_EQ(nullptr, response.GetPkgUserBuff(&len));
  EXPECT_EQ(0U, len);
  EXPECT_EQ(nullptr, response.GetUserBuff(nullptr));
  EXPECT_EQ(nullptr, response.GetTableName(nullptr));
  EXPECT_EQ(nullptr, response.GetPerfTest(nullptr));
  EXPECT_EQ(0U, response.GetCmd());
  EXPECT_EQ(0U, response.GetSubCmd());
  EXPECT_EQ(0, response.GetResult());
  EXPECT_EQ(0, response.GetZoneId());
  EXPECT_EQ(0, response.GetAppId());
  EXPECT_EQ(-1, response.GetMetaVersion());
  EXPECT_EQ(0, response.GetSequence());
  EXPECT_EQ(0U, response.GetAsynID());
  EXPECT_EQ(0, response.HaveMoreResPkgs());
  EXPECT_EQ(0U, response.GetRecordCount());
  EXPECT_EQ(0U, response.GetTTLCount());
  EXPECT_EQ(nullptr, response.GetMetadata());
  FieldView field;
  EXPECT_FALSE(response.GetKey("id", field));
  EXPECT_FALSE(response.GetValue("id", field));
}

TEST(ClientResponse, ReadingAllocatesNothingOnceWarm) {
  ClientResponse response;
  const std::string frame =
      Frame(OSTRAND_API_BATCH_GET_RES, [](OStrandPkg& pkg) { FillRecords(pkg.stBody.stRecords); });
  const std::string bytes(1000, 'u');
  response.SetUserBuff(bytes.data(), 1000);
  OstrandFakes::AllocationFaults faults;
  for (int i = 0; i < 10; ++i) {
    response.Unpack(frame.data(), frame.size());
    response.SetUserBuff(bytes.data(), 1000);
    RecordView record;
    while (response.NextRecord(record)) {
    }
    response.BuildTimeOutRes(7, 3, "player", 8, bytes.data(), 1000, 1, 2);
  }
  EXPECT_EQ(0, faults.count());
}

}  // namespace
}  // namespace OstrandService
