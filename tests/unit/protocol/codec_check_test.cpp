// Checking a frame finds what unpacking it finds, and nothing else: over packages of every command,
// frames that were cut or changed, and what the fuzz target starts from. And a head that is packed
// before a body in wire form gives the frame that packing the whole package gives.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>

#include "unit/protocol/package_kit.h"

namespace ostrand_protocol_cs {
namespace {

constexpr unsigned kSeed = 20240301;

class CodecCheck : public ::testing::Test {
 protected:
  // Both ways answer one code, and agree about the head.
  int BothOf(const std::string& frame) {
    const std::unique_ptr<char[]> exact(new char[frame.size()]);  // for the address sanitizer
    std::memcpy(exact.get(), frame.data(), frame.size());
    const int unpacked = Unpack(*m_unpacked, frame);
    const int checked = UnpackHeadCheckBody(*m_checked, exact.get(), frame.size());
    EXPECT_EQ(unpacked, checked) << ToHex(frame);
    // A head of a command without body is the head alone.
    const uint32_t cmd = m_unpacked->stHead.dwCmd;
    m_unpacked->stHead.dwCmd = m_checked->stHead.dwCmd = OSTRAND_API_NOTIFY_STOP_REQ;
    EXPECT_TRUE(SamePackage(*m_unpacked, *m_checked)) << cmd;
    m_unpacked->stHead.dwCmd = m_checked->stHead.dwCmd = cmd;
    return checked;
  }

  const std::unique_ptr<OStrandPkg> m_unpacked = NewOStrandPkg();
  const std::unique_ptr<OStrandPkg> m_checked = NewOStrandPkg();
};

TEST_F(CodecCheck, FindsWhatUnpackingFinds) {
  std::mt19937 random(kSeed);
  const auto sent = NewOStrandPkg();
  for (int round = 0; round < 3; ++round) {
    for (const uint32_t cmd : AllCommands()) {
      FillRandom(*sent, cmd, random);
      const std::string frame = Pack(*sent);
      ASSERT_EQ(BothOf(frame), 0) << cmd;
      for (int change = 0; change < 40; ++change) {
        std::string changed = frame;
        // Near the beginning of head or body more often: there stand the numbers.
        const size_t from = change % 2 == 0 ? 0 : m_unpacked->stHead.dwHeadLen;
        const size_t at = std::min(frame.size() - 1, from + random() % 64);
        changed[at] = static_cast<char>(changed[at] ^ (1 << random() % 8));
        BothOf(changed);
        ASSERT_FALSE(HasFailure()) << cmd << " byte " << at;
      }
      for (int cut = 0; cut < 10; ++cut) {
        BothOf(frame.substr(0, random() % frame.size()));
      }
      BothOf(frame + "x");
      ASSERT_FALSE(HasFailure()) << cmd;
    }
  }
}

TEST_F(CodecCheck, FindsItInWhatTheFuzzTargetStartsFrom) {
  size_t frames = 0;
  for (const auto& file :
       std::filesystem::directory_iterator(OSTRAND_SOURCE_DIR "/tests/fuzz/corpus/codec")) {
    std::ifstream stream(file.path(), std::ios::binary);
    const std::string frame((std::istreambuf_iterator<char>(stream)), {});
    BothOf(frame);
    for (size_t len = 0; len < frame.size(); ++len) {
      BothOf(frame.substr(0, len));
    }
    for (size_t bit = 0; bit < 8 * frame.size(); ++bit) {
      std::string flipped = frame;
      flipped[bit / 8] = static_cast<char>(flipped[bit / 8] ^ (1 << bit % 8));
      BothOf(flipped);
    }
    ASSERT_FALSE(HasFailure()) << file.path();
    ++frames;
  }
  EXPECT_GT(frames, 20u);
}

TEST_F(CodecCheck, LeavesRecordsAndTTLEntriesWhereTheyAre) {
  std::mt19937 random(kSeed);
  const auto sent = NewPackage(OSTRAND_API_GET_BY_PARTKEY_RES);
  OStrandMultiPkgRes& body = sent->stBody.stGetByPartKeyRes;
  body.iResult = -5;
  body.bHasMorePkgs = 1;
  RecordWriter writer(body.stRecords);
  writer.BeginRecord();
  writer.AddValueField("level", "1");
  ASSERT_EQ(BothOf(Pack(*sent)), 0);
  EXPECT_EQ(m_checked->stBody.stGetByPartKeyRes.iResult, -5);
  EXPECT_EQ(m_checked->stBody.stGetByPartKeyRes.bHasMorePkgs, 1);
  EXPECT_EQ(m_checked->stBody.stGetByPartKeyRes.stRecords.dwRecordNum, 0u);
  EXPECT_EQ(m_checked->stBody.stGetByPartKeyRes.stRecords.dwRecordsLen, 0u);
  FillRandom(*sent, OSTRAND_API_METADATA_GET_RES, random);
  ASSERT_EQ(BothOf(Pack(*sent)), 0);
  EXPECT_TRUE(SamePackage(*sent, *m_checked)) << "metadata are read whole";
}

TEST_F(CodecCheck, AHeadBeforeABodyIsTheWholeFrame) {
  std::mt19937 random(kSeed);
  const auto sent = NewOStrandPkg();
  for (const uint32_t cmd : AllCommands()) {
    FillRandom(*sent, cmd, random);
    const std::string frame = Pack(*sent);
    ASSERT_EQ(Unpack(*m_unpacked, frame), 0);
    const size_t head_len = m_unpacked->stHead.dwHeadLen;
    const std::string body = frame.substr(head_len);
    std::string packed(frame.size(), 'x');
    size_t len = packed.size();
    ASSERT_EQ(PackHeadBeforeBody(packed.data(), len, *sent, body.data(), body.size()), 0);
    ASSERT_EQ(len, frame.size());
    ASSERT_EQ(packed, frame) << cmd;
    len = frame.size() - 1;
    EXPECT_EQ(PackHeadBeforeBody(packed.data(), len, *sent, body.data(), body.size()),
              OSTRAND_CODEC_ERR_BUFFER_FULL);
    EXPECT_EQ(len, frame.size() - 1);
    EXPECT_EQ(UnpackBodyOfCmd(m_checked->stBody, cmd, body.data(), body.size()), 0);
    m_checked->stHead.dwCmd = cmd;

    const OStrandHeadPlaces places = FindHeadPlaces(frame.data());
    const OStrandPkgHead& head = sent->stHead;
    EXPECT_EQ(0, std::memcmp(&frame[places.table], head.stRouterInfo.szTableName,
                             head.stRouterInfo.dwTableNameLen));
    EXPECT_EQ(0, std::memcmp(&frame[places.user], head.szUserBuff, head.dwUserBuffLen));
    EXPECT_EQ(places.key_set, places.user + head.dwUserBuffLen);
  }
  char none = 0;
  size_t len = 1;
  EXPECT_EQ(PackHeadBeforeBody(nullptr, len, *sent, &none, 0), OSTRAND_CODEC_ERR_ARGUMENT);
  sent->stHead.bReqBodyCompressType = 1;
  EXPECT_EQ(PackHeadBeforeBody(&none, len, *sent, &none, 0), OSTRAND_CODEC_ERR_COMPRESSION);
}

TEST_F(CodecCheck, ABodyThatStandsAloneIsCheckedToItsEnd) {
  const std::string body("\0\0\0\0\0\0\0\0x", 9);
  EXPECT_EQ(UnpackBodyOfCmd(m_checked->stBody, OSTRAND_API_GET_REQ, body.data(), 8), 0);
  EXPECT_EQ(UnpackBodyOfCmd(m_checked->stBody, OSTRAND_API_GET_REQ, body.data(), 9),
            OSTRAND_CODEC_ERR_BODY_TRAILING);
  EXPECT_EQ(UnpackBodyOfCmd(m_checked->stBody, OSTRAND_API_GET_REQ, body.data(), 7),
            OSTRAND_CODEC_ERR_BODY_TRUNCATED);
}

}  // namespace
}  // namespace ostrand_protocol_cs
