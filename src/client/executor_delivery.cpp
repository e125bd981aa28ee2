#include "client/executor_delivery.h"

#include <new>
#include <utility>

#include "service_api/ostrand_router.h"

namespace OstrandService {

using OstrandCommon::ScopedLock;

namespace {

// Takes the packages that are there; false: none, and the delivery has no task from then on.
bool TakePackages(Delivery& delivery, size_t& count, bool& is_over) {
  const ScopedLock lock(delivery.mutex);
  count = std::exchange(delivery.count, 0);
  delivery.packages.swap(delivery.running);
  delivery.has_task = count > 0;
  is_over = count == 0 && delivery.is_whole;
  return count > 0;
}

void RunTask(Delivery& delivery) noexcept {
  size_t count = 0;
  bool is_over = false;
  while (TakePackages(delivery, count, is_over)) {
    for (size_t i = 0; i < count; ++i) {
      delivery.callback(delivery.running[i]);
    }
  }
  if (is_over) {  // else it may be another task's by now
    delivery.callback = nullptr;
    const std::shared_ptr<DeliveryPool> pool = std::move(delivery.pool);
    pool->Return(delivery);
  }
}

void Offer(Delivery& delivery, const Executor& executor) noexcept {
  Delivery* const given = &delivery;
  if (!executor([given] { RunTask(*given); })) {
    RunTask(delivery);
  }
}

// REQUIRES: room for one at least.
bool Add(std::vector<ClientResponse>& packages, size_t& count, ClientResponse& response) {
  try {
    if (count == packages.size()) {
      packages.emplace_back();
    }
  } catch (const std::bad_alloc&) {
    OutcomeHead outcome;
    outcome.result = ROUTER_ERR_ALLOCATION;
    outcome.cmd = response.GetCmd();
    outcome.async_id = response.GetAsynID();
    outcome.sequence = response.GetSequence();
    packages[count - 1].SetOutcome(outcome);
    return false;
  }
  std::swap(packages[count++], response);
  return true;
}

}  // namespace

DeliveryPool::~DeliveryPool() {
  while (m_free != nullptr) {  // one by one: a long chain would take a long stack
    m_free = std::move(m_free->next);
  }
}

Delivery& DeliveryPool::Take() {
  std::unique_ptr<Delivery> delivery;
  {
    const ScopedLock lock(m_mutex);
    delivery = std::move(m_free);
    if (delivery != nullptr) {
      m_free = std::move(delivery->next);
    }
  }
  if (delivery == nullptr) {
    delivery = std::make_unique<Delivery>();
    delivery->running.resize(1);
  }
  const ScopedLock lock(delivery->mutex);
  if (delivery->packages.empty()) {
    delivery->packages.resize(1);
  }
  delivery->is_whole = false;
  delivery->pool = shared_from_this();
  return *delivery.release();
}

void DeliveryPool::Return(Delivery& delivery) {
  const ScopedLock lock(m_mutex);
  delivery.next = std::move(m_free);
  m_free.reset(&delivery);
}

bool Deliver(Delivery& delivery, ClientResponse& response, bool is_last, const Executor& executor) {
  bool is_added = false;
  bool is_offered = false;
  {
    const ScopedLock lock(delivery.mutex);
    is_added = Add(delivery.packages, delivery.count, response);
    delivery.is_whole = is_last || !is_added;
    is_offered = !std::exchange(delivery.has_task, true);
  }
  if (is_offered) {
    Offer(delivery, executor);
  }
  return is_added;
}

}  // namespace OstrandService
