#include <gtest/gtest.h>

#include <cstring>

#include "unit/protocol/package_kit.h"

namespace ostrand_protocol_cs {
namespace {

TEST(Construct, AHeadBeginsWithItsDefaults) {
  const auto pkg = NewOStrandPkg();
  OStrandPkgHead& head = pkg->stHead;
  std::memset(&head, 0x5A, sizeof(head));
  ASSERT_EQ(head.construct(), 0);
  EXPECT_EQ(head.wMagic, 0x4F54);
  EXPECT_EQ(head.wVersion, 127);
  EXPECT_EQ(head.dwHeadLen, 0u);
  EXPECT_EQ(head.dwBodyLen, 0u);
  EXPECT_EQ(head.ullAsynID, 0u);
  EXPECT_EQ(head.iSeq, 0);
  EXPECT_EQ(head.dwCmd, 0u);
  EXPECT_EQ(head.iFlags, 0);
  EXPECT_EQ(head.stRouterInfo.iAppID, 0);
  EXPECT_EQ(head.stRouterInfo.iZoneID, 0);
  EXPECT_EQ(head.stRouterInfo.iShardID, 0);
  EXPECT_EQ(head.stRouterInfo.dwTableNameLen, 0u);
  EXPECT_STREQ(head.stRouterInfo.szTableName, "");
  EXPECT_EQ(head.dwUserBuffLen, 0u);
  EXPECT_STREQ(head.szUserBuff, "");
  EXPECT_EQ(head.stKeyInfo.iVersion, -1);
  EXPECT_EQ(head.stKeyInfo.dwFieldNum, 0u);
  EXPECT_EQ(head.iVexMetaVersion, -1);
  EXPECT_EQ(head.bReqBodyCompressType, 0);
  EXPECT_EQ(head.bRespBodyCompressType, 0);
  EXPECT_EQ(head.dwSplitTableKeyBuffLen, 0u);
  EXPECT_EQ(head.iResult, 0);
  EXPECT_EQ(head.dwSubCmd, 0u);
  EXPECT_EQ(head.dwPerfTestLen, 0u);
}

TEST(Construct, ANewPackageHasAConstructedHead) {
  EXPECT_EQ(NewOStrandPkg()->stHead.wMagic, 0x4F54);
  EXPECT_EQ(NewOStrandPkg()->stHead.dwCmd, 0u);
}

TEST(Construct, TheHeadsRecordHasItsCapacities) {
  const auto pkg = NewOStrandPkg();
  EXPECT_EQ(sizeof(pkg->stHead.szUserBuff), 1024u);
  EXPECT_EQ(sizeof(pkg->stHead.stRouterInfo.szTableName), 32u);
  EXPECT_EQ(sizeof(pkg->stHead.szPerfTest), 256u);
  EXPECT_EQ(sizeof(pkg->stHead.stKeyInfo.astFields) / sizeof(OStrandKeyField), 8u);
  EXPECT_EQ(sizeof(OStrandKeyField::szFieldName), 32u);
  EXPECT_EQ(sizeof(OStrandKeyField::szFieldBuff), 1024u);
  EXPECT_EQ(sizeof(OStrandAppSignupReq::szSignature), 1024u);
  EXPECT_EQ(sizeof(OStrandAppSignupReq::szUserName), 33u);
  EXPECT_EQ(sizeof(OStrandAppSignupReq::szPasswordMd5), 128u);
  EXPECT_EQ(sizeof(OStrandMetadataGetRes::szIdlContent), 10485760u);
}

// A body full of old bytes is, once constructed, an empty body: it packs, and to the same bytes as
// the body of a package fresh from zeroed memory.
TEST(Construct, EveryCommandsBodyBeginsEmpty) {
  const auto used = NewOStrandPkg();
  const auto fresh = NewOStrandPkg();
  for (const uint32_t cmd : AllCommands()) {
    std::memset(&used->stBody, 0x5A, 4096);
    std::memset(&fresh->stBody, 0, 4096);
    used->stHead.dwCmd = cmd;
    fresh->stHead.dwCmd = cmd;
    ASSERT_EQ(used->stBody.construct(cmd), 0) << cmd;
    EXPECT_EQ(Pack(*used), Pack(*fresh)) << cmd;
  }
}

TEST(Construct, AnUnknownCommandIsRefusedAndTouchesNothing) {
  const auto pkg = NewOStrandPkg();
  std::memset(&pkg->stBody, 0x5A, 4096);
  for (const int64_t cmd : {int64_t{0}, int64_t{-1}, int64_t{31}, int64_t{107}, INT64_MAX}) {
    EXPECT_EQ(pkg->stBody.construct(cmd), OSTRAND_CODEC_ERR_COMMAND) << cmd;
  }
  EXPECT_EQ(pkg->stBody.stHeartBeatReq.tCurTime, 0x5A5A5A5A5A5A5A5A);
}

TEST(Construct, TouchesTheFirstBytesOfALargeBodyOnly) {
  const auto pkg = NewOStrandPkg();
  for (const uint32_t cmd : AllCommands()) {
    pkg->stBody.stMetadataGetRes.szIdlContent[5000] = 'x';
    ASSERT_EQ(pkg->stBody.construct(cmd), 0);
    EXPECT_EQ(pkg->stBody.stMetadataGetRes.szIdlContent[5000], 'x') << cmd;
  }
}

}  // namespace
}  // namespace ostrand_protocol_cs
