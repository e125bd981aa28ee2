#include "client/client_options.h"

#include <gtest/gtest.h>

#include <functional>
#include <limits>
#include <numeric>
#include <string>

namespace OstrandService {
namespace {

ClientOptions GoodOptions() {
  ClientOptions options;
  options.app_id = 7;
  options.zones = {1, 2};
  options.directory_urls = {"tcp://127.0.0.1:9000", "tcp://127.0.0.1:9001"};
  options.tables = {{"user", 1, nullptr}, {"user", 2, nullptr}, {"order", 1, nullptr}};
  options.signature = "a signature";
  return options;
}

constexpr char kAppId[] = "app_id must be 1 to 2147483647";
constexpr char kZones[] = "there must be 1 to 64 zones, each once";
constexpr char kNoUrl[] = "at least one directory url is needed";
constexpr char kUrl[] = "a directory url must have the form tcp://HOST:PORT or tcp://[IPV6]:PORT";
constexpr char kTables[] = "there must be 1 to 256 tables";
constexpr char kNoSignature[] = "a signature, or a user name and a password, is needed";
constexpr char kSignature[] =
    "signature, user name and password must have at most 1023, 32 and 127 characters";
constexpr char kSignType[] = "sign_type must be -32768 to 32767";
constexpr char kTimeout[] = "default_timeout_ms must be at least 1";
constexpr char kInFlight[] = "max_in_flight must be 1 to 2147483647";
constexpr char kBuffer[] = "buffer_limit must be 64 KiB to 1 GiB";
constexpr char kHeartbeat[] = "heartbeat_ms must be at least 1 and below check_heartbeat_ms";
constexpr char kSampling[] = "perf_sample_percent must be 0 to 100";
constexpr char kRefresh[] = "directory_refresh_ms must be at least 1";
constexpr char kWaiting[] = "max_waiting must be 0 to 2147483647";
constexpr char kTableName[] = "a table name must have 1 to 31 characters";
constexpr char kTableZone[] = "a table names a zone that is not among the zones";
constexpr char kTableTwice[] = "a table is given twice for one zone";

struct Rule {
  const char* name;
  std::function<void(ClientOptions&)> edit;
  const char* text;  // null: the options are good
};

class CheckOptionsTest : public testing::TestWithParam<Rule> {};

TEST_P(CheckOptionsTest, SaysWhatIsWrong) {
  ClientOptions options = GoodOptions();
  GetParam().edit(options);
  EXPECT_STREQ(CheckOptions(options), GetParam().text);
}

void SetZones(ClientOptions& options, size_t count) {
  options.zones.resize(count);
  std::iota(options.zones.begin(), options.zones.end(), 1);
}

void SetTables(ClientOptions& options, size_t count) {
  options.tables.clear();
  for (size_t i = 0; i < count; ++i) {
    options.tables.push_back({"t" + std::to_string(i), 1, nullptr});
  }
}

void SignWithPassword(ClientOptions& options, size_t user_len, size_t password_len) {
  options.signature.clear();
  options.user_name.assign(user_len, 'u');
  options.password_encrypted.assign(password_len, 'p');
}

#define RULE(name, statement, text)                   \
  Rule {                                              \
#name, [](ClientOptions & o) { statement; }, text \
  }

INSTANTIATE_TEST_SUITE_P(
    Rules, CheckOptionsTest,
    testing::Values(
        RULE(Good, (void)o, nullptr),

        RULE(AppIdZero, o.app_id = 0, kAppId), RULE(AppIdNegative, o.app_id = -1, kAppId),
        RULE(AppIdOne, o.app_id = 1, nullptr), RULE(AppIdMost, o.app_id = 2147483647, nullptr),
        RULE(AppIdTooLarge, o.app_id = 2147483648, kAppId),

        RULE(NoZone, o.zones.clear(), kZones), RULE(ManyZones, SetZones(o, 64), nullptr),
        RULE(TooManyZones, SetZones(o, 65), kZones), RULE(ZoneTwice, o.zones.push_back(1), kZones),
        RULE(AnyZoneNumber, o.zones.push_back(-5), nullptr),

        RULE(NoUrl, o.directory_urls.clear(), kNoUrl),
        RULE(EmptyUrl, o.directory_urls.emplace_back(""), kUrl),
        RULE(UrlOfAName, o.directory_urls[0] = "tcp://directory:9000", nullptr),
        RULE(UrlOfIpv6, o.directory_urls[0] = "tcp://[::1]:9000", nullptr),
        RULE(UrlWithoutHost, o.directory_urls[0] = "tcp://:9000", kUrl),
        RULE(SecondUrlBad, o.directory_urls[1] = "tcp://127.0.0.1:0", kUrl),

        RULE(NoTable, o.tables.clear(), kTables), RULE(ManyTables, SetTables(o, 256), nullptr),
        RULE(TooManyTables, SetTables(o, 257), kTables)),
    [](const auto& tested) { return std::string(tested.param.name); });

INSTANTIATE_TEST_SUITE_P(
    SignUp, CheckOptionsTest,
    testing::Values(RULE(NothingToSignUpWith, o.signature.clear(), kNoSignature),
                    RULE(UserWithoutPassword, SignWithPassword(o, 1, 0), kNoSignature),
                    RULE(PasswordWithoutUser, SignWithPassword(o, 0, 1), kNoSignature),
                    RULE(UserAndPassword, SignWithPassword(o, 1, 1), nullptr),
                    RULE(Both, SignWithPassword(o, 1, 1); o.signature = "s", nullptr),
                    RULE(SignatureOfMost, o.signature.assign(1023, 's'), nullptr),
                    RULE(SignatureTooLong, o.signature.assign(1024, 's'), kSignature),
                    RULE(SignatureWithNul, o.signature.assign(3, '\0'), kSignature),
                    RULE(UserOfMost, SignWithPassword(o, 32, 1), nullptr),
                    RULE(UserTooLong, SignWithPassword(o, 33, 1), kSignature),
                    RULE(UserWithNul, SignWithPassword(o, 3, 1); o.user_name[1] = '\0', kSignature),
                    RULE(PasswordOfMost, SignWithPassword(o, 1, 127), nullptr),
                    RULE(PasswordTooLong, SignWithPassword(o, 1, 128), kSignature),
                    RULE(PasswordWithNul, SignWithPassword(o, 1, 3);
                         o.password_encrypted[2] = '\0', kSignature),
                    RULE(UserTooLongBesideASignature, SignWithPassword(o, 33, 1);
                         o.signature = "s", kSignature),
                    RULE(SignTypeLeast, o.sign_type = -32768, nullptr),
                    RULE(SignTypeTooSmall, o.sign_type = -32769, kSignType),
                    RULE(SignTypeMost, o.sign_type = 32767, nullptr),
                    RULE(SignTypeTooLarge, o.sign_type = 32768, kSignType)),
    [](const auto& tested) { return std::string(tested.param.name); });

INSTANTIATE_TEST_SUITE_P(
    Numbers, CheckOptionsTest,
    testing::Values(RULE(TimeoutOne, o.default_timeout_ms = 1, nullptr),
                    RULE(TimeoutZero, o.default_timeout_ms = 0, kTimeout),
                    RULE(TimeoutNegative, o.default_timeout_ms = INT32_MIN, kTimeout),
                    RULE(TimeoutMost, o.default_timeout_ms = INT32_MAX, nullptr),

                    RULE(InFlightOne, o.max_in_flight = 1, nullptr),
                    RULE(InFlightNone, o.max_in_flight = 0, kInFlight),
                    RULE(InFlightMost, o.max_in_flight = 2147483647, nullptr),
                    RULE(InFlightTooMany, o.max_in_flight = 2147483648, kInFlight),

                    RULE(BufferLeast, o.buffer_limit = 65536, nullptr),
                    RULE(BufferTooSmall, o.buffer_limit = 65535, kBuffer),
                    RULE(BufferMost, o.buffer_limit = 1073741824, nullptr),
                    RULE(BufferTooLarge, o.buffer_limit = 1073741825, kBuffer),

                    RULE(HeartbeatZero, o.heartbeat_ms = 0, kHeartbeat),
                    RULE(HeartbeatOne, o.heartbeat_ms = 1; o.check_heartbeat_ms = 2, nullptr),
                    RULE(HeartbeatAsRareAsItsCheck, o.heartbeat_ms = 5;
                         o.check_heartbeat_ms = 5, kHeartbeat),
                    RULE(HeartbeatRarerThanItsCheck, o.check_heartbeat_ms = 999, kHeartbeat),

                    RULE(SamplingAll, o.perf_sample_percent = 100, nullptr),
                    RULE(SamplingTooMuch, o.perf_sample_percent = 101, kSampling),
                    RULE(SamplingNegative, o.perf_sample_percent = -1, kSampling),

                    RULE(RefreshOne, o.directory_refresh_ms = 1, nullptr),
                    RULE(RefreshZero, o.directory_refresh_ms = 0, kRefresh),
                    RULE(NothingWaits, o.max_waiting = 0, nullptr),
                    RULE(TooMuchWaits, o.max_waiting = size_t{INT32_MAX} + 1, kWaiting)),
    [](const auto& tested) { return std::string(tested.param.name); });

INSTANTIATE_TEST_SUITE_P(
    TableRules, CheckOptionsTest,
    testing::Values(RULE(NoName, o.tables[1].name = "", kTableName),
                    RULE(NameOfMost, o.tables[1].name.assign(31, 't'), nullptr),
                    RULE(NameTooLong, o.tables[1].name.assign(32, 't'), kTableName),
                    RULE(NameWithNul, o.tables[1].name.assign(2, '\0'), kTableName),
                    RULE(UnknownZone, o.tables[2].zone_id = 3, kTableZone),
                    RULE(TwiceInAZone, o.tables[2].name = "user", kTableTwice),
                    RULE(OnceInEachZone, o.tables[2].zone_id = 2, nullptr)),
    [](const auto& tested) { return std::string(tested.param.name); });

#undef RULE

TEST(CheckOptions, DefaultsLackOnlyWhatNobodyCanGuess) {
  EXPECT_STREQ(CheckOptions(ClientOptions()), kAppId);
  EXPECT_EQ(GoodOptions().default_timeout_ms, 3000);
  EXPECT_EQ(GoodOptions().buffer_limit, size_t{16} * 1024 * 1024);
  EXPECT_EQ(GoodOptions().directory_refresh_ms, 5000);
}

}  // namespace
}  // namespace OstrandService
