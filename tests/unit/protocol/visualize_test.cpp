#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <random>
#include <string>

#include "unit/protocol/package_kit.h"

namespace ostrand_protocol_cs {
namespace {

std::string Text(const OStrandPkg& pkg, int indent = 0, char separator = '\n') {
  std::string buffer(1 << 20, 'x');
  size_t used = 0;
  EXPECT_EQ(pkg.visualize(buffer.data(), buffer.size(), &used, indent, separator), 0);
  EXPECT_EQ(used, std::strlen(buffer.data()));
  return buffer.substr(0, used);
}

std::unique_ptr<OStrandPkg> HeartBeat() {
  auto pkg = NewPackage(OSTRAND_API_HEART_BEAT_REQ);
  pkg->stHead.iSeq = -5;
  pkg->stHead.stRouterInfo.iAppID = 7;
  SetTableName(pkg->stHead, "players");
  SetUserBuff(pkg->stHead, std::string_view("a\"\\\n\0\xFF~", 7));
  AddKeyField(pkg->stHead.stKeyInfo, "id", "key");
  pkg->stBody.stHeartBeatReq.llApiTimeUs = 1700000000123456;
  return pkg;
}

const char kHeartBeatText[] =
    "stHead:\n"
    "  wMagic: 20308\n"
    "  wVersion: 127\n"
    "  dwHeadLen: 0\n"
    "  dwBodyLen: 0\n"
    "  ullAsynID: 0\n"
    "  iSeq: -5\n"
    "  dwCmd: 53\n"
    "  cmd: OSTRAND_API_HEART_BEAT_REQ\n"
    "  iFlags: 0\n"
    "  stRouterInfo:\n"
    "    iAppID: 7\n"
    "    iZoneID: 0\n"
    "    iShardID: 0\n"
    "    dwTableNameLen: 8\n"
    "    szTableName: \"players\"\n"
    "  dwUserBuffLen: 7\n"
    "  szUserBuff: \"a\\x22\\x5C\\x0A\\x00\\xFF~\"\n"
    "  stKeyInfo:\n"
    "    iVersion: -1\n"
    "    dwFieldNum: 1\n"
    "    astFields[0]:\n"
    "      szFieldName: \"id\"\n"
    "      dwFieldLen: 3\n"
    "      szFieldBuff: \"key\"\n"
    "  iVexMetaVersion: -1\n"
    "  bReqBodyCompressType: 0\n"
    "  bRespBodyCompressType: 0\n"
    "  dwSplitTableKeyBuffLen: 0\n"
    "  szSplitTableKeyBuff: \"\"\n"
    "  iResult: 0\n"
    "  dwSubCmd: 0\n"
    "  dwPerfTestLen: 0\n"
    "  szPerfTest: \"\"\n"
    "stBody:\n"
    "  stHeartBeatReq:\n"
    "    tCurTime: 0\n"
    "    llApiTimeUs: 1700000000123456\n";

TEST(Visualize, RendersHeadAndBody) { EXPECT_EQ(Text(*HeartBeat()), kHeartBeatText); }

TEST(Visualize, BeginsAtTheIndentAndEndsItemsWithTheSeparator) {
  const std::string text = Text(*NewPackage(OSTRAND_API_NOTIFY_STOP_RES), 2, ';');
  EXPECT_EQ(text.substr(0, 31), "    stHead:;      wMagic: 20308");
  EXPECT_EQ(text.back(), ';');
  EXPECT_EQ(text.find('\n'), std::string::npos);
}

TEST(Visualize, RendersRecords) {
  const auto pkg = NewPackage(OSTRAND_API_GET_BY_PARTKEY_RES);
  OStrandMultiPkgRes& body = pkg->stBody.stGetByPartKeyRes;
  body.bHasMorePkgs = 1;
  RecordWriter writer(body.stRecords);
  ASSERT_EQ(writer.BeginRecord(), 0);
  ASSERT_EQ(writer.AddKeyField("id", "7"), 0);
  ASSERT_EQ(writer.AddValueField("v", std::string(300, 'v')), 0);
  const std::string text = Text(*pkg);
  EXPECT_EQ(text.substr(text.find("stBody:")),
            "stBody:\n"
            "  stGetByPartKeyRes:\n"
            "    iResult: 0\n"
            "    bHasMorePkgs: 1\n"
            "    stRecords:\n"
            "      dwRecordNum: 1\n"
            "      dwRecordsLen: 346\n"
            "      record[0]:\n"
            "        iResult: 0\n"
            "        iIndex: -1\n"
            "        iVersion: -1\n"
            "        key[0]:\n"
            "          name: \"id\"\n"
            "          len: 1\n"
            "          value: \"7\"\n"
            "        value[0]:\n"
            "          name: \"v\"\n"
            "          len: 300\n"
            "          value: \"" +
                std::string(256, 'v') + "\"...\n");
}

TEST(Visualize, FillsAnyBufferAndNoMore) {
  const auto pkg = HeartBeat();
  const std::string whole = Text(*pkg);
  for (size_t cap = 1; cap <= whole.size() + 2; ++cap) {
    const std::unique_ptr<char[]> buffer(new char[cap]);
    size_t used = 0;
    const int ret = pkg->visualize(buffer.get(), cap, &used, 0, '\n');
    EXPECT_EQ(ret, cap > whole.size() ? 0 : OSTRAND_CODEC_ERR_BUFFER_FULL) << cap;
    EXPECT_EQ(used, std::min(cap - 1, whole.size()));
    EXPECT_EQ(std::string(buffer.get()), whole.substr(0, used));
  }
}

TEST(Visualize, NeedsRoomForItsNul) {
  const auto pkg = HeartBeat();
  char byte = 'x';
  size_t used = 3;
  EXPECT_EQ(pkg->visualize(nullptr, 10, &used, 0, '\n'), OSTRAND_CODEC_ERR_ARGUMENT);
  EXPECT_EQ(pkg->visualize(&byte, 0, &used, 0, '\n'), OSTRAND_CODEC_ERR_ARGUMENT);
  EXPECT_EQ(byte, 'x');
  EXPECT_EQ(pkg->visualize(&byte, 1, nullptr, 0, '\n'), OSTRAND_CODEC_ERR_BUFFER_FULL);
  EXPECT_EQ(byte, '\0');
}

TEST(Visualize, RendersRandomPackagesOfEveryCommand) {
  std::mt19937 random(7);
  const auto pkg = NewOStrandPkg();
  std::string buffer(64 * 1024, 'x');
  for (const uint32_t cmd : AllCommands()) {
    FillRandom(*pkg, cmd, random);
    size_t used = 0;
    const int ret = pkg->visualize(buffer.data(), buffer.size(), &used, 0, '\n');
    EXPECT_TRUE(ret == 0 || ret == OSTRAND_CODEC_ERR_BUFFER_FULL) << ret;
    const std::string text(buffer.data());
    EXPECT_EQ(text.size(), used);
    EXPECT_NE(text.find(NameOfCmd(cmd)), std::string::npos) << cmd;
  }
}

// A package that somebody filled wrongly is shown as far as there is room in its fields.
TEST(Visualize, NeverLeavesAFieldWhateverItsLengthSays) {
  const auto pkg = NewPackage(OSTRAND_API_GET_TTL_REQ);
  std::memset(static_cast<void*>(&pkg->stHead), 0x7F, sizeof(pkg->stHead));
  std::string buffer(1 << 20, 'x');
  for (const uint32_t cmd : AllCommands()) {
    pkg->stHead.dwCmd = cmd;
    std::memset(static_cast<void*>(&pkg->stBody), 0x7F, 1 << 20);
    size_t used = 0;
    const int ret = pkg->visualize(buffer.data(), buffer.size(), &used, 0, '\n');
    EXPECT_TRUE(ret == 0 || ret == OSTRAND_CODEC_ERR_BUFFER_FULL) << ret;
    EXPECT_EQ(std::strlen(buffer.data()), used);
  }
  pkg->stHead.dwCmd = OSTRAND_API_GET_RES;
  EXPECT_NE(Text(*pkg).find("szRecords: malformed"), std::string::npos);
}

}  // namespace
}  // namespace ostrand_protocol_cs
