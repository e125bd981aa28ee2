#include "cli/status_json.h"

#include <gtest/gtest.h>

namespace OstrandCli {
namespace {

TEST(StatusJsonTest, WritesProxiesAndFiguresOfAZone) {
  EXPECT_EQ(StatusAsJson("zone 1\n"
                         "\tin_flight:12\n"
                         "\tring:1-3-abc\n"
                         "\tauth_success_proxy:1\n"
                         "\tnot_connect_proxy:\n"
                         "\t\ttcp://127.0.0.1:1 status:2\n"
                         "\tauth_fail_proxy:\n"
                         "\tauth_success_proxy:\n"
                         "\t\ttcp://127.0.0.1:2\n"),
            "{\"sections\":[{\"title\":\"zone 1\","
            "\"figures\":{\"in_flight\":12,\"ring\":\"1-3-abc\",\"auth_success_proxy\":1},"
            "\"proxies\":{\"not_connect_proxy\":[\"tcp://127.0.0.1:1 status:2\"],"
            "\"auth_fail_proxy\":[],\"auth_success_proxy\":[\"tcp://127.0.0.1:2\"]}}]}");
}

TEST(StatusJsonTest, WritesCountersWithoutTheirUnits) {
  EXPECT_EQ(StatusAsJson("app 1 zone 1, this minute\n"
                         "\tdwReqSucNumPerMin:9 requests\n"
                         "\tstApiTotalDelay dwMaxDelay:3 dwDelayLow10MS:7\n"
                         "\ttable two words dwTableReqSucNumPerMin:9 dwTableReqErrNumPerMin:0\n"
                         "\taccess tcp://127.0.0.1:2 p0 x dwRequestCountPerMin:3\n"
                         "\t\tstProxyToApiDelay dwMaxDelay:1\n"
                         "\taccess tcp://127.0.0.1:3  dwRequestCountPerMin:6\n"),
            "{\"sections\":[{\"title\":\"app 1 zone 1, this minute\","
            "\"figures\":{\"dwReqSucNumPerMin\":9},"
            "\"delays\":{\"stApiTotalDelay\":{\"dwMaxDelay\":3,\"dwDelayLow10MS\":7}},"
            "\"tables\":[{\"name\":\"two words\","
            "\"figures\":{\"dwTableReqSucNumPerMin\":9,\"dwTableReqErrNumPerMin\":0}}],"
            "\"accesses\":[{\"url\":\"tcp://127.0.0.1:2\",\"id\":\"p0 x\","
            "\"figures\":{\"dwRequestCountPerMin\":3},"
            "\"delays\":{\"stProxyToApiDelay\":{\"dwMaxDelay\":1}}},"
            "{\"url\":\"tcp://127.0.0.1:3\",\"id\":\"\","
            "\"figures\":{\"dwRequestCountPerMin\":6}}]}]}");
}

TEST(StatusJsonTest, StandsTextsOfAnotherForm) {
  EXPECT_EQ(StatusAsJson(""), "{\"sections\":[]}");
  EXPECT_EQ(StatusAsJson("\tbefore a title:1\n\t\tand this\n"), "{\"sections\":[]}");
  EXPECT_EQ(StatusAsJson("a\n\tno colon\n\tempty:\n\tleading:007 x\n"),
            "{\"sections\":[{\"title\":\"a\",\"figures\":{\"empty\":\"\",\"leading\":\"007\"}}]}");
}

}  // namespace
}  // namespace OstrandCli
