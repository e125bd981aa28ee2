#include "client/client_options.h"

#include <algorithm>
#include <set>
#include <utility>

#include "net/address.h"

namespace OstrandService {
namespace {

constexpr size_t kMaxZones = 64;
constexpr size_t kMaxTables = 256;
constexpr size_t kMaxTableName = 31;
constexpr size_t kMinBufferLimit = size_t{64} << 10;
constexpr size_t kMaxBufferLimit = size_t{1} << 30;

// What a sign-up has room for.
constexpr size_t kMaxSignature = 1023;
constexpr size_t kMaxUserName = 32;
constexpr size_t kMaxPassword = 127;

bool FitsText(const std::string& text, size_t max_len) {
  return text.size() <= max_len && text.find('\0') == std::string::npos;
}

const char* CheckTables(const ClientOptions& options) {
  std::set<std::pair<int32_t, std::string>> seen;
  for (const TableOptions& table : options.tables) {
    if (table.name.empty() || !FitsText(table.name, kMaxTableName)) {
      return "a table name must have 1 to 31 characters";
    }
    if (std::find(options.zones.begin(), options.zones.end(), table.zone_id) ==
        options.zones.end()) {
      return "a table names a zone that is not among the zones";
    }
    if (!seen.emplace(table.zone_id, table.name).second) {
      return "a table is given twice for one zone";
    }
  }
  return nullptr;
}

}  // namespace

const char* CheckOptions(const ClientOptions& options) {
  if (options.app_id < 1 || options.app_id > INT32_MAX) {
    return "app_id must be 1 to 2147483647";
  }
  if (options.zones.empty() || options.zones.size() > kMaxZones ||
      std::set<int32_t>(options.zones.begin(), options.zones.end()).size() !=
          options.zones.size()) {
    return "there must be 1 to 64 zones, each once";
  }
  if (options.directory_urls.empty()) {
    return "at least one directory url is needed";
  }
  for (const std::string& url : options.directory_urls) {
    OSTRNET::TcpAddress address;
    if (!OSTRNET::ParseTcpUrl(url, address)) {
      return "a directory url must have the form tcp://HOST:PORT or tcp://[IPV6]:PORT";
    }
  }
  if (options.tables.empty() || options.tables.size() > kMaxTables) {
    return "there must be 1 to 256 tables";
  }
  if (options.signature.empty() &&
      (options.user_name.empty() || options.password_encrypted.empty())) {
    return "a signature, or a user name and a password, is needed";
  }
  if (!FitsText(options.signature, kMaxSignature) || !FitsText(options.user_name, kMaxUserName) ||
      !FitsText(options.password_encrypted, kMaxPassword)) {
    return "signature, user name and password must have at most 1023, 32 and 127 characters";
  }
  if (options.sign_type < INT16_MIN || options.sign_type > INT16_MAX) {
    return "sign_type must be -32768 to 32767";
  }
  if (options.default_timeout_ms < 1) {
    return "default_timeout_ms must be at least 1";
  }
  if (options.max_in_flight < 1 || options.max_in_flight > INT32_MAX) {
    return "max_in_flight must be 1 to 2147483647";
  }
  if (options.max_waiting > INT32_MAX) {
    return "max_waiting must be 0 to 2147483647";
  }
  if (options.buffer_limit < kMinBufferLimit || options.buffer_limit > kMaxBufferLimit) {
    return "buffer_limit must be 64 KiB to 1 GiB";
  }
  if (options.heartbeat_ms < 1 || options.check_heartbeat_ms <= options.heartbeat_ms) {
    return "heartbeat_ms must be at least 1 and below check_heartbeat_ms";
  }
  if (options.perf_sample_percent < 0 || options.perf_sample_percent > 100) {
    return "perf_sample_percent must be 0 to 100";
  }
  if (options.directory_refresh_ms < 1) {
    return "directory_refresh_ms must be at least 1";
  }
  if (options.max_answer_bytes < 1) {
    return "max_answer_bytes must be at least 1";
  }
  return CheckTables(options);
}

}  // namespace OstrandService
