#include "vex/vex_codes.h"

const char* vex_code_text(int code) {
  switch (code) {
#define VEX_CODE_CASE(name, number, text) \
  case name: return text;
    VEX_CODES(VEX_CODE_CASE)
#undef VEX_CODE_CASE
    default: return "unknown code";
  }
}
