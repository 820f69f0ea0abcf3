#pragma once

#include <map>
#include <string>
#include <string_view>

namespace sap_hana {

/// A configuration file of HANA: sections of "key = value" lines. A key set twice has its last value.
class Ini_File {
 public:
  /// Reads a text; lines that are none of section, key and comment are skipped.
  [[nodiscard]] static Ini_File parse(std::string_view text);

  /// Null when there is no such section or key.
  [[nodiscard]] const std::string* find(const std::string& section, const std::string& key) const;
  /// Null when there is no such section.
  [[nodiscard]] const std::map<std::string, std::string>* section(const std::string& name) const;

 private:
  std::map<std::string, std::map<std::string, std::string>> sections_;
};

/// Reads a file of a system's own configuration layer, such as "global.ini". False, with a message, when it cannot be
/// read or when `sid` is not a system id.
[[nodiscard]] bool read_system_configuration(const std::string& sid, const char* file, Ini_File& ini);

}  // namespace sap_hana
