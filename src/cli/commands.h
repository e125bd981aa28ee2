// The sub-commands of the program `ostrand`, each in files of its own, <name>_command.cpp.
//
// Add<Name>Command adds one to `app`. When the user chose it, its callback runs while the command
// line is parsed and sets `status`, which outlives the app. Threads: the main thread; a command
// that needs more makes its own and joins them before it returns.
// Output: what a program could read on standard output, everything else on standard error.
#pragma once

namespace CLI {
class App;
}

namespace OstrandCli {

// Exit statuses of the program.
constexpr int kExitSuccess = 0;
constexpr int kExitFailure = 1;  // what was asked for did not happen, or not all of it
constexpr int kExitUsage = 2;    // the command line is wrong; nothing was done

void AddFleetCommand(CLI::App& app, int& status);
void AddGetCommand(CLI::App& app, int& status);
void AddInsertCommand(CLI::App& app, int& status);
void AddReplaceCommand(CLI::App& app, int& status);
void AddUpdateCommand(CLI::App& app, int& status);
void AddDeleteCommand(CLI::App& app, int& status);
void AddLoadCommand(CLI::App& app, int& status);
void AddBenchCommand(CLI::App& app, int& status);
void AddRingCommand(CLI::App& app, int& status);
void AddStatusCommand(CLI::App& app, int& status);
void AddDemoCommand(CLI::App& app, int& status);

}  // namespace OstrandCli
