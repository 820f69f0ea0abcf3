#include "histories/hana_system.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <vector>

#include "system/processes.h"

namespace histories {

namespace {

namespace fs = std::filesystem;

constexpr const char* tenant_password = "Secret1";
constexpr unsigned first_of_two_digits = 10;

void run_well(const std::vector<std::string>& command) {
  const system_tests::Tool_Result result = system_tests::run_tool(command);
  if (result.code != 0) throw std::runtime_error(command.front() + ": " + result.out + result.err);
}

}  // namespace

Hana_System::Hana_System(std::string root, const std::string& sid, unsigned number, const Kind& kind,
                         const std::string& time)
    : root_(std::move(root)), sid_(sid), number_(number), kind_(kind) {
  std::vector<std::string> install{STANDIN_INSTALL_FILE, "--root",    root_,        "--sid",     sid_, "--nr",
                                   number_text(),        "--version", kind.version, "--data-mb", "1",  "--services",
                                   "indexserver"};
  if (kind.single_container) install.emplace_back("--single-container");
  run_well(install);
  set_time(time);
  for (const char* fault : {"database_change_ms = 0", "stop_ms = 0", "start_ms = 0", "logon_after_recovery_ms = 0"})
    run_well({STANDIN_CONTROL_FILE, "--root", root_, "--sid", sid_, "fault", fault});
  run_well({directory() + "/HDB", "start"});
  (void)sql("ALTER SYSTEM ALTER CONFIGURATION ('global.ini','SYSTEM') SET ('persistence','log_backup_timeout_s') = '" +
                std::to_string(log_timeout) + "' WITH RECONFIGURE",
            main_database());
}

long Hana_System::log_looks() const {
  return std::atol(system_tests::run_tool({STANDIN_CONTROL_FILE, "--root", root_, "--sid", sid_, "log-writer", "looks"})
                       .out.c_str());
}

Hana_System::~Hana_System() {
  (void)system_tests::run_tool({directory() + "/HDB", "stop"});
  std::error_code none;
  fs::remove_all(root_ + "/usr/sap/" + sid_, none);
}

std::string Hana_System::number_text() const {
  return (number_ < first_of_two_digits ? "0" : "") + std::to_string(number_);
}

std::string Hana_System::landscape_id() const {
  std::ifstream file(root_ + "/usr/sap/" + sid_ + "/SYS/global/hdb/custom/config/nameserver.ini");
  for (std::string line; std::getline(file, line);) {
    std::erase(line, ' ');
    if (line.starts_with("id=")) return line.substr(line.find('=') + 1);
  }
  throw std::runtime_error("no landscape of " + sid_);
}

/// Never half a number: HANA reads it at any moment.
void Hana_System::set_time(const std::string& time) const {
  const std::string path = directory() + "/standin/clock_offset_seconds";
  std::ofstream(path + ".new") << time;
  fs::rename(path + ".new", path);
}

std::string Hana_System::add_tenant(const std::string& wanted) {
  std::string tenant = wanted;
  while (tenant.empty() || !tenants_.insert(tenant).second) tenant = "T" + std::to_string(++numbered_);
  (void)sql("CREATE DATABASE " + tenant + " SYSTEM USER PASSWORD " + tenant_password, system_database);
  return tenant;
}

void Hana_System::start_tenant(const std::string& tenant) const {
  (void)sql("ALTER SYSTEM START DATABASE " + tenant, system_database);
}

void Hana_System::stop_tenant(const std::string& tenant) const {
  (void)sql("ALTER SYSTEM STOP DATABASE " + tenant, system_database);
}

std::string Hana_System::sql(const std::string& statement, const std::string& database) const {
  const system_tests::Tool_Result result =
      system_tests::run_tool({directory() + "/exe/hdbsql", "-xCja", "-i", number_text(), "-d", database, "-u", user,
                              "-p", database == main_database() ? password : tenant_password, statement});
  if (result.code != 0)
    throw std::runtime_error(database + "@" + sid_ + ": " + statement + ": " + result.out + result.err);
  std::string text = result.out;
  std::erase(text, '"');
  return text;
}

}  // namespace histories
