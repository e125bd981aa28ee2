// One look-up of a name for somebody on a loop, who may lose interest at any time.
//
//   m_lookup = NameLookup::Start(loop, host, [this](std::vector<Endpoint> found, const char* error)
//   {
//     ... in a round of the loop, at most once ...
//   });
//   m_lookup->Forget();   // before whoever asked, or the loop, dies: nothing is called any more
//
// Ownership: shared by whoever asked and the resolver, which may answer long after. Threads:
// OnAddresses: any; all else: the loop's.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "common/mutex.h"
#include "net/event_loop.h"
#include "net/system.h"

namespace OSTRNET {

class NameLookup final : public NameListener, public std::enable_shared_from_this<NameLookup> {
 public:
  using Answer = std::function<void(std::vector<Endpoint> addresses, const char* error)>;

  static std::shared_ptr<NameLookup> Start(EventLoop& loop, const std::string& host, Answer answer);
  NameLookup(EventLoop& loop, Answer answer) : m_loop(&loop), m_answer(std::move(answer)) {}

  void Forget();
  void OnAddresses(std::vector<Endpoint> addresses, const char* error) override;

 private:
  void Deliver();

  OstrandCommon::Mutex m_mutex;
  EventLoop* m_loop OSTRAND_GUARDED_BY(m_mutex);  // null: forgotten, or answered
  std::vector<Endpoint> m_addresses OSTRAND_GUARDED_BY(m_mutex);
  std::string m_error OSTRAND_GUARDED_BY(m_mutex);
  Answer m_answer;  // loop's thread
};

}  // namespace OSTRNET
