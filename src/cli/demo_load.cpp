#include "cli/demo_load.h"

#include <algorithm>

#include "cli/demo_data.h"
#include "cli/record_request.h"

namespace OstrandCli {
namespace {

using OstrandService::ClientRequest;
using OstrandService::ClientResponse;

constexpr size_t kFaultsKept = 10;

// A tag is a record's index and whether it is written.
uint64_t TagOf(size_t index, bool is_write) { return uint64_t{index} * 2 + (is_write ? 1 : 0); }
size_t IndexOf(uint64_t tag) { return static_cast<size_t>(tag / 2); }
bool IsWrite(uint64_t tag) { return tag % 2 == 1; }

}  // namespace

DemoLoad::DemoLoad(const std::vector<PackageRecord>& records, uint64_t seed)
    : m_records(records),
      m_picker(KeyDistribution::kUniform, records.size(), 0.5, seed),
      m_entries(records.size()) {}

void DemoLoad::Begin(Phase phase) {
  m_phase = phase;
  m_next = 0;
  m_done = 0;
}

bool DemoLoad::Next(ClientRequest& request, uint64_t& tag) {
  return Choose(tag) && Build(request, tag);
}

bool DemoLoad::Choose(uint64_t& tag) {
  if (!m_again.empty()) {
    tag = m_again.back();
    m_again.pop_back();
    return true;
  }
  if (m_phase == Phase::kMixed) {
    return ChooseMixed(tag);
  }
  if (m_phase == Phase::kSettle || m_next == m_records.size()) {
    return false;
  }
  tag = TagOf(m_next++, m_phase == Phase::kWriteAll);
  Entry& entry = m_entries[IndexOf(tag)];
  entry.is_busy = true;
  entry.wanted = 1;  // looked at when it is written
  return true;
}

// A record that nothing is under way about: the chosen one, or one of those behind it.
bool DemoLoad::ChooseMixed(uint64_t& tag) {
  const bool is_read = m_picker.NextFraction() < kReadShare;
  size_t index = static_cast<size_t>(m_picker.Next());
  for (size_t tries = 0; tries < m_entries.size(); ++tries) {
    Entry& entry = m_entries[index];
    if (!entry.is_busy && (is_read || !entry.is_frozen)) {
      entry.is_busy = true;
      entry.wanted = entry.acknowledged + 1;
      tag = TagOf(index, !is_read);
      return true;
    }
    index = (index + 1) % m_entries.size();
  }
  return false;
}

bool DemoLoad::Build(ClientRequest& request, uint64_t tag) {
  const PackageRecord& record = m_records[IndexOf(tag)];
  if (!IsWrite(tag)) {
    return BuildGet(request, record);
  }
  const Entry& entry = m_entries[IndexOf(tag)];
  return entry.acknowledged == 0 ? BuildReplace(request, record, entry.wanted)
                                 : BuildUpdate(request, record, entry.wanted);
}

void DemoLoad::OnOutcome(uint64_t tag, LoadOutcome outcome, int32_t code,
                         ClientResponse* response) {
  Entry& entry = m_entries[IndexOf(tag)];
  if (outcome != LoadOutcome::kAnswered) {
    ++m_counts.repeated;
    entry.is_frozen |= IsWrite(tag);
    m_again.push_back(tag);
    return;
  }
  entry.is_busy = false;
  ++m_done;
  if (IsWrite(tag)) {
    OnWritten(IndexOf(tag), code);
  } else {
    OnRead(IndexOf(tag), code, *response);
  }
}

void DemoLoad::OnWritten(size_t index, int32_t code) {
  if (code != 0) {
    Blame(index, "writing it was answered with " + CodeWithText(code));
    return;
  }
  ++m_counts.acknowledged;
  m_entries[index].acknowledged = m_entries[index].wanted;
}

void DemoLoad::OnRead(size_t index, int32_t code, ClientResponse& response) {
  if (code != 0) {
    Blame(index, "reading it was answered with " + CodeWithText(code));
    return;
  }
  ++m_counts.compared;
  const std::string difference =
      Difference(response, m_records[index], m_entries[index].acknowledged);
  if (!difference.empty()) {
    Blame(index, "the answer is wrong: " + difference);
  }
}

void DemoLoad::Blame(size_t index, const std::string& fault) {
  ++m_counts.wrong;
  if (m_counts.faults.size() < kFaultsKept) {
    const PackageRecord& record = m_records[index];
    m_counts.faults.push_back(record.name + " " + record.version + ": " + fault);
  }
}

bool DemoLoad::AllAcknowledged() const {
  return std::all_of(m_entries.begin(), m_entries.end(),
                     [](const Entry& entry) { return entry.acknowledged != 0; });
}

}  // namespace OstrandCli
