#include "base/cluster.h"

#include <algorithm>

#include "base/ini.h"
#include "base/text.h"
#include "base/wire.h"

namespace standin {

namespace {

constexpr const char* hosts_file = "hosts.conf";
constexpr const char* hosts_section = "hosts";
constexpr const char* landscape = "landscape";
constexpr std::size_t most_candidates = 3;

std::string name_server(const Layout& layout) { return layout.host + ":" + std::to_string(layout.port(1)); }

Ini load_landscape(const Layout& layout) { return Ini::load(layout.configuration("nameserver.ini")); }

bool save_landscape(const Layout& layout, const Ini& ini) {
  return ini.save(layout.configuration("nameserver.ini"), "nameserver.ini", "hdbnameserver");
}

std::vector<std::string> words_of(const Ini& ini, const char* key) {
  std::vector<std::string> words = split(ini.get(landscape, key), ' ');
  std::erase(words, std::string());
  return words;
}

}  // namespace

std::vector<Cluster_Host> hosts_of(const Layout& layout) {
  std::vector<Cluster_Host> hosts;
  const Ini ini = Ini::load(layout.shared(hosts_file));
  for (const Ini::Entry& entry : ini.entries()) hosts.push_back({entry.key, entry.value});
  if (hosts.empty()) hosts.push_back({layout.host, layout.root});
  return hosts;
}

Layout layout_of(const Layout& layout, const Cluster_Host& host) {
  Layout other = layout;
  other.root = host.root;
  other.host = host.name;
  return other;
}

bool join_landscape(const Layout& first, const Layout& layout) {
  Ini hosts = Ini::load(first.shared(hosts_file));
  if (hosts.entries().empty()) hosts.set(hosts_section, first.host, first.root);
  hosts.set(hosts_section, layout.host, layout.root);
  Ini ini = load_landscape(first);
  std::vector<std::string> candidates = words_of(ini, "master");
  std::vector<std::string> workers = words_of(ini, "worker");
  if (candidates.size() < most_candidates) candidates.push_back(name_server(layout));
  workers.push_back(layout.host);
  ini.set(landscape, "master", join(candidates, " "));
  ini.set(landscape, "worker", join(workers, " "));
  ini.set(landscape, "roles_" + layout.host, "worker");
  return hosts.save(first.shared(hosts_file), hosts_file, "hdblcm") && save_landscape(first, ini);
}

std::string active_master(const Layout& layout) {
  const std::string text = load_landscape(layout).get(landscape, "active_master");
  return text.substr(0, text.find(':'));
}

bool note_active_master(const Layout& layout) {
  Ini ini = load_landscape(layout);
  ini.set(landscape, "active_master", name_server(layout));
  return save_landscape(layout, ini);
}

int master_rank(const Layout& layout) {
  const auto candidates = words_of(load_landscape(layout), "master");
  const auto found = std::find(candidates.begin(), candidates.end(), name_server(layout));
  return found == candidates.end() ? -1 : static_cast<int>(found - candidates.begin());
}

std::string phase_of(const Layout& layout) {
  const auto answer = ask(layout.state("socket"), {"STATE"});
  return answer && !answer->empty() ? answer->front() : "stopped";
}

}  // namespace standin
