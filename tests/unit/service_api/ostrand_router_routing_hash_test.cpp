// Where a request lies on the ring. The expected positions were computed by a separate program.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "fakes/allocation_faults.h"
#include "fakes/keyed_request.h"
#include "fakes/lock_probe.h"
#include "fakes/router_fixture.h"

namespace OstrandService {
namespace {

using namespace ostrand_protocol_cs;  // NOLINT: commands and key records
using OstrandCommon::OSTRAND_LOG_LEVEL_ERROR;
using OstrandFakes::AllocationFaults;
using OstrandFakes::IsHeld;
using OstrandFakes::KeyedRequest;
using OstrandFakes::LogLine;
using OstrandFakes::RouterFixture;

constexpr uint32_t kSeed = 20240229;
constexpr uint32_t kRingSize = 7;

// A position that no key of this file has.
constexpr uint64_t RingPosition(uint32_t index) { return 1000 + index * 10; }

class RouterHashTest : public testing::Test, public RouterFixture {
 protected:
  RouterHashTest() {
    if (Init() != 0) {
      ADD_FAILURE() << "no router";
    }
    for (uint32_t i = 0; i < kRingSize; ++i) {
      peer->m_virtual_nodes()[i].hash_code = RingPosition(i);
    }
    peer->m_virtual_node_count() = kRingSize;
    peer->m_randSed() = kSeed;
    logger.Clear();
  }

  uint64_t Hash(KeyedRequest& request) { return peer->CalcRequestHashCode(&request); }

  // The next random position, by the system's own generator.
  uint64_t NextRandom() {
    return RingPosition(static_cast<uint32_t>(rand_r(&m_expected_seed)) % kRingSize);
  }
  void ExpectNoPick() { EXPECT_EQ(m_expected_seed, peer->m_randSed()); }
  void ExpectRandom(KeyedRequest& request) {
    EXPECT_EQ(NextRandom(), Hash(request));
    EXPECT_EQ(m_expected_seed, peer->m_randSed()) << "one pick a request";
  }

 private:
  uint32_t m_expected_seed = kSeed;
};

std::string Counting(size_t length) {
  std::string bytes(length, '\0');
  for (size_t i = 0; i < length; ++i) {
    bytes[i] = static_cast<char>((i * 7 + 3) % 256);
  }
  return bytes;
}

std::vector<std::string> NamesOf(const OStrandKeySet& key) {
  std::vector<std::string> names;
  for (uint32_t i = 0; i < std::min(key.dwFieldNum, 8U); ++i) {
    const char* name = key.astFields[i].szFieldName;
    names.emplace_back(name, strnlen(name, sizeof(key.astFields[i].szFieldName)));
  }
  return names;
}

// --- One field ---

TEST_F(RouterHashTest, IsZeroWithoutAPackage) {
  KeyedRequest request(OSTRAND_API_GET_REQ, {{"id", "player-17"}});
  request.LoseThePackage();
  EXPECT_EQ(0U, Hash(request));
  ExpectNoPick();
  EXPECT_TRUE(logger.Lines().empty());
}

TEST_F(RouterHashTest, OfOneFieldIsTheHashOfItsBytes) {
  const struct {
    std::string bytes;
    uint64_t hash;
  } kCases[] = {{"", 0x0000000000000000},
                {"k", 0x9685DDF5126076AF},
                {"player-17", 0x7502E13D2E0C3226},
                {std::string("a\0b", 3), 0x90759983864F195E},
                {std::string("\0", 1), 0xC3ED51BBF3A1DC56},
                {Counting(1023), 0x4FB3992FBE5AE928},
                {Counting(1024), 0xD00E401C5E7F9773}};
  for (const auto& c : kCases) {
    KeyedRequest request(OSTRAND_API_GET_REQ, {{"id", c.bytes}});
    EXPECT_EQ(c.hash, Hash(request)) << c.bytes.size();
    request.SetKey({{"another name", c.bytes}});
    EXPECT_EQ(c.hash, Hash(request)) << "the name does not matter";
  }
  ExpectNoPick();
  EXPECT_TRUE(logger.Lines().empty());
}

TEST_F(RouterHashTest, ReadsAFieldLengthOverItsCapacityAsTheCapacity) {
  KeyedRequest request(OSTRAND_API_GET_REQ, {{"id", Counting(1024)}});
  for (const uint32_t length : {1025U, 70000U, 0x80000000U, 0xFFFFFFFFU}) {
    request.key().astFields[0].dwFieldLen = length;
    EXPECT_EQ(0xD00E401C5E7F9773U, Hash(request)) << length;
    EXPECT_EQ(length, request.key().astFields[0].dwFieldLen) << "only read";
  }
  request.SetKey({{"z", std::string(1024, 'z')}, {"a", "tail"}});
  request.key().astFields[0].dwFieldLen = 0xFFFFFFFF;
  EXPECT_EQ(0xB58671C46F50F887U, Hash(request)) << "also among several";
}

// --- Several fields ---

TEST_F(RouterHashTest, OfTwoFieldsIsTheSameInBothOrders) {
  constexpr uint64_t kHash = 0xD7B89D6697D7F6CD;  // of "4711eu": user, then region
  KeyedRequest one(OSTRAND_API_GET_REQ, {{"region", "eu"}, {"user", "4711"}});
  EXPECT_EQ(kHash, Hash(one));
  KeyedRequest other(OSTRAND_API_GET_REQ, {{"user", "4711"}, {"region", "eu"}});
  EXPECT_EQ(kHash, Hash(other));
}

TEST_F(RouterHashTest, OfThreeFieldsIsTheSameInEveryOrder) {
  constexpr uint64_t kHash = 0xC52236C0938B791B;  // of shop, order, item
  std::vector<KeyedRequest::Field> fields = {
      {"item", std::string("\x05\0\0\0", 4)}, {"order", "2024-0001"}, {"shop", "17"}};
  do {
    KeyedRequest request(OSTRAND_API_GET_REQ, {fields[0], fields[1], fields[2]});
    EXPECT_EQ(kHash, Hash(request)) << fields[0].first << ", " << fields[1].first;
  } while (std::next_permutation(fields.begin(), fields.end()));
  ExpectNoPick();
}

TEST_F(RouterHashTest, LeavesTheFieldsSortedInTheRequest) {
  KeyedRequest request(OSTRAND_API_GET_REQ,
                       {{"item", "5"}, {"shop", "17"}, {"order", "2024-0001"}});
  Hash(request);
  EXPECT_EQ(std::vector<std::string>({"shop", "order", "item"}), NamesOf(request.key()));
  const OStrandKeyField& shop = request.key().astFields[0];
  EXPECT_EQ("17", std::string(shop.szFieldBuff, shop.dwFieldLen)) << "each with its bytes";
  EXPECT_EQ(3U, request.key().dwFieldNum);
}

TEST_F(RouterHashTest, AssemblesTheKeyInThePackBuffer) {
  std::fill(pack_buffer.begin(), pack_buffer.end(), '.');
  KeyedRequest request(OSTRAND_API_GET_REQ, {{"region", "eu"}, {"user", "4711"}});
  Hash(request);
  EXPECT_EQ("4711eu..", std::string(pack_buffer.data(), 8));
}

TEST_F(RouterHashTest, SortsNamesByBytesLongerOnesBeforeTheirBeginnings) {
  KeyedRequest request(OSTRAND_API_GET_REQ,
                       {{"a", "1"}, {"\x80x", "4444"}, {"B", "333"}, {"ab", "22"}});
  EXPECT_EQ(0xBEFC039F8DBEEF5FU, Hash(request));
  EXPECT_EQ(std::vector<std::string>({"\x80x", "ab", "a", "B"}), NamesOf(request.key()));
}

TEST_F(RouterHashTest, SortsNamesThatFillTheirField) {
  const std::string name(31, 'n');
  KeyedRequest request(OSTRAND_API_GET_REQ, {{name + "a", "first"}, {name + "b", "second"}});
  EXPECT_EQ(0xEE2CF9F923DB0ABFU, Hash(request)) << "of \"secondfirst\"";
}

TEST_F(RouterHashTest, OfSeveralEmptyFieldsIsZero) {
  KeyedRequest request(OSTRAND_API_GET_REQ, {{"a", ""}, {"b", ""}});
  EXPECT_EQ(0U, Hash(request));
  ExpectNoPick();
}

TEST_F(RouterHashTest, TakesEightFieldsAndReadsAHigherNumberAsEight) {
  std::vector<KeyedRequest::Field> f;
  for (size_t i = 0; i < 8; ++i) {
    f.emplace_back("f" + std::to_string(i), std::string(i + 1, static_cast<char>('A' + i)));
  }
  KeyedRequest request(OSTRAND_API_GET_REQ, {f[3], f[1], f[7], f[0], f[5], f[2], f[6], f[4]});
  EXPECT_EQ(0xBBF825FB8E65FD6FU, Hash(request));
  for (const uint32_t number : {9U, 255U, 0x80000000U, 0xFFFFFFFFU}) {
    request.SetKey({f[3], f[1], f[7], f[0], f[5], f[2], f[6], f[4]});
    request.key().dwFieldNum = number;
    EXPECT_EQ(0xBBF825FB8E65FD6FU, Hash(request)) << number;
    EXPECT_EQ(number, request.key().dwFieldNum) << "only read";
  }
}

TEST_F(RouterHashTest, TakesEightFullFieldsInAPackBufferOf8KiB) {
  pack_buffer = std::vector<char>(8 * 1024);
  MakeRouter();
  ASSERT_EQ(0, Init());
  std::vector<KeyedRequest::Field> f;
  for (size_t i = 0; i < 8; ++i) {
    f.emplace_back("f" + std::to_string(i), std::string(1024, static_cast<char>(i * 31)));
  }
  KeyedRequest request(OSTRAND_API_GET_REQ, {f[0], f[1], f[2], f[3], f[4], f[5], f[6], f[7]});
  EXPECT_EQ(0x2C82BD1E0674D7D3U, Hash(request));
}

// The buffer's bytes lie alone on the heap: a write behind them shows under the address sanitizer.
TEST_F(RouterHashTest, WritesNothingBehindAPackBufferThatIsTooSmall) {
  pack_buffer = std::vector<char>(10);
  MakeRouter();
  ASSERT_EQ(0, Init());
  KeyedRequest request(OSTRAND_API_GET_REQ,
                       {{"a", "12345678"}, {"b", "abcdefgh"}, {"c", Counting(1024)}});
  Hash(request);
  EXPECT_EQ(10U, pack_buffer.size());
}

TEST_F(RouterHashTest, AllocatesNothing) {
  KeyedRequest hashed(OSTRAND_API_GET_REQ, {{"b", "1"}, {"c", "2"}, {"a", "3"}});
  KeyedRequest random(OSTRAND_API_BATCH_GET_REQ);
  AllocationFaults faults;
  Hash(hashed);
  Hash(random);
  EXPECT_EQ(0, faults.count());
}

// --- Random positions ---

TEST_F(RouterHashTest, IsARandomPointsExactPositionWithoutAKey) {
  KeyedRequest request(OSTRAND_API_GET_REQ);
  for (int i = 0; i < 100; ++i) {
    ExpectRandom(request);
  }
  EXPECT_TRUE(logger.Lines().empty());
}

TEST_F(RouterHashTest, PicksEveryPointAboutEquallyOften) {
  KeyedRequest request(OSTRAND_API_GET_REQ);
  std::vector<int> picks(kRingSize);
  for (int i = 0; i < 7000; ++i) {
    const uint64_t position = Hash(request);
    const uint64_t index = (position - 1000) / 10;
    ASSERT_EQ(RingPosition(static_cast<uint32_t>(index)), position);
    ++picks[static_cast<size_t>(index)];
  }
  EXPECT_LT(850, *std::min_element(picks.begin(), picks.end()));
  EXPECT_GT(1150, *std::max_element(picks.begin(), picks.end()));
}

// Commands that carry many keys, whatever stands in the head.
const std::set<uint32_t> kManyKeys = {23, 117, 129, 145, 147, 149, 151, 4233};

TEST_F(RouterHashTest, IsRandomForCommandsWithManyKeys) {
  for (const uint32_t cmd : kManyKeys) {
    SCOPED_TRACE(cmd);
    KeyedRequest request(OSTRAND_API_GET_REQ, {{"id", "k"}});
    request.SetCmd(cmd);
    ExpectRandom(request);
    request.SetKey({});
    ExpectRandom(request);
  }
}

TEST_F(RouterHashTest, IsTheKeysHashForEveryOtherCommand) {
  KeyedRequest request(OSTRAND_API_GET_REQ, {{"id", "k"}});
  for (uint32_t cmd = 0; cmd < 5000; ++cmd) {
    if (kManyKeys.count(cmd) == 0 && cmd != 89 && cmd != 91) {
      request.SetCmd(cmd);
      ASSERT_EQ(0x9685DDF5126076AFU, Hash(request)) << cmd;
    }
  }
  request.SetCmd(0xFFFFFFFF);
  EXPECT_EQ(0x9685DDF5126076AFU, Hash(request));
  ExpectNoPick();
}

TEST_F(RouterHashTest, IsZeroOnAnEmptyRingAndSaysSo) {
  peer->m_virtual_node_count() = 0;
  KeyedRequest request(OSTRAND_API_SQL_REQ);
  bool held = false;
  logger.OnLine([&](const LogLine&) { held = IsHeld(peer->m_mutex_vistual_nodes()); });
  EXPECT_EQ(0U, Hash(request));
  EXPECT_EQ(
      Lines({{OSTRAND_LOG_LEVEL_ERROR, "CalcRequestHashCode", "m_virtual_node_count is zero"}}),
      logger.Lines());
  EXPECT_TRUE(held);
  EXPECT_FALSE(IsHeld(peer->m_mutex_vistual_nodes()));
  ExpectNoPick();
}

// --- Times to live ---

class RouterTtlHashTest : public RouterHashTest,
                          public testing::WithParamInterface<OStrandApiCmds> {
 protected:
  RouterTtlHashTest() : request(GetParam(), {{"id", "head"}}) {
    KeyedRequest::SetKey(RecordKey(0), {{"id", "first record"}});
    KeyedRequest::SetKey(RecordKey(1), {{"id", "second record"}});
  }

  OStrandKeySet& RecordKey(size_t index) {
    OStrandPkgBody& body = request.pkg().stBody;
    return GetParam() == OSTRAND_API_SET_TTL_REQ ? body.stSetTTLReq.astKeyInfo[index]
                                                 : body.stGetTTLReq.astKeyInfo[index];
  }
  void SetRecordNum(uint32_t number) {
    OStrandPkgBody& body = request.pkg().stBody;
    (GetParam() == OSTRAND_API_SET_TTL_REQ ? body.stSetTTLReq.dwRecordNum
                                           : body.stGetTTLReq.dwRecordNum) = number;
  }

  KeyedRequest request;
};

INSTANTIATE_TEST_SUITE_P(Commands, RouterTtlHashTest,
                         testing::Values(OSTRAND_API_SET_TTL_REQ, OSTRAND_API_GET_TTL_REQ),
                         [](const auto& command) {
                           return command.param == OSTRAND_API_SET_TTL_REQ ? "Set" : "Get";
                         });

TEST_P(RouterTtlHashTest, OfOneRecordIsThatOfTheRecordsKeyWhichGoesIntoTheHead) {
  SetRecordNum(1);
  RecordKey(0).iVersion = 12;
  EXPECT_EQ(0xD8C756D3AB8C4F28U, Hash(request)) << "of \"first record\"";
  ExpectNoPick();
  const OStrandKeySet& head = request.key();
  EXPECT_EQ(12, head.iVersion);
  EXPECT_EQ(1U, head.dwFieldNum);
  EXPECT_EQ("first record",
            std::string(head.astFields[0].szFieldBuff, head.astFields[0].dwFieldLen));
}

TEST_P(RouterTtlHashTest, CountsTheFieldsBehindTheCopy) {
  SetRecordNum(1);
  request.SetKey({});
  EXPECT_EQ(0xD8C756D3AB8C4F28U, Hash(request)) << "a head without key gets one";
  RecordKey(0).dwFieldNum = 0;
  request.SetKey({{"id", "head"}});
  ExpectRandom(request);
  EXPECT_EQ(0U, request.key().dwFieldNum) << "a record without key takes the head's away";
}

TEST_P(RouterTtlHashTest, SortsTheCopyAlone) {
  SetRecordNum(1);
  KeyedRequest::SetKey(RecordKey(0), {{"region", "eu"}, {"user", "4711"}});
  EXPECT_EQ(0xD7B89D6697D7F6CDU, Hash(request));
  EXPECT_EQ(std::vector<std::string>({"user", "region"}), NamesOf(request.key()));
  EXPECT_EQ(std::vector<std::string>({"region", "user"}), NamesOf(RecordKey(0)));
}

TEST_P(RouterTtlHashTest, ReadsNumbersOverTheirCapacityAsTheCapacity) {
  SetRecordNum(1);
  KeyedRequest::SetKey(RecordKey(0), {{"id", Counting(1024)}});
  RecordKey(0).astFields[0].dwFieldLen = 0xFFFFFFFF;
  EXPECT_EQ(0xD00E401C5E7F9773U, Hash(request));

  std::vector<KeyedRequest::Field> f;
  for (size_t i = 0; i < 8; ++i) {
    f.emplace_back("f" + std::to_string(i), std::string(i + 1, static_cast<char>('A' + i)));
  }
  KeyedRequest::SetKey(RecordKey(0), {f[3], f[1], f[7], f[0], f[5], f[2], f[6], f[4]});
  RecordKey(0).dwFieldNum = 0xFFFFFFFF;
  EXPECT_EQ(0xBBF825FB8E65FD6FU, Hash(request));
}

TEST_P(RouterTtlHashTest, OfAnyOtherNumberOfRecordsIsRandomAndCopiesNothing) {
  for (const uint32_t number : {0U, 2U, 1024U, 1025U, 0x80000001U, 0xFFFFFFFFU}) {
    SCOPED_TRACE(number);
    SetRecordNum(number);
    ExpectRandom(request);
    EXPECT_EQ("head", std::string(request.key().astFields[0].szFieldBuff, 4));
  }
}

}  // namespace
}  // namespace OstrandService
