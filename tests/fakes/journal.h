// An ordered list of short texts that several fakes write into, so that a test sees the order of
// effects across collaborators.
//
// Each fake adds one entry a call that has an effect outside the router: "Connect tcp://...",
// "RemoveConnector tcp://...", "Pause". The fake's header lists its entries.
// Ownership: the test's; outlives the fakes that write into it.
// Threads: any.
#pragma once

#include <mutex>
#include <string>
#include <vector>

namespace OstrandFakes {

class Journal {
 public:
  void Add(const std::string& entry);
  std::vector<std::string> Entries() const;
  // The entries that begin with `prefix`, in order.
  std::vector<std::string> EntriesWith(const std::string& prefix) const;
  void Clear();

 private:
  mutable std::mutex m_mutex;
  std::vector<std::string> m_entries;
};

}  // namespace OstrandFakes
