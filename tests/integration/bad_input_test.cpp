// What an application asks wrongly: a code with a text for it, and nothing is sent.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "client/error_text.h"
#include "client/runtime_errors.h"
#include "integration/integration_kit.h"
#include "protocol/codec_errors.h"
#include "protocol/ostrand_protocol_cs.h"
#include "service_api/ostrand_router.h"

namespace OstrandTests {
namespace {

using namespace ostrand_protocol_cs;  // NOLINT: commands, records and codes
using namespace OstrandService;       // NOLINT: the library under test

bool HasText(int code) { return std::string(ErrorText(code)) != "unknown error" && code != 0; }

struct BadRequest {
  const char* name;
  void (*build)(ClientRequest& request);
  int code;  // of Send
};

class BadRequests : public RuntimeTest, public testing::WithParamInterface<BadRequest> {};

TEST_P(BadRequests, AreRefusedWithACodeAndNothingIsSent) {
  StartFleet(2);
  StartClient();
  GetParam().build(m_request);
  const int ret = m_client->Send(m_request);
  EXPECT_EQ(ret, GetParam().code) << ErrorText(ret);
  EXPECT_TRUE(HasText(ret));
  EXPECT_EQ(m_client->InFlight(), 0u);
  EXPECT_EQ(m_client->Counters().accepted, 0u);
  EXPECT_EQ(m_client->Receive(m_response, 0), 0);
  EXPECT_EQ(m_fleet->Counters(0).table_requests + m_fleet->Counters(1).table_requests, 0u);
}

ClientRequest& AddValues(ClientRequest& request, size_t count, size_t size) {
  request.Replace(kTable).Key("id", 1);
  for (size_t i = 0; i < count; ++i) {
    request.Set("f" + std::to_string(i), std::string(size, 'v'));
  }
  return request;
}

constexpr size_t kMaxValue = ostrand_protocol_cs::OSTRAND_MAX_RECORD_VALUE_LEN;

INSTANTIATE_TEST_SUITE_P(
    Each, BadRequests,
    testing::Values(
        BadRequest{"NeverBegun", [](ClientRequest&) {}, CLIENT_ERR_REQUEST},
        BadRequest{"UnknownCommand", [](ClientRequest& r) { r.Begin(9999, kTable).Key("id", 1); },
                   OSTRAND_CODEC_ERR_COMMAND},
        BadRequest{"TheRoutersOwnCommand",
                   [](ClientRequest& r) { r.Begin(OSTRAND_API_APP_SIGNUP_REQ, kTable); },
                   CLIENT_ERR_REQUEST},
        BadRequest{"AnAnswer", [](ClientRequest& r) { r.Begin(OSTRAND_API_GET_RES, kTable); },
                   CLIENT_ERR_REQUEST},
        BadRequest{"TableThatIsNotRegistered",
                   [](ClientRequest& r) { r.Get("unknown").Key("id", 1); }, CLIENT_ERR_TABLE},
        BadRequest{"NoTable", [](ClientRequest& r) { r.Get("").Key("id", 1); }, CLIENT_ERR_TABLE},
        BadRequest{"TableNameTooLong",
                   [](ClientRequest& r) { r.Get(std::string(32, 't')).Key("id", 1); },
                   OSTRAND_CODEC_ERR_TABLE_NAME},
        BadRequest{"ZoneThatIsNotRegistered",
                   [](ClientRequest& r) { r.Get(kTable).Zone(99).Key("id", 1); }, CLIENT_ERR_TABLE},
        BadRequest{"NoKey", [](ClientRequest& r) { r.Get(kTable); }, CLIENT_ERR_KEY},
        BadRequest{"AKeyWithoutValue", [](ClientRequest& r) { r.Get(kTable).Key("id", ""); },
                   CLIENT_ERR_KEY},
        BadRequest{"PartOfAKeyWithoutValue",
                   [](ClientRequest& r) { r.GetByPartKey(kTable).Key("id", 1).Key("day", ""); },
                   CLIENT_ERR_KEY},
        BadRequest{"ABatchWithARecordWithoutKey",
                   [](ClientRequest& r) { r.BatchGet(kTable).Record().Key("id", 1).Record(); },
                   CLIENT_ERR_KEY},
        BadRequest{"ATimeToLiveWithoutKey", [](ClientRequest& r) { r.SetTTL(kTable).Record(1000); },
                   CLIENT_ERR_KEY},
        BadRequest{"AListWithoutKey", [](ClientRequest& r) { r.ListGet(kTable).Element(0); },
                   CLIENT_ERR_KEY},
        BadRequest{"KeyWithoutName", [](ClientRequest& r) { r.Get(kTable).Key("", 1); },
                   OSTRAND_CODEC_ERR_FIELD_NAME},
        BadRequest{"KeyTooLong",
                   [](ClientRequest& r) { r.Get(kTable).Key("id", std::string(1025, 'k')); },
                   OSTRAND_CODEC_ERR_KEY_FIELD_LEN},
        BadRequest{"TooManyKeyFields",
                   [](ClientRequest& r) {
                     r.Get(kTable);
                     for (int i = 0; i < 9; ++i) {
                       r.Key("k" + std::to_string(i), 1);
                     }
                   },
                   OSTRAND_CODEC_ERR_KEY_FIELD_NUM},
        BadRequest{"ANumberThatIsTooLarge",
                   [](ClientRequest& r) { r.Get(kTable).Key<int8_t>("id", 128); },
                   RUNTIME_ERR_VALUE_RANGE},
        BadRequest{"ValueTooLarge", [](ClientRequest& r) { AddValues(r, 1, kMaxValue + 1); },
                   OSTRAND_CODEC_ERR_VALUE_LEN},
        BadRequest{"RecordTooLarge", [](ClientRequest& r) { AddValues(r, 2, kMaxValue / 2 + 1); },
                   OSTRAND_CODEC_ERR_VALUE_LEN},
        BadRequest{"TooManyValues", [](ClientRequest& r) { AddValues(r, 129, 1); },
                   OSTRAND_CODEC_ERR_VALUE_FIELD_NUM},
        BadRequest{"RecordsTooLarge",
                   [](ClientRequest& r) {
                     r.BatchInsert(kTable);
                     for (int i = 0; i < 9; ++i) {
                       r.Record().Key("id", i).Set("v", std::string(kMaxValue, 'v'));
                     }
                   },
                   OSTRAND_CODEC_ERR_RECORDS_LEN},
        BadRequest{"ASecondRecord", [](ClientRequest& r) { AddValues(r, 1, 1).Record(); },
                   RUNTIME_ERR_BODY_KIND},
        BadRequest{"AValueTwice", [](ClientRequest& r) { AddValues(r, 1, 1).Set("f0", "again"); },
                   RUNTIME_ERR_DUPLICATE_FIELD},
        BadRequest{"AValueOfARead",
                   [](ClientRequest& r) { r.Get(kTable).Key("id", 1).Set("v", 1); },
                   RUNTIME_ERR_BODY_KIND},
        BadRequest{"UserBufferTooLong",
                   [](ClientRequest& r) {
                     r.Get(kTable).Key("id", 1).SetUserBuff(std::string(1025, 'b'));
                   },
                   OSTRAND_CODEC_ERR_USER_BUFF_LEN}),
    [](const testing::TestParamInfo<BadRequest>& test) { return test.param.name; });

class BadCalls : public RuntimeTest {};

TEST_F(BadCalls, ARequestThatFitsIntoNoBufferIsRefused) {
  StartFleet(1);
  auto options = Options();
  options.buffer_limit = 64 * 1024;
  StartClient(options);
  EXPECT_EQ(Do(OSTRAND_API_REPLACE_REQ, "1", std::string(100000, 'v')), CLIENT_ERR_TOO_LARGE);
  // A part of the buffer is kept for sign-ups and heartbeats.
  EXPECT_EQ(Do(OSTRAND_API_REPLACE_REQ, "1", std::string(50000, 'v')), CLIENT_ERR_TOO_LARGE);
  EXPECT_EQ(m_client->InFlight(), 0u);
  EXPECT_EQ(Do(OSTRAND_API_REPLACE_REQ, "1", std::string(45000, 'v')), 0);
}

TEST_F(BadCalls, TheLargestRecordPasses) {
  StartFleet(1);
  StartClient();
  const std::string value(OSTRAND_MAX_RECORD_VALUE_LEN, 'v');
  EXPECT_EQ(Do(OSTRAND_API_REPLACE_REQ, std::string(1024, 'k'), value), 0);
  EXPECT_EQ(Do(OSTRAND_API_GET_REQ, std::string(1024, 'k')), 0);
  EXPECT_EQ(Value(), value);
}

TEST_F(BadCalls, ASecondStartIsRefusedAndTheFirstGoesOn) {
  StartFleet(1);
  StartClient();
  EXPECT_EQ(m_client->Start(), CLIENT_ERR_NOT_STARTED);
  EXPECT_EQ(Do(OSTRAND_API_REPLACE_REQ, "1", "v"), 0);
}

}  // namespace
}  // namespace OstrandTests
