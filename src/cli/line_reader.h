// Reads a file line by line and knows where it is in it.
//
// Ownership: the file. Threads: one at a time.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace OstrandCli {

class LineReader {
 public:
  static constexpr size_t kMaxLineLen = size_t{8} << 20;

  enum class Result {
    kLine,
    kTooLong,  // of a line over kMaxLineLen the beginning; the rest is skipped
    kEnd,
    kFailed,  // Error says why
  };

  LineReader() = default;
  ~LineReader();
  LineReader(const LineReader&) = delete;
  LineReader& operator=(const LineReader&) = delete;

  // "-" is standard input. False: Error says why.
  bool Open(const std::string& path);
  // Whether it is an ordinary file, in which one can go to a place.
  bool IsOrdinary() const { return m_is_ordinary; }

  // The next line without its end (LF or CRLF); the last one may have none.
  Result Next(std::string& line);

  // Of the line that Next reads next: its number, from 1, and its first byte's place.
  uint64_t NextLine() const { return m_next_line; }
  uint64_t NextOffset() const { return m_next_offset; }

  // Goes to the beginning of a line. Ordinary files only.
  bool Seek(uint64_t line, uint64_t offset);
  // The CRC of the last bytes (4096, or as many as there are) before a place; the reader stays
  // where it is. Ordinary files only.
  bool ChecksumBefore(uint64_t offset, uint32_t& checksum);
  // Lines from here to the end; the reader stays where it is. Ordinary files only; 0 when it fails.
  uint64_t CountLines();

  // A sentence that names the file.
  const std::string& Error() const { return m_error; }

 private:
  bool Fill();
  bool Fail(int error_number);

  std::FILE* m_file = nullptr;
  std::string m_path;
  std::string m_error;
  bool m_is_ordinary = false;
  std::vector<char> m_buffer;
  size_t m_begin = 0;  // of what was read and not handed out
  size_t m_end = 0;
  uint64_t m_next_line = 1;
  uint64_t m_next_offset = 0;
};

}  // namespace OstrandCli
