#pragma once

#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

#include "dorsal3/outcome.h"
#include "dorsal3/server/server_client.h"
#include "dorsal3/terminal/terminal.h"
#include "json/value.h"

namespace CLI {
class App;
}

namespace dorsal3 {

/// What a verb works with.
struct Context {
  Server_Client& server;
  const Terminal& terminal;
  std::ostream& out;    ///< for live progress only; the result goes through Outcome::model
  std::ostream& notes;  ///< standard error: notes to the person, never part of the result
  bool json = false;    ///< nothing may be written to `out` but the result

  /// Where progress and notes of a run that is being watched go.
  [[nodiscard]] std::ostream& live() const { return json ? notes : out; }
};

/// One verb of the command: its options, its work, and how its model reads as text.
class Verb {
 public:
  virtual ~Verb() = default;
  /// Adds the subcommand with its options; the options are stored in this object when the line is parsed.
  virtual CLI::App* declare(CLI::App& app) = 0;
  virtual Outcome run(Context& context) = 0;
  virtual void print(const json_spirit::Object& model, std::ostream& out) const = 0;
};

[[nodiscard]] std::unique_ptr<Verb> make_audit_verb();
[[nodiscard]] std::unique_ptr<Verb> make_backup_verb();
[[nodiscard]] std::unique_ptr<Verb> make_check_verb();
[[nodiscard]] std::unique_ptr<Verb> make_databases_verb();
[[nodiscard]] std::unique_ptr<Verb> make_discover_verb();
[[nodiscard]] std::unique_ptr<Verb> make_info_verb();
[[nodiscard]] std::unique_ptr<Verb> make_instance_verb();
[[nodiscard]] std::unique_ptr<Verb> make_instances_verb();
[[nodiscard]] std::unique_ptr<Verb> make_jobs_verb();
[[nodiscard]] std::unique_ptr<Verb> make_log_backup_verb();
[[nodiscard]] std::unique_ptr<Verb> make_logon_verb();
[[nodiscard]] std::unique_ptr<Verb> make_pools_verb();
[[nodiscard]] std::unique_ptr<Verb> make_restore_verb();
[[nodiscard]] std::unique_ptr<Verb> make_stop_verb();
[[nodiscard]] std::unique_ptr<Verb> make_verify_verb();

/// All of them, in the order of the help text.
[[nodiscard]] std::vector<std::unique_ptr<Verb>> make_all_verbs();

}  // namespace dorsal3
