// One TCP connection, made or accepted: bytes in, bytes out, with limits on both.
//
//   TcpStream stream(loop, listener, limits);
//   stream.Connect(address);          // a name is looked up; every address is tried
//   ... listener.OnConnected() ...
//   stream.Queue(bytes, len);         // leaves with the loop's flush, all in one call
//   ... listener.OnInput(data, len) answers how much of it was used ...
//
// Callbacks run in the loop's rounds only, never inside an operation of this class. A stream may be
// connected anew after it is closed.
//
// Limits. Output: Queue refuses what would go over it, and OnRoom tells when half of it is free
// again. Input that the listener does not use is kept and handed on again with more after it, up
// to the limit; with that much nothing is read. Connecting, name and handshake included, ends in
// failure after its time.
//
// A connection that is connected to itself (a free local port may be the peer's) is closed.
//
//   kClosed ------ Connect, Attach -----> kConnecting -- handshake done, OnConnected --> kConnected
//      ^                                      |                                              |
//      +---- Close, Reset; OnClosed ----------+----------------------------------------------+
//
// Ownership: borrows loop and listener, which outlive it; owns descriptor and transport. Threads:
// the loop's.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "common/export.h"
#include "net/address.h"
#include "net/byte_buffer.h"
#include "net/event_loop.h"
#include "net/transport.h"

namespace OSTRNET {

class NameLookup;

class OSTRAND_API TcpStream final : private EventHandler, private Flushable {
 public:
  enum class State { kClosed, kConnecting, kConnected };

  class Listener {
   public:
    static constexpr int64_t kClose = -1;

    virtual void OnConnected() {}
    // All bytes that arrived and were not used so far. Returns how many are used from the front;
    // kClose, or a call of Close inside, ends the connection without OnClosed. `data` may be used
    // until it returns.
    virtual int64_t OnInput(const char* data, size_t len) = 0;
    // Output was refused and there is room again: half of the limit. Or as AskForRoom says.
    virtual void OnRoom() {}
    // The connection, or the attempt, ended, but not by Close. reason: a sentence, valid inside.
    virtual void OnClosed(const char* reason) = 0;

   protected:
    ~Listener() = default;
  };

  struct Limits {
    size_t max_input = size_t{16} << 20;
    size_t max_output = size_t{16} << 20;
    int connect_timeout_ms = 3000;
  };

  TcpStream(EventLoop& loop, Listener& listener, const Limits& limits,
            TransportFactory make_transport = MakePlainTransport);
  ~TcpStream();  // as Close
  TcpStream(const TcpStream&) = delete;
  TcpStream& operator=(const TcpStream&) = delete;

  // Begins to connect. 0: it goes on, also when that fails later; -errno: out of descriptors or
  // memory, nothing was begun. Nothing happens unless the state is kClosed.
  int Connect(const TcpAddress& address);
  // Takes an accepted descriptor over. 0, or -errno; then the descriptor is closed. Without a
  // handshake to wait for the state is kConnected at once, and OnConnected follows in a round.
  // REQUIRES: the state is kClosed.
  int Attach(int fd);

  State GetState() const { return m_state; }
  // The peer's, from the moment that an address is tried.
  const Endpoint& Peer() const { return m_peer; }
  // Why the last connection ended or could not be begun; empty at first.
  const char* ErrorText() const { return m_error; }

  // Queues all of the bytes, or none: 1 queued; 0 no room within the limit; -1 not connected, or
  // out of memory.
  int Queue(const char* data, size_t len);
  // Sends what is queued now, as far as the peer takes it. A failure is told in the next round.
  void Flush();
  size_t OutputSize() const { return m_output.size(); }
  size_t OutputRoom() const;
  size_t InputSize() const { return m_input.size(); }  // kept for the listener
  uint64_t BytesIn() const { return m_bytes_in; }
  uint64_t BytesOut() const { return m_bytes_out; }

  // Not reading: what comes fills the kernel's buffers. As long as the stream lives.
  void SetReading(bool reading);
  // Not sending: what is queued waits. As long as the stream lives.
  void SetSending(bool sending);
  // OnRoom tells, once, when there is room for so many bytes: for who stops before Queue refuses.
  void AskForRoom(size_t room);
  // Hands kept input on again, in the next round.
  void HandOnAgain();

  // Ends at once; what is queued is lost. No callback follows.
  void Close();
  // Sends what is queued, as far as it goes within a few seconds, and closes then; what arrives is
  // ignored. OnClosed tells the end.
  void CloseWhenSent();
  // As Close, but the peer meets a broken connection.
  void Reset();

 private:
  // What kConnecting and kConnected consist of.
  enum class Phase { kIdle, kLookingUp, kConnecting, kHandshaking, kOpen, kSendingRest };

  // What the next round has to do, as bits.
  enum Due : uint32_t {
    kDueConnected = 1,
    kDueFailure = 2,  // m_error tells it
    kDueSent = 4,     // nothing more to send before the wanted end
    kDueRoom = 8,
    kDueHandOn = 16,
    kDueInput = 32,  // the transport holds bytes
  };
  class DueHandler final : public EventHandler {
   public:
    explicit DueHandler(TcpStream& stream) : m_stream(stream) {}
    void OnEvents(uint32_t /*epoll_events*/) override { m_stream.RunDue(); }

   private:
    TcpStream& m_stream;
  };

  // Tells after a callback whether stream and connection are still those of before.
  class Life {
   public:
    explicit Life(TcpStream& stream);
    ~Life();
    Life(const Life&) = delete;
    Life& operator=(const Life&) = delete;
    bool GoesOn() const { return !m_gone && m_stream.m_connection == m_connection; }

   private:
    friend class TcpStream;
    TcpStream& m_stream;
    const uint64_t m_connection;
    Life* const m_outer;
    bool m_gone = false;
  };

  void OnEvents(uint32_t epoll_events) override;
  void FlushNow() override { Flush(); }
  void RunDue();
  void Defer(Due due);
  bool TellConnected();
  void OnTimer();

  void BeginConnecting();
  void OnAddresses(std::vector<Endpoint> addresses, const char* error);
  int TryNextAddress();
  void TryAddresses();
  void FinishConnect();
  bool IsConnectedToItself() const;
  void ContinueHandshake();
  void EndAttempt();

  bool WantsInput() const;
  uint32_t WantedEvents() const;
  void UpdateInterest();
  void OnOpenEvents(uint32_t epoll_events);
  void ReadSome();
  void TakeRead(Transport::Result result, size_t got);
  void HandOn(const char* data, size_t len);
  void HandOnKept();
  void OnReadEnd(Transport::Result result);
  void DropInput();
  void SendSome();
  bool IsBroken() const { return (m_due & kDueFailure) != 0; }

  void SetError(const char* operation, int error);
  void SetErrorText(const char* text);
  void End();
  void Release();
  void ReleaseSocket();

  EventLoop& m_loop;
  Listener& m_listener;
  const Limits m_limits;
  const TransportFactory m_make_transport;
  State m_state = State::kClosed;
  Phase m_phase = Phase::kIdle;
  Endpoint m_peer;
  char m_error[256] = {};
  ByteBuffer m_input;  // not used by the listener; empty while it is handed on
  ByteBuffer m_output;
  uint64_t m_bytes_in = 0;
  uint64_t m_bytes_out = 0;

  int m_fd = -1;
  uint32_t m_watched = 0;  // events
  std::unique_ptr<Transport> m_transport;
  uint64_t m_connection = 0;  // number of the connection
  Timer m_timer;              // of the attempt with one address, or of sending the rest
  DueHandler m_due_handler;
  uint32_t m_due = 0;
  bool m_due_asked = false;
  bool m_reading = true;
  bool m_write_blocked = false;  // the transport takes nothing at present
  bool m_sending = true;
  size_t m_room_asked = 0;        // of which the listener is to be told; 0: of none
  bool m_peer_has_ended = false;  // while the rest is sent
  Life* m_life = nullptr;         // the innermost

  // While connecting.
  TcpAddress m_address;
  std::shared_ptr<NameLookup> m_lookup;
  std::vector<Endpoint> m_addresses;
  size_t m_next_address = 0;
  int64_t m_connect_until_ms = 0;
};

}  // namespace OSTRNET
