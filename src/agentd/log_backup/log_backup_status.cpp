#include "agentd/log_backup/log_backup_status.h"

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "agentd/instances/installation_check.h"
#include "agentd/jobs/job_table.h"
#include "agentd/log_backup/log_backup_files.h"
#include "agentd/log_backup/log_backup_settings.h"
#include "platform/files.h"
#include "platform/log.h"
#include "platform/product_paths.h"

namespace agentd {

namespace {

constexpr const char* row_name = "log backup";
constexpr const char* state_open = "open";
constexpr std::string_view database_folder = "DB_";

struct Database_Settings {
  std::string name;
  Log_Backup_Settings settings;
};

/// All that is known, before it is told in one form or the other.
struct Findings {
  std::string sid;
  std::vector<Log_Backup_File> files;  ///< of this instance
  std::vector<std::string> other_systems;
  Log_Backup_Settings system;
  std::vector<Database_Settings> databases;  ///< those with settings of their own

  [[nodiscard]] const Log_Backup_File* live_file(const std::string& database) const {
    const auto found = std::find_if(files.begin(), files.end(), [&](const Log_Backup_File& file) {
      return file.live && file.database == database;
    });
    return found == files.end() ? nullptr : &*found;
  }
  [[nodiscard]] bool any_live() const {
    return std::any_of(files.begin(), files.end(), [](const Log_Backup_File& file) { return file.live; });
  }
};

/// By its name where the file cannot be read: the parts before the database are those of this instance.
bool belongs(const Log_Backup_File& file, const std::string& sid, const std::string& instance_name) {
  if (file.problem.empty()) return file.sid == sid && file.instance_name == instance_name;
  const std::string start =
      "log_backup_" + platform::encode_file_name(sid) + "_" + platform::encode_file_name(instance_name);
  const std::string name = file.path.substr(file.path.rfind('/') + 1);
  return name.starts_with(start) &&
         (name.size() == start.size() || name[start.size()] == '_' || name[start.size()] == '.');
}

bool read_databases(Findings& findings, std::string& error) {
  const std::string directory = "/usr/sap/" + findings.sid + "/SYS/global/hdb/custom/config";
  std::vector<std::string> names;
  if (!platform::is_directory(directory.c_str()) || !platform::list_directory(directory, names)) return true;
  for (const std::string& name : names) {
    if (!name.starts_with(database_folder)) continue;
    Database_Settings database{name.substr(database_folder.size()), {}};
    if (!read_log_backup_settings(findings.sid, database.name, database.settings, error)) return false;
    findings.databases.push_back(std::move(database));
  }
  return true;
}

bool find(const Instance& instance, Findings& findings, std::string& error) {
  std::string instance_name;
  json_spirit::object_get(instance.options, "sid", findings.sid);
  json_spirit::object_get(instance.options, "instance_name", instance_name);
  // It becomes a part of paths.
  if (findings.sid.empty() || platform::encode_file_name(findings.sid) != findings.sid || instance_name.empty()) {
    error = "the record of the instance lacks system id and name; run discover again";
    return false;
  }
  std::vector<Log_Backup_File> files;
  if (!list_log_backup_files(files, error)) return false;
  std::set<std::string> others;
  for (Log_Backup_File& file : files) {
    if (belongs(file, findings.sid, instance_name))
      findings.files.push_back(std::move(file));
    else if (file.live && !file.sid.empty() && file.sid != findings.sid)
      others.insert(file.sid);
  }
  findings.other_systems.assign(others.begin(), others.end());
  return read_log_backup_settings(findings.sid, "", findings.system, error) && read_databases(findings, error);
}

json_spirit::Object to_json(const Log_Backup_File& file) {
  return {{"path", file.path},
          {"live", file.live},
          {"database", file.database},
          {"definition_uuid", file.definition_id},
          {"problem", file.problem}};
}

json_spirit::Object good(const std::string& message) { return check_row(row_name, true, message); }
json_spirit::Object bad(const std::string& message) { return check_row(row_name, false, message); }

std::string set_it_up(const Instance& instance) { return "run: dorsal3 log-backup enable " + instance.name; }

/// Whether what the system hands over goes to a Backint agent that is not this product's.
bool another_agent_is_linked(const std::string& sid) {
  const std::string path = "/usr/sap/" + sid + "/SYS/global/hdb/opt/hdbbackint";
  char buffer[platform::path_buffer_bytes];
  if (!platform::is_symbolic_link(path.c_str())) return platform::is_regular_file(path.c_str());
  const ssize_t length = platform::read_link(path.c_str(), buffer, sizeof buffer);
  return length <= 0 ||
         std::string_view(buffer, static_cast<std::size_t>(length)) != platform::product_paths::program("hdbbackint");
}

/// The first thing that keeps logs which are to be backed up from it; empty when nothing does.
std::string lacking(const Findings& findings) {
  if (!findings.system.on()) return findings.system.lacks();
  for (const Database_Settings& database : findings.databases) {
    const bool covered = findings.live_file("") != nullptr || findings.live_file(database.name) != nullptr;
    if (covered && !database.settings.on()) return database.settings.lacks() + " in database " + database.name;
  }
  return {};
}

}  // namespace

bool log_backup_status(const Instance& instance, bool open, json_spirit::Object& status, std::string& error) {
  Findings findings;
  if (!find(instance, findings, error)) return false;
  json_spirit::Array files;
  for (const Log_Backup_File& file : findings.files) files.emplace_back(to_json(file));
  json_spirit::Array databases;
  for (const Database_Settings& database : findings.databases)
    databases.emplace_back(json_spirit::Object{
        {"name", database.name}, {"settings", to_json(database.settings)}, {"lacks", database.settings.lacks()}});
  status = {{"open", open},
            {"files", std::move(files)},
            {"other_systems", json_spirit::Array(findings.other_systems.begin(), findings.other_systems.end())},
            {"settings", to_json(findings.system)},
            {"lacks", findings.system.lacks()},
            {"databases", std::move(databases)}};
  return true;
}

json_spirit::Object check_log_backup(const Instance& instance, bool open) {
  Findings findings;
  std::string error;
  if (!find(instance, findings, error)) return bad(error);
  for (const Log_Backup_File& file : findings.files)
    if (file.live && !file.problem.empty())
      return bad(file.path + ": " + file.problem + "; the logs that it is for fail: " + set_it_up(instance));
  if (!open)
    return good(findings.any_live() ? "set up; HANA's settings count where the instance runs as the primary"
                                    : "not set up on this host, where the instance does not run as the primary");
  const std::string lacks = lacking(findings);
  if (findings.any_live() && !lacks.empty())
    return bad("set up, but " + lacks + ", as on a new primary after a takeover: HANA's logs do not reach the pool; " +
               set_it_up(instance));
  if (findings.any_live()) return good("switched on");
  if (findings.system.log_using_backint && another_agent_is_linked(findings.sid))
    return good("HANA sends its logs to another Backint agent");
  if (findings.system.log_using_backint)
    return bad("HANA sends its logs to Backint, but no log backup is set up on this host, so that they fail; " +
               set_it_up(instance) + ", or set log_backup_using_backint to false");
  return good("not switched on; " + set_it_up(instance));
}

JSON_RPC_Answer Log_Backup_Service::status(const json_spirit::Object& params) const {
  std::string type;
  std::string name;
  json_spirit::object_get(params, "type", type);
  json_spirit::object_get(params, "name", name);
  const Module* const module = modules_.find(type);
  Instance_Handler* const handler = module == nullptr ? nullptr : module->instance_handler();
  if (handler == nullptr || name.empty())
    return refusal_answer(JSON_RPC_E_INVALID_PARAMS,
                          "\"type\" and \"name\" of an instance are needed whose module this agent has");
  const Instance_Manager::Instance_var instance = manager_.find(type.c_str(), name.c_str());
  if (instance == nullptr)
    return refusal_answer(JSON_RPC_E_SERVER,
                          "instance \"" + platform::cut_for_log(name) + "\" is not known on this host; run discover");
  std::string error;
  json_spirit::Object status;
  if (!log_backup_status(*instance, is_open(type, name), status, error))
    return refusal_answer(JSON_RPC_E_SERVER, error);
  JSON_RPC_Answer answer;
  answer.ok = true;
  answer.result = std::move(status);
  return answer;
}

bool Log_Backup_Service::is_open(const std::string& type, const std::string& name) const {
  const Module* const module = modules_.find(type);
  Instance_Handler* const handler = module == nullptr ? nullptr : module->instance_handler();
  std::string state;
  if (handler != nullptr) (void)handler->get_state(name.c_str(), state);
  return state == state_open;
}

}  // namespace agentd
