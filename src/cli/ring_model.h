// What is to be said of rings: who owns how much, where a key lies, what moves between two routes.
//
// The ring itself is the router's (service_api/ring_view.h). Shares are fractions of the whole key
// space. Threads: one at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "service_api/ring_view.h"

namespace OstrandCli {

// The whole ring is this long.
constexpr double kRingLength = 18446744073709551616.0;

// A ring whose proxies have names.
class NamedRing {
 public:
  // urls: in the order of the router's list, at least one.
  explicit NamedRing(std::vector<std::string> urls);

  const std::vector<std::string>& Urls() const { return m_urls; }
  const OstrandService::RingView& View() const { return *m_view; }
  const std::vector<OstrandService::RingPoint>& Points() const { return m_view->Points(); }
  const std::string& UrlAt(size_t point) const { return m_urls[Points()[point].proxy]; }
  const std::string& OwnerOf(uint64_t position) const { return UrlAt(m_view->IndexAt(position)); }

  // Of each proxy, in the order of Urls; together 1.
  std::vector<double> Shares() const;
  // Of those that can be used, when the others cannot: each arc goes to the first usable proxy at
  // or behind it. Zeroes when none is usable.
  std::vector<double> SharesOfUsable(const std::vector<bool>& usable) const;

  // Indexes of points: the first at or behind `position`, then the next of each further proxy that
  // had none yet; at most `count`.
  std::vector<size_t> OwnersFrom(uint64_t position, size_t count) const;

 private:
  std::vector<std::string> m_urls;
  std::unique_ptr<OstrandService::RingView> m_view;
};

// A piece of the ring that has one owner before a change and one after it.
struct RingPiece {
  uint64_t before;  // the piece begins behind this position
  uint64_t end;     // and ends with this one
  size_t old_url;   // index in RingDiff::urls
  size_t new_url;
};

struct RingDiff {
  struct Proxy {
    std::string url;
    double old_share = 0;
    double new_share = 0;
    double gained = 0;  // of the key space, from others
    double lost = 0;
  };

  std::vector<Proxy> proxies;  // the old ones, then the new ones
  std::vector<RingPiece> pieces;
  double moved = 0;  // share whose owner changes
  double least = 0;  // what has to move at least to get from the old shares to the new ones
};

RingDiff Compare(const NamedRing& old_ring, const NamedRing& new_ring);

}  // namespace OstrandCli
