// The directory's packages: their bytes, both ways, and every frame that is none.
#include "protocol/ostrand_dir_codec.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "unit/protocol/raw_frame.h"

namespace ostrand_protocol_dir {
namespace {

using ostrand_protocol_cs::BigEndian;

constexpr size_t kRequestLen = 20 + 72;
constexpr size_t kAnswerLen = 20 + 35908;
static_assert(OSTRDIR_MAX_FRAME_LEN == kAnswerLen);

using Pack = int (*)(char*, size_t&, const tagOStrdirCSPkg&);
using Unpack = int (*)(tagOStrdirCSPkg&, const char*, size_t);

// A package full of '~', as nobody would send it.
std::unique_ptr<tagOStrdirCSPkg> NewPkg() {
  auto pkg = std::make_unique<tagOStrdirCSPkg>();
  std::memset(static_cast<void*>(pkg.get()), '~', sizeof(*pkg));
  return pkg;
}

std::string BytesOf(const tagOStrdirCSPkg& pkg) {
  return std::string(reinterpret_cast<const char*>(&pkg), sizeof(pkg));
}
const std::string kZeroPkg(sizeof(tagOStrdirCSPkg), '\0');

// The frame, from a buffer of exactly its size.
std::string Packed(Pack pack, size_t frame_len, const tagOStrdirCSPkg& pkg) {
  std::vector<char> buffer(frame_len);
  size_t len = buffer.size();
  EXPECT_EQ(0, pack(buffer.data(), len, pkg));
  EXPECT_EQ(frame_len, len);
  return std::string(buffer.data(), len);
}

// The code for a frame on a heap block of exactly its size.
int UnpackedCode(Unpack unpack, const std::string& frame, tagOStrdirCSPkg& pkg) {
  const std::vector<char> exact(frame.begin(), frame.end());
  return unpack(pkg, exact.data(), exact.size());
}

// A frame by hand, with what its head says.
struct Frame {
  uint16_t magic = 0x4F44;
  uint16_t cmd = 107;
  int16_t version = 1;
  int16_t head_len = 20;
  int32_t body_len = 0;
  uint64_t app_id = 0;
  std::string rest;  // behind the head's 20 bytes

  std::string Bytes() const {
    return BigEndian(magic, 2) + BigEndian(cmd, 2) + BigEndian(static_cast<uint16_t>(version), 2) +
           BigEndian(static_cast<uint16_t>(head_len), 2) +
           BigEndian(static_cast<uint32_t>(body_len), 4) + BigEndian(app_id, 8) + rest;
  }
};
Frame FrameOf(uint16_t cmd, const std::string& body) {
  Frame frame;
  frame.cmd = cmd;
  frame.body_len = static_cast<int32_t>(body.size());
  frame.rest = body;
  return frame;
}

// The body of an answer by hand: zeros, but for what is put at a place.
class AnswerBody {
 public:
  AnswerBody& Text(size_t offset, const std::string& text) {
    m_bytes.replace(offset, text.size(), text);
    return *this;
  }
  AnswerBody& Int(size_t offset, int32_t value) {
    return Text(offset, BigEndian(static_cast<uint32_t>(value), 4));
  }
  const std::string& Bytes() const { return m_bytes; }

 private:
  std::string m_bytes = std::string(35908, '\0');
};

// --- Bytes ---

const char kRequest[] =
    "\x4F\x44"          // magic
    "\x00\x6A"          // command
    "\x00\x01"          // version
    "\x00\x14"          // length of the head
    "\x00\x00\x00\x48"  // length of the body
    "\x01\x02\x03\x04\x05\x06\x07\x08"
    "\x0A\x0B\x0C\x0D"  // application
    "\xFF\xFF\xFF\xFD"  // zone
    "1.2.3";

std::string RequestFrame() {
  std::string frame(kRequest, sizeof(kRequest) - 1);
  frame.resize(kRequestLen);
  return frame;
}

TEST(DirCodecTest, WritesARequest) {
  const auto pkg = NewPkg();
  pkg->stHead.ullAppID = 0x0102030405060708;
  tagReqGetTablesAndAccess& request = pkg->stBody.stReqGetTablesAndAccess;
  request.iAppID = 0x0A0B0C0D;
  request.iZoneID = -3;
  std::memset(request.szApiVersion, 0, sizeof(request.szApiVersion));
  std::memcpy(request.szApiVersion, "1.2.3", 5);
  const std::string before = BytesOf(*pkg);
  EXPECT_EQ(RequestFrame(), Packed(PackDirRequest, kRequestLen, *pkg));
  EXPECT_EQ(before, BytesOf(*pkg)) << "the package stays in host order";
}

TEST(DirCodecTest, ReadsARequest) {
  const auto pkg = NewPkg();
  ASSERT_EQ(0, UnpackedCode(UnpackDirRequest, RequestFrame(), *pkg));
  EXPECT_EQ(0x4F44, uint16_t{pkg->stHead.wMagic});
  EXPECT_EQ(106, uint16_t{pkg->stHead.wCmd});
  EXPECT_EQ(1, int16_t{pkg->stHead.nVersion});
  EXPECT_EQ(20, int16_t{pkg->stHead.nHeadLen});
  EXPECT_EQ(72, int32_t{pkg->stHead.iBodyLen});
  EXPECT_EQ(0x0102030405060708U, uint64_t{pkg->stHead.ullAppID});
  const tagReqGetTablesAndAccess& request = pkg->stBody.stReqGetTablesAndAccess;
  EXPECT_EQ(0x0A0B0C0D, int32_t{request.iAppID});
  EXPECT_EQ(-3, int32_t{request.iZoneID});
  EXPECT_STREQ("1.2.3", request.szApiVersion);
  EXPECT_EQ(kZeroPkg.substr(kRequestLen), BytesOf(*pkg).substr(kRequestLen));
}

// Every number of an answer, each with bytes of its own, and the ends of the arrays.
const std::string kLongUrl = "tcp://" + std::string(58, 'u');
const std::string kLongId(32, 'i');

std::string AnswerFrame() {
  AnswerBody body;
  body.Int(0, -0x01020304).Int(4, 0x11121314).Text(8, "set").Int(72, 0x21222324).Text(76, "app");
  body.Int(140, 0x31323334).Text(144, "zone").Int(208, 2).Text(212, "players");
  body.Text(212 + 255 * 32, "the last table").Int(8404, 0x01000002);
  body.Text(8408, "tcp://10.0.0.1:1").Text(8408 + 199 * 64, kLongUrl);
  body.Text(21208, "id0").Text(21208 + 199 * 32, kLongId);
  for (int32_t i = 0; i < 7; ++i) {
    body.Int(27608 + 4 * static_cast<size_t>(i), 0x41424300 + i);
  }
  body.Text(27608 + 28, "\x01\x02\x03\x04").Text(35904, "\x05\x06\x07\x08");
  Frame frame = FrameOf(107, body.Bytes());
  frame.app_id = 0xF1F2F3F4F5F6F7F8;
  return frame.Bytes();
}

TEST(DirCodecTest, ReadsAnAnswer) {
  const auto pkg = NewPkg();
  ASSERT_EQ(0, UnpackedCode(UnpackDirResponse, AnswerFrame(), *pkg));
  EXPECT_EQ(107, uint16_t{pkg->stHead.wCmd});
  EXPECT_EQ(35908, int32_t{pkg->stHead.iBodyLen});
  EXPECT_EQ(0xF1F2F3F4F5F6F7F8U, uint64_t{pkg->stHead.ullAppID});
  const tagResGetTablesAndAccess& answer = pkg->stBody.stResGetTablesAndAccess;
  EXPECT_EQ(-0x01020304, int32_t{answer.iResult});
  EXPECT_EQ(0x11121314, int32_t{answer.iSetID});
  EXPECT_STREQ("set", answer.szSetName);
  EXPECT_EQ(0x21222324, int32_t{answer.iAppID});
  EXPECT_STREQ("app", answer.szAppName);
  EXPECT_EQ(0x31323334, int32_t{answer.iZoneID});
  EXPECT_STREQ("zone", answer.szZoneName);
  EXPECT_EQ(2, int32_t{answer.iTableCount});
  EXPECT_STREQ("players", answer.aszTableNameList[0]);
  EXPECT_STREQ("the last table", answer.aszTableNameList[255]);
  EXPECT_EQ(0x01000002, int32_t{answer.iAccessCount});
  EXPECT_STREQ("tcp://10.0.0.1:1", answer.aszAccessUrlList[0]);
  EXPECT_EQ(kLongUrl, std::string(answer.aszAccessUrlList[199], 64));
  EXPECT_STREQ("id0", answer.aszAccessIdList[0]);
  EXPECT_EQ(kLongId, std::string(answer.aszAccessIdList[199], 32));
  const tagConfData& conf = answer.stConfData;
  EXPECT_EQ(0x41424300, int32_t{conf.iHeartbeatMs});
  EXPECT_EQ(0x41424301, int32_t{conf.iCheckHeartbeatMs});
  EXPECT_EQ(0x41424302, int32_t{conf.iJudgeThreshold});
  EXPECT_EQ(0x41424303, int32_t{conf.iJudgeCheckPeriod});
  EXPECT_EQ(0x41424304, int32_t{conf.iJudgeCheckTimes});
  EXPECT_EQ(0x41424305, int32_t{conf.iRecheckInterval});
  EXPECT_EQ(0x41424306, int32_t{conf.iMaxRemoveRate});
  EXPECT_EQ("\x01\x02\x03\x04", std::string(conf.szReserved, 4)) << "no numbers: as they came";
  EXPECT_EQ("\x05\x06\x07\x08", std::string(conf.szReserved + 8268, 4));
}

TEST(DirCodecTest, WritesAnAnswer) {
  const auto pkg = NewPkg();
  tagResGetTablesAndAccess& answer = pkg->stBody.stResGetTablesAndAccess;
  std::memset(static_cast<void*>(&answer), 0, sizeof(answer));
  pkg->stHead.ullAppID = 0xF1F2F3F4F5F6F7F8;
  answer.iResult = -0x01020304;
  answer.iSetID = 0x11121314;
  std::memcpy(answer.szSetName, "set", 3);
  answer.iAppID = 0x21222324;
  std::memcpy(answer.szAppName, "app", 3);
  answer.iZoneID = 0x31323334;
  std::memcpy(answer.szZoneName, "zone", 4);
  answer.iTableCount = 2;
  std::memcpy(answer.aszTableNameList[0], "players", 7);
  std::memcpy(answer.aszTableNameList[255], "the last table", 14);
  answer.iAccessCount = 0x01000002;
  std::memcpy(answer.aszAccessUrlList[0], "tcp://10.0.0.1:1", 16);
  std::memcpy(answer.aszAccessUrlList[199], kLongUrl.data(), 64);
  std::memcpy(answer.aszAccessIdList[0], "id0", 3);
  std::memcpy(answer.aszAccessIdList[199], kLongId.data(), 32);
  tagConfData& conf = answer.stConfData;
  conf.iHeartbeatMs = 0x41424300;
  conf.iCheckHeartbeatMs = 0x41424301;
  conf.iJudgeThreshold = 0x41424302;
  conf.iJudgeCheckPeriod = 0x41424303;
  conf.iJudgeCheckTimes = 0x41424304;
  conf.iRecheckInterval = 0x41424305;
  conf.iMaxRemoveRate = 0x41424306;
  std::memcpy(conf.szReserved, "\x01\x02\x03\x04", 4);
  std::memcpy(conf.szReserved + 8268, "\x05\x06\x07\x08", 4);
  const std::string before = BytesOf(*pkg);
  EXPECT_TRUE(AnswerFrame() == Packed(PackDirResponse, kAnswerLen, *pkg));
  EXPECT_TRUE(before == BytesOf(*pkg)) << "the package stays in host order";
}

// --- Both ways ---

TEST(DirCodecTest, BringsBackWhatWasPacked) {
  std::mt19937 random(2024);
  const struct {
    Pack pack;
    Unpack unpack;
    size_t frame_len;
  } kCommands[] = {{PackDirRequest, UnpackDirRequest, kRequestLen},
                   {PackDirResponse, UnpackDirResponse, kAnswerLen}};
  for (const auto& command : kCommands) {
    for (int round = 0; round < 20; ++round) {
      const auto sent = NewPkg();
      auto* const bytes = reinterpret_cast<unsigned char*>(sent.get());
      for (size_t i = 0; i < sizeof(*sent); ++i) {
        bytes[i] = static_cast<unsigned char>(random());
      }
      const auto received = NewPkg();
      ASSERT_EQ(0, UnpackedCode(command.unpack, Packed(command.pack, command.frame_len, *sent),
                                *received));
      EXPECT_EQ(uint64_t{sent->stHead.ullAppID}, uint64_t{received->stHead.ullAppID});
      EXPECT_TRUE(BytesOf(*sent).substr(20, command.frame_len - 20) ==
                  BytesOf(*received).substr(20, command.frame_len - 20));
      EXPECT_TRUE(kZeroPkg.substr(command.frame_len) ==
                  BytesOf(*received).substr(command.frame_len));
    }
  }
}

TEST(DirCodecTest, ReadsFramesAtAnyAddress) {
  const std::string behind_one_byte = "x" + AnswerFrame();
  const auto at_odd = NewPkg();
  const auto at_even = NewPkg();
  EXPECT_EQ(0, UnpackDirResponse(*at_odd, &behind_one_byte[1], kAnswerLen));
  EXPECT_EQ(0, UnpackDirResponse(*at_even, AnswerFrame().data(), kAnswerLen));
  EXPECT_TRUE(BytesOf(*at_even) == BytesOf(*at_odd));
}

// Who reads the rows bounds the counts.
TEST(DirCodecTest, HandsCountsOnAsTheyCame) {
  for (const int32_t count : {0, 200, 201, 256, 257, -1, INT32_MAX, INT32_MIN}) {
    AnswerBody body;
    body.Int(208, count).Int(8404, count);
    const auto pkg = NewPkg();
    EXPECT_EQ(0, UnpackedCode(UnpackDirResponse, FrameOf(107, body.Bytes()).Bytes(), *pkg));
    EXPECT_EQ(count, int32_t{pkg->stBody.stResGetTablesAndAccess.iTableCount});
    EXPECT_EQ(count, int32_t{pkg->stBody.stResGetTablesAndAccess.iAccessCount});
  }
}

// --- Room for the output ---

TEST(DirCodecTest, WritesNothingWithoutRoomForAll) {
  const auto pkg = NewPkg();
  const struct {
    Pack pack;
    size_t frame_len;
  } kCommands[] = {{PackDirRequest, kRequestLen}, {PackDirResponse, kAnswerLen}};
  for (const auto& command : kCommands) {
    for (const size_t room : {size_t{0}, size_t{19}, size_t{20}, command.frame_len - 1}) {
      std::vector<char> buffer(room, 'x');
      size_t len = room;
      EXPECT_EQ(OSTRDIR_ERR_ARGUMENT, command.pack(buffer.data(), len, *pkg)) << room;
      EXPECT_EQ(std::vector<char>(room, 'x'), buffer);
    }
    size_t len = command.frame_len;
    EXPECT_EQ(OSTRDIR_ERR_ARGUMENT, command.pack(nullptr, len, *pkg));

    std::vector<char> larger(command.frame_len + 1, 'x');
    len = larger.size();
    EXPECT_EQ(0, command.pack(larger.data(), len, *pkg));
    EXPECT_EQ(command.frame_len, len);
    EXPECT_EQ('x', larger.back());
  }
}

// --- Where a frame ends ---

TEST(DirCodecTest, NeedsTheWholeHeadToTellWhereAFrameEnds) {
  const std::string head = FrameOf(106, "").Bytes();
  for (size_t len = 0; len < 20; ++len) {
    const std::vector<char> exact(head.begin(), head.begin() + static_cast<ptrdiff_t>(len));
    EXPECT_EQ(0, DirFrameLength(exact.data(), len)) << len;
    const std::vector<char> foreign(len, 'x');
    EXPECT_EQ(0, DirFrameLength(foreign.data(), len)) << len;
  }
  EXPECT_EQ(0, DirFrameLength(nullptr, 0));
  EXPECT_EQ(20, DirFrameLength(head.data(), 20));
}

TEST(DirCodecTest, TellsWhereAFrameEndsOrThatItIsNone) {
  const struct {
    uint16_t magic;
    int16_t head_len;
    int32_t body_len;
    int expected;
  } kCases[] = {
      {0x4F44, 20, 0, 20},
      {0x4F44, 20, 72, 92},
      {0x4F44, 20, 35908, 35928},
      {0x4F44, 24, 35904, 35928},
      {0x4F44, INT16_MAX, 0, 32767},
      {0x4F44, INT16_MAX, 3161, 35928},
      {0x4F44, 20, 35909, -33555},
      {0x4F44, 21, 35908, -33555},
      {0x4F44, INT16_MAX, 3162, -33555},
      {0x4F44, 20, INT32_MAX, -33555},
      {0x4F44, INT16_MAX, INT32_MAX, -33555},
      {0x4F44, 20, -1, -33555},
      {0x4F44, 100, -80, -33555},
      {0x4F44, 20, INT32_MIN, -33555},
      {0x4F44, 19, 0, -33299},
      {0x4F44, 0, 92, -33299},
      {0x4F44, -1, 93, -33299},
      {0x4F44, INT16_MIN, 35908, -33299},
      {0x4F44, 19, -1, -33299},
      {0x4F54, 20, 72, -33043},
      {0x444F, 20, 72, -33043},
      {0, 0, 0, -33043},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(testing::Message() << c.magic << ", " << c.head_len << ", " << c.body_len);
    Frame frame;
    frame.magic = c.magic;
    frame.head_len = c.head_len;
    frame.body_len = c.body_len;
    frame.cmd = 4711;
    frame.version = -1;
    EXPECT_EQ(c.expected, DirFrameLength(frame.Bytes().data(), 20)) << "whatever else it says";
    frame.rest = std::string(100, 'x');
    EXPECT_EQ(c.expected, DirFrameLength(frame.Bytes().data(), 120)) << "and what follows";
  }
}

// --- Frames of other lengths ---

TEST(DirCodecTest, TakesAShorterBodyForOneThatGoesOnWithZeros) {
  const std::string whole = AnswerFrame().substr(20);
  for (const size_t len : {0U, 1U, 4U, 210U, 8404U, 8406U, 8408U, 27608U, 27636U, 35907U}) {
    std::string expected = whole.substr(0, len);
    expected.resize(whole.size(), '\0');
    const auto from_short = NewPkg();
    const auto from_whole = NewPkg();
    EXPECT_EQ(
        0, UnpackedCode(UnpackDirResponse, FrameOf(107, whole.substr(0, len)).Bytes(), *from_short))
        << len;
    ASSERT_EQ(0, UnpackedCode(UnpackDirResponse, FrameOf(107, expected).Bytes(), *from_whole));
    EXPECT_EQ(static_cast<int32_t>(len), int32_t{from_short->stHead.iBodyLen});
    EXPECT_TRUE(BytesOf(*from_whole).substr(20) == BytesOf(*from_short).substr(20)) << len;
  }
  const auto pkg = NewPkg();
  EXPECT_EQ(0, UnpackedCode(UnpackDirRequest, FrameOf(106, BigEndian(7, 4)).Bytes(), *pkg));
  EXPECT_EQ(7, int32_t{pkg->stBody.stReqGetTablesAndAccess.iAppID});
  EXPECT_EQ(kZeroPkg.substr(24), BytesOf(*pkg).substr(24));
}

TEST(DirCodecTest, PassesOverWhatANewerDirectoryAdds) {
  Frame frame = FrameOf(106, RequestFrame().substr(20) + "more");
  frame.version = 2;
  frame.head_len = 23;
  frame.rest = "new" + frame.rest;
  const auto pkg = NewPkg();
  ASSERT_EQ(0, UnpackedCode(UnpackDirRequest, frame.Bytes(), *pkg));
  EXPECT_EQ(2, int16_t{pkg->stHead.nVersion});
  EXPECT_EQ(23, int16_t{pkg->stHead.nHeadLen});
  EXPECT_EQ(76, int32_t{pkg->stHead.iBodyLen});
  EXPECT_EQ(0x0A0B0C0D, int32_t{pkg->stBody.stReqGetTablesAndAccess.iAppID});
  EXPECT_STREQ("1.2.3", pkg->stBody.stReqGetTablesAndAccess.szApiVersion);
  EXPECT_EQ(kZeroPkg.substr(kRequestLen), BytesOf(*pkg).substr(kRequestLen));

  Frame only_head;
  only_head.head_len = INT16_MAX;
  only_head.rest = std::string(INT16_MAX - 20, 'x');
  EXPECT_EQ(0, UnpackedCode(UnpackDirResponse, only_head.Bytes(), *pkg));
  EXPECT_TRUE(kZeroPkg.substr(20) == BytesOf(*pkg).substr(20));
}

// --- Frames that are none ---

TEST(DirCodecTest, RefusesAFrameThatIsCutAtAnyByte) {
  const auto pkg = NewPkg();
  for (size_t len = 0; len < kRequestLen; ++len) {
    EXPECT_EQ(-33555, UnpackedCode(UnpackDirRequest, RequestFrame().substr(0, len), *pkg)) << len;
    EXPECT_TRUE(kZeroPkg == BytesOf(*pkg)) << len;
  }
  const std::string answer = AnswerFrame();
  for (const size_t len : {0U, 19U, 20U, 21U, 8430U, 35927U}) {
    EXPECT_EQ(-33555, UnpackedCode(UnpackDirResponse, answer.substr(0, len), *pkg)) << len;
  }
  EXPECT_EQ(-33555, UnpackDirRequest(*pkg, nullptr, 0));
  EXPECT_EQ(-33555, UnpackDirResponse(*pkg, nullptr, 92));
}

TEST(DirCodecTest, RefusesWhatDoesNotAddUpOrBeginsWrong) {
  Frame longer = FrameOf(107, "body");
  longer.rest += "x";
  Frame shorter_body = FrameOf(107, "body");
  shorter_body.body_len = 3;
  Frame longer_head = FrameOf(107, "body");
  longer_head.head_len = 25;
  Frame swallowing_head = FrameOf(107, "body");
  swallowing_head.head_len = 24;
  Frame negative_body = FrameOf(107, "");
  negative_body.head_len = 24;
  negative_body.body_len = -4;
  Frame too_long = FrameOf(107, std::string(35909, '\0'));
  Frame small_head = FrameOf(107, "body");
  small_head.head_len = 16;
  Frame backward_head = FrameOf(107, "body");
  backward_head.head_len = -1;
  Frame foreign = FrameOf(107, "body");
  foreign.magic = 0x4F54;
  const struct {
    const Frame& frame;
    int code;
  } kCases[] = {{longer, -33555},          {shorter_body, -33555},  {longer_head, -33555},
                {swallowing_head, -33555}, {negative_body, -33555}, {too_long, -33555},
                {small_head, -33299},      {backward_head, -33299}, {foreign, -33043}};
  for (const auto& c : kCases) {
    const auto pkg = NewPkg();
    EXPECT_EQ(c.code, UnpackedCode(UnpackDirResponse, c.frame.Bytes(), *pkg)) << &c - kCases;
    EXPECT_TRUE(kZeroPkg == BytesOf(*pkg)) << &c - kCases;
  }
}

TEST(DirCodecTest, RefusesAnotherCommand) {
  for (const int number : {0, 105, 106, 107, 108, 0x6A00, 0x6B00, 0xFFFF}) {
    const auto cmd = static_cast<uint16_t>(number);
    const std::string frame = FrameOf(cmd, std::string(72, '\x01')).Bytes();
    const struct {
      Unpack unpack;
      uint16_t cmd;
    } kReaders[] = {{UnpackDirRequest, 106}, {UnpackDirResponse, 107}};
    for (const auto& reader : kReaders) {
      const auto pkg = NewPkg();
      EXPECT_EQ(cmd == reader.cmd ? 0 : -33811, UnpackedCode(reader.unpack, frame, *pkg)) << cmd;
      EXPECT_EQ(cmd != reader.cmd, kZeroPkg == BytesOf(*pkg)) << cmd;
    }
  }
}

}  // namespace
}  // namespace ostrand_protocol_dir
