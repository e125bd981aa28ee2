// What the tests of the three lists share.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "fakes/router_fixture.h"

namespace OstrandService {

constexpr char kUrl[] = "tcp://10.0.0.1:1001";
constexpr char kOther[] = "tcp://10.0.0.2:1002";

// As "%p" prints it.
inline std::string Pointer(const void* pointer) {
  char text[32];
  std::snprintf(text, sizeof(text), "%p", pointer);
  return text;
}

// A url of any length that begins like one.
inline std::string UrlOfLength(size_t length) {
  std::string url = "tcp://";
  url.resize(length, 'h');
  return url;
}

// An initialised router whose logger has TRACE off.
class RouterListsTest : public testing::Test, public OstrandFakes::RouterFixture {
 protected:
  RouterListsTest() {
    if (Init() != 0) {
      ADD_FAILURE() << "no router";
    }
    in_use = peer->m_using_servers();
    preparing = peer->m_preparing_servers();
    removing = peer->m_removing_servers();
    logger.Clear();
    logger.SetThreshold(OstrandCommon::OSTRAND_LOG_LEVEL_DEBUG);
  }

  int Add(List* list, const std::string& url, ProxyServer* proxy = nullptr) {
    return peer->AddServerNode(list, url.c_str(), "id", proxy);
  }
  ProxyServer* ServerAt(List* list, const char* url) {
    return peer->FindServerNode(list, url)->server;
  }
  static void AppendNode(List* list, const std::string& url, ProxyServer* proxy) {
    auto* node = static_cast<RealServerNode*>(list->PushBack());
    std::snprintf(node->server_url, sizeof(node->server_url), "%s", url.c_str());
    node->server = proxy;
  }
  // Fills a list up to its capacity with elements that have no record.
  static void FillUp(List* list) {
    for (uint32_t i = list->GetUsed(); i < 1024; ++i) {
      AppendNode(list, "tcp://10.1.0.0:" + std::to_string(i), nullptr);
    }
  }

  List* in_use;
  List* preparing;
  List* removing;
};

}  // namespace OstrandService
