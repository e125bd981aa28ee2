#include "fleet/answer_writer.h"

#include <cassert>
#include <cstring>

#include "fleet/fleet_loop.h"
#include "protocol/codec.h"
#include "protocol/perf_test.h"

namespace OstrandFleet {
namespace {

using ostrand_protocol_cs::BodyKind;
using ostrand_protocol_cs::BodyKindOfCmd;
using ostrand_protocol_cs::OSTRAND_MAX_FRAME_LEN;
using ostrand_protocol_cs::OStrandPkg;
using ostrand_protocol_cs::OStrandPkgHead;
using ostrand_protocol_cs::PerfTest;

// Some bodies tell the result a second time.
void TellResultInBody(OStrandPkg& pkg, int32_t result) {
  switch (BodyKindOfCmd(pkg.stHead.dwCmd)) {
    case BodyKind::kAppSignupRes: pkg.stBody.stAppSignupRes.iResult = result; break;
    case BodyKind::kListGetAllRes: pkg.stBody.stListGetAllRes.iResult = result; break;
    case BodyKind::kGetByPartKeyRes: pkg.stBody.stGetByPartKeyRes.iResult = result; break;
    default: break;
  }
}

}  // namespace

AnswerWriter::AnswerWriter()
    : m_pkg(std::make_unique<OStrandPkg>()), m_frame(new char[OSTRAND_MAX_FRAME_LEN]) {}

void AnswerWriter::Begin(const OStrandPkg& request, size_t request_len, int64_t arrival_us,
                         AnswerSink& sink) {
  m_request = &request;
  m_request_len = request_len;
  m_arrival_us = arrival_us;
  m_sink = &sink;
  m_pkg->stHead.construct();
  CarryBack();
  m_pkg->stBody.construct(m_pkg->stHead.dwCmd);
}

void AnswerWriter::BeginOwn(uint32_t cmd, uint64_t asyn_id, AnswerSink& sink) {
  m_request = nullptr;
  m_sink = &sink;
  m_pkg->stHead.construct();
  m_pkg->stHead.dwCmd = cmd;
  m_pkg->stHead.ullAsynID = asyn_id;
  m_pkg->stBody.construct(cmd);
}

void AnswerWriter::CarryBack() {
  const OStrandPkgHead& request = m_request->stHead;
  OStrandPkgHead& answer = m_pkg->stHead;
  answer.wVersion = request.wVersion;
  answer.dwCmd = request.dwCmd + 1;
  answer.ullAsynID = request.ullAsynID;
  answer.iSeq = request.iSeq;
  answer.stRouterInfo = request.stRouterInfo;
  answer.iVexMetaVersion = request.iVexMetaVersion;
  answer.dwUserBuffLen = request.dwUserBuffLen;
  std::memcpy(answer.szUserBuff, request.szUserBuff, request.dwUserBuffLen);
  answer.dwPerfTestLen = request.dwPerfTestLen;
  std::memcpy(answer.szPerfTest, request.szPerfTest, request.dwPerfTestLen);
}

void AnswerWriter::Emit(int32_t result) {
  m_pkg->stHead.iResult = result;
  if (result != 0) {
    m_pkg->stBody.construct(m_pkg->stHead.dwCmd);
  }
  TellResultInBody(*m_pkg, result);
  StampPerformance();
  Pack();
}

void AnswerWriter::EmitPart() {
  Emit(0);
  ++m_pkg->stHead.dwSubCmd;
  m_pkg->stBody.construct(m_pkg->stHead.dwCmd);
}

// Proxy and server are one program, so a request is passed on and back in no time: what happens
// between arrival and now is the server's work.
void AnswerWriter::StampPerformance() {
  OStrandPkgHead& head = m_pkg->stHead;
  PerfTest perf;
  if (m_request == nullptr || m_request->stHead.dwPerfTestLen == 0 ||
      perf.unpack(m_request->stHead.szPerfTest, m_request->stHead.dwPerfTestLen, nullptr,
                  PerfTest::kCurrentVersion) != 0) {
    return;  // one that cannot be read goes back as it came
  }
  const auto arrival = static_cast<uint64_t>(m_arrival_us);
  const auto now = static_cast<uint64_t>(ReadWallMicroseconds());
  perf.ullProxyFrontForwardTime = arrival;
  perf.ullProxyEndForwardTime = arrival;
  perf.ullSvrArriveTime = arrival;
  perf.ullSvrMainForwardTime = arrival;
  perf.ullSvrWorkerRecvTime = arrival;
  perf.ullSvrWorkerSendTime = now;
  perf.ullProxyFrontBackwardTime = now;
  perf.ullProxyEndBackwardTime = now;
  perf.dwProxyReqLen = static_cast<uint32_t>(m_request_len);
  perf.pack(head.szPerfTest, sizeof(head.szPerfTest), nullptr, PerfTest::kCurrentVersion);
}

void AnswerWriter::Pack() {
  size_t len = OSTRAND_MAX_FRAME_LEN;
  const int ret = ostrand_protocol_cs::PackWholeCsPkgMaybeCompress(
      m_frame.get(), len, nullptr, 0, *m_pkg, m_pkg->stHead.wVersion, nullptr);
  assert(ret == 0);
  if (ret == 0) {
    m_sink->OnAnswer(std::string_view(m_frame.get(), len));
  }
}

}  // namespace OstrandFleet
