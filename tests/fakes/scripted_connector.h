// A connector that does what a test tells it to and remembers what it was asked to do.
//
// Ownership: made and destroyed by a ScriptedConnectorMgr; tests borrow it until it is removed.
// Threads: any; it locks inside.
// Journal entries: "Connect <url>", "Disconnect <url>", "SendToQ <url>", "Recover <url>".
#pragma once

#include <deque>
#include <mutex>
#include <string>
#include <vector>

#include "fakes/journal.h"
#include "net/net_connector.h"

namespace OstrandFakes {

class ScriptedConnector : public OSTRNET::CConnector {
 public:
  ScriptedConnector(std::string url, Journal* journal);

  // What the router calls.
  //
  // Connect answers the scripted result; when it is 0, the status becomes the scripted one.
  int Connect() override;
  // Sets status 0; received frames stay.
  void Disconnect(int reserved) override;
  int GetStatus() const override;
  const char* GetURL() const override { return m_url.c_str(); }
  // A scripted error first, then the frames in order.
  int PeekPkg(const char*& buffer, int& size, void* log_handle) override;
  void ConsumePkg() override;
  // Drops the frame at the head.
  void Recover(void* log_handle) override;
  const char* GetLastErrDesc() override;
  // Keeps the bytes, whatever it answers.
  int SendToQ(const char* buf, unsigned int len, void* log_handle) override;
  void GetIPAndPort(int& ip, int& port) override;
  unsigned int GetSendBuffDataSize() override;
  unsigned int GetRecvBuffDataSize() override;
  int GetSendBuffLeftRate() override;
  int GetRecvBuffLeftRate() override;

  // The script. Initially: disconnected; Connect answers 0 and leaves "connecting"; SendToQ answers
  // the length; address unknown; figures 0; error text empty.
  void SetStatus(int status);
  void SetConnect(int result, int status_after = STATUS_CONNECTING);
  void PushSendResult(int result);  // for one call each, in order
  void SetSendResult(int result);   // for all calls without a result of their own
  void SetAddress(int ip, int port);
  void SetBufferFigures(unsigned int send_size, unsigned int recv_size, int send_left_rate,
                        int recv_left_rate);
  void QueueFrame(const std::string& frame);
  void PushPeekError(int code);           // for one call each, before any frame
  void SetLastErrDesc(const char* text);  // may be null; borrowed

  // What happened.
  int connect_count() const;
  std::vector<int> disconnects() const;         // the argument of each call
  std::vector<std::string> sent() const;        // the bytes of each call of SendToQ
  std::vector<void*> send_log_handles() const;  // the handle of each call of SendToQ
  std::vector<void*> peek_log_handles() const;
  std::vector<void*> recover_log_handles() const;  // one a call of Recover
  size_t queued_frames() const;
  void ClearSent();

 private:
  // A copy on the heap of exactly the frame's size: reading behind it is an error that shows.
  using Frame = std::vector<char>;

  void Note(const char* what);

  const std::string m_url;
  Journal* const m_journal;

  mutable std::mutex m_mutex;  // guards everything below
  int m_status = STATUS_DISCONNECTED;
  int m_connect_result = 0;
  int m_status_after_connect = STATUS_CONNECTING;
  std::deque<int> m_send_results;
  bool m_has_send_result = false;
  int m_send_result = 0;
  bool m_has_address = false;
  int m_ip = 0;
  int m_port = 0;
  unsigned int m_send_size = 0;
  unsigned int m_recv_size = 0;
  int m_send_left_rate = 0;
  int m_recv_left_rate = 0;
  std::deque<Frame> m_frames;
  std::deque<int> m_peek_errors;
  const char* m_last_err_desc = "";

  int m_connect_count = 0;
  std::vector<int> m_disconnects;
  std::vector<std::string> m_sent;
  std::vector<void*> m_send_log_handles;
  std::vector<void*> m_peek_log_handles;
  std::vector<void*> m_recover_log_handles;
};

}  // namespace OstrandFakes
