// Options out of range: Start answers a code, and nothing runs.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "client/client_options.h"
#include "integration/integration_kit.h"

namespace OstrandTests {
namespace {

using namespace OstrandService;  // NOLINT: the library under test

struct BadOption {
  const char* name;
  void (*spoil)(ClientOptions& options);
  const char* error;
};

class BadOptions : public RuntimeTest, public testing::WithParamInterface<BadOption> {};

TEST_P(BadOptions, AreRefusedByStart) {
  StartFleet(1);
  ClientOptions options = Options();
  ASSERT_EQ(CheckOptions(options), nullptr);
  GetParam().spoil(options);
  const size_t threads = CountEntries("/proc/self/task");
  PollingClient client(options);
  EXPECT_EQ(client.Start(), CLIENT_ERR_OPTIONS);
  EXPECT_STREQ(client.OptionsError(), GetParam().error);
  EXPECT_EQ(CountEntries("/proc/self/task"), threads);
  EXPECT_EQ(client.WaitReady(0), CLIENT_ERR_NOT_STARTED);
  EXPECT_EQ(client.Send(m_request), CLIENT_ERR_NOT_STARTED);
  EXPECT_EQ(client.Receive(m_response, 0), CLIENT_ERR_NOT_STARTED);
  EXPECT_EQ(client.Call(m_request, m_response), CLIENT_ERR_NOT_STARTED);
  EXPECT_EQ(client.Update(), CLIENT_ERR_NOT_STARTED);
  EXPECT_EQ(client.Flush(), CLIENT_ERR_NOT_STARTED);
  EXPECT_EQ(client.Stop(0), 0u);
  EXPECT_EQ(m_fleet->CountersOfDirectory().connections_accepted, 0u);
}

constexpr char kNoZones[] = "there must be 1 to 64 zones, each once";
constexpr char kNoAddress[] =
    "a directory url must have the form tcp://HOST:PORT or tcp://[IPV6]:PORT";
constexpr char kNoTables[] = "there must be 1 to 256 tables";
constexpr char kTableName[] = "a table name must have 1 to 31 characters";
constexpr char kNoSignature[] = "a signature, or a user name and a password, is needed";
constexpr char kLongSignature[] =
    "signature, user name and password must have at most 1023, 32 and 127 characters";
constexpr char kInFlight[] = "max_in_flight must be 1 to 2147483647";
constexpr char kBufferLimit[] = "buffer_limit must be 64 KiB to 1 GiB";
constexpr char kHeartbeat[] = "heartbeat_ms must be at least 1 and below check_heartbeat_ms";
constexpr char kPerfSample[] = "perf_sample_percent must be 0 to 100";
constexpr char kRefresh[] = "directory_refresh_ms must be at least 1";

void SetZones(ClientOptions& options, int count) {
  options.zones.clear();
  for (int i = 0; i < count; ++i) {
    options.zones.push_back(i + 1);
  }
}

void SetTables(ClientOptions& options, int count) {
  options.tables.clear();
  for (int i = 0; i < count; ++i) {
    options.tables.push_back({"table" + std::to_string(i), kZone, nullptr});
  }
}

INSTANTIATE_TEST_SUITE_P(
    Each, BadOptions,
    testing::Values(
        BadOption{"NoApplication", [](ClientOptions& o) { o.app_id = 0; },
                  "app_id must be 1 to 2147483647"},
        BadOption{"ApplicationTooLarge", [](ClientOptions& o) { o.app_id = int64_t{1} << 31; },
                  "app_id must be 1 to 2147483647"},
        BadOption{"NoZone", [](ClientOptions& o) { SetZones(o, 0); }, kNoZones},
        BadOption{"TooManyZones", [](ClientOptions& o) { SetZones(o, 65); }, kNoZones},
        BadOption{"AZoneTwice",
                  [](ClientOptions& o) {
                    o.zones = {1, 1};
                  },
                  kNoZones},
        BadOption{"NoDirectory", [](ClientOptions& o) { o.directory_urls.clear(); },
                  "at least one directory url is needed"},
        BadOption{"DirectoryIsNoUrl", [](ClientOptions& o) { o.directory_urls = {"localhost"}; },
                  kNoAddress},
        BadOption{"SecondDirectoryIsNoUrl",
                  [](ClientOptions& o) { o.directory_urls.push_back("tcp://1.2.3.4:0"); },
                  kNoAddress},
        BadOption{"NoTable", [](ClientOptions& o) { SetTables(o, 0); }, kNoTables},
        BadOption{"TooManyTables", [](ClientOptions& o) { SetTables(o, 257); }, kNoTables},
        BadOption{"TableWithoutName", [](ClientOptions& o) { o.tables[0].name.clear(); },
                  kTableName},
        BadOption{"TableNameTooLong", [](ClientOptions& o) { o.tables[0].name.assign(32, 'x'); },
                  kTableName},
        BadOption{"TableNameWithNul", [](ClientOptions& o) { o.tables[0].name.assign(2, '\0'); },
                  kTableName},
        BadOption{"TableOfAnotherZone", [](ClientOptions& o) { o.tables[0].zone_id = 9; },
                  "a table names a zone that is not among the zones"},
        BadOption{"ATableTwice", [](ClientOptions& o) { o.tables.push_back(o.tables[0]); },
                  "a table is given twice for one zone"},
        BadOption{"NobodySigns", [](ClientOptions& o) { o.signature.clear(); }, kNoSignature},
        BadOption{"NoPassword",
                  [](ClientOptions& o) {
                    o.signature.clear();
                    o.user_name = "ada";
                  },
                  kNoSignature},
        BadOption{"SignatureTooLong", [](ClientOptions& o) { o.signature.assign(1024, 's'); },
                  kLongSignature},
        BadOption{"SignatureWithNul", [](ClientOptions& o) { o.signature.assign(3, '\0'); },
                  kLongSignature},
        BadOption{"UserNameTooLong", [](ClientOptions& o) { o.user_name.assign(33, 'u'); },
                  kLongSignature},
        BadOption{"PasswordTooLong",
                  [](ClientOptions& o) { o.password_encrypted.assign(128, 'p'); }, kLongSignature},
        BadOption{"SignTypeTooLarge", [](ClientOptions& o) { o.sign_type = 32768; },
                  "sign_type must be -32768 to 32767"},
        BadOption{"NoTimeOut", [](ClientOptions& o) { o.default_timeout_ms = 0; },
                  "default_timeout_ms must be at least 1"},
        BadOption{"NothingInFlight", [](ClientOptions& o) { o.max_in_flight = 0; }, kInFlight},
        BadOption{"TooManyInFlight", [](ClientOptions& o) { o.max_in_flight = size_t{1} << 31; },
                  kInFlight},
        BadOption{"BuffersTooSmall", [](ClientOptions& o) { o.buffer_limit = 65535; },
                  kBufferLimit},
        BadOption{"BuffersTooLarge",
                  [](ClientOptions& o) { o.buffer_limit = (size_t{1} << 30) + 1; }, kBufferLimit},
        BadOption{"NoHeartbeat", [](ClientOptions& o) { o.heartbeat_ms = 0; }, kHeartbeat},
        BadOption{"NoPatience", [](ClientOptions& o) { o.check_heartbeat_ms = o.heartbeat_ms; },
                  kHeartbeat},
        BadOption{"NegativeShare", [](ClientOptions& o) { o.perf_sample_percent = -1; },
                  kPerfSample},
        BadOption{"ShareTooLarge", [](ClientOptions& o) { o.perf_sample_percent = 101; },
                  kPerfSample},
        BadOption{"NoRefresh", [](ClientOptions& o) { o.directory_refresh_ms = 0; }, kRefresh}),
    [](const testing::TestParamInfo<BadOption>& test) { return test.param.name; });

}  // namespace
}  // namespace OstrandTests
