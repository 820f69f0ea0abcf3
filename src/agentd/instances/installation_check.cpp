#include "agentd/instances/installation_check.h"

#include <cerrno>
#include <cstring>
#include <string>

#include "agentd/instances/system_id.h"
#include "platform/files.h"
#include "platform/log.h"
#include "platform/product_paths.h"

namespace agentd {

namespace {

constexpr const char* installation_row = "installation";
constexpr const char* link_row = "backint link";
constexpr const char* recovery_row = "pending recovery";
constexpr const char* statement_file = "/work/recoverInstance.sql";
constexpr const char* database_client = "hdbsql";
constexpr const char* backint_program = "hdbbackint";

json_spirit::Object check_programs(const std::string& directory) {
  const std::string client = directory + "/" + database_client;
  if (!platform::is_directory(directory.c_str()))
    return check_row(installation_row, false,
                     directory + " is missing: the instance is not installed on this host; run discover again");
  if (!platform::is_regular_file(client.c_str()))
    return check_row(installation_row, false, client + " is missing; install the database's client again");
  return check_row(installation_row, true, client + " is there");
}

json_spirit::Object check_link(const std::string& sid) {
  const std::string path = "/usr/sap/" + sid + "/SYS/global/hdb/opt/hdbbackint";
  const std::string wanted = platform::product_paths::program(backint_program);
  if (platform::is_symbolic_link(path.c_str())) {
    char buffer[platform::path_buffer_bytes];
    const ssize_t length = platform::read_link(path.c_str(), buffer, sizeof buffer);
    const std::string target(buffer, length > 0 ? static_cast<std::size_t>(length) : 0);
    if (target == wanted) return check_row(link_row, true, path + " leads to " + wanted);
    return check_row(link_row, false,
                     path + " leads to " + platform::cut_for_log(target) +
                         ", another Backint agent; remove the link if backups are to go through this one");
  }
  if (errno == ENOENT) return check_row(link_row, true, path + " is made by the first backup");
  if (errno == 0)
    return check_row(link_row, false,
                     path + " is a file of another Backint agent; remove it if backups are to go through this one");
  return check_row(link_row, false, path + " cannot be looked at: " + std::strerror(errno));
}

/// HANA takes the statement when the instance starts: one that lies there makes every start a recovery, and no restore
/// of the system database begins beside it.
json_spirit::Object check_recovery(const std::string& executables) {
  const std::string path = executables.substr(0, executables.rfind('/')) + statement_file;
  if (platform::is_regular_file(path.c_str()))
    return check_row(recovery_row, false,
                     path +
                         " is there: the next start of the instance is a recovery by it; if none is going on and "
                         "none is wanted, remove it, then start the instance or the restore again");
  return check_row(recovery_row, true, "no recovery waits for a start of the instance");
}

}  // namespace

json_spirit::Object check_row(const char* name, bool ok, const std::string& message) {
  return {{"name", name}, {"ok", ok}, {"message", message}};
}

json_spirit::Array check_installation(const Instance& instance) {
  json_spirit::Array rows;
  std::string directory;
  const bool has_directory =
      json_spirit::object_get(instance.options, "dir_executable", directory) && !directory.empty();
  if (has_directory) rows.emplace_back(check_programs(directory));
  std::string sid;
  if (json_spirit::object_get(instance.options, "sid", sid) && is_sid(sid)) rows.emplace_back(check_link(sid));
  if (has_directory) rows.emplace_back(check_recovery(directory));
  return rows;
}

}  // namespace agentd
