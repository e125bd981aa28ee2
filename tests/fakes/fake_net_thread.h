// A network thread that only counts how often it was stopped and restarted.
//
// Threads: any.
// Journal entries: "Pause", "Resume".
#pragma once

#include <functional>
#include <mutex>

#include "fakes/journal.h"
#include "service_api/ostrand_server.h"

namespace OstrandFakes {

class FakeNetThread : public OstrandService::NetThread {
 public:
  explicit FakeNetThread(Journal* journal) : m_journal(journal) {}

  void Pause() override;
  // Faults without a Pause before it.
  void Resume() override;

  // Called in every Pause, with the thread already counted as paused.
  void OnPause(std::function<void()> hook);

  int pause_count() const;
  int resume_count() const;
  int depth() const;  // pauses that are not resumed yet

 private:
  Journal* const m_journal;
  mutable std::mutex m_mutex;  // guards everything below
  int m_pauses = 0;
  int m_resumes = 0;
  std::function<void()> m_hook;
};

}  // namespace OstrandFakes
