#include "dorsal3/jobs/progress.h"

#include <algorithm>
#include <cstdio>

#include "dorsal3/terminal/format.h"

namespace dorsal3 {

namespace {

constexpr int full_percent = 100;
constexpr std::size_t bar_maximum = 40;
constexpr std::size_t bar_minimum = 8;
constexpr std::size_t brackets = 3;  // "[", "]" and the blank before the rest
constexpr const char* clear_line = "\r\033[K";

std::string percent_text(int percent) {
  std::string text = std::to_string(std::clamp(percent, 0, full_percent)) + "%";
  return std::string(text.size() < 4 ? 4 - text.size() : 0, ' ') + text;
}

std::string bar(int percent, std::size_t cells) {
  const auto done = static_cast<std::size_t>(std::clamp(percent, 0, full_percent)) * cells / full_percent;
  std::string text(done, '=');
  if (done < cells) text += '>';
  text.resize(cells, ' ');
  return text;
}

std::string figures(const Progress_Tracker& tracker) {
  const Progress_Sample& last = tracker.last();
  std::string text = format_bytes(last.bytes);
  if (last.total_bytes > 0) text += " of " + format_bytes(last.total_bytes);
  if (tracker.speed() > 0) text += "  " + format_speed(tracker.speed());
  if (tracker.time_left().count() >= 0) text += "  " + format_span(tracker.time_left()) + " left";
  return text;
}

}  // namespace

void Progress_Tracker::add(const Progress_Sample& sample) {
  if (empty_) first_ = sample;
  empty_ = false;
  last_ = sample;
  // A count that goes back is another job's or a restart: the window begins anew.
  if (!window_.empty() && sample.bytes < window_.back().bytes) window_.clear();
  window_.push_back(sample);
  while (window_.size() > 2 && sample.when - window_.front().when > speed_window) window_.pop_front();
}

std::uint64_t Progress_Tracker::speed() const {
  if (window_.size() < 2) return 0;
  const std::chrono::duration<double> span = window_.back().when - window_.front().when;
  if (span.count() <= 0) return 0;
  return static_cast<std::uint64_t>(static_cast<double>(window_.back().bytes - window_.front().bytes) / span.count());
}

std::chrono::seconds Progress_Tracker::time_left() const {
  constexpr std::chrono::seconds unknown{-1};
  const int gained = last_.percent - first_.percent;
  if (empty_ || gained <= 0 || last_.percent >= full_percent) return unknown;
  const std::chrono::duration<double> spent = last_.when - first_.when;
  const double rest = spent.count() * (full_percent - last_.percent) / gained;
  return std::chrono::seconds(static_cast<long>(rest + 0.5));
}

std::string progress_line(const Progress_Tracker& tracker, const std::string& label, std::size_t width) {
  const std::string head = (label.empty() ? "" : one_line(label) + " ") + percent_text(tracker.last().percent) + " ";
  const std::string tail = figures(tracker);
  std::string line = head;
  if (width > head.size() + tail.size() + brackets + bar_minimum) {
    const std::size_t cells = std::min(bar_maximum, width - head.size() - tail.size() - brackets - 1);
    line += "[" + bar(tracker.last().percent, cells) + "] ";
  }
  line += tail;
  if (line.size() > width) line.resize(width);
  return line;
}

std::string plain_progress_line(const Progress_Tracker& tracker, const std::string& label) {
  return (label.empty() ? "" : one_line(label) + " ") + percent_text(tracker.last().percent) + "  " + figures(tracker);
}

Progress_Display::Progress_Display(std::ostream& out, bool terminal, std::size_t width)
    : out_(out), terminal_(terminal), width_(width) {}

void Progress_Display::show(const Progress_Tracker& tracker, const std::string& label) {
  if (terminal_) {
    out_ << clear_line << progress_line(tracker, label, width_) << std::flush;
    drawn_ = true;
    return;
  }
  const Progress_Sample& last = tracker.last();
  const bool same = last.percent == plain_percent_ && label == plain_label_;
  if (same && last.when - plain_when_ < plain_interval) return;
  out_ << plain_progress_line(tracker, label) << std::endl;
  plain_percent_ = last.percent;
  plain_label_ = label;
  plain_when_ = last.when;
}

void Progress_Display::finish() {
  if (drawn_) out_ << std::endl;
  drawn_ = false;
}

}  // namespace dorsal3
