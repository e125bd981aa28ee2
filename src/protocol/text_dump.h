// Builds a nested text of named items in a buffer of fixed size: always terminated, never over its
// end.
#pragma once

#include <cstddef>
#include <cstdint>

namespace ostrand_protocol_cs {

class TextDump {
 public:
  // REQUIRES: cap > 0. indent: nesting to begin with, two blanks each; separator stands behind each
  // item.
  TextDump(char* out, size_t cap, int indent, char separator);

  void Number(const char* name, int64_t value);
  void Unsigned(const char* name, uint64_t value);
  // A word as it stands.
  void Word(const char* name, const char* word);
  // The first kMaxShownBytes bytes in quotes, "..." for the rest; what is not printable, quotes and
  // backslashes stand as \xNN.
  void Bytes(const char* name, const char* data, size_t len);
  // The characters before the NUL, at most `capacity`, as Bytes.
  void Text(const char* name, const char* text, size_t capacity);

  // Items from here to the matching Close stand under this name.
  void Open(const char* name);
  void Open(const char* name, uint32_t index);
  void Close();

  // Whether something did not fit; what follows is dropped, too.
  bool full() const { return m_full; }
  // Length of the text without its NUL.
  size_t used() const { return m_used; }

  static constexpr size_t kMaxShownBytes = 256;

 private:
  void BeginItem(const char* name);
  void EndItem();
  void Append(const char* text, size_t len);
  void AppendFormat(const char* format, ...) __attribute__((format(printf, 2, 3)));

  char* m_out;
  size_t m_cap;
  size_t m_used = 0;
  int m_level;
  char m_separator;
  bool m_full = false;
};

}  // namespace ostrand_protocol_cs
