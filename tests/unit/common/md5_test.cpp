#include "common/md5.h"

#include <gtest/gtest.h>

#include <array>
#include <string>

namespace OstrandCommon {
namespace {

std::string Md5(const std::string& text) {
  std::array<char, 64> out;
  out.fill('#');
  md5_sum(text.data(), text.size(), out.data(), out.size());
  return out.data();
}

// RFC 1321, appendix A.5.
TEST(Md5, GivesThePublishedVectors) {
  const struct {
    std::string text;
    std::string digest;
  } kCases[] = {
      {"", "d41d8cd98f00b204e9800998ecf8427e"},
      {"a", "0cc175b9c0f1b6a831c399e269772661"},
      {"abc", "900150983cd24fb0d6963f7d28e17f72"},
      {"message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
      {"abcdefghijklmnopqrstuvwxyz", "c3fcd3d76192e4007dfb496cca67e13b"},
      {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789",
       "d174ab98d277d9f5a5611c2c9f419d9f"},
      {"12345678901234567890123456789012345678901234567890123456789012345678901234567890",
       "57edf4a22be3c955ac49da2e2107b67a"},
  };
  for (const auto& c : kCases) {
    EXPECT_EQ(c.digest, Md5(c.text)) << c.text;
  }
}

// Where the length field moves into a block of its own, and around whole blocks.
TEST(Md5, PadsRightAroundBlockBoundaries) {
  const struct {
    size_t len;
    std::string digest;
  } kCases[] = {
      {1, "9dd4e461268c8034f5c8564e155c67a6"},   {54, "61ea0974c662328da964d977a8253873"},
      {55, "04364420e25c512fd958a70738aa8f72"},  {56, "668a72d5ba17f08e62dabcafad6db14b"},
      {57, "693037871c4a9d3d8685018905cb530a"},  {62, "31f6affeacbf0a8196f061a4e49a8a15"},
      {63, "7dc2ca208106a2f703567bdff99d8981"},  {64, "c1bb4f81d892b2d57947682aeb252456"},
      {65, "1bc932052302d074bdec39795fe00cf6"},  {119, "ab347a5f68c8a443cfcddc633f12c24f"},
      {120, "fb98667f98096de92620b64f46e1c5b5"}, {121, "e8bb0ccd83750100b37f4831cd5d7ee2"},
      {127, "a0b28c1da68705c2ff883fe279b72753"}, {128, "d69cb61a6ee87200676eb0d4b90edbcb"},
      {129, "3926841d393c00c3f36260e5ace10dc1"}, {1000, "398533d48111e9f664b1f64cb10c4b63"},
  };
  for (const auto& c : kCases) {
    EXPECT_EQ(c.digest, Md5(std::string(c.len, 'x'))) << c.len << " times x";
  }
}

TEST(Md5, DigestsEveryByteValue) {
  std::string bytes;
  for (int i = 0; i < 256; ++i) {
    bytes.push_back(static_cast<char>(i));
  }
  EXPECT_EQ("e2c865db4162bed963bfaa9ef6ac18f0", Md5(bytes));
}

TEST(Md5, DigestsAMillionBytes) {
  EXPECT_EQ("7707d6ae4e027c70eea2a935c2296f21", Md5(std::string(1000000, 'a')));
}

TEST(Md5, OfNothingReadsNothing) {
  char out[33];
  md5_sum(nullptr, 0, out, sizeof(out));
  EXPECT_STREQ("d41d8cd98f00b204e9800998ecf8427e", out);
}

TEST(Md5, CutsTheTextToItsBufferAndEndsIt) {
  const std::string whole = "900150983cd24fb0d6963f7d28e17f72";
  for (size_t out_size = 1; out_size <= 40; ++out_size) {
    std::string out(40, '#');
    md5_sum("abc", 3, &out[0], out_size);
    const size_t kept = out_size <= 32 ? out_size - 1 : 32;
    EXPECT_EQ(whole.substr(0, kept) + '\0' + std::string(40 - kept - 1, '#'), out)
        << "out_size " << out_size;
  }
}

TEST(Md5, WritesNothingIntoNoRoom) {
  char out = '#';
  md5_sum("abc", 3, &out, 0);
  EXPECT_EQ('#', out);
  md5_sum("abc", 3, nullptr, 33);
}

}  // namespace
}  // namespace OstrandCommon
