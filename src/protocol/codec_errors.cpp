#include "protocol/codec_errors.h"

namespace ostrand_protocol_cs {

const char* CodecErrorText(int code) {
  switch (code) {
    case 0: return "success";
#define OSTRAND_CODEC_ERROR_TEXT(name, number, text) \
  case OSTRAND_CODEC_ERR_##name: return text;
      OSTRAND_CODEC_ERRORS(OSTRAND_CODEC_ERROR_TEXT)
#undef OSTRAND_CODEC_ERROR_TEXT
    default: return nullptr;
  }
}

}  // namespace ostrand_protocol_cs
