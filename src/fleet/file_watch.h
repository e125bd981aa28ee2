// Tells when a file was written or replaced. On the loop only.
#pragma once

#include <functional>
#include <string>

#include "fleet/fleet_loop.h"

namespace OstrandFleet {

// Watches the folder, so that it sees a file that editors put in the old one's place.
class FileWatch final : public EventHandler {
 public:
  FileWatch(FleetLoop& loop, std::function<void()> on_change);
  ~FileWatch() { Close(); }
  FileWatch(const FileWatch&) = delete;
  FileWatch& operator=(const FileWatch&) = delete;

  // The file need not exist, its folder must. 0, or -1 with errno.
  int Watch(const std::string& path);
  void Close();

 private:
  void OnEvents(uint32_t epoll_events) override;

  OSTRNET::EventLoop& m_net;
  const std::function<void()> m_on_change;
  int m_fd = -1;
  std::string m_name;
};

}  // namespace OstrandFleet
