#pragma once

#include <ace/Log_Msg_Backend.h>
#include <ace/Log_Priority.h>

#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace support {

struct Log_Line {
  int priority = 0;  ///< an ACE_Log_Priority
  std::string text;  ///< as logged, with its line end
};

/// Takes every log line of every thread for its life. A line of priority LM_ERROR or above that no test claimed fails
/// the test when this object goes. Lines below may be claimed too. A claim counts only for lines of its priority: how
/// loud a line is belongs to what it says.
class Log_Capture {
 public:
  Log_Capture();
  ~Log_Capture();
  Log_Capture(const Log_Capture&) = delete;
  Log_Capture& operator=(const Log_Capture&) = delete;

  /// Claims the oldest unclaimed line of `priority` whose text is exactly `text`; false when there is none.
  bool claim(const std::string& text, ACE_Log_Priority priority = LM_ERROR);
  /// Claims every unclaimed line of `priority` that contains `part`; the number of them.
  std::size_t claim_containing(const std::string& part, ACE_Log_Priority priority = LM_ERROR);
  [[nodiscard]] bool has(const std::string& text) const;
  [[nodiscard]] bool has_containing(const std::string& part) const;
  /// Every line so far, claimed or not.
  [[nodiscard]] std::vector<Log_Line> lines() const;
  /// For messages of a failing test.
  [[nodiscard]] std::string dump() const;
  void claim_all();

 private:
  class Backend;
  std::unique_ptr<Backend> backend_;
  ACE_Log_Msg_Backend* previous_;
  unsigned long previous_flags_;
};

}  // namespace support
