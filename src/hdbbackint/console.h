#pragma once

#include <memory>
#include <string>
#include <string_view>

namespace hdbbackint {

/// Tells one failure: one line on standard error, which HANA shows to the administrator, and one in the log. Line
/// breaks in `text` become blanks. Any thread.
void report_failure(std::string_view text);

/// Keeps the last error line that this thread logs while the object lives: the cause of a failure in a lower layer, for
/// the line that names its effect.
class Cause_Capture {
 public:
  Cause_Capture();
  ~Cause_Capture();
  Cause_Capture(const Cause_Capture&) = delete;
  Cause_Capture& operator=(const Cause_Capture&) = delete;
  /// Without line end; "the cause is not known" when nothing was logged.
  [[nodiscard]] std::string text() const;

 private:
  struct Callback;
  std::unique_ptr<Callback> callback_;
};

/// Log lines go to the program's log file where that can be written, and nowhere else: standard error belongs to the
/// lines above. A log that cannot be written never fails a backup.
void open_log();

}  // namespace hdbbackint
