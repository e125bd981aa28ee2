#include "fleet/fleet_file.h"

#include <gtest/gtest.h>

namespace OstrandFleet {
namespace {

FleetFile Parsed(std::string_view text) {
  FleetFile file;
  std::string error;
  EXPECT_TRUE(ParseFleetFile(text, file, error)) << error;
  return file;
}

TEST(ParseFleetFile, ReadsEveryKindOfLine) {
  const FleetFile file = Parsed(
      "# a comment\n"
      "\n"
      "zone 1   # another\r\n"
      "proxy tcp://127.0.0.1:9001 p0\n"
      "\tproxy   tcp://127.0.0.1:9002\n"
      "zone -2\n"
      "proxy tcp://127.0.0.1:9001 p0\n"
      "zone 1\n"
      "proxy tcp://127.0.0.1:9003 p2\n"
      "fault p0 delay_ms 200\n"
      "fault p0 answer garbage\n"
      "fault p0 scope all\n"
      "fault p0 heartbeat_text CpuUse=-5;\n"
      "fault p2 silent\n"
      "fault p2 never_read on\n"
      "fault directory wrong-result -7\n"
      "down p2\n"
      "stop p0");
  EXPECT_EQ(file.routes.at(1), (Route{{"tcp://127.0.0.1:9001", "p0"},
                                      {"tcp://127.0.0.1:9002", "proxy-1"},
                                      {"tcp://127.0.0.1:9003", "p2"}}));
  EXPECT_EQ(file.routes.at(-2), (Route{{"tcp://127.0.0.1:9001", "p0"}}));
  const ProxyFaults& p0 = file.faults.at("p0");
  EXPECT_EQ(p0.delay_ms, 200);
  EXPECT_EQ(p0.answer, AnswerFault::kGarbage);
  EXPECT_EQ(p0.scope, AnswerScope::kAll);
  EXPECT_EQ(p0.heartbeat_text, "CpuUse=-5;");
  EXPECT_TRUE(file.faults.at("p2").silent);
  EXPECT_TRUE(file.faults.at("p2").never_read);
  EXPECT_EQ(file.directory_fault, DirectoryFault::kWrongResult);
  EXPECT_EQ(file.directory_fault_value, -7);
  EXPECT_EQ(file.down, (std::set<std::string>{"p2"}));
  EXPECT_EQ(file.stopped, (std::set<std::string>{"p0"}));
}

TEST(ParseFleetFile, RefusesEveryOtherLineByItsNumber) {
  const struct {
    std::string line;
    const char* reason;
  } kCases[] = {
      {"zones 1", "it begins with none of zone, proxy, fault, down, stop"},
      {"zone", "too few or too many words"},
      {"zone 1 2", "too few or too many words"},
      {"zone one", "the zone is not a number"},
      {"zone 2147483648", "the zone is not a number"},
      {"proxy tcp://127.0.0.1:1", "no zone line stands before it"},
      {"fault p0", "too few or too many words"},
      {"fault p0 dely_ms 3", "there is no such switch, or it does not take this value"},
      {"fault p0 delay_ms", "there is no such switch, or it does not take this value"},
      {"fault p0 delay_ms 3s", "there is no such switch, or it does not take this value"},
      {"fault p0 silent maybe", "there is no such switch, or it does not take this value"},
      {"fault p0 answer rubbish", "there is no such switch, or it does not take this value"},
      {"fault directory late", "there is no such fault, or it does not take this value"},
      {"fault directory slow x", "there is no such fault, or it does not take this value"},
      {"down", "too few or too many words"},
  };
  for (const auto& one : kCases) {
    FleetFile file;
    file.down = {"untouched"};
    std::string error;
    EXPECT_FALSE(ParseFleetFile("# first\n" + one.line + "\nzone 1\n", file, error)) << one.line;
    EXPECT_EQ(error, std::string("line 2: ") + one.reason) << one.line;
    EXPECT_EQ(file.down, (std::set<std::string>{"untouched"}));
  }
}

TEST(ParseFleetFile, AddressesAndIdsHaveTheRoomOfTheWire) {
  const auto parses = [](const std::string& url, const std::string& id) {
    FleetFile file;
    std::string error;
    return ParseFleetFile("zone 1\nproxy " + url + " " + id, file, error);
  };
  EXPECT_TRUE(parses(std::string(63, 'u'), std::string(32, 'i')));
  EXPECT_FALSE(parses(std::string(64, 'u'), "i"));
  EXPECT_FALSE(parses("u", std::string(33, 'i')));
}

TEST(WriteFleetFile, WritesWhatParses) {
  const Route route = {{"tcp://127.0.0.1:1", "p0"}, {"tcp://127.0.0.1:2", "p1"}};
  EXPECT_EQ(Parsed(WriteFleetFile(4, route)).routes.at(4), route);
}

TEST(ReadTextFile, RefusesWhatIsNotThere) {
  std::string text;
  EXPECT_FALSE(ReadTextFile("/nonexistent/file", text));
  EXPECT_FALSE(ReadTextFile("/dev/zero", text)) << "larger than any fleet file";
}

TEST(SetSwitch, EverySwitchHasItsNameInTheFile) {
  size_t switches = 0;
#define OSTRAND_FLEET_TRY(type, name, initial, meaning)                         \
  {                                                                             \
    ProxyFaults faults;                                                         \
    const char* const value = std::is_same_v<type, AnswerFault>   ? "late"      \
                              : std::is_same_v<type, AnswerScope> ? "heartbeat" \
                                                                  : "1";        \
    const bool changes = !(std::string_view(#name) == "answer_every");          \
    EXPECT_TRUE(SetSwitch(faults, #name, value)) << #name;                      \
    EXPECT_EQ(faults != ProxyFaults(), changes) << #name;                       \
    ++switches;                                                                 \
  }
  OSTRAND_FLEET_SWITCHES(OSTRAND_FLEET_TRY)
#undef OSTRAND_FLEET_TRY
  EXPECT_EQ(switches, 16U);
}

TEST(ParseNumber, TakesWholeNumbersOnly) {
  int64_t number = 5;
  for (const char* text : {"", " 1", "1 ", "+1", "1.5", "0x10", "9223372036854775808"}) {
    EXPECT_FALSE(ParseNumber(text, number)) << text;
  }
  EXPECT_EQ(number, 5);
  EXPECT_TRUE(ParseNumber("-9223372036854775808", number));
  EXPECT_EQ(number, INT64_MIN);
}

}  // namespace
}  // namespace OstrandFleet
