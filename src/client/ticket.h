// What a client keeps of a request from Send until its outcome was handed out, and the pool of
// them.
//
// A ticket's id is what the application knows its request by; it names the ticket's place in its
// low bits. Tickets never move and are used again, the last one first.
//
// Ownership: the pool owns its tickets. Threads: the pool is guarded by its owner's lock. A ticket
// belongs to who took it until it is posted, to the loop from then on; of a Call again to its
// caller from the waiter's wake on.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <vector>

#include "client/client_request.h"
#include "client/client_response.h"
#include "client/waiter.h"

namespace OstrandService {

struct Delivery;

struct Ticket {
  enum class Kind : uint8_t {
    kCallback,  // told of each package
    kWhole,     // a callback that is told once, of the whole answer
    kFuture,
    kCall,
  };

  uint64_t id = 0;
  Kind kind = Kind::kCallback;
  uint16_t table = 0;  // place among the options' tables
  uint32_t cmd = 0;
  int32_t sequence = 0;
  int64_t deadline_ms = 0;  // monotonic
  // Shared: the id from its post until its last outcome was decided: whoever takes the id out, the
  // loop with an outcome or Cancel, decides which one it is.
  std::atomic<uint64_t> open_id{0};

  std::function<void(ClientResponse&)> callback;
  std::optional<std::promise<ClientResponse>> promise;
  // Of a Call; its caller waits, so they stay.
  const ClientRequest* request = nullptr;
  ClientResponse* response = nullptr;
  Waiter waiter;

  // The loop's.
  uint64_t core_id = 0;  // 0: not with the core
  bool is_held = false;  // a Call that waits until the core has room
  // An answer that is being collected; null: none of its packages came.
  std::unique_ptr<ClientResponse> collected;
  size_t collected_bytes = 0;
  Delivery* delivery = nullptr;  // on its way to the executor

  Ticket* next = nullptr;  // of the free ones, or of the held ones
};

// A chain of tickets, first in, first out.
struct TicketChain {
  Ticket* first = nullptr;
  Ticket* last = nullptr;

  bool empty() const { return first == nullptr; }
  void Append(Ticket& ticket);
  Ticket& TakeFirst();
  void Remove(Ticket& ticket);
};

class TicketPool {
 public:
  // A ticket with a new id; throws std::bad_alloc without memory.
  Ticket& Take();
  void Return(Ticket& ticket);
  // All of the chain, which is empty then.
  void ReturnAll(TicketChain& tickets);
  // The ticket that has, or had, this id; null when there never was one.
  Ticket* PlaceOf(uint64_t id);

 private:
  static constexpr uint64_t kBlock = 256;
  static constexpr int kPlaceBits = 31;
  static constexpr uint64_t kPlaceMask = (uint64_t{1} << kPlaceBits) - 1;

  std::vector<std::unique_ptr<Ticket[]>> m_blocks;
  Ticket* m_free = nullptr;
  uint64_t m_last_number = 0;  // of ids
};

}  // namespace OstrandService
