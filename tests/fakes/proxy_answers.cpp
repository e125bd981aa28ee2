#include "fakes/proxy_answers.h"

#include <cstddef>

#include "fakes/allocation_faults.h"
#include "fakes/fault.h"
#include "protocol/codec.h"

namespace OstrandFakes {

using namespace ostrand_protocol_cs;  // NOLINT: the packages of the protocol

namespace {

// A package of this command; `fill` writes what is special about it.
template <typename Fill>
std::string Frame(OStrandApiCmds cmd, Fill fill) {
  const UnwatchedAllocations unwatched;
  const auto pkg = NewOStrandPkg();
  pkg->stHead.dwCmd = cmd;
  if (pkg->stBody.construct(cmd) != 0) {
    Fault("no package of command %d", static_cast<int>(cmd));
  }
  fill(*pkg);
  std::string frame(1024, '\0');
  size_t len = frame.size();
  const int result =
      PackWholeCsPkgMaybeCompress(&frame[0], len, nullptr, 0, *pkg, pkg->stHead.wVersion, nullptr);
  if (result != 0) {
    Fault("packing command %d answered %d", static_cast<int>(cmd), result);
  }
  frame.resize(len);
  return frame;
}

}  // namespace

std::string SignupAnswer(int32_t result) {
  return Frame(OSTRAND_API_APP_SIGNUP_RES, [=](OStrandPkg& pkg) {
    pkg.stHead.iResult = result;
    pkg.stBody.stAppSignupRes.iResult = result;
  });
}

std::string HeartbeatAnswer(int64_t api_time_us) {
  return Frame(OSTRAND_API_HEART_BEAT_RES, [=](OStrandPkg& pkg) {
    pkg.stBody.stHeartBeatRes.llApiTimeUs = api_time_us;
    pkg.stBody.stHeartBeatRes.llProxyTimeUs = api_time_us;
  });
}

std::string StopNotice() {
  return Frame(OSTRAND_API_NOTIFY_STOP_REQ, [](OStrandPkg&) {});
}

}  // namespace OstrandFakes
