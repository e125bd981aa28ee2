// The demo's book of records, told outcomes by hand.
#include "cli/demo_load.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "cli/demo_data.h"
#include "client/router_request.h"
#include "client/router_response.h"
#include "protocol/ostrand_api_cmds.h"

namespace OstrandCli {
namespace {

using OstrandService::ClientRequest;
using OstrandService::ClientResponse;
using namespace ostrand_protocol_cs;  // NOLINT: commands

// A store that answers as it is told to.
class DemoLoadTest : public testing::Test {
 protected:
  static std::vector<PackageRecord> Records() {
    std::vector<PackageRecord> records;
    for (int i = 0; i < 20; ++i) {
      records.push_back({"package-" + std::to_string(i), "1." + std::to_string(i), "libs",
                         static_cast<uint64_t>(1000 + i), "what it is\nat length"});
    }
    return records;
  }

  // The next request; its key is in `key`. False: there is none.
  bool Next() {
    if (!load.Next(request, tag)) {
      return false;
    }
    FieldView package;
    FieldView version;
    EXPECT_TRUE(request.GetKey("package", package));
    EXPECT_TRUE(request.GetKey("version", version));
    key = std::string(package.value) + " " + std::string(version.value);
    return true;
  }

  // Carries it out and answers.
  void Answer(int32_t code = 0) { Carry(code, true); }
  // Carries it out, but the answer is lost.
  void LoseAnswer() { Carry(0, false); }
  // It never arrives.
  void LoseRequest() { load.OnOutcome(tag, LoadOutcome::kTimedOut, -20499, &response); }

  void Carry(int32_t code, bool answers) {
    const bool is_read = request.GetCmd() == OSTRAND_API_GET_REQ;
    if (!is_read && code == 0) {
      Write();
    }
    if (!answers) {
      LoseRequest();
      return;
    }
    MakeAnswer(is_read);
    load.OnOutcome(tag, LoadOutcome::kAnswered, code, &response);
  }

  void Write() {
    std::map<std::string, std::string>& record = store[key];
    if (request.GetCmd() == OSTRAND_API_REPLACE_REQ) {
      record.clear();
    } else {
      EXPECT_EQ(request.GetCmd(), static_cast<uint32_t>(OSTRAND_API_UPDATE_REQ));
    }
    RecordReader reader = request.Records();
    RecordView view;
    ASSERT_TRUE(reader.Next(view));
    FieldReader values = view.values;
    for (FieldView field; values.Next(field);) {
      record[std::string(field.name)] = field.value;
    }
  }

  void MakeAnswer(bool is_read) {
    ClientRequest answer;
    answer.Replace(kDemoTable);
    if (is_read) {
      for (const auto& [name, value] : store[key]) {
        answer.Set(name, value);
      }
    }
    OstrandService::RouterRequest routed;
    ASSERT_EQ(routed.Load(answer.Head(), answer.Bytes()), 0);
    routed.GetPkg()->stHead.dwCmd = request.GetCmd() + 1;
    std::string frame(4096, '\0');
    size_t len = frame.size();
    ASSERT_EQ(routed.Pack(frame.data(), len), 0);
    received.SetTarget(&response);
    ASSERT_EQ(received.Unpack(frame.data(), len), 0);
    received.HandOver();
  }

  void AnswerAll() {
    while (Next()) {
      Answer();
    }
  }
  void WriteAll() {
    load.Begin(DemoLoad::Phase::kWriteAll);
    AnswerAll();
  }

  const std::vector<PackageRecord> records = Records();
  DemoLoad load{records, 1};
  ClientRequest request;
  OstrandService::RouterResponse received;
  ClientResponse response;
  uint64_t tag = 0;
  std::string key;
  std::map<std::string, std::map<std::string, std::string>> store;
};

TEST_F(DemoLoadTest, WritesEveryRecordAndReadsEveryOneBack) {
  WriteAll();
  EXPECT_EQ(load.Done(), 20u);
  EXPECT_EQ(load.Counts().acknowledged, 20u);
  EXPECT_TRUE(load.AllAcknowledged());
  EXPECT_EQ(store.size(), 20u);
  load.Begin(DemoLoad::Phase::kReadAll);
  AnswerAll();
  EXPECT_EQ(load.Done(), 20u);
  EXPECT_EQ(load.Counts().compared, 20u);
  EXPECT_EQ(load.Counts().wrong, 0u);
}

TEST_F(DemoLoadTest, NoticesEveryFieldThatIsAnother) {
  WriteAll();
  const struct {
    const char* field;
    std::string value;
    const char* fault;
  } kCases[] = {
      {"label", "package-5 1.6", "its field label is another"},
      {"section", "lib", "its field section is another"},
      {"size", std::string("\0\0\0\0\0\0\3\1", 8), "its field size is another"},
      {"description", "what it is\nat lengtH", "its field description is another"},
      {"revision", std::string("\0\0\0\2", 4), "its field revision is another"},
      {"more", "", "it has fields that nobody wrote"},
  };
  for (const auto& c : kCases) {
    const auto before = store["package-5 1.5"];
    const uint64_t wrong = load.Counts().wrong;
    store["package-5 1.5"][c.field] = c.value;
    load.Begin(DemoLoad::Phase::kReadAll);
    AnswerAll();
    EXPECT_EQ(load.Counts().wrong, wrong + 1) << c.field;
    EXPECT_EQ(load.Counts().faults.back(),
              std::string("package-5 1.5: the answer is wrong: ") + c.fault);
    store["package-5 1.5"] = before;
  }
  store["package-5 1.5"].erase("size");
  load.Begin(DemoLoad::Phase::kReadAll);
  AnswerAll();
  EXPECT_EQ(load.Counts().faults.back(),
            "package-5 1.5: the answer is wrong: it has no field size");
}

TEST_F(DemoLoadTest, AnswersThatRefuseAreWrong) {
  load.Begin(DemoLoad::Phase::kWriteAll);
  ASSERT_TRUE(Next());
  Answer(-8205);
  AnswerAll();
  EXPECT_EQ(load.Counts().wrong, 1u);
  EXPECT_EQ(load.Counts().acknowledged, 19u);
  EXPECT_FALSE(load.AllAcknowledged());
  EXPECT_EQ(load.Counts().faults[0].find("package-0 1.0: writing it was answered with -8205"), 0u);
  load.Begin(DemoLoad::Phase::kReadAll);
  ASSERT_TRUE(Next());
  Answer(-7949);
  EXPECT_EQ(load.Counts().wrong, 2u);
  EXPECT_EQ(load.Counts().compared, 0u);
}

TEST_F(DemoLoadTest, KeepsTheFirstTenFaultsAndCountsAll) {
  load.Begin(DemoLoad::Phase::kWriteAll);
  while (Next()) {
    Answer(-8205);
  }
  EXPECT_EQ(load.Counts().wrong, 20u);
  EXPECT_EQ(load.Counts().faults.size(), 10u);
}

TEST_F(DemoLoadTest, RepeatsWhatGotNoAnswerUntilItHasOne) {
  load.Begin(DemoLoad::Phase::kWriteAll);
  ASSERT_TRUE(Next());
  EXPECT_EQ(key, "package-0 1.0");
  LoseRequest();
  ASSERT_TRUE(Next());
  EXPECT_EQ(key, "package-0 1.0") << "before anything new";
  LoseAnswer();
  EXPECT_EQ(load.Waiting(), 1u);
  AnswerAll();
  EXPECT_EQ(load.Waiting(), 0u);
  EXPECT_EQ(load.Counts().repeated, 2u);
  EXPECT_EQ(load.Counts().acknowledged, 20u);
  EXPECT_EQ(load.Done(), 20u);
}

TEST_F(DemoLoadTest, HasNoTwoRequestsAboutARecordInFlight) {
  WriteAll();
  load.Begin(DemoLoad::Phase::kMixed);
  std::set<std::string> in_flight;
  while (Next()) {
    EXPECT_TRUE(in_flight.insert(key).second) << key;
  }
  EXPECT_EQ(in_flight.size(), 20u) << "then there is none to choose";
}

TEST_F(DemoLoadTest, MixesReadsAndUpdatesAndFollowsTheRevisions) {
  WriteAll();
  load.Begin(DemoLoad::Phase::kMixed);
  int reads = 0;
  for (int i = 0; i < 500; ++i) {
    ASSERT_TRUE(Next());
    reads += request.GetCmd() == OSTRAND_API_GET_REQ ? 1 : 0;
    Answer();
  }
  EXPECT_NEAR(reads, 350, 50);
  EXPECT_EQ(load.Counts().wrong, 0u);
  EXPECT_EQ(load.Counts().acknowledged, static_cast<uint64_t>(20 + 500 - reads));
  EXPECT_EQ(load.Done(), 500u);
}

// What was lost may still be carried out, behind everything else.
TEST_F(DemoLoadTest, AWriteThatComesLateChangesNothing) {
  WriteAll();
  load.Begin(DemoLoad::Phase::kMixed);
  do {
    ASSERT_TRUE(Next());
    if (request.GetCmd() == OSTRAND_API_GET_REQ) {
      Answer();
    }
  } while (request.GetCmd() == OSTRAND_API_GET_REQ);
  const std::string late = key;
  LoseRequest();
  ASSERT_TRUE(Next());
  EXPECT_EQ(key, late);
  const std::map<std::string, std::string> before = store[late];
  Answer();
  const std::map<std::string, std::string> written = store[late];
  EXPECT_NE(before, written);
  for (int i = 0; i < 500; ++i) {
    ASSERT_TRUE(Next());
    EXPECT_TRUE(key != late || request.GetCmd() == OSTRAND_API_GET_REQ);
    Answer();
  }
  EXPECT_EQ(store[late], written) << "as the late write, too, would leave it";
}

TEST_F(DemoLoadTest, SettlingOnlyRepeats) {
  WriteAll();
  load.Begin(DemoLoad::Phase::kMixed);
  ASSERT_TRUE(Next());
  LoseRequest();
  load.Settle();
  const std::string lost = key;
  ASSERT_TRUE(Next());
  EXPECT_EQ(key, lost);
  Answer();
  EXPECT_FALSE(Next());
  EXPECT_EQ(load.Done(), 1u);
}

TEST(DemoSchema, IsOneThatTheStoreTakes) { EXPECT_EQ(vex_check_meta(DemoSchema()), kVexOk); }

}  // namespace
}  // namespace OstrandCli
