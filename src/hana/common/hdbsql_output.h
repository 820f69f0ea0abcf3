#pragma once

#include <chrono>
#include <string>
#include <string_view>
#include <vector>

#include "hana/common/hdbsql_executor.h"
#include "hana/common/line_assembler.h"
#include "hana/common/text_process_handler.h"
#include "platform/process_runner.h"
#include "platform/secure_string.h"

namespace sap_hana {

/// The number in an error line of hdbsql ("* 259: invalid table name ..."); false when it is none. Warnings, which
/// begin with "Warning: ", are none.
[[nodiscard]] bool parse_hdbsql_error(std::string_view line, int& code);

/// What kind of failure an error number means.
[[nodiscard]] HDBSQL_Failure classify_hdbsql_error(int code);

/// Takes the output of one hdbsql run: hands it on line by line and finds the first error in it.
class HDBSQL_Output final : public platform::Output_Sink {
 public:
  /// `handler`: null to have the output logged. `secrets`, which outlive this object, are taken out of everything that
  /// is logged or told, in their order.
  HDBSQL_Output(Text_Process_Handler* handler, const std::vector<secure_string>& secrets);

  /// Ends the process when it takes longer from now on.
  void time_limit(std::chrono::seconds limit);

  void on_start(pid_t pid) override;
  void on_output(platform::Output_Stream stream, const char* data, std::size_t size) override;
  void on_idle() override;
  void on_close(platform::Output_Stream stream) override;

  /// How it ended, given the process's end. Call once, when the process is gone.
  [[nodiscard]] HDBSQL_Outcome outcome(const platform::Exit_Status& status);

 private:
  void take_output_line(std::string_view line);
  void take_error_line(std::string_view line);
  void take_segment(std::string_view text);
  void check_limit();
  void note_error(int code, std::string_view line);
  [[nodiscard]] std::string without_secrets(std::string_view text) const;
  Line_Assembler& lines_of(platform::Output_Stream stream);

  Text_Process_Handler* handler_;
  const std::vector<secure_string>& secrets_;
  Line_Assembler output_lines_;
  Line_Assembler error_lines_;
  bool first_line_ = true;  ///< no line of standard output was seen
  bool in_error_ = false;   ///< lines that follow belong to the first error
  bool has_error_ = false;
  int code_ = 0;
  std::string error_;
  std::string last_error_line_;
  std::chrono::seconds limit_{0};  ///< 0: none
  std::chrono::steady_clock::time_point deadline_;
  bool timed_out_ = false;
  pid_t pid_ = 0;
};

}  // namespace sap_hana
