#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <string_view>

namespace sap_hana {

/// Makes lines of one stream's pieces. Lines come without their end; blank ones are dropped, but not the rest of a line
/// whose segments were given out: it is what ends them.
class Line_Assembler {
 public:
  using Take = std::function<void(std::string_view text)>;

  /// `line` is given whole lines, `segment` what has come of a line that stays unfinished.
  Line_Assembler(Take line, Take segment) : line_(std::move(line)), segment_(std::move(segment)) {}

  void add(std::string_view data);
  /// Gives an unfinished line out as a segment when it is older than `age`.
  void flush_older_than(std::chrono::nanoseconds age);
  /// Gives an unfinished line out as a segment, whatever its age.
  void flush();
  /// The stream has ended: its last line needs no line end.
  void close();

 private:
  void give_line(std::string_view line);

  Take line_;
  Take segment_;
  std::string unfinished_;
  bool segmented_ = false;  ///< a segment of the present line was given out
  std::chrono::steady_clock::time_point since_;
};

}  // namespace sap_hana
