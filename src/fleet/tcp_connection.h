// One accepted connection: bytes in, bytes out, with limits on both.
//
// What arrives is handed on in place; what the listener does not use is kept and handed on again
// with more behind it. What is queued leaves at the end of each handling in one system call.
// On the loop only.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "fleet/fleet_loop.h"
#include "fleet/fleet_types.h"

namespace OstrandFleet {

class TcpConnection final : public EventHandler {
 public:
  class Listener {
   public:
    static constexpr int64_t kClose = -1;

    // Bytes that arrived and were not used so far. Returns how many are used from the front; kClose
    // ends the connection.
    virtual int64_t OnInput(const char* data, size_t len) = 0;
    // The connection is closed; called once, whoever closed it.
    virtual void OnClosed() = 0;

   protected:
    ~Listener() = default;
  };

  // max_waiting_input: of bytes that the listener does not use; with more nothing is read.
  // max_waiting_output: of queued bytes; with more HasRoom is false and nothing is read.
  struct Limits {
    size_t max_waiting_input;
    size_t max_waiting_output;
  };

  // Owns the descriptor. The listener outlives the connection.
  TcpConnection(FleetLoop& loop, int fd, Listener& listener, const Limits& limits);
  ~TcpConnection();
  TcpConnection(const TcpConnection&) = delete;
  TcpConnection& operator=(const TcpConnection&) = delete;

  // Begins to read.
  void Start();

  // Queues bytes, however many are queued: who queues asks HasRoom before. They leave with the next
  // Flush, which every handling of input ends with.
  void Queue(std::string_view bytes) { m_output.append(bytes); }
  // The queued bytes, to append to in place.
  std::string& output() { return m_output; }
  bool HasRoom() const { return WaitingOutput() < m_limits.max_waiting_output; }
  void Flush();

  // Hands waiting input on again, for a listener that could not use it before.
  void HandleInput();

  void Close(CloseKind kind = CloseKind::kOrderly);
  // Sends what is queued and closes then; what arrives is ignored.
  void CloseWhenFlushed();
  bool IsOpen() const { return m_fd >= 0; }

  // Switches, for a peer that misbehaves. Not reading: what comes fills the kernel's buffers. Not
  // sending: what is queued waits. Pace: so many bytes a second, one at a time; 0 for no limit.
  void SetReading(bool reading);
  void SetSending(bool sending);
  void SetPace(int64_t bytes_per_second);

  uint64_t bytes_in() const { return m_bytes_in; }
  uint64_t bytes_out() const { return m_bytes_out; }

 private:
  void OnEvents(uint32_t epoll_events) override;
  void Read();
  void Take(const char* data, size_t len);
  size_t HandOn(const char* data, size_t len);
  void SendSome(size_t limit);
  void SendPaced();
  void DropSent(size_t len);
  void UpdateInterest();
  size_t WaitingOutput() const { return m_output.size() - m_sent; }

  FleetLoop& m_loop;
  Listener& m_listener;
  const Limits m_limits;
  int m_fd;
  uint32_t m_interest = 0;
  bool m_reading = true;
  bool m_sending = true;
  bool m_closing = false;  // when flushed
  bool m_handing_on = false;
  bool m_waits_for_room = false;  // the listener may have left input for want of room
  Timer m_room_timer;             // hands it on again
  int64_t m_pace = 0;
  Timer m_pace_timer;
  std::string m_input;   // arrived, not used
  std::string m_output;  // queued; the first m_sent bytes are gone
  size_t m_sent = 0;
  uint64_t m_bytes_in = 0;
  uint64_t m_bytes_out = 0;
};

}  // namespace OstrandFleet
