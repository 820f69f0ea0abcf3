#include "server/faults.h"

#include <algorithm>
#include <chrono>

#include "base/clock.h"
#include "base/files.h"
#include "base/text.h"

namespace standin {

namespace {

struct Line {
  std::string key, value, match, database;
  std::int64_t count = -1, skip = 0;
};

bool parse_line(const std::string& raw, Line& line) {
  const std::string_view text = trim(raw);
  if (text.empty() || text.front() == '#') return false;
  const std::size_t equals = text.find('=');
  if (equals == std::string_view::npos) return false;
  line.key = std::string(trim(text.substr(0, equals)));
  const auto parts = split(text.substr(equals + 1), '|');
  line.value = std::string(trim(parts[0]));
  for (std::size_t i = 1; i < parts.size(); ++i) {
    const std::string_view part = trim(parts[i]);
    const auto after = [&](std::string_view name, std::string& value) {
      if (!part.starts_with(name)) return false;
      value = std::string(part.substr(name.size()));
      return true;
    };
    std::string number;
    if (after("count=", number)) line.count = parse_number(number).value_or(-1);
    if (after("skip=", number)) line.skip = parse_number(number).value_or(0);
    after("match=", line.match);
    after("database=", line.database);
  }
  return true;
}

}  // namespace

std::optional<std::string> Faults::take(const std::string& key, const std::string& database, const std::string& text) {
  const auto file = read_file(path_);
  if (!file) return std::nullopt;
  const auto lines = split(*file, '\n');
  const std::lock_guard guard(mutex_);
  // A line that was taken out and comes back counts from the beginning.
  std::erase_if(used_,
                [&](const auto& used) { return std::find(lines.begin(), lines.end(), used.first) == lines.end(); });
  for (const std::string& raw : lines) {
    Line line;
    if (!parse_line(raw, line) || line.key != key) continue;
    if (!line.database.empty() && line.database != database) continue;
    if (!line.match.empty() && !contains_without_case(text, line.match)) continue;
    const std::int64_t turn = used_[raw]++;
    if (turn < line.skip || (line.count >= 0 && turn >= line.skip + line.count)) continue;
    tell_met(raw);
    return line.value;
  }
  return std::nullopt;
}

void Faults::tell_met(const std::string& line) const {
  const auto met = read_file(met_path_);
  const auto lines = split(met.value_or(""), '\n');
  if (std::find(lines.begin(), lines.end(), line) == lines.end()) append_file(met_path_, line + "\n");
}

bool Faults::stands(const std::string& key) const {
  const auto file = read_file(path_);
  if (!file) return false;
  const auto lines = split(*file, '\n');
  return std::any_of(lines.begin(), lines.end(), [&key](const std::string& raw) {
    Line line;
    return parse_line(raw, line) && line.key == key;
  });
}

std::int64_t Faults::number(const std::string& key, std::int64_t otherwise, const std::string& database) {
  const auto value = take(key, database);
  return value ? parse_number(*value).value_or(otherwise) : otherwise;
}

void Faults::pause(const std::string& key, std::int64_t otherwise, const std::string& database, const std::string& text,
                   const std::function<bool()>& given_up) {
  constexpr std::int64_t step_ms = 20;
  const auto value = take(key, database, text);
  const std::int64_t wanted_ms = value ? parse_number(*value).value_or(otherwise) : otherwise;
  const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(wanted_ms);
  for (;;) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
    if (left.count() <= 0 || (value && !stands(key)) || (given_up && given_up())) return;
    sleep_ms(std::min<std::int64_t>(left.count(), step_ms));
  }
}

}  // namespace standin
