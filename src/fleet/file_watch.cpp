#include "fleet/file_watch.h"

#include <limits.h>
#include <sys/epoll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <utility>

namespace OstrandFleet {

FileWatch::FileWatch(FleetLoop& loop, std::function<void()> on_change)
    : m_net(loop.net()), m_on_change(std::move(on_change)) {}

int FileWatch::Watch(const std::string& path) {
  Close();
  const size_t slash = path.rfind('/');
  const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash + 1);
  m_name = slash == std::string::npos ? path : path.substr(slash + 1);
  m_fd = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
  if (m_fd < 0) {
    return -1;
  }
  if (inotify_add_watch(m_fd, folder.c_str(), IN_CLOSE_WRITE | IN_MOVED_TO) < 0 ||
      m_net.Watch(m_fd, EPOLLIN, this) != 0) {
    Close();
    return -1;
  }
  return 0;
}

void FileWatch::Close() {
  if (m_fd >= 0) {
    m_net.Unwatch(m_fd, this);
    close(m_fd);
    m_fd = -1;
  }
}

void FileWatch::OnEvents(uint32_t /*epoll_events*/) {
  alignas(inotify_event) char buffer[16 * (sizeof(inotify_event) + NAME_MAX + 1)];
  const ssize_t len = m_fd < 0 ? 0 : read(m_fd, buffer, sizeof(buffer));
  bool changed = false;
  for (ssize_t at = 0; at < len;) {
    const auto* event = reinterpret_cast<const inotify_event*>(buffer + at);
    changed =
        changed || (event->len > 0 && m_name == event->name) || (event->mask & IN_Q_OVERFLOW) != 0;
    at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
  }
  if (changed) {
    m_on_change();
  }
}

}  // namespace OstrandFleet
