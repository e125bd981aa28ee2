// What a request is beside its bytes: a plain record that is posted, waits and moves with them.
//
// The bytes of a request stand one behind the other: the user's (user_len), the fields of the
// head's key in wire form (key_len), the body in wire form (body_len). docs/protocol.md describes
// both forms. Threads: as the request that holds it.
#pragma once

#include <climits>
#include <cstddef>
#include <cstdint>

namespace OstrandService {

// Of a request that names no zone: its table stands in one zone alone.
constexpr int32_t kZoneNotGiven = INT32_MIN;

struct RequestHead {
  uint64_t async_id = 0;            // the client's, given when the request is sent
  uint32_t cmd = 0;                 // 0: nothing was begun
  int32_t zone_id = kZoneNotGiven;  //
  int32_t timeout_ms = 0;           // 0: the options' default
  int32_t sequence = 0;             // the application's own
  int32_t expected_version = -1;    // of the record that the head's key names; -1: any
  int32_t repeats = 0;              // how often it may be sent again when no answer came
  uint32_t user_len = 0;            // bytes
  uint32_t key_len = 0;             // bytes
  uint32_t body_len = 0;            // bytes
  int16_t table = -1;               // place among the options' tables, once it was looked up
  uint8_t key_num = 0;              // fields of the head's key
  bool repeat_writes = false;       // a command that writes may be repeated, too
  uint8_t table_name_len = 0;       // without the NUL
  char table_name[32] = {};         // with its NUL

  size_t BytesLen() const { return size_t{user_len} + key_len + body_len; }
};

}  // namespace OstrandService
