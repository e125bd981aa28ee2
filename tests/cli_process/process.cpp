#include "cli_process/process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "common/clock.h"

extern char** environ;

namespace OstrandTest {
namespace {

using OstrandCommon::GetMonotonicMilliseconds;

constexpr int64_t kPollMs = 20;

std::vector<char*> Pointers(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  pointers.reserve(texts.size() + 1);
  for (std::string& text : texts) {
    pointers.push_back(text.data());
  }
  pointers.push_back(nullptr);
  return pointers;
}

// What is given replaces what the test's own environment says.
std::vector<std::string> Environment(const std::vector<std::string>& given) {
  std::vector<std::string> all = given;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string text = *entry;
    const std::string name = text.substr(0, text.find('=') + 1);
    const auto is_same = [&name](const std::string& other) {
      return other.compare(0, name.size(), name) == 0;
    };
    if (name.compare(0, 8, "OSTRAND_") != 0 && std::none_of(given.begin(), given.end(), is_same)) {
      all.push_back(text);
    }
  }
  return all;
}

void CloseIfOpen(int& fd) {
  if (fd >= 0) {
    close(fd);
    fd = -1;
  }
}

// Moves what is there behind `text`; closes at the end.
void ReadSome(int& fd, std::string& text) {
  std::array<char, 65536> buffer{};
  const ssize_t got = read(fd, buffer.data(), buffer.size());
  if (got > 0) {
    text.append(buffer.data(), static_cast<size_t>(got));
  } else if (got == 0) {
    CloseIfOpen(fd);
  }
}

}  // namespace

Process::Process(const std::vector<std::string>& arguments, ProcessOptions options)
    : m_options(std::move(options)) {
  signal(SIGPIPE, SIG_IGN);  // a child may end before it has read its input
  Start(arguments);
}

void Process::Start(const std::vector<std::string>& arguments) {
  std::array<int, 2> in{-1, -1};
  std::array<int, 2> out{-1, -1};
  std::array<int, 2> err{-1, -1};
  if (pipe2(in.data(), O_CLOEXEC) != 0 || pipe2(out.data(), O_CLOEXEC) != 0 ||
      pipe2(err.data(), O_CLOEXEC) != 0) {
    return;
  }
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, in[0], STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, err[1], STDERR_FILENO);
  if (m_options.stdout_path.empty()) {
    posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
  } else {
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, m_options.stdout_path.c_str(),
                                     O_WRONLY, 0);
  }
  // The child begins with the signals as a shell would start it.
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  sigset_t defaults;
  sigemptyset(&defaults);
  sigaddset(&defaults, SIGPIPE);
  sigaddset(&defaults, SIGINT);
  posix_spawnattr_setsigdefault(&attributes, &defaults);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);

  std::vector<std::string> words = arguments;
  words.insert(words.begin(), m_options.program.empty() ? OSTRAND_PROGRAM : m_options.program);
  std::vector<std::string> environment = Environment(m_options.environment);
  if (posix_spawn(&m_pid, words[0].c_str(), &actions, &attributes, Pointers(words).data(),
                  Pointers(environment).data()) != 0) {
    m_pid = -1;
  }
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&actions);
  CloseIfOpen(in[0]);
  CloseIfOpen(out[1]);
  CloseIfOpen(err[1]);
  m_in = in[1];
  m_out = out[0];
  m_err = err[0];
  fcntl(m_in, F_SETFL, O_NONBLOCK);
}

Process::~Process() {
  if (m_pid > 0) {
    kill(m_pid, SIGKILL);
    waitpid(m_pid, nullptr, 0);
  }
  CloseIfOpen(m_in);
  CloseIfOpen(m_out);
  CloseIfOpen(m_err);
}

void Process::WriteInput() {
  const std::string& input = m_options.input;
  if (m_written < input.size()) {
    const ssize_t put = write(m_in, input.data() + m_written, input.size() - m_written);
    m_written = put < 0 ? input.size() : m_written + static_cast<size_t>(put);
  }
  if (m_written == input.size()) {
    CloseIfOpen(m_in);
  }
}

// Moves what can be moved now. False: both outputs are at their end, or the time is over.
bool Process::Pump(int64_t deadline_ms) {
  if ((m_out < 0 && m_err < 0) || GetMonotonicMilliseconds() >= deadline_ms) {
    return false;
  }
  std::array<pollfd, 3> fds{{{m_in, POLLOUT, 0}, {m_out, POLLIN, 0}, {m_err, POLLIN, 0}}};
  if (poll(fds.data(), fds.size(), kPollMs) > 0) {
    if (fds[0].revents != 0) {
      WriteInput();
    }
    if (fds[1].revents != 0) {
      ReadSome(m_out, m_result.out);
    }
    if (fds[2].revents != 0) {
      ReadSome(m_err, m_result.err);
    }
  }
  return true;
}

bool Process::WaitFor(const std::string& where, const std::string& text) {
  const int64_t deadline_ms = GetMonotonicMilliseconds() + m_options.time_limit_ms;
  while (where.find(text) == std::string::npos) {
    if (!Pump(deadline_ms)) {
      return false;
    }
  }
  return true;
}

bool Process::WaitForOutput(const std::string& text) { return WaitFor(m_result.out, text); }
bool Process::WaitForError(const std::string& text) { return WaitFor(m_result.err, text); }

void Process::Signal(int signal_number) {
  if (m_pid > 0) {
    kill(m_pid, signal_number);
  }
}

const ProcessResult& Process::Wait() {
  if (m_pid <= 0) {
    return m_result;
  }
  const int64_t deadline_ms = GetMonotonicMilliseconds() + m_options.time_limit_ms;
  while (Pump(deadline_ms)) {
  }
  m_result.in_time = GetMonotonicMilliseconds() < deadline_ms;
  if (!m_result.in_time) {
    kill(m_pid, SIGKILL);
  }
  int status = 0;
  waitpid(m_pid, &status, 0);
  m_pid = -1;
  if (WIFEXITED(status)) {
    m_result.status = WEXITSTATUS(status);
  } else if (WIFSIGNALED(status)) {
    m_result.signal = WTERMSIG(status);
  }
  return m_result;
}

ProcessResult RunProgram(const std::vector<std::string>& arguments, ProcessOptions options) {
  Process process(arguments, std::move(options));
  return process.Wait();
}

namespace {

std::vector<std::string> FleetArguments(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), "fleet");
  return arguments;
}

}  // namespace

FleetProcess::FleetProcess(const std::vector<std::string>& arguments)
    : m_process(FleetArguments(arguments)) {
  if (m_process.WaitForOutput("\n")) {
    std::istringstream line(m_process.Output());
    std::string word;
    line >> word >> m_directory;
  }
}

TemporaryFolder::TemporaryFolder() {
  std::string name = (std::filesystem::temp_directory_path() / "ostrand_cli_XXXXXX").string();
  m_path = mkdtemp(name.data()) != nullptr ? name : "";
}

TemporaryFolder::~TemporaryFolder() {
  std::error_code error;
  if (!m_path.empty()) {
    std::filesystem::remove_all(m_path, error);
  }
}

std::string TemporaryFolder::Write(const std::string& name, const std::string& text) const {
  std::ofstream(Path(name), std::ios::binary) << text;
  return Path(name);
}

std::string ReadAll(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

bool Exists(const std::string& path) {
  std::error_code error;
  return std::filesystem::exists(path, error);
}

}  // namespace OstrandTest
