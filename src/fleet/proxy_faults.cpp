#include "fleet/proxy_faults.h"

#include <charconv>

namespace OstrandFleet {
namespace {

#define OSTRAND_FLEET_NAME(enumerator, name, meaning) name,
constexpr const char* kAnswerFaultNames[] = {OSTRAND_FLEET_ANSWER_FAULTS(OSTRAND_FLEET_NAME)};
constexpr const char* kAnswerScopeNames[] = {OSTRAND_FLEET_ANSWER_SCOPES(OSTRAND_FLEET_NAME)};
#undef OSTRAND_FLEET_NAME

template <typename Enum, size_t N>
bool ParseName(std::string_view text, const char* const (&names)[N], Enum& value) {
  for (size_t i = 0; i < N; ++i) {
    if (text == names[i]) {
      value = static_cast<Enum>(i);
      return true;
    }
  }
  return false;
}

bool ParseValue(std::string_view text, AnswerFault& value) {
  return ParseName(text, kAnswerFaultNames, value);
}

bool ParseValue(std::string_view text, AnswerScope& value) {
  return ParseName(text, kAnswerScopeNames, value);
}

bool ParseValue(std::string_view text, int64_t& value) { return ParseNumber(text, value); }

bool ParseValue(std::string_view text, bool& value) {
  const bool on = text.empty() || text == "1" || text == "on";
  const bool off = text == "0" || text == "off";
  value = on || (value && !off);
  return on || off;
}

bool ParseValue(std::string_view text, std::string& value) {
  value = text;
  return true;
}

}  // namespace

bool operator==(const ProxyFaults& a, const ProxyFaults& b) {
  bool same = true;
#define OSTRAND_FLEET_COMPARE(type, name, initial, meaning) same = same && a.name == b.name;
  OSTRAND_FLEET_SWITCHES(OSTRAND_FLEET_COMPARE)
#undef OSTRAND_FLEET_COMPARE
  return same;
}

bool SetSwitch(ProxyFaults& faults, std::string_view name, std::string_view value) {
#define OSTRAND_FLEET_SET(type, member, initial, meaning) \
  if (name == #member) return ParseValue(value, faults.member);
  OSTRAND_FLEET_SWITCHES(OSTRAND_FLEET_SET)
#undef OSTRAND_FLEET_SET
  return false;
}

const char* NameOf(AnswerFault fault) { return kAnswerFaultNames[static_cast<size_t>(fault)]; }

const char* NameOf(AnswerScope scope) { return kAnswerScopeNames[static_cast<size_t>(scope)]; }

bool ParseNumber(std::string_view text, int64_t& number) {
  int64_t parsed = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, parsed);
  if (text.empty() || stop != end || error != std::errc()) {
    return false;
  }
  number = parsed;
  return true;
}

}  // namespace OstrandFleet
