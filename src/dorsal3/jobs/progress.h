#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <ostream>
#include <string>

namespace dorsal3 {

/// What is known of a running job at one moment.
struct Progress_Sample {
  std::chrono::steady_clock::time_point when;
  int percent = 0;
  std::uint64_t bytes = 0;        ///< received from the database so far
  std::uint64_t total_bytes = 0;  ///< 0: not known
};

/// Speed and time left out of the samples of one job. One thread.
class Progress_Tracker {
 public:
  void add(const Progress_Sample& sample);
  [[nodiscard]] const Progress_Sample& last() const { return last_; }
  /// Bytes per second over the last quarter of a minute; 0 while nothing is known.
  [[nodiscard]] std::uint64_t speed() const;
  /// From the share done since the first sample; -1 while it cannot be told.
  [[nodiscard]] std::chrono::seconds time_left() const;

 private:
  static constexpr std::chrono::seconds speed_window{15};
  std::deque<Progress_Sample> window_;
  Progress_Sample first_;
  Progress_Sample last_;
  bool empty_ = true;
};

/// One line of at most `width` columns: " 42% [=====>      ]  84.0 MiB  31.2 MiB/s  0:04 left".
[[nodiscard]] std::string progress_line(const Progress_Tracker& tracker, const std::string& label, std::size_t width);
/// The same without a bar, for logs and pipes.
[[nodiscard]] std::string plain_progress_line(const Progress_Tracker& tracker, const std::string& label);

/// Shows progress: on a terminal one line that is drawn again, else a plain line whenever the percentage has changed
/// or `plain_interval` has passed.
class Progress_Display {
 public:
  Progress_Display(std::ostream& out, bool terminal, std::size_t width);
  void show(const Progress_Tracker& tracker, const std::string& label);
  /// Ends the line that was drawn, if any; what is printed next stands on a line of its own.
  void finish();

  static constexpr std::chrono::seconds plain_interval{30};

 private:
  std::ostream& out_;
  bool terminal_;
  std::size_t width_;
  bool drawn_ = false;
  int plain_percent_ = -1;
  std::string plain_label_;
  std::chrono::steady_clock::time_point plain_when_;
};

}  // namespace dorsal3
