#include "net/name_lookup.h"

#include <utility>

namespace OSTRNET {

using OstrandCommon::ScopedLock;

std::shared_ptr<NameLookup> NameLookup::Start(EventLoop& loop, const std::string& host,
                                              Answer answer) {
  auto lookup = std::make_shared<NameLookup>(loop, std::move(answer));
  loop.Sys().LookUp(host, lookup);
  return lookup;
}

void NameLookup::Forget() {
  m_answer = nullptr;
  ScopedLock lock(m_mutex);
  m_loop = nullptr;
}

// Posts under the lock: while m_loop is set the loop lives, since whoever asked forgets first.
void NameLookup::OnAddresses(std::vector<Endpoint> addresses, const char* error) {
  ScopedLock lock(m_mutex);
  if (m_loop == nullptr) {
    return;
  }
  m_addresses = std::move(addresses);
  m_error = error != nullptr ? error : (m_addresses.empty() ? "the name has no address" : "");
  m_loop->Post([self = shared_from_this()] { self->Deliver(); });
}

void NameLookup::Deliver() {
  std::vector<Endpoint> addresses;
  std::string error;
  {
    ScopedLock lock(m_mutex);
    if (m_loop == nullptr) {
      return;
    }
    m_loop = nullptr;
    addresses.swap(m_addresses);
    error.swap(m_error);
  }
  const Answer answer = std::move(m_answer);  // it may forget, or drop, this object
  answer(std::move(addresses), error.empty() ? nullptr : error.c_str());
}

}  // namespace OSTRNET
