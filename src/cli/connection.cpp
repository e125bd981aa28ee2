#include "cli/connection.h"

#include <CLI/CLI.hpp>
#include <algorithm>

#include "cli/commands.h"
#include "cli/output.h"
#include "client/error_text.h"
#include "client/stderr_logger.h"

namespace OstrandCli {
namespace {

using OstrandService::ClientOptions;
using OstrandService::PollingClient;

constexpr char kNoDirectory[] =
    "no directory is named: give --directory tcp://HOST:PORT, or set OSTRAND_DIRECTORY";

// Drops all but what ends a process; outlives every client.
OstrandCommon::Logger* QuietLogger() {
  static OstrandService::StderrLogger logger(OstrandCommon::OSTRAND_LOG_LEVEL_FATAL);
  return &logger;
}

std::string Joined(const std::vector<std::string>& texts) {
  std::string joined;
  for (const std::string& text : texts) {
    joined += (joined.empty() ? "" : ", ") + text;
  }
  return joined;
}

std::string WithText(int code) {
  return std::to_string(code) + " (" + OstrandService::ErrorText(code) + ")";
}

// Why a client did not become ready in time.
std::string WhyNotReady(const Connection& connection, const ClientOptions& options,
                        PollingClient& client) {
  int32_t code = 0;
  std::string text;
  client.GetLastError(code, text);
  const std::string waited = "within " + std::to_string(connection.wait_ms) + " ms";
  const std::string urls = Joined(options.directory_urls);
  if (code == OstrandService::CLIENT_ERR_DIRECTORY) {
    return "no directory at " + urls + " could be used " + waited + ": " + text +
           "; check that it runs (`ostrand fleet` starts one), --app and --zone, or name another "
           "with --directory";
  }
  if (code != 0) {
    return "no proxy took the sign-up " + waited + ": " + WithText(code) +
           (text.empty() ? "" : ", " + text) +
           "; check that the proxies run, and --signature, --user and --password";
  }
  return "the directory at " + urls + " named no proxy that answers, for application " +
         std::to_string(connection.app_id) + " and zone " + std::to_string(connection.zone) + ", " +
         waited + "; check --app and --zone, or wait longer with --wait-ms";
}

int Fail(int status, const std::string& sentence) {
  PrintError(sentence);
  return status;
}

}  // namespace

void Connection::AddTo(CLI::App* command) {
  constexpr char kGroup[] = "Cluster";
  const auto add = [command, &kGroup](const char* name, auto& value, const char* help) {
    return command->add_option(name, value, help)->group(kGroup);
  };
  add("--directory", directory_urls,
      "directory, as tcp://HOST:PORT; several, one option each, are tried in turn")
      ->allow_extra_args(false)
      ->delimiter(',')
      ->envname("OSTRAND_DIRECTORY")
      ->type_name("URL");
  add("--app", app_id, "application")->capture_default_str()->check(CLI::Range(1, INT32_MAX));
  add("--zone", zone, "zone")->capture_default_str();
  add("--table", table, "table")->capture_default_str();
  add("--signature", signature, "signature to sign up with")
      ->capture_default_str()
      ->envname("OSTRAND_SIGNATURE");
  CLI::Option* const user_option = add("--user", user, "user name, in place of a signature");
  CLI::Option* const password_option =
      add("--password", password, "the user's password, already encrypted")
          ->envname("OSTRAND_PASSWORD");
  user_option->needs(password_option);
  add("--timeout-ms", timeout_ms, "time a request has")
      ->capture_default_str()
      ->check(CLI::Range(1, INT32_MAX));
  add("--wait-ms", wait_ms, "time the first proxies have to take the sign-up")
      ->capture_default_str()
      ->check(CLI::Range(0, INT32_MAX));
  command->add_flag("--verbose", verbose, "errors and warnings of the library on standard error")
      ->group(kGroup);
}

ClientOptions Connection::ToOptions() const {
  ClientOptions options;
  options.app_id = app_id;
  options.zones = {zone};
  options.directory_urls = directory_urls;
  options.tables = {{table, zone, nullptr}};
  options.signature = user.empty() ? signature : "";
  options.user_name = user;
  options.password_encrypted = password;
  options.logger = verbose ? nullptr : QuietLogger();
  options.default_timeout_ms = timeout_ms;
  return options;
}

int Connection::Open(std::unique_ptr<PollingClient>& client) const {
  return Open(ToOptions(), client);
}

int Connection::Open(ClientOptions options, std::unique_ptr<PollingClient>& client) const {
  client.reset();
  if (options.directory_urls.empty()) {
    return Fail(kExitUsage, kNoDirectory);
  }
  for (std::string& url : options.directory_urls) {
    std::string error;
    const std::string given = url;
    if (!ReadAddress(given, url, error)) {
      return Fail(kExitUsage, error);
    }
  }
  const char* const wrong = OstrandService::CheckOptions(options);
  if (wrong != nullptr) {
    return Fail(kExitUsage, std::string(wrong) + "; see --help");
  }
  auto opened = std::make_unique<PollingClient>(options);
  int code = opened->Start();
  if (code == 0) {
    code = opened->WaitReady(wait_ms);
  }
  if (code == OstrandService::CLIENT_ERR_NOT_READY_IN_TIME) {
    return Fail(kExitFailure, WhyNotReady(*this, options, *opened));
  }
  if (code != 0) {
    return Fail(kExitFailure, "the client does not start: " + WithText(code));
  }
  client = std::move(opened);
  return kExitSuccess;
}

}  // namespace OstrandCli
