// The fleet in a process of its own.
#include "fleet/fleet_program.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "fleet/fleet_file.h"
#include "unit/fleet/fleet_test_kit.h"

namespace OstrandFleet {
namespace {

// RunFleetProgram in a child process whose output can be read.
class Program {
 public:
  explicit Program(std::vector<std::string> arguments) {
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    m_pid = fork();
    if (m_pid == 0) {
      dup2(ends[1], STDOUT_FILENO);
      close(ends[0]);
      close(ends[1]);
      std::freopen("/dev/null", "w", stderr);
      arguments.insert(arguments.begin(), "fleet");
      std::vector<char*> argv;
      for (std::string& argument : arguments) {
        argv.push_back(&argument[0]);
      }
      _exit(RunFleetProgram(static_cast<int>(argv.size()), argv.data()));
    }
    close(ends[1]);
    m_output = fdopen(ends[0], "r");
  }
  ~Program() {
    End(SIGKILL);
    std::fclose(m_output);
  }
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  // Without its line end; "" at the end of the output.
  std::string ReadLine() {
    char line[256] = {};
    if (std::fgets(line, sizeof(line), m_output) == nullptr) {
      return std::string();
    }
    return std::string(line, strcspn(line, "\n"));
  }
  // The exit status; -1 when a signal ended it.
  int End(int signal_number) {
    if (m_pid > 0) {
      kill(m_pid, signal_number);
    }
    return Wait();
  }
  int Wait() {
    int status = 0;
    if (m_pid <= 0 || waitpid(m_pid, &status, 0) != m_pid) {
      return -1;
    }
    m_pid = 0;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

 private:
  pid_t m_pid = 0;
  std::FILE* m_output = nullptr;
};

// What stands behind the first blank, up to the next.
std::string UrlIn(const std::string& line) {
  const size_t begin = line.find(' ') + 1;
  return line.substr(begin, line.find(' ', begin) - begin);
}

TEST(FleetProgram, TellsItsAddressesServesAndEndsOnASignal) {
  Program program({"--proxies", "2"});
  const std::string directory = program.ReadLine();
  const std::string first = program.ReadLine();
  const std::string second = program.ReadLine();
  EXPECT_EQ(directory.rfind("directory tcp://127.0.0.1:", 0), 0U) << directory;
  EXPECT_EQ(first.substr(first.rfind(' ')), " p0");
  EXPECT_EQ(second.substr(second.rfind(' ')), " p1");
  TestClient asker(UrlIn(directory));
  const auto answer = std::make_unique<ostrand_protocol_dir::tagOStrdirCSPkg>();
  ASSERT_TRUE(AskDirectory(asker, kZone, *answer));
  EXPECT_EQ(RouteOf(*answer), (Route{{UrlIn(first), "p0"}, {UrlIn(second), "p1"}}));
  const auto client = TestClient::SignedUp(UrlIn(second));
  EXPECT_EQ(client->CallForResult(
                Request(ostrand_protocol_cs::OSTRAND_API_INSERT_REQ, "any").Key(Uid(1))),
            0);
  EXPECT_EQ(program.End(SIGINT), 0);
  EXPECT_TRUE(client->IsClosedByPeer());
}

TEST(FleetProgram, WritesAFleetFileWhereThereIsNone) {
  const std::string path = "/tmp/ostrand_fleet_program_" + std::to_string(getpid());
  Program program({"--route", path, "--stand-in"});
  program.ReadLine();
  const std::string proxy = program.ReadLine();
  FleetFile file;
  std::string text;
  std::string error;
  ASSERT_TRUE(ReadTextFile(path, text));
  ASSERT_TRUE(ParseFleetFile(text, file, error)) << error;
  EXPECT_EQ(file.routes.at(1), (Route{{UrlIn(proxy), "p0"}}));
  EXPECT_EQ(program.End(SIGTERM), 0);
  std::remove(path.c_str());
}

TEST(FleetProgram, RefusesOtherArguments) {
  for (const std::vector<std::string>& arguments :
       std::vector<std::vector<std::string>>{{"--proxies"},
                                             {"--proxies", "0"},
                                             {"--proxies", "1001"},
                                             {"--port", "65536"},
                                             {"--port", "65535"},
                                             {"--help"},
                                             {"--route"},
                                             {"more"}}) {
    EXPECT_EQ(Program(arguments).Wait(), 2) << arguments[0];
  }
}

TEST(FleetProgram, SaysWhenItCannotStart) {
  Fleet fleet;
  ASSERT_EQ(fleet.Start(), 0);
  const std::string url = fleet.DirectoryUrl();
  EXPECT_EQ(Program({"--port", url.substr(url.rfind(':') + 1)}).Wait(), 1);
}

}  // namespace
}  // namespace OstrandFleet
