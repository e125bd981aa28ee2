// get, insert, replace, update and delete against a fleet.
#include <gtest/gtest.h>

#include "cli_process/process.h"

namespace OstrandTest {
namespace {

class RecordCommandsTest : public testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(m_fleet.IsUp()); }

  ProcessResult Run(std::vector<std::string> arguments) {
    arguments.insert(arguments.end(), {"--directory", m_fleet.Directory(), "--table", "t"});
    return RunProgram(arguments);
  }

  std::string Get(const std::string& id) { return Run({"get", "--key", "id=" + id}).out; }

  FleetProcess m_fleet;
};

TEST_F(RecordCommandsTest, ARecordLivesFromInsertToDelete) {
  EXPECT_EQ(Run({"insert", "--key", "id=1", "name=a", "text=x y"}).status, 0);
  EXPECT_EQ(Get("1"), "name=a\ntext=x y\n");
  EXPECT_EQ(Run({"update", "--key", "id=1", "--set", "name=b"}).status, 0);
  EXPECT_EQ(Get("1"), "name=b\ntext=x y\n");
  EXPECT_EQ(Run({"replace", "--key", "id=1", "other=c"}).status, 0);
  EXPECT_EQ(Get("1"), "other=c\n");
  const ProcessResult deleted = Run({"delete", "--key", "id=1"});
  EXPECT_EQ(deleted.status, 0);
  EXPECT_EQ(deleted.out, "");
  EXPECT_EQ(deleted.err, "");
  EXPECT_EQ(Run({"get", "--key", "id=1"}).status, 1);
}

TEST_F(RecordCommandsTest, TakesKeysOfSeveralFieldsInAnyOrder) {
  EXPECT_EQ(Run({"insert", "--key", "a=1", "--key", "b=2", "v=x"}).status, 0);
  EXPECT_EQ(Run({"get", "--key", "b=2", "--key", "a=1"}).out, "v=x\n");
}

TEST_F(RecordCommandsTest, ReadsTheFieldsThatAreNamed) {
  ASSERT_EQ(Run({"insert", "--key", "id=1", "a=1", "b=2", "n:uint32=77"}).status, 0);
  EXPECT_EQ(Run({"get", "--key", "id=1", "b"}).out, "b=2\n");
  EXPECT_EQ(Run({"get", "--key", "id=1", "n:uint32"}).out, "n=77\n");
}

TEST_F(RecordCommandsTest, WritesJson) {
  ASSERT_EQ(Run({"insert", "--key", "id=1", "a=x\ty", "n:int16=-2", "raw:blob=ff00"}).status, 0);
  EXPECT_EQ(Run({"get", "--key", "id=1", "--json", "a", "n:int16", "raw"}).out,
            "{\"result\":0,\"version\":1,\"key\":{\"id\":\"1\"},"
            "\"values\":{\"a\":\"x\\ty\",\"n\":-2,\"raw\":{\"hex\":\"ff00\"}}}\n");
  EXPECT_EQ(Run({"replace", "--key", "id=1", "a=b", "--json"}).out, "{\"result\":0}\n");
}

TEST_F(RecordCommandsTest, TellsCodeAndTextOfAFailure) {
  ASSERT_EQ(Run({"insert", "--key", "id=1", "a=1"}).status, 0);
  const struct {
    std::vector<std::string> arguments;
    const char* sentence;
  } cases[] = {
      {{"insert", "--key", "id=1", "a=2"},
       "ostrand: insert failed: -1293 (server: the record exists already)\n"},
      {{"get", "--key", "id=2"}, "ostrand: get failed: -7949 (server: no record with this key)\n"},
      {{"update", "--key", "id=2", "a=2"},
       "ostrand: update failed: -7949 (server: no record with this key)\n"},
      {{"delete", "--key", "id=2"},
       "ostrand: delete failed: -7949 (server: no record with this key)\n"},
  };
  for (const auto& c : cases) {
    const ProcessResult result = Run(c.arguments);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, c.sentence);
  }
  EXPECT_EQ(Get("1"), "a=1\n");
}

TEST_F(RecordCommandsTest, TellsAFailureAsJsonToo) {
  const ProcessResult result = Run({"delete", "--key", "id=2", "--json"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.out, "{\"result\":-7949,\"text\":\"server: no record with this key\"}\n");
}

TEST_F(RecordCommandsTest, ChangesARecordOnlyWhileItHasTheVersion) {
  ASSERT_EQ(Run({"insert", "--key", "id=1", "a=1"}).status, 0);
  EXPECT_EQ(Run({"update", "--key", "id=1", "a=2", "--if-version", "1"}).status, 0);
  const ProcessResult late = Run({"update", "--key", "id=1", "a=3", "--if-version", "1"});
  EXPECT_EQ(late.status, 1);
  EXPECT_NE(late.err.find("-9485"), std::string::npos) << late.err;
  EXPECT_EQ(Get("1"), "a=2\n");
}

TEST_F(RecordCommandsTest, RefusesWrongFields) {
  const struct {
    std::vector<std::string> arguments;
    const char* sentence;
  } cases[] = {
      {{"get", "--key", "id"}, "ostrand: \"id\" has no \"=\": write a field as name=value\n"},
      {{"insert", "--key", "id=1"},
       "ostrand: insert needs a value: give at least one NAME=VALUE\n"},
      {{"insert", "--key", "id=1", "--key", "id=2", "a=1"},
       "ostrand: the field \"id\" is given twice\n"},
      {{"insert", "--key", "id=1", "a=1", "--set", "a=2"},
       "ostrand: the field \"a\" is given twice\n"},
      {{"update", "--key", "id:uint8=256", "a=1"}, "ostrand: \"256\" is no uint8\n"},
  };
  for (const auto& c : cases) {
    const ProcessResult result = Run(c.arguments);
    EXPECT_EQ(result.status, 2) << c.sentence;
    EXPECT_EQ(result.err, c.sentence);
  }
}

TEST_F(RecordCommandsTest, SaysThatAKeyIsTooLong) {
  const ProcessResult result = Run({"get", "--key", "id=" + std::string(1025, 'x')});
  EXPECT_EQ(result.status, 1);
  EXPECT_NE(result.err.find("-28435"), std::string::npos) << result.err;
}

TEST_F(RecordCommandsTest, FindsTheDirectoryInTheEnvironment) {
  ProcessOptions options;
  options.environment = {"OSTRAND_DIRECTORY=" + m_fleet.Directory()};
  EXPECT_EQ(RunProgram({"insert", "--key", "id=1", "a=1"}, options).status, 0);
}

TEST_F(RecordCommandsTest, NoticesThatStandardOutputIsFull) {
  ASSERT_EQ(Run({"insert", "--key", "id=1", "a=1"}).status, 0);
  ProcessOptions options;
  options.stdout_path = "/dev/full";
  const ProcessResult result = RunProgram(
      {"get", "--key", "id=1", "--table", "t", "--directory", m_fleet.Directory()}, options);
  EXPECT_EQ(result.status, 1);
  EXPECT_NE(result.err.find("cannot write to standard output: No space left on device"),
            std::string::npos)
      << result.err;
}

TEST(RecordCommandsWithoutClusterTest, SaysWhatToDo) {
  const struct {
    std::vector<std::string> arguments;
    int status;
    const char* sentence;
  } cases[] = {
      {{"get", "--key", "a=1"}, 2, "no directory is named: give --directory"},
      {{"get", "--key", "a=1", "--directory", "no such host:1"}, 2, "is no address"},
      {{"get", "--key", "a=1", "--directory", "127.0.0.1"}, 2, "is no address"},
      // Nobody listens on port 1, which needs rights to be taken.
      {{"get", "--key", "a=1", "--directory", "127.0.0.1:1", "--wait-ms", "100"},
       1,
       "no directory at tcp://127.0.0.1:1 could be used within 100 ms: directory "
       "tcp://127.0.0.1:1: connect: Connection refused; check that it runs"},
  };
  for (const auto& c : cases) {
    const ProcessResult result = RunProgram(c.arguments);
    EXPECT_EQ(result.status, c.status) << c.sentence;
    EXPECT_EQ(result.out, "");
    EXPECT_NE(result.err.find(c.sentence), std::string::npos) << result.err;
  }
}

}  // namespace
}  // namespace OstrandTest
