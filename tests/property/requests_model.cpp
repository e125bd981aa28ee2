#include "property/requests_model.h"

#include <cstring>

namespace OstrandFakes {
namespace {

constexpr uint32_t kMetadataRequest = 27;
constexpr int32_t kNoRoute = -13843;
constexpr int32_t kSendBufferFull = -12307;
constexpr int32_t kInFlightFull = -40979;
constexpr int32_t kTimeOut = -20499;
constexpr int32_t kOutOfOrder = -18963;
constexpr int kHeadUndeliverable = -12563;
constexpr size_t kLongestWithContext = 1009;
constexpr size_t kContextLen = 14;
constexpr uint32_t kMagic = 0x12345678;

// CRC-32 bit by bit.
uint32_t Crc(const char* data, size_t len) {
  uint32_t crc = 0xFFFFFFFF;
  for (size_t i = 0; i < len; ++i) {
    crc ^= static_cast<uint8_t>(data[i]);
    for (int bit = 0; bit < 8; ++bit) {
      crc = (crc >> 1) ^ ((crc & 1) != 0 ? 0xEDB88320 : 0);
    }
  }
  return ~crc;
}

template <typename T>
T At(const std::string& bytes, size_t offset) {
  T value{};
  std::memcpy(&value, bytes.data() + offset, sizeof(value));
  return value;
}

}  // namespace

std::string RequestsModel::ContextOf(int32_t id, int16_t table_subscript) {
  char bytes[kContextLen];
  std::memcpy(bytes, &kMagic, 4);
  std::memcpy(bytes + 4, &id, 4);
  std::memcpy(bytes + 8, &table_subscript, 2);
  const uint32_t crc = Crc(bytes, 10);
  std::memcpy(bytes + 10, &crc, 4);
  return {bytes, sizeof(bytes)};
}

RequestsModel::Sending RequestsModel::Send(const Request& request,
                                           const Circumstances& circumstances) {
  m_fates.resize(request.async_id + 1);
  if (!circumstances.signed_up) {
    ++m_seen[kBeforeSignUp];
    return {0, false, ""};
  }
  if (!circumstances.has_route) {
    ++m_seen[kNoProxy];
    return {kNoRoute, false, ""};
  }
  const bool multi = IsMultiPackage(request.cmd);
  const bool too_long = request.user.size() > kLongestWithContext;
  const bool kept_here = circumstances.local_buffer || (multi && too_long);
  bool context = request.cmd != kMetadataRequest;
  if (context && too_long && !kept_here) {
    ++m_seen[kTooLongForContext];
    context = false;
  }
  if (context && m_live.size() == m_max_in_flight) {
    if (kept_here || multi) {
      ++m_seen[kRefusedWithoutRecord];
      return {kInFlightFull, false, ""};
    }
    ++m_seen[kSentWithoutRecord];
    context = false;
  }
  std::string user_buff = request.user;
  if (context) {
    const int32_t id = Register(request, circumstances.now_ms, kept_here);
    user_buff = (kept_here ? "" : request.user) + ContextOf(id, m_subscript);
    m_fates[request.async_id].registered = true;
  }
  const bool sent = circumstances.pack_result == 0 && circumstances.send_result > 0;
  if (context && !sent) {
    ++m_seen[kFailedAfterRegistration];
  }
  if (circumstances.pack_result != 0) {
    return {circumstances.pack_result, false, ""};
  }
  const int32_t failure =
      circumstances.send_result == 0 ? kSendBufferFull : circumstances.send_result;
  return {sent ? 0 : failure, true, user_buff};
}

int32_t RequestsModel::Register(const Request& request, int64_t now_ms, bool keeps_user) {
  const auto next = [](int32_t id) { return id == INT32_MAX ? 0 : id + 1; };
  while (IsInFlight(m_next_id)) {
    m_next_id = next(m_next_id);
  }
  const int32_t id = m_next_id;
  m_next_id = next(id);
  Record& record = m_live[id];
  record.request = request;
  record.keeps_user = keeps_user;
  SetDeadline(id, record, now_ms + request.timeout_ms);
  return id;
}

void RequestsModel::SetDeadline(int32_t id, Record& record, int64_t deadline_ms) {
  m_deadlines.erase({record.deadline_ms, id});
  m_deadlines.insert({deadline_ms, id});
  record.deadline_ms = deadline_ms;
}

void RequestsModel::Free(int32_t id) {
  m_deadlines.erase({m_live.at(id).deadline_ms, id});
  m_live.erase(id);
}

bool RequestsModel::Receive(int64_t now_ms, bool local_buffer, std::vector<Lane>& lanes,
                            uint64_t seen, Delivery& delivery) {
  if (Expire(now_ms, seen, delivery)) {
    return true;
  }
  for (Lane& lane : lanes) {
    if (!lane.asked) {
      continue;
    }
    if (!lane.peek_errors.empty()) {
      if (lane.peek_errors.front() == kHeadUndeliverable && !lane.answers.empty()) {
        ++m_seen[kHeadDropped];
        lane.answers.pop_front();
      }
      lane.peek_errors.pop_front();
      continue;
    }
    if (lane.answers.empty()) {
      continue;
    }
    const Answer answer = lane.answers.front();
    lane.answers.pop_front();
    if (Accept(answer, now_ms, local_buffer, delivery)) {
      return true;
    }
  }
  return false;
}

bool RequestsModel::Expire(int64_t now_ms, uint64_t seen, Delivery& delivery) {
  if (m_deadlines.empty() || m_deadlines.begin()->first >= now_ms) {
    return false;
  }
  const int64_t earliest_ms = m_deadlines.begin()->first;
  int32_t id = m_deadlines.begin()->second;
  for (const auto& [deadline_ms, other] : m_deadlines) {
    if (deadline_ms != earliest_ms) {
      break;
    }
    if (m_live.at(other).request.async_id == seen) {
      id = other;
    }
  }
  const Record& record = m_live.at(id);
  const Request& request = record.request;
  delivery = {request.async_id,
              request.seq,
              request.cmd + 1,
              kTimeOut,
              false,
              record.keeps_user ? request.user : "",
              ""};
  ++m_fates[request.async_id].timed_out;
  ++m_seen[kTimedOut];
  Free(id);
  return true;
}

// False: nobody gets it.
bool RequestsModel::Accept(const Answer& answer, int64_t now_ms, bool local_buffer,
                           Delivery& delivery) {
  if (!answer.decodes) {
    ++m_seen[kUndecodable];
    return false;
  }
  delivery = {answer.async_id, answer.seq,       answer.cmd,  answer.result,
              answer.more,     answer.user_buff, answer.value};
  const std::string& bytes = answer.user_buff;
  if (bytes.size() < kContextLen) {
    ++m_seen[kNoContext];
    return true;
  }
  const std::string context = bytes.substr(bytes.size() - kContextLen);
  if (At<uint32_t>(context, 0) != kMagic || At<uint32_t>(context, 10) != Crc(context.data(), 10)) {
    ++m_seen[kDamagedContext];
    return true;
  }
  const auto id = At<int32_t>(context, 4);
  delivery.user = bytes.substr(0, bytes.size() - kContextLen);
  if (IsInFlight(id)) {
    Match(id, answer, now_ms, delivery);
    return true;
  }
  const bool refused = local_buffer || (IsMultiPackage(answer.cmd - 1) && answer.number != 0);
  ++m_seen[refused ? kNoRecordRefused : kNoRecordDelivered];
  return !refused;
}

void RequestsModel::Match(int32_t id, const Answer& answer, int64_t now_ms, Delivery& delivery) {
  Record& record = m_live.at(id);
  if (record.keeps_user) {
    delivery.user = record.request.user;
  }
  const auto number = static_cast<int32_t>(answer.number);
  const bool one_of_many = IsMultiPackage(answer.cmd - 1) && answer.result == 0;
  if (one_of_many && number != 0 && number != record.next_number) {
    ++m_seen[kWrongNumber];
    delivery.result = kOutOfOrder;
  }
  if (one_of_many && answer.more) {
    ++m_seen[kMoreToCome];
    record.next_number = static_cast<int32_t>(answer.number + 1);
    SetDeadline(id, record, now_ms + record.request.timeout_ms);
    return;
  }
  ++m_seen[record.keeps_user ? kAnsweredWithKeptBytes : kAnswered];
  ++m_fates[record.request.async_id].answered;
  Free(id);
}

}  // namespace OstrandFakes
