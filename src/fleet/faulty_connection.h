// One accepted connection of the fleet: a stream, with the switches of a peer that misbehaves.
//
// What is queued leaves at the end of the loop's round. While more than the limit waits to be sent,
// nothing is read, and input that was left for want of room is handed on again when there is some.
// On the loop only.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "fleet/fleet_loop.h"
#include "fleet/fleet_types.h"
#include "net/tcp_stream.h"

namespace OstrandFleet {

class FaultyConnection final : private OSTRNET::TcpStream::Listener {
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
  // However little who queues asks for room: with more the connection is closed.
  static constexpr size_t kMaxOutput = size_t{512} << 20;

  // The listener outlives the connection.
  FaultyConnection(FleetLoop& loop, Listener& listener, const Limits& limits);
  FaultyConnection(const FaultyConnection&) = delete;
  FaultyConnection& operator=(const FaultyConnection&) = delete;

  // Takes the descriptor over and begins to read.
  void Start(int fd);

  // Queues bytes, however many are queued: who queues asks HasRoom before.
  void Queue(std::string_view bytes);
  bool HasRoom() const { return m_stream.OutputSize() < m_max_waiting_output; }
  // Sends now what is queued.
  void Flush() { m_stream.Flush(); }

  // Hands waiting input on again, for a listener that could not use it before.
  void HandleInput() { m_stream.HandOnAgain(); }

  void Close(CloseKind kind = CloseKind::kOrderly);
  // Sends what is queued and closes then; what arrives is ignored.
  void CloseWhenFlushed() { m_stream.CloseWhenSent(); }
  bool IsOpen() const { return m_open; }

  // Not reading: what comes fills the kernel's buffers. Not sending: what is queued waits. Pace: so
  // many bytes a second, one at a time; 0 for no limit.
  void SetReading(bool reading);
  void SetSending(bool sending);
  void SetPace(int64_t bytes_per_second);

  uint64_t bytes_in() const { return m_stream.BytesIn(); }
  uint64_t bytes_out() const { return m_stream.BytesOut(); }

 private:
  static constexpr size_t kUnlimited = static_cast<size_t>(-1);

  int64_t OnInput(const char* data, size_t len) override;
  void OnRoom() override;
  void OnClosed(const char* reason) override;
  void UpdateReading();
  void UpdateSending();
  void ArmPace();
  void SendPaced();

  Listener& m_listener;
  const size_t m_max_waiting_output;
  bool m_open = false;
  bool m_reading = true;
  bool m_sending = true;
  int64_t m_pace = 0;
  size_t m_allowance = kUnlimited;  // bytes that may leave now
  OSTRNET::TcpStream m_stream;
  Timer m_pace_timer;
};

}  // namespace OstrandFleet
