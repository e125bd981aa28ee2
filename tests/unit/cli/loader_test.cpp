// Loads into a fleet of the same process.
#include "cli/loader.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>

#include "fleet/fleet.h"
#include "protocol/ostrand_protocol_cs.h"
#include "unit/cli/scratch_folder.h"

namespace OstrandCli {
namespace {

constexpr uint32_t kInsert = ostrand_protocol_cs::OSTRAND_API_INSERT_REQ;
constexpr uint32_t kReplace = ostrand_protocol_cs::OSTRAND_API_REPLACE_REQ;

OstrandFleet::FleetOptions TwoProxies() {
  OstrandFleet::FleetOptions options;
  options.proxies = 2;
  options.create_unknown_tables = true;
  return options;
}

class LoaderTest : public testing::Test {
 protected:
  LoaderTest() : m_fleet(TwoProxies()) {
    EXPECT_EQ(m_fleet.Start(), 0) << m_fleet.Error();
    m_connection.directory_urls = {m_fleet.DirectoryUrl()};
    m_connection.table = "t";
    m_options.path = m_folder.Path("in");
    m_options.state_path = m_folder.Path("state");
    m_options.errors_path = m_folder.Path("errors");
    m_options.key_fields = {{"k", VexFieldType::kString}};
    m_options.window.cmd = kReplace;
  }

  void OnAllProxies(const OstrandFleet::ProxyFaults& faults) {
    for (size_t i = 0; i < m_fleet.ProxyCount(); ++i) {
      m_fleet.SetFaults(i, faults);
    }
  }

  // A header and `count` records with the keys k0, k1 and so on.
  void WriteRecords(int count) {
    std::string text = "k\tv\n";
    for (int i = 0; i < count; ++i) {
      text += "k" + std::to_string(i) + "\t" + std::to_string(i) + "\n";
    }
    m_folder.Write("in", text);
  }

  // One run, with what it writes to standard error kept.
  LoadEnd Load() {
    m_loader = std::make_unique<Loader>(m_connection, m_options);
    std::unique_ptr<OstrandService::PollingClient> client;
    testing::internal::CaptureStderr();
    LoadEnd end = LoadEnd::kFileError;
    if (m_loader->Prepare() && m_connection.Open(client) == 0 && m_loader->Begin()) {
      end = m_loader->Run(*client);
    }
    m_stderr = testing::internal::GetCapturedStderr();
    return end;
  }

  std::string ValueOf(const std::string& key) {
    OstrandFleet::StoredRecord record;
    if (!m_fleet.FindRecord(1, "t", {{"k", key}}, record)) {
      return "(none)";
    }
    return record.values.at(0).value;
  }

  const ScratchFolder m_folder;
  OstrandFleet::Fleet m_fleet;
  Connection m_connection;
  LoadOptions m_options;
  std::unique_ptr<Loader> m_loader;
  std::string m_stderr;
};

TEST_F(LoaderTest, LoadsEveryRecordAndLeavesNoFile) {
  WriteRecords(1000);
  EXPECT_EQ(Load(), LoadEnd::kComplete) << m_loader->Error();
  EXPECT_EQ(m_loader->Counts().loaded, 1000U);
  EXPECT_EQ(m_loader->Missing(), 0U);
  EXPECT_EQ(m_fleet.CountRecords(1, "t"), 1000U);
  EXPECT_EQ(ValueOf("k999"), "999");
  EXPECT_FALSE(m_folder.Has("state"));
  EXPECT_FALSE(m_folder.Has("errors"));
}

TEST_F(LoaderTest, SendsAgainWhatGotNoAnswer) {
  WriteRecords(40);
  m_connection.timeout_ms = 100;
  OstrandFleet::ProxyFaults faults;
  faults.drop_every = 4;
  OnAllProxies(faults);
  EXPECT_EQ(Load(), LoadEnd::kComplete);
  EXPECT_EQ(m_loader->Counts().loaded, 40U);
  EXPECT_GT(m_fleet.Counters(0).table_requests + m_fleet.Counters(1).table_requests, 40U);
}

TEST_F(LoaderTest, LetsTheLastRecordOfAKeyWin) {
  m_folder.Write("in", "k\tv\na\t1\na\t2\nb\t1\na\t3\n");
  m_connection.timeout_ms = 100;
  OstrandFleet::ProxyFaults faults;
  faults.drop_every = 2;  // some of the earlier ones are sent again
  OnAllProxies(faults);
  EXPECT_EQ(Load(), LoadEnd::kComplete);
  EXPECT_EQ(ValueOf("a"), "3");
}

TEST_F(LoaderTest, StopsWhenTheClusterAnswersNoMoreAndGoesOnLater) {
  WriteRecords(30);
  m_connection.timeout_ms = 50;
  m_options.window.give_up_ms = 200;
  OstrandFleet::ProxyFaults faults;
  faults.drop_every = 1;
  OnAllProxies(faults);
  EXPECT_EQ(Load(), LoadEnd::kSilent);
  EXPECT_EQ(m_loader->SilentCode(), OstrandService::ClientResponse::kResultTimeOut);
  EXPECT_EQ(m_loader->NextLine(), 2U);
  EXPECT_EQ(m_loader->Missing(), 0U) << "nothing was refused";

  OnAllProxies({});
  m_connection.timeout_ms = 3000;
  m_options.window.give_up_ms = 15000;
  m_options.mode = LoadOptions::Mode::kResume;
  EXPECT_EQ(Load(), LoadEnd::kComplete);
  EXPECT_EQ(m_loader->Counts().loaded, 30U);
  EXPECT_FALSE(m_folder.Has("state"));
}

TEST_F(LoaderTest, CallsNoRecordRefusedWhenTheClusterGoesInTheMiddle) {
  WriteRecords(3000);
  m_connection.timeout_ms = 50;
  m_options.window.give_up_ms = 400;
  std::thread killer([this] {
    m_fleet.WaitFor(60000, [this] { return m_fleet.CountRecords(1, "t") > 500; });
    m_fleet.Kill(0);
    m_fleet.Kill(1);
  });
  EXPECT_EQ(Load(), LoadEnd::kSilent);
  killer.join();
  EXPECT_EQ(m_loader->Missing(), 0U);
  EXPECT_GT(m_loader->NextLine(), 2U);
  EXPECT_EQ(m_folder.Read("errors"), "");

  m_fleet.Restart(0);
  m_fleet.Restart(1);
  m_connection.timeout_ms = 3000;
  m_options.window.give_up_ms = 15000;
  m_options.mode = LoadOptions::Mode::kResume;
  EXPECT_EQ(Load(), LoadEnd::kComplete);
  EXPECT_EQ(m_loader->Counts().loaded, 3000U);
  EXPECT_EQ(m_fleet.CountRecords(1, "t"), 3000U);
}

TEST_F(LoaderTest, ListsWhatTheClusterRefuses) {
  WriteRecords(3);
  m_options.window.cmd = kInsert;
  ASSERT_EQ(Load(), LoadEnd::kComplete);
  m_folder.Write("in", "k\tv\nnew\t1\nk1\tx\n");
  EXPECT_EQ(Load(), LoadEnd::kComplete);
  EXPECT_EQ(m_loader->Counts().loaded, 1U);
  EXPECT_EQ(m_loader->Counts().failed, 1U);
  EXPECT_EQ(m_folder.Read("errors"),
            "line\tcode\treason\n3\t-1293\t-1293 (server: the record exists already)\n");
  EXPECT_EQ(ValueOf("k1"), "1");
}

TEST_F(LoaderTest, GoesOnBehindMalformedRecordsAndLoadsThemLater) {
  m_folder.Write("in", "k\tv\na\t1\nb\n\nc\t3\n\t4\n");
  EXPECT_EQ(Load(), LoadEnd::kComplete);
  EXPECT_EQ(m_loader->Counts().loaded, 2U);
  EXPECT_EQ(m_loader->Counts().malformed, 2U);
  EXPECT_NE(m_stderr.find(m_options.path + ":3: the line has 1 fields, the header 2"),
            std::string::npos);

  m_folder.Write("in", "k\tv\nnot listed\t1\nb\t2\n\nc\tx\nd\t4\n");
  m_options.mode = LoadOptions::Mode::kErrorsOnly;
  EXPECT_EQ(Load(), LoadEnd::kComplete);
  EXPECT_EQ(m_loader->Missing(), 0U);
  EXPECT_FALSE(m_folder.Has("errors"));
  EXPECT_EQ(ValueOf("b"), "2");
  EXPECT_EQ(ValueOf("c"), "3") << "it was not listed";
  EXPECT_EQ(ValueOf("not listed"), "(none)");
}

TEST_F(LoaderTest, StopsAtTheFirstErrorAndGoesOnWithTheCorrectedLine) {
  m_folder.Write("in", "k\tv\na\t1\nb\nc\t3\n");
  m_options.stops_on_error = true;
  EXPECT_EQ(Load(), LoadEnd::kStopped);
  EXPECT_EQ(m_loader->NextLine(), 3U);
  EXPECT_EQ(m_loader->Counts().loaded, 1U);
  EXPECT_FALSE(m_folder.Has("errors"));

  m_folder.Write("in", "k\tv\na\t1\nb\t2\nc\t3\n");
  m_options.mode = LoadOptions::Mode::kResume;
  EXPECT_EQ(Load(), LoadEnd::kComplete) << m_loader->Error();
  EXPECT_EQ(m_loader->Counts().loaded, 3U);
  EXPECT_EQ(m_fleet.CountRecords(1, "t"), 3U);
}

TEST_F(LoaderTest, DoesNotSendAgainWhatWasDoneBehindTheLineThatStoppedIt) {
  m_folder.Write("in", "k\tv\nold\t1\n");
  m_options.window.cmd = kInsert;
  ASSERT_EQ(Load(), LoadEnd::kComplete);
  m_folder.Write("in", "k\tv\na\t1\nold\t2\nb\t3\nc\t4\n");
  m_options.stops_on_error = true;
  EXPECT_EQ(Load(), LoadEnd::kStopped);
  EXPECT_EQ(m_loader->NextLine(), 3U);
  ASSERT_EQ(m_fleet.CountRecords(1, "t"), 4U) << "b and c were on their way";

  m_folder.Write("in", "k\tv\na\t1\nnew\t2\nb\t3\nc\t4\n");
  m_options.mode = LoadOptions::Mode::kResume;
  EXPECT_EQ(Load(), LoadEnd::kComplete) << "an insert of b or c would be refused";
  EXPECT_EQ(m_loader->Counts().loaded, 4U);
  EXPECT_EQ(m_loader->Missing(), 0U);
}

TEST_F(LoaderTest, AsksWhatToDoAboutAnEarlierLoad) {
  WriteRecords(3);
  m_folder.Write("state", "ostrand-load 1\n");
  EXPECT_FALSE(Loader(m_connection, m_options).Prepare());
  m_options.is_restart = true;
  EXPECT_TRUE(Loader(m_connection, m_options).Prepare());
}

TEST_F(LoaderTest, DoesNotGoOnInAFileThatChangedBeforeThePlace) {
  m_folder.Write("in", "k\tv\na\t1\nb\nc\t3\n");
  m_options.stops_on_error = true;
  ASSERT_EQ(Load(), LoadEnd::kStopped);
  m_folder.Write("in", "k\tv\na\t9\nb\t2\nc\t3\n");
  m_options.mode = LoadOptions::Mode::kResume;
  Loader loader(m_connection, m_options);
  EXPECT_FALSE(loader.Prepare());
  EXPECT_EQ(loader.Error(), m_options.path +
                                " has changed before line 3, where the earlier load stopped; begin "
                                "again with --restart");
}

TEST_F(LoaderTest, DoesNotGoOnWithAnotherJob) {
  m_folder.Write("in", "k\tv\na\t1\nb\n");
  m_options.stops_on_error = true;
  ASSERT_EQ(Load(), LoadEnd::kStopped);
  m_options.mode = LoadOptions::Mode::kResume;
  m_connection.table = "other";
  Loader loader(m_connection, m_options);
  EXPECT_FALSE(loader.Prepare());
  EXPECT_NE(loader.Error().find("the earlier load was another one"), std::string::npos);
}

TEST_F(LoaderTest, StopsWhenTheListOfErrorsCannotBeWritten) {
  m_folder.Write("in", "k\tv\na\t1\nb\n");
  m_options.errors_path = "/dev/full";
  EXPECT_EQ(Load(), LoadEnd::kFileError);
  EXPECT_NE(m_loader->Error().find("No space left"), std::string::npos);
}

TEST_F(LoaderTest, SendsNothingWhenTheStateCannotBeWritten) {
  WriteRecords(3);
  m_options.state_path = m_folder.Path("no folder/state");
  EXPECT_EQ(Load(), LoadEnd::kFileError);
  EXPECT_NE(m_loader->Error().find("--state names another file"), std::string::npos);
  EXPECT_EQ(m_fleet.CountRecords(1, "t"), 0U);
}

}  // namespace
}  // namespace OstrandCli
