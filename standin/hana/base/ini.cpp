#include "base/ini.h"

#include <algorithm>

#include "base/clock.h"
#include "base/files.h"
#include "base/text.h"

namespace standin {

Ini Ini::parse(std::string_view text) {
  Ini ini;
  std::string section;
  for (const std::string& raw : split(text, '\n')) {
    const std::string_view line = trim(raw);
    if (line.empty() || line.front() == '#') continue;
    if (line.front() == '[' && line.back() == ']') {
      section = std::string(trim(line.substr(1, line.size() - 2)));
      continue;
    }
    const std::size_t equals = line.find('=');
    if (equals == std::string_view::npos) continue;
    ini.set(section, std::string(trim(line.substr(0, equals))), std::string(trim(line.substr(equals + 1))));
  }
  return ini;
}

Ini Ini::load(const std::string& path) { return parse(read_file(path).value_or(std::string())); }

std::string Ini::get(std::string_view section, std::string_view key, std::string_view otherwise) const {
  for (const Entry& entry : entries_)
    if (entry.section == section && entry.key == key) return entry.value;
  return std::string(otherwise);
}

bool Ini::has(std::string_view section, std::string_view key) const {
  return std::any_of(entries_.begin(), entries_.end(),
                     [&](const Entry& entry) { return entry.section == section && entry.key == key; });
}

void Ini::set(const std::string& section, const std::string& key, const std::string& value) {
  for (Entry& entry : entries_)
    if (entry.section == section && entry.key == key) {
      entry.value = value;
      return;
    }
  const auto behind =
      std::find_if(entries_.rbegin(), entries_.rend(), [&](const Entry& entry) { return entry.section == section; });
  entries_.insert(behind == entries_.rend() ? entries_.end() : behind.base(), {section, key, value});
}

void Ini::unset(std::string_view section, std::string_view key) {
  std::erase_if(entries_, [&](const Entry& entry) { return entry.section == section && entry.key == key; });
}

bool Ini::save(const std::string& path, const std::string& name, const std::string& who) const {
  std::string text =
      "# " + name + " last modified " + local_time_text(now_ms(), "%Y-%m-%d %H:%M:%S") + " by " + who + "\n";
  const std::string* section = nullptr;
  for (const Entry& entry : entries_) {
    if (section == nullptr || *section != entry.section) text += "\n[" + entry.section + "]\n";
    section = &entry.section;
    text += entry.key + " = " + entry.value + "\n";
  }
  return write_file(path, text);
}

}  // namespace standin
