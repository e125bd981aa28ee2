#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>

#include "cli/output.h"
#include "common/clock.h"

namespace OstrandCli {
namespace {

using OstrandCommon::GetMonotonicMilliseconds;

constexpr int64_t kTerminalIntervalMs = 100;
constexpr int64_t kLogIntervalMs = 5000;
constexpr uint64_t kBarWidth = 16;

// Characters that a line of the terminal holds without moving on to the next one.
size_t LineWidth(std::FILE* terminal) {
  winsize size{};
  const bool is_known = ioctl(fileno(terminal), TIOCGWINSZ, &size) == 0 && size.ws_col > 1;
  return is_known ? static_cast<size_t>(size.ws_col) - 1 : SIZE_MAX;
}

}  // namespace

std::string ProgressText(const std::string& label, const std::string& unit, uint64_t done,
                         uint64_t total, double elapsed_s) {
  const double rate = elapsed_s > 0 ? static_cast<double>(done) / elapsed_s : 0;
  std::string text = label + " ";
  if (total > 0) {
    const double share = std::min(1.0, static_cast<double>(done) / static_cast<double>(total));
    const auto filled = static_cast<uint64_t>(share * static_cast<double>(kBarWidth));
    text += "[" + std::string(filled, '#') + std::string(kBarWidth - filled, '.') + "] " +
            std::to_string(static_cast<int>(share * 100)) + " %  ";
  }
  text += WithCommas(done) + (total > 0 ? " of " + WithCommas(total) : "") + " " + unit + "  " +
          WithCommas(static_cast<uint64_t>(rate)) + "/s";
  if (total > done && rate > 0) {
    text += "  " + FormatDuration(static_cast<double>(total - done) / rate) + " left";
  }
  return text;
}

ProgressLine::ProgressLine(std::string label, uint64_t total)
    : ProgressLine(std::move(label), total, "records", stderr, isatty(STDERR_FILENO) == 1) {}

ProgressLine::ProgressLine(std::string label, uint64_t total, std::string unit, std::FILE* file,
                           bool is_terminal)
    : m_label(std::move(label)),
      m_total(total),
      m_unit(std::move(unit)),
      m_file(file),
      m_is_terminal(is_terminal),
      m_began_ms(GetMonotonicMilliseconds()),
      m_shown_ms(m_began_ms) {}

void ProgressLine::Update(uint64_t done, std::string_view remark) {
  const int64_t now_ms = GetMonotonicMilliseconds();
  if (now_ms - m_shown_ms >= (m_is_terminal ? kTerminalIntervalMs : kLogIntervalMs)) {
    Show(done, remark, now_ms, false);
  }
}

void ProgressLine::Clear() {
  if (m_is_terminal && m_width > 0) {
    std::fputs(("\r" + std::string(m_width, ' ') + "\r").c_str(), m_file);
    std::fflush(m_file);
    m_width = 0;
  }
}

void ProgressLine::Finish(uint64_t done, std::string_view remark) {
  Show(done, remark, GetMonotonicMilliseconds(), true);
}

void ProgressLine::Show(uint64_t done, std::string_view remark, int64_t now_ms, bool is_last) {
  m_shown_ms = now_ms;
  const double elapsed_s = static_cast<double>(std::max<int64_t>(now_ms - m_began_ms, 1)) / 1000;
  std::string text = ProgressText(m_label, m_unit, done, m_total, elapsed_s);
  if (!remark.empty()) {
    text.append("  ").append(remark);
  }
  if (m_is_terminal && !is_last) {
    text.resize(std::min(text.size(), LineWidth(m_file)));
  }
  const size_t width = text.size();
  if (m_is_terminal) {
    text = "\r" + text + std::string(m_width > width ? m_width - width : 0, ' ');
  }
  m_width = width;
  text += !m_is_terminal || is_last ? "\n" : "";
  std::fputs(text.c_str(), m_file);
  std::fflush(m_file);
}

}  // namespace OstrandCli
