#include "protocol/ostrand_api_cmds.h"

#include <gtest/gtest.h>

#include <set>
#include <string>

#include "unit/protocol/package_kit.h"

namespace ostrand_protocol_cs {
namespace {

// Every request code, with the name that its enumerators carry. The answer's code is the next one.
struct Command {
  uint32_t request;
  const char* request_name;
  uint32_t enumerator;
  uint32_t response_enumerator;
};

#define OSTRAND_COMMAND(code, name) \
  { code, "OSTRAND_API_" #name "_REQ", OSTRAND_API_##name##_REQ, OSTRAND_API_##name##_RES }

const Command kCommands[] = {
    OSTRAND_COMMAND(1, INSERT),
    OSTRAND_COMMAND(3, REPLACE),
    OSTRAND_COMMAND(5, UPDATE),
    OSTRAND_COMMAND(7, GET),
    OSTRAND_COMMAND(9, DELETE),
    OSTRAND_COMMAND(11, LIST_GETALL),
    OSTRAND_COMMAND(13, LIST_DELETE),
    OSTRAND_COMMAND(15, LIST_GET),
    OSTRAND_COMMAND(17, LIST_INSERT),
    OSTRAND_COMMAND(19, LIST_DELETE_ALL),
    OSTRAND_COMMAND(21, LIST_UPDATE),
    OSTRAND_COMMAND(23, BATCH_GET),
    OSTRAND_COMMAND(25, GET_BY_PARTKEY),
    OSTRAND_COMMAND(27, METADATA_GET),
    OSTRAND_COMMAND(29, FIELD_UPDATE),
    OSTRAND_COMMAND(51, APP_SIGNUP),
    OSTRAND_COMMAND(53, HEART_BEAT),
    OSTRAND_COMMAND(65, DELETE_BY_PARTKEY),
    OSTRAND_COMMAND(67, NOTIFY_STOP),
    OSTRAND_COMMAND(83, PB_FIELD_GET),
    OSTRAND_COMMAND(89, SET_TTL),
    OSTRAND_COMMAND(91, GET_TTL),
    OSTRAND_COMMAND(117, PB_BATCH_FIELD_GET),
    OSTRAND_COMMAND(129, SQL),
    OSTRAND_COMMAND(145, BATCH_INSERT),
    OSTRAND_COMMAND(147, BATCH_REPLACE),
    OSTRAND_COMMAND(149, BATCH_UPDATE),
    OSTRAND_COMMAND(151, BATCH_DELETE),
    OSTRAND_COMMAND(153, SIMPLE_GET),
    OSTRAND_COMMAND(155, SIMPLE_INSERT),
    OSTRAND_COMMAND(157, SIMPLE_UPDATE),
    OSTRAND_COMMAND(4215, COMPLEX_REPLACE),
    OSTRAND_COMMAND(4217, COMPLEX_LIST_REPLACE),
    OSTRAND_COMMAND(4221, COMPLEX_UPDATE),
    OSTRAND_COMMAND(4223, COMPLEX_LIST_UPDATE),
    OSTRAND_COMMAND(4225, QUERY),
    OSTRAND_COMMAND(4227, LIST_QUERY),
    OSTRAND_COMMAND(4233, SQL_EXECUTE),
    OSTRAND_COMMAND(4239, COMPLEX_QUERY),
};

TEST(OStrandApiCmds, EveryCommandHasItsCodeAndItsAnswerTheNext) {
  for (const Command& command : kCommands) {
    EXPECT_EQ(command.enumerator, command.request) << command.request_name;
    EXPECT_EQ(command.response_enumerator, command.request + 1) << command.request_name;
    EXPECT_STREQ(NameOfCmd(command.request), command.request_name);
    EXPECT_EQ(std::string(NameOfCmd(command.request + 1)),
              std::string(command.request_name)
                  .replace(std::string(command.request_name).size() - 3, 3, "RES"));
  }
}

TEST(OStrandApiCmds, NoOtherCodeIsACommand) {
  std::set<int64_t> known;
  for (const Command& command : kCommands) {
    known.insert(command.request);
    known.insert(int64_t{command.request} + 1);
  }
  for (int64_t cmd = -10; cmd < 5000; ++cmd) {
    const bool is_known = known.count(cmd) == 1;
    EXPECT_EQ(BodyKindOfCmd(cmd) != BodyKind::kUnknown, is_known) << cmd;
    EXPECT_EQ(std::string(NameOfCmd(cmd)) != "unknown", is_known) << cmd;
  }
  // A code that only looks known when it is cut to 32 bits.
  EXPECT_EQ(BodyKindOfCmd((int64_t{1} << 32) + 7), BodyKind::kUnknown);
}

TEST(OStrandApiCmds, TableOperationsHaveBodies) {
  for (const uint32_t cmd : {1u, 2u, 3u, 4u, 5u, 6u, 7u, 8u, 9u, 10u, 11u, 19u, 20u, 25u, 65u}) {
    EXPECT_EQ(BodyKindOfCmd(cmd), BodyKind::kRecord) << cmd;
  }
  for (const uint32_t cmd : {13u, 14u, 15u, 16u, 17u, 18u, 21u, 22u, 23u, 24u, 66u, 145u, 146u,
                             147u, 148u, 149u, 150u, 151u, 152u}) {
    EXPECT_EQ(BodyKindOfCmd(cmd), BodyKind::kRecords) << cmd;
  }
  EXPECT_EQ(BodyKindOfCmd(12), BodyKind::kListGetAllRes);
  EXPECT_EQ(BodyKindOfCmd(26), BodyKind::kGetByPartKeyRes);
}

}  // namespace
}  // namespace ostrand_protocol_cs
