#include <CLI/CLI.hpp>

#include <algorithm>

#include "dorsal3/backup/backup_definition.h"
#include "dorsal3/log_backup/log_backup_picture.h"
#include "dorsal3/log_backup/log_backup_status.h"
#include "dorsal3/log_backup/log_queue.h"
#include "dorsal3/server/pool_choice.h"
#include "dorsal3/terminal/format.h"
#include "dorsal3/verb.h"

namespace dorsal3 {

namespace {

/// What a warning names where nobody could tell the databases.
constexpr const char* unlisted = "databases that could not be listed now";

std::string joined(const std::vector<std::string>& names) {
  std::string text;
  for (const std::string& name : names) text += (text.empty() ? "" : ", ") + name;
  return text;
}

/// A database in a table.
std::string named(const std::string& database) { return database.empty() ? "(others)" : one_line(database); }

void add_once(std::vector<std::string>& names, const std::string& name) {
  if (std::find(names.begin(), names.end(), name) == names.end()) names.push_back(name);
}

/// Switches the log backup of an instance, or of one of its databases, on and off, and shows how it stands.
class Log_Backup_Verb : public Verb {
 public:
  CLI::App* declare(CLI::App& app) override {
    CLI::App* sub =
        app.add_subcommand("log-backup", "Have HANA's logs backed up by themselves, or show whether they are");
    sub->require_subcommand(1);
    enable_ = declare_action(*sub, "enable", "Set the log backup up and switch HANA's settings on");
    enable_->add_option("--pool", pool_, "Storage pool, by name; may be left out when there is only one");
    enable_->add_option("--compression", request_.compression, "Compression of the streams")
        ->check(CLI::IsMember({"none", "auto", "lzop", "zstd"}))
        ->capture_default_str();
    enable_->add_option("--compression-level", request_.compression_level, "Level of the compression")
        ->check(CLI::Range(1, 19))
        ->capture_default_str();
    enable_->add_flag("--again", again_, "Remove it and set it up once more although it is set up");
    disable_ = declare_action(*sub, "disable", "Remove the log backup and switch HANA's settings off");
    disable_->add_flag("--force", force_, "Count it as removed although its host cannot be asked");
    declare_action(*sub, "status", "Show file, definition, settings and what waits to be recorded of each database");
    retry_ = declare_action(*sub, "retry", "Have what waits or was given up recorded now");
    drop_ = declare_action(*sub, "drop", "Take what was given up out of the queue; its objects stay on the pool");
    for (CLI::App* action : {enable_, disable_, drop_}) action->add_flag("--yes", yes_, "Go on in spite of warnings");
    return sub;
  }

  Outcome run(Context& context) override {
    Failure failure;
    if (!parse_subject(subject_text_, subject_, failure) ||
        !find_resource(context.server, subject_.instance, host_, request_.resource, failure))
      return Outcome::failed(std::move(failure));
    std::string host;
    if (!host_.empty()) {
      if (!choose_host(context.server, host_, request_.resource, failure)) return Outcome::failed(std::move(failure));
      host = request_.resource.host_uuid;
    }
    if (!read_picture(context.server, request_.resource, host, picture_, failure) || !database_exists(failure))
      return Outcome::failed(std::move(failure));
    if (enable_->parsed()) return enable(context);
    if (disable_->parsed()) return disable(context);
    if (retry_->parsed()) return retry_log_backups(context, picture_, subject_);
    if (drop_->parsed()) return drop_log_backups(context, picture_, subject_, yes_);
    return log_backup_status(context, picture_, subject_, notes_of_copies());
  }

  void print(const json_spirit::Object& model, std::ostream& out) const override {
    const bool changed = model.contains("result");
    Text_Table table(changed ? std::vector<std::string>{"HOST", "STATE", "MESSAGE"}
                             : std::vector<std::string>{"DATABASE", "HOST", "FILE", "DEFINITION", "SETTINGS", "WAITING",
                                                        "OLDEST", "GIVEN UP"});
    for (const auto& row : object_rows(model, changed ? "hosts" : "databases"))
      if (changed)
        table.add(
            {one_line(text_member(row, "host")), text_member(row, "state"), one_line(text_member(row, "message"))});
      else
        table.add({named(text_member(row, "database")), one_line(text_member(row, "host")), text_member(row, "file"),
                   one_line(text_member(row, "definition")), one_line(text_member(row, "settings")),
                   text_member(row, "waiting"), text_member(row, "oldest"), text_member(row, "given_up")});
    out << table.text();
    json_spirit::Array notes;
    (void)json_spirit::object_get(model, "notes", notes);
    for (const json_spirit::Value& note : notes) out << one_line(note.get_str()) << "\n";
    if (changed) out << one_line(text_member(model, "result")) << "\n";
  }

 private:
  CLI::App* declare_action(CLI::App& verb, const char* name, const char* help) {
    CLI::App* action = verb.add_subcommand(name, help);
    action->add_option("INSTANCE[/DATABASE]", subject_text_, "The instance (its name or uuid), or one database of it")
        ->required();
    action->add_option("--host", host_, "One host of the system only, by name or uuid; otherwise all of them");
    return action;
  }

  bool database_exists(Failure& failure) const {
    const auto& known = picture_.databases;
    if (subject_.database.empty() || !picture_.databases_error.empty() ||
        std::find(known.begin(), known.end(), subject_.database) != known.end())
      return true;
    failure = {exit_not_found, "not_found",
               "instance \"" + subject_.instance + "\" has no database \"" + subject_.database +
                   "\"; it has: " + joined(known)};
    return false;
  }

  [[nodiscard]] std::string entry() const { return log_backup_entry(request_.resource, subject_.database); }

  // --- enable

  Outcome enable(Context& context) {
    Failure failure;
    if (!choose_pool(context.server, pool_, request_.pool, failure) ||
        !go_on_in_spite(context, databases_without_file_after_enable(), failure))
      return Outcome::failed(std::move(failure));
    Outcome outcome;
    json_spirit::Array rows;
    bool all = true;
    for (Log_Backup_Host& host : picture_.hosts) {
      json_spirit::Object row;
      if (!enable_on(context, host, row, failure)) return Outcome::failed(std::move(failure));
      all = all && flag_member(row, "ok");
      if (text_member(row, "state") == "pending") outcome.exit_code = exit_unreachable;
      rows.emplace_back(std::move(row));
    }
    if (!all && outcome.exit_code == exit_ok) outcome.exit_code = exit_failed;
    outcome.model = {{"instance", request_.resource.name},
                     {"database", subject_.database},
                     {"hosts", std::move(rows)},
                     {"notes", notes_of_copies()},
                     {"result", all ? "The log backup of " + subject_text_ +
                                          " is switched on. A database's logs count from its next full backup."
                                    : "The log backup of " + subject_text_ + " is not switched on everywhere."}};
    return outcome;
  }

  /// The databases that HANA would hand to Backint although nobody takes their logs.
  [[nodiscard]] std::vector<std::string> databases_without_file_after_enable() const {
    std::vector<std::string> left;
    if (subject_.database.empty()) return left;
    if (!picture_.databases_error.empty()) left.emplace_back(unlisted);
    for (const std::string& database : picture_.databases)
      if (database != subject_.database && !on_every_host(database)) left.push_back(database);
    return left;
  }

  [[nodiscard]] bool on_every_host(const std::string& database) const {
    json_spirit::Object file;
    return std::all_of(picture_.hosts.begin(), picture_.hosts.end(), [&](const Log_Backup_Host& host) {
      return !host.error.empty() || host.find_file(database, file);
    });
  }

  bool enable_on(Context& context, Log_Backup_Host& host, json_spirit::Object& row, Failure& failure) {
    Log_Backup_Request request = request_;
    request.resource.host_uuid = host.uuid;
    request.host_name = host.name;
    request.database = subject_.database;
    json_spirit::Object definition = log_backup_definition(request);
    if (const auto known = picture_.definitions_of(entry(), host.uuid); !known.empty())
      definition["id"] = text_member(known.front(), "id");
    json_spirit::Object stored;
    const auto post = [&](const std::string& path, const json_spirit::Object& body) {
      return context.server.post(path, body, stored, failure, Server_Client::agent_timeout);
    };
    const bool was_installed = is_installed(text_member(definition, "id"));
    if (!post("/job-definitions", definition)) return false;
    read_host(context.server, request.resource, host);
    // What is set up is left alone by its agent, also where HANA's settings were changed since.
    const bool stale = was_installed && Setup_View(stored).installed() && (again_ || !works_on(host));
    if (stale) {
      if (!post("/job-definitions/" + text_member(definition, "id") + "/setup", json_spirit::Object())) return false;
      read_host(context.server, request.resource, host);
    }
    row = result_row(host, Setup_View(stored));
    return true;
  }

  [[nodiscard]] bool is_installed(const std::string& id) const {
    const json_spirit::Object* const known = picture_.definition(id);
    return known != nullptr && Setup_View(*known).installed();
  }

  /// What keeps the logs of one of the databases from the pool; "" for nothing.
  [[nodiscard]] std::string lack_on(const Log_Backup_Host& host) const {
    if (!host.open()) return {};
    if (!subject_.database.empty()) return host.lacks(subject_.database);
    if (picture_.databases.empty()) return host.lacks("");
    for (const std::string& database : picture_.databases)
      if (const std::string lack = host.lacks(database); !lack.empty()) return lack + " in database " + database;
    return {};
  }

  [[nodiscard]] bool works_on(const Log_Backup_Host& host) const {
    json_spirit::Object file;
    return !host.error.empty() ||
           (host.find_file(subject_.database, file) && text_member(file, "problem").empty() && lack_on(host).empty());
  }

  json_spirit::Object result_row(const Log_Backup_Host& host, const Setup_View& setup) const {
    std::string message = setup.message;
    const auto add = [&message](const std::string& text) { message += (message.empty() ? "" : "; ") + text; };
    const std::string lack = setup.installed() ? lack_on(host) : "";
    if (!lack.empty())
      add("HANA's settings could not be changed, " + lack + "; see: dorsal3 check " + subject_.instance);
    if (setup.installed() && !host.error.empty()) add("HANA's settings could not be read back: " + host.error);
    if (setup.installed() && host.error.empty() && !host.open())
      add("the instance does not run there as the primary; HANA's settings are changed when it does, by: dorsal3 "
          "log-backup enable " +
          subject_text_);
    return {{"host", host.name},    {"host_uuid", host.uuid},
            {"state", setup.state}, {"ok", setup.installed() && lack.empty()},
            {"open", host.open()},  {"message", message}};
  }

  /// The operator decides where the switches, which are those of the whole system, leave databases without a log
  /// backup.
  bool go_on_in_spite(Context& context, const std::vector<std::string>& left, Failure& failure) const {
    if (left.empty() || yes_) return true;
    const std::string warning = "HANA's switches act on the whole system: the logs of " + joined(left) +
                                " go to Backint too, where no log backup takes them, so that they fail";
    const bool may_ask = !context.json && context.terminal.input_is_terminal && context.terminal.output_is_terminal;
    std::string answer;
    if (may_ask) {
      context.notes << warning << ". Go on? [y/N] " << std::flush;
      if (read_line(answer) && (answer == "y" || answer == "yes")) return true;
    }
    failure = {exit_usage, "usage",
               warning + "; nothing was changed. Say --yes to go on" +
                   (subject_.database.empty()
                        ? std::string()
                        : ", or act on the whole instance: dorsal3 log-backup " +
                              std::string(enable_->parsed() ? "enable " : "disable ") + subject_.instance)};
    return false;
  }

  // --- disable

  Outcome disable(Context& context) {
    Failure failure;
    const std::string host = picture_.hosts.size() == 1 ? picture_.hosts.front().uuid : "";
    const auto definitions = picture_.definitions_of(entry(), host);
    if (definitions.empty()) {
      failure = {exit_not_found, "not_found",
                 subject_text_ + " has no log backup of its own; see: dorsal3 log-backup status " + subject_.instance};
      return Outcome::failed(std::move(failure));
    }
    if (!go_on_in_spite(context, databases_left_by(definitions), failure)) return Outcome::failed(std::move(failure));
    Outcome outcome;
    json_spirit::Array rows;
    for (const auto& definition : definitions) {
      json_spirit::Object answer;
      const std::string path = "/job-definitions/" + text_member(definition, "id") + (force_ ? "?force=1" : "");
      if (!context.server.remove(path, answer, failure)) return Outcome::failed(std::move(failure));
      const Setup_View setup(answer);
      if (!setup.removed()) outcome.exit_code = setup.pending() ? exit_unreachable : exit_failed;
      rows.emplace_back(json_spirit::Object{{"host", host_name(text_member(definition, "host_uuid"))},
                                            {"host_uuid", text_member(definition, "host_uuid")},
                                            {"state", setup.state},
                                            {"ok", setup.removed()},
                                            {"message", setup.message}});
    }
    json_spirit::Array notes = notes_of_copies();
    for (const Log_Backup_Host& one : picture_.hosts)
      if (const auto systems = one.other_systems(); !systems.empty())
        notes.emplace_back(one.name + ": while another system (" + joined(systems) +
                           ") has a log backup on this host, HANA's settings stay on; switch them off in global.ini");
    outcome.model = {
        {"instance", request_.resource.name},
        {"database", subject_.database},
        {"hosts", std::move(rows)},
        {"notes", std::move(notes)},
        {"result", outcome.exit_code == exit_ok ? "The log backup of " + subject_text_ + " is removed."
                                                : "The log backup of " + subject_text_ +
                                                      " is not removed everywhere; the server goes on trying."}};
    return outcome;
  }

  /// The databases whose file goes while another one, of any system of the host, keeps HANA's switches on.
  [[nodiscard]] std::vector<std::string> databases_left_by(const std::vector<json_spirit::Object>& definitions) const {
    const auto goes = [&](const json_spirit::Object& file) {
      return std::any_of(definitions.begin(), definitions.end(), [&](const auto& definition) {
        return text_member(definition, "id") == text_member(file, "definition_uuid");
      });
    };
    std::vector<std::string> left;
    for (const Log_Backup_Host& host : picture_.hosts) {
      const auto files = object_rows(host.status, "files");
      const auto stays = [&](const json_spirit::Object& file) { return flag_member(file, "live") && !goes(file); };
      const auto covers_all = [&](const json_spirit::Object& file) {
        return stays(file) && text_member(file, "database").empty();
      };
      // The files of another system keep this one's switches on too.
      if (host.other_systems().empty() && std::none_of(files.begin(), files.end(), stays)) continue;
      if (!picture_.databases_error.empty() && std::none_of(files.begin(), files.end(), covers_all))
        add_once(left, unlisted);
      for (const std::string& database : picture_.databases) {
        const bool kept = std::any_of(files.begin(), files.end(), [&](const auto& file) {
          return covers_all(file) || (stays(file) && text_member(file, "database") == database);
        });
        if (!kept) add_once(left, database);
      }
    }
    return left;
  }

  [[nodiscard]] std::string host_name(const std::string& uuid) const {
    for (const Log_Backup_Host& host : picture_.hosts)
      if (host.uuid == uuid) return host.name;
    return uuid;
  }

  [[nodiscard]] json_spirit::Array notes_of_copies() const {
    json_spirit::Array notes;
    for (const Log_Backup_Host& host : picture_.hosts)
      for (const std::string& path : host.copies())
        notes.emplace_back(host.name + ": the copy " + path +
                           " was set aside when another log backup took its place; while it lies there its definition "
                           "counts as installed and is not set up again; remove it when you do not need it");
    return notes;
  }

  std::string subject_text_;
  std::string host_;
  std::string pool_;
  bool yes_ = false;
  bool again_ = false;
  bool force_ = false;
  CLI::App* enable_ = nullptr;
  CLI::App* disable_ = nullptr;
  CLI::App* retry_ = nullptr;
  CLI::App* drop_ = nullptr;
  Backup_Subject subject_;
  Log_Backup_Request request_;
  Log_Backup_Picture picture_;
};

}  // namespace

std::unique_ptr<Verb> make_log_backup_verb() { return std::make_unique<Log_Backup_Verb>(); }

}  // namespace dorsal3
