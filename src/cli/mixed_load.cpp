#include "cli/mixed_load.h"

#include <cstdio>
#include <random>

namespace OstrandCli {
namespace {

using OstrandService::ClientRequest;
using OstrandService::ClientResponse;

// Letters at random: bytes that a table of texts takes, too.
std::string RandomText(size_t size, uint64_t seed) {
  std::mt19937_64 random(seed);
  std::string text(size, '\0');
  for (char& letter : text) {
    letter = static_cast<char>('a' + random() % 26);
  }
  return text;
}

// False: a name or a size is more than a request can hold.
bool Build(ClientRequest& request, const MixedLoadOptions& options, bool is_read, uint64_t key,
           const std::string& value) {
  if (is_read) {
    request.Get(options.table).Field(options.value_field);
  } else {
    request.Replace(options.table).Set(options.value_field, value);
  }
  return request.Zone(options.zone).Key(options.key_field, KeyOfNumber(key)).Fault() == 0;
}

}  // namespace

std::string KeyOfNumber(uint64_t number) {
  char text[32];
  std::snprintf(text, sizeof(text), "key-%010llu", static_cast<unsigned long long>(number));
  return text;
}

MixedLoad::MixedLoad(const MixedLoadOptions& options)
    : m_options(options),
      m_picker(options.distribution, options.keys, options.zipf_theta, options.seed),
      m_value(RandomText(options.value_size, options.seed)) {}

bool MixedLoad::Next(ClientRequest& request, uint64_t& tag) {
  const bool is_read = m_picker.NextFraction() < m_options.read_share;
  tag = m_picker.Next();
  if (!Build(request, m_options, is_read, tag, m_value)) {
    return false;
  }
  ++(is_read ? m_reads : m_writes);
  return true;
}

// The figures say all there is to say.
void MixedLoad::OnOutcome(uint64_t, LoadOutcome, int32_t, ClientResponse*) {}

FillLoad::FillLoad(const MixedLoadOptions& options)
    : m_options(options), m_value(RandomText(options.value_size, options.seed)) {}

bool FillLoad::Next(ClientRequest& request, uint64_t& tag) {
  if (m_refusal != 0) {
    return false;
  }
  if (!m_again.empty()) {
    tag = m_again.back();
    m_again.pop_back();
  } else if (m_next < m_options.keys) {
    tag = m_next++;
  } else {
    return false;
  }
  return Build(request, m_options, false, tag, m_value);
}

void FillLoad::OnOutcome(uint64_t tag, LoadOutcome outcome, int32_t code, ClientResponse*) {
  if (outcome != LoadOutcome::kAnswered) {
    m_again.push_back(tag);
  } else if (code != 0) {
    m_refusal = code;
  } else {
    ++m_written;
  }
}

}  // namespace OstrandCli
