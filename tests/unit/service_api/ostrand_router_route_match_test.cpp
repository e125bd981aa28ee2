// When a directory's answer is the route that the router has already.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "unit/service_api/router_route_test.h"

namespace OstrandService {
namespace {

using OstrandFakes::DirectoryAnswer;

class RouteMatchTest : public RouterRouteTest {
 protected:
  // Elements without a record, which matching does not look at.
  void Fill(List* list, const Texts& urls) {
    list->Clear();
    for (const std::string& url : urls) {
      AppendNode(list, url, nullptr);
    }
  }
  bool IsIn(const DirectoryAnswer& answer, const std::string& url) {
    return peer->IsInNewRoute(answer.get(), url.c_str());
  }
  bool Matches(const DirectoryAnswer& answer, const Texts& urls) {
    Fill(in_use, urls);
    return peer->IsMatchList(answer.get(), in_use);
  }
  static DirectoryAnswer WithCount(const Texts& urls, int32_t count) {
    DirectoryAnswer answer(urls);
    answer.SetCount(count);
    return answer;
  }
};

// --- IsInNewRoute ---

TEST_F(RouteMatchTest, AUrlIsInTheRouteWhenOneOfItsRowsEqualsIt) {
  const DirectoryAnswer answer({kA, kB, kC});
  const struct {
    const char* what;
    std::string url;
    bool in_route;
  } kCases[] = {
      {"the first row", kA, true},
      {"the last row", kC, true},
      {"another url", kD, false},
      {"the beginning of a row", std::string(kA).substr(0, std::string(kA).size() - 1), false},
      {"a row and more", std::string(kA) + "0", false},
      {"another case", "TCP://10.0.0.1:1001", false},
      {"nothing", "", false},
      {"a row that does not count", std::string(64, '~'), false},
  };
  for (const auto& c : kCases) {
    EXPECT_EQ(c.in_route, IsIn(answer, c.url)) << c.what;
  }
}

TEST_F(RouteMatchTest, NothingIsInNoRouteAndNoUrlIsInARoute) {
  EXPECT_FALSE(peer->IsInNewRoute(nullptr, kA));
  EXPECT_FALSE(peer->IsInNewRoute(DirectoryAnswer({kA}).get(), nullptr));
  EXPECT_FALSE(peer->IsInNewRoute(nullptr, nullptr));
}

TEST_F(RouteMatchTest, OnlyRowsWithinTheCountAreLookedAt) {
  EXPECT_TRUE(IsIn(WithCount({kA, kB, kC}, 2), kB));
  EXPECT_FALSE(IsIn(WithCount({kA, kB, kC}, 2), kC));
  for (const int32_t count : {0, -1, -200, INT32_MIN}) {
    EXPECT_FALSE(IsIn(WithCount({kA, kB, kC}, count), kA)) << count;
  }
}

TEST_F(RouteMatchTest, RowsFromThe200thOnAreNotThere) {
  // The ids lie behind the urls: two of them would be the 201st row, if there were one.
  const std::string no_url = "tcp://" + std::string(26, 'i');
  DirectoryAnswer answer(ManyUrls(200));
  answer.SetRow(0, ManyUrls(1)[0], no_url);
  answer.SetRow(1, ManyUrls(1, 1)[0], "");
  for (const int32_t count : {201, 250, 428, INT32_MAX}) {
    answer.SetCount(count);
    EXPECT_FALSE(IsIn(answer, no_url)) << count;
    EXPECT_FALSE(IsIn(answer, "")) << count;
    EXPECT_TRUE(IsIn(answer, ManyUrls(1, 199)[0])) << count;
  }
}

TEST_F(RouteMatchTest, Compares64Bytes) {
  const std::string row = "tcp://" + std::string(58, 'x');
  DirectoryAnswer answer({kA, kB});
  answer.SetRow(0, row, "id");
  EXPECT_TRUE(IsIn(answer, row));
  EXPECT_TRUE(IsIn(answer, row + "and more")) << "a row that has no end says nothing about it";
  EXPECT_FALSE(IsIn(answer, row.substr(0, 63)));
  EXPECT_FALSE(IsIn(answer, row.substr(0, 63) + "y"));
  EXPECT_TRUE(IsIn(answer, kB));
}

// --- IsMatchList ---

TEST_F(RouteMatchTest, AListMatchesWhenItHoldsExactlyTheRoutesUrls) {
  const struct {
    const char* what;
    Texts route;
    Texts list;
    bool matches;
  } kCases[] = {
      {"the same", {kA, kB, kC}, {kA, kB, kC}, true},
      {"another order", {kA, kB, kC}, {kC, kA, kB}, true},
      {"one", {kA}, {kA}, true},
      {"nothing", {}, {}, true},
      {"one more in the route", {kA, kB, kC}, {kA, kB}, false},
      {"one more in the list", {kA, kB}, {kA, kB, kC}, false},
      {"another one", {kA, kB, kC}, {kA, kB, kD}, false},
      {"a route with a duplicate", {kA, kA}, {kA, kB}, false},
      {"a list with a duplicate", {kA, kB}, {kA, kA}, false},
      {"a duplicate that hides nothing", {kA, kA}, {kA}, false},
      {"an empty list", {kA}, {}, false},
      {"an empty route", {}, {kA}, false},
  };
  for (const auto& c : kCases) {
    EXPECT_EQ(c.matches, Matches(DirectoryAnswer(c.route), c.list)) << c.what;
  }
}

TEST_F(RouteMatchTest, TheCountIsComparedAsItWasSent) {
  const struct {
    const char* what;
    int32_t count;
    int in_list;
    bool matches;
  } kCases[] = {
      {"all rows", 200, 200, true},
      {"all rows, one proxy too few", 200, 199, false},
      {"one row too many", 201, 200, false},
      {"many rows too many", 250, 200, false},
      {"a count that no list reaches", INT32_MAX, 200, false},
      {"as many proxies as rows that are not there", 201, 201, false},
      {"even more", 428, 428, false},
      {"a negative count and no proxy", -1, 0, false},
      {"a negative count", -3, 3, false},
      {"the most negative count", INT32_MIN, 3, false},
      {"no row and no proxy", 0, 0, true},
  };
  for (const auto& c : kCases) {
    EXPECT_EQ(c.matches, Matches(WithCount(ManyUrls(200), c.count), ManyUrls(c.in_list))) << c.what;
  }
  // Every row is in the list and every element in the route, but the 201st row cannot be told.
  Texts urls = ManyUrls(200);
  urls.push_back(urls.front());
  EXPECT_FALSE(Matches(WithCount(ManyUrls(200), 201), urls));
}

TEST_F(RouteMatchTest, ANullListIsAnEmptyOne) {
  EXPECT_FALSE(peer->IsMatchList(DirectoryAnswer({kA}).get(), nullptr));
  EXPECT_TRUE(peer->IsMatchList(DirectoryAnswer(Texts()).get(), nullptr));
}

TEST_F(RouteMatchTest, AProxyIsFoundByItsWholeUrl) {
  // 64 bytes tell whether an element is in the route, the whole url whether a row is in the list.
  const std::string row = "tcp://" + std::string(58, 'x');
  DirectoryAnswer answer({kA});
  answer.SetRow(0, row, "id");
  EXPECT_TRUE(Matches(answer, {row}));
  EXPECT_FALSE(Matches(answer, {row + "and more"}));
}

TEST_F(RouteMatchTest, ElementsAreComparedWhateverTheirState) {
  ASSERT_EQ(0, Flush({kA, kB}));
  EXPECT_TRUE(peer->IsMatchList(DirectoryAnswer({kB, kA}).get(), in_use)) << "not connected";
  RealServerNode* node = peer->FindServerNode(in_use, kA);
  ProxyServer* const record = node->server;
  node->server = nullptr;
  EXPECT_TRUE(peer->IsMatchList(DirectoryAnswer({kB, kA}).get(), in_use)) << "no record";
  node->server = record;
}

// --- NeedFlushRoute ---

TEST_F(RouteMatchTest, TheListThatWouldBeReplacedDecides) {
  const struct {
    const char* what;
    Texts preparing;
    Texts in_use;
    Texts route;
    int need;
  } kCases[] = {
      {"equal to the one in use", {}, {kA, kB}, {kB, kA}, 0},
      {"different from the one in use", {}, {kA, kB}, {kA, kC}, 1},
      {"nothing at all yet", {}, {}, {kA}, 1},
      {"equal to the one in preparation", {kA, kC}, {kA, kB}, {kC, kA}, 0},
      {"back to the one in use", {kA, kC}, {kA, kB}, {kA, kB}, 1},
      {"different from both", {kA, kC}, {kA, kB}, {kD}, 1},
      {"all the same", {kA}, {kA}, {kA}, 0},
  };
  for (const auto& c : kCases) {
    Fill(preparing, c.preparing);
    Fill(in_use, c.in_use);
    Fill(removing, {kD, kE});
    EXPECT_EQ(c.need, peer->NeedFlushRoute(DirectoryAnswer(c.route).get())) << c.what;
  }
}

TEST_F(RouteMatchTest, NothingNeedsToChangeWithoutAPreparingList) {
  MakeRouter();
  EXPECT_EQ(0, peer->NeedFlushRoute(DirectoryAnswer({kA}).get()));
}

}  // namespace
}  // namespace OstrandService
