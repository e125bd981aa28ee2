// A directory client over scripted connectors, and the directories' answers as frames. Time is what
// the tests say it is.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "client/directory_client.h"
#include "fakes/recording_logger.h"
#include "fakes/scripted_connector_mgr.h"
#include "protocol/ostrand_dir_codec.h"

namespace OstrandTests {

using DirPkg = ostrand_protocol_dir::tagOStrdirCSPkg;
using DirAnswer = ostrand_protocol_dir::tagResGetTablesAndAccess;

template <size_t N>
void SetRow(char (&row)[N], const std::string& text) {
  std::memset(row, 0, N);
  std::memcpy(row, text.data(), std::min(text.size(), N));
}

// What the client handed on.
struct HandedOn {
  int32_t zone = 0;
  std::vector<std::pair<std::string, std::string>> rows;  // url and id
  DirAnswer answer{};
};

class DirectoryClientTest : public testing::Test, public OstrandService::DirectoryListener {
 protected:
  static constexpr int32_t kAppId = 7;
  static constexpr int64_t kStart = 1000000;

  DirectoryClientTest() {
    m_options.urls = {"tcp://10.0.0.1:9000", "tcp://10.0.0.2:9000", "tcp://10.0.0.3:9000"};
    m_options.app_id = kAppId;
    m_options.zones = {1};
    m_options.api_version = "1.2.3";
    Seed(1);
  }

  void Seed(uint64_t seed) {
    m_options.random = [random = std::mt19937_64(seed)]() mutable { return random(); };
  }

  void Make() {
    m_client =
        std::make_unique<OstrandService::DirectoryClient>(m_mgr, &m_logger, 42, m_options, *this);
  }
  // With all directories accepting at once.
  void MakeAccepting() {
    m_mgr.OnCreate([](OstrandFakes::ScriptedConnector& connector) {
      connector.SetConnect(0, OSTRNET::CConnector::STATUS_CONNECTED);
    });
    Make();
  }

  void Update(int64_t now_ms) { m_client->Update(now_ms); }
  // Connects, and asks with the next update.
  void ConnectAndAsk(int64_t now_ms) {
    Update(now_ms);
    Update(now_ms);
  }
  OstrandFakes::ScriptedConnector& At(size_t url) { return m_mgr.At(m_options.urls[url]); }
  size_t Asked(size_t url) { return At(url).sent().size(); }

  // A good answer, changed.
  static std::string AnswerFrame(int32_t zone, const std::vector<std::string>& urls,
                                 const std::function<void(DirAnswer&)>& edit = {}) {
    const auto pkg = std::make_unique<DirPkg>();
    std::memset(static_cast<void*>(pkg.get()), 0, sizeof(*pkg));
    DirAnswer& answer = pkg->stBody.stResGetTablesAndAccess;
    answer.iAppID = kAppId;
    answer.iZoneID = zone;
    answer.iAccessCount = static_cast<int32_t>(urls.size());
    for (size_t i = 0; i < std::min<size_t>(urls.size(), 200); ++i) {
      SetRow(answer.aszAccessUrlList[i], urls[i]);
      SetRow(answer.aszAccessIdList[i], "id" + std::to_string(i));
    }
    if (edit) {
      edit(answer);
    }
    std::string frame(ostrand_protocol_dir::OSTRDIR_MAX_FRAME_LEN, '\0');
    size_t len = frame.size();
    EXPECT_EQ(PackDirResponse(&frame[0], len, *pkg), 0);
    frame.resize(len);
    return frame;
  }
  static std::string GoodFrame(int32_t zone) { return AnswerFrame(zone, {"tcp://10.1.0.1:100"}); }

  // Brings a frame in as the network thread does.
  void Deliver(size_t url, const std::string& frame) {
    EXPECT_EQ(m_mgr.Deliver(m_options.urls[url], frame), 0) << "it stays to be fetched";
  }

  std::vector<std::string> Errors() const {
    return m_logger.TextsOf(OstrandCommon::OSTRAND_LOG_LEVEL_ERROR);
  }
  std::vector<std::string> Warnings() const {
    return m_logger.TextsOf(OstrandCommon::OSTRAND_LOG_LEVEL_WARN);
  }
  // The rest that the last failure's line tells, ms.
  int64_t RestTold() const {
    const std::string text = Warnings().back();
    const std::string before = "next attempt in ";
    const size_t at = text.find(before);
    EXPECT_NE(at, std::string::npos) << text;
    return at != std::string::npos ? std::stoll(text.substr(at + before.size())) : -1;
  }

  OstrandFakes::RecordingLogger m_logger;
  OstrandFakes::ScriptedConnectorMgr m_mgr;
  OstrandService::DirectoryOptions m_options;
  std::vector<HandedOn> m_handed_on;
  std::vector<std::string> m_failures;                        // "url: reason"
  std::unique_ptr<OstrandService::DirectoryClient> m_client;  // dies before the manager

 private:
  void OnDirectoryFailure(const char* url, const char* reason) override {
    m_failures.push_back(std::string(url) + ": " + reason);
  }
  void OnDirectoryAnswer(int32_t zone_id, const DirPkg& answer) override {
    HandedOn handed_on;
    handed_on.zone = zone_id;
    std::memcpy(&handed_on.answer, &answer.stBody.stResGetTablesAndAccess, sizeof(DirAnswer));
    const DirAnswer& body = handed_on.answer;
    const int32_t count = body.iAccessCount;
    for (int32_t i = 0; i < count; ++i) {
      handed_on.rows.emplace_back(
          std::string(body.aszAccessUrlList[i], strnlen(body.aszAccessUrlList[i], 64)),
          std::string(body.aszAccessIdList[i], strnlen(body.aszAccessIdList[i], 32)));
    }
    m_handed_on.push_back(handed_on);
  }
};

}  // namespace OstrandTests
