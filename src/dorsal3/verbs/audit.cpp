#include <CLI/CLI.hpp>

#include <algorithm>

#include "dorsal3/server/resources.h"
#include "dorsal3/terminal/format.h"
#include "dorsal3/verb.h"

namespace dorsal3 {

namespace {

constexpr const char* create_method = "hana.database.create";
constexpr const char* drop_method = "log_backup.drop";
constexpr const char* retry_method = "log_backup.retry";
constexpr unsigned default_entries = 50;
constexpr unsigned most_entries = 10'000;

/// What the action was about, as a person says it.
std::string subject_text(const json_spirit::Object& entry) {
  const std::string action = text_member(entry, "action");
  if (text_member(entry, "method") == create_method)
    return "create " + text_member(entry, "database") + " in " + text_member(entry, "sid") + " " +
           text_member(entry, "instance_name");
  if (const std::string method = text_member(entry, "method"); method == drop_method || method == retry_method)
    return (method == drop_method ? "drop log backups of " : "retry log backups of ") + text_member(entry, "sid") +
           "/" + text_member(entry, "database");
  if (!action.empty()) return action + " " + text_member(entry, "sid") + " " + text_member(entry, "instance_name");
  return text_member(entry, "origin_sid") + "/" + text_member(entry, "origin_database") + " to " +
         text_member(entry, "target_sid") + "/" + text_member(entry, "target_database");
}

/// Shows who asked for which action on which host, newest last.
class Audit_Verb : public Verb {
 public:
  CLI::App* declare(CLI::App& app) override {
    CLI::App* sub =
        app.add_subcommand("audit", "Show who started, stopped, created and dropped what, and what was refused");
    sub->add_option("--limit", limit_, "So many of the newest entries")
        ->check(CLI::Range(1U, most_entries))
        ->capture_default_str();
    sub->add_option("--host", host_, "Actions on this host only (its name or uuid)");
    return sub;
  }

  Outcome run(Context& context) override {
    Failure failure;
    std::map<std::string, std::string> names;
    if (!host_names(context.server, names, failure)) return Outcome::failed(std::move(failure));
    std::string path = "/audit?order=desc&limit=" + std::to_string(limit_);
    if (!host_.empty()) path += "&" + query_pair("host_uuid", uuid_of(names));
    std::vector<json_spirit::Object> entries;
    if (!context.server.get_rows(path, entries, failure)) return Outcome::failed(std::move(failure));
    std::reverse(entries.begin(), entries.end());
    for (json_spirit::Object& entry : entries) entry["host"] = names[text_member(entry, "host_uuid")];
    Outcome outcome;
    outcome.model["audit"] = to_array(entries);
    return outcome;
  }

  void print(const json_spirit::Object& model, std::ostream& out) const override {
    const auto entries = object_rows(model, "audit");
    if (entries.empty()) {
      out << "Nothing was started, stopped, created, staged, retried or dropped through this server.\n";
      return;
    }
    Text_Table table({"TIME", "ROLE", "KEY_ID", "HOST", "METHOD", "ACTION", "RESULT", "MESSAGE"});
    for (const auto& entry : entries) {
      const std::string host = text_member(entry, "host");
      table.add({one_line(text_member(entry, "time")), one_line(text_member(entry, "role")),
                 one_line(text_member(entry, "key_id")),
                 one_line(host.empty() ? text_member(entry, "host_uuid") : host),
                 one_line(text_member(entry, "method")), one_line(subject_text(entry)),
                 one_line(text_member(entry, "result")), one_line(text_member(entry, "message"))});
    }
    out << table.text();
  }

 private:
  /// Of the host that was named; what is no name is taken for the uuid itself.
  [[nodiscard]] std::string uuid_of(const std::map<std::string, std::string>& names) const {
    for (const auto& [uuid, name] : names)
      if (name == host_) return uuid;
    return host_;
  }

  unsigned limit_ = default_entries;
  std::string host_;
};

}  // namespace

std::unique_ptr<Verb> make_audit_verb() { return std::make_unique<Audit_Verb>(); }

}  // namespace dorsal3
