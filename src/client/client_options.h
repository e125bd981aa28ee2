// How an application describes the service that it wants. Plain records; what they point at is
// borrowed and outlives the client.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "common/export.h"
#include "common/logger.h"
#include "vex/vex.h"

namespace OstrandService {

// One table that the application uses.
struct TableOptions {
  std::string name;            // 1 to 31 characters
  int32_t zone_id = 0;         // one of ClientOptions::zones
  LPVEXMETA schema = nullptr;  // the application's own; null: not compared with the server's
};

struct ClientOptions {
  int64_t app_id = 0;
  std::vector<int32_t> zones;               // 1 to 64, each once
  std::vector<std::string> directory_urls;  // "tcp://HOST:PORT", "tcp://[IPV6]:PORT"; in turn
  std::vector<TableOptions> tables;         // 1 to 256, each once a zone

  // Signing up: with a signature, or with a user and an already encrypted password.
  std::string signature;
  int32_t sign_type = 0;
  std::string user_name;
  std::string password_encrypted;

  // Null: errors and warnings go to standard error. At DEBUG a request's dump is logged, which
  // holds signature and password: leave DEBUG off but for looking into a fault.
  OstrandCommon::Logger* logger = nullptr;
  int32_t module_id = 0;

  int32_t default_timeout_ms = 3000;         // of requests that name none
  size_t max_in_flight = 1000000;            // requests without outcome, waiting ones included
  size_t max_waiting = 100000;               // of these, requests of a zone that cannot be sent yet
  size_t max_kept_bytes = size_t{64} << 20;  // a zone; of requests that wait or may be repeated
  size_t buffer_limit = size_t{16} << 20;    // bytes, each direction of each connection
  uint32_t heartbeat_ms = 1000;
  uint32_t check_heartbeat_ms = 30000;  // silence after which a connection is made anew
  int32_t perf_sample_percent = 0;      // share of simple requests whose way is measured
  bool keep_user_buffers = false;       // user buffers stay here instead of travelling
  int64_t directory_refresh_ms = 5000;

  // Of Client alone. What runs callbacks in the place of its background thread: takes a task, keeps
  // it, runs it once, on any thread; or refuses with false, and the background thread runs it. It
  // is called on the background thread. A task may run after its client is gone. Empty: none.
  std::function<bool(std::function<void()> task)> executor;
  // Of Client alone: memory of the packages that Call and futures collect of one answer.
  size_t max_answer_bytes = size_t{64} << 20;
};

// What is wrong with the options, or null when nothing is.
OSTRAND_API const char* CheckOptions(const ClientOptions& options);

}  // namespace OstrandService
