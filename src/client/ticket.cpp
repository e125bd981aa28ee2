#include "client/ticket.h"

#include <utility>

namespace OstrandService {

void TicketChain::Append(Ticket& ticket) {
  ticket.next = nullptr;
  (last != nullptr ? last->next : first) = &ticket;
  last = &ticket;
}

// REQUIRES: not empty.
Ticket& TicketChain::TakeFirst() {
  Ticket& ticket = *first;
  first = ticket.next;
  last = first != nullptr ? last : nullptr;
  return ticket;
}

void TicketChain::Remove(Ticket& ticket) {
  Ticket* before = nullptr;
  for (Ticket* at = first; at != &ticket; at = at->next) {
    before = at;
  }
  (before != nullptr ? before->next : first) = ticket.next;
  last = last == &ticket ? before : last;
}

Ticket& TicketPool::Take() {
  if (m_free == nullptr) {
    m_blocks.reserve(m_blocks.size() + 1);
    m_blocks.push_back(std::make_unique<Ticket[]>(kBlock));
    const uint64_t first = (m_blocks.size() - 1) * kBlock;
    for (uint64_t i = kBlock; i-- > 0;) {
      Ticket& ticket = m_blocks.back()[i];
      ticket.id = first + i;
      ticket.next = std::exchange(m_free, &ticket);
    }
  }
  Ticket& ticket = *m_free;
  m_free = ticket.next;
  ticket.id = (++m_last_number << kPlaceBits) | (ticket.id & kPlaceMask);
  return ticket;
}

void TicketPool::Return(Ticket& ticket) { ticket.next = std::exchange(m_free, &ticket); }

void TicketPool::ReturnAll(TicketChain& tickets) {
  if (!tickets.empty()) {
    tickets.last->next = m_free;
    m_free = tickets.first;
    tickets = TicketChain();
  }
}

Ticket* TicketPool::PlaceOf(uint64_t id) {
  const uint64_t place = id & kPlaceMask;
  return place / kBlock < m_blocks.size() ? &m_blocks[place / kBlock][place % kBlock] : nullptr;
}

}  // namespace OstrandService
