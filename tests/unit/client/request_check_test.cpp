#include "client/request_check.h"

#include <gtest/gtest.h>

#include <string>

#include "client/polling_client.h"
#include "client/runtime_errors.h"

namespace OstrandService {
namespace {

struct Checked {
  const char* what;
  ClientRequest request;
  int code;
};

TEST(RequestCheck, ARecordHasAKeyAndNoFieldOfItIsEmptyWhereverItStands) {
  const Checked cases[] = {
      {"get", Get("t").Key("id", 1), 0},
      {"get without key", Get("t"), CLIENT_ERR_KEY},
      {"get with an empty key", Get("t").Key("id", 1).Key("day", ""), CLIENT_ERR_KEY},
      {"insert", Insert("t").Set("v", 1), CLIENT_ERR_KEY},
      {"replace", Replace("t").Set("v", 1), CLIENT_ERR_KEY},
      {"update", Update("t").Set("v", 1), CLIENT_ERR_KEY},
      {"delete", Delete("t"), CLIENT_ERR_KEY},
      {"part key", GetByPartKey("t").Key("id", 1), 0},
      {"no part key", GetByPartKey("t"), CLIENT_ERR_KEY},
      {"empty part key", GetByPartKey("t").Key("id", ""), CLIENT_ERR_KEY},
      {"deleted by no part key", DeleteByPartKey("t"), CLIENT_ERR_KEY},
      {"list", ListGetAll("t").Key("id", 1), 0},
      {"no list", ListGetAll("t"), CLIENT_ERR_KEY},
      {"elements of no list", ListGet("t").Element(1), CLIENT_ERR_KEY},
      {"insert into no list", ListInsert("t").Element().Set("v", 1), CLIENT_ERR_KEY},
      {"update of no list", ListUpdate("t").Element(1).Set("v", 1), CLIENT_ERR_KEY},
      {"delete of no list's", ListDelete("t").Element(1), CLIENT_ERR_KEY},
      {"delete of no list", ListDeleteAll("t"), CLIENT_ERR_KEY},
      {"empty key of a list", ListGet("t").Key("id", "").Element(1), CLIENT_ERR_KEY},
      {"batch", BatchGet("t").Record().Key("id", 1), 0},
      {"no record", BatchGet("t"), CLIENT_ERR_KEY},
      {"record without key", BatchGet("t").Record().Key("id", 1).Record(), CLIENT_ERR_KEY},
      {"record with an empty key", BatchInsert("t").Record().Key("id", "").Set("v", 1),
       CLIENT_ERR_KEY},
      {"value alone", BatchReplace("t").Record().Set("v", 1), CLIENT_ERR_KEY},
      {"first without key", BatchUpdate("t").Record().Record().Key("id", 1), CLIENT_ERR_KEY},
      {"batch delete", BatchDelete("t").Record(), CLIENT_ERR_KEY},
      {"time to live", SetTTL("t").Record(5).Key("id", 1).Record(6).Key("id", 2), 0},
      {"no time to live", SetTTL("t"), CLIENT_ERR_KEY},
      {"entry without key", SetTTL("t").Record(5).Record(6).Key("id", 2), CLIENT_ERR_KEY},
      {"entry with an empty key", GetTTL("t").Record().Key("id", 1).Record().Key("id", ""),
       CLIENT_ERR_KEY},
      {"times read", GetTTL("t").Record().Key("id", 1).Record().Key("id", 2), 0},
      {"metadata", GetMetadata("t"), 0},
  };
  for (const Checked& each : cases) {
    ASSERT_EQ(0, each.request.Fault()) << each.what;
    EXPECT_EQ(each.code, CheckComplete(each.request)) << each.what;
  }
}

TEST(RequestCheck, AFaultGoesBeforeEverythingElse) {
  EXPECT_EQ(RUNTIME_ERR_BODY_KIND, CheckComplete(Get("t").Set("v", 1)));
}

TEST(RequestCheck, OnlyCommandsOfApplicationsAreSent) {
  for (const uint32_t cmd : {8U, 51U, 53U, 67U}) {
    ClientRequest request;
    request.Begin(cmd, "t");
    EXPECT_EQ(CLIENT_ERR_REQUEST, CheckComplete(request)) << cmd;
  }
  EXPECT_EQ(CLIENT_ERR_REQUEST, CheckComplete(ClientRequest()));
}

TEST(RequestCheck, CommandsWhoseBodyIsNotDefinedNeedAKeyWhereTheyAreSimple) {
  ClientRequest request;
  for (const uint32_t cmd : {29U, 83U, 153U, 155U, 157U}) {
    request.Begin(cmd, "t");
    EXPECT_EQ(CLIENT_ERR_KEY, CheckComplete(request)) << cmd;
    EXPECT_EQ(0, CheckComplete(request.Key("id", 1))) << cmd;
  }
  for (const uint32_t cmd : {117U, 129U, 4225U}) {
    request.Begin(cmd, "t");
    EXPECT_EQ(0, CheckComplete(request)) << cmd;
  }
}

}  // namespace
}  // namespace OstrandService
