#pragma once

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "engine/system_state.h"

namespace standin {

/// The catalog backups that follow data and log backups, one at a time in a database: with Backint they all have the
/// same pipe. Safe for all threads.
class Catalog_Backups {
 public:
  explicit Catalog_Backups(std::function<std::int64_t()> next_id) : next_id_(std::move(next_id)) {}
  /// `id`: the one of the backup before it, or nothing for a new one.
  void write(System_State& state, const std::string& database, std::optional<std::int64_t> id);

 private:
  std::mutex& turn_of(const std::string& database);
  std::function<std::int64_t()> next_id_;
  std::mutex mutex_;
  std::map<std::string, std::unique_ptr<std::mutex>> turns_;
};

}  // namespace standin
