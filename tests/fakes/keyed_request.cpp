#include "fakes/keyed_request.h"

#include <algorithm>
#include <cstring>

namespace OstrandFakes {

using namespace ostrand_protocol_cs;  // NOLINT: the whole file is about its records

KeyedRequest::KeyedRequest(OStrandApiCmds cmd) : m_pkg(NewOStrandPkg()) { SetCmd(cmd); }

KeyedRequest::KeyedRequest(OStrandApiCmds cmd, std::initializer_list<Field> key)
    : KeyedRequest(cmd) {
  SetKey(key);
}

void KeyedRequest::SetKey(OStrandKeySet& key_set, std::initializer_list<Field> key) {
  key_set.dwFieldNum = 0;
  for (const auto& [name, bytes] : key) {
    OStrandKeyField& field = key_set.astFields[key_set.dwFieldNum++];
    std::memset(field.szFieldName, 0, sizeof(field.szFieldName));
    std::memcpy(field.szFieldName, name.data(), std::min(name.size(), sizeof(field.szFieldName)));
    const size_t len = std::min(bytes.size(), sizeof(field.szFieldBuff));
    field.dwFieldLen = static_cast<uint32_t>(len);
    std::memcpy(field.szFieldBuff, bytes.data(), len);
  }
}

const char* KeyedRequest::GetTableName(size_t* len) const {
  if (len != nullptr) {
    *len = 0;
  }
  return "";
}

char* KeyedRequest::GetUserBuff(size_t* len) {
  if (len != nullptr) {
    *len = 0;
  }
  return m_user_buffer;
}

OStrandPkg* KeyedRequest::GetPkg() {
  if (m_hook) {
    m_hook();
  }
  return m_has_pkg ? m_pkg.get() : nullptr;
}

}  // namespace OstrandFakes
