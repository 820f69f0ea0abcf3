#include "tools/hdbsql_output.h"

#include <algorithm>

#include "base/text.h"

namespace standin {

namespace {

constexpr std::size_t first_body_field = 3;

std::string time_text(double microseconds) {
  char text[64];
  if (microseconds < 1e3)
    std::snprintf(text, sizeof text, "%.0f usec", microseconds);
  else if (microseconds < 1e6)
    std::snprintf(text, sizeof text, "%.3f msec", microseconds / 1e3);
  else
    std::snprintf(text, sizeof text, "%.6f sec", microseconds / 1e6);
  return text;
}

std::string times(const Message& answer, double overall) {
  return "(overall time " + time_text(overall) + "; server time " +
         time_text(static_cast<double>(parse_number(answer[2]).value_or(0))) + ")";
}

std::string escaped(const std::string& value) {
  std::string text = "\"";
  for (const char c : value) {
    switch (c) {
      case '\n':
        text += "\\n";
        break;
      case '\t':
        text += "\\t";
        break;
      case '\r':
        text += "\\r";
        break;
      case '"':
        text += "\\\"";
        break;
      default:
        text += c;
    }
  }
  return text + "\"";
}

std::string cell_text(const Hdbsql_Options& options, const std::string& cell) {
  switch (cell[0]) {
    case '0':
      return options.null_text;
    case 't':
      return options.no_escape || options.aligned ? cell.substr(1) : escaped(cell.substr(1));
    default:
      return cell.substr(1);
  }
}

/// Signs of UTF-8 text.
std::size_t width_of(const std::string& text) {
  return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char c) { return (c & 0xc0) != 0x80; }));
}

void print_aligned(const std::vector<std::vector<std::string>>& table, const std::vector<bool>& numeric,
                   bool with_header, std::FILE* out) {
  std::vector<std::size_t> widths(numeric.size(), 1);
  for (const auto& row : table)
    for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], width_of(row[i]));
  for (std::size_t line = with_header ? 0 : 1; line < table.size(); ++line) {
    std::string text = "|";
    std::string rule = "|";
    for (std::size_t i = 0; i < widths.size(); ++i) {
      const std::string pad(widths[i] - width_of(table[line][i]), ' ');
      const bool right = numeric[i] && line != 0;
      text += " " + (right ? pad + table[line][i] : table[line][i] + pad) + " |";
      rule += " " + std::string(widths[i], '-') + " |";
    }
    std::fprintf(out, "%s\n", text.c_str());
    if (line == 0) std::fprintf(out, "%s\n", rule.c_str());
  }
}

}  // namespace

void print_rows(const Hdbsql_Options& options, const Message& answer, double overall, std::FILE* out) {
  const auto columns = static_cast<std::size_t>(parse_number(answer[first_body_field]).value_or(0));
  std::size_t at = first_body_field + 1;
  std::vector<std::vector<std::string>> table;
  table.emplace_back(answer.begin() + static_cast<std::ptrdiff_t>(at),
                     answer.begin() + static_cast<std::ptrdiff_t>(at + columns));
  std::vector<bool> numeric(columns, false);
  for (at += columns; at + columns <= answer.size(); at += columns) {
    std::vector<std::string> row;
    for (std::size_t i = 0; i < columns; ++i) {
      row.push_back(cell_text(options, answer[at + i]));
      numeric[i] = numeric[i] || answer[at + i][0] == 'n';
    }
    table.push_back(std::move(row));
  }
  if (options.aligned) {
    print_aligned(table, numeric, !options.no_header, out);
  } else {
    for (std::size_t i = options.no_header ? 1 : 0; i < table.size(); ++i)
      std::fprintf(out, "%s\n", join(table[i], options.separator).c_str());
  }
  if (options.no_remarks) return;
  const std::size_t rows = table.size() - 1;
  std::fprintf(out, "%zu row%s selected %s\n\n", rows, rows == 1 ? "" : "s", times(answer, overall).c_str());
}

void print_affected(const Message& answer, double overall, std::FILE* out) {
  const std::string& count = answer[first_body_field];
  std::fprintf(out, "%s row%s affected %s\n\n", count.c_str(), count == "1" ? "" : "s", times(answer, overall).c_str());
}

}  // namespace standin
