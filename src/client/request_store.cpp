#include "client/request_store.h"

#include <algorithm>
#include <utility>

namespace OstrandService {

StoredRequest* RequestStore::Keep(const RequestHead& head, const char* bytes) {
  if (m_free.empty()) {
    auto stored = std::make_unique<StoredRequest>();
    if (m_free.capacity() <= m_all.size()) {
      m_free.reserve(std::max(kFirstRoom, 2 * m_all.size()));
    }
    m_all.push_back(std::move(stored));
    m_free.push_back(m_all.back().get());
  }
  StoredRequest* const stored = m_free.back();
  stored->bytes.assign(bytes, bytes + head.BytesLen());
  stored->head = head;
  m_free.pop_back();
  m_bytes += stored->bytes.size();
  return stored;
}

void RequestStore::Return(StoredRequest* stored) {
  m_bytes -= stored->bytes.size();
  if (stored->bytes.capacity() > kKeptCapacity) {
    std::vector<char>().swap(stored->bytes);
  }
  m_free.push_back(stored);
}

}  // namespace OstrandService
