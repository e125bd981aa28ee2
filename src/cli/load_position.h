// How far a load is, when records are finished in another order than they were begun.
//
// Threads: one at a time.
#pragma once

#include <cstdint>
#include <map>
#include <set>

namespace OstrandCli {

class LoadPosition {
 public:
  // done: lines behind the first unfinished one that an earlier run finished.
  explicit LoadPosition(std::set<uint64_t> done = {}) : m_done(std::move(done)) {}

  // Whether an earlier run finished the line, which is then not begun. Asked once a line.
  bool SkipDone(uint64_t line);

  // Lines are begun in rising order.
  void Begin(uint64_t line, uint64_t offset) { m_open.emplace(line, offset); }
  void Finish(uint64_t line);

  bool HasOpen() const { return !m_open.empty(); }
  // The first line that was begun and not finished, and where it begins. REQUIRES: HasOpen().
  uint64_t FirstOpenLine() const { return m_open.begin()->first; }
  uint64_t FirstOpenOffset() const { return m_open.begin()->second; }
  // The lines behind it that are finished; also those of the earlier run that were not met yet.
  std::set<uint64_t> DoneBehind() const;

 private:
  std::map<uint64_t, uint64_t> m_open;  // line to offset
  std::set<uint64_t> m_finished;        // behind the first open line
  std::set<uint64_t> m_done;
};

}  // namespace OstrandCli
