#include "system_fixture.h"

#include <signal.h>

#include <iostream>

namespace system_tests {

System_Fixture::System_Fixture() : server_(root()), host_(root()) { host_.product().install(); }

void System_Fixture::TearDown() {
  host_.shut_down();
  if (server_.started()) server_.stop(SIGTERM);
  expect_nothing_left();
  if (wants_logs()) std::cerr << "--- agent\n" << agent_log() << "--- backupd\n" << server_.log();
}

void System_Fixture::start_backupd() {
  server_.start();
  host_.join(server_);
}

int System_Fixture::stop_agent() { return host_.stop_agent(SIGTERM); }

void System_Fixture::start_all(const Hana& hana) {
  start_backupd();
  install_hana(hana);
  start_hana();
  start_agent();
  ASSERT_EQ(dorsal3({"discover"}).code, 0);
  ASSERT_EQ(dorsal3({"logon", instance, "--user", "SYSTEM"}, std::string(password) + "\n").code, 0);
  ASSERT_EQ(dorsal3({"pools", "--add", "main", "--directory", "/srv/pool"}).code, 0);
}

bool System_Fixture::program_runs(const std::string& name) const {
  return eventually([&] {
    for (const std::string& line : processes_below(root()))
      if (line.find("/" + name + " ") != std::string::npos) return true;
    return false;
  });
}

}  // namespace system_tests
