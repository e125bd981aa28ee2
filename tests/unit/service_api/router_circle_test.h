// What the tests of the ring's writing share.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "fakes/router_fixture.h"

namespace OstrandService {

constexpr uint64_t kFull = 0xFFFFFFFFFFFFFFFF;
constexpr uint64_t kHalf = 0x8000000000000000;

// Position of a ring point and number of its proxy in the list; -1: no server.
using Point = std::pair<uint64_t, int>;
using Points = std::vector<Point>;

class RouterCircleTest : public testing::Test, public OstrandFakes::RouterFixture {
 protected:
  static std::string Url(int number) { return "tcp://10.0.0." + std::to_string(number) + ":8000"; }
  // As "%p" prints it.
  static std::string Pointer(const void* pointer) {
    char text[32];
    std::snprintf(text, sizeof(text), "%p", pointer);
    return text;
  }

  RouterCircleTest() {
    if (Init() != 0) {
      ADD_FAILURE() << "no router";
    }
    in_use = peer->m_using_servers();
    logger.Clear();
  }

  // Proxies 1 .. n, numbered in their urls.
  void Use(int n) {
    for (int number = 1; number <= n; ++number) {
      AddProxy(in_use, Url(number));
    }
  }
  // An element that AddServerNode would not make.
  void AppendNode(List* list, const std::string& url, ProxyServer* proxy) {
    auto* node = static_cast<RealServerNode*>(list->PushBack());
    std::snprintf(node->server_url, sizeof(node->server_url), "%s", url.c_str());
    node->server = proxy;
  }
  ProxyServer* Proxy(int number) {
    return peer->FindServerNode(in_use, Url(number).c_str())->server;
  }

  // A partition by hand: one list of endings an id, all arcs of the same length.
  void Partition(const std::vector<std::vector<uint64_t>>& endings) {
    for (Len2Ending& bucket : peer->m_len2ending()) {
      bucket.clear();
    }
    for (size_t id = 0; id < endings.size(); ++id) {
      for (const uint64_t ending : endings[id]) {
        peer->m_len2ending()[id].emplace(10, ending);
      }
    }
  }

  void Write() {
    logger.Clear();
    peer->WriteHashCircle();
  }

  Points Ring() {
    std::map<const ProxyServer*, int> numbers;
    int number = 0;
    for (const RealServerNode& node : ServersOf(in_use)) {
      numbers.emplace(node.server, number++);
    }
    Points points;
    for (uint32_t i = 0; i < peer->m_virtual_node_count(); ++i) {
      const VirtualServerNode& entry = peer->m_virtual_nodes()[i];
      const auto found = numbers.find(entry.server);
      points.emplace_back(entry.hash_code,
                          entry.server != nullptr && found != numbers.end() ? found->second : -1);
    }
    return points;
  }

  // The lines of the operation itself that begin so.
  std::vector<std::string> LinesThatBegin(const std::string& beginning) {
    std::vector<std::string> texts;
    for (const OstrandFakes::LogLine& line : logger.LinesFrom("WriteHashCircle")) {
      if (line.text.compare(0, beginning.size(), beginning) == 0) {
        texts.push_back(line.text);
      }
    }
    return texts;
  }
  std::vector<std::string> CoverageLines() { return LinesThatBegin("server "); }

  List* in_use;
};

}  // namespace OstrandService
