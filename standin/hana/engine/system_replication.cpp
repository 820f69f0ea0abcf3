#include "engine/system_replication.h"

#include <algorithm>
#include <filesystem>
#include <iterator>

#include "base/clock.h"
#include "base/ini.h"
#include "base/text.h"
#include "catalog/catalog.h"
#include "engine/system_state.h"

namespace standin {

namespace {

constexpr const char* section = "system_replication";
constexpr const char* peer_section = "peer";
constexpr const char* peer_file = "replication.conf";
constexpr const char* first_site = "WDF";
constexpr const char* second_site = "ROT";

/// Into the destination's own file: its server may have it open.
bool copy_database(Sqlite& from, Sqlite& to) {
  constexpr int most_tries = 300;
  constexpr std::int64_t pause_ms = 20;
  sqlite3_backup* const copy = sqlite3_backup_init(to.raw(), "main", from.raw(), "main");
  if (copy == nullptr) return false;
  for (int i = 0; i < most_tries; ++i) {
    const int result = sqlite3_backup_step(copy, -1);
    if (result == SQLITE_DONE) break;
    if (result != SQLITE_BUSY && result != SQLITE_LOCKED) break;
    sleep_ms(pause_ms);
  }
  return sqlite3_backup_finish(copy) == SQLITE_OK;
}

bool copy_data(const Layout& from, const Layout& to) {
  System_State source, target;
  if (!source.open(from) || !target.open(to)) return false;
  if (!copy_database(source.sqlite(), target.sqlite())) return false;
  for (const Database& database : source.databases()) {
    std::error_code error;
    if (!std::filesystem::exists(source.tables_file(database.name), error)) continue;
    Sqlite tables, copy;
    if (!tables.open(source.tables_file(database.name)) || !copy.open(target.tables_file(database.name))) return false;
    if (!copy_database(tables, copy)) return false;
  }
  // A backup that runs on the other site has no end here.
  return Catalog(target).fail_unfinished() && target.write_database_list();
}

std::string cannot_reach(const Layout& layout, const std::string& host) {
  return "unable to contact primary site host " + host + ":" + std::to_string(layout.port(2)) + ". connection refused";
}

}  // namespace

bool is_replication_mode(const std::string& mode) {
  return std::find(std::begin(replication_modes), std::end(replication_modes), mode) != std::end(replication_modes);
}

Replication load_replication(const Layout& layout) {
  const Ini ini = Ini::load(layout.configuration("global.ini"));
  const Ini own = Ini::load(layout.state(peer_file));
  const auto take = [](const Ini& from, const char* part, const char* key, std::string& value) {
    value = from.get(part, key, value);
  };
  Replication found;
  take(ini, section, "mode", found.mode);
  take(ini, section, "actual_mode", found.mode);
  take(ini, section, "operation_mode", found.operation);
  if (found.primary()) found.operation = "primary";
  take(ini, section, "site_id", found.site_id);
  take(ini, section, "site_name", found.site_name);
  take(own, peer_section, "host", found.peer_host);
  take(own, peer_section, "site", found.peer_site);
  take(own, peer_section, "site_id", found.peer_id);
  take(own, peer_section, "mode", found.peer_mode);
  take(own, peer_section, "root", found.peer_root);
  return found;
}

bool save_replication(const Layout& layout, const Replication& replication, const std::string& who) {
  const std::string path = layout.configuration("global.ini");
  Ini global = Ini::load(path);
  global.set(section, "mode", replication.mode);
  global.set(section, "actual_mode", replication.mode);
  global.set(section, "site_id", replication.site_id);
  global.set(section, "site_name", replication.site_name);
  global.set(section, "operation_mode", replication.primary() ? "logreplay" : replication.operation);
  Ini peer;
  if (!replication.peer_host.empty()) peer.set(peer_section, "host", replication.peer_host);
  peer.set(peer_section, "site", replication.peer_site);
  peer.set(peer_section, "site_id", replication.peer_id);
  peer.set(peer_section, "mode", replication.peer_mode);
  if (!replication.peer_root.empty()) peer.set(peer_section, "root", replication.peer_root);
  return global.save(path, "global.ini", who) && peer.save(layout.state(peer_file), peer_file, who);
}

std::optional<Layout> partner_of(const Layout& layout, const Replication& replication) {
  if (replication.peer_root.empty()) return std::nullopt;
  return find_layout(replication.peer_root, layout.sid);
}

bool is_partner_of(const Replication& other, const Layout& layout) { return other.peer_root == layout.root; }

std::string enable_replication(const Layout& layout, const std::string& site_name) {
  Replication own = load_replication(layout);
  if (own.secondary()) return "this site is a secondary; take over or disable replication first";
  if (site_name.empty()) return "--name=<site name> is missing";
  own.mode = "primary";
  own.site_name = site_name;
  return save_replication(layout, own, "hdbnsutil") ? std::string() : "the configuration cannot be written";
}

std::string take_over(const Layout& layout) {
  Replication own = load_replication(layout);
  if (!own.secondary()) return "takeover is possible on a secondary site only";
  // The log that was shipped is all here: the other site need not run, nor be reached.
  const auto partner = partner_of(layout, own);
  if (partner && !copy_data(*partner, layout)) return "the data of the primary cannot be taken over";
  own.peer_mode = own.mode;
  own.mode = "primary";
  return save_replication(layout, own, "hdbnsutil") ? std::string() : "the configuration cannot be written";
}

std::string register_secondary(const Layout& layout, const Registration& registration) {
  if (!is_replication_mode(registration.mode)) return "unknown replication mode " + registration.mode;
  if (registration.name.empty()) return "--name=<site name> is missing";
  Replication own = load_replication(layout);
  const auto partner = partner_of(layout, own);
  if (!partner || partner->host != registration.remote_host) return cannot_reach(layout, registration.remote_host);
  Replication other = load_replication(*partner);
  if (!other.primary()) return "the remote site " + other.site_name + " is not a primary site";
  if (other.site_name == registration.name) return "the site name " + registration.name + " is in use";
  own.mode = registration.mode;
  own.operation = registration.operation;
  own.site_name = registration.name;
  if (own.site_id == other.site_id) own.site_id = other.site_id == "1" ? "2" : "1";
  own.peer_host = partner->host;
  own.peer_site = other.site_name;
  own.peer_id = other.site_id;
  other.peer_host = layout.host;
  other.peer_site = own.site_name;
  other.peer_id = own.site_id;
  other.peer_mode = own.mode;
  other.peer_root = layout.root;
  if (!save_replication(*partner, other, "hdbnsutil") || !save_replication(layout, own, "hdbnsutil"))
    return "the configuration cannot be written";
  return copy_data(*partner, layout) ? std::string() : "the data of the primary cannot be copied";
}

std::string set_up_pair(const Layout& primary, const Layout& secondary, const std::string& mode) {
  const Replication known = load_replication(primary);
  if (std::string error = enable_replication(primary, known.primary() ? known.site_name : first_site); !error.empty())
    return error;
  Replication own = load_replication(secondary);
  own.peer_root = primary.root;
  if (!save_replication(secondary, own, "hdblcm")) return "the configuration cannot be written";
  return register_secondary(secondary, {second_site, primary.host, mode});
}

}  // namespace standin
