// The state of one proxy connection, and the list element that names it.
#pragma once

#include <cstdint>

#include "common/export.h"
#include "common/logger.h"
#include "common/relaxed.h"
#include "net/net_connector.h"
#include "service_api/list.h"

namespace OstrandService {

// Ownership: held by list elements, several of which may share one record; its connector belongs to
// the connector manager. The router deletes both (see OstrandRouter).
// Threads: Relaxed fields are shared by the network thread (receive callback) and the application's
// thread; the others belong to the application's thread.
struct OSTRAND_API ProxyServer {
  OSTRNET::CConnector* connector = nullptr;
  int32_t pre_status = -1;  // connector status that the last pass saw; -1: never tried
  OstrandCommon::Relaxed<int64_t> last_recv_ms = 0;       // ms; start of the silence
  OstrandCommon::Relaxed<int32_t> last_auth_result = -1;  // 0: sign-up accepted; 1: stop announced
  OstrandCommon::Relaxed<bool> has_sent_auth = false;     // sign-up sent on this connection
  OstrandCommon::Relaxed<bool> auth_succeed = false;      // sign-up accepted on this connection
  OstrandCommon::Relaxed<bool> is_available = true;       // not taken out of use
  OstrandCommon::Relaxed<bool> may_have_incoming = true;  // kept up by the connector
  OstrandCommon::Relaxed<int64_t> last_unavailable_time = 0;  // s; when it was taken out of use
  int64_t last_connect_time = 0;                              // ms; last connection attempt
  // Heartbeat books of the current measuring period; latencies in us.
  OstrandCommon::Relaxed<int32_t> m_heartbeat_num = 0;
  OstrandCommon::Relaxed<int64_t> m_total_heartbeat_latency = 0;
  OstrandCommon::Relaxed<int64_t> m_max_heartbeat_latency = 0;
  OstrandCommon::Relaxed<int32_t> m_heartbeat_latency_large_num = 0;
  // As the proxy reports them.
  OstrandCommon::Relaxed<int32_t> cpuUse = 0;
  OstrandCommon::Relaxed<int32_t> cpuTotal = 0;
  // Requests and answers since the last availability check.
  OstrandCommon::Relaxed<uint64_t> m_request_count = 0;
  OstrandCommon::Relaxed<uint64_t> m_response_count = 0;
  void* m_ptrRouter = nullptr;  // the OstrandRouter that made the record

  // Whether at most one request in ten was answered since the last call (more than ten requests
  // needed); zeroes both counters. Application's thread; logger may be null.
  bool IsUnavailable(OstrandCommon::Logger* logger);
};

// The payload of every list node; copied by value.
struct RealServerNode {
  char server_url[1024];  // key, NUL-terminated
  char server_id[32];     // no NUL when all 32 bytes are used: print it through ServerIdText
  ProxyServer* server;    // null once detached
};
static_assert(sizeof(RealServerNode) == 1064, "element size of the lists");

// A server id as text.
struct ServerIdText {
  explicit ServerIdText(const char* server_id);
  const char* c_str() const { return text; }

  char text[33];
};

inline RealServerNode* ServerOf(ListNode* node) {
  return reinterpret_cast<RealServerNode*>(node->data());
}

// Walks the elements of a list in order: for (RealServerNode& node : ServersOf(list)). A null list
// is an empty one. REQUIRES: the body does not remove the element it looks at.
class ServersOf {
 public:
  class Iterator {
   public:
    explicit Iterator(ListNode* node) : m_node(node) {}
    RealServerNode& operator*() const { return *ServerOf(m_node); }
    Iterator& operator++() {
      m_node = m_node->next;
      return *this;
    }
    bool operator!=(const Iterator& other) const { return m_node != other.m_node; }

   private:
    ListNode* m_node;
  };

  explicit ServersOf(List* list) : m_begin(list != nullptr ? list->Begin() : nullptr) {}
  Iterator begin() const { return Iterator(m_begin); }
  Iterator end() const { return Iterator(nullptr); }

 private:
  ListNode* m_begin;
};

// Number of elements; 0 for a null list.
inline uint32_t UsedCount(const List* list) { return list != nullptr ? list->GetUsed() : 0; }

}  // namespace OstrandService
