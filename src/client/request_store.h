// Requests that are kept: those that wait, and those that may be sent again.
//
// What is kept is the request's bytes and its small head, in records that are used again: nothing
// is allocated once there are as many as ever were kept at once. Ownership: owns the records.
// Threads: none inside.
#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "client/request_head.h"

namespace OstrandService {

struct StoredRequest {
  RequestHead head;
  std::vector<char> bytes;
};

class RequestStore {
 public:
  // May throw std::bad_alloc; then nothing is kept.
  StoredRequest* Keep(const RequestHead& head, const char* bytes);
  void Return(StoredRequest* stored);

  // Of those that are kept now.
  size_t count() const { return m_all.size() - m_free.size(); }
  size_t bytes() const { return m_bytes; }

 private:
  // Larger room is given back.
  static constexpr size_t kKeptCapacity = 16 * 1024;
  static constexpr size_t kFirstRoom = 16;

  std::vector<std::unique_ptr<StoredRequest>> m_all;
  std::vector<StoredRequest*> m_free;  // has room for all
  size_t m_bytes = 0;
};

}  // namespace OstrandService
