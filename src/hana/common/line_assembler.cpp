#include "hana/common/line_assembler.h"

#include <utility>

#include "hana/common/text_lines.h"
#include "platform/clock.h"

namespace sap_hana {

namespace {

/// A line that grows beyond this is given out in segments, so that a broken tool cannot fill the memory.
constexpr std::size_t longest_line_bytes = 4U << 20;

}  // namespace

void Line_Assembler::add(std::string_view data) {
  while (!data.empty()) {
    const std::size_t end = data.find('\n');
    if (end == std::string_view::npos) {
      if (unfinished_.empty()) since_ = platform::Clock::current().steady_now();
      unfinished_ += data;
      if (unfinished_.size() > longest_line_bytes) flush();
      return;
    }
    if (unfinished_.empty()) {
      give_line(data.substr(0, end));
    } else {
      unfinished_ += data.substr(0, end);
      give_line(std::exchange(unfinished_, {}));
    }
    data.remove_prefix(end + 1);
  }
}

void Line_Assembler::flush_older_than(std::chrono::nanoseconds age) {
  if (!unfinished_.empty() && platform::Clock::current().steady_now() - since_ >= age) flush();
}

void Line_Assembler::flush() {
  if (unfinished_.empty()) return;
  segmented_ = true;
  segment_(std::exchange(unfinished_, {}));
}

void Line_Assembler::close() {
  if (!unfinished_.empty()) give_line(std::exchange(unfinished_, {}));
}

void Line_Assembler::give_line(std::string_view line) {
  if (line.ends_with('\r')) line.remove_suffix(1);
  if (std::exchange(segmented_, false) || !is_blank(line)) line_(line);
}

}  // namespace sap_hana
