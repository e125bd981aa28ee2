#include "net/background_thread.h"

#include <signal.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <new>
#include <utility>

namespace OSTRNET {
namespace {

constexpr size_t kMaxName = 15;  // Linux takes no longer one

struct Beginning {
  std::function<void()> work;
  char name[kMaxName + 1] = {};
};

void* Main(void* argument) {
  const std::unique_ptr<Beginning> beginning(static_cast<Beginning*>(argument));
  pthread_setname_np(pthread_self(), beginning->name);
  beginning->work();
  return nullptr;
}

int Create(pthread_t& thread, const pthread_attr_t* attributes, const char* name,
           std::function<void()> work) {
  std::unique_ptr<Beginning> beginning(new (std::nothrow) Beginning);
  if (beginning == nullptr) {
    return -ENOMEM;
  }
  beginning->work = std::move(work);
  std::strncpy(beginning->name, name, kMaxName);
  // A new thread inherits the mask: set around the call, no signal finds it unblocked.
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  const int error = pthread_create(&thread, attributes, &Main, beginning.get());
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  if (error == 0) {
    static_cast<void>(beginning.release());  // the thread's now
  }
  return -error;
}

}  // namespace

int BackgroundThread::Start(const char* name, std::function<void()> work) {
  const int ret = Create(m_thread, nullptr, name, std::move(work));
  m_running = ret == 0;
  return ret;
}

void BackgroundThread::Join() {
  if (m_running) {
    pthread_join(m_thread, nullptr);
    m_running = false;
  }
}

void BackgroundThread::Detach() {
  pthread_detach(m_thread);
  m_running = false;
}

int BackgroundThread::StartDetached(const char* name, std::function<void()> work) {
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
  pthread_t unused{};
  const int ret = Create(unused, &attributes, name, std::move(work));
  pthread_attr_destroy(&attributes);
  return ret;
}

}  // namespace OSTRNET
