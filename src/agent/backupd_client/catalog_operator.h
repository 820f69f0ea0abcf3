#pragma once

#include <string>

#include "json/value.h"
#include "records/backup_set.h"

/// Backup sets and catalog queries of backupd. Each call opens a session of its own; any thread.
class Catalog_Operator {
 public:
  /// Longest time a call may go on trying; more is cut to it.
  static constexpr int max_retry_seconds = 24 * 60 * 60;

  /// `retries`: -1 for the session's default. `retry_seconds` is clamped to [0, max_retry_seconds].
  Catalog_Operator(int retries, int retry_seconds);

  /// Asks the view `view` of `module`. True with an object in `result`; false otherwise, with the cause logged.
  [[nodiscard]] bool get_view(const std::string& module, const std::string& view, const json_spirit::Object& params,
                              json_spirit::Value& result) const;

  /// Commits `set`: true when it is on backupd's disk. That is what `durable` asks for; backupd never answers earlier,
  /// so false makes no difference. Committing a set again whose objects are stored already succeeds and changes
  /// nothing. False with the cause logged.
  [[nodiscard]] bool commit(const Backup_Set& set, bool durable) const;

 private:
  int retries_;
  int retry_seconds_;
};
