#include "fleet/fleet_impl.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

namespace OstrandFleet {

Fleet::Impl::Impl(FleetOptions options)
    : m_options(std::move(options)),
      m_store(m_options.store, m_options.create_unknown_tables),
      m_commands(m_store, m_writer, m_options.records_per_package),
      m_request(std::make_unique<ostrand_protocol_cs::OStrandPkg>()),
      m_log(m_options.requests),
      m_stand_in(m_options.stand_in ? std::make_unique<StandIn>(m_options.stand_in_value_len)
                                    : nullptr),
      m_context{m_loop, m_writer,         m_commands,           *m_request,
                m_log,  m_stand_in.get(), m_options.credentials},
      m_directory(m_loop, m_store, m_options.random_seed),
      m_file_watch(m_loop, [this] { ReadFile(); }) {
  for (const TableSetup& table : m_options.tables) {
    if (!m_store.AddTable(table)) {
      m_error = "table \"" + table.schema.name + "\" has no usable schema, or is one too many";
    }
  }
  for (size_t i = 0; i < m_options.proxies; ++i) {
    NewProxy();
  }
}

FleetProxy* Fleet::Impl::proxy(size_t index) {
  return index < m_proxies.size() ? m_proxies[index].get() : nullptr;
}

int Fleet::Impl::StartAll() {
  if (!m_error.empty()) {
    return -1;  // an option that cannot be used
  }
  if (m_options.port + m_proxies.size() > UINT16_MAX) {
    errno = EADDRNOTAVAIL;
    return Fail("the ports behind the directory's do not suffice");
  }
  if (m_directory.Start(m_options.port) != 0) {
    return Fail("the directory gets no port");
  }
  for (const auto& proxy : m_proxies) {
    if (proxy->Start() != 0) {
      return Fail("proxy " + proxy->id() + " gets no port");
    }
  }
  UpdateCommonRoute();
  return m_options.fleet_file.empty() ? 0 : FollowFile();
}

void Fleet::Impl::StopAll() {
  m_file_watch.Close();
  m_directory.Stop();
  for (const auto& proxy : m_proxies) {
    proxy->Kill();
  }
}

int Fleet::Impl::AddProxy() {
  const int index = static_cast<int>(m_proxies.size());
  if (NewProxy().Start() != 0) {
    m_proxies.pop_back();
    return Fail("the new proxy gets no port");
  }
  return index;
}

int Fleet::Impl::RestartProxy(size_t index) {
  FleetProxy* const restarted = proxy(index);
  if (restarted == nullptr) {
    return -1;
  }
  return restarted->Start() == 0 ? 0 : Fail("proxy " + restarted->id() + " gets no port");
}

int Fleet::Impl::SetDirectoryFault(DirectoryFault fault, int64_t value) {
  return m_directory.SetFault(fault, value) == 0 ? 0 : Fail("the directory gets no port");
}

// Addresses of proxies of this fleet get their ids.
Route Fleet::Impl::RouteOf(const std::vector<std::string>& urls) const {
  Route route;
  for (const std::string& url : urls) {
    const auto own = std::find_if(m_proxies.begin(), m_proxies.end(),
                                  [&url](const auto& proxy) { return proxy->Url() == url; });
    route.push_back(
        {url, own != m_proxies.end() ? (*own)->id() : "proxy-" + std::to_string(route.size())});
  }
  return route;
}

int Fleet::Impl::Fail(const std::string& what) {
  m_error = what + ": " + std::strerror(errno);
  return -1;
}

FleetProxy& Fleet::Impl::NewProxy() {
  const size_t index = m_proxies.size();
  ProxySettings settings;
  settings.options = m_options.proxy;
  settings.id = "p" + std::to_string(index);
  const size_t port = m_options.port + 1 + index;
  settings.port =
      m_options.port == 0 || port > UINT16_MAX ? uint16_t{0} : static_cast<uint16_t>(port);
  settings.random_seed = m_options.random_seed;
  m_proxies.push_back(std::make_unique<FleetProxy>(m_context, index, std::move(settings),
                                                   [this] { UpdateCommonRoute(); }));
  return *m_proxies.back();
}

void Fleet::Impl::UpdateCommonRoute() {
  Route route;
  for (const auto& proxy : m_proxies) {
    if (proxy->state() != ProxyState::kStopped && !proxy->Url().empty()) {
      route.push_back({proxy->Url(), proxy->id()});
    }
  }
  m_directory.SetCommonRoute(m_follows_file ? Route() : route);
}

int Fleet::Impl::FollowFile() {
  if (m_file_watch.Watch(m_options.fleet_file) != 0) {
    return Fail("the folder of " + m_options.fleet_file + " cannot be watched");
  }
  ReadFile();
  return 0;
}

// A file that is not there yet, or is wrong, changes nothing.
void Fleet::Impl::ReadFile() {
  std::string text;
  std::string error;
  FleetFile file;
  if (!ReadTextFile(m_options.fleet_file, text)) {
    Remark(m_options.fleet_file + " cannot be read; the fleet stays as it is");
  } else if (!ParseFleetFile(text, file, error)) {
    Remark(m_options.fleet_file + ", " + error + "; the fleet stays as it is");
  } else {
    Apply(file);
  }
}

void Fleet::Impl::Apply(const FleetFile& file) {
  m_follows_file = true;
  m_directory.SetRoutes(file.routes);
  if (SetDirectoryFault(file.directory_fault, file.directory_fault_value) != 0) {
    Remark(m_error);
  }
  for (const auto& proxy : m_proxies) {
    const auto faults = file.faults.find(proxy->id());
    proxy->SetFaults(faults == file.faults.end() ? ProxyFaults() : faults->second);
    ApplyState(*proxy, file);
  }
  m_file = file;
  UpdateCommonRoute();
}

// Only what changed in the file moves a proxy: one that the program killed stays down.
void Fleet::Impl::ApplyState(FleetProxy& proxy, const FleetFile& file) {
  const bool down = file.down.count(proxy.id()) != 0;
  const bool was_down = m_file.down.count(proxy.id()) != 0;
  const bool stopped = file.stopped.count(proxy.id()) != 0;
  const bool was_stopped = m_file.stopped.count(proxy.id()) != 0;
  if (was_stopped && !stopped) {
    proxy.CancelStop();
  }
  if (down && !was_down) {
    proxy.Kill();
  } else if (!down && !stopped && (was_down || was_stopped) && proxy.Start() != 0) {
    Remark("proxy " + proxy.id() + " does not get its port back");
  }
  if (stopped && !was_stopped) {
    proxy.AskToStop();
  }
}

void Fleet::Impl::Remark(const std::string& line) const {
  if (m_options.remark) {
    m_options.remark(line);
  }
}

}  // namespace OstrandFleet
