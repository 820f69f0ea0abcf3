#include <cstdio>
#include <functional>
#include <map>

#include "base/clock.h"
#include "base/files.h"
#include "base/text.h"
#include "base/wire.h"
#include "catalog/backup_log.h"
#include "catalog/catalog.h"
#include "engine/accounts.h"
#include "engine/ballast.h"
#include "engine/system_replication.h"
#include "tools/instance_control.h"

namespace {

using namespace standin;
using Arguments = std::vector<std::string>;

constexpr const char* usage =
    "Usage: standin-hana-control --root R --sid S VERB\n"
    "  fault LINE | no-faults                     add a line to the fault file, empty it\n"
    "  recovery DATABASE [SECONDS [finished|failed]]  append a recovery begun at that time (now) to backup.log\n"
    "  start-tenant NAME | stop-tenant NAME | add-tenant NAME SERVICES MB PASSWORD-FILE\n"
    "  user DATABASE NAME PASSWORD-FILE PRIVILEGES | lock DATABASE NAME | unlock DATABASE NAME\n"
    "  replication none|primary|sync|syncmem|async [PEER-HOST PEER-SITE]\n"
    "  change --database NAME --mb N [--service NAME]  new content for so much of a service's data\n"
    "  log-writer on|off|auto                     log backups by themselves: as global.ini says, never, with Backint "
    "only\n"
    "  log-writer looks                           how often it has looked at the databases since the start\n"
    "  forget DATABASE BACKUP-ID                  takes a backup out of the catalog, as HANA's deletion does\n"
    "  time-offset SECONDS | dump\n"
    "Names are taken as they are written; SECONDS of a recovery count from 1970.\n";
constexpr std::int64_t pages_per_mb = 256;

int refuse(const std::string& text) {
  std::fprintf(stderr, "standin-hana-control: %s\n", text.c_str());
  return 1;
}

int recovery(const Layout& layout, System_State& state, const Arguments& a) {
  const auto seconds = a.size() > 2 ? parse_number(a[2]) : now_ms() / 1000;
  const std::string outcome = a.size() > 3 ? a[3] : "finished";
  if (!state.database(a[1])) return refuse("no database " + a[1]);
  if (!seconds || (outcome != "finished" && outcome != "failed")) return refuse("SECONDS [finished|failed] expected");
  const std::int64_t at = *seconds * 1000;
  const auto line = [&](const char* level, const std::string& text) {
    return append_backup_log(layout, a[1], at, at, level, "RECOVERY", text);
  };
  const bool good =
      line("INFO", "RECOVER DATA started") &&
      (outcome == "failed" ? line("ERROR", "RECOVER DATA finished with error: [448] recovery could not be completed")
                           : line("INFO", "RECOVER DATA finished successfully"));
  return good ? 0 : 1;
}

int replication(const Layout& layout, const Arguments& a) {
  if (a[1] != "none" && a[1] != "primary" && !is_replication_mode(a[1])) return refuse("no mode " + a[1]);
  Replication wanted;
  wanted.mode = a[1];
  const bool secondary = wanted.secondary();
  wanted.site_id = secondary ? "2" : "1";
  wanted.site_name = secondary ? "ROT" : "WDF";
  // A secondary has a primary in any case.
  if (a.size() > 2 || secondary) wanted.peer_host = a.size() > 2 ? a[2] : layout.host + "-primary";
  wanted.peer_site = a.size() > 3 ? a[3] : (secondary ? "WDF" : "ROT");
  wanted.peer_id = secondary ? "1" : "2";
  return save_replication(layout, wanted, "hdbnsutil") ? 0 : 1;
}

int dump(const Layout& layout, System_State& state) {
  std::printf("instance %s %s %s %s\n", layout.sid.c_str(), layout.number.c_str(), layout.version.c_str(),
              instance_state(layout).phase.c_str());
  Catalog catalog(state);
  for (const Database& database : state.databases()) {
    std::printf("database %s %s\n", database.name.c_str(), database.status.c_str());
    for (const Service& service : database.services)
      std::printf("service %s volume %d port %d sql %d pages %lld\n", service.name.c_str(), service.volume,
                  service.port, service.sql_port, static_cast<long long>(service.ballast_pages));
    std::fputs(catalog.text(database.name).c_str(), stdout);
  }
  return 0;
}

int add_tenant(const Layout& layout, System_State& state, const Arguments& a) {
  const auto password = read_file(a[4]);
  const bool good = password && layout.multi() &&
                    state.add_database(a[1], split(a[2], ','), parse_number(a[3]).value_or(0) * pages_per_mb) &&
                    Accounts(state).set(a[1], "SYSTEM", split(*password, '\n').front(), "ALL") &&
                    make_directories(layout.real(layout.backint_directory(a[1]))) &&
                    make_directories(layout.real(layout.trace_directory(a[1])));
  return good ? 0 : 1;
}

int change(System_State& state, const Arguments& a) {
  std::map<std::string, std::string> options{{"--service", ""}};
  for (std::size_t i = 1; i + 1 < a.size(); i += 2) options[a[i]] = a[i + 1];
  const auto megabytes = parse_number(options["--mb"]);
  const auto database = state.database(options["--database"]);
  if (!database || !megabytes || *megabytes <= 0) return refuse("change needs --database NAME --mb N");
  std::string service = options["--service"];
  if (service.empty()) service = database->name == system_database ? "nameserver" : "indexserver";
  const auto done =
      change_ballast(state, database->name, service, static_cast<std::uint64_t>(*megabytes * pages_per_mb));
  if (!done) return refuse("no data of service " + service + " in " + database->name);
  std::printf("changed %llu pages of %s in %s from page %llu\n", static_cast<unsigned long long>(done->pages),
              service.c_str(), database->name.c_str(), static_cast<unsigned long long>(done->first));
  return 0;
}

int forget(System_State& state, const Arguments& a) {
  const auto id = parse_number(a[2]);
  if (!id || !Catalog(state).forget(a[1], *id)) return refuse("no backup " + a[2] + " of " + a[1]);
  return 0;
}

int time_offset(const Layout& layout, const Arguments& a) {
  if (!parse_number(a[1])) return refuse("SECONDS expected");
  return write_file(layout.state("clock_offset_seconds"), a[1] + "\n") ? 0 : 1;
}

int log_writer(const Layout& layout, const Arguments& a) {
  if (a[1] == "looks") {
    const auto looks = ask(layout.state("socket"), {"LOOKS"});
    if (!looks || looks->empty()) return refuse("the instance does not answer");
    std::printf("%s\n", looks->front().c_str());
    return 0;
  }
  if (a[1] != "on" && a[1] != "off" && a[1] != "auto") return refuse("on, off, auto or looks expected");
  return write_file(layout.shared("log_writer"), a[1] + "\n") ? 0 : 1;
}

int set_user(System_State& state, const Arguments& a) {
  const auto password = read_file(a[3]);
  return password && Accounts(state).set(a[1], a[2], split(*password, '\n').front(), a[4]) ? 0 : 1;
}

}  // namespace

int main(int count, char** values) {
  std::string root, sid;
  Arguments a;
  for (int i = 1; i < count; ++i) {
    const std::string word = values[i];
    if (a.empty() && (word == "--root" || word == "--sid") && i + 1 < count)
      (word == "--root" ? root : sid) = values[++i];
    else
      a.push_back(word);
  }
  while (root.ends_with('/')) root.pop_back();
  const auto layout = find_layout(root, sid);
  System_State state;
  if (!layout || a.empty() || !state.open(*layout)) {
    std::fputs(layout ? usage : "standin-hana-control: no such installation\n", stderr);
    return 2;
  }
  live_in_time_of(*layout);
  struct Verb {
    std::size_t least;
    std::function<int()> run;
  };
  const auto done = [](bool good) { return good ? 0 : 1; };
  const std::string faults = layout->state("faults.conf");
  const std::map<std::string, Verb> verbs{
      {"fault", {2, [&] { return done(append_file(faults, a[1] + "\n")); }}},
      {"no-faults", {1, [&] { return done(write_file(faults, "") && write_file(faults + ".met", "")); }}},
      {"recovery", {2, [&] { return recovery(*layout, state, a); }}},
      {"start-tenant", {2, [&] { return done(state.set_status(a[1], "YES")); }}},
      {"stop-tenant", {2, [&] { return done(state.set_status(a[1], "NO")); }}},
      {"add-tenant", {5, [&] { return add_tenant(*layout, state, a); }}},
      {"user", {5, [&] { return set_user(state, a); }}},
      {"lock", {3, [&] { return done(Accounts(state).set_locked(a[1], a[2], true)); }}},
      {"unlock", {3, [&] { return done(Accounts(state).set_locked(a[1], a[2], false)); }}},
      {"replication", {2, [&] { return replication(*layout, a); }}},
      {"log-writer", {2, [&] { return log_writer(*layout, a); }}},
      {"time-offset", {2, [&] { return time_offset(*layout, a); }}},
      {"change", {5, [&] { return change(state, a); }}},
      {"forget", {3, [&] { return forget(state, a); }}},
      {"dump", {1, [&] { return dump(*layout, state); }}}};
  const auto verb = verbs.find(a[0]);
  if (verb != verbs.end() && a.size() >= verb->second.least) return verb->second.run();
  std::fputs(usage, stderr);
  return 2;
}
