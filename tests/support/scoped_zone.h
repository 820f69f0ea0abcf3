#pragma once

#include <cstdlib>
#include <ctime>
#include <optional>
#include <string>

namespace support {

/// Local time of another zone for one scope, such as "Asia/Tokyo": what is written must not depend on it.
class Scoped_Zone {
 public:
  explicit Scoped_Zone(const char* zone) {
    if (const char* before = std::getenv("TZ")) before_ = before;
    ::setenv("TZ", zone, 1);
    ::tzset();
  }
  ~Scoped_Zone() {
    if (before_)
      ::setenv("TZ", before_->c_str(), 1);
    else
      ::unsetenv("TZ");
    ::tzset();
  }
  Scoped_Zone(const Scoped_Zone&) = delete;
  Scoped_Zone& operator=(const Scoped_Zone&) = delete;

 private:
  std::optional<std::string> before_;
};

}  // namespace support
