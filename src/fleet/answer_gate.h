// The way of a session's answers to its connection, past the faults of its proxy.
//
// On the loop only.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include "fleet/answer_faults.h"
#include "fleet/faulty_connection.h"
#include "fleet/proxy_counters.h"

namespace OstrandFleet {

// What all sessions of one proxy share of its misbehaviour.
struct Misbehaviour {
  ProxyFaults faults;
  uint64_t droppable = 0;  // answers that might have been dropped so far
  uint64_t spoilable = 0;
  FaultRandom random;
};

class AnswerGate {
 public:
  // All outlive the gate.
  AnswerGate(FleetLoop& loop, FaultyConnection& connection, Misbehaviour& misbehaviour,
             ProxyCounters& counters);

  // Whether answers to this scope go straight to the connection.
  bool IsOpenFor(AnswerScope scope) const;

  // Sends the frame, now, later, changed or not at all.
  void Pass(AnswerScope scope, std::string_view frame);

  // False while so much waits that no further request should be answered.
  bool HasRoom() const { return m_waiting_len < kMaxWaiting; }

  // The connection is gone: nothing waits any more.
  void Shut();

 private:
  static constexpr size_t kMaxWaiting = 16 * 1024 * 1024;

  struct Waiting {
    std::string bytes;
    bool close_behind = false;
  };

  void PassSpoilt(AnswerFault fault, std::string_view frame);
  void Forward(std::string_view bytes, int64_t extra_delay_ms = 0, bool close_behind = false);
  void Send(std::string_view bytes, bool close_behind);
  void SendDue();
  void SetWaitTimer();
  void Hold(std::string_view frame);
  void ReleaseHeld();
  void KeepGoing(std::string_view frame);
  void SendNextOfEndless();

  OSTRNET::EventLoop& m_net;
  FaultyConnection& m_connection;
  Misbehaviour& m_misbehaviour;
  ProxyCounters& m_counters;

  std::multimap<int64_t, Waiting> m_waiting;  // by the monotonic time at which they are sent
  size_t m_waiting_len = 0;
  Timer m_wait_timer;
  std::string m_held;  // reordered: goes behind the next
  Timer m_held_timer;
  std::string m_last;     // for the replay
  std::string m_endless;  // the package sent last of an answer without end
  Timer m_endless_timer;
};

}  // namespace OstrandFleet
