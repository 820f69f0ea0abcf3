#pragma once

#include <string>

namespace system_tests {

inline constexpr const char* product_directory = "/opt/tarvex/dorsal3";
inline constexpr const char* configuration_directory = "/etc/opt/tarvex/dorsal3";
/// How long a program may take until it has ended after it was told to.
inline constexpr int stop_limit_seconds = 180;

[[nodiscard]] std::string slurp(const std::string& path);

/// The product as it is installed below a root: paths are documented ones, "/opt/...".
class Installed_Product {
 public:
  explicit Installed_Product(std::string root) : root_(std::move(root)) {}
  /// Places programs, library and module; what is there already stays.
  void install() const;
  [[nodiscard]] std::string real(const std::string& documented) const { return root_ + documented; }
  [[nodiscard]] std::string program(const std::string& name) const { return real(product_directory) + "/bin/" + name; }
  /// A file that only its owner may read.
  void write(const std::string& documented, const std::string& text) const;
  /// A file of the configuration directory.
  void configure(const std::string& name, const std::string& text) const {
    write(std::string(configuration_directory) + "/" + name, text);
  }

 private:
  std::string root_;
};

}  // namespace system_tests
