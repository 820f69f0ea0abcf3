#include "hana/common/ini_file.h"

#include "hana/common/hana_paths.h"
#include "platform/files.h"
#include "platform/log.h"

namespace sap_hana {

namespace {

std::string_view trim(std::string_view text) {
  constexpr std::string_view blanks = " \t\r";
  const std::size_t first = text.find_first_not_of(blanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

}  // namespace

Ini_File Ini_File::parse(std::string_view text) {
  Ini_File ini;
  std::map<std::string, std::string>* current = nullptr;
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    const std::string_view line = trim(text.substr(0, end));
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    if (line.empty() || line.front() == '#' || line.front() == ';') continue;
    if (line.front() == '[') {
      const std::size_t close = line.find(']');
      current =
          close == std::string_view::npos ? nullptr : &ini.sections_[std::string(trim(line.substr(1, close - 1)))];
      continue;
    }
    const std::size_t equals = line.find('=');
    if (current == nullptr || equals == std::string_view::npos) continue;
    (*current)[std::string(trim(line.substr(0, equals)))] = trim(line.substr(equals + 1));
  }
  return ini;
}

const std::map<std::string, std::string>* Ini_File::section(const std::string& name) const {
  const auto found = sections_.find(name);
  return found == sections_.end() ? nullptr : &found->second;
}

const std::string* Ini_File::find(const std::string& section_name, const std::string& key) const {
  const auto* keys = section(section_name);
  if (keys == nullptr) return nullptr;
  const auto found = keys->find(key);
  return found == keys->end() ? nullptr : &found->second;
}

bool read_system_configuration(const std::string& sid, const char* file, Ini_File& ini) {
  if (!is_sid(sid)) {
    D3_ERROR("'%C' is not a HANA system id: a capital letter and two more capital letters or digits are expected\n",
             platform::cut_for_log(sid).c_str());
    return false;
  }
  const std::string path = system_configuration(sid, file);
  std::string text;
  if (!platform::read_file(path, text)) {
    D3_ERROR("Failed to read the configuration of HANA system %C, file '%C': %m\n", sid.c_str(), path.c_str());
    return false;
  }
  ini = Ini_File::parse(text);
  return true;
}

}  // namespace sap_hana
