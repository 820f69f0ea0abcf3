#pragma once

#include <cstddef>

namespace sap_hana {

/// Takes what a child process prints, line by line. Base of all output handlers.
///
/// Lines come without their end and without a terminator, in the order of each stream, on the thread that runs the
/// process; blank lines are not delivered. A line that stays unfinished for segment_seconds() goes, as far as it has
/// come, to handle_stdout_segment; what follows of it comes as the next line. Every operation returns 0 to go on and a
/// negative value to report bad input, which is counted against the line and never ends the process.
class Text_Process_Handler {
 public:
  /// `options`: no option is defined, 0. `segment_seconds`: see above; 0 or less: an unfinished line waits for its end.
  explicit Text_Process_Handler(unsigned options = 0, long segment_seconds = 60)
      : options_(options), segment_seconds_(segment_seconds) {}
  virtual ~Text_Process_Handler();
  Text_Process_Handler(const Text_Process_Handler&) = default;
  Text_Process_Handler& operator=(const Text_Process_Handler&) = default;

  virtual int handle_stdout_line(const char* line, std::size_t length);
  /// By default an error line is handled like one of the output: who looks for a text wants it wherever it comes.
  virtual int handle_stderr_line(const char* line, std::size_t length);
  /// By default handled like a line, so that nothing is lost.
  virtual int handle_stdout_segment(const char* data, std::size_t length);
  virtual int handle_stdout_close();
  virtual int handle_stderr_close();

  [[nodiscard]] unsigned options() const { return options_; }
  [[nodiscard]] long segment_seconds() const { return segment_seconds_; }

 private:
  unsigned options_;
  long segment_seconds_;
};

}  // namespace sap_hana
