#include "protocol/codec_errors.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

namespace ostrand_protocol_cs {
namespace {

const int kCodes[] = {
#define OSTRAND_CODE(name, number, text) OSTRAND_CODEC_ERR_##name,
    OSTRAND_CODEC_ERRORS(OSTRAND_CODE)
#undef OSTRAND_CODE
};

TEST(CodecErrors, EveryCodeIsNegativeAndItsOwn) {
  std::set<int> seen;
  for (const int code : kCodes) {
    EXPECT_LT(code, 0);
    EXPECT_TRUE(seen.insert(code).second) << code;
  }
}

TEST(CodecErrors, EveryCodeNamesTheClientLibraryAsItsModule) {
  for (const int code : kCodes) {
    EXPECT_EQ(-code & 0xFF, 0x13) << code;
  }
}

TEST(CodecErrors, NoCodeIsOneThatOthersUse) {
  const std::set<int> others = {-4371,  -9747,  -1811, -12307, -13843, -18963, -12563, -18451,
                                -18195, -20499, -6413, -6669,  -256,   -1,     -2,     -15379};
  for (const int code : kCodes) {
    EXPECT_EQ(others.count(code), 0u) << code;
  }
}

TEST(CodecErrors, EveryCodeHasATextOfItsOwn) {
  std::set<std::string> seen;
  for (const int code : kCodes) {
    ASSERT_NE(CodecErrorText(code), nullptr) << code;
    EXPECT_TRUE(seen.insert(CodecErrorText(code)).second) << code;
  }
  EXPECT_STREQ(CodecErrorText(0), "success");
  EXPECT_EQ(CodecErrorText(-1), nullptr);
  EXPECT_EQ(CodecErrorText(1), nullptr);
}

TEST(CodecErrors, CodesStayWhatTheyAre) {
  EXPECT_EQ(OSTRAND_CODEC_ERR_ARGUMENT, -24595);
  EXPECT_EQ(OSTRAND_CODEC_ERR_BUFFER_FULL, -24851);
  EXPECT_EQ(OSTRAND_CODEC_ERR_VERSION, -31763);
}

}  // namespace
}  // namespace ostrand_protocol_cs
