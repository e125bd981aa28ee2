// Answers at the least possible cost, for benchmarks of clients: no store, no decoding.
//
// Insert, replace, update and delete are answered with result 0; get with one record of one field
// of fixed bytes. The answer's head is the request's with another command, so it carries everything
// back, the key included; a performance record comes back without stamps. Beyond the frame's
// lengths nothing of the request is checked.
//
// Threads: constant after construction.
#pragma once

#include <string>
#include <string_view>

namespace OstrandFleet {

class StandIn {
 public:
  static constexpr char kFieldName[] = "value";

  explicit StandIn(size_t value_len);

  // Whether it answers this command.
  static bool Answers(uint32_t cmd);

  // Appends the answer to a whole frame. REQUIRES: Answers, and a frame whose lengths add up.
  void AppendAnswer(std::string_view frame, std::string& out) const;

 private:
  std::string m_get_body;
  std::string m_write_body;
};

}  // namespace OstrandFleet
