#include "client/deadline_heap.h"

#include <algorithm>
#include <new>

namespace OstrandService {

bool DeadlineHeap::Reserve(uint32_t count) {
  if (count <= m_room) {
    return true;
  }
  std::unique_ptr<Entry[]> entries(new (std::nothrow) Entry[count]);
  std::unique_ptr<uint32_t[]> places(new (std::nothrow) uint32_t[count]);
  if (entries == nullptr || places == nullptr) {
    return false;
  }
  std::copy_n(m_entries.get(), m_size, entries.get());
  for (uint32_t place = 0; place < m_size; ++place) {
    places[entries[place].item] = place;
  }
  m_entries = std::move(entries);
  m_places = std::move(places);
  m_room = count;
  return true;
}

void DeadlineHeap::Put(uint32_t place, const Entry& entry) {
  m_entries[place] = entry;
  m_places[entry.item] = place;
}

// Puts the entry at `place`, or further up.
void DeadlineHeap::MoveUp(uint32_t place, const Entry& entry) {
  while (place > 0) {
    const uint32_t parent = (place - 1) / kArity;
    if (!(entry.deadline < m_entries[parent].deadline)) {
      break;
    }
    Put(place, m_entries[parent]);
    place = parent;
  }
  Put(place, entry);
}

// Puts the entry at `place`, or further down.
void DeadlineHeap::MoveDown(uint32_t place, const Entry& entry) {
  for (;;) {
    // 64 bits: the children of the last places lie behind what 32 bits count.
    const uint64_t first = uint64_t{place} * kArity + 1;
    if (first >= m_size) {
      break;
    }
    const auto end = static_cast<uint32_t>(std::min<uint64_t>(first + kArity, m_size));
    auto best = static_cast<uint32_t>(first);
    for (uint32_t child = best + 1; child < end; ++child) {
      if (m_entries[child].deadline < m_entries[best].deadline) {
        best = child;
      }
    }
    if (!(m_entries[best].deadline < entry.deadline)) {
      break;
    }
    Put(place, m_entries[best]);
    place = best;
  }
  Put(place, entry);
}

void DeadlineHeap::Insert(uint32_t item, const Deadline& deadline) {
  MoveUp(m_size++, Entry{deadline, item});
}

void DeadlineHeap::Erase(uint32_t item) {
  const uint32_t place = m_places[item];
  const Entry last = m_entries[--m_size];
  if (place == m_size) {
    return;
  }
  if (place > 0 && last.deadline < m_entries[(place - 1) / kArity].deadline) {
    MoveUp(place, last);
  } else {
    MoveDown(place, last);
  }
}

}  // namespace OstrandService
