#include "agentd/restore/staged_name.h"

#include <charconv>
#include <vector>

#include "platform/files.h"

namespace agentd {

namespace {

constexpr char separator = '_';
constexpr char escape = '%';
constexpr std::size_t escape_digits = 2;
constexpr int hexadecimal = 16;
constexpr const char* ending = ".json";
constexpr std::size_t part_count = 4;

/// What platform::encode_file_name gave; anything for another text.
std::string decode(const std::string& text) {
  std::string plain;
  for (std::size_t i = 0; i < text.size(); ++i) {
    unsigned char byte = 0;
    const char* const digits = text.data() + i + 1;
    if (text[i] == escape && i + escape_digits < text.size() &&
        std::from_chars(digits, digits + escape_digits, byte, hexadecimal).ptr == digits + escape_digits) {
      plain += static_cast<char>(byte);
      i += escape_digits;
    } else {
      plain += text[i];
    }
  }
  return plain;
}

std::vector<std::string> split(const std::string& text) {
  std::vector<std::string> parts(1);
  for (const char c : text) {
    if (c == separator)
      parts.emplace_back();
    else
      parts.back() += c;
  }
  return parts;
}

std::string encoded(const std::string& name) { return platform::encode_file_name(name); }

}  // namespace

std::string Staged_Name::origin_start() const {
  return staged_catalog_start + encoded(origin_sid) + separator + encoded(origin_database) + separator;
}

std::string Staged_Name::catalog_file() const {
  return origin_start() + encoded(target_sid) + separator + encoded(target_database) + ending;
}

std::string Staged_Name::restore_file() const {
  return staged_restore_start + encoded(target_sid) + separator + encoded(target_database) + ending;
}

json_spirit::Object Staged_Name::params() const {
  return {{"origin_sid", origin_sid},
          {"origin_database", origin_database},
          {"target_sid", target_sid},
          {"target_database", target_database}};
}

bool Staged_Name::from_file(const std::string& file, Staged_Name& name) {
  const std::string start = staged_catalog_start;
  if (!file.starts_with(start) || !file.ends_with(ending) || file.size() < start.size() + std::string(ending).size())
    return false;
  const std::vector<std::string> parts =
      split(file.substr(start.size(), file.size() - start.size() - std::string(ending).size()));
  if (parts.size() != part_count) return false;
  Staged_Name read{decode(parts[0]), decode(parts[1]), decode(parts[2]), decode(parts[3])};
  // Anything else was not written by a restore.
  if (read.catalog_file() != file) return false;
  name = std::move(read);
  return true;
}

bool Staged_Name::from_params(const json_spirit::Object& params, Staged_Name& name, std::string& error) {
  Staged_Name read;
  const struct {
    const char* key;
    std::string& text;
  } members[] = {{"origin_sid", read.origin_sid},
                 {"origin_database", read.origin_database},
                 {"target_sid", read.target_sid},
                 {"target_database", read.target_database}};
  for (const auto& member : members) {
    if (json_spirit::object_get(params, member.key, member.text) && !member.text.empty()) continue;
    error = std::string("\"") + member.key + "\" is needed";
    return false;
  }
  name = std::move(read);
  return true;
}

}  // namespace agentd
