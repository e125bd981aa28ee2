#include "fakes/fake_net_thread.h"

#include <utility>

#include "fakes/allocation_faults.h"
#include "fakes/fault.h"

namespace OstrandFakes {

using Lock = std::lock_guard<std::mutex>;

void FakeNetThread::Pause() {
  const UnwatchedAllocations unwatched;
  if (m_journal != nullptr) {
    m_journal->Add("Pause");
  }
  std::function<void()> hook;
  {
    const Lock lock(m_mutex);
    ++m_pauses;
    hook = m_hook;
  }
  if (hook) {
    hook();
  }
}

void FakeNetThread::Resume() {
  const UnwatchedAllocations unwatched;
  if (m_journal != nullptr) {
    m_journal->Add("Resume");
  }
  const Lock lock(m_mutex);
  if (++m_resumes > m_pauses) {
    Fault("Resume without Pause");
  }
}

void FakeNetThread::OnPause(std::function<void()> hook) {
  const Lock lock(m_mutex);
  m_hook = std::move(hook);
}

int FakeNetThread::pause_count() const {
  const Lock lock(m_mutex);
  return m_pauses;
}

int FakeNetThread::resume_count() const {
  const Lock lock(m_mutex);
  return m_resumes;
}

int FakeNetThread::depth() const {
  const Lock lock(m_mutex);
  return m_pauses - m_resumes;
}

}  // namespace OstrandFakes
