// The ring of a route, for looking at it without a connection: which proxy owns which arc, and
// where a key lies.
//
//   RingView ring(8);                                // of a list of 8 proxies
//   const uint64_t position = ring.PositionOf(request);
//   const RingPoint& owner = ring.Points()[ring.IndexAt(position)];
//   // the key belongs to the proxy at place owner.proxy of the list
//
// It is the router's ring, made by the router's own functions. A proxy has no name on it: the one
// at place i of the router's list gets the i-th share, whether it is connected or not. The order of
// that list is OrderAfterChange's.
//
// Ownership: owns what it shows. Threads: one at a time. Memory that runs out is thrown by the
// constructor as std::bad_alloc: this is for tools.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "service_api/ring_index.h"

namespace OstrandService {

class OstrandRouter;
class OstrandServiceRequest;

// One point of the ring: the arc that ends here, this position included, is the proxy's.
struct RingPoint {
  uint64_t hash_code;
  uint32_t proxy;  // place in the list, from 0
};

class RingView {
 public:
  // proxies: length of the list; those behind the 200th have no point.
  explicit RingView(size_t proxies);
  ~RingView();
  RingView(const RingView&) = delete;
  RingView& operator=(const RingView&) = delete;

  // Ascending by position; 100 for each proxy, none when there is no proxy.
  const std::vector<RingPoint>& Points() const { return m_points; }

  // Index in Points of the one that owns a position. REQUIRES: there is a point.
  size_t IndexAt(uint64_t position) const;

  // Length of the arc that ends at a point. REQUIRES: there is more than one point.
  uint64_t ArcLength(size_t index) const;

  // Where a request lies, by the fields of its key (which are sorted in place). REQUIRES: it is a
  // command on one record and has a key.
  uint64_t PositionOf(OstrandServiceRequest& request) const;

  // The order in which a router that used `old_urls` keeps the proxies once it has switched to
  // `new_urls`: those that stay keep their order, the others follow in theirs. Without old ones it
  // is the route's own order. A url counts once.
  static std::vector<std::string> OrderAfterChange(const std::vector<std::string>& old_urls,
                                                   const std::vector<std::string>& new_urls);

 private:
  void FillPoints(size_t proxies);

  const std::unique_ptr<char[]> m_pack_buffer;
  const std::unique_ptr<OstrandRouter> m_router;
  std::vector<RingPoint> m_points;
  RingIndex m_index;
};

}  // namespace OstrandService
