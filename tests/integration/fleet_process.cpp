#include "integration/fleet_process.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

#include "fleet/fleet_program.h"

extern char** environ;

namespace OstrandTests {
namespace {

constexpr char kFleetArguments[] = "OSTRAND_TEST_FLEET_ARGUMENTS";

// A number that is another each time, in this process and beside it.
int64_t Now() { return std::chrono::steady_clock::now().time_since_epoch().count() / 1000; }

std::vector<std::string> Split(const std::string& text) {
  std::istringstream stream(text);
  std::vector<std::string> words;
  for (std::string word; stream >> word;) {
    words.push_back(word);
  }
  return words;
}

}  // namespace

// The body of that process: it runs when FleetProcess asks for it, and is none of the tests.
TEST(FleetProcess, DISABLED_Main) {
  const char* const text = std::getenv(kFleetArguments);
  if (text == nullptr) {
    GTEST_SKIP() << "only for FleetProcess";
  }
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  std::vector<std::string> words = Split(text);
  words.insert(words.begin(), "fleet");
  std::vector<char*> argv;
  argv.reserve(words.size());
  for (std::string& word : words) {
    argv.push_back(&word[0]);
  }
  _exit(OstrandFleet::RunFleetProgram(static_cast<int>(argv.size()), argv.data()));
}

FleetProcess::FleetProcess(size_t proxies, const std::string& more_options)
    : m_proxies(proxies),
      m_more_options(more_options),
      m_file("/tmp/ostrand_integration_" + std::to_string(getpid()) + "_" + std::to_string(Now())) {
  // Ports in a row, below those that the system gives to connections.
  for (int tries = 0; tries < 50; ++tries) {
    m_port = 10000 + static_cast<int>(Now() % 20000);
    if (Start()) {
      return;
    }
  }
  ADD_FAILURE() << "the fleet's process does not start";
}

FleetProcess::~FleetProcess() {
  Kill();
  std::remove((m_file + ".new").c_str());
  std::remove(m_file.c_str());
}

bool FleetProcess::Start() {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) {
    return false;
  }
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  const std::string arguments = std::string(kFleetArguments) + "=--proxies " +
                                std::to_string(m_proxies) + " --port " + std::to_string(m_port) +
                                " --route " + m_file + " " + m_more_options;
  std::vector<char*> environment;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    if (std::strncmp(*entry, "GTEST_", 6) != 0) {
      environment.push_back(*entry);
    }
  }
  environment.push_back(const_cast<char*>(arguments.c_str()));  // NOLINT: not written to
  environment.push_back(nullptr);
  std::string words[] = {"fleet", "--gtest_also_run_disabled_tests",
                         "--gtest_filter=FleetProcess.DISABLED_Main"};
  char* const argv[] = {&words[0][0], &words[1][0], &words[2][0], nullptr};
  const int ret =
      posix_spawn(&m_pid, "/proc/self/exe", &actions, nullptr, argv, environment.data());
  posix_spawn_file_actions_destroy(&actions);
  close(ends[1]);
  m_output = fdopen(ends[0], "r");
  if (ret != 0) {
    m_pid = -1;
    Kill();
    return false;
  }
  m_proxy_urls.clear();
  char line[256] = {};
  while (m_proxy_urls.size() < m_proxies && std::fgets(line, sizeof(line), m_output) != nullptr) {
    const std::vector<std::string> parts = Split(line);
    if (parts.size() == 2 && parts[0] == "directory") {
      m_directory_url = parts[1];
    } else if (parts.size() == 3 && parts[0] == "proxy") {
      m_proxy_urls.push_back(parts[1]);
    }
  }
  if (m_proxy_urls.size() < m_proxies) {
    Kill();
    return false;
  }
  return true;
}

void FleetProcess::Signal(int signal_number) {
  ASSERT_EQ(kill(m_pid, signal_number), 0);
  if (signal_number == SIGSTOP) {
    ASSERT_EQ(waitpid(m_pid, nullptr, WUNTRACED), m_pid);
  }
}

void FleetProcess::Kill() {
  if (m_pid > 0) {
    kill(m_pid, SIGKILL);
    while (waitpid(m_pid, nullptr, 0) < 0 && errno == EINTR) {
    }
    m_pid = -1;
  }
  if (m_output != nullptr) {
    std::fclose(m_output);
    m_output = nullptr;
  }
}

void FleetProcess::Restart() {
  Kill();
  ASSERT_TRUE(Start());
}

void FleetProcess::PrepareFleetFile(const std::string& text) {
  std::ofstream(m_file + ".new") << text;
}

void FleetProcess::PublishFleetFile() {
  ASSERT_EQ(std::rename((m_file + ".new").c_str(), m_file.c_str()), 0);
}

}  // namespace OstrandTests
