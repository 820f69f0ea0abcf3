#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "backupd/identity.h"
#include "backupd/outcome.h"
#include "backupd/store/database.h"
#include "backupd/store/list_query.h"
#include "json/value.h"

namespace backupd {

/// Who asked for what on which host, and what came of it: every action that changes something on a host, or which of
/// its backups are kept. Which refusals stand there too: docs/formats/audit-entry.md. The newest entries are kept,
/// `kept_entries` of them. Safe from any thread.
class Audit_Store {
 public:
  static constexpr std::int64_t kept_entries = 100'000;

  explicit Audit_Store(Database& database) : database_(database) {}

  /// Notes an action before it is handed to the agent. Of the params the names of what it is about are kept and nothing
  /// else: the rest may hold keys. False when it cannot be stored, the action must then not be done.
  [[nodiscard]] bool begin(const Identity& who, const std::string& host_uuid, const std::string& method,
                           const json_spirit::Value& params, std::int64_t& id);
  /// Notes what came of it: `result` is "done", "failed" or "refused".
  [[nodiscard]] bool end(std::int64_t id, const char* result, const std::string& message);

  /// Does what this server does itself between the two: `action` fills the entry's message. Its outcome, or a refusal
  /// when the entry cannot be written, and nothing was done then.
  using Action = std::function<Outcome(std::string& message)>;
  [[nodiscard]] Outcome with_entry(const Identity& who, const std::string& host_uuid, const std::string& method,
                                   const json_spirit::Value& params, const Action& action);

  [[nodiscard]] bool list(const List_Query& query, List_Page& page);

 private:
  Database& database_;
};

}  // namespace backupd
