// The life of a request from Send to its end: tried, waiting, in flight, tried again.
#include <algorithm>
#include <new>

#include "client/client_core.h"
#include "client/client_errors.h"
#include "common/clock.h"
#include "common/ostrand_reqresp_util.h"
#include "service_api/ostrand_router.h"

namespace OstrandService {
namespace {

using namespace ostrand_protocol_cs;  // NOLINT: commands
using OstrandCommon::OstrandReqRespUtil;

// What a frame may have beside the request's bytes: head, routing context, performance record.
constexpr size_t kMostHead = 1024;

int16_t TriesAfterTheFirst(const RequestHead& head) {
  const bool may_repeat = head.repeat_writes || !OstrandReqRespUtil::IsWriteRequest(head.cmd, 0);
  return may_repeat ? static_cast<int16_t>(std::clamp(head.repeats, 0, 1000)) : int16_t{0};
}

bool IsTTL(uint32_t cmd) {
  return cmd == OSTRAND_API_SET_TTL_REQ || cmd == OSTRAND_API_GET_TTL_REQ;
}

bool IsBatch(uint32_t cmd) {
  static constexpr uint32_t kBatches[] = {
      OSTRAND_API_BATCH_GET_REQ,     OSTRAND_API_PB_BATCH_FIELD_GET_REQ,
      OSTRAND_API_SQL_REQ,           OSTRAND_API_BATCH_INSERT_REQ,
      OSTRAND_API_BATCH_REPLACE_REQ, OSTRAND_API_BATCH_UPDATE_REQ,
      OSTRAND_API_BATCH_DELETE_REQ,  OSTRAND_API_SQL_EXECUTE_REQ,
  };
  return std::find(std::begin(kBatches), std::end(kBatches), cmd) != std::end(kBatches);
}

// Whether the router sends it to one proxy by its key, and not to any.
bool HasPositionOfItsOwn(const OStrandPkg& pkg) {
  const uint32_t cmd = pkg.stHead.dwCmd;
  if (IsTTL(cmd)) {
    const auto& body = pkg.stBody;
    const uint32_t records = cmd == OSTRAND_API_SET_TTL_REQ ? body.stSetTTLReq.dwRecordNum
                                                            : body.stGetTTLReq.dwRecordNum;
    return records == 1;
  }
  return pkg.stHead.stKeyInfo.dwFieldNum > 0 && !IsBatch(cmd);
}

}  // namespace

bool ClientCore::IsTooLarge(const RequestHead& head, const ClientOptions& options) {
  return head.BytesLen() + kMostHead > TcpConnector::MostRoom(options.buffer_limit);
}

int ClientCore::Send(const RequestHead& head, const char* bytes, uint64_t& id) {
  if (IsTooLarge(head, m_options)) {
    return CLIENT_ERR_TOO_LARGE;
  }
  PendingRequest* request = nullptr;
  int ret = 0;
  try {
    request = m_pending.Add();
    ret = request != nullptr ? Accept(*request, head, bytes) : CLIENT_ERR_TOO_MANY;
  } catch (const std::bad_alloc&) {
    ret = ROUTER_ERR_ALLOCATION;
  }
  if (ret != 0) {
    if (request != nullptr) {
      ForgetTry(*request);
      Forget(*request);
    }
    return ret;
  }
  id = request->id;
  ++m_counters.accepted;
  m_stamped.push_back(id);
  if (++m_queued >= kSendTogether || m_pending.size() == 1) {
    Flush();
  }
  return 0;
}

// Sends the request or lets it wait. What is kept of it is kept before it is sent: after that
// nothing may fail.
int ClientCore::Accept(PendingRequest& request, const RequestHead& head, const char* bytes) {
  const Table& table = m_service.TableAt(static_cast<size_t>(head.table));
  Zone& zone = m_service.ZoneAt(table.zone);
  request.cmd = head.cmd;
  request.sequence = head.sequence;
  request.zone = table.zone;
  request.table = static_cast<uint16_t>(head.table);
  request.timeout_ms = head.timeout_ms > 0 ? head.timeout_ms : m_options.default_timeout_ms;
  request.deadline_ms = m_loop.NowMs() + request.timeout_ms;
  request.tries_left = TriesAfterTheFirst(head);
  if (zone.wake && !zone.waiting.empty()) {  // they came first
    SendWaiting(zone);
  }
  if (request.tries_left > 0) {
    if (const int ret = Keep(zone, request, head, bytes)) {
      return ret;
    }
  }
  Load(zone, request, head, bytes);
  const Chance chance = ChanceOf(zone, head);
  const int ret = Try(zone, request, chance);
  return ret > 0 ? Wait(zone, request, head, bytes) : ret;
}

void ClientCore::Load(const Zone& zone, const PendingRequest& request, const RequestHead& head,
                      const char* bytes) {
  if (m_request.Load(head, bytes) != 0) {
    throw std::bad_alloc();
  }
  const Table& table = m_service.TableAt(request.table);
  m_request.SetAppId(static_cast<int32_t>(m_options.app_id));
  m_request.SetZoneId(zone.zone_id);
  m_request.SetAsynID(request.wire_id);
  m_request.SetTableSubscript(table.subscript);
  m_request.SetMetaVersion(table.meta_version);
}

// REQUIRES: the request is loaded. While no queue is half full, and nobody waits for room, there is
// room for every request but the largest.
ClientCore::Chance ClientCore::ChanceOf(Zone& zone, const RequestHead& head) {
  if (!m_service.CanRoute(zone)) {
    return Chance::kNoRoute;
  }
  const size_t frame_len = head.BytesLen() + kMostHead;
  if (zone.connectors->OverHalf() == 0 && zone.waiting.empty() &&
      frame_len <= m_options.buffer_limit / 4) {
    return Chance::kGood;
  }
  const std::string& table = m_catalog.At(static_cast<size_t>(head.table)).name;
  return HasRoom(zone, frame_len, HasPositionOfItsOwn(*m_request.GetPkg()), table.c_str())
             ? Chance::kGood
             : Chance::kNoRoom;
}

// A connector for whose room others wait already has none: they come first.
bool ClientCore::HasRoom(Zone& zone, size_t frame_len, bool has_position, const char* table_name) {
  const auto has_room = [frame_len](TcpConnector& connector) {
    if (!connector.TellsRoom() && connector.Room() < frame_len) {
      connector.TellRoom();
    }
    return !connector.TellsRoom();
  };
  if (has_position) {
    ProxyServer* server = nullptr;
    if (zone.router->GetRouterProxyServer(server, &m_request, zone.zone_id, table_name) != 0) {
      return false;
    }
    TcpConnector* const connector = zone.connectors->Find(server->connector);
    return connector != nullptr && has_room(*connector);
  }
  const auto& connectors = zone.connectors->Connectors();
  return std::all_of(connectors.begin(), connectors.end(), [&has_room](const auto& connector) {
    return !Zone::IsUsable(*connector) || has_room(*connector);
  });
}

// REQUIRES: the request is loaded. 0: it is in flight; 1: it cannot be sent now; else a code.
int ClientCore::Try(Zone& zone, PendingRequest& request, Chance chance) {
  if (chance != Chance::kGood) {
    return 1;
  }
  const int64_t left_ms = request.deadline_ms - m_loop.NowMs();
  const int64_t try_ms = std::max<int64_t>(left_ms / (request.tries_left + 1), 1);
  request.try_deadline_ms = m_loop.NowMs() + try_ms;
  m_request.SetTimeout(static_cast<int32_t>(try_ms));
  m_request.net_size = 0;
  zone.latency->TakeLastId();
  const int ret = zone.router->SendRequest(&m_request);
  request.latency_id = zone.latency->TakeLastId();
  TcpConnector* const connector = zone.connectors->LastQueuedOn();
  if (ret == 0 && m_request.net_size > 0 && connector != nullptr) {
    request.state = PendingRequest::State::kInFlight;
    m_pending.Append(connector->in_flight, request);
    m_pending.SetDue(request, m_pending.WithGrace(request));
    return 0;
  }
  ForgetTry(request);
  zone.look_again = true;
  const bool is_later =
      ret == 0 || ret == ROUTER_ERR_NO_ROUTE || ret == ROUTER_ERR_SEND_BUFFER_FULL || ret == -1;
  zone.wake = zone.wake || is_later;  // nothing may come that tells of it: the next round tries
  return is_later ? 1 : ret;
}

int ClientCore::Keep(Zone& zone, PendingRequest& request, const RequestHead& head,
                     const char* bytes) {
  if (zone.store.bytes() + head.BytesLen() > m_options.max_kept_bytes) {
    return CLIENT_ERR_TOO_MANY;
  }
  request.stored = zone.store.Keep(head, bytes);
  return 0;
}

int ClientCore::Wait(Zone& zone, PendingRequest& request, const RequestHead& head,
                     const char* bytes) {
  if (zone.waiting_count >= m_options.max_waiting) {
    return CLIENT_ERR_TOO_MANY;
  }
  if (request.stored == nullptr) {
    if (const int ret = Keep(zone, request, head, bytes)) {
      return ret;
    }
  }
  request.state = PendingRequest::State::kWaiting;
  m_pending.Append(zone.waiting, request);
  ++zone.waiting_count;
  m_pending.SetDue(request, request.deadline_ms);
  return 0;
}

// Tries what waits, in its order. What finds no room stays; what follows it may find some.
void ClientCore::SendWaiting(Zone& zone) {
  zone.wake = false;
  size_t queued = 0;
  for (uint32_t slot = zone.waiting.first; slot != kNoRequest;) {
    PendingRequest& request = m_pending.At(slot);
    slot = request.next;
    if (!m_service.CanRoute(zone)) {
      return;
    }
    const StoredRequest& stored = *request.stored;
    Load(zone, request, stored.head, stored.bytes.data());
    const std::string& table = m_catalog.At(request.table).name;
    const bool has_room = HasRoom(zone, stored.head.BytesLen() + kMostHead,
                                  HasPositionOfItsOwn(*m_request.GetPkg()), table.c_str());
    if (!has_room) {
      continue;
    }
    LeaveWaiting(request);
    const int ret = Try(zone, request, Chance::kGood);
    if (ret > 0) {
      request.state = PendingRequest::State::kWaiting;
      m_pending.Append(zone.waiting, request);
      ++zone.waiting_count;
      m_pending.SetDue(request, request.deadline_ms);
      return;
    }
    if (ret < 0) {
      End(request, ret);
    } else if (request.tries_left == 0) {
      zone.store.Return(request.stored);
      request.stored = nullptr;
    }
    if (++queued % kSendTogether == 0) {
      m_loop.FlushAll();
    }
  }
}

void ClientCore::LeaveWaiting(PendingRequest& request) {
  m_pending.Unchain(request);
  --m_service.ZoneAt(request.zone).waiting_count;
  request.state = PendingRequest::State::kSending;
}

void ClientCore::OnConnectionLost(RequestChain& in_flight, const std::vector<uint64_t>& answered) {
  while (!in_flight.empty()) {
    PendingRequest& request = m_pending.At(in_flight.first);
    m_pending.Unchain(request);
    if (std::binary_search(answered.begin(), answered.end(), request.wire_id)) {
      request.state = PendingRequest::State::kAnswered;
    } else {
      TryIsOver(request, CLIENT_ERR_CONNECTION_LOST);
    }
  }
}

void ClientCore::OnAnswersDropped(const std::vector<uint64_t>& wire_ids) {
  for (const uint64_t wire_id : wire_ids) {
    PendingRequest* const request = m_pending.FindTry(wire_id);
    if (request != nullptr && request->state == PendingRequest::State::kAnswered) {
      TryIsOver(*request, CLIENT_ERR_CONNECTION_LOST);
    }
  }
}

bool ClientCore::MayTryAgain(const PendingRequest& request) const {
  return request.tries_left > 0 && !request.has_package && request.stored != nullptr &&
         m_loop.NowMs() < request.deadline_ms;
}

// The try came to nothing: the request waits for its next one, or ends.
void ClientCore::TryIsOver(PendingRequest& request, int32_t result) {
  const bool again = MayTryAgain(request);
  ForgetTry(request);
  if (!again) {
    End(request, result);
    return;
  }
  Zone& zone = m_service.ZoneAt(request.zone);
  --request.tries_left;
  ++m_counters.repeated;
  request.wire_id = m_pending.NewId(request);
  request.state = PendingRequest::State::kWaiting;
  m_pending.Append(zone.waiting, request);
  ++zone.waiting_count;
  m_pending.SetDue(request, request.deadline_ms);
  zone.wake = true;
  m_service.AskForUpdate();
}

void ClientCore::Overdue(PendingRequest& request) {
  if (request.state == PendingRequest::State::kWaiting) {
    Zone& zone = m_service.ZoneAt(request.zone);
    LeaveWaiting(request);
    if (request.wire_id != request.id) {  // an earlier try was sent: whether it took effect is open
      End(request, ClientResponse::kResultTimeOut);
      return;
    }
    End(request, m_service.CanRoute(zone) ? int32_t{ROUTER_ERR_SEND_BUFFER_FULL}
                                          : m_service.WhyNoRoute(zone));
  } else {
    TryIsOver(request, ClientResponse::kResultTimeOut);
  }
}

void ClientCore::End(PendingRequest& request, int32_t result) {
  request.end_result = result;
  request.state = PendingRequest::State::kEnded;
  m_pending.Append(m_ended, request);
  m_pending.NeverDue(request);
}

// Takes the request out of whatever chain it is in, and its try's record out of the router's table.
void ClientCore::ForgetTry(PendingRequest& request) {
  if (request.state == PendingRequest::State::kWaiting) {
    LeaveWaiting(request);
  }
  m_pending.Unchain(request);
  request.state = PendingRequest::State::kSending;
  LatencyDataTable& latency = *m_service.ZoneAt(request.zone).latency;
  LatencyData* const record = latency.GetLatencyData(request.latency_id);
  if (record != nullptr && record->async_id == request.wire_id) {
    latency.FreeLatencyData(record);
  }
  request.latency_id = -1;
}

// REQUIRES: nothing of a try is left but a chain.
void ClientCore::Forget(PendingRequest& request) {
  if (request.state == PendingRequest::State::kWaiting) {
    LeaveWaiting(request);
  }
  m_pending.Unchain(request);
  if (request.stored != nullptr) {
    m_service.ZoneAt(request.zone).store.Return(request.stored);
  }
  m_pending.Remove(request);
}

}  // namespace OstrandService
