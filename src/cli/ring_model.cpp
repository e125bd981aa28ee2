#include "cli/ring_model.h"

#include <algorithm>
#include <map>
#include <utility>

namespace OstrandCli {
namespace {

using OstrandService::RingPoint;
using OstrandService::RingView;

double Fraction(uint64_t length) { return static_cast<double>(length) / kRingLength; }

// The positions where an arc of either ring ends, ascending.
std::vector<uint64_t> AllEndings(const NamedRing& one, const NamedRing& other) {
  std::vector<uint64_t> endings;
  for (const NamedRing* ring : {&one, &other}) {
    for (const RingPoint& point : ring->Points()) {
      endings.push_back(point.hash_code);
    }
  }
  std::sort(endings.begin(), endings.end());
  endings.erase(std::unique(endings.begin(), endings.end()), endings.end());
  return endings;
}

}  // namespace

NamedRing::NamedRing(std::vector<std::string> urls)
    : m_urls(std::move(urls)), m_view(std::make_unique<RingView>(m_urls.size())) {}

std::vector<double> NamedRing::Shares() const {
  return SharesOfUsable(std::vector<bool>(m_urls.size(), true));
}

std::vector<double> NamedRing::SharesOfUsable(const std::vector<bool>& usable) const {
  std::vector<double> shares(m_urls.size());
  const std::vector<RingPoint>& points = Points();
  const auto is_usable = [&usable](const RingPoint& point) { return usable[point.proxy]; };
  // From the last point back, so that the next usable one is always known.
  auto next = std::find_if(points.begin(), points.end(), is_usable);
  if (next == points.end()) {
    return shares;
  }
  uint32_t owner = next->proxy;
  for (size_t i = points.size(); i-- > 0;) {
    owner = usable[points[i].proxy] ? points[i].proxy : owner;
    shares[owner] += Fraction(m_view->ArcLength(i));
  }
  return shares;
}

std::vector<size_t> NamedRing::OwnersFrom(uint64_t position, size_t count) const {
  std::vector<size_t> owners;
  std::vector<bool> has_one(m_urls.size());
  const size_t first = m_view->IndexAt(position);
  for (size_t i = 0; i < Points().size() && owners.size() < count; ++i) {
    const size_t point = (first + i) % Points().size();
    const uint32_t proxy = Points()[point].proxy;
    if (!has_one[proxy]) {
      has_one[proxy] = true;
      owners.push_back(point);
    }
  }
  return owners;
}

RingDiff Compare(const NamedRing& old_ring, const NamedRing& new_ring) {
  RingDiff diff;
  std::map<std::string, size_t> index_of;
  for (const NamedRing* ring : {&old_ring, &new_ring}) {
    for (const std::string& url : ring->Urls()) {
      if (index_of.emplace(url, diff.proxies.size()).second) {
        diff.proxies.emplace_back();
        diff.proxies.back().url = url;
      }
    }
  }
  const std::vector<uint64_t> endings = AllEndings(old_ring, new_ring);
  uint64_t before = endings.back();
  for (const uint64_t end : endings) {
    const size_t old_url = index_of.at(old_ring.OwnerOf(end));
    const size_t new_url = index_of.at(new_ring.OwnerOf(end));
    const double share = Fraction(end - before);
    diff.pieces.push_back({before, end, old_url, new_url});
    diff.proxies[old_url].old_share += share;
    diff.proxies[new_url].new_share += share;
    if (old_url != new_url) {
      diff.proxies[old_url].lost += share;
      diff.proxies[new_url].gained += share;
      diff.moved += share;
    }
    before = end;
  }
  for (const RingDiff::Proxy& proxy : diff.proxies) {
    diff.least += std::max(proxy.new_share - proxy.old_share, 0.0);
  }
  return diff;
}

}  // namespace OstrandCli
