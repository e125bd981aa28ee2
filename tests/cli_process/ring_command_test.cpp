// `ostrand ring` as a process.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <numeric>
#include <string>
#include <vector>

#include "cli_process/json_value.h"
#include "cli_process/process.h"
#include "svg_check.h"

namespace OstrandTest {
namespace {

using Texts = std::vector<std::string>;

constexpr char kThree[] = "tcp://127.0.0.1:9001,tcp://127.0.0.1:9002,tcp://127.0.0.1:9003";
constexpr char kTwo[] = "tcp://127.0.0.1:9001,tcp://127.0.0.1:9003";

uint64_t Position(const std::string& text) { return std::strtoull(text.c_str(), nullptr, 16); }

// A plain ring of two proxies: one that has its points written down, cut as rings are cut. What
// the program says of a change from one proxy to two is compared with it.
double PlainShareOfTheSecondOfTwo() {
  // The second proxy gets 100 arcs of half the even length, 2^64 / 100, rounded down.
  constexpr uint64_t kEvenArc = 0x28F5C28F5C28F5C;
  return 100.0 * static_cast<double>(kEvenArc / 2) / 18446744073709551616.0;
}

TEST(RingCommand, ShowsTheSharesOfARoute) {
  const ProcessResult result = RunProgram({"ring", "show", kThree, "--json"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(JsonNumber(result.out, "points"), 300);
  EXPECT_EQ(JsonTexts(result.out, "url"),
            (Texts{"tcp://127.0.0.1:9001", "tcp://127.0.0.1:9002", "tcp://127.0.0.1:9003"}));
  const std::vector<double> shares = JsonNumbers(result.out, "share");
  ASSERT_EQ(shares.size(), 3u);
  EXPECT_NEAR(std::accumulate(shares.begin(), shares.end(), 0.0), 1, 1e-9);

  const ProcessResult table = RunProgram({"ring", "show", "2"});
  EXPECT_EQ(table.status, 0) << table.err;
  EXPECT_EQ(table.out,
            "place  proxy         points     share\n"
            "    0  proxy-0 (p0)     100  50.0000%\n"
            "    1  proxy-1 (p1)     100  50.0000%\n");
}

TEST(RingCommand, TellsWhoOwnsAKeyAndWhy) {
  const ProcessResult result =
      RunProgram({"ring", "where", "uid=abcdefgh", "--route", kThree, "--owners", "5", "--json"});
  EXPECT_EQ(result.status, 0) << result.err;
  // As a separate program hashed the eight letters.
  EXPECT_EQ(JsonTexts(result.out, "hash"), Texts{"0x38d5b4db2c158710"});
  const uint64_t begin = Position(JsonTexts(result.out, "begin").at(0));
  const uint64_t end = Position(JsonTexts(result.out, "end").at(0));
  EXPECT_LT(begin, 0x38d5b4db2c158710u);
  EXPECT_GE(end, 0x38d5b4db2c158710u);
  const Texts owners = JsonTexts(result.out, "url");
  ASSERT_EQ(owners.size(), 3u) << "no more than there are";
  EXPECT_EQ(Texts({"tcp://127.0.0.1:9001", "tcp://127.0.0.1:9002", "tcp://127.0.0.1:9003"}),
            [owners] {
              Texts sorted = owners;
              std::sort(sorted.begin(), sorted.end());
              return sorted;
            }());
  EXPECT_EQ(JsonTexts(result.out, "point").at(0), JsonTexts(result.out, "end").at(0));

  const ProcessResult text =
      RunProgram({"ring", "where", "uid=abcdefgh", "--route", kThree, "--owners", "1"});
  EXPECT_EQ(text.status, 0) << text.err;
  EXPECT_NE(text.out.find("owner  " + owners[0] + "\n"), std::string::npos) << text.out;
  EXPECT_NE(text.out.find("hash   0x38d5b4db2c158710\n"), std::string::npos) << text.out;
}

TEST(RingCommand, TheOrderOfAKeysFieldsDoesNotMatterButTheirTypesDo) {
  const auto hash = [](const Texts& key) {
    Texts arguments = {"ring", "where", "--route", "3", "--json"};
    arguments.insert(arguments.end(), key.begin(), key.end());
    const ProcessResult result = RunProgram(arguments);
    EXPECT_EQ(result.status, 0) << result.err;
    return JsonTexts(result.out, "hash").at(0);
  };
  EXPECT_EQ(hash({"a=1", "b=2"}), hash({"b=2", "a=1"}));
  EXPECT_NE(hash({"a=1"}), hash({"a:uint32=1"}));
}

// The keys that a fleet's proxies get are those that the ring gives them.
TEST(RingCommand, AgreesWithWhereAClientSends) {
  FleetProcess fleet({"--proxies", "3"});
  ASSERT_TRUE(fleet.IsUp());
  const Texts directory = {"--directory", fleet.Directory()};
  const ProcessResult shown =
      RunProgram({"ring", "show", "--directory", fleet.Directory(), "--json"});
  EXPECT_EQ(shown.status, 0) << shown.err;
  EXPECT_EQ(JsonTexts(shown.out, "id"), (Texts{"p0", "p1", "p2"}));

  const ProcessResult where = RunProgram(
      {"ring", "where", "key=key-0000000000", "--directory", fleet.Directory(), "--json"});
  EXPECT_EQ(where.status, 0) << where.err;
  const ProcessResult bench = RunProgram({"bench", "--directory", fleet.Directory(), "--keys", "1",
                                          "--requests", "50", "--window", "1", "--json"});
  EXPECT_EQ(bench.status, 0) << bench.err;
  // Proxies that were not signed up yet may have left a few requests to others.
  const Texts urls = JsonTexts(bench.out, "url");
  const std::vector<double> requests = JsonNumbers(bench.out, "requests");
  ASSERT_EQ(urls.size(), requests.size());
  const auto most = std::max_element(requests.begin(), requests.end()) - requests.begin();
  EXPECT_EQ(JsonTexts(where.out, "url").at(0), urls.at(static_cast<size_t>(most)));
}

TEST(RingCommand, DiffTellsWhatMovesAndWhatHasTo) {
  const ProcessResult result = RunProgram({"ring", "diff", "tcp://127.0.0.1:9001",
                                           "tcp://127.0.0.1:9001,tcp://127.0.0.1:9002", "--json"});
  EXPECT_EQ(result.status, 0) << result.err;
  const double expected = PlainShareOfTheSecondOfTwo();
  EXPECT_NEAR(JsonNumber(result.out, "moved"), expected, 1e-9);
  EXPECT_NEAR(JsonNumber(result.out, "least"), expected, 1e-9);
  EXPECT_EQ(JsonNumber(result.out, "fresh_client_differs"), 0);
  EXPECT_NEAR(JsonNumbers(result.out, "gained").at(1), expected, 1e-9);
  EXPECT_NEAR(JsonNumbers(result.out, "lost").at(0), expected, 1e-9);
}

TEST(RingCommand, DiffRemarksThatTheOrderOfARouteMatters) {
  const char* const swapped = "tcp://127.0.0.1:9003,tcp://127.0.0.1:9001";
  const ProcessResult result = RunProgram({"ring", "diff", kTwo, swapped, "--json"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(JsonNumber(result.out, "moved"), 0) << "a client that runs keeps its order";
  EXPECT_NEAR(JsonNumber(result.out, "fresh_client_differs"), 1, 1e-9)
      << "one that starts does not";
  const ProcessResult text = RunProgram({"ring", "diff", kTwo, swapped});
  EXPECT_NE(text.out.find("0.0000% of the key space moves"), std::string::npos) << text.out;
  EXPECT_NE(text.out.find("place 100.0000% of the key space apart"), std::string::npos) << text.out;
}

TEST(RingCommand, ComparesAFleetFileWithTheDirectory) {
  FleetProcess fleet({"--proxies", "2"});
  ASSERT_TRUE(fleet.IsUp());
  TemporaryFolder folder;
  const std::string file =
      folder.Write("route", "zone 1\nproxy tcp://127.0.0.1:9001 a\nproxy tcp://127.0.0.1:9002 b\n");
  const ProcessResult result =
      RunProgram({"ring", "diff", file, "directory", "--directory", fleet.Directory(), "--json"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_NEAR(JsonNumber(result.out, "moved"), 1, 1e-9) << "all proxies are others";
}

TEST(RingCommand, DrawsEither) {
  TemporaryFolder folder;
  const std::string svg = folder.Path("ring.svg");
  const ProcessResult show = RunProgram({"ring", "show", "8", "--svg", svg});
  EXPECT_EQ(show.status, 0) << show.err;
  EXPECT_EQ(XmlFault(ReadAll(svg)), "");
  auto bands = SvgBands(ReadAll(svg), {"proxy"});
  ASSERT_EQ(bands.size(), 1u);
  EXPECT_EQ(bands.begin()->second.arcs, 800);
  EXPECT_EQ(bands.begin()->second.fault, "");
  EXPECT_NEAR(bands.begin()->second.turns, 1, 1e-3);

  const ProcessResult diff = RunProgram({"ring", "diff", "8", "9", "--svg", svg});
  EXPECT_EQ(diff.status, 0) << diff.err;
  EXPECT_EQ(XmlFault(ReadAll(svg)), "");
  bands = SvgBands(ReadAll(svg), {"proxy"});
  ASSERT_EQ(bands.size(), 2u);
  for (const auto& [radius, band] : bands) {
    EXPECT_EQ(band.fault, "") << radius;
    EXPECT_NEAR(band.turns, 1, 1e-3) << radius;
  }
}

TEST(RingCommand, HelpNamesItsParts) {
  const ProcessResult result = RunProgram({"ring", "--help"});
  EXPECT_EQ(result.status, 0);
  for (const char* part : {"where", "show", "diff"}) {
    EXPECT_NE(result.out.find(part), std::string::npos) << part;
    const ProcessResult help = RunProgram({"ring", part, "--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_NE(help.out.find("--json"), std::string::npos);
  }
}

TEST(RingCommand, SaysWhatIsWrongAndFails) {
  const struct {
    Texts arguments;
    int status;
    const char* says;
  } kCases[] = {
      {{"ring"}, 2, "subcommand"},
      {{"ring", "show", "--unknown"}, 2, "--unknown"},
      {{"ring", "show"}, 2, "no directory is named"},
      {{"ring", "show", "/nowhere/route"}, 1, "/nowhere/route"},
      {{"ring", "show", "0"}, 1, "1 to 200 proxies"},
      {{"ring", "show", "tcp://nonsense"}, 1, "is no address of a proxy"},
      {{"ring", "show", "--directory", "tcp://127.0.0.1:1", "--wait-ms", "100"}, 1, "in time"},
      {{"ring", "where", "--route", "3"}, 2, "key"},
      {{"ring", "where", "uid", "--route", "3"}, 2, "uid"},
      {{"ring", "where", "uid=1", "uid=2", "--route", "3"}, 2, "uid"},
      {{"ring", "diff", "3"}, 2, "new"},
      {{"ring", "diff", "3", "nowhere"}, 1, "nowhere"},
      {{"ring", "show", "3", "--svg", "/nowhere/ring.svg"}, 1, "/nowhere/ring.svg"},
      {{"ring", "show", "3", "--svg", "/dev/full"}, 1, "/dev/full"},
  };
  for (const auto& c : kCases) {
    const ProcessResult result = RunProgram(c.arguments);
    EXPECT_EQ(result.status, c.status) << c.says << "\n" << result.err;
    EXPECT_NE(result.err.find(c.says), std::string::npos) << c.says << "\n" << result.err;
    EXPECT_EQ(result.out, "") << c.says;
  }
}

TEST(RingCommand, NoticesAFullStandardOutput) {
  ProcessOptions options;
  options.stdout_path = "/dev/full";
  const ProcessResult result = RunProgram({"ring", "show", "3"}, options);
  EXPECT_EQ(result.status, 1);
  EXPECT_NE(result.err, "");
}

}  // namespace
}  // namespace OstrandTest
