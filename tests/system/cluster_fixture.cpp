#include "cluster_fixture.h"

#include <signal.h>

#include <algorithm>
#include <iostream>
#include <stdexcept>

namespace system_tests {

Cluster_Fixture::Cluster_Fixture() : server_(root() + "/server") { Installed_Product(root() + "/server").install(); }

void Cluster_Fixture::TearDown() {
  for (const auto& host : hosts_) host->shut_down();
  if (server_.started()) server_.stop(SIGTERM);
  expect_nothing_left();
  if (!wants_logs()) return;
  for (const auto& host : hosts_) std::cerr << "--- agent of " << host->name() << "\n" << host->agent_log();
  std::cerr << "--- backupd\n" << server_.log();
}

Host& Cluster_Fixture::add_host(const std::string& name) {
  hosts_.push_back(std::make_unique<Host>(root() + "/" + name, name));
  hosts_.back()->product().install();
  return *hosts_.back();
}

Host& Cluster_Fixture::host(const std::string& name) const {
  const auto found = std::find_if(hosts_.begin(), hosts_.end(), [&](const auto& one) { return one->name() == name; });
  if (found == hosts_.end()) throw std::runtime_error("no host " + name);
  return **found;
}

void Cluster_Fixture::start_pair(const std::string& mode, const Hana& hana) {
  const Host& primary = add_host("hana01");
  primary.install_hana(hana);
  primary.start_hana();
  const Host& secondary = add_host("hana02");
  secondary.install_hana_beside("--secondary-of", primary, {"--mode", mode});
  secondary.start_hana();
  start_agents();
}

void Cluster_Fixture::start_scale_out(int count, const Hana& hana) {
  const Host& master = add_host("hana01");
  master.install_hana(hana);
  master.start_hana();
  for (int i = 2; i <= count; ++i) {
    const Host& worker = add_host("hana0" + std::to_string(i));
    worker.install_hana_beside("--join", master);
    // The master's role goes to hana02 first, at any speed of the machine.
    if (i > 2) worker.fault("failover = no");
    worker.start_hana();
  }
  start_agents();
}

void Cluster_Fixture::start_namesakes() {
  for (const char* name : {"hana01", "hana02"}) {
    const Host& one = add_host(name);
    one.install_hana(Hana());
    one.start_hana();
  }
  start_agents();
}

void Cluster_Fixture::start_agents() {
  server_.start();
  for (const auto& host : hosts_) {
    host->join(server_);
    host->start_agent(server_);
    // One by one: the resource keeps its instances in the order of their registration.
    const Server::Rest_Answer found = server_.rest("POST", "/discover", R"({"host_uuid": ")" + host->uuid() + "\"}");
    EXPECT_EQ(found.status, 200U) << found.body;
  }
  log_on(*hosts_.front());
  EXPECT_EQ(server_.dorsal3({"pools", "--add", "main", "--directory", "/srv/pool"}).code, 0);
  // A test on half a system would fail in many ways: it ends here.
  if (HasFailure()) throw std::runtime_error("the system does not come up");
}

void Cluster_Fixture::log_on(const Host& host) const {
  const Tool_Result stored = server_.dorsal3({"logon", instance, "--user", "SYSTEM", "--host", host.name()},
                                             std::string(Host::password) + "\n");
  ASSERT_EQ(stored.code, 0) << stored.out << stored.err;
}

bool Cluster_Fixture::serves(const Host& host) {
  return eventually([&] { return host.sql("select 1 as A from DUMMY").code == 0; });
}

std::vector<json_spirit::Object> Cluster_Fixture::tries(const std::string& last_run) const {
  std::vector<json_spirit::Object> runs;
  for (std::string id = last_run; !id.empty(); id = text_of(runs.front(), "follows"))
    runs.insert(runs.begin(), server_.job(id));
  return runs;
}

std::string Cluster_Fixture::story(const std::string& last_run) const {
  std::string story;
  std::string followed_by;
  for (const json_spirit::Object& run : tries(last_run)) {
    EXPECT_TRUE(story.empty() || followed_by == text_of(run, "id")) << story << " is followed by " << followed_by;
    followed_by = text_of(run, "followed_by");
    const auto runs_here = std::find_if(hosts_.begin(), hosts_.end(),
                                        [&](const auto& one) { return one->uuid() == text_of(run, "host_uuid"); });
    story += (story.empty() ? "" : ", ") + (runs_here == hosts_.end() ? "?" : (*runs_here)->name()) + " " +
             text_of(run, "state_name");
  }
  EXPECT_EQ(followed_by, "") << story;
  return story;
}

std::string Cluster_Fixture::log_of(const std::string& run) const {
  const json_spirit::Object record = server_.job(run);
  const json_spirit::Value* lines = record.find("log");
  return lines == nullptr ? "" : json_spirit::dump_json(*lines);
}

}  // namespace system_tests
