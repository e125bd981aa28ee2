// Unpacking of frames that somebody else wrote: bounds, broken frames, frames of other versions.
#include <gtest/gtest.h>

#include <string>

#include "unit/protocol/package_kit.h"
#include "unit/protocol/raw_frame.h"

namespace ostrand_protocol_cs {
namespace {

const std::string kHeartBeatBody(16, '\0');
const std::string kNoRecords = RawRecordsBody(0, "");

int UnpackCode(const std::string& frame) {
  static const std::unique_ptr<OStrandPkg> pkg = NewOStrandPkg();
  return Unpack(*pkg, frame);
}

int UnpackCode(const RawFrame& frame) { return UnpackCode(frame.Bytes()); }

TEST(CodecUnpack, ReadsTheLeastFrame) { EXPECT_EQ(UnpackCode(RawFrame(68)), 0); }

TEST(CodecUnpack, RefusesAMissingFrame) {
  const auto pkg = NewOStrandPkg();
  EXPECT_EQ(UnpackWholeCsPkgMaybeDecompress(*pkg, nullptr, 0, nullptr, 100, nullptr, nullptr, 0),
            OSTRAND_CODEC_ERR_ARGUMENT);
}

TEST(CodecUnpack, RefusesAFrameShorterThanTheFixedHead) {
  const std::string frame = RawFrame(68).Bytes();
  EXPECT_EQ(UnpackCode(std::string()), OSTRAND_CODEC_ERR_FRAME_SHORT);
  EXPECT_EQ(UnpackCode(frame.substr(0, 27)), OSTRAND_CODEC_ERR_FRAME_SHORT);
  EXPECT_EQ(UnpackCode(frame.substr(0, 28)), OSTRAND_CODEC_ERR_FRAME_LEN);
}

TEST(CodecUnpack, RefusesAWrongMagic) {
  RawFrame frame(68);
  frame.magic = 0x544F;
  EXPECT_EQ(UnpackCode(frame), OSTRAND_CODEC_ERR_MAGIC);
}

TEST(CodecUnpack, RefusesAHeadLengthBelowTheFixedHead) {
  for (const uint32_t head_len : {0u, 1u, 12u, 27u}) {
    RawFrame frame(68);
    frame.head_len = head_len;
    frame.body_len = static_cast<uint32_t>(frame.Bytes().size()) - head_len;
    EXPECT_EQ(UnpackCode(frame), OSTRAND_CODEC_ERR_HEAD_LEN) << head_len;
  }
}

TEST(CodecUnpack, RefusesLengthsThatDoNotAddUpToTheFrame) {
  const auto least = static_cast<uint32_t>(RawFrame(68).Bytes().size());
  const std::pair<uint32_t, uint32_t> lengths[] = {
      {least, 1},          {least - 1, 0},
      {least + 1, 0},      {28, least},
      {0xFFFFFFFF, 0},     {0xFFFFFFF0, least + 16},
      {least, 0xFFFFFFFF}, {0x80000000, 0x80000000 + least},
  };
  for (const auto& [head_len, body_len] : lengths) {
    RawFrame frame(68);
    frame.head_len = head_len;
    frame.body_len = body_len;
    EXPECT_EQ(UnpackCode(frame), OSTRAND_CODEC_ERR_FRAME_LEN) << head_len << " " << body_len;
  }
}

TEST(CodecUnpack, RefusesABareFixedHeadOfEveryCommand) {
  for (const uint32_t cmd : AllCommands()) {
    const std::string bare =
        "\x4F\x54" + BigEndian(127, 2) + U32(28) + U32(0) + BigEndian(0, 8) + U32(0) + U32(cmd);
    ASSERT_EQ(bare.size(), 28u);
    EXPECT_EQ(UnpackCode(bare), OSTRAND_CODEC_ERR_HEAD_TRUNCATED) << cmd;
  }
}

TEST(CodecUnpack, RefusesUnknownCommands) {
  for (const uint32_t cmd : {0u, 31u, 106u, 107u, 4214u, 4231u, 0xFFFFFFFFu}) {
    EXPECT_EQ(UnpackCode(RawFrame(cmd)), OSTRAND_CODEC_ERR_COMMAND) << cmd;
  }
}

TEST(CodecUnpack, RefusesCompression) {
  for (const char* types : {"\x01\x00", "\x00\x01", "\xFF\xFF"}) {
    RawFrame frame(68);
    frame.compress_types = std::string(types, 2);
    EXPECT_EQ(UnpackCode(frame), OSTRAND_CODEC_ERR_COMPRESSION);
  }
}

RawFrame WithUserBuff(size_t len) {
  RawFrame frame(68);
  frame.user_buff = Counted(std::string(len, 'u'));
  return frame;
}

RawFrame WithKeyFields(uint32_t num) {
  RawFrame frame(68);
  frame.key_field_num = num;
  for (uint32_t i = 0; i < num; ++i) {
    frame.key_fields += RawField("k", "v");
  }
  return frame;
}

RawFrame WithPerfTest(size_t len) {
  RawFrame frame(68);
  frame.perf_test = Counted(std::string(len, 'p'));
  return frame;
}

RawFrame WithRecordField(uint32_t key_num, const std::string& field) {
  return RawFrame(23, RawRecordsBody(1, RawRecord(key_num, 1 - key_num, field)));
}

TEST(CodecUnpack, AFullUserBufferKeepsItsLastByte) {
  const auto pkg = NewOStrandPkg();
  ASSERT_EQ(Unpack(*pkg, WithUserBuff(1024).Bytes()), 0);
  EXPECT_EQ(pkg->stHead.dwUserBuffLen, 1024u);
  EXPECT_EQ(std::string(pkg->stHead.szUserBuff, 1024), std::string(1024, 'u'));
}

TEST(CodecUnpack, EndsAShorterUserBufferWithANul) {
  const auto pkg = NewOStrandPkg();
  ASSERT_EQ(Unpack(*pkg, WithUserBuff(1024).Bytes()), 0);
  ASSERT_EQ(Unpack(*pkg, WithUserBuff(3).Bytes()), 0);
  EXPECT_STREQ(pkg->stHead.szUserBuff, "uuu");
}

TEST(CodecUnpack, RefusesANegativeImageLength) {
  const RawFrame frame(28, U32(0) + U32(0) + U32(0) + U32(0xFFFFFFFF));
  EXPECT_EQ(UnpackCode(frame), OSTRAND_CODEC_ERR_IDL_LEN);
}

TEST(CodecUnpack, RefusesLengthsBehindTheEndOfTheHead) {
  RawFrame user_buff(68);
  user_buff.user_buff = U32(1000);
  EXPECT_EQ(UnpackCode(user_buff), OSTRAND_CODEC_ERR_HEAD_TRUNCATED);
  RawFrame key(68);
  key.key_field_num = 8;
  EXPECT_EQ(UnpackCode(key), OSTRAND_CODEC_ERR_HEAD_TRUNCATED);
  // The bytes that the length asks for stand in the frame, but in its body.
  RawFrame perf(8, std::string(300, '\0'));
  perf.perf_test = U32(200);
  EXPECT_EQ(UnpackCode(perf), OSTRAND_CODEC_ERR_HEAD_TRUNCATED);
}

TEST(CodecUnpack, RefusesTextsThatDoNotEndAtTheirLength) {
  RawFrame frame(68);
  for (const std::string_view name : {std::string_view("abcd"), std::string_view("ab\0d", 4),
                                      std::string_view("ab\0\0", 4), std::string_view("\0\0", 2)}) {
    frame.table_name = Counted(name);
    EXPECT_EQ(UnpackCode(frame), OSTRAND_CODEC_ERR_TEXT);
  }
  frame = RawFrame(68);
  frame.key_field_num = 1;
  frame.key_fields = Counted("key") + Counted("v");
  EXPECT_EQ(UnpackCode(frame), OSTRAND_CODEC_ERR_TEXT);
  EXPECT_EQ(UnpackCode(WithRecordField(0, Counted("name") + Counted("v"))), OSTRAND_CODEC_ERR_TEXT);
  EXPECT_EQ(UnpackCode(WithRecordField(1, Counted("name") + Counted("v"))), OSTRAND_CODEC_ERR_TEXT);
}

TEST(CodecUnpack, AnEmptyTextMayCarryItsNul) {
  RawFrame frame(68);
  frame.table_name = NamedText("");
  const auto pkg = NewOStrandPkg();
  ASSERT_EQ(Unpack(*pkg, frame.Bytes()), 0);
  EXPECT_STREQ(pkg->stHead.stRouterInfo.szTableName, "");
  EXPECT_EQ(pkg->stHead.stRouterInfo.dwTableNameLen, 1u);
}

TEST(CodecUnpack, AKeyFieldOfTheHeadMayLackItsNameAFieldOfARecordMayNot) {
  RawFrame frame(68);
  frame.key_field_num = 1;
  frame.key_fields = U32(0) + Counted("v");
  EXPECT_EQ(UnpackCode(frame), 0);
  EXPECT_EQ(UnpackCode(WithRecordField(0, U32(0) + Counted("v"))), OSTRAND_CODEC_ERR_FIELD_NAME);
  EXPECT_EQ(UnpackCode(WithRecordField(0, RawField("", "v"))), OSTRAND_CODEC_ERR_FIELD_NAME);
}

TEST(CodecUnpack, RefusesBodiesTooShortOrTooLong) {
  EXPECT_EQ(UnpackCode(RawFrame(53, kHeartBeatBody)), 0);
  EXPECT_EQ(UnpackCode(RawFrame(53, kHeartBeatBody.substr(1))), OSTRAND_CODEC_ERR_BODY_TRUNCATED);
  EXPECT_EQ(UnpackCode(RawFrame(53, kHeartBeatBody + "x")), OSTRAND_CODEC_ERR_BODY_TRAILING);
  EXPECT_EQ(UnpackCode(RawFrame(53)), OSTRAND_CODEC_ERR_BODY_TRUNCATED);
  EXPECT_EQ(UnpackCode(RawFrame(67, "x")), OSTRAND_CODEC_ERR_BODY_TRAILING);
}

TEST(CodecUnpack, PassesOverTheBodyOfCommandsWithoutARecordOfIt) {
  const auto pkg = NewOStrandPkg();
  for (const uint32_t cmd : AllCommands()) {
    if (BodyKindOfCmd(cmd) != BodyKind::kSkipped) {
      continue;
    }
    RawFrame frame(cmd, "whatever it says");
    frame.result = static_cast<uint32_t>(-1549);
    EXPECT_EQ(Unpack(*pkg, frame.Bytes()), 0) << cmd;
    EXPECT_EQ(pkg->stHead.iResult, -1549);
    EXPECT_EQ(pkg->stHead.dwBodyLen, 16u);
  }
}

TEST(CodecUnpack, AFailedAnswerMayComeWithoutBody) {
  RawFrame frame(26);
  EXPECT_EQ(UnpackCode(frame), OSTRAND_CODEC_ERR_BODY_TRUNCATED);
  frame.result = static_cast<uint32_t>(-8205);
  const auto pkg = NewOStrandPkg();
  pkg->stBody.stGetByPartKeyRes.bHasMorePkgs = 1;
  ASSERT_EQ(Unpack(*pkg, frame.Bytes()), 0);
  EXPECT_EQ(pkg->stHead.iResult, -8205);
  EXPECT_EQ(pkg->stBody.stGetByPartKeyRes.bHasMorePkgs, 0);
  EXPECT_EQ(pkg->stBody.stGetByPartKeyRes.stRecords.dwRecordNum, 0u);
}

TEST(CodecUnpack, ARequestNeverLacksItsBody) {
  RawFrame frame(25);
  frame.result = static_cast<uint32_t>(-8205);
  EXPECT_EQ(UnpackCode(frame), OSTRAND_CODEC_ERR_BODY_TRUNCATED);
}

TEST(CodecUnpack, PassesOverWhatANewerPeerAddsToTheHead) {
  RawFrame frame(53, kHeartBeatBody);
  frame.version = 128;
  frame.behind_head = "new fields";
  EXPECT_EQ(UnpackCode(frame), 0);
  frame.version = 127;
  EXPECT_EQ(UnpackCode(frame), 0);
}

TEST(CodecUnpack, PassesOverWhatANewerPeerAddsToTheBody) {
  RawFrame frame(53, kHeartBeatBody + "new fields");
  frame.version = 128;
  EXPECT_EQ(UnpackCode(frame), 0);
  frame.version = 127;
  EXPECT_EQ(UnpackCode(frame), OSTRAND_CODEC_ERR_BODY_TRAILING);
}

TEST(CodecUnpack, ReadsNoPerformanceRecordBeforeVersion79) {
  RawFrame frame = WithPerfTest(88);
  const auto pkg = NewOStrandPkg();
  frame.version = 79;
  ASSERT_EQ(Unpack(*pkg, frame.Bytes()), 0);
  EXPECT_EQ(pkg->stHead.dwPerfTestLen, 88u);
  frame.version = 78;
  ASSERT_EQ(Unpack(*pkg, frame.Bytes()), 0);
  EXPECT_EQ(pkg->stHead.dwPerfTestLen, 0u);
  frame.perf_test.clear();
  EXPECT_EQ(UnpackCode(frame), 0);
  frame.version = 79;
  EXPECT_EQ(UnpackCode(frame), OSTRAND_CODEC_ERR_HEAD_TRUNCATED);
}

TEST(CodecUnpack, RefusesRecordsWhoseLengthsDoNotAgree) {
  const std::string field = RawField("f", "value");
  const std::string record = RawRecord(0, 1, field);
  const auto code = [](const std::string& body) { return UnpackCode(RawFrame(23, body)); };
  EXPECT_EQ(code(RawRecordsBody(1, record)), 0);
  // Fewer and more records than stated, bytes of no record.
  EXPECT_EQ(code(RawRecordsBody(2, record)), OSTRAND_CODEC_ERR_RECORD_LEN);
  EXPECT_EQ(code(RawRecordsBody(0, record)), OSTRAND_CODEC_ERR_RECORD_LEN);
  EXPECT_EQ(code(RawRecordsBody(1, record + "x")), OSTRAND_CODEC_ERR_RECORD_LEN);
  EXPECT_EQ(code(RawRecordsBody(0xFFFFFFFF, record)), OSTRAND_CODEC_ERR_RECORD_LEN);
  // More fields than there are, bytes behind the fields, a record that lies about its length.
  EXPECT_EQ(code(RawRecordsBody(1, RawRecord(0, 2, field))), OSTRAND_CODEC_ERR_RECORD_LEN);
  EXPECT_EQ(code(RawRecordsBody(1, RawRecord(0, 0, field))), OSTRAND_CODEC_ERR_RECORD_LEN);
  EXPECT_EQ(code(RawRecordsBody(1, U32(record.size() + 1) + record.substr(4))),
            OSTRAND_CODEC_ERR_RECORD_LEN);
  EXPECT_EQ(code(RawRecordsBody(1, U32(0) + record.substr(4))), OSTRAND_CODEC_ERR_RECORD_LEN);
  // A value that ends behind the records.
  EXPECT_EQ(code(RawRecordsBody(1, RawRecord(0, 1, NamedText("f") + U32(9) + "value"))),
            OSTRAND_CODEC_ERR_RECORD_LEN);
  // Records that end behind the body.
  EXPECT_EQ(code(U32(1) + U32(record.size() + 1) + record), OSTRAND_CODEC_ERR_BODY_TRUNCATED);
}

TEST(CodecUnpack, AFailureLeavesAConstructedHead) {
  const auto pkg = NewPackage(OSTRAND_API_GET_REQ);
  SetTableName(pkg->stHead, "before");
  RawFrame frame = WithKeyFields(8);
  frame.table_name = NamedText("after");
  frame.cmd = OSTRAND_API_HEART_BEAT_RES;
  ASSERT_EQ(Unpack(*pkg, frame.Bytes()), OSTRAND_CODEC_ERR_BODY_TRUNCATED);
  EXPECT_EQ(pkg->stHead.dwCmd, 0u);
  EXPECT_EQ(pkg->stHead.stRouterInfo.dwTableNameLen, 0u);
  EXPECT_STREQ(pkg->stHead.stRouterInfo.szTableName, "");
  EXPECT_EQ(pkg->stHead.stKeyInfo.dwFieldNum, 0u);
}

TEST(CodecUnpack, TouchesOnlyWhatTheFrameCarries) {
  const auto pkg = NewOStrandPkg();
  pkg->stHead.stKeyInfo.astFields[1].szFieldBuff[0] = 'x';
  pkg->stHead.stKeyInfo.astFields[0].szFieldBuff[1000] = 'y';
  pkg->stBody.stMetadataGetRes.szIdlContent[100] = 'z';
  ASSERT_EQ(Unpack(*pkg, WithKeyFields(1).Bytes()), 0);
  const RawFrame image(28, std::string(12, '\0') + Counted(std::string(100, 'i')));
  ASSERT_EQ(Unpack(*pkg, image.Bytes()), 0);
  EXPECT_EQ(pkg->stHead.stKeyInfo.astFields[1].szFieldBuff[0], 'x');
  EXPECT_EQ(pkg->stHead.stKeyInfo.astFields[0].szFieldBuff[1000], 'y');
  // A NUL may stand behind the image, nothing else is touched.
  EXPECT_EQ(pkg->stBody.stMetadataGetRes.szIdlContent[100], '\0');
}

}  // namespace
}  // namespace ostrand_protocol_cs
