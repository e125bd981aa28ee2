// A client's connection to a proxy of the fleet: splits frames, answers them.
//
// A frame that the codec refuses, a command that no client sends, a length over the limit: the
// connection is closed. Requests are answered one after the other; while too many answers wait to
// be sent, no further request is looked at. On the loop only.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "fleet/answer_gate.h"
#include "fleet/answer_writer.h"
#include "fleet/command_runner.h"
#include "fleet/faulty_connection.h"
#include "fleet/request_log.h"
#include "fleet/stand_in.h"

namespace OstrandFleet {

// What the sessions of all proxies of a fleet share.
struct SessionContext {
  FleetLoop& loop;
  AnswerWriter& writer;
  CommandRunner& commands;
  ostrand_protocol_cs::OStrandPkg& request;  // room for the one being handled
  RequestLog& log;
  const StandIn* stand_in;                      // null: there is none
  const std::vector<Credentials>& credentials;  // empty: everybody may sign up
  uint64_t last_connection = 0;                 // number of the connection made last
};

// What the sessions of one proxy share.
struct ProxyRecord {
  size_t index;
  Misbehaviour misbehaviour;
  ProxyCounters counters;
};

class ProxySession final : public LoopObject,
                           private FaultyConnection::Listener,
                           private AnswerSink {
 public:
  class Owner {
   public:
    // The connection is closed. The session lives until the end of the round.
    virtual void OnSessionClosed(ProxySession& session) = 0;
    // The client allowed the proxy to stop, or signed up.
    virtual void OnSessionChanged() = 0;

   protected:
    ~Owner() = default;
  };

  // All outlive the session.
  ProxySession(SessionContext& context, ProxyRecord& proxy, Owner& owner);

  // Takes the descriptor over.
  void Start(int fd);
  // The proxy's faults are others now.
  void ApplyFaults();

  bool is_signed_up() const { return m_signed_up; }
  // Asks to stop, again if it was asked before.
  void AskToStop();
  void ForgetStop();
  bool allows_stop() const { return m_allows_stop; }

  FaultyConnection& connection() { return m_connection; }

 private:
  int64_t OnInput(const char* data, size_t len) override;
  void OnClosed() override;
  void OnAnswer(std::string_view frame) override;

  bool HandleFrame(std::string_view frame);
  bool AnswerByStandIn(std::string_view frame);
  bool Dispatch(const ostrand_protocol_cs::OStrandPkg& request);
  void SignUp(const ostrand_protocol_cs::OStrandPkg& request);
  int32_t JudgeSignUp(const ostrand_protocol_cs::OStrandAppSignupReq& sign_up) const;
  void AnswerHeartbeat(const ostrand_protocol_cs::OStrandPkg& request);
  void TakeStopReply(const ostrand_protocol_cs::OStrandPkgHead& reply);
  void SetSignedUp(bool signed_up);

  SessionContext& m_context;
  ProxyRecord& m_proxy;
  Owner& m_owner;
  const uint64_t m_number;
  FaultyConnection m_connection;
  AnswerGate m_gate;
  std::string m_stand_in_answer;  // room for one
  bool m_signed_up = false;
  int32_t m_app_id = 0;  // of the sign-up
  int32_t m_zone = 0;
  uint64_t m_stop_id = 0;  // asynchronous id of the stop notice; 0: none was sent
  bool m_allows_stop = false;
  std::optional<AnswerScope> m_scope;  // of the answer being made; none: a package of our own
};

}  // namespace OstrandFleet
