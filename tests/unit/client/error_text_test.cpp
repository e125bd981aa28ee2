#include "client/error_text.h"

#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <string>

#include "protocol/codec_errors.h"
#include "vex/vex_codes.h"

namespace OstrandService {
namespace {

struct Expected {
  int code;
  const char* text;
};

TEST(ErrorText, TellsWhatACodeMeans) {
  const Expected cases[] = {
      {0, "success"},
      {-256, "failed; the log tells why"},
      {-1811, "an argument is null or out of range"},
      {-4371, "router not initialised, or initialised twice, or no such table"},
      {-9747, "out of memory"},
      {-12307, "the proxy's send buffer is full: receive answers and try again"},
      {-12563, "a received frame cannot be delivered and was dropped"},
      {-13843, "no proxy can take the request"},
      {-15379, "what was received is no frame; the connection is closed"},
      {-18195, "a proxy cannot be connected to"},
      {-18451, "the table's schema does not fit the server's, or could not be compared"},
      {-18963, "a package of the answer is missing or came out of order"},
      {-20499, "no answer came in time; whether the request was carried out is not known"},
      {-40979, "as many requests are in flight as there may be"},
      {-24595, "null pointer or a buffer without a byte"},
      {-33811, "directory: another command"},
      {-105, "types of a value field differ"},
      {-5393, "proxy: the request could not be sent to a server"},
      {-1293, "server: the record exists already"},
      {-12301, "server: outside of what the user may touch"},
  };
  for (const Expected& c : cases) {
    EXPECT_STREQ(c.text, ErrorText(c.code)) << c.code;
  }
}

TEST(ErrorText, HasATextForNumbersThatAreNoCodes) {
  for (const int code : {1, -999999, -1000, -16, INT32_MIN, INT32_MAX}) {
    EXPECT_STREQ("unknown error", ErrorText(code)) << code;
  }
}

// Every code by its number, as it stands in the contracts.
TEST(ErrorText, KnowsTheCodesOfRouterClientAndStore) {
  const int codes[] = {// router
                       -1, -2, -3, -5, -6, -256, -1811, -2323, -4371, -9747, -12307, -12563, -13843,
                       -15379, -18195, -18451, -18963, -20499,
                       // client: numbers 0x90 to 0x98 over 0x13
                       -36883, -37139, -37395, -37651, -37907, -38163, -38419, -38675, -38931,
                       // parts of the runtime: 0xA0 to 0xA7
                       -40979, -41235, -41491, -41747, -42003, -42259, -42515, -42771,
                       // directory
                       -32787, -33043, -33299, -33555, -33811,
                       // proxies
                       -3089, -5393, -6413, -6669, -6929, -7185, -8209, -9233,
                       // servers
                       -269, -1293, -1549, -2061, -3597, -4109, -6157, -7949, -8205, -9485, -9741,
                       -11277, -12301};
  for (const int code : codes) {
    EXPECT_STRNE("unknown error", ErrorText(code)) << code;
  }
  size_t count = 0;
  AllErrors(count);
  EXPECT_EQ(std::size(codes) + 31 + 8, count) << "and 31 of the codec, 8 of the schema comparison";
}

TEST(ErrorText, TakesTheTextsOfCodecAndSchemaLibraryFromTheirLists) {
#define OSTRAND_LOOK_AT(name, number, text) \
  EXPECT_STREQ(text, ErrorText(ostrand_protocol_cs::OSTRAND_CODEC_ERR_##name));
  OSTRAND_CODEC_ERRORS(OSTRAND_LOOK_AT)
#undef OSTRAND_LOOK_AT
  for (int code = kVexNoLocalMeta; code >= kVexDiffServerLonger; --code) {
    EXPECT_STREQ(vex_code_text(code), ErrorText(code));
  }
}

TEST(ErrorText, EachCodeHasOneTextThatReadsAsAPhrase) {
  size_t count = 0;
  const ErrorEntry* const entries = AllErrors(count);
  ASSERT_LT(0U, count);
  std::set<int> codes;
  for (size_t i = 0; i < count; ++i) {
    const ErrorEntry& entry = entries[i];
    EXPECT_GT(0, entry.code);
    EXPECT_TRUE(codes.insert(entry.code).second) << entry.code << " is there twice";
    ASSERT_NE(nullptr, entry.name);
    ASSERT_NE(nullptr, entry.text);
    EXPECT_LT(0U, std::strlen(entry.name)) << entry.code;
    ASSERT_LT(4U, std::strlen(entry.text)) << entry.code;
    EXPECT_NE('.', entry.text[std::strlen(entry.text) - 1]) << entry.code;
    EXPECT_STREQ(entry.text, ErrorText(entry.code));
  }
}

}  // namespace
}  // namespace OstrandService
