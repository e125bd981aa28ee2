#include "client/latency_data_table.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "client/bounded_copy.h"
#include "common/clock.h"
#include "service_api/ostrand_router.h"
#include "service_api/ostrand_service_statistic_mgr.h"

namespace OstrandService {
namespace {

constexpr size_t kMostInFlight = 0x7FFFFFFE;  // an id is left for the next one

// time + duration, kept within what fits.
int64_t SaturatingAdd(int64_t time_ms, int32_t duration_ms) {
  int64_t sum = 0;
  if (__builtin_add_overflow(time_ms, int64_t{duration_ms}, &sum)) {
    return duration_ms < 0 ? INT64_MIN : INT64_MAX;
  }
  return sum;
}

// now - then, 0 when the clock went back in between.
uint64_t Elapsed(int64_t now_ms, int64_t then_ms) {
  return now_ms > then_ms ? static_cast<uint64_t>(now_ms) - static_cast<uint64_t>(then_ms) : 0;
}

}  // namespace

LatencyDataTable::LatencyDataTable(int64_t app_id, size_t max_in_flight)
    : m_app_id(app_id),
      m_max_in_flight(static_cast<uint32_t>(std::min(max_in_flight, kMostInFlight))) {
  const size_t blocks = (size_t{m_max_in_flight} + kBlockSize - 1) / kBlockSize;
  m_blocks.reset(new (std::nothrow) std::unique_ptr<Slot[]>[blocks]);
}

LatencyDataTable::~LatencyDataTable() {
  for (uint32_t i = 0; i < m_used_slots; ++i) {
    const LatencyData& data = SlotAt(i).data;
    if (data.id_for_latency_data != kFreeId && data.user_buffer != nullptr) {
      m_buffers.Return(data.user_buffer, data.user_buffer_len);
    }
  }
}

int32_t LatencyDataTable::PushBack(int32_t zone_id, int64_t send_ms, int32_t timeout_ms, int32_t ip,
                                   int32_t port, uint32_t cmd, int32_t table_subscript,
                                   const char* table_name, uint64_t async_id, int32_t seq,
                                   const char* user_buffer, uint32_t user_buffer_len) {
  if (m_in_flight >= m_max_in_flight) {
    return RUNTIME_ERR_IN_FLIGHT_FULL;
  }
  char* kept = nullptr;
  if (user_buffer != nullptr) {
    kept = m_buffers.Take(user_buffer_len);
    if (kept == nullptr) {
      return ROUTER_ERR_ALLOCATION;
    }
    std::memcpy(kept, user_buffer, user_buffer_len);
  }
  uint32_t index = 0;
  if (!TakeSlot(index)) {
    if (kept != nullptr) {
      m_buffers.Return(kept, user_buffer_len);
    }
    return ROUTER_ERR_ALLOCATION;
  }
  LatencyData& data = SlotAt(index).data;
  data.id_for_latency_data = TakeId();
  data.id_for_list_node = static_cast<int32_t>(index);
  data.send_ms = send_ms;
  data.timeout_ms = timeout_ms;
  data.deadline_ms = SaturatingAdd(send_ms, timeout_ms);
  data.zone_id = zone_id;
  data.ip = ip;
  data.port = port;
  data.req_cmd = cmd;
  data.next_sub_pkg_seq = 0;
  data.table_subscript = table_subscript;
  data.async_id = async_id;
  data.seq = seq;
  CopyBounded(data.table_name, table_name);
  data.user_buffer = kept;
  data.user_buffer_len = user_buffer_len;
  Link(index);
  m_deadlines.Set(index, data.deadline_ms);
  ++m_in_flight;
  m_last_id = data.id_for_latency_data;
  return m_last_id;
}

// The slot freed last, else one that was never used.
bool LatencyDataTable::TakeSlot(uint32_t& index) {
  if (m_free != kNone) {
    index = m_free;
    m_free = SlotAt(index).next;
    return true;
  }
  if (!GrowFor(m_used_slots)) {
    return false;
  }
  index = m_used_slots++;
  return true;
}

// Makes room for the slot: a block more, and twice the room beside it.
bool LatencyDataTable::GrowFor(uint32_t index) {
  if (m_blocks == nullptr) {
    return false;
  }
  std::unique_ptr<Slot[]>& block = m_blocks[index / kBlockSize];
  if (block == nullptr) {
    block.reset(new (std::nothrow) Slot[kBlockSize]);
  }
  if (block == nullptr) {
    return false;
  }
  if (index >= m_room) {
    const uint64_t room =
        std::min<uint64_t>(std::max<uint64_t>(kBlockSize, uint64_t{m_room} * 2), m_max_in_flight);
    if (!m_deadlines.Reserve(static_cast<uint32_t>(room))) {
      return false;
    }
    m_room = static_cast<uint32_t>(room);
  }
  if (index >= m_chain_count) {
    GrowChains();
  }
  return m_chain_count > 0;
}

// Called while every slot in use is in flight. Without memory the chains stay as they are and
// become longer.
void LatencyDataTable::GrowChains() {
  const uint32_t count = m_chain_count == 0 ? kBlockSize : m_chain_count * 2;
  std::unique_ptr<uint32_t[]> chains(new (std::nothrow) uint32_t[count]);
  if (chains == nullptr) {
    return;
  }
  std::fill_n(chains.get(), count, kNone);
  m_chains = std::move(chains);
  m_chain_count = count;
  for (uint32_t i = 0; i < m_used_slots; ++i) {
    Link(i);
  }
}

int32_t LatencyDataTable::TakeId() {
  while (m_ids_come_again && GetLatencyData(m_next_id) != nullptr) {
    m_next_id = m_next_id == INT32_MAX ? 0 : m_next_id + 1;
  }
  const int32_t id = m_next_id;
  m_ids_come_again = m_ids_come_again || id == INT32_MAX;
  m_next_id = id == INT32_MAX ? 0 : id + 1;
  return id;
}

void LatencyDataTable::Link(uint32_t index) {
  Slot& slot = SlotAt(index);
  uint32_t& first = ChainOf(slot.data.id_for_latency_data);
  slot.next = first;
  first = index;
}

void LatencyDataTable::Unlink(uint32_t index) {
  const Slot& slot = SlotAt(index);
  uint32_t* link = &ChainOf(slot.data.id_for_latency_data);
  while (*link != index) {
    link = &SlotAt(*link).next;
  }
  *link = slot.next;
}

LatencyData* LatencyDataTable::GetLatencyData(int32_t id) {
  if (id < 0 || m_chain_count == 0) {
    return nullptr;
  }
  for (uint32_t index = ChainOf(id); index != kNone; index = SlotAt(index).next) {
    LatencyData& data = SlotAt(index).data;
    if (data.id_for_latency_data == id) {
      return &data;
    }
  }
  return nullptr;
}

bool LatencyDataTable::IsInFlight(const LatencyData* record) {
  return record != nullptr && record->id_for_latency_data != kFreeId;
}

int LatencyDataTable::CalculateDelay(LatencyData* record, int64_t now_ms,
                                     OstrandServiceStatisticMgr* /*statistic_mgr*/) {
  if (record == nullptr) {
    return ROUTER_ERR_ARGUMENT;
  }
  const uint64_t delay_ms = Elapsed(now_ms, record->send_ms);
  m_delays.packages += 1;
  m_delays.total_ms += delay_ms;
  m_delays.max_ms = std::max(m_delays.max_ms, delay_ms);
  return 0;
}

void LatencyDataTable::RenewalLatencyData(int64_t now_ms, LatencyData* record) {
  if (IsInFlight(record)) {
    record->deadline_ms = SaturatingAdd(now_ms, record->timeout_ms);
    m_deadlines.Set(static_cast<uint32_t>(record->id_for_list_node), record->deadline_ms);
  }
}

void LatencyDataTable::FreeLatencyData(LatencyData* record) {
  if (!IsInFlight(record)) {
    return;
  }
  const auto index = static_cast<uint32_t>(record->id_for_list_node);
  m_deadlines.Erase(index);
  Unlink(index);
  if (record->user_buffer != nullptr) {
    m_buffers.Return(record->user_buffer, record->user_buffer_len);
  }
  record->id_for_latency_data = kFreeId;
  SlotAt(index).next = m_free;
  m_free = index;
  --m_in_flight;
}

LatencyData* LatencyDataTable::TraverseForDeleteTimeOutNode(
    OstrandServiceStatisticMgr* statistic_mgr) {
  uint32_t index = 0;
  if (m_is_expiry_held || m_in_flight == 0 ||
      !m_deadlines.FirstBefore(OstrandCommon::GetCurrentMilliseconds(), index)) {
    return nullptr;
  }
  m_deadlines.Erase(index);
  LatencyData& record = SlotAt(index).data;
  CountTimeOut(record, statistic_mgr);
  return &record;
}

int64_t LatencyDataTable::NextDeadlineMs() const {
  uint32_t index = 0;
  int64_t deadline_ms = 0;
  return m_deadlines.First(index, deadline_ms) ? deadline_ms : INT64_MAX;
}

void LatencyDataTable::CountTimeOut(const LatencyData& record,
                                    OstrandServiceStatisticMgr* statistic_mgr) const {
  tagServiceApiStatistic* statistic =
      statistic_mgr != nullptr ? statistic_mgr->GetServiceApiStatistic(m_app_id, record.zone_id)
                               : nullptr;
  tagAccessRunStatus* access =
      statistic != nullptr ? statistic_mgr->GetAccessRunStatus(*statistic, record.ip, record.port)
                           : nullptr;
  if (access != nullptr) {
    access->dwTimeOutCountPerMin += 1;
  }
}

}  // namespace OstrandService
