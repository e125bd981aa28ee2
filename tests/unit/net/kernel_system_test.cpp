#include "net/kernel_system.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "common/host_name.h"
#include "common/mutex.h"
#include "net/background_thread.h"
#include "unit/net/net_test_kit.h"

namespace OSTRNET {
namespace {

using OstrandCommon::ScopedLock;

// Runs in a process of its own, whose exit code it gives.
int ExitCodeOf(const std::function<int()>& work) {
  const pid_t child = fork();
  if (child == 0) {
    _exit(work());
  }
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(KernelSystem, NeverTakesTheProgramsDescriptors) {
  EXPECT_EQ(0, ExitCodeOf([] {
              System& kernel = System::Kernel();
              for (const int fd : {0, 1, 2}) {
                close(fd);
              }
              const int listener = kernel.OpenSocket(Endpoint::Family::kIpv4);
              Endpoint local = Endpoint::Loopback(0);
              kernel.Bind(listener, local);
              kernel.Listen(listener, 1);
              kernel.LocalEndpoint(listener, local);
              const int client = kernel.OpenSocket(Endpoint::Family::kIpv4);
              kernel.Connect(client, local);
              pollfd waiting{listener, POLLIN, 0};
              poll(&waiting, 1, 10000);
              for (const int fd : {listener, client, kernel.Accept(listener), kernel.OpenPoll(),
                                   kernel.OpenEvent(), kernel.OpenTimer()}) {
                if (fd < 3 || (fcntl(fd, F_GETFD) & FD_CLOEXEC) == 0) {
                  return 1;
                }
              }
              for (const int fd : {0, 1, 2}) {
                if (fcntl(fd, F_GETFD) != -1) {
                  return 2;
                }
              }
              return 0;
            }));
}

TEST(KernelSystem, GivesSocketsThatDoNotBlock) {
  System& kernel = System::Kernel();
  const int fd = kernel.OpenSocket(Endpoint::Family::kIpv4);
  EXPECT_NE(0, fcntl(fd, F_GETFL) & O_NONBLOCK);
  EXPECT_EQ(0, kernel.Close(fd));
  EXPECT_EQ(-EBADF, kernel.Close(fd));
}

TEST(KernelSystem, LogsIntoABrokenPipeWithoutASignal) {
  EXPECT_EQ(0, ExitCodeOf([] {
              signal(SIGPIPE, SIG_DFL);
              int ends[2];
              if (pipe(ends) != 0 || dup2(ends[1], STDERR_FILENO) < 0) {
                return 1;
              }
              if (System::Kernel().WriteLog("abc", 3) != 3) {
                return 2;
              }
              close(ends[0]);
              return System::Kernel().WriteLog("abc", 3) == -EPIPE ? 0 : 3;
            }));
}

TEST(KernelSystem, LogsOnlyWhatAPipeTakesAtOnce) {
  EXPECT_EQ(0, ExitCodeOf([] {
              int ends[2];
              if (pipe(ends) != 0 || dup2(ends[1], STDERR_FILENO) < 0) {
                return 1;
              }
              const std::string text(100000, 'x');
              ssize_t written = 0;
              int pieces = 0;
              do {
                written = System::Kernel().WriteLog(text.data(), text.size());
                ++pieces;
              } while (written > 0);
              return written == -EAGAIN && pieces > 1 ? 0 : 2;
            }));
}

TEST(KernelSystem, TimersAreReadableFromTheirTimeOn) {
  System& kernel = System::Kernel();
  const int fd = kernel.OpenTimer();
  pollfd timer{fd, POLLIN, 0};
  EXPECT_EQ(0, kernel.SetTimer(fd, kernel.MonotonicNanoseconds() + 1000000));
  EXPECT_EQ(1, poll(&timer, 1, 10000));
  EXPECT_GE(kernel.MonotonicNanoseconds(), 1000000);
  EXPECT_EQ(0, kernel.SetTimer(fd, 0));
  EXPECT_EQ(0, poll(&timer, 1, 0));
  kernel.Close(fd);
}

TEST(KernelSystem, EventsStayRaisedUntilTheyAreCleared) {
  System& kernel = System::Kernel();
  const int fd = kernel.OpenEvent();
  pollfd event{fd, POLLIN, 0};
  EXPECT_EQ(0, kernel.ClearEvent(fd));
  EXPECT_EQ(0, kernel.RaiseEvent(fd));
  EXPECT_EQ(0, kernel.RaiseEvent(fd));
  EXPECT_EQ(1, poll(&event, 1, 0));
  EXPECT_EQ(0, kernel.ClearEvent(fd));
  EXPECT_EQ(0, poll(&event, 1, 0));
  kernel.Close(fd);
}

TEST(KernelSystem, TellsTheHostsName) {
  char name[256];
  EXPECT_EQ(0, System::Kernel().HostName(name, sizeof(name)));
  EXPECT_NE(0U, std::strlen(name));
  OstrandCommon::ReplaceHostName([](char*, size_t) {
    errno = EPERM;
    return -1;
  });
  EXPECT_EQ(-EPERM, System::Kernel().HostName(name, sizeof(name)));
  OstrandCommon::ReplaceHostName(nullptr);
}

TEST(KernelSystem, GivesRandomNumbers) {
  EXPECT_NE(System::Kernel().RandomNumber(), System::Kernel().RandomNumber());
}

class WaitingForName : public NameListener {
 public:
  void OnAddresses(std::vector<Endpoint> addresses, const char* error) override {
    ScopedLock lock(m_mutex);
    m_addresses = std::move(addresses);
    m_error = error != nullptr ? error : "";
    m_answered = true;
    m_changed.Broadcast();
  }
  std::vector<Endpoint> Addresses(std::string& error) {
    ScopedLock lock(m_mutex);
    while (!m_answered) {
      m_changed.Wait(m_mutex);
    }
    error = m_error;
    return m_addresses;
  }

 private:
  OstrandCommon::Mutex m_mutex;
  OstrandCommon::Condition m_changed;
  bool m_answered OSTRAND_GUARDED_BY(m_mutex) = false;
  std::vector<Endpoint> m_addresses OSTRAND_GUARDED_BY(m_mutex);
  std::string m_error OSTRAND_GUARDED_BY(m_mutex);
};

TEST(KernelSystem, LooksNamesUp) {
  std::vector<std::shared_ptr<WaitingForName>> waiting;
  for (int i = 0; i < 20; ++i) {  // more than there are threads
    waiting.push_back(std::make_shared<WaitingForName>());
    System::Kernel().LookUp("localhost", waiting.back());
  }
  for (const auto& one : waiting) {
    std::string error;
    const std::vector<Endpoint> addresses = one->Addresses(error);
    ASSERT_EQ("", error);
    ASSERT_FALSE(addresses.empty());
    const Endpoint& first = addresses.front();
    EXPECT_EQ(Endpoint::Loopback(0, first.family), first);
  }
}

TEST(KernelSystem, TellsWhyANameHasNoAddress) {
  auto waiting = std::make_shared<WaitingForName>();
  System::Kernel().LookUp("no_such_name.invalid", waiting);
  std::string error;
  EXPECT_TRUE(waiting->Addresses(error).empty());
  EXPECT_NE("", error);
}

TEST(BackgroundThread, BlocksAllSignals) {
  BackgroundThread thread;
  EXPECT_FALSE(thread.IsRunning());
  sigset_t mask;
  sigemptyset(&mask);
  bool was_current = false;
  ASSERT_EQ(0, thread.Start("test-of-signals-and-names", [&] {
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    was_current = true;
  }));
  EXPECT_TRUE(thread.IsRunning());
  EXPECT_FALSE(thread.IsCurrent());
  thread.Join();
  EXPECT_TRUE(was_current);
  for (const int number : {SIGINT, SIGTERM, SIGPIPE, SIGUSR1, SIGALRM}) {
    EXPECT_EQ(1, sigismember(&mask, number));
  }
  sigset_t own;
  pthread_sigmask(SIG_SETMASK, nullptr, &own);
  EXPECT_EQ(0, sigismember(&own, SIGUSR1));
}

}  // namespace
}  // namespace OSTRNET
