// What goes into a metadata probe and into a sign-up, and which of them are refused.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "unit/service_api/router_inner_request_test.h"

namespace OstrandService {
namespace {

using OstrandCommon::OSTRAND_LOG_LEVEL_ERROR;

// --- The probe ---

TEST_F(InnerRequestTest, ProbeWithoutATableIsRefusedSilently) {
  EXPECT_EQ(-2, Request(kProbe, 42, "sig", nullptr));
  EXPECT_TRUE(logger.Lines().empty());
  EXPECT_TRUE(connector->sent().empty());
}

TEST_F(InnerRequestTest, ProbeTakesTableNamesOfUpTo31Characters) {
  for (const size_t length : {size_t{0}, size_t{1}, size_t{30}, size_t{31}}) {
    const std::string name(length, 't');
    ASSERT_EQ(0, Request(kProbe, 0, nullptr, name.c_str())) << length;
    EXPECT_EQ(length + 1, pkg().stHead.stRouterInfo.dwTableNameLen);
    EXPECT_STREQ(name.c_str(), pkg().stHead.stRouterInfo.szTableName);
  }
  EXPECT_EQ("00000020" + ToHex(std::string(31, 't')) + "00", SentHex().substr(88, 72));
}

TEST_F(InnerRequestTest, ProbeRefusesLongerTableNames) {
  for (const size_t length : {size_t{32}, size_t{33}, size_t{1023}, size_t{70000}}) {
    logger.Clear();
    const std::string name(length, 't');
    EXPECT_EQ(-3, Request(kProbe, 0, nullptr, name.c_str())) << length;
    EXPECT_EQ(
        Lines({{OSTRAND_LOG_LEVEL_ERROR, kOperation,
                "invalid table_name:[" + name + "] table_name_size:" + std::to_string(length)}}),
        logger.Lines());
  }
  EXPECT_TRUE(connector->sent().empty());
}

TEST_F(InnerRequestTest, OtherPackagesLeaveTheTableNameOut) {
  const std::string long_name(100, 't');
  ASSERT_EQ(0, Request(kStopReply, 0, nullptr, long_name.c_str()));
  EXPECT_EQ("00000000", SentHex().substr(88, 8));
  EXPECT_EQ(long_name, server.meta_version_requests().back().second) << "asked for all the same";
}

// --- The sign-up ---

using SignUpTest = InnerRequestTest;

const char kRefusal[] =
    "signature == NULL && (NULL == m_user_name || NULL == m_password_encrypted), valid";

TEST_F(SignUpTest, NeedsASignatureOrUserNameAndPassword) {
  struct {
    const char* signature;
    const char* user;
    const char* password;
    int result;
  } const cases[] = {
      {nullptr, nullptr, nullptr, -2}, {nullptr, "al", nullptr, -2}, {nullptr, nullptr, "5ebe", -2},
      {nullptr, "al", "5ebe", 0},      {nullptr, "", "", 0},         {"sig", nullptr, nullptr, 0},
      {"sig", "al", nullptr, 0},       {"sig", nullptr, "5ebe", 0},  {"sig", "al", "5ebe", 0},
      {"", nullptr, nullptr, 0},
  };
  for (const auto& given : cases) {
    SCOPED_TRACE(testing::Message() << (given.signature != nullptr ? given.signature : "none")
                                    << " " << (given.user != nullptr ? given.user : "none") << " "
                                    << (given.password != nullptr ? given.password : "none"));
    connector->ClearSent();
    logger.Clear();
    router->SetUserNameAndPassword(given.user, given.password);
    EXPECT_EQ(given.result, Request(kSignUp, 0, given.signature));
    if (given.result == 0) {
      EXPECT_EQ(1U, SentCount());
      const auto& body = pkg().stBody.stAppSignupReq;
      EXPECT_STREQ(given.signature != nullptr ? given.signature : "", body.szSignature);
      EXPECT_STREQ(given.user != nullptr ? given.user : "", body.szUserName);
      EXPECT_STREQ(given.password != nullptr ? given.password : "", body.szPasswordMd5);
    } else {
      EXPECT_EQ(0U, SentCount());
      EXPECT_EQ(Lines({{OSTRAND_LOG_LEVEL_ERROR, kOperation, kRefusal}}), logger.Lines());
    }
  }
}

TEST_F(SignUpTest, CutsTextsToTheirFields) {
  for (const size_t length :
       {size_t{31}, size_t{32}, size_t{33}, size_t{126}, size_t{127}, size_t{128}, size_t{1022},
        size_t{1023}, size_t{1024}, size_t{5000}}) {
    SCOPED_TRACE(length);
    const std::string signature(length, 's');
    const std::string user(length, 'u');
    const std::string password(length, 'p');
    router->SetUserNameAndPassword(user.c_str(), password.c_str());
    ASSERT_EQ(0, Request(kSignUp, 0, signature.c_str()));
    const auto& body = pkg().stBody.stAppSignupReq;
    EXPECT_EQ(signature.substr(0, 1023), body.szSignature);
    EXPECT_EQ(user.substr(0, 32), body.szUserName);
    EXPECT_EQ(password.substr(0, 127), body.szPasswordMd5);
    EXPECT_EQ(3, body.nType) << "not overrun";
  }
}

TEST_F(SignUpTest, TakesTheSignatureItIsGivenNotTheConstructors) {
  router->SetUserNameAndPassword("al", "5ebe");
  ASSERT_EQ(0, Request(kSignUp));
  EXPECT_STREQ("", pkg().stBody.stAppSignupReq.szSignature);
}

TEST_F(SignUpTest, CutsTheSignaturesTypeTo16Bits) {
  struct {
    int32_t type;
    const char* wire;
  } const cases[] = {{0, "0000"}, {-1, "FFFF"}, {32767, "7FFF"}, {32768, "8000"}, {70000, "1170"}};
  for (const auto& given : cases) {
    peer->m_signType() = given.type;
    ASSERT_EQ(0, Request(kSignUp, 0, "sig"));
    EXPECT_EQ(given.wire, SentHex().substr(2 * (96 + 8), 4)) << given.type;
  }
}

TEST_F(SignUpTest, TellsTheHostName) {
  struct {
    size_t length;
    size_t told;
  } const cases[] = {{0, 0}, {1, 1}, {64, 64}, {254, 254}, {255, 255}, {256, 255}, {2000, 255}};
  for (const auto& given : cases) {
    SCOPED_TRACE(given.length);
    host_name = std::string(given.length, 'h');
    ASSERT_EQ(0, Request(kSignUp, 0, "sig"));
    const std::string text = "hostname=" + std::string(given.told, 'h');
    EXPECT_EQ(text.size() + 1, pkg().stHead.dwUserBuffLen) << "its NUL travels too";
    EXPECT_EQ(text, pkg().stHead.szUserBuff);
    char length[9];
    std::snprintf(length, sizeof(length), "%08X", static_cast<unsigned>(text.size() + 1));
    EXPECT_EQ(length + ToHex(text) + "00", SentHex().substr(96, 8 + 2 * (text.size() + 1)));
  }
}

TEST_F(SignUpTest, TellsWhatThereIsOfANameThatTheSystemCut) {
  host_name = std::string(300, 'h');
  host_name_result = -1;
  ASSERT_EQ(0, Request(kSignUp, 0, "sig"));
  EXPECT_EQ("hostname=" + std::string(255, 'h'), pkg().stHead.szUserBuff);
  host_name = "";
  ASSERT_EQ(0, Request(kSignUp, 0, "sig"));
  EXPECT_STREQ("hostname=", pkg().stHead.szUserBuff);
  EXPECT_EQ(10U, pkg().stHead.dwUserBuffLen);
}

}  // namespace
}  // namespace OstrandService
