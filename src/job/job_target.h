#pragma once

#include <string>

/// Where a job writes to: a storage pool, of a restore the system that is restored into.
class Job_Target {
 public:
  void id(const std::string& id) { id_ = id; }
  /// Uuid of the pool, or of the resource of that system.
  [[nodiscard]] const std::string& id() const { return id_; }
  void location(const std::string& location) { location_ = location; }
  /// URL of the pool: "file:///dir" or "http(s)://host:port/q5/pools/<uuid>". Paths are relative to it.
  /// Empty for a system.
  [[nodiscard]] const std::string& location() const { return location_; }

 private:
  std::string id_;
  std::string location_;
};
