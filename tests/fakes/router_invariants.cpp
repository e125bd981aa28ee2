#include "fakes/router_invariants.h"

#include <cstdio>
#include <cstring>
#include <map>
#include <set>

#include "fakes/router_peer.h"
#include "service_api/ostrand_router.h"

namespace OstrandFakes {

using OstrandService::List;
using OstrandService::ListNode;
using OstrandService::OstrandRouter;
using OstrandService::OstrandRouterPeer;
using OstrandService::ProxyServer;
using OstrandService::RealServerNode;
using OstrandService::ServerOf;
using OstrandService::VirtualServerNode;

namespace {

using Urls = std::map<std::string, ProxyServer*>;  // of one list

// Collects what is broken while it walks the router.
class Inspection {
 public:
  Inspection(OstrandRouter& router, const ScriptedConnectorMgr& mgr)
      : m_router(router), m_peer(router), m_mgr(mgr) {}

  std::vector<std::string> Run() {
    const Urls in_use = InspectList("using", m_peer.m_using_servers());
    const Urls preparing = InspectList("preparing", m_peer.m_preparing_servers());
    const Urls removing = InspectList("removing", m_peer.m_removing_servers());
    InspectMembership(in_use, preparing, removing);
    InspectRecords();
    InspectRing();
    return m_broken;
  }

 private:
  void Report(const std::string& sentence) { m_broken.push_back(sentence); }

  Urls InspectList(const std::string& name, List* list) {
    Urls urls;
    if (list == nullptr) {
      return urls;
    }
    uint32_t count = 0;
    for (ListNode* node = list->Begin(); node != nullptr; node = node->next) {
      if (++count > list->GetCapacity()) {
        Report("the " + name + " list has no end within its capacity");
        return urls;
      }
      InspectElement(name, *ServerOf(node), urls);
    }
    if (count != list->GetUsed()) {
      Report("the " + name + " list counts " + std::to_string(list->GetUsed()) + " elements of " +
             std::to_string(count));
    }
    return urls;
  }

  void InspectElement(const std::string& list_name, const RealServerNode& element, Urls& urls) {
    const size_t length = strnlen(element.server_url, sizeof(element.server_url));
    if (length == 0 || length == sizeof(element.server_url)) {
      Report("an element of the " + list_name + " list has an empty or endless url");
      return;
    }
    const std::string url = element.server_url;
    if (!urls.emplace(url, element.server).second) {
      Report(url + " stands twice in the " + list_name + " list");
    }
    if (element.server == nullptr) {
      return;
    }
    const auto known = m_records.emplace(element.server, url).first;
    if (known->second != url) {
      Report("one record belongs to " + known->second + " and to " + url);
    }
  }

  void InspectMembership(const Urls& in_use, const Urls& preparing, const Urls& removing) {
    for (const auto& [url, server] : removing) {
      if (in_use.count(url) > 0) {
        Report(url + " is in the removing and in the using list");
      }
      if (preparing.count(url) > 0) {
        Report(url + " is in the removing and in the preparing list");
      }
    }
    for (const auto& [url, server] : preparing) {
      const auto used = in_use.find(url);
      if (used != in_use.end() && used->second != server) {
        Report(url + " has different records in the using and in the preparing list");
      }
    }
  }

  void InspectRecords() {
    std::set<const OSTRNET::CConnector*> connectors;
    for (const auto& [server, url] : m_records) {
      if (server->m_ptrRouter != &m_router) {
        Report("the record of " + url + " belongs to another router");
      }
      if (!m_mgr.IsAlive(server->connector)) {
        Report("the record of " + url + " has no live connector");
      } else if (url != server->connector->GetURL()) {
        Report("the record of " + url + " has the connector of " + server->connector->GetURL());
      } else if (!connectors.insert(server->connector).second) {
        Report("the connector of " + url + " belongs to two records");
      }
    }
    for (const ScriptedConnector* connector : m_mgr.Live()) {
      if (connectors.count(connector) == 0) {
        Report(std::string("the connector of ") + connector->GetURL() + " belongs to no record");
      }
    }
  }

  void InspectRing() {
    const uint32_t count = m_peer.m_virtual_node_count();
    if (count > OstrandRouter::MAX_VIRTUAL_NODE_COUNT) {
      Report("the ring counts " + std::to_string(count) + " points");
      return;
    }
    const VirtualServerNode* slots = m_peer.m_virtual_nodes();
    for (uint32_t i = 0; i < OstrandRouter::MAX_VIRTUAL_NODE_COUNT; ++i) {
      if (slots[i].server != nullptr && m_records.count(slots[i].server) == 0) {
        Report("ring slot " + std::to_string(i) + " points at a record that no list holds");
      }
      if (i > 0 && i < count && slots[i - 1].hash_code >= slots[i].hash_code) {
        Report("ring slot " + std::to_string(i) + " is not behind the one before it");
      }
    }
  }

  OstrandRouter& m_router;
  OstrandRouterPeer m_peer;
  const ScriptedConnectorMgr& m_mgr;
  std::map<ProxyServer*, std::string> m_records;  // every record that a list holds, with its url
  std::vector<std::string> m_broken;
};

}  // namespace

std::vector<std::string> BrokenInvariants(OstrandRouter& router, const ScriptedConnectorMgr& mgr) {
  return Inspection(router, mgr).Run();
}

}  // namespace OstrandFakes
