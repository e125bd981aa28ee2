#include "protocol/ostrand_api_cmds.h"

namespace ostrand_protocol_cs {

BodyKind BodyKindOfCmd(int64_t cmd) {
  switch (cmd) {
#define OSTRAND_API_BODY_KINDS(name, code, request_body, response_body)       \
  static_assert((code) % 2 == 1, "answers are told from requests by parity"); \
  case OSTRAND_API_##name##_REQ: return BodyKind::request_body;               \
  case OSTRAND_API_##name##_RES: return BodyKind::response_body;
    OSTRAND_API_COMMANDS(OSTRAND_API_BODY_KINDS)
#undef OSTRAND_API_BODY_KINDS
    default: return BodyKind::kUnknown;
  }
}

const char* NameOfCmd(int64_t cmd) {
  switch (cmd) {
#define OSTRAND_API_NAMES(name, code, request_body, response_body)   \
  case OSTRAND_API_##name##_REQ: return "OSTRAND_API_" #name "_REQ"; \
  case OSTRAND_API_##name##_RES: return "OSTRAND_API_" #name "_RES";
    OSTRAND_API_COMMANDS(OSTRAND_API_NAMES)
#undef OSTRAND_API_NAMES
    default: return "unknown";
  }
}

}  // namespace ostrand_protocol_cs
