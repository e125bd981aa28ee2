#include "fakes/scripted_connector.h"

#include <utility>

#include "fakes/allocation_faults.h"

namespace OstrandFakes {

using Lock = std::lock_guard<std::mutex>;

ScriptedConnector::ScriptedConnector(std::string url, Journal* journal)
    : m_url(std::move(url)), m_journal(journal) {}

void ScriptedConnector::Note(const char* what) {
  if (m_journal != nullptr) {
    m_journal->Add(std::string(what) + " " + m_url);
  }
}

int ScriptedConnector::Connect() {
  const UnwatchedAllocations unwatched;
  Note("Connect");
  const Lock lock(m_mutex);
  ++m_connect_count;
  if (m_connect_result == 0) {
    m_status = m_status_after_connect;
  }
  return m_connect_result;
}

void ScriptedConnector::Disconnect(int reserved) {
  const UnwatchedAllocations unwatched;
  Note("Disconnect");
  const Lock lock(m_mutex);
  m_disconnects.push_back(reserved);
  m_status = STATUS_DISCONNECTED;
}

int ScriptedConnector::GetStatus() const {
  const Lock lock(m_mutex);
  return m_status;
}

int ScriptedConnector::PeekPkg(const char*& buffer, int& size, void* log_handle) {
  const UnwatchedAllocations unwatched;
  const Lock lock(m_mutex);
  m_peek_log_handles.push_back(log_handle);
  if (!m_peek_errors.empty()) {
    const int code = m_peek_errors.front();
    m_peek_errors.pop_front();
    return code;
  }
  if (m_frames.empty()) {
    return 0;
  }
  buffer = m_frames.front().data();
  size = static_cast<int>(m_frames.front().size());
  return size;
}

void ScriptedConnector::ConsumePkg() {
  const UnwatchedAllocations unwatched;
  const Lock lock(m_mutex);
  if (!m_frames.empty()) {
    m_frames.pop_front();
  }
}

void ScriptedConnector::Recover(void* log_handle) {
  const UnwatchedAllocations unwatched;
  Note("Recover");
  const Lock lock(m_mutex);
  m_recover_log_handles.push_back(log_handle);
  if (!m_frames.empty()) {
    m_frames.pop_front();
  }
}

const char* ScriptedConnector::GetLastErrDesc() {
  const Lock lock(m_mutex);
  return m_last_err_desc;
}

int ScriptedConnector::SendToQ(const char* buf, unsigned int len, void* log_handle) {
  const UnwatchedAllocations unwatched;
  Note("SendToQ");
  const Lock lock(m_mutex);
  m_sent.emplace_back(buf, len);
  m_send_log_handles.push_back(log_handle);
  if (!m_send_results.empty()) {
    const int result = m_send_results.front();
    m_send_results.pop_front();
    return result;
  }
  return m_has_send_result ? m_send_result : static_cast<int>(len);
}

void ScriptedConnector::GetIPAndPort(int& ip, int& port) {
  const Lock lock(m_mutex);
  if (m_has_address) {
    ip = m_ip;
    port = m_port;
  }
}

unsigned int ScriptedConnector::GetSendBuffDataSize() {
  const Lock lock(m_mutex);
  return m_send_size;
}

unsigned int ScriptedConnector::GetRecvBuffDataSize() {
  const Lock lock(m_mutex);
  return m_recv_size;
}

int ScriptedConnector::GetSendBuffLeftRate() {
  const Lock lock(m_mutex);
  return m_send_left_rate;
}

int ScriptedConnector::GetRecvBuffLeftRate() {
  const Lock lock(m_mutex);
  return m_recv_left_rate;
}

void ScriptedConnector::SetStatus(int status) {
  const Lock lock(m_mutex);
  m_status = status;
}

void ScriptedConnector::SetConnect(int result, int status_after) {
  const Lock lock(m_mutex);
  m_connect_result = result;
  m_status_after_connect = status_after;
}

void ScriptedConnector::PushSendResult(int result) {
  const UnwatchedAllocations unwatched;
  const Lock lock(m_mutex);
  m_send_results.push_back(result);
}

void ScriptedConnector::SetSendResult(int result) {
  const Lock lock(m_mutex);
  m_has_send_result = true;
  m_send_result = result;
}

void ScriptedConnector::SetAddress(int ip, int port) {
  const Lock lock(m_mutex);
  m_has_address = true;
  m_ip = ip;
  m_port = port;
}

void ScriptedConnector::SetBufferFigures(unsigned int send_size, unsigned int recv_size,
                                         int send_left_rate, int recv_left_rate) {
  const Lock lock(m_mutex);
  m_send_size = send_size;
  m_recv_size = recv_size;
  m_send_left_rate = send_left_rate;
  m_recv_left_rate = recv_left_rate;
}

void ScriptedConnector::QueueFrame(const std::string& frame) {
  const UnwatchedAllocations unwatched;
  const Lock lock(m_mutex);
  m_frames.emplace_back(frame.begin(), frame.end());
}

void ScriptedConnector::PushPeekError(int code) {
  const UnwatchedAllocations unwatched;
  const Lock lock(m_mutex);
  m_peek_errors.push_back(code);
}

void ScriptedConnector::SetLastErrDesc(const char* text) {
  const Lock lock(m_mutex);
  m_last_err_desc = text;
}

int ScriptedConnector::connect_count() const {
  const Lock lock(m_mutex);
  return m_connect_count;
}

std::vector<int> ScriptedConnector::disconnects() const {
  const Lock lock(m_mutex);
  return m_disconnects;
}

std::vector<std::string> ScriptedConnector::sent() const {
  const Lock lock(m_mutex);
  return m_sent;
}

std::vector<void*> ScriptedConnector::send_log_handles() const {
  const Lock lock(m_mutex);
  return m_send_log_handles;
}

std::vector<void*> ScriptedConnector::peek_log_handles() const {
  const Lock lock(m_mutex);
  return m_peek_log_handles;
}

std::vector<void*> ScriptedConnector::recover_log_handles() const {
  const Lock lock(m_mutex);
  return m_recover_log_handles;
}

size_t ScriptedConnector::queued_frames() const {
  const Lock lock(m_mutex);
  return m_frames.size();
}

void ScriptedConnector::ClearSent() {
  const Lock lock(m_mutex);
  m_sent.clear();
  m_send_log_handles.clear();
}

}  // namespace OstrandFakes
