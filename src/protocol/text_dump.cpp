#include "protocol/text_dump.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace ostrand_protocol_cs {

TextDump::TextDump(char* out, size_t cap, int indent, char separator)
    : m_out(out), m_cap(cap), m_level(std::max(indent, 0)), m_separator(separator) {
  m_out[0] = '\0';
}

void TextDump::Number(const char* name, int64_t value) {
  BeginItem(name);
  AppendFormat(" %lld", static_cast<long long>(value));
  EndItem();
}

void TextDump::Unsigned(const char* name, uint64_t value) {
  BeginItem(name);
  AppendFormat(" %llu", static_cast<unsigned long long>(value));
  EndItem();
}

void TextDump::Word(const char* name, const char* word) {
  BeginItem(name);
  AppendFormat(" %s", word);
  EndItem();
}

void TextDump::Bytes(const char* name, const char* data, size_t len) {
  BeginItem(name);
  Append(" \"", 2);
  const size_t shown = std::min(len, kMaxShownBytes);
  for (size_t i = 0; i < shown; ++i) {
    const auto byte = static_cast<unsigned char>(data[i]);
    const bool plain = byte >= ' ' && byte <= '~' && byte != '"' && byte != '\\';
    if (plain) {
      Append(data + i, 1);
    } else {
      AppendFormat("\\x%02X", byte);
    }
  }
  Append("\"", 1);
  if (shown < len) {
    Append("...", 3);
  }
  EndItem();
}

void TextDump::Text(const char* name, const char* text, size_t capacity) {
  Bytes(name, text, strnlen(text, capacity));
}

void TextDump::Open(const char* name) {
  BeginItem(name);
  EndItem();
  ++m_level;
}

void TextDump::Open(const char* name, uint32_t index) {
  char indexed[64];
  snprintf(indexed, sizeof(indexed), "%s[%u]", name, index);
  Open(indexed);
}

void TextDump::Close() { --m_level; }

void TextDump::BeginItem(const char* name) {
  for (int i = 0; i < m_level && !m_full; ++i) {
    Append("  ", 2);
  }
  AppendFormat("%s:", name);
}

void TextDump::EndItem() { Append(&m_separator, 1); }

void TextDump::Append(const char* text, size_t len) {
  if (m_full) {
    return;
  }
  const size_t room = m_cap - 1 - m_used;
  const size_t fitting = std::min(len, room);
  std::memcpy(m_out + m_used, text, fitting);
  m_used += fitting;
  m_out[m_used] = '\0';
  m_full = fitting < len;
}

void TextDump::AppendFormat(const char* format, ...) {
  char text[128];
  va_list args;
  va_start(args, format);
  const int len = vsnprintf(text, sizeof(text), format, args);
  va_end(args);
  if (len > 0) {
    Append(text, std::min(static_cast<size_t>(len), sizeof(text) - 1));
  }
}

}  // namespace ostrand_protocol_cs
