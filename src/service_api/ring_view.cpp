#include "service_api/ring_view.h"

#include <algorithm>
#include <iterator>
#include <new>

#include "service_api/list.h"
#include "service_api/ostrand_router.h"
#include "service_api/proxy_server.h"

namespace OstrandService {
namespace {

constexpr size_t kPackBufferSize = size_t{64} * 1024;  // more than the fields of any key

bool Contains(const std::vector<std::string>& urls, const std::string& url) {
  return std::find(urls.begin(), urls.end(), url) != urls.end();
}

void AppendNew(std::vector<std::string>& to, const std::vector<std::string>& urls) {
  for (const std::string& url : urls) {
    if (!Contains(to, url)) {
      to.push_back(url);
    }
  }
}

}  // namespace

RingView::RingView(size_t proxies)
    : m_pack_buffer(std::make_unique<char[]>(kPackBufferSize)),
      m_router(std::make_unique<OstrandRouter>(0, m_pack_buffer.get(), kPackBufferSize, 0, 0,
                                               nullptr, 0, nullptr, nullptr, nullptr, 0)) {
  if (m_router->ConHashCalcHashNode(OstrandRouter::MAX_SERVER_COUNT) != 0) {
    throw std::bad_alloc();  // nothing else can fail
  }
  FillPoints(std::min(proxies, static_cast<size_t>(OstrandRouter::MAX_SERVER_COUNT)));
  std::sort(m_points.begin(), m_points.end(),
            [](const RingPoint& a, const RingPoint& b) { return a.hash_code < b.hash_code; });
  m_index.Build(m_points.data(), static_cast<uint32_t>(m_points.size()));
}

RingView::~RingView() = default;

// Lends the router a list of proxies that are nothing but their places, and lets it fill its ring.
void RingView::FillPoints(size_t proxies) {
  std::vector<ProxyServer> servers(proxies);
  List list(sizeof(RealServerNode));
  for (ProxyServer& server : servers) {
    auto* node = static_cast<RealServerNode*>(list.PushBack());
    if (node == nullptr) {
      throw std::bad_alloc();
    }
    node->server = &server;
  }
  OstrandCommon::ScopedLock lock(m_router->m_mutex_vistual_nodes);
  m_router->m_using_servers = &list;
  m_router->FillHashCircle();
  m_router->m_using_servers = nullptr;

  const VirtualServerNode* const nodes = m_router->m_virtual_nodes;
  for (uint32_t i = 0; i < m_router->m_virtual_node_count; ++i) {
    const auto place = nodes[i].server - servers.data();
    m_points.push_back({nodes[i].hash_code, static_cast<uint32_t>(place)});
  }
  std::fill_n(m_router->m_virtual_nodes, m_router->m_virtual_node_count, VirtualServerNode{});
  m_router->m_virtual_node_count = 0;
}

size_t RingView::IndexAt(uint64_t position) const {
  const auto count = static_cast<uint32_t>(m_points.size());
  const uint32_t index = m_index.LowerBound(m_points.data(), count, position);
  return index < count ? index : 0;
}

uint64_t RingView::ArcLength(size_t index) const {
  const size_t before = index > 0 ? index - 1 : m_points.size() - 1;
  return m_points[index].hash_code - m_points[before].hash_code;  // wraps at the ring's start
}

uint64_t RingView::PositionOf(OstrandServiceRequest& request) const {
  return m_router->CalcRequestHashCode(&request);
}

std::vector<std::string> RingView::OrderAfterChange(const std::vector<std::string>& old_urls,
                                                    const std::vector<std::string>& new_urls) {
  std::vector<std::string> staying;
  std::copy_if(old_urls.begin(), old_urls.end(), std::back_inserter(staying),
               [&new_urls](const std::string& url) { return Contains(new_urls, url); });
  std::vector<std::string> order;
  AppendNew(order, staying);
  AppendNew(order, new_urls);
  return order;
}

}  // namespace OstrandService
