#include "host.h"

#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>
#include <fstream>

#include "scrt/uuid.h"

namespace system_tests {

namespace fs = std::filesystem;

namespace {
constexpr const char* hana_directory = "/usr/sap/HDB/HDB00";
}

Host::Host(const std::string& root, std::string name) : product_(root), name_(std::move(name)), uuid_(make_uuid()) {}

void Host::join(const Server& server) const {
  if (fs::exists(real(configuration_directory) + "/agent.key")) return;
  product_.configure("agent.key", server.make_key({"--role", "agent", "--host", uuid_}));
}

void Host::start_agent(const Server& server, unsigned limit_seconds) {
  std::string text = "server_url = \"" + server.url() + "\"\nhost_uuid = \"" + uuid_ + "\"\naccess_key_file = \"" +
                     configuration_directory +
                     "/agent.key\"\nmodules = [\"hana\"]\nstop_limit_seconds = " + std::to_string(limit_seconds) + "\n";
  if (!name_.empty()) text += "host_name = \"" + name_ + "\"\n";
  product_.configure("agent.toml", text);
  const std::size_t from = agent_log().size();
  agent_ =
      std::make_unique<Background_Process>(std::vector<std::string>{product_.program("dorsal3-agent")}, real(log_file));
  if (server.started()) {
    ASSERT_TRUE(agent_says("Backupd has accepted this agent", from)) << agent_log();
  }
}

int Host::end_of_agent() {
  const int code = agent_->wait(std::chrono::seconds(stop_limit_seconds));
  EXPECT_NE(code, -1) << "the agent does not end";
  agent_.reset();
  // A child that it was about to start is the agent's program until it is a program of its own.
  EXPECT_TRUE(eventually([this] { return pids_below(root(), "dorsal3-agent").empty(); }));
  return code;
}

bool Host::agent_says(const std::string& text, std::size_t from) const {
  return eventually([&] { return agent_log().find(text, from) != std::string::npos; });
}

void Host::install_hana(const Hana& hana) const {
  std::vector<std::string> words{"--nr",       "00",
                                 "--version",  hana.version,
                                 "--data-mb",  std::to_string(hana.data_mb),
                                 "--services", "indexserver,xsengine"};
  if (hana.single_container) words.emplace_back("--single-container");
  if (!hana.single_container)
    for (const std::string& tenant : hana.tenants) words.insert(words.end(), {"--tenant", tenant});
  run_installer(words);
}

void Host::install_hana_beside(const std::string& how, const Host& other, const std::vector<std::string>& more) const {
  std::vector<std::string> words{how, other.root()};
  words.insert(words.end(), more.begin(), more.end());
  run_installer(words);
}

void Host::run_installer(const std::vector<std::string>& words) const {
  std::vector<std::string> command{STANDIN_INSTALL_FILE, "--root", root(), "--sid", "HDB"};
  if (!name_.empty()) command.insert(command.end(), {"--host", name_});
  command.insert(command.end(), words.begin(), words.end());
  const Tool_Result installed = run_tool(command);
  ASSERT_EQ(installed.code, 0) << installed.err;
}

bool Host::has_hana() const { return fs::exists(real(hana_directory) + "/HDB"); }

void Host::start_hana() const {
  ASSERT_EQ(run_tool({real(hana_directory) + "/HDB", "start"}).code, 0) << "the stand-in does not start";
}

void Host::stop_hana() const { (void)run_tool({real(hana_directory) + "/HDB", "stop"}); }

Tool_Result Host::hana_tool(const std::string& name, const std::vector<std::string>& words) const {
  std::vector<std::string> command{real(hana_directory) + "/exe/" + name};
  command.insert(command.end(), words.begin(), words.end());
  return run_tool(command);
}

Tool_Result Host::sql(const std::string& statement) const {
  return hana_tool("hdbsql", {"-xCja", "-i", "00", "-d", "SYSTEMDB", "-u", "SYSTEM", "-p", password, statement});
}

Tool_Result Host::control(std::vector<std::string> words) const {
  std::vector<std::string> command{STANDIN_CONTROL_FILE, "--root", root(), "--sid", "HDB"};
  command.insert(command.end(), words.begin(), words.end());
  return run_tool(command);
}

void Host::fault(const std::string& line) const { ASSERT_EQ(control({"fault", line}).code, 0) << line; }

bool Host::meets(const std::string& line) const {
  const std::string met = real(hana_directory) + "/standin/faults.conf.met";
  return eventually([&] { return ("\n" + slurp(met)).find("\n" + line + "\n") != std::string::npos; });
}

void Host::no_faults() const { ASSERT_EQ(control({"no-faults"}).code, 0); }

void Host::only_faults(const std::string& line) const {
  const std::string file = real(hana_directory) + "/standin/faults.conf";
  std::ofstream(file + ".next") << line << '\n';
  fs::rename(file + ".next", file);
}

void Host::shut_down() {
  if (agent_) (void)stop_agent(SIGTERM);
  if (!has_hana()) return;
  // What a failed test has held would keep HANA from its end.
  (void)control({"no-faults"});
  stop_hana();
}

}  // namespace system_tests
