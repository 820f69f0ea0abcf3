#pragma once

#include <string>

/// Where a job writes to or reads from: a storage pool.
class Job_Target {
 public:
  void id(const std::string& id) { id_ = id; }
  /// Uuid of the pool.
  [[nodiscard]] const std::string& id() const { return id_; }
  void location(const std::string& location) { location_ = location; }
  /// URL of the pool: "file:///dir" or "http(s)://host:port/q5/pools/<uuid>". Paths are relative to it.
  [[nodiscard]] const std::string& location() const { return location_; }

 private:
  std::string id_;
  std::string location_;
};
