#include "hana/common/hdbsql_general_text_handler.h"

#include <algorithm>
#include <string_view>
#include <utility>

namespace sap_hana {

namespace {

constexpr long unfinished_line_seconds = 60;
constexpr char separator = ',';
constexpr char quote = '"';
constexpr char escape = '\\';
/// More than any catalog answers; beyond it the output is no table of ours.
constexpr std::size_t largest_table_bytes = 64U << 20;

/// "2 rows selected (overall time ...", "0 rows affected (...", "1 row selected (...": hdbsql's closing remark.
bool is_remark(std::string_view line) {
  const std::size_t digits = line.find_first_not_of("0123456789");
  if (digits == 0 || digits == std::string_view::npos) return false;
  std::string_view rest = line.substr(digits);
  if (!rest.starts_with(" row")) return false;
  rest.remove_prefix(std::string_view(" row").size());
  if (rest.starts_with('s')) rest.remove_prefix(1);
  return rest.starts_with(" selected (") || rest.starts_with(" affected (");
}

/// Column names are printed bare. An expression without an alias shows its own text, whose commas inside parentheses
/// and literals part nothing.
std::vector<std::string> split_header(std::string_view text) {
  std::vector<std::string> names(1);
  int depth = 0;
  bool literal = false;
  for (const char c : text) {
    if (c == '\'') literal = !literal;
    if (!literal && c == '(') ++depth;
    if (!literal && c == ')' && depth > 0) --depth;
    if (c == separator && depth == 0 && !literal)
      names.emplace_back();
    else
      names.back() += c;
  }
  return names;
}

/// The character that an escape stands for; 0 when it stands for none.
char unescaped(char c) {
  switch (c) {
    case 'n':
      return '\n';
    case 'r':
      return '\r';
    case 't':
      return '\t';
    case quote:
      return quote;
    case escape:
      return escape;
    default:
      return 0;
  }
}

/// Finds what has a meaning inside quotes. Asked for places that only grow, so that a text is gone through once.
class Quote_Or_Escape {
 public:
  explicit Quote_Or_Escape(std::string_view text) : text_(text) {}
  /// The first quote or escape at or behind `at`; the end of the text when there is none.
  [[nodiscard]] std::size_t from(std::size_t at) {
    if (!looked_ || quote_at_ < at) quote_at_ = std::min(text_.find(quote, at), text_.size());
    looked_ = true;
    const std::size_t before = text_.substr(at, quote_at_ - at).find(escape);
    return before == std::string_view::npos ? quote_at_ : at + before;
  }

 private:
  std::string_view text_;
  bool looked_ = false;
  std::size_t quote_at_ = 0;  ///< the last quote found
};

/// Adds what stands at `at` inside quotes, a quote or an escape, and passes it. False when the quotes end there.
bool take_special(std::string_view text, std::size_t& at, std::string& cell) {
  const char c = text[at++];
  const char next = at < text.size() ? text[at] : '\0';
  const char meant = c == quote ? (next == quote ? quote : '\0') : unescaped(next);
  if (meant == '\0') {
    if (c == quote) return false;
    cell += c;
    return true;
  }
  cell += meant;
  ++at;
  return true;
}

/// Reads one cell from `at`, which is left behind it: at its separator or at the end.
std::string read_cell(std::string_view text, std::size_t& at) {
  std::string cell;
  bool in_quotes = false;
  Quote_Or_Escape special(text);
  while (at < text.size()) {
    if (!in_quotes && text[at] == separator) break;
    if (!in_quotes && text[at] == quote && cell.empty()) {
      in_quotes = true;
      ++at;
      continue;
    }
    const std::size_t end = in_quotes ? special.from(at) : std::min(text.find(separator, at), text.size());
    cell.append(text.substr(at, end - at));
    at = end;
    if (in_quotes && at < text.size()) in_quotes = take_special(text, at, cell);
  }
  return cell;
}

HDBSQL_General_Text_Handler::Row split_row(std::string_view text) {
  HDBSQL_General_Text_Handler::Row row;
  for (std::size_t at = 0;; ++at) {
    row.push_back(read_cell(text, at));
    if (at >= text.size()) return row;
  }
}

}  // namespace

HDBSQL_General_Text_Handler::HDBSQL_General_Text_Handler() : Text_Process_Handler(0, unfinished_line_seconds) {}

int HDBSQL_General_Text_Handler::handle_stdout_line(const char* line, std::size_t length) {
  // An empty one can end what came in segments.
  if (line == nullptr || (length == 0 && record_.empty())) return -1;
  return take(std::string_view(line, length), true);
}

int HDBSQL_General_Text_Handler::handle_stderr_line(const char*, std::size_t) { return 0; }

int HDBSQL_General_Text_Handler::handle_stdout_segment(const char* data, std::size_t length) {
  if (data == nullptr || length == 0) return -1;
  return take(std::string_view(data, length), false);
}

int HDBSQL_General_Text_Handler::handle_stdout_close() {
  closed_ = true;
  // What is left is a row that was cut.
  const bool cut = !record_.empty();
  record_.clear();
  in_quotes_ = escaped_ = false;
  return cut ? -1 : 0;
}

void HDBSQL_General_Text_Handler::begin_table() {
  key_.clear();
  values_.clear();
  record_.clear();
  in_quotes_ = escaped_ = closed_ = oversized_ = false;
  header_ = true;
  table_bytes_ = 0;
}

int HDBSQL_General_Text_Handler::give_up() {
  begin_table();
  oversized_ = true;
  return -1;
}

int HDBSQL_General_Text_Handler::take(std::string_view text, bool whole_line) {
  if (record_.empty() && whole_line && is_remark(text)) return 0;
  if (closed_) begin_table();
  if (oversized_) return -1;
  table_bytes_ += text.size();
  if (table_bytes_ > largest_table_bytes) return give_up();
  record_ += text;
  follow_quotes(text);
  if (!whole_line) return 0;
  // A header is one line: only a cell of a row can go on in the next.
  if (in_quotes_ && !header_) {
    record_ += '\n';
    escaped_ = false;
    return 0;
  }
  return finish_record();
}

void HDBSQL_General_Text_Handler::follow_quotes(std::string_view text) {
  Quote_Or_Escape special(text);
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (std::exchange(escaped_, false)) continue;
    at = in_quotes_ ? special.from(at) : std::min(text.find(quote, at), text.size());
    if (at == text.size()) return;
    if (text[at] == escape)
      escaped_ = true;
    else
      in_quotes_ = !in_quotes_;
  }
}

int HDBSQL_General_Text_Handler::finish_record() {
  const std::string record = std::exchange(record_, {});
  in_quotes_ = escaped_ = false;
  if (!std::exchange(header_, false)) {
    values_.push_back(split_row(record));
    return 0;
  }
  int index = 0;
  for (std::string& name : split_header(record)) key_.emplace(std::move(name), index++);
  return 0;
}

bool last_value(const HDBSQL_General_Text_Handler& handler, const std::string& column, std::string& value) {
  const auto found = handler.get_key().find(column);
  if (found == handler.get_key().end() || handler.get_values().empty()) return false;
  const HDBSQL_General_Text_Handler::Row& row = handler.get_values().back();
  const auto index = static_cast<std::size_t>(found->second);
  if (index >= row.size()) return false;
  value = row[index];
  return true;
}

}  // namespace sap_hana
