// Looks host names up with the system's resolver, on threads of its own that nobody waits for.
//
// A look-up may take as long as the system lets it; up to kMaxThreads run at a time, further ones
// wait for their turn. A thread starts with the first name and ends when no more wait.
//
// Ownership: lives as long as the process, as its threads may. Threads: any.
#pragma once

#include <deque>
#include <memory>
#include <string>

#include "common/mutex.h"
#include "net/system.h"

namespace OSTRNET {

class KernelResolver {
 public:
  static constexpr int kMaxThreads = 8;
  static constexpr size_t kMaxWaiting = 1024;  // names; more are refused at once
  static constexpr size_t kMaxAddresses = 32;  // of a name; more are not looked at

  static KernelResolver& Instance();

  void LookUp(const std::string& host, const std::shared_ptr<NameListener>& listener);

 private:
  struct Question {
    std::string host;
    std::shared_ptr<NameListener> listener;
  };

  void Main();

  OstrandCommon::Mutex m_mutex;
  std::deque<Question> m_waiting OSTRAND_GUARDED_BY(m_mutex);
  int m_threads OSTRAND_GUARDED_BY(m_mutex) = 0;
};

}  // namespace OSTRNET
