#pragma once

#include <string>

#include "json/value.h"

// Who may ask what of an agent's module: backupd looks before it hands a request on, and the agent before it runs it.
// docs/backupd-api.md has the same as a table.

/// In whose name a request reaches an agent; the "requester" of the request's JSON-RPC message.
struct Requester {
  enum Role { nobody, viewer, oper, agent };
  Role role = nobody;
  std::string host_uuid;  ///< of an agent

  /// {"role": "viewer" | "operator" | "agent", "host_uuid"?}
  [[nodiscard]] json_spirit::Value to_json() const;
  /// Whoever the value does not name is nobody.
  [[nodiscard]] static Requester from_json(const json_spirit::Value& value);
};

/// Whether a method belongs to a module's handler.
[[nodiscard]] bool is_module_method(const std::string& method);

/// Whether a request is made in somebody's name, so that the rights below are asked: those to modules, and
/// "staged.remove" of the agent itself.
[[nodiscard]] bool needs_right(const std::string& method);

/// Whether it lists instances or, by the registered name in "instance", the databases of one; the handler does not look
/// which of the two was asked.
[[nodiscard]] bool is_list_method(const std::string& method);

/// Whether it leaves the description of a restore on the host, or removes it, for the system "target_sid". Agents alone
/// may ask for that.
[[nodiscard]] bool is_staging_method(const std::string& method);

/// Whether the request changes something on the host: starts or stops an instance, creates a database, or leaves a
/// file.
[[nodiscard]] bool is_control_action(const std::string& method, const json_spirit::Value& params);

/// A viewer may see lists and states, an operator may start and stop instances and create databases too, an agent may
/// see, start and stop, and leave the description of a restore. Of an agent only hosts of its own systems may be asked:
/// that is backupd's to know.
[[nodiscard]] bool may_ask(Requester::Role role, const std::string& method, const json_spirit::Value& params);
