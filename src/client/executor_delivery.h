// The way of an answer to the executor that the options name.
//
// The executor is given one task a request at a time, which hands out all packages that are there:
// so they come in order, however many threads it has. A task that it refuses runs where it was
// offered. A delivery outlives its client while its task is on its way.
//
// Ownership: a delivery belongs to its client until the last package was added, then to the task,
// which gives it back to the pool. Threads: any.
#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "client/client_response.h"
#include "common/mutex.h"

namespace OstrandService {

using Executor = std::function<bool(std::function<void()>)>;

class DeliveryPool;

struct Delivery {
  std::function<void(ClientResponse&)> callback;
  std::shared_ptr<DeliveryPool> pool;  // while it is in use

  OstrandCommon::Mutex mutex;
  // The packages that nobody took yet: the first `count` of the vector; the others are room.
  std::vector<ClientResponse> packages OSTRAND_GUARDED_BY(mutex);
  size_t count OSTRAND_GUARDED_BY(mutex) = 0;
  bool has_task OSTRAND_GUARDED_BY(mutex) = false;
  bool is_whole OSTRAND_GUARDED_BY(mutex) = false;  // the last package was added

  std::vector<ClientResponse> running;  // the task's
  std::unique_ptr<Delivery> next;       // in the pool
};

class DeliveryPool : public std::enable_shared_from_this<DeliveryPool> {
 public:
  ~DeliveryPool();
  // May throw std::bad_alloc.
  Delivery& Take();
  void Return(Delivery& delivery);

 private:
  OstrandCommon::Mutex m_mutex;
  std::unique_ptr<Delivery> m_free OSTRAND_GUARDED_BY(m_mutex);
};

// Hands a package over; `response` gets another one's room. Exceptions out of executor and callback
// end the program. False without memory: then the last package that nobody took yet has become the
// answer's last one, with the result ROUTER_ERR_ALLOCATION.
bool Deliver(Delivery& delivery, ClientResponse& response, bool is_last, const Executor& executor);

}  // namespace OstrandService
