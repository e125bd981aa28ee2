#include "cli/load_position.h"

namespace OstrandCli {

bool LoadPosition::SkipDone(uint64_t line) {
  const bool is_done = m_done.erase(line) != 0;
  if (is_done && HasOpen()) {
    m_finished.insert(line);
  }
  return is_done;
}

void LoadPosition::Finish(uint64_t line) {
  m_open.erase(line);
  m_finished.insert(line);
  const auto first_kept =
      m_open.empty() ? m_finished.end() : m_finished.upper_bound(FirstOpenLine());
  m_finished.erase(m_finished.begin(), first_kept);
}

std::set<uint64_t> LoadPosition::DoneBehind() const {
  std::set<uint64_t> done = m_finished;
  done.insert(m_done.begin(), m_done.end());
  return done;
}

}  // namespace OstrandCli
