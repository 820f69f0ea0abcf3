#pragma once

#include <list>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "hana/common/text_process_handler.h"

namespace sap_hana {

/// Parses the tables that hdbsql prints: a header line, then rows of cells joined by commas, text in double quotes.
///
/// Error lines, and the closing remark that counts rows, are no part of a table. Inside quotes a backslash escapes
/// (line end, tab, quote, backslash); a quoted cell may run over several lines. A row is kept with the cells it has, so
/// it can be shorter than the header. One handler can take several runs: after a close, the first line of the next run
/// begins a new table, and a run that prints nothing leaves the old one.
class HDBSQL_General_Text_Handler : public Text_Process_Handler {
 public:
  using Key = std::map<std::string, int>;
  using Row = std::vector<std::string>;
  using Values = std::list<Row>;

  HDBSQL_General_Text_Handler();

  int handle_stdout_line(const char* line, std::size_t length) override;
  int handle_stderr_line(const char* line, std::size_t length) override;
  int handle_stdout_segment(const char* data, std::size_t length) override;
  int handle_stdout_close() override;

  /// Column name to index from 0. Empty: nothing was printed.
  [[nodiscard]] const Key& get_key() const { return key_; }
  /// Rows in output order; values without quotes, NULL as "?".
  [[nodiscard]] const Values& get_values() const { return values_; }

 private:
  int take(std::string_view text, bool whole_line);
  void follow_quotes(std::string_view text);
  int finish_record();
  void begin_table();
  int give_up();

  Key key_;
  Values values_;
  std::string record_;           ///< what has come of the current header or row
  bool in_quotes_ = false;       ///< record_ ends inside quotes
  bool escaped_ = false;         ///< record_ ends with an escaping backslash
  bool header_ = true;           ///< the current record is the header
  bool closed_ = true;           ///< the next line begins a new table
  bool oversized_ = false;       ///< this table is too large to be true; what comes of it is dropped
  std::size_t table_bytes_ = 0;  ///< taken into the current table so far
};

/// The value of a column in the last row. False when there is no such column or the row is shorter.
[[nodiscard]] bool last_value(const HDBSQL_General_Text_Handler& handler, const std::string& column,
                              std::string& value);

}  // namespace sap_hana
