#include "common/ostrand_reqresp_util.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <set>

namespace OstrandCommon {
namespace {

using Codes = std::set<uint32_t>;
using Question = bool (*)(uint32_t cmd, uint32_t sub_cmd);

constexpr uint32_t kHighestCode = 5000;

const Codes kReadRequests = {7, 11, 15, 23, 25, 83, 91, 117, 129, 153, 4225, 4227, 4239};
const Codes kReadResponses = {8, 12, 16, 24, 26, 84, 92, 118, 130, 154, 4226, 4228, 4240};
const Codes kWriteRequests = {1,   3,   5,   9,   13,  17,  19,   21,   29,   65,  89,
                              145, 147, 149, 151, 155, 157, 4215, 4217, 4221, 4223};
const Codes kWriteResponses = {2,   4,   6,   10,  14,  18,  20,   22,   30,   66,  90,
                               146, 148, 150, 152, 156, 158, 4216, 4218, 4222, 4224};
const Codes kSimpleReadRequests = {7, 15, 83, 153};
const Codes kSimpleReadResponses = {8, 16, 84, 154};
const Codes kSimpleWriteRequests = {1, 3, 5, 9, 13, 17, 19, 21, 29, 65, 155, 157};
const Codes kSimpleWriteResponses = {2, 4, 6, 10, 14, 18, 20, 22, 30, 66, 156, 158};
const Codes kComplexReadResponses = {12, 24, 26, 92, 118, 130, 4226, 4228, 4240};
const Codes kComplexWriteResponses = {90, 146, 148, 150, 152, 4216, 4218, 4222, 4224};

const struct {
  const char* name;
  Question question;
  const Codes& codes;
} kClasses[] = {
    {"IsReadRequest", &OstrandReqRespUtil::IsReadRequest, kReadRequests},
    {"IsReadResponse", &OstrandReqRespUtil::IsReadResponse, kReadResponses},
    {"IsWriteRequest", &OstrandReqRespUtil::IsWriteRequest, kWriteRequests},
    {"IsWriteResponse", &OstrandReqRespUtil::IsWriteResponse, kWriteResponses},
    {"IsSimpleReadRequest", &OstrandReqRespUtil::IsSimpleReadRequest, kSimpleReadRequests},
    {"IsSimpleReadResponse", &OstrandReqRespUtil::IsSimpleReadResponse, kSimpleReadResponses},
    {"IsSimpleWriteRequest", &OstrandReqRespUtil::IsSimpleWriteRequest, kSimpleWriteRequests},
    {"IsSimpleWriteResponse", &OstrandReqRespUtil::IsSimpleWriteResponse, kSimpleWriteResponses},
    {"IsComplexAndTransReadRsp", &OstrandReqRespUtil::IsComplexAndTransReadRsp,
     kComplexReadResponses},
    {"IsComplexAndTransWriteRsp", &OstrandReqRespUtil::IsComplexAndTransWriteRsp,
     kComplexWriteResponses},
};

TEST(OstrandReqRespUtil, EachClassHoldsExactlyItsCodes) {
  for (const auto& c : kClasses) {
    for (uint32_t cmd = 0; cmd <= kHighestCode; ++cmd) {
      EXPECT_EQ(c.codes.count(cmd) == 1, c.question(cmd, 0)) << c.name << "(" << cmd << ")";
    }
  }
}

TEST(OstrandReqRespUtil, NoClassHoldsCodesAtTheTopOfTheRange) {
  for (const auto& c : kClasses) {
    for (const uint32_t cmd : {0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFEU, 0xFFFFFFFFU}) {
      EXPECT_FALSE(c.question(cmd, 0)) << c.name << "(" << cmd << ")";
    }
  }
}

TEST(OstrandReqRespUtil, TheSubCommandChangesNothing) {
  for (const auto& c : kClasses) {
    for (uint32_t cmd = 0; cmd <= kHighestCode; ++cmd) {
      for (const uint32_t sub_cmd : {1U, cmd, 0xFFFFFFFFU}) {
        EXPECT_EQ(c.question(cmd, 0), c.question(cmd, sub_cmd))
            << c.name << "(" << cmd << ", " << sub_cmd << ")";
      }
    }
  }
}

// Were they to differ, requests would be counted whose answers are not, and a proxy in good health
// would look dead.
TEST(OstrandReqRespUtil, AResponseHasTheClassOfItsRequest) {
  for (uint32_t cmd = 0; cmd <= kHighestCode; ++cmd) {
    EXPECT_EQ(OstrandReqRespUtil::IsReadRequest(cmd, 0),
              OstrandReqRespUtil::IsReadResponse(cmd + 1, 0))
        << cmd;
    EXPECT_EQ(OstrandReqRespUtil::IsWriteRequest(cmd, 0),
              OstrandReqRespUtil::IsWriteResponse(cmd + 1, 0))
        << cmd;
    EXPECT_EQ(OstrandReqRespUtil::IsSimpleReadRequest(cmd, 0),
              OstrandReqRespUtil::IsSimpleReadResponse(cmd + 1, 0))
        << cmd;
    EXPECT_EQ(OstrandReqRespUtil::IsSimpleWriteRequest(cmd, 0),
              OstrandReqRespUtil::IsSimpleWriteResponse(cmd + 1, 0))
        << cmd;
  }
}

TEST(OstrandReqRespUtil, TheRoutersOwnPackagesAreInNoClass) {
  for (const auto& c : kClasses) {
    for (const uint32_t cmd : {27U, 28U, 51U, 52U, 53U, 54U, 67U, 68U, 4233U, 4234U}) {
      EXPECT_FALSE(c.question(cmd, 0)) << c.name << "(" << cmd << ")";
    }
  }
}

TEST(OstrandReqRespUtil, TwoResultsAreWarnings) {
  for (int code = -10000; code <= 10000; ++code) {
    EXPECT_EQ(code == -1293 || code == -7949, OstrandReqRespUtil::ShouldRegardErrorToWarn(code))
        << code;
  }
}

}  // namespace
}  // namespace OstrandCommon
