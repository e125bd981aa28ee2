#include "fakes/journal.h"

#include "fakes/allocation_faults.h"

namespace OstrandFakes {

void Journal::Add(const std::string& entry) {
  const UnwatchedAllocations unwatched;
  const std::lock_guard<std::mutex> lock(m_mutex);
  m_entries.push_back(entry);
}

std::vector<std::string> Journal::Entries() const {
  const UnwatchedAllocations unwatched;
  const std::lock_guard<std::mutex> lock(m_mutex);
  return m_entries;
}

std::vector<std::string> Journal::EntriesWith(const std::string& prefix) const {
  const UnwatchedAllocations unwatched;
  std::vector<std::string> found;
  for (const std::string& entry : Entries()) {
    if (entry.compare(0, prefix.size(), prefix) == 0) {
      found.push_back(entry);
    }
  }
  return found;
}

void Journal::Clear() {
  const UnwatchedAllocations unwatched;
  const std::lock_guard<std::mutex> lock(m_mutex);
  m_entries.clear();
}

}  // namespace OstrandFakes
