#include "client/router_request.h"

#include <gtest/gtest.h>

#include <cstring>
#include <initializer_list>
#include <memory>
#include <string>

#include "client/client_request.h"
#include "fakes/allocation_faults.h"
#include "protocol/codec.h"
#include "service_api/ostrand_router.h"
#include "service_api/routing_context.h"

namespace OstrandService {
namespace {

using namespace ostrand_protocol_cs;  // NOLINT: packages

constexpr int32_t kZone = 3;

std::string Packed(RouterRequest& routed) {
  std::string frame(1 << 20, '\0');
  size_t len = frame.size();
  EXPECT_EQ(0, routed.Pack(frame.data(), len));
  frame.resize(len);
  return frame;
}

std::unique_ptr<OStrandPkg> Unpacked(const std::string& frame) {
  auto pkg = NewOStrandPkg();
  EXPECT_EQ(0, UnpackWholeCsPkgMaybeDecompress(*pkg, nullptr, 0, frame.data(), frame.size(),
                                               nullptr, nullptr, 0));
  return pkg;
}

std::string UserBuffOf(const OStrandPkg& pkg) {
  return {pkg.stHead.szUserBuff, pkg.stHead.dwUserBuffLen};
}

class RouterRequestTest : public testing::Test {
 protected:
  void Load() { ASSERT_EQ(0, routed.Load(request.Head(), request.Bytes())); }

  ClientRequest request = Get("player").Zone(kZone).Key("id", "42");
  RouterRequest routed;
};

TEST_F(RouterRequestTest, ShowsWhatTheRouterAsksFor) {
  request.SetTimeout(100).SetSequence(-3).SetUserBuff("user").Expect(6);
  request.SetAsynID(UINT64_MAX);
  Load();
  routed.SetAppId(7);
  routed.SetMetaVersion(9);
  routed.SetTableSubscript(11);
  size_t len = 99;
  EXPECT_STREQ("player", routed.GetTableName(&len));
  EXPECT_EQ(6U, len);
  EXPECT_EQ(kZone, routed.GetZoneId());
  EXPECT_EQ(7U, routed.GetCmd());
  EXPECT_EQ(0U, routed.GetSubCmd());
  EXPECT_EQ(11, routed.GetTableSubscript());
  EXPECT_EQ(-3, routed.GetSequence());
  EXPECT_EQ(UINT64_MAX, routed.GetAsynID());
  EXPECT_EQ(100, routed.timeout_ms);
  EXPECT_EQ("user", std::string(routed.GetUserBuff(&len), 4));
  EXPECT_EQ(4U, len);
  const auto pkg = Unpacked(Packed(routed));
  EXPECT_EQ(7, pkg->stHead.stRouterInfo.iAppID);
  EXPECT_EQ(9, pkg->stHead.iVexMetaVersion);
  EXPECT_EQ(6, pkg->stHead.stKeyInfo.iVersion);
  EXPECT_EQ("user", UserBuffOf(*pkg));
}

TEST_F(RouterRequestTest, LoadingLeavesNothingOfTheRequestBefore) {
  request.SetUserBuff("user").Expect(5);
  Load();
  routed.SetAppId(7);
  routed.SetTableSubscript(11);
  routed.SetMetaVersion(9);
  routed.SetPerfTest("stamps", 6);
  routed.net_size = 14;
  request.Get("guild");
  Load();
  RouterRequest fresh;
  ASSERT_EQ(0, fresh.Load(request.Head(), request.Bytes()));
  EXPECT_EQ(Packed(fresh), Packed(routed));
  EXPECT_EQ(-1, routed.GetTableSubscript());
  EXPECT_EQ(0U, routed.net_size);
  EXPECT_EQ(0, routed.GetZoneId()) << "none was given";
}

TEST_F(RouterRequestTest, PacksTheKeyAsTheRouterSortedIt) {
  request.Key("area", "eu");
  Load();
  OStrandKeySet& keys = routed.GetPkg()->stHead.stKeyInfo;
  std::swap(keys.astFields[0], keys.astFields[1]);
  const auto pkg = Unpacked(Packed(routed));
  EXPECT_STREQ("area", pkg->stHead.stKeyInfo.astFields[0].szFieldName);
}

TEST_F(RouterRequestTest, ShowsTheFirstEntryOfATTLCommand) {
  request.SetTTL("player").Record(5).Key("id", "1").Record(6).Key("id", "2");
  Load();
  const OStrandSetTTLReq& set = routed.GetPkg()->stBody.stSetTTLReq;
  EXPECT_EQ(2U, set.dwRecordNum);
  EXPECT_STREQ("id", set.astKeyInfo[0].astFields[0].szFieldName);
  EXPECT_EQ('1', set.astKeyInfo[0].astFields[0].szFieldBuff[0]);
  EXPECT_EQ(2U, Unpacked(Packed(routed))->stBody.stSetTTLReq.dwRecordNum);
  request.GetTTL("player").Record().Key("id", "7");
  Load();
  EXPECT_EQ(1U, routed.GetPkg()->stBody.stGetTTLReq.dwRecordNum);
  EXPECT_EQ('7', routed.GetPkg()->stBody.stGetTTLReq.astKeyInfo[0].astFields[0].szFieldBuff[0]);
  request.GetTTL("player");
  Load();
  EXPECT_EQ(0U, routed.GetPkg()->stBody.stGetTTLReq.dwRecordNum);
}

TEST_F(RouterRequestTest, SentTwiceItCarriesTheSameUserBytesWithAContextOfItsOwn) {
  for (const size_t user_len : std::initializer_list<size_t>{0, 1, 13, 14, 15, 1009}) {
    const std::string bytes(user_len, 'u');
    request.SetUserBuff(bytes);
    for (int32_t id = 1; id <= 3; ++id) {
      Load();
      size_t len = 0;
      char* const user_buff = routed.GetUserBuff(&len);
      ASSERT_EQ(user_len, len);
      WriteRoutingContext(user_buff + len, id, 0);
      ASSERT_EQ(0, routed.SetPkgUserBuff(user_buff, len + kRoutingContextLen));
      const std::string sent = UserBuffOf(*Unpacked(Packed(routed)));
      EXPECT_EQ(bytes, sent.substr(0, user_len));
      EXPECT_EQ(id, ReadRoutingContext(sent.data() + user_len).id);
    }
  }
}

TEST_F(RouterRequestTest, ItsBytesAreWholeAfterAContextWasWrittenOverThem) {
  const std::string bytes(1024, 'u');
  request.SetUserBuff(bytes);
  Load();
  char* const user_buff = routed.GetUserBuff(nullptr);
  WriteRoutingContext(user_buff, 1, 0);
  ASSERT_EQ(0, routed.SetPkgUserBuff(user_buff, kRoutingContextLen));
  EXPECT_EQ(14U, UserBuffOf(*Unpacked(Packed(routed))).size());
  Load();
  EXPECT_EQ(bytes, UserBuffOf(*Unpacked(Packed(routed))));
  std::memset(routed.GetUserBuff(nullptr) + 1024, 'c', 14);  // the address sanitizer watches
  EXPECT_EQ(OSTRAND_CODEC_ERR_USER_BUFF_LEN,
            routed.SetPkgUserBuff(routed.GetUserBuff(nullptr), 1025));
  EXPECT_EQ(ROUTER_ERR_ARGUMENT, routed.SetPkgUserBuff(nullptr, 1));
}

TEST_F(RouterRequestTest, RefusesAPerformanceRecordThatDoesNotFit) {
  Load();
  const std::string bytes(257, 'p');
  EXPECT_EQ(0, routed.SetPerfTest(bytes.data(), 256));
  EXPECT_EQ(OSTRAND_CODEC_ERR_PERF_TEST_LEN, routed.SetPerfTest(bytes.data(), 257));
  EXPECT_EQ(ROUTER_ERR_ARGUMENT, routed.SetPerfTest(nullptr, 1));
  EXPECT_EQ(256U, Unpacked(Packed(routed))->stHead.dwPerfTestLen);
  Load();
  EXPECT_EQ(0U, Unpacked(Packed(routed))->stHead.dwPerfTestLen) << "it belongs to one sending";
}

TEST_F(RouterRequestTest, PrintsHeadAndBodyCutToTheBuffer) {
  request.Insert("player").Key("id", "42").Set("level", "eighty");
  Load();
  std::string text(65536, 'x');
  EXPECT_EQ(0, routed.Print(text.data(), text.size()));
  EXPECT_NE(std::string::npos, text.find("player"));
  EXPECT_NE(std::string::npos, text.find("eighty"));
  EXPECT_EQ(0, routed.Print(text.data(), 10));
  EXPECT_EQ(9U, std::strlen(text.c_str()));
  EXPECT_GT(0, routed.Print(text.data(), 0));
}

TEST_F(RouterRequestTest, PackingAnswersTheCodecsCode) {
  Load();
  char buffer[10];
  size_t len = sizeof(buffer);
  EXPECT_EQ(OSTRAND_CODEC_ERR_BUFFER_FULL, routed.Pack(buffer, len));
}

TEST(RouterRequest, SaysSoWithoutMemory) {
  const ClientRequest request = Get("player").Key("id", 1);
  OstrandFakes::AllocationFaults faults;
  faults.FailNothrow(1);
  RouterRequest routed;
  ASSERT_TRUE(faults.struck());
  EXPECT_EQ(ROUTER_ERR_ALLOCATION, routed.Load(request.Head(), request.Bytes()));
  EXPECT_EQ(ROUTER_ERR_ALLOCATION, routed.SetPkgUserBuff("user", 4));
  EXPECT_EQ(ROUTER_ERR_ALLOCATION, routed.SetPerfTest("perf", 4));
  routed.SetAppId(1);
  routed.SetZoneId(1);
  routed.SetAsynID(1);
  routed.SetMetaVersion(1);
  char buffer[100];
  size_t len = sizeof(buffer);
  EXPECT_EQ(ROUTER_ERR_ALLOCATION, routed.Pack(buffer, len));
  EXPECT_EQ(ROUTER_ERR_ALLOCATION, routed.Print(buffer, sizeof(buffer)));
  EXPECT_EQ(nullptr, routed.GetTableName(nullptr));
  EXPECT_EQ(0U, routed.GetCmd());
  EXPECT_EQ(0U, routed.GetSubCmd());
  EXPECT_EQ(0, routed.GetZoneId());
  EXPECT_EQ(0, routed.GetSequence());
  EXPECT_EQ(0U, routed.GetAsynID());
  EXPECT_EQ(nullptr, routed.GetPkg());
  EXPECT_NE(nullptr, routed.GetUserBuff(nullptr)) << "never null";
}

}  // namespace
}  // namespace OstrandService
