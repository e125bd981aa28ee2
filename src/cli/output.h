// What commands write: JSON, tables, files, the line that shows how far a long work is, and
// sentences for the user.
//
// Threads: each object one at a time; the free functions any.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

namespace OstrandCli {

// "ostrand: <sentence>" on standard error.
void PrintError(const std::string& sentence);
// The same for what is no error.
void PrintRemark(const std::string& sentence);
// "<what>: <text of errno> (<what to do about it>)", for a file that could not be used.
std::string FileError(const std::string& what, int error_number);

// Writes all of it to standard output, behind what was printed before, and flushes. False, with a
// sentence on standard error, when that is full or closed.
bool WriteStdout(std::string_view text);

// --- JSON ---

// Whether the bytes are UTF-8 (RFC 3629).
bool IsUtf8(std::string_view text);
// A JSON string with its quotes (RFC 8259). Bytes that are no UTF-8 become U+FFFD.
std::string JsonString(std::string_view text);
// A value of a record: a string where it is UTF-8, else {"hex":"00ff"}.
std::string JsonBytes(std::string_view bytes);

// Writes one JSON text, without blanks; the order of calls is the caller's care.
//
//   JsonWriter json;
//   json.BeginObject().Key("name").String("a").Key("sizes").BeginArray().Number(1).EndArray();
//   json.EndObject();
//   WriteStdout(json.Text() + "\n");
class JsonWriter {
 public:
  JsonWriter& BeginObject();
  JsonWriter& EndObject();
  JsonWriter& BeginArray();
  JsonWriter& EndArray();
  JsonWriter& Key(std::string_view name);
  JsonWriter& String(std::string_view text);
  JsonWriter& Bytes(std::string_view bytes);  // as JsonBytes
  JsonWriter& Integer(int64_t number);
  JsonWriter& Unsigned(uint64_t number);
  // At most `decimals` places; null for what is no number.
  JsonWriter& Real(double number, int decimals = 6);
  JsonWriter& Bool(bool value);
  JsonWriter& Null();
  JsonWriter& Raw(std::string_view json);  // a value that is JSON already

  const std::string& Text() const { return m_text; }

 private:
  JsonWriter& Add(std::string_view text);

  std::string m_text;
  bool m_needs_comma = false;
};

// --- Tables ---

// Columns aligned for the eye: two blanks between them, no blanks at the end of a line.
class Table {
 public:
  enum class Align { kLeft, kRight };
  struct Column {
    std::string title;
    Align align = Align::kLeft;
  };

  explicit Table(std::vector<Column> columns) : m_columns(std::move(columns)) {}
  // One cell for each column; missing ones are empty.
  void AddRow(std::vector<std::string> cells);
  // Title line and rows, each ended by a line feed.
  std::string Text() const;

 private:
  std::vector<Column> m_columns;
  std::vector<std::vector<std::string>> m_rows;
};

// "1234567" as "1,234,567".
std::string WithCommas(uint64_t number);
// With so many decimal places.
std::string FormatReal(double number, int decimals);
// A time that is left: "4 s", "3 min 05 s", "2 h 07 min".
std::string FormatDuration(double seconds);

// --- Files ---

// A file that is written from its beginning; what does not fit is noticed.
// Ownership: the file; closed, without a word, by the destructor.
class OutputFile {
 public:
  OutputFile() = default;
  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  // mode as fopen: "w" or "a". False, as the others: Error says why.
  bool Open(const std::string& path, const char* mode = "w");
  bool Write(std::string_view text);
  bool Flush();
  bool Close();
  bool IsOpen() const { return m_file != nullptr; }
  // A sentence that names the file.
  const std::string& Error() const { return m_error; }

 private:
  bool Fail(int error_number);

  std::FILE* m_file = nullptr;
  std::string m_path;
  std::string m_error;
};

// The whole file, by way of a temporary one beside it: there is the old text or the new one. A
// path that is no ordinary file (/dev/stdout) is written as it is. False: `error` has a sentence.
bool WriteFile(const std::string& path, std::string_view text, std::string& error);
// False: `error` has a sentence, also when the file is larger than max_bytes.
bool ReadFile(const std::string& path, size_t max_bytes, std::string& text, std::string& error);

// --- Progress ---

// One line on standard error that shows how far a work is: on a terminal written over again ten
// times a second, else a new line every five seconds.
//
//   ProgressLine progress("load", total);    // total 0: not known
//   progress.Update(done);                   // cheap, call it often
//   progress.Finish(done);
class ProgressLine {
 public:
  ProgressLine(std::string label, uint64_t total);
  // For tests and for works that measure in something else than records.
  ProgressLine(std::string label, uint64_t total, std::string unit, std::FILE* file,
               bool is_terminal);

  // remark: stands behind the figures.
  void Update(uint64_t done, std::string_view remark = {});
  // Takes the line off the terminal, for something else to be written there.
  void Clear();
  // The last state, with the mean rate, in a line that stays.
  void Finish(uint64_t done, std::string_view remark = {});

 private:
  void Show(uint64_t done, std::string_view remark, int64_t now_ms, bool is_last);

  const std::string m_label;
  const uint64_t m_total;
  const std::string m_unit;
  std::FILE* const m_file;
  const bool m_is_terminal;
  const int64_t m_began_ms;
  int64_t m_shown_ms;
  size_t m_width = 0;  // of the line that stands on the terminal
};

// The text of such a line: label, bar and percentage (with a total), rate, time left.
std::string ProgressText(const std::string& label, const std::string& unit, uint64_t done,
                         uint64_t total, double elapsed_s);

}  // namespace OstrandCli
