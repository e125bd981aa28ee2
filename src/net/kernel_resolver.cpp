#include "net/kernel_resolver.h"

#include <netdb.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>
#include <vector>

#include "net/background_thread.h"
#include "net/socket_address.h"

namespace OSTRNET {
namespace {

using OstrandCommon::ScopedLock;

std::vector<Endpoint> EndpointsOf(const addrinfo* found) {
  std::vector<Endpoint> endpoints;
  for (; found != nullptr && endpoints.size() < KernelResolver::kMaxAddresses;
       found = found->ai_next) {
    Endpoint endpoint;
    if (FromSocketAddress(found->ai_addr, endpoint) &&
        std::find(endpoints.begin(), endpoints.end(), endpoint) == endpoints.end()) {
      endpoints.push_back(endpoint);
    }
  }
  return endpoints;
}

void Answer(const std::string& host, NameListener& listener) {
  addrinfo wanted{};
  wanted.ai_family = AF_UNSPEC;
  wanted.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  const int error = getaddrinfo(host.c_str(), nullptr, &wanted, &found);
  if (error != 0) {
    listener.OnAddresses({}, error == EAI_SYSTEM ? std::strerror(errno) : gai_strerror(error));
    return;
  }
  std::vector<Endpoint> endpoints = EndpointsOf(found);
  freeaddrinfo(found);
  const bool none = endpoints.empty();
  listener.OnAddresses(std::move(endpoints), none ? "the name has no address" : nullptr);
}

}  // namespace

// Never destroyed: threads may still use it while the process ends.
KernelResolver& KernelResolver::Instance() {
  static KernelResolver& instance = *new KernelResolver;
  return instance;
}

void KernelResolver::LookUp(const std::string& host,
                            const std::shared_ptr<NameListener>& listener) {
  bool accepted = false;
  bool needs_thread = false;
  {
    ScopedLock lock(m_mutex);
    accepted = m_waiting.size() < kMaxWaiting;
    if (accepted) {
      m_waiting.push_back({host, listener});
      needs_thread = m_threads < kMaxThreads;
      m_threads += needs_thread ? 1 : 0;
    }
  }
  if (!accepted) {
    listener->OnAddresses({}, "too many names wait to be looked up");
    return;
  }
  if (!needs_thread || BackgroundThread::StartDetached("ostrand-names", [this] { Main(); }) == 0) {
    return;
  }
  // Without a thread of its own a question may still be answered by one that runs.
  std::deque<Question> unanswered;
  {
    ScopedLock lock(m_mutex);
    --m_threads;
    if (m_threads == 0) {
      unanswered.swap(m_waiting);
    }
  }
  for (const Question& question : unanswered) {
    question.listener->OnAddresses({}, "there is no thread to look the name up");
  }
}

void KernelResolver::Main() {
  for (;;) {
    Question question;
    {
      ScopedLock lock(m_mutex);
      if (m_waiting.empty()) {
        --m_threads;
        return;
      }
      question = std::move(m_waiting.front());
      m_waiting.pop_front();
    }
    Answer(question.host, *question.listener);
  }
}

}  // namespace OSTRNET
