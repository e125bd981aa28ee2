// Over packages of every command, filled at random from a fixed seed: what was packed is what is
// unpacked; a frame that was cut or changed anywhere gives a code or a package that is sound. Every
// frame is read from an allocation of its own size, so that a sanitizer build sees any over-read.
#include <gtest/gtest.h>

#include <random>
#include <string>

#include "unit/protocol/package_kit.h"
#include "unit/protocol/raw_frame.h"

namespace ostrand_protocol_cs {
namespace {

constexpr unsigned kSeed = 20240229;
constexpr size_t kHeadLenOffset = 4;
constexpr size_t kBodyLenOffset = 8;

bool HasBodyRecord(uint32_t cmd) {
  const BodyKind kind = BodyKindOfCmd(cmd);
  return kind != BodyKind::kNothing && kind != BodyKind::kSkipped;
}

TEST(CodecProperty, WhatWasPackedIsWhatIsUnpacked) {
  std::mt19937 random(kSeed);
  const auto sent = NewOStrandPkg();
  const auto received = NewOStrandPkg();
  for (int round = 0; round < 20; ++round) {
    for (const uint32_t cmd : AllCommands()) {
      FillRandom(*sent, cmd, random);
      const std::string frame = Pack(*sent);
      ASSERT_EQ(Unpack(*received, frame), 0) << cmd << " round " << round;
      ASSERT_TRUE(SamePackage(*sent, *received)) << cmd << " round " << round;
      ASSERT_EQ(Pack(*received), frame) << cmd << " round " << round;
    }
  }
}

// A package of a command whose frame has a byte of everything and stays small.
std::unique_ptr<OStrandPkg> SmallPackage(uint32_t cmd) {
  auto pkg = NewPackage(cmd);
  SetTableName(pkg->stHead, "t");
  SetUserBuff(pkg->stHead, "ub");
  AddKeyField(pkg->stHead.stKeyInfo, "k", "v");
  pkg->stHead.dwSplitTableKeyBuffLen = 1;
  pkg->stHead.dwPerfTestLen = 2;
  OStrandPkgBody& body = pkg->stBody;
  OStrandRecords* records = nullptr;
  switch (BodyKindOfCmd(cmd)) {
    case BodyKind::kRecord:
    case BodyKind::kRecords: records = &body.stRecords; break;
    case BodyKind::kListGetAllRes: records = &body.stListGetAllRes.stRecords; break;
    case BodyKind::kGetByPartKeyRes: records = &body.stGetByPartKeyRes.stRecords; break;
    case BodyKind::kMetadataGetRes: body.stMetadataGetRes.iIdlConLen = 3; break;
    case BodyKind::kAppSignupReq: SetText(body.stAppSignupReq.szUserName, "me"); break;
    case BodyKind::kSetTTLReq:
      body.stSetTTLReq.dwRecordNum = 1;
      CTRecordDecodeHelper::CopyKeySet(body.stSetTTLReq.astKeyInfo[0], pkg->stHead.stKeyInfo);
      break;
    case BodyKind::kGetTTLReq:
      body.stGetTTLReq.dwRecordNum = 1;
      CTRecordDecodeHelper::CopyKeySet(body.stGetTTLReq.astKeyInfo[0], pkg->stHead.stKeyInfo);
      break;
    case BodyKind::kTTLRes: body.stTTLRes.dwRecordNum = 1; break;
    default: break;
  }
  if (records != nullptr) {
    RecordWriter writer(*records);
    EXPECT_EQ(writer.BeginRecord(), 0);
    EXPECT_EQ(writer.AddKeyField("k", "v"), 0);
    EXPECT_EQ(writer.AddValueField("f", "val"), 0);
  }
  return pkg;
}

TEST(CodecProperty, AFrameCutAnywhereIsRefused) {
  const auto received = NewOStrandPkg();
  for (const uint32_t cmd : AllCommands()) {
    const std::string frame = Pack(*SmallPackage(cmd));
    for (size_t len = 0; len < frame.size(); ++len) {
      ASSERT_LT(Unpack(*received, frame.substr(0, len)), 0) << cmd << " cut to " << len;
    }
  }
}

// The lengths tell the truth about the cut frame, so that only the fields themselves can tell.
TEST(CodecProperty, AHeadOrBodyCutAnywhereIsRefusedThoughItsLengthSaysSo) {
  const auto received = NewOStrandPkg();
  for (const uint32_t cmd : AllCommands()) {
    std::string frame = Pack(*SmallPackage(cmd));
    ASSERT_EQ(Unpack(*received, frame), 0);
    const size_t head_len = received->stHead.dwHeadLen;
    const std::string body = frame.substr(head_len);
    for (size_t len = 28; len < head_len; ++len) {
      std::string cut = frame.substr(0, len) + body;
      cut.replace(kHeadLenOffset, 4, U32(len));
      ASSERT_EQ(Unpack(*received, cut), OSTRAND_CODEC_ERR_HEAD_TRUNCATED) << cmd << " " << len;
    }
    for (size_t len = 0; len < body.size() && HasBodyRecord(cmd); ++len) {
      std::string cut = frame.substr(0, head_len + len);
      cut.replace(kBodyLenOffset, 4, U32(len));
      ASSERT_EQ(Unpack(*received, cut), OSTRAND_CODEC_ERR_BODY_TRUNCATED) << cmd << " " << len;
    }
  }
}

// A changed frame that is taken must be a sound package: packed, it gives a frame that is taken
// again and means the same.
TEST(CodecProperty, AFlippedBitGivesACodeOrASoundPackage) {
  const auto received = NewOStrandPkg();
  const auto again = NewOStrandPkg();
  size_t taken = 0;
  size_t refused = 0;
  for (const uint32_t cmd : AllCommands()) {
    const std::string frame = Pack(*SmallPackage(cmd));
    for (size_t bit = 0; bit < 8 * frame.size(); ++bit) {
      std::string flipped = frame;
      flipped[bit / 8] = static_cast<char>(flipped[bit / 8] ^ (1 << (bit % 8)));
      const int ret = Unpack(*received, flipped);
      if (ret != 0) {
        ASSERT_NE(CodecErrorText(ret), nullptr) << ret;
        ++refused;
        continue;
      }
      ++taken;
      ASSERT_EQ(Unpack(*again, Pack(*received, nullptr, received->stHead.wVersion)), 0)
          << cmd << " bit " << bit;
      again->stHead.wVersion = received->stHead.wVersion;
      ASSERT_TRUE(SamePackage(*received, *again)) << cmd << " bit " << bit;
    }
  }
  EXPECT_GT(taken, 0u);
  EXPECT_GT(refused, 0u);
}

TEST(CodecProperty, RandomBytesBehindAGoodBeginningNeverDoHarm) {
  std::mt19937 random(kSeed);
  const auto received = NewOStrandPkg();
  const std::vector<uint32_t> commands = AllCommands();
  for (int i = 0; i < 20000; ++i) {
    std::string frame = "\x4F\x54" + BigEndian(127, 2) + U32(0) + U32(0) + BigEndian(0, 8) +
                        U32(0) + U32(commands[random() % commands.size()]);
    const size_t extra = random() % 200;
    for (size_t byte = 0; byte < extra; ++byte) {
      frame += static_cast<char>(random() % 4 == 0 ? random() : 0);
    }
    const size_t head_len = 28 + random() % (extra + 1);
    frame.replace(kHeadLenOffset, 4, U32(head_len));
    frame.replace(kBodyLenOffset, 4, U32(frame.size() - head_len));
    const int ret = Unpack(*received, frame);
    ASSERT_TRUE(ret == 0 || CodecErrorText(ret) != nullptr) << ret;
  }
}

}  // namespace
}  // namespace ostrand_protocol_cs
