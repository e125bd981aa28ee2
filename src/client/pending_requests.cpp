#include "client/pending_requests.h"

#include <algorithm>
#include <new>

namespace OstrandService {
namespace {

constexpr size_t kFirstSlots = 1024;

// The router times nearly all requests itself and is left this long to say so.
constexpr int64_t kGraceMs = 5000;

}  // namespace

PendingRequests::PendingRequests(size_t max_pending) : m_max_pending(max_pending) {
  m_slots.resize(kFirstSlots);
}

bool PendingRequests::Grow() {
  try {
    std::vector<PendingRequest> slots(2 * m_slots.size());
    for (const PendingRequest& request : m_slots) {
      if (request.asyn_id != 0) {  // two slots of the old table never meet in one of the new
        slots[request.asyn_id & (slots.size() - 1)] = request;
      }
    }
    m_slots.swap(slots);
    m_scan = 0;
    return true;
  } catch (const std::bad_alloc&) {
    return false;
  }
}

PendingRequest* PendingRequests::Add() {
  if (m_size >= m_max_pending) {
    return nullptr;
  }
  if (2 * m_size >= m_slots.size() && !Grow() && m_size == m_slots.size()) {
    return nullptr;
  }
  while (SlotOf(m_next_id).asyn_id != 0) {  // an old request is still pending there
    ++m_next_id;
  }
  PendingRequest& request = SlotOf(m_next_id);
  request = PendingRequest{};
  request.asyn_id = m_next_id;
  ++m_next_id;
  ++m_size;
  return &request;
}

PendingRequest* PendingRequests::Find(uint64_t asyn_id) {
  PendingRequest& request = SlotOf(asyn_id);
  return asyn_id != 0 && request.asyn_id == asyn_id ? &request : nullptr;
}

void PendingRequests::Remove(uint64_t asyn_id) {
  PendingRequest* request = Find(asyn_id);
  if (request != nullptr) {
    request->asyn_id = 0;
    --m_size;
  }
}

void PendingRequests::Watch(PendingRequest& request) {
  if (!request.is_watched) {
    m_watched.push({request.deadline_ms, request.asyn_id});
    request.is_watched = true;
  }
}

PendingRequest* PendingRequests::FindOverdue(int64_t now_ms, size_t rounds_for_all) {
  while (!m_watched.empty() && m_watched.top().deadline_ms < now_ms) {
    PendingRequest* request = Find(m_watched.top().asyn_id);
    m_watched.pop();
    if (request != nullptr && request->deadline_ms >= now_ms) {  // it was put off
      m_watched.push({request->deadline_ms, request->asyn_id});
    } else if (request != nullptr) {
      return request;
    }
  }
  if (m_size == 0) {
    return nullptr;
  }
  const size_t looks = m_slots.size() / std::max<size_t>(rounds_for_all, 1) + 1;
  for (size_t i = 0; i < looks; ++i) {
    m_scan = (m_scan + 1) & (m_slots.size() - 1);
    PendingRequest& request = m_slots[m_scan];
    if (request.asyn_id != 0 && request.deadline_ms + kGraceMs < now_ms) {
      return &request;
    }
  }
  return nullptr;
}

PendingRequest* PendingRequests::Any() {
  for (size_t i = 0; m_size != 0 && i < m_slots.size(); ++i) {
    if (m_slots[m_scan].asyn_id != 0) {
      return &m_slots[m_scan];
    }
    m_scan = (m_scan + 1) & (m_slots.size() - 1);
  }
  return nullptr;
}

}  // namespace OstrandService
