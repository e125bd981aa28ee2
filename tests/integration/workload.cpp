#include "integration/workload.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>

#include "client/error_text.h"
#include "common/clock.h"
#include "protocol/ostrand_protocol_cs.h"

namespace OstrandTests {
namespace {

using namespace ostrand_protocol_cs;  // NOLINT: commands and records
using namespace OstrandService;       // NOLINT: the library under test
using OstrandCommon::GetMonotonicMilliseconds;

constexpr size_t kRecords = 2000;
constexpr int32_t kResultNoRecord = -7949;

}  // namespace

uint64_t Workload::Tally::Refused() const {
  uint64_t sum = 0;
  for (const auto& [code, count] : refused) {
    sum += count;
  }
  return sum;
}

Workload::Workload(PollingClient& client, Store store)
    : m_client(client), m_store(store), m_records(kRecords) {}

std::string Workload::KeyOf(size_t record) { return "key " + std::to_string(record); }

// Writes and reads take turns; the reads are half the records behind.
bool Workload::PickNext(size_t& record, bool& is_write) {
  for (size_t tries = 0; tries < 2 * kRecords; ++tries) {
    const uint64_t turn = m_turn++;
    is_write = turn % 2 == 0;
    record = (turn / 2 + (is_write ? 0 : kRecords / 2)) % kRecords;
    if (!m_records[record].is_busy && (is_write || m_records[record].is_written)) {
      return true;
    }
  }
  return false;  // as many in flight as there are records
}

int Workload::SendOne() {
  size_t number = 0;
  bool is_write = false;
  if (!PickNext(number, is_write)) {
    return CLIENT_ERR_TOO_MANY;
  }
  Record& record = m_records[number];
  m_request.Begin(is_write ? OSTRAND_API_REPLACE_REQ : OSTRAND_API_GET_REQ, kTable).Zone(kZone);
  m_request.Key("id", KeyOf(number));
  m_request.SetTimeout(m_timeout_ms);
  std::string value;
  if (is_write) {
    value = KeyOf(number) + " write " + std::to_string(++record.writes);
    value.resize(std::max(value.size(), m_value_size), '.');
    m_request.Set("name", value);
  }
  const int ret = m_client.Send(m_request);
  if (ret != 0) {
    ++m_tally.refused[ret];
    // The bytes may be on their way although the sending failed.
    record.is_uncertain = record.is_uncertain || is_write;
    return ret;
  }
  ++m_tally.accepted;
  record.is_busy = true;
  m_tally.stray += m_in_flight.count(m_request.GetAsynID());
  m_in_flight[m_request.GetAsynID()] = {number, value};
  return 0;
}

bool Workload::ReceiveOne(int timeout_ms) {
  const int ret = m_client.Receive(m_response, timeout_ms);
  EXPECT_GE(ret, 0) << ErrorText(ret);
  if (ret != 1) {
    return false;
  }
  Book(m_response);
  return true;
}

void Workload::Book(ClientResponse& response) {
  const auto found = m_in_flight.find(response.GetAsynID());
  if (found == m_in_flight.end()) {
    ++m_tally.stray;
    return;
  }
  const InFlight request = found->second;
  m_in_flight.erase(found);
  Record& record = m_records[request.record];
  record.is_busy = false;
  const bool is_write = !request.value.empty();
  const int32_t result = response.GetResult();
  if (result == ClientResponse::kResultTimeOut) {
    ++m_tally.timed_out;
  } else if (result != 0) {
    ++m_tally.failed;
    ++m_tally.results[result];
    const bool may_be_missing = m_store == Store::kSeveral || record.is_uncertain || is_write;
    m_tally.wrong += result == kResultNoRecord && !may_be_missing ? 1 : 0;
  } else {
    ++m_tally.answered;
  }
  if (!is_write) {
    if (result == 0) {
      BookRead(record, request.record, response);
    }
  } else if (result == 0) {
    record.is_written = true;
    record.value = request.value;
  } else {
    record.is_uncertain = true;
  }
}

void Workload::BookRead(Record& record, size_t number, ClientResponse& response) {
  FieldView field;
  const std::string value =
      response.GetValue("name", field) ? std::string(field.value) : std::string();
  const std::string prefix = KeyOf(number) + " write ";
  const bool may_be_older = record.is_uncertain || m_store == Store::kSeveral;
  const bool is_right =
      response.GetCmd() == OSTRAND_API_GET_RES && value.size() > prefix.size() &&
      value.compare(0, prefix.size(), prefix) == 0 &&
      (may_be_older ? std::strtoull(value.c_str() + prefix.size(), nullptr, 10) <= record.writes
                    : value == record.value);
  if (!is_right) {
    ++m_tally.wrong;
  }
}

bool Workload::RunUntil(const std::function<bool()>& condition, size_t window, int64_t limit_ms) {
  const int64_t deadline_ms = GetMonotonicMilliseconds() + limit_ms;
  while (!condition()) {
    if (GetMonotonicMilliseconds() >= deadline_ms) {
      return false;
    }
    while (m_client.InFlight() < window && SendOne() == 0) {
    }
    for (int wait_ms = 5; ReceiveOne(wait_ms); wait_ms = 0) {
    }
  }
  return true;
}

bool Workload::Run(uint64_t outcomes, size_t window) {
  const uint64_t wanted = m_tally.Outcomes() + outcomes;
  return RunUntil([&] { return m_tally.Outcomes() >= wanted; }, window);
}

void Workload::RunFor(int64_t ms, size_t window) {
  RunUntil([] { return false; }, window, ms);
}

bool Workload::Drain() {
  const int64_t deadline_ms = GetMonotonicMilliseconds() + kPatienceMs;
  while (m_client.InFlight() != 0 && GetMonotonicMilliseconds() < deadline_ms) {
    ReceiveOne(10);
  }
  return m_client.InFlight() == 0;
}

void Workload::ExpectSound() const {
  EXPECT_EQ(m_tally.wrong, 0u);
  EXPECT_EQ(m_tally.stray, 0u);
  EXPECT_EQ(m_tally.Outcomes(), m_tally.accepted);
  EXPECT_TRUE(m_in_flight.empty());
}

}  // namespace OstrandTests
