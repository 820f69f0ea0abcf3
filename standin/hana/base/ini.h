#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace standin {

/// HANA's ini files: "[section]", "key = value", '#' comments.
class Ini {
 public:
  struct Entry {
    std::string section, key, value;
  };
  static Ini parse(std::string_view text);
  static Ini load(const std::string& path);
  [[nodiscard]] std::string get(std::string_view section, std::string_view key, std::string_view otherwise = {}) const;
  [[nodiscard]] bool has(std::string_view section, std::string_view key) const;
  void set(const std::string& section, const std::string& key, const std::string& value);
  void unset(std::string_view section, std::string_view key);
  [[nodiscard]] const std::vector<Entry>& entries() const { return entries_; }
  /// With HANA's first line "# <name> last modified <time> by <who>".
  [[nodiscard]] bool save(const std::string& path, const std::string& name, const std::string& who) const;

 private:
  std::vector<Entry> entries_;
};

}  // namespace standin
