// Packing: room, versions, and packages that must not become frames.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>

#include "unit/protocol/package_kit.h"

namespace ostrand_protocol_cs {
namespace {

constexpr size_t kVersionOffset = 2;

int PackCode(const OStrandPkg& pkg) {
  int ret = 0;
  Pack(pkg, &ret);
  return ret;
}

std::unique_ptr<OStrandPkg> InsertPackage() {
  auto pkg = NewPackage(OSTRAND_API_INSERT_REQ);
  SetTableName(pkg->stHead, "players");
  SetUserBuff(pkg->stHead, "context");
  AddKeyField(pkg->stHead.stKeyInfo, "id", "0123456789abcdef");
  pkg->stHead.dwPerfTestLen = 88;
  RecordWriter writer(pkg->stBody.stRecords);
  EXPECT_EQ(writer.BeginRecord(), 0);
  EXPECT_EQ(writer.AddValueField("value", std::string(100, 'v')), 0);
  return pkg;
}

TEST(CodecPack, NeedsExactlyTheFramesRoom) {
  const auto pkg = InsertPackage();
  const size_t frame_len = Pack(*pkg).size();
  for (size_t capacity = 0; capacity <= frame_len; ++capacity) {
    // An allocation of just this size: the address sanitizer sees a byte too many.
    const std::unique_ptr<char[]> buffer(new char[capacity]);
    size_t len = capacity;
    const int ret = PackWholeCsPkgMaybeCompress(buffer.get(), len, nullptr, 0, *pkg, 127, nullptr);
    EXPECT_EQ(ret, capacity == frame_len ? 0 : OSTRAND_CODEC_ERR_BUFFER_FULL);
    EXPECT_EQ(len, capacity);
  }
}

TEST(CodecPack, AnswersTheFramesLengthAndLeavesItAloneOnFailure) {
  const auto pkg = InsertPackage();
  char buffer[4096];
  size_t len = sizeof(buffer);
  ASSERT_EQ(PackWholeCsPkgMaybeCompress(buffer, len, nullptr, 0, *pkg, 127, nullptr), 0);
  EXPECT_EQ(len, Pack(*pkg).size());
  len = sizeof(buffer);
  pkg->stHead.dwUserBuffLen = 1025;
  ASSERT_NE(PackWholeCsPkgMaybeCompress(buffer, len, nullptr, 0, *pkg, 127, nullptr), 0);
  EXPECT_EQ(len, sizeof(buffer));
}

TEST(CodecPack, RefusesAMissingBuffer) {
  const auto pkg = InsertPackage();
  size_t len = 4096;
  EXPECT_EQ(PackWholeCsPkgMaybeCompress(nullptr, len, nullptr, 0, *pkg, 127, nullptr),
            OSTRAND_CODEC_ERR_ARGUMENT);
}

TEST(CodecPack, WritesThePerformanceRecordFromVersion79On) {
  const auto pkg = InsertPackage();
  const size_t with = Pack(*pkg, nullptr, 79).size();
  const size_t without = Pack(*pkg, nullptr, 78).size();
  EXPECT_EQ(with, without + 4 + 88);
  const auto read = NewOStrandPkg();
  ASSERT_EQ(Unpack(*read, Pack(*pkg, nullptr, 78)), 0);
  EXPECT_EQ(read->stHead.wVersion, 78);
  EXPECT_EQ(read->stHead.dwPerfTestLen, 0u);
  EXPECT_EQ(read->stHead.stKeyInfo.dwFieldNum, 1u);
}

TEST(CodecPack, StatesTheVersionThatItWrites) {
  const auto pkg = InsertPackage();
  pkg->stHead.wVersion = 5;  // what the package says does not matter
  EXPECT_EQ(ToHex(Pack(*pkg, nullptr, 0).substr(kVersionOffset, 2)), "0000");
  EXPECT_EQ(ToHex(Pack(*pkg, nullptr, 119).substr(kVersionOffset, 2)), "0077");
  EXPECT_EQ(ToHex(Pack(*pkg, nullptr, 127).substr(kVersionOffset, 2)), "007F");
  EXPECT_EQ(ToHex(Pack(*pkg, nullptr, 128).substr(kVersionOffset, 2)), "007F");
  EXPECT_EQ(ToHex(Pack(*pkg, nullptr, 1 << 20).substr(kVersionOffset, 2)), "007F");
  int ret = 0;
  Pack(*pkg, &ret, -1);
  EXPECT_EQ(ret, OSTRAND_CODEC_ERR_VERSION);
}

TEST(CodecPack, WritesMagicAndLengthsWhateverThePackageHolds) {
  const auto pkg = NewPackage(OSTRAND_API_NOTIFY_STOP_RES);
  pkg->stHead.wMagic = 1;
  pkg->stHead.dwHeadLen = 2;
  pkg->stHead.dwBodyLen = 3;
  EXPECT_EQ(ToHex(Pack(*pkg).substr(0, 12)), "4F54007F0000005200000000");
}

// Everything that makes a package unfit, each with the code that says so.
struct Unfit {
  const char* name;
  uint32_t cmd;
  void (*spoil)(OStrandPkg& pkg);
  int code;
};

const Unfit kUnfit[] = {
    {"command", 7, [](OStrandPkg& pkg) { pkg.stHead.dwCmd = 31; }, OSTRAND_CODEC_ERR_COMMAND},
    {"request compression", 7, [](OStrandPkg& pkg) { pkg.stHead.bReqBodyCompressType = 1; },
     OSTRAND_CODEC_ERR_COMPRESSION},
    {"answer compression", 7, [](OStrandPkg& pkg) { pkg.stHead.bRespBodyCompressType = 1; },
     OSTRAND_CODEC_ERR_COMPRESSION},
    {"table name length", 7, [](OStrandPkg& pkg) { pkg.stHead.stRouterInfo.dwTableNameLen = 33; },
     OSTRAND_CODEC_ERR_TABLE_NAME},
    {"table name length without NUL", 7,
     [](OStrandPkg& pkg) { pkg.stHead.stRouterInfo.dwTableNameLen -= 1; }, OSTRAND_CODEC_ERR_TEXT},
    {"table name length over NUL", 7,
     [](OStrandPkg& pkg) {
       pkg.stHead.stRouterInfo.dwTableNameLen += 1;
       pkg.stHead.stRouterInfo.szTableName[pkg.stHead.stRouterInfo.dwTableNameLen - 1] = '\0';
     },
     OSTRAND_CODEC_ERR_TEXT},
    {"user buffer", 7, [](OStrandPkg& pkg) { pkg.stHead.dwUserBuffLen = 1025; },
     OSTRAND_CODEC_ERR_USER_BUFF_LEN},
    {"key fields", 7, [](OStrandPkg& pkg) { pkg.stHead.stKeyInfo.dwFieldNum = 9; },
     OSTRAND_CODEC_ERR_KEY_FIELD_NUM},
    {"key name", 7,
     [](OStrandPkg& pkg) { std::memset(pkg.stHead.stKeyInfo.astFields[0].szFieldName, 'x', 32); },
     OSTRAND_CODEC_ERR_TEXT},
    {"key value", 7, [](OStrandPkg& pkg) { pkg.stHead.stKeyInfo.astFields[0].dwFieldLen = 1025; },
     OSTRAND_CODEC_ERR_KEY_FIELD_LEN},
    {"split table key", 7, [](OStrandPkg& pkg) { pkg.stHead.dwSplitTableKeyBuffLen = 257; },
     OSTRAND_CODEC_ERR_SPLIT_TABLE_KEY_LEN},
    {"performance record", 7, [](OStrandPkg& pkg) { pkg.stHead.dwPerfTestLen = 257; },
     OSTRAND_CODEC_ERR_PERF_TEST_LEN},
    {"signature", 51,
     [](OStrandPkg& pkg) { std::memset(pkg.stBody.stAppSignupReq.szSignature, 'x', 1024); },
     OSTRAND_CODEC_ERR_TEXT},
    {"user name", 51,
     [](OStrandPkg& pkg) { std::memset(pkg.stBody.stAppSignupReq.szUserName, 'x', 33); },
     OSTRAND_CODEC_ERR_TEXT},
    {"password", 51,
     [](OStrandPkg& pkg) { std::memset(pkg.stBody.stAppSignupReq.szPasswordMd5, 'x', 128); },
     OSTRAND_CODEC_ERR_TEXT},
    {"schema image", 28, [](OStrandPkg& pkg) { pkg.stBody.stMetadataGetRes.iIdlConLen = 10485761; },
     OSTRAND_CODEC_ERR_IDL_LEN},
    {"negative schema image", 28,
     [](OStrandPkg& pkg) { pkg.stBody.stMetadataGetRes.iIdlConLen = -1; },
     OSTRAND_CODEC_ERR_IDL_LEN},
    {"two records in a get", 7,
     [](OStrandPkg& pkg) {
       RecordWriter writer(pkg.stBody.stRecords);
       ASSERT_EQ(writer.BeginRecord(), 0);
       ASSERT_EQ(writer.BeginRecord(), 0);
     },
     OSTRAND_CODEC_ERR_RECORD_NUM},
    {"records never constructed", 23, [](OStrandPkg& pkg) { std::memset(&pkg.stBody, 0x7F, 64); },
     OSTRAND_CODEC_ERR_RECORDS_LEN},
    {"records of nothing", 23, [](OStrandPkg& pkg) { pkg.stBody.stRecords.dwRecordNum = 1; },
     OSTRAND_CODEC_ERR_RECORD_LEN},
    {"set-TTL records", 89, [](OStrandPkg& pkg) { pkg.stBody.stSetTTLReq.dwRecordNum = 1025; },
     OSTRAND_CODEC_ERR_RECORD_NUM},
    {"get-TTL records", 91, [](OStrandPkg& pkg) { pkg.stBody.stGetTTLReq.dwRecordNum = 1025; },
     OSTRAND_CODEC_ERR_RECORD_NUM},
    {"TTL answers", 90, [](OStrandPkg& pkg) { pkg.stBody.stTTLRes.dwRecordNum = 1025; },
     OSTRAND_CODEC_ERR_RECORD_NUM},
    {"key fields of a TTL record", 91,
     [](OStrandPkg& pkg) {
       pkg.stBody.stGetTTLReq.dwRecordNum = 1;
       pkg.stBody.stGetTTLReq.astKeyInfo[0].dwFieldNum = 9;
     },
     OSTRAND_CODEC_ERR_KEY_FIELD_NUM},
};

TEST(CodecPack, RefusesUnfitPackages) {
  for (const Unfit& unfit : kUnfit) {
    const auto pkg = NewPackage(unfit.cmd);
    SetTableName(pkg->stHead, "players");
    AddKeyField(pkg->stHead.stKeyInfo, "id", "key");
    ASSERT_EQ(PackCode(*pkg), 0) << unfit.name;
    unfit.spoil(*pkg);
    EXPECT_EQ(PackCode(*pkg), unfit.code) << unfit.name;
  }
}

TEST(CodecPack, TheLargestFramesFitIntoTheStatedRoom) {
  const auto pkg = NewPackage(OSTRAND_API_SET_TTL_REQ);
  pkg->stHead.dwUserBuffLen = 1024;
  SetTableName(pkg->stHead, std::string(31, 't'));
  pkg->stHead.dwSplitTableKeyBuffLen = 256;
  pkg->stHead.dwPerfTestLen = 256;
  for (int i = 0; i < 8; ++i) {
    AddKeyField(pkg->stHead.stKeyInfo, std::string(31, 'k'), std::string(1024, 'v'));
  }
  pkg->stBody.stSetTTLReq.dwRecordNum = 1024;
  for (OStrandKeySet& keys : pkg->stBody.stSetTTLReq.astKeyInfo) {
    CTRecordDecodeHelper::CopyKeySet(keys, pkg->stHead.stKeyInfo);
  }
  const size_t largest_request = Pack(*pkg).size();
  EXPECT_EQ(largest_request, OSTRAND_MAX_REQ_FRAME_LEN);
  pkg->stHead.dwCmd = OSTRAND_API_METADATA_GET_RES;
  pkg->stBody.stMetadataGetRes.iIdlConLen = 10485760;
  EXPECT_EQ(Pack(*pkg).size(), OSTRAND_MAX_FRAME_LEN);
}

}  // namespace
}  // namespace ostrand_protocol_cs
