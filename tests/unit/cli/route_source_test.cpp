// Routes in all the forms that the command line takes.
#include "cli/route_source.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include "fleet/fleet.h"

namespace OstrandCli {
namespace {

using Texts = std::vector<std::string>;

class RouteSourceTest : public testing::Test {
 protected:
  ~RouteSourceTest() override {
    if (!path.empty()) {
      unlink(path.c_str());
    }
  }

  bool Read(const std::string& name) {
    remarks.clear();
    error.clear();
    return ReadRoute(name, connection, route, remarks, error);
  }

  const std::string& Write(const std::string& text) {
    char name[] = "/tmp/ostrand_route_XXXXXX";
    const int fd = mkstemp(name);
    EXPECT_GE(fd, 0);
    EXPECT_EQ(write(fd, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    close(fd);
    path = name;
    return path;
  }

  bool Says(const std::string& part) { return error.find(part) != std::string::npos; }

  Connection connection;
  Route route;
  Texts remarks;
  std::string error;
  std::string path;
};

TEST_F(RouteSourceTest, TakesANumberOfProxies) {
  ASSERT_TRUE(Read("3")) << error;
  EXPECT_EQ(route, (Route{{"proxy-0", "p0"}, {"proxy-1", "p1"}, {"proxy-2", "p2"}}));
  EXPECT_EQ(UrlsOf(route), (Texts{"proxy-0", "proxy-1", "proxy-2"}));
  EXPECT_TRUE(Read("200"));
  for (const char* number : {"0", "-1", "201"}) {
    EXPECT_FALSE(Read(number)) << number;
    EXPECT_TRUE(Says("1 to 200 proxies")) << error;
  }
}

TEST_F(RouteSourceTest, TakesAddressesInOrderAndOneThatIsThereTwiceOnce) {
  ASSERT_TRUE(Read("tcp://127.0.0.1:9002,tcp://127.0.0.1:9001,tcp://127.0.0.1:9002")) << error;
  EXPECT_EQ(UrlsOf(route), (Texts{"tcp://127.0.0.1:9002", "tcp://127.0.0.1:9001"}));
  ASSERT_EQ(remarks.size(), 1u);
  EXPECT_EQ(remarks[0], "tcp://127.0.0.1:9002 is there twice; clients use it once");
  for (const char* list : {"tcp://127.0.0.1:9002,", "tcp://host", "tcp://127.0.0.1:1,9002"}) {
    EXPECT_FALSE(Read(list)) << list;
    EXPECT_TRUE(Says("is no address of a proxy")) << error;
  }
}

TEST_F(RouteSourceTest, UsesTheFirst200AsClientsDo) {
  std::string list;
  for (int i = 1; i <= 203; ++i) {
    list += (i > 1 ? "," : "") + std::string("tcp://10.0.0.") + std::to_string(i) + ":9000";
  }
  ASSERT_TRUE(Read(list)) << error;
  EXPECT_EQ(route.size(), 200u);
  EXPECT_EQ(route.back().url, "tcp://10.0.0.200:9000");
  EXPECT_EQ(remarks, (Texts{"the route has 203 proxies; clients use the first 200"}));
}

TEST_F(RouteSourceTest, TakesTheZoneOfAFleetFile) {
  Write(
      "zone 3\nproxy tcp://127.0.0.1:9003 c\nzone 1\nproxy tcp://127.0.0.1:9001 a\n"
      "proxy tcp://127.0.0.1:9002\nfault a delay_ms 5\n");
  ASSERT_TRUE(Read(path)) << error;
  EXPECT_EQ(route, (Route{{"tcp://127.0.0.1:9001", "a"}, {"tcp://127.0.0.1:9002", "proxy-1"}}));
  connection.zone = 3;
  ASSERT_TRUE(Read(path)) << error;
  EXPECT_EQ(route, (Route{{"tcp://127.0.0.1:9003", "c"}}));
  connection.zone = 2;
  EXPECT_FALSE(Read(path));
  EXPECT_TRUE(Says("no proxies of zone 2: choose another with --zone (1, 3)")) << error;
}

TEST_F(RouteSourceTest, SaysWhatIsWrongWithAFile) {
  EXPECT_FALSE(Read("/nowhere/route"));
  EXPECT_TRUE(Says("/nowhere/route")) << error;
  Write("zone 1\nproxy tcp://127.0.0.1:9001\nnonsense\n");
  EXPECT_FALSE(Read(path));
  EXPECT_TRUE(Says(path + ", line 3: ")) << error;
  unlink(path.c_str());
  Write("# nothing\n");
  EXPECT_FALSE(Read(path));
  EXPECT_TRUE(Says("add lines 'zone N' and 'proxy URL'")) << error;
  unlink(path.c_str());
  Write("zone 1\nproxy somewhere a\n");
  EXPECT_FALSE(Read(path));
  EXPECT_TRUE(Says("'somewhere' is no address that a client connects to")) << error;
}

TEST_F(RouteSourceTest, AsksADirectory) {
  OstrandFleet::FleetOptions options;
  options.proxies = 3;
  OstrandFleet::Fleet fleet(options);
  ASSERT_EQ(fleet.Start(), 0) << fleet.Error();
  fleet.SetRoute(1, Texts{fleet.ProxyUrl(2), fleet.ProxyUrl(0)});
  connection.directory_urls = {fleet.DirectoryUrl()};
  ASSERT_TRUE(Read(kLiveRoute)) << error;
  EXPECT_EQ(UrlsOf(route), (Texts{fleet.ProxyUrl(2), fleet.ProxyUrl(0)}));

  // A second directory is asked when the first one is away.
  connection.directory_urls = {"tcp://127.0.0.1:1", fleet.DirectoryUrl()};
  EXPECT_TRUE(Read(kLiveRoute)) << error;
}

TEST_F(RouteSourceTest, ADirectoryThatDoesNotAnswerIsAnError) {
  OstrandFleet::Fleet fleet;
  ASSERT_EQ(fleet.Start(), 0) << fleet.Error();
  ASSERT_EQ(fleet.SetDirectoryFault(OstrandFleet::DirectoryFault::kSilent), 0);
  connection.directory_urls = {fleet.DirectoryUrl()};
  connection.wait_ms = 100;
  EXPECT_FALSE(Read(kLiveRoute));
  EXPECT_TRUE(Says("named the proxies of zone 1 in time")) << error;
  connection.directory_urls = {"nonsense"};
  EXPECT_FALSE(Read(kLiveRoute));
  EXPECT_TRUE(Says("nonsense")) << error;
}

}  // namespace
}  // namespace OstrandCli
