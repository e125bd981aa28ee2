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
  // Builds the request; the code of what refuses it, of the last step or of Send.
  int (*build)(ClientRequest& request);
  int code;
};

class BadRequests : public RuntimeTest, public testing::WithParamInterface<BadRequest> {};

TEST_P(BadRequests, AreRefusedWithACodeAndNothingIsSent) {
  StartFleet(2);
  StartClient();
  int ret = GetParam().build(m_request);
  if (ret == 0) {
    ret = m_client->Send(m_request);
  }
  EXPECT_EQ(ret, GetParam().code) << ErrorText(ret);
  EXPECT_TRUE(HasText(ret));
  EXPECT_EQ(m_client->InFlight(), 0u);
  EXPECT_EQ(m_client->Counters().accepted, 0u);
  EXPECT_EQ(m_client->Receive(m_response, 0), 0);
  EXPECT_EQ(m_fleet->Counters(0).table_requests + m_fleet->Counters(1).table_requests, 0u);
}

int Begin(ClientRequest& request, uint32_t cmd, const char* table = kTable) {
  const int ret = request.Init(cmd, kZone, table);
  return ret != 0 ? ret : request.SetKey("id", "1");
}

int AddValues(ClientRequest& request, size_t count, size_t size) {
  int ret = Begin(request, OSTRAND_API_REPLACE_REQ);
  for (size_t i = 0; i < count && ret == 0; ++i) {
    ret = request.AddValue("f" + std::to_string(i), std::string(size, 'v'));
  }
  return ret;
}

INSTANTIATE_TEST_SUITE_P(
    Each, BadRequests,
    testing::Values(
        BadRequest{"NeverBegun", [](ClientRequest&) { return 0; }, CLIENT_ERR_REQUEST},
        BadRequest{"UnknownCommand", [](ClientRequest& r) { return r.Init(9999, kZone, kTable); },
                   OSTRAND_CODEC_ERR_COMMAND},
        BadRequest{"TheRoutersOwnCommand",
                   [](ClientRequest& r) { return Begin(r, OSTRAND_API_APP_SIGNUP_REQ); },
                   CLIENT_ERR_REQUEST},
        BadRequest{"AnAnswer", [](ClientRequest& r) { return Begin(r, OSTRAND_API_GET_RES); },
                   CLIENT_ERR_REQUEST},
        BadRequest{"TableThatIsNotRegistered",
                   [](ClientRequest& r) { return Begin(r, OSTRAND_API_GET_REQ, "unknown"); },
                   CLIENT_ERR_TABLE},
        BadRequest{"NoTable",
                   [](ClientRequest& r) { return Begin(r, OSTRAND_API_GET_REQ, nullptr); },
                   CLIENT_ERR_TABLE},
        BadRequest{"TableNameTooLong",
                   [](ClientRequest& r) {
                     return r.Init(OSTRAND_API_GET_REQ, kZone, std::string(32, 't').c_str());
                   },
                   OSTRAND_CODEC_ERR_TABLE_NAME},
        BadRequest{"ZoneThatIsNotRegistered",
                   [](ClientRequest& r) {
                     const int ret = r.Init(OSTRAND_API_GET_REQ, 99, kTable);
                     return ret != 0 ? ret : r.SetKey("id", "1");
                   },
                   CLIENT_ERR_TABLE},
        BadRequest{"NoKey",
                   [](ClientRequest& r) { return r.Init(OSTRAND_API_GET_REQ, kZone, kTable); },
                   CLIENT_ERR_KEY},
        BadRequest{"AKeyWithoutValue",
                   [](ClientRequest& r) {
                     const int ret = r.Init(OSTRAND_API_GET_REQ, kZone, kTable);
                     return ret != 0 ? ret : r.SetKey("id", "");
                   },
                   CLIENT_ERR_KEY},
        BadRequest{"PartOfAKeyWithoutValue",
                   [](ClientRequest& r) {
                     const int ret = Begin(r, OSTRAND_API_GET_BY_PARTKEY_REQ);
                     return ret != 0 ? ret : r.SetKey("day", "");
                   },
                   CLIENT_ERR_KEY},
        BadRequest{"KeyWithoutName",
                   [](ClientRequest& r) {
                     const int ret = r.Init(OSTRAND_API_GET_REQ, kZone, kTable);
                     return ret != 0 ? ret : r.SetKey("", "1");
                   },
                   OSTRAND_CODEC_ERR_FIELD_NAME},
        BadRequest{"KeyTooLong",
                   [](ClientRequest& r) {
                     const int ret = r.Init(OSTRAND_API_GET_REQ, kZone, kTable);
                     return ret != 0 ? ret : r.SetKey("id", std::string(1025, 'k'));
                   },
                   OSTRAND_CODEC_ERR_KEY_FIELD_LEN},
        BadRequest{"TooManyKeyFields",
                   [](ClientRequest& r) {
                     int ret = r.Init(OSTRAND_API_GET_REQ, kZone, kTable);
                     for (int i = 0; i < 9 && ret == 0; ++i) {
                       ret = r.SetKey("k" + std::to_string(i), "1");
                     }
                     return ret;
                   },
                   OSTRAND_CODEC_ERR_KEY_FIELD_NUM},
        BadRequest{
            "ValueTooLarge",
            [](ClientRequest& r) { return AddValues(r, 1, OSTRAND_MAX_RECORD_VALUE_LEN + 1); },
            OSTRAND_CODEC_ERR_VALUE_LEN},
        BadRequest{
            "RecordTooLarge",
            [](ClientRequest& r) { return AddValues(r, 2, OSTRAND_MAX_RECORD_VALUE_LEN / 2 + 1); },
            OSTRAND_CODEC_ERR_VALUE_LEN},
        BadRequest{"TooManyValues", [](ClientRequest& r) { return AddValues(r, 129, 1); },
                   OSTRAND_CODEC_ERR_VALUE_FIELD_NUM},
        BadRequest{"RecordsTooLarge",
                   [](ClientRequest& r) {
                     int ret = r.Init(OSTRAND_API_BATCH_INSERT_REQ, kZone, kTable);
                     for (int i = 0; i < 9 && ret == 0; ++i) {
                       ret = r.AddRecord();
                       ret = ret != 0 ? ret : r.AddRecordKey("id", std::to_string(i));
                       ret = ret != 0
                                 ? ret
                                 : r.AddValue("v", std::string(OSTRAND_MAX_RECORD_VALUE_LEN, 'v'));
                     }
                     return ret;
                   },
                   OSTRAND_CODEC_ERR_RECORDS_LEN},
        BadRequest{"ASecondRecord",
                   [](ClientRequest& r) {
                     const int ret = AddValues(r, 1, 1);
                     return ret != 0 ? ret : r.AddRecord();
                   },
                   RUNTIME_ERR_BODY_KIND},
        BadRequest{"AValueTwice",
                   [](ClientRequest& r) {
                     const int ret = AddValues(r, 1, 1);
                     return ret != 0 ? ret : r.AddValue("f0", "again");
                   },
                   RUNTIME_ERR_DUPLICATE_FIELD},
        BadRequest{"UserBufferTooLong",
                   [](ClientRequest& r) {
                     const int ret = Begin(r, OSTRAND_API_GET_REQ);
                     const std::string bytes(1025, 'b');
                     return ret != 0 ? ret : r.SetUserBuff(bytes.data(), bytes.size());
                   },
                   OSTRAND_CODEC_ERR_USER_BUFF_LEN}),
    [](const testing::TestParamInfo<BadRequest>& test) { return test.param.name; });

class BadCalls : public RuntimeTest {};

TEST_F(BadCalls, ARequestThatFitsIntoNoBufferIsRefused) {
  StartFleet(1);
  auto options = Options();
  options.buffer_limit = 64 * 1024;
  StartClient(options);
  EXPECT_EQ(Do(OSTRAND_API_REPLACE_REQ, "1", std::string(100000, 'v')),
            ROUTER_ERR_SEND_BUFFER_FULL);
  EXPECT_EQ(m_client->InFlight(), 0u);
  EXPECT_EQ(Do(OSTRAND_API_REPLACE_REQ, "1", std::string(50000, 'v')), 0);
}

TEST_F(BadCalls, TheLargestRecordPasses) {
  StartFleet(1);
  StartClient();
  const std::string value(OSTRAND_MAX_RECORD_VALUE_LEN, 'v');
  EXPECT_EQ(Do(OSTRAND_API_REPLACE_REQ, std::string(1024, 'k'), value), 0);
  EXPECT_EQ(Do(OSTRAND_API_GET_REQ, std::string(1024, 'k')), 0);
  EXPECT_EQ(Value(), value);
}

TEST_F(BadCalls, CallWhileOthersAreInFlightIsRefused) {
  StartFleet(1);
  StartClient();
  SetFaults(0, [](OstrandFleet::ProxyFaults& faults) { faults.delay_ms = 50; });
  ASSERT_EQ(m_work->SendOne(), 0);
  EXPECT_EQ(Do(OSTRAND_API_GET_REQ, "1"), CLIENT_ERR_BUSY);
  EXPECT_TRUE(m_work->Drain());
}

TEST_F(BadCalls, ASecondStartIsRefusedAndTheFirstGoesOn) {
  StartFleet(1);
  StartClient();
  EXPECT_EQ(m_client->Start(), CLIENT_ERR_NOT_STARTED);
  EXPECT_EQ(Do(OSTRAND_API_REPLACE_REQ, "1", "v"), 0);
}

}  // namespace
}  // namespace OstrandTests
