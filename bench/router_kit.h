// What the benchmarks of the router share: a router whose collaborators cost as little as they can.
//
// The logger has no level enabled, as in production; connectors answer from a field.
#pragma once

#include <string>

#include "fakes/router_fixture.h"

namespace OstrandBench {

// A logger with nothing enabled.
class QuietLogger : public OstrandCommon::Logger {
 public:
  void Log(OstrandCommon::LogLevel, int, int, const char*, int, const char*, const char*,
           ...) override __attribute__((format(printf, 8, 9))) {}
  int InitLogger(const char*) override { return 0; }
  OstrandCommon::Logger* CloneLogger() override { return nullptr; }
  OstrandCommon::Logger* GetLogger() override { return this; }
  bool IsPriorityEnabled(OstrandCommon::LogLevel) override { return false; }
  void ResetLogHandler(void*) override {}
  void* GetLoggerHandle() override { return nullptr; }
  void* GetCurThreadLoggerHandle() override { return nullptr; }
  void Fini() override {}
};

// Always connected; takes everything that is sent.
class IdleConnector : public OSTRNET::CConnector {
 public:
  explicit IdleConnector(const char* url) : m_url(url) {}
  int Connect() override { return 0; }
  void Disconnect(int) override {}
  int GetStatus() const override { return STATUS_CONNECTED; }
  const char* GetURL() const override { return m_url.c_str(); }
  int PeekPkg(const char*&, int&, void*) override { return 0; }
  void ConsumePkg() override {}
  void Recover(void*) override {}
  const char* GetLastErrDesc() override { return ""; }
  int SendToQ(const char*, unsigned int len, void*) override { return static_cast<int>(len); }

 private:
  const std::string m_url;
};

class IdleConnectorMgr : public OSTRNET::CConnectorMgr {
 public:
  OSTRNET::CConnector* CreateConnector(const char* url, OSTRNET::IPackParser*, int,
                                       OSTRNET::ReceiveCallback, void*) override {
    return new IdleConnector(url);
  }
  int RemoveConnector(OSTRNET::CConnector* connector) override {
    delete connector;
    return 0;
  }
  const char* GetLastErrDesc() override { return ""; }
};

inline std::string Url(int number) { return "tcp://10.0.0." + std::to_string(number) + ":8000"; }

// An initialised router.
class BenchRouter : public OstrandFakes::RouterFixture {
 public:
  BenchRouter() {
    MakeRouter();
    Start();
  }
  ~BenchRouter() { router.reset(); }  // before its connectors' manager

  // Init, also again after Fini.
  void Start() { router->Init(&connectors, Service(), &quiet); }

  // Proxies 1 .. n in use, usable, with the ring written.
  void Use(int n) {
    for (int number = 1; number <= n; ++number) {
      AddUsable(Url(number));
    }
    peer->WriteHashCircle();
  }

  // Calls them all usable, as after a sign-up just now.
  void SignUpAll(OstrandService::List* list) {
    for (OstrandService::RealServerNode& node : OstrandService::ServersOf(list)) {
      node.server->pre_status = OSTRNET::CConnector::STATUS_CONNECTED;
      node.server->has_sent_auth = true;
      node.server->auth_succeed = true;
      node.server->last_auth_result = 0;
      node.server->last_recv_ms = clock.Ms();
    }
  }

  QuietLogger quiet;
  IdleConnectorMgr connectors;

 private:
  void AddUsable(const std::string& url) {
    OstrandService::List* list = peer->m_using_servers();
    peer->AddServerNode(list, url.c_str(), "id", nullptr);
    SignUpAll(list);
  }
};

}  // namespace OstrandBench
