// The program under test, run as a process.
//
//   const ProcessResult result = RunProgram({"ring", "--help"});
//   EXPECT_EQ(result.status, 0);
//
//   Process process({"fleet", "--proxies", "2"});
//   ASSERT_TRUE(process.WaitForOutput("directory "));
//   process.Signal(SIGINT);
//   EXPECT_EQ(process.Wait().status, 0);
//
// Ownership: a Process owns its child, which is killed, if it still runs, in the destructor.
// Threads: one at a time. Time limits are generous ones that a healthy run never reaches.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

namespace OstrandTest {

constexpr int64_t kProcessTimeLimitMs = 60000;

struct ProcessResult {
  int status = -1;  // exit status; -1 when a signal ended it or it did not end in time
  int signal = 0;   // that ended it
  bool in_time = true;
  std::string out;
  std::string err;
};

struct ProcessOptions {
  std::string input;  // for standard input, which is then closed
  // "NAME=value", added to the test's own without its OSTRAND_... variables.
  std::vector<std::string> environment;
  std::string stdout_path;  // written in place of the pipe: "/dev/full"
  int64_t time_limit_ms = kProcessTimeLimitMs;
  std::string program;  // "": the program under test
};

class Process {
 public:
  // arguments: without the program's name.
  explicit Process(const std::vector<std::string>& arguments, ProcessOptions options = {});
  ~Process();
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  bool HasStarted() const { return m_pid > 0; }
  // True as soon as standard output (or error) holds the text; false when the process ends or the
  // time limit is reached before.
  bool WaitForOutput(const std::string& text);
  bool WaitForError(const std::string& text);
  const std::string& Output() const { return m_result.out; }
  const std::string& ErrorOutput() const { return m_result.err; }
  void Signal(int signal_number);
  // Waits for the end, at most for the time limit; then the process is killed.
  const ProcessResult& Wait();

 private:
  void Start(const std::vector<std::string>& arguments);
  bool Pump(int64_t deadline_ms);
  bool WaitFor(const std::string& where, const std::string& text);
  void WriteInput();

  const ProcessOptions m_options;
  pid_t m_pid = -1;
  int m_in = -1;
  int m_out = -1;
  int m_err = -1;
  size_t m_written = 0;
  ProcessResult m_result;
};

// From start to end.
ProcessResult RunProgram(const std::vector<std::string>& arguments, ProcessOptions options = {});

// A fleet of the program's own sub-command, with its directory's url, for commands to talk to.
class FleetProcess {
 public:
  explicit FleetProcess(const std::vector<std::string>& arguments = {"--proxies", "2"});

  bool IsUp() const { return !m_directory.empty(); }
  // "tcp://127.0.0.1:<port>"
  const std::string& Directory() const { return m_directory; }
  Process& Child() { return m_process; }

 private:
  Process m_process;
  std::string m_directory;
};

// A folder for the test's files, removed with all that is in it.
class TemporaryFolder {
 public:
  TemporaryFolder();
  ~TemporaryFolder();
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  std::string Path(const std::string& name) const { return m_path + "/" + name; }
  // Writes a file in it and returns its path.
  std::string Write(const std::string& name, const std::string& text) const;

 private:
  std::string m_path;
};

// All of a file; "" when there is none.
std::string ReadAll(const std::string& path);
bool Exists(const std::string& path);

}  // namespace OstrandTest
