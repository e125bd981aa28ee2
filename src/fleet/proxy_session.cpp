#include "fleet/proxy_session.h"

#include <algorithm>
#include <cstring>

#include "fleet/fleet_codes.h"
#include "fleet/frame_layout.h"
#include "protocol/codec.h"
#include "service_api/ostrand_service_response.h"
#include "vex/vex.h"

namespace OstrandFleet {
namespace {

using namespace ostrand_protocol_cs;  // NOLINT: commands and records
using OstrandService::OstrandServiceResponse;

constexpr FaultyConnection::Limits kLimits = {OSTRAND_MAX_REQ_FRAME_LEN + 1024 * 1024,
                                              16 * 1024 * 1024};

int64_t Shifted(int64_t time_us, int64_t shift_us) {
  return static_cast<int64_t>(static_cast<uint64_t>(time_us) + static_cast<uint64_t>(shift_us));
}

void SetUserBuffer(OStrandPkgHead& head, const std::string& text) {
  const size_t len = text.empty() ? 0 : std::min(text.size() + 1, sizeof(head.szUserBuff));
  std::memcpy(head.szUserBuff, text.c_str(), len);
  head.dwUserBuffLen = static_cast<uint32_t>(len);
}

bool Matches(const Credentials& accepted, const OStrandAppSignupReq& sign_up) {
  if (!accepted.signature.empty() && accepted.signature == sign_up.szSignature) {
    return true;
  }
  return !accepted.user_name.empty() && accepted.user_name == sign_up.szUserName &&
         accepted.password_md5 == sign_up.szPasswordMd5;
}

}  // namespace

ProxySession::ProxySession(SessionContext& context, ProxyRecord& proxy, Owner& owner)
    : m_context(context),
      m_proxy(proxy),
      m_owner(owner),
      m_number(++context.last_connection),
      m_connection(context.loop, *this, kLimits),
      m_gate(context.loop, m_connection, proxy.misbehaviour, proxy.counters) {}

void ProxySession::Start(int fd) {
  ++m_proxy.counters.connections_accepted;
  ++m_proxy.counters.connections_open;
  m_connection.Start(fd);
  ApplyFaults();
}

void ProxySession::ApplyFaults() {
  const ProxyFaults& faults = m_proxy.misbehaviour.faults;
  m_connection.SetReading(!faults.never_read && !faults.silent);
  m_connection.SetPace(faults.bytes_per_second);
  m_connection.SetSending(!faults.silent);
}

void ProxySession::AskToStop() {
  if (m_allows_stop) {
    return;
  }
  ++m_proxy.counters.stop_notices;
  if (m_stop_id == 0) {
    m_stop_id = m_number << 32 | m_proxy.counters.stop_notices;
  }
  m_scope.reset();
  m_context.writer.BeginOwn(OSTRAND_API_NOTIFY_STOP_REQ, m_stop_id, *this);
  OStrandRouterInfo& info = m_context.writer.pkg().stHead.stRouterInfo;
  info.iAppID = m_app_id;
  info.iZoneID = m_zone;
  m_context.writer.Emit(kDone);
  m_connection.Flush();
}

void ProxySession::ForgetStop() {
  m_stop_id = 0;
  m_allows_stop = false;
}

int64_t ProxySession::OnInput(const char* data, size_t len) {
  size_t used = 0;
  while (m_connection.IsOpen() && m_connection.HasRoom() && m_gate.HasRoom()) {
    const int frame_len = OstrandServiceResponse::GetPkgLen(data + used, len - used);
    const bool malformed =
        frame_len < 0 || static_cast<size_t>(frame_len) > OSTRAND_MAX_REQ_FRAME_LEN;
    if (!malformed && (frame_len == 0 || static_cast<size_t>(frame_len) > len - used)) {
      break;
    }
    if (malformed || !HandleFrame({data + used, static_cast<size_t>(frame_len)})) {
      ++m_proxy.counters.malformed_frames;
      return kClose;
    }
    used += static_cast<size_t>(frame_len);
  }
  return static_cast<int64_t>(used);
}

void ProxySession::OnClosed() {
  m_gate.Shut();
  SetSignedUp(false);
  --m_proxy.counters.connections_open;
  m_proxy.counters.bytes_in += m_connection.bytes_in();
  m_proxy.counters.bytes_out += m_connection.bytes_out();
  m_owner.OnSessionClosed(*this);
}

void ProxySession::OnAnswer(std::string_view frame) {
  if (m_scope.has_value()) {
    m_gate.Pass(*m_scope, frame);
  } else {
    m_connection.Queue(frame);
  }
}

// False for a frame that no client sends.
bool ProxySession::HandleFrame(std::string_view frame) {
  if (AnswerByStandIn(frame)) {
    return true;
  }
  OStrandPkg& request = m_context.request;
  const int64_t arrival_us = ReadWallMicroseconds();
  if (UnpackWholeCsPkgMaybeDecompress(request, nullptr, 0, frame.data(), frame.size(), nullptr,
                                      nullptr, 0) != 0) {
    return false;
  }
  m_context.log.Add(m_proxy.index, m_number, request, frame);
  m_context.writer.Begin(request, frame.size(), arrival_us, *this);
  return Dispatch(request);
}

bool ProxySession::AnswerByStandIn(std::string_view frame) {
  if (m_context.stand_in == nullptr || !m_signed_up || !StandIn::Answers(CmdOf(frame))) {
    return false;
  }
  ++m_proxy.counters.table_requests;
  m_stand_in_answer.clear();
  m_context.stand_in->AppendAnswer(frame, m_stand_in_answer);
  m_gate.Pass(AnswerScope::kTable, m_stand_in_answer);
  return true;
}

bool ProxySession::Dispatch(const OStrandPkg& request) {
  const uint32_t cmd = request.stHead.dwCmd;
  ProxyCounters& counters = m_proxy.counters;
  if (cmd == OSTRAND_API_NOTIFY_STOP_RES) {
    TakeStopReply(request.stHead);
  } else if (cmd == OSTRAND_API_APP_SIGNUP_REQ) {
    ++counters.sign_ups;
    SignUp(request);
  } else if (cmd == OSTRAND_API_HEART_BEAT_REQ) {
    ++counters.heartbeats;
    AnswerHeartbeat(request);
  } else if (cmd == OSTRAND_API_METADATA_GET_REQ) {
    ++counters.metadata_requests;
    m_scope = AnswerScope::kMetadata;
    m_signed_up ? m_context.commands.RunMetadata(request) : m_context.writer.Emit(kAccessRefused);
  } else if (IsTableRequest(cmd)) {
    ++counters.table_requests;
    m_scope = AnswerScope::kTable;
    m_signed_up ? m_context.commands.Run(request) : m_context.writer.Emit(kAccessRefused);
  } else {
    return false;
  }
  return true;
}

void ProxySession::SignUp(const OStrandPkg& request) {
  if (m_proxy.misbehaviour.faults.ignore_sign_up) {
    return;
  }
  const int32_t result = JudgeSignUp(request.stBody.stAppSignupReq);
  m_app_id = request.stHead.stRouterInfo.iAppID;
  m_zone = request.stHead.stRouterInfo.iZoneID;
  m_proxy.counters.sign_ups_accepted += result == kDone ? 1 : 0;
  SetSignedUp(result == kDone);
  m_scope = AnswerScope::kSignUp;
  m_context.writer.Emit(result);
  m_owner.OnSessionChanged();
}

int32_t ProxySession::JudgeSignUp(const OStrandAppSignupReq& sign_up) const {
  const int64_t refusal = m_proxy.misbehaviour.faults.refuse_sign_up;
  if (refusal != 0) {
    return static_cast<int32_t>(refusal);
  }
  const std::vector<Credentials>& accepted = m_context.credentials;
  const bool matches =
      accepted.empty() || std::any_of(accepted.begin(), accepted.end(),
                                      [&](const auto& one) { return Matches(one, sign_up); });
  return matches ? int32_t{kDone} : int32_t{kAccessRefused};
}

void ProxySession::AnswerHeartbeat(const OStrandPkg& request) {
  const ProxyFaults& faults = m_proxy.misbehaviour.faults;
  m_scope = AnswerScope::kHeartbeat;
  if (!m_signed_up) {
    m_context.writer.Emit(kAccessRefused);
    return;
  }
  if (faults.ignore_heartbeats) {
    return;
  }
  OStrandPkg& answer = m_context.writer.pkg();
  OStrandHeartBeatRes& body = answer.stBody.stHeartBeatRes;
  const int64_t now_us = WallMicroseconds();
  const int64_t echo_us = faults.heartbeat_echo_us != 0 ? faults.heartbeat_echo_us
                                                        : request.stBody.stHeartBeatReq.llApiTimeUs;
  vex_utctime_to_vexdatetime(&body.tCurTime, static_cast<time_t>(now_us / 1000000));
  body.llApiTimeUs = Shifted(echo_us, faults.heartbeat_shift_us);
  body.llProxyTimeUs = now_us;
  SetUserBuffer(answer.stHead, faults.heartbeat_text);
  m_context.writer.Emit(kDone);
}

void ProxySession::TakeStopReply(const OStrandPkgHead& reply) {
  ++m_proxy.counters.stop_replies;
  if (m_stop_id != 0 && reply.ullAsynID == m_stop_id) {
    m_allows_stop = true;
    m_owner.OnSessionChanged();
  }
}

void ProxySession::SetSignedUp(bool signed_up) {
  m_proxy.counters.signed_up -= m_signed_up ? 1 : 0;
  m_proxy.counters.signed_up += signed_up ? 1 : 0;
  m_signed_up = signed_up;
}

}  // namespace OstrandFleet
