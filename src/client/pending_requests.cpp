#include "client/pending_requests.h"

#include <algorithm>
#include <new>
#include <utility>

namespace OstrandService {

PendingRequest* PendingRequests::Add() {
  if (m_size >= m_max_pending) {
    return nullptr;
  }
  uint32_t slot = m_free;
  if (slot == kNoRequest) {
    if (m_used == m_blocks.size() * kBlock) {
      Grow();
    }
    slot = m_used++;
  } else {
    m_free = At(slot).next;
  }
  PendingRequest& request = At(slot);
  request = PendingRequest();
  request.id = NewIdOf(slot);
  request.wire_id = request.id;
  request.state = PendingRequest::State::kSending;
  ++m_size;
  return &request;
}

// A block more; what is beside the blocks grows by doubling.
void PendingRequests::Grow() {
  const size_t slots = (m_blocks.size() + 1) * kBlock;
  if (m_blocks.size() == m_blocks.capacity()) {
    m_blocks.reserve(std::max<size_t>(2 * m_blocks.size(), 8));
  }
  auto block = std::make_unique<PendingRequest[]>(kBlock);
  if (slots > m_due_room) {
    const size_t room = std::max(slots, std::min<size_t>(2 * m_due_room, kSlotMask + 1));
    if (!m_due.Reserve(static_cast<uint32_t>(room))) {
      throw std::bad_alloc();
    }
    m_due_room = room;
  }
  m_blocks.push_back(std::move(block));
}

void PendingRequests::Remove(PendingRequest& request) {
  const uint32_t slot = SlotOf(request);
  m_due.Erase(slot);
  request.id = 0;
  request.wire_id = 0;
  request.state = PendingRequest::State::kFree;
  request.next = m_free;
  m_free = slot;
  --m_size;
}

PendingRequest* PendingRequests::Find(uint64_t id) {
  const uint64_t slot = id & kSlotMask;
  return id != 0 && slot < m_used && At(static_cast<uint32_t>(slot)).id == id
             ? &At(static_cast<uint32_t>(slot))
             : nullptr;
}

PendingRequest* PendingRequests::FindTry(uint64_t wire_id) {
  const uint64_t slot = wire_id & kSlotMask;
  return wire_id != 0 && slot < m_used && At(static_cast<uint32_t>(slot)).wire_id == wire_id
             ? &At(static_cast<uint32_t>(slot))
             : nullptr;
}

uint64_t PendingRequests::NewId(const PendingRequest& request) { return NewIdOf(SlotOf(request)); }

// The number goes round after 2^32 requests; the upper half of the ids is the service's own.
uint64_t PendingRequests::NewIdOf(uint32_t slot) {
  m_last_number = std::max<uint32_t>(m_last_number + 1, 1);
  return uint64_t{m_last_number} << kSlotBits | slot;
}

void PendingRequests::Append(RequestChain& chain, PendingRequest& request) {
  const uint32_t slot = SlotOf(request);
  request.chain = &chain;
  request.next = kNoRequest;
  request.previous = chain.last;
  if (chain.last == kNoRequest) {
    chain.first = slot;
  } else {
    At(chain.last).next = slot;
  }
  chain.last = slot;
}

void PendingRequests::Unchain(PendingRequest& request) {
  RequestChain* const chain = request.chain;
  if (chain == nullptr) {
    return;
  }
  if (request.previous == kNoRequest) {
    chain->first = request.next;
  } else {
    At(request.previous).next = request.next;
  }
  if (request.next == kNoRequest) {
    chain->last = request.previous;
  } else {
    At(request.next).previous = request.previous;
  }
  request.chain = nullptr;
  request.next = kNoRequest;
  request.previous = kNoRequest;
}

int64_t PendingRequests::FirstDueMs() const {
  uint32_t slot = 0;
  int64_t due_ms = INT64_MAX;
  return m_due.First(slot, due_ms) ? due_ms : INT64_MAX;
}

PendingRequest* PendingRequests::FirstOverdue(int64_t now_ms) {
  uint32_t slot = 0;
  return m_due.FirstBefore(now_ms, slot) ? &At(slot) : nullptr;
}

}  // namespace OstrandService
