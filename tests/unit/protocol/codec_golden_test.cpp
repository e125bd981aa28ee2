// Whole frames, written out byte by byte: what packing produces and what unpacking reads.
#include <gtest/gtest.h>

#include <string>

#include "unit/protocol/package_kit.h"

namespace ostrand_protocol_cs {
namespace {

struct Golden {
  const char* name;
  uint32_t cmd;
  void (*fill)(OStrandPkg& pkg);
  const char* frame;
};

void FillSignupReq(OStrandPkg& pkg) {
  pkg.stHead.stRouterInfo.iAppID = 7;
  pkg.stHead.stRouterInfo.iZoneID = 3;
  pkg.stHead.iVexMetaVersion = 0;
  SetUserBuff(pkg.stHead, std::string_view("hostname=box\0", 13));
  SetText(pkg.stBody.stAppSignupReq.szSignature, "sig");
  pkg.stBody.stAppSignupReq.nType = 2;
  SetText(pkg.stBody.stAppSignupReq.szUserName, "al");
}

const char kSignupReq[] =
    "4F54 007F"                   // magic, version 127
    "0000005F 00000015"           // head of 95 bytes, body of 21
    "0000000000000000"            // asynchronous id
    "00000000 00000033"           // sequence, command 51
    "00000000"                    // flags
    "00000007 00000003 00000000"  // app, zone, shard
    "00000000"                    // no table name
    "0000000D"                    // user buffer of 13 bytes
    "686F73746E616D653D626F7800"  // "hostname=box" with its NUL
    "FFFFFFFF 00000000"           // key: version -1, no fields
    "00000000"                    // schema version
    "00 00"                       // compression of request and answer
    "00000000"                    // no split table key
    "00000000 00000000"           // result, sub-command
    "00000000"                    // no performance record
    "00000004 73696700"           // signature "sig"
    "0002"                        // its type
    "00000003 616C00"             // user name "al"
    "00000000";                   // no password

void FillSignupRes(OStrandPkg& pkg) {
  pkg.stHead.stRouterInfo.iAppID = 7;
  pkg.stHead.stRouterInfo.iZoneID = 3;
  pkg.stHead.iResult = -6413;
  pkg.stBody.stAppSignupRes.iResult = -6413;
}

const char kSignupRes[] =
    "4F54 007F"
    "00000052 00000004"  // head of 82 bytes, the least; body of 4
    "0000000000000000"
    "00000000 00000034"  // command 52
    "00000000"
    "00000007 00000003 00000000"
    "00000000"
    "00000000"
    "FFFFFFFF 00000000"
    "FFFFFFFF"  // schema version unknown
    "00 00"
    "00000000"
    "FFFFE6F3 00000000"  // result -6413
    "00000000"
    "FFFFE6F3";  // result -6413 again

void FillHeartBeatReq(OStrandPkg& pkg) {
  pkg.stHead.stRouterInfo.iAppID = -1;
  pkg.stHead.stRouterInfo.iZoneID = 3;
  SetUserBuff(pkg.stHead, std::string_view("AlarmCode=5,12;\0", 16));
  pkg.stBody.stHeartBeatReq.tCurTime = 0x0102030405060708;
  pkg.stBody.stHeartBeatReq.llApiTimeUs = 1700000000123456;
}

const char kHeartBeatReq[] =
    "4F54 007F"
    "00000062 00000010"  // head of 98 bytes, body of 16
    "0000000000000000"
    "00000000 00000035"  // command 53
    "00000000"
    "FFFFFFFF 00000003 00000000"  // app -1
    "00000000"
    "00000010"
    "416C61726D436F64653D352C31323B00"  // "AlarmCode=5,12;" with its NUL
    "FFFFFFFF 00000000"
    "FFFFFFFF"
    "00 00"
    "00000000"
    "00000000 00000000"
    "00000000"
    "0102030405060708"   // time
    "00060A2418202240";  // 1700000000123456 us

void FillHeartBeatRes(OStrandPkg& pkg) {
  SetUserBuff(pkg.stHead, "CpuUse=75;CpuTotal=800;");
  pkg.stBody.stHeartBeatRes.tCurTime = 1;
  pkg.stBody.stHeartBeatRes.llApiTimeUs = 1700000000123456;
  pkg.stBody.stHeartBeatRes.llProxyTimeUs = -1;
}

const char kHeartBeatRes[] =
    "4F54 007F"
    "00000069 00000018"  // head of 105 bytes, body of 24
    "0000000000000000"
    "00000000 00000036"  // command 54
    "00000000"
    "00000000 00000000 00000000"
    "00000000"
    "00000017"
    "4370755573653D37353B437075546F74616C3D3830303B"  // "CpuUse=75;CpuTotal=800;"
    "FFFFFFFF 00000000"
    "FFFFFFFF"
    "00 00"
    "00000000"
    "00000000 00000000"
    "00000000"
    "0000000000000001"
    "00060A2418202240"
    "FFFFFFFFFFFFFFFF";

void FillMetadataReq(OStrandPkg& pkg) {
  pkg.stHead.ullAsynID = 110;
  pkg.stHead.iSeq = -110;
  pkg.stHead.stRouterInfo.iAppID = 7;
  pkg.stHead.stRouterInfo.iZoneID = 3;
  SetTableName(pkg.stHead, "players");
  SetUserBuff(pkg.stHead, std::string_view("recheck proxy available\0", 24));
  pkg.stHead.iVexMetaVersion = 9;
}

const char kMetadataReq[] =
    "4F54 007F"
    "00000072 00000004"  // head of 114 bytes, body of 4
    "000000000000006E"   // asynchronous id 110
    "FFFFFF92 0000001B"  // sequence -110, command 27
    "00000000"
    "00000007 00000003 00000000"
    "00000008 706C617965727300"  // "players" with its NUL
    "00000018"
    "7265636865636B2070726F787920617661696C61626C6500"  // "recheck proxy available", its NUL
    "FFFFFFFF 00000000"
    "00000009"  // schema version 9
    "00 00"
    "00000000"
    "00000000 00000000"
    "00000000"
    "00000000";  // metadata version 0

void FillMetadataRes(OStrandPkg& pkg) {
  pkg.stHead.ullAsynID = 110;
  pkg.stHead.iSeq = -110;
  SetTableName(pkg.stHead, "players");
  OStrandMetadataGetRes& body = pkg.stBody.stMetadataGetRes;
  body.dwOstrandType = 2;
  body.iVexMetaCurrentVersion = 10;
  body.iIdlType = 1;
  body.iIdlConLen = 3;
  std::memcpy(body.szIdlContent, "\x00\xFF\x7F", 3);
}

const char kMetadataRes[] =
    "4F54 007F"
    "0000005A 00000013"  // head of 90 bytes, body of 19
    "000000000000006E"
    "FFFFFF92 0000001C"  // command 28
    "00000000"
    "00000000 00000000 00000000"
    "00000008 706C617965727300"
    "00000000"
    "FFFFFFFF 00000000"
    "FFFFFFFF"
    "00 00"
    "00000000"
    "00000000 00000000"
    "00000000"
    "00000002 0000000A 00000001"  // table type, schema version, kind of schema
    "00000003 00FF7F";            // image of 3 bytes

void FillStop(OStrandPkg& pkg) { pkg.stHead.ullAsynID = 0x1122334455667788; }

const char kStopReq[] =
    "4F54 007F 00000052 00000000"  // no body
    "1122334455667788"
    "00000000 00000043"  // command 67
    "00000000 00000000 00000000 00000000 00000000 00000000 FFFFFFFF 00000000"
    "FFFFFFFF 00 00 00000000 00000000 00000000 00000000";

const char kStopRes[] =
    "4F54 007F 00000052 00000000"
    "1122334455667788"
    "00000000 00000044"  // command 68
    "00000000 00000000 00000000 00000000 00000000 00000000 FFFFFFFF 00000000"
    "FFFFFFFF 00 00 00000000 00000000 00000000 00000000";

void FillGetReq(OStrandPkg& pkg) {
  pkg.stHead.ullAsynID = 42;
  pkg.stHead.iSeq = 1;
  pkg.stHead.iFlags = 1;
  pkg.stHead.stRouterInfo = {7, 3, 5, 0, {}};
  SetTableName(pkg.stHead, "t");
  SetUserBuff(pkg.stHead, "\x78\x56\x34\x12");
  AddKeyField(pkg.stHead.stKeyInfo, "id", "0123456789abcdef");
  AddKeyField(pkg.stHead.stKeyInfo, "zone", "");
  pkg.stHead.iVexMetaVersion = 9;
  pkg.stHead.dwSplitTableKeyBuffLen = 2;
  std::memcpy(pkg.stHead.szSplitTableKeyBuff, "sk", 2);
  pkg.stHead.dwPerfTestLen = 4;
  std::memcpy(pkg.stHead.szPerfTest, "perf", 4);
}

const char kGetReq[] =
    "4F54 007F"
    "00000086 00000008"  // head of 134 bytes, body of 8
    "000000000000002A"
    "00000001 00000007"  // command 7
    "00000001"           // flags
    "00000007 00000003 00000005"
    "00000002 7400"  // "t" with its NUL
    "00000004 78563412"
    "FFFFFFFF 00000002"                                          // two key fields
    "00000003 696400 00000010 30313233343536373839616263646566"  // id
    "00000005 7A6F6E6500 00000000"                               // zone, an empty value
    "00000009"
    "00 00"
    "00000002 736B"  // split table key "sk"
    "00000000 00000000"
    "00000004 70657266"   // performance record of 4 bytes
    "00000000 00000000";  // no record: all fields are wanted

void FillGetRes(OStrandPkg& pkg) {
  pkg.stHead.ullAsynID = 42;
  pkg.stHead.iSeq = 1;
  SetTableName(pkg.stHead, "t");
  RecordWriter writer(pkg.stBody.stRecords);
  RecordMark mark;
  mark.version = 3;
  ASSERT_EQ(writer.BeginRecord(mark), 0);
  ASSERT_EQ(writer.AddValueField("level", std::string_view("\0\0\0\x50", 4)), 0);
}

const char kGetRes[] =
    "4F54 007F"
    "00000054 00000032"  // head of 84 bytes, body of 50
    "000000000000002A"
    "00000001 00000008"  // command 8
    "00000000"
    "00000000 00000000 00000000"
    "00000002 7400"
    "00000000"
    "FFFFFFFF 00000000"
    "FFFFFFFF"
    "00 00"
    "00000000"
    "00000000 00000000"
    "00000000"
    "00000001 0000002A"           // one record, 42 bytes
    "0000002A"                    // the record's length
    "00000000 FFFFFFFF 00000003"  // its result, index, version
    "00000000 00000001"           // no key field, one value field
    "00000006 6C6576656C00"       // "level" with its NUL
    "00000004 00000050";

void FillInsertReq(OStrandPkg& pkg) {
  pkg.stHead.iSeq = 2;
  SetTableName(pkg.stHead, "t");
  AddKeyField(pkg.stHead.stKeyInfo, "id", "k");
  RecordWriter writer(pkg.stBody.stRecords);
  ASSERT_EQ(writer.BeginRecord(), 0);
  ASSERT_EQ(writer.AddValueField("a", "xyz"), 0);
  ASSERT_EQ(writer.AddValueField("b", ""), 0);
}

const char kInsertReq[] =
    "4F54 007F"
    "00000060 00000037"  // head of 96 bytes, body of 55
    "0000000000000000"
    "00000002 00000001"  // sequence 2, command 1
    "00000000"
    "00000000 00000000 00000000"
    "00000002 7400"
    "00000000"
    "FFFFFFFF 00000001"            // one key field
    "00000003 696400 00000001 6B"  // id = "k"
    "FFFFFFFF"
    "00 00"
    "00000000"
    "00000000 00000000"
    "00000000"
    "00000001 0000002F"  // one record, 47 bytes
    "0000002F"
    "00000000 FFFFFFFF FFFFFFFF"
    "00000000 00000002"              // no key field, two value fields
    "00000002 6100 00000003 78797A"  // a = "xyz"
    "00000002 6200 00000000";        // b, empty

void FillInsertRes(OStrandPkg& pkg) {
  pkg.stHead.iSeq = 2;
  pkg.stHead.iResult = -1293;
}

const char kInsertRes[] =
    "4F54 007F 00000052 00000008"
    "0000000000000000"
    "00000002 00000002"  // sequence 2, command 2
    "00000000 00000000 00000000 00000000 00000000 00000000 FFFFFFFF 00000000"
    "FFFFFFFF 00 00 00000000"
    "FFFFFAF3 00000000 00000000"  // result -1293
    "00000000 00000000";          // no record

void FillListGetAllRes(OStrandPkg& pkg) {
  pkg.stHead.dwSubCmd = 2;
  pkg.stBody.stListGetAllRes.iResult = -18963;
  pkg.stBody.stListGetAllRes.bHasMorePkgs = 1;
  RecordWriter writer(pkg.stBody.stListGetAllRes.stRecords);
  RecordMark mark;
  mark.index = 4;
  ASSERT_EQ(writer.BeginRecord(mark), 0);
}

const char kListGetAllRes[] =
    "4F54 007F 00000052 00000025"  // body of 37 bytes
    "0000000000000000"
    "00000000 0000000C"  // command 12
    "00000000 00000000 00000000 00000000 00000000 00000000 FFFFFFFF 00000000"
    "FFFFFFFF 00 00 00000000"
    "00000000 00000002 00000000"                              // package number 2
    "FFFFB5ED 01"                                             // result -18963, more packages follow
    "00000001 00000018"                                       // one record, 24 bytes
    "00000018 00000000 00000004 FFFFFFFF 00000000 00000000";  // an element of index 4, no fields

void FillSetTTLReq(OStrandPkg& pkg) {
  OStrandSetTTLReq& body = pkg.stBody.stSetTTLReq;
  body.dwRecordNum = 2;
  body.astKeyInfo[0].iVersion = -1;
  body.astKeyInfo[0].dwFieldNum = 0;
  AddKeyField(body.astKeyInfo[0], "id", "A");
  body.allTTLMs[0] = 60000;
  body.astKeyInfo[1].iVersion = 8;
  body.astKeyInfo[1].dwFieldNum = 0;
  AddKeyField(body.astKeyInfo[1], "id", "BC");
  body.allTTLMs[1] = -1;
}

const char kSetTTLReq[] =
    "4F54 007F 00000052 0000003D"  // body of 61 bytes
    "0000000000000000"
    "00000000 00000059"  // command 89
    "00000000 00000000 00000000 00000000 00000000 00000000 FFFFFFFF 00000000"
    "FFFFFFFF 00 00 00000000 00000000 00000000 00000000"
    "00000002"                     // two records
    "FFFFFFFF 00000001"            // key: any version, one field
    "00000003 696400 00000001 41"  // id = "A"
    "000000000000EA60"             // 60000 ms
    "00000008 00000001"
    "00000003 696400 00000002 4243"  // id = "BC"
    "FFFFFFFFFFFFFFFF";              // does not expire

void FillGetTTLRes(OStrandPkg& pkg) {
  pkg.stBody.stTTLRes.dwRecordNum = 1;
  pkg.stBody.stTTLRes.astRecordTTL[0] = {-1549, 60000};
}

const char kGetTTLRes[] =
    "4F54 007F 00000052 00000010"
    "0000000000000000"
    "00000000 0000005C"  // command 92
    "00000000 00000000 00000000 00000000 00000000 00000000 FFFFFFFF 00000000"
    "FFFFFFFF 00 00 00000000 00000000 00000000 00000000"
    "00000001"
    "FFFFF9F3 000000000000EA60";  // result -1549, 60000 ms

void FillBatchDeleteReq(OStrandPkg& pkg) {
  RecordWriter writer(pkg.stBody.stRecords);
  RecordMark mark;
  mark.index = 0;
  ASSERT_EQ(writer.BeginRecord(mark), 0);
  ASSERT_EQ(writer.AddKeyField("id", "A"), 0);
  mark.index = 1;
  mark.version = 6;
  ASSERT_EQ(writer.BeginRecord(mark), 0);
  ASSERT_EQ(writer.AddKeyField("id", ""), 0);
}

const char kBatchDeleteReq[] =
    "4F54 007F 00000052 0000004F"  // body of 79 bytes
    "0000000000000000"
    "00000000 00000097"  // command 151
    "00000000 00000000 00000000 00000000 00000000 00000000 FFFFFFFF 00000000"
    "FFFFFFFF 00 00 00000000 00000000 00000000 00000000"
    "00000002 00000047"                                      // two records, 71 bytes
    "00000024 00000000 00000000 FFFFFFFF 00000001 00000000"  // first, 36 bytes, one key field
    "00000003 696400 00000001 41"
    "00000023 00000000 00000001 00000006 00000001 00000000"  // second, 35 bytes, version 6
    "00000003 696400 00000000";

const Golden kGoldens[] = {
    {"SignupReq", 51, FillSignupReq, kSignupReq},
    {"SignupRes", 52, FillSignupRes, kSignupRes},
    {"HeartBeatReq", 53, FillHeartBeatReq, kHeartBeatReq},
    {"HeartBeatRes", 54, FillHeartBeatRes, kHeartBeatRes},
    {"MetadataReq", 27, FillMetadataReq, kMetadataReq},
    {"MetadataRes", 28, FillMetadataRes, kMetadataRes},
    {"StopReq", 67, FillStop, kStopReq},
    {"StopRes", 68, FillStop, kStopRes},
    {"GetReq", 7, FillGetReq, kGetReq},
    {"GetRes", 8, FillGetRes, kGetRes},
    {"InsertReq", 1, FillInsertReq, kInsertReq},
    {"InsertRes", 2, FillInsertRes, kInsertRes},
    {"ListGetAllRes", 12, FillListGetAllRes, kListGetAllRes},
    {"SetTTLReq", 89, FillSetTTLReq, kSetTTLReq},
    {"GetTTLRes", 92, FillGetTTLRes, kGetTTLRes},
    {"BatchDeleteReq", 151, FillBatchDeleteReq, kBatchDeleteReq},
};

class CodecGolden : public ::testing::TestWithParam<Golden> {
 protected:
  static std::unique_ptr<OStrandPkg> FilledPackage() {
    auto pkg = NewPackage(GetParam().cmd);
    GetParam().fill(*pkg);
    return pkg;
  }
};

TEST_P(CodecGolden, PacksToTheseBytes) {
  EXPECT_EQ(ToHex(Pack(*FilledPackage())), ToHex(FromHex(GetParam().frame)));
}

TEST_P(CodecGolden, UnpacksFromTheseBytes) {
  const std::string frame = FromHex(GetParam().frame);
  const auto pkg = NewOStrandPkg();
  ASSERT_EQ(Unpack(*pkg, frame), 0);
  EXPECT_TRUE(SamePackage(*FilledPackage(), *pkg));
  EXPECT_EQ(size_t{pkg->stHead.dwHeadLen} + pkg->stHead.dwBodyLen, frame.size());
}

INSTANTIATE_TEST_SUITE_P(Frames, CodecGolden, ::testing::ValuesIn(kGoldens),
                         [](const auto& test) { return std::string(test.param.name); });

// The head's fixed part, whose places others rely on without the codec.
TEST(CodecGolden, FixedHeadIsAtItsOffsets) {
  const auto pkg = NewPackage(OSTRAND_API_GET_REQ);
  pkg->stHead.ullAsynID = 0x0102030405060708;
  pkg->stHead.iSeq = 0x11121314;
  const std::string frame = Pack(*pkg);
  EXPECT_EQ(ToHex(frame.substr(0, 2)), "4F54");
  EXPECT_EQ(ToHex(frame.substr(2, 2)), "007F");
  EXPECT_EQ(ToHex(frame.substr(4, 4)), "00000052");
  EXPECT_EQ(ToHex(frame.substr(8, 4)), "00000008");
  EXPECT_EQ(ToHex(frame.substr(12, 8)), "0102030405060708");
  EXPECT_EQ(ToHex(frame.substr(20, 4)), "11121314");
  EXPECT_EQ(ToHex(frame.substr(24, 4)), "00000007");
}

}  // namespace
}  // namespace ostrand_protocol_cs
