#include "engine/recovered_store.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "base/text.h"
#include "engine/ballast.h"
#include "engine/tables.h"

namespace standin {

namespace {

constexpr std::uint64_t no_version = ~0ULL;
constexpr std::string_view topology_key = "service.";
constexpr int ports_per_service = 3;

/// The database's file begins with its size in pages, in four bytes, the highest first.
constexpr off_t size_field_at = 28;

std::uint64_t pages_of_tables(int fd) {
  unsigned char field[4] = {};
  if (::pread(fd, field, sizeof field, size_field_at) != static_cast<ssize_t>(sizeof field)) return 0;
  return (std::uint64_t{field[0]} << 24) | (std::uint64_t{field[1]} << 16) | (std::uint64_t{field[2]} << 8) | field[3];
}

}  // namespace

std::string topology_text(const std::vector<Topology_Service>& services) {
  std::string text;
  for (const Topology_Service& service : services)
    text += std::string(topology_key) + std::to_string(service.volume) + "=" + service.name + ":" +
            std::to_string(service.parts) + ":" + std::to_string(service.ballast_pages) + ":" +
            std::to_string(static_cast<std::int64_t>(service.seed)) + "\n";
  return text;
}

std::vector<Topology_Service> parse_topology(const std::map<std::string, std::string>& headers) {
  std::vector<Topology_Service> services;
  for (const auto& [key, value] : headers) {
    if (!key.starts_with(topology_key)) continue;
    const auto words = split(value, ':');
    const auto volume = parse_number(key.substr(topology_key.size()));
    if (!volume || words.size() != 4) return {};
    Topology_Service service;
    service.name = words[0];
    service.volume = static_cast<int>(*volume);
    service.parts = static_cast<int>(parse_number(words[1]).value_or(0));
    service.ballast_pages = static_cast<std::uint64_t>(parse_number(words[2]).value_or(0));
    service.seed = static_cast<std::uint64_t>(parse_number(words[3]).value_or(0));
    if (service.parts <= 0) return {};
    services.push_back(std::move(service));
  }
  std::sort(services.begin(), services.end(),
            [](const Topology_Service& left, const Topology_Service& right) { return left.volume < right.volume; });
  return services;
}

Recovered_Store::Recovered_Store(System_State& state, std::string database)
    : state_(state), database_(std::move(database)), path_(state.tables_file(database_) + ".recovery") {}

Recovered_Store::~Recovered_Store() {
  tables_ = {};
  for (const char* suffix : {"", "-journal"}) ::unlink((path_ + suffix).c_str());
}

bool Recovered_Store::begin(const std::vector<Topology_Service>& services) {
  volumes_.clear();
  for (const Topology_Service& service : services)
    volumes_[service.volume] = {service, std::vector<std::uint64_t>(service.ballast_pages, no_version)};
  file_ = Descriptor(::open(path_.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0640));
  return file_.valid() && !services.empty();
}

bool Recovered_Store::same_services(const std::vector<Topology_Service>& services) const {
  return services.size() == volumes_.size() &&
         std::all_of(services.begin(), services.end(), [this](const Topology_Service& service) {
           const auto known = volumes_.find(service.volume);
           return known != volumes_.end() && known->second.service.name == service.name &&
                  known->second.versions.size() == service.ballast_pages;
         });
}

bool Recovered_Store::take_page(int volume, std::uint64_t number, bool ballast, const char* page) {
  if (!ballast)
    return ::pwrite(file_.get(), page, page_bytes, static_cast<off_t>(number * page_bytes)) ==
           static_cast<ssize_t>(page_bytes);
  const auto found = volumes_.find(volume);
  if (found == volumes_.end() || number >= found->second.versions.size()) return false;
  std::uint64_t version = 0;
  std::memcpy(&version, page + sizeof number, sizeof version);
  char expected[page_bytes];
  fill_ballast_page(found->second.service.seed, number, version, expected);
  if (std::memcmp(expected, page, page_bytes) != 0) return false;
  found->second.versions[number] = version;
  return true;
}

std::string Recovered_Store::complete() {
  for (const auto& [number, volume] : volumes_)
    if (std::find(volume.versions.begin(), volume.versions.end(), no_version) != volume.versions.end())
      return "volume " + std::to_string(number) + " lacks pages";
  const std::uint64_t pages = pages_of_tables(file_.get());
  if (pages == 0 || ::ftruncate(file_.get(), static_cast<off_t>(pages * page_bytes)) != 0) return "there are no tables";
  file_.reset();
  if (!open_tables(tables_, path_)) return "the tables cannot be opened: " + tables_.error();
  Statement check = tables_.prepare("PRAGMA integrity_check");
  if (!check.step() || check.text(0) != "ok") return "the tables are damaged";
  return {};
}

std::optional<Sql_Error> Recovered_Store::replay(const std::string& statement) {
  return replay_statement(tables_, statement);
}

bool Recovered_Store::install_services() {
  std::map<std::string, Service> before;
  int next_port = 0;
  const auto target = state_.database(database_);
  if (!target) return false;
  for (const Service& service : target->services) before[service.name] = service;
  Statement highest = state_.sqlite().prepare("SELECT max(max(port),max(sql_port)) FROM services");
  if (highest.step()) next_port = static_cast<int>(highest.number(0)) + ports_per_service;
  highest = Statement();
  Statement clear = state_.sqlite().prepare("DELETE FROM services WHERE db=?");
  bool good = clear.bind(1, database_).run();
  for (const auto& [number, volume] : volumes_) {
    Service own;
    const auto known = before.find(volume.service.name);
    if (known != before.end()) {
      own = known->second;
    } else {
      own.port = next_port;
      own.sql_port = volume.service.name == "indexserver" ? next_port + 1 : 0;
      next_port += ports_per_service;
    }
    Statement row = state_.sqlite().prepare("INSERT INTO services VALUES(?,?,?,?,?,?,?)");
    row.bind(1, database_).bind(2, volume.service.name).bind(3, number).bind(4, own.port).bind(5, own.sql_port);
    row.bind(6, static_cast<std::int64_t>(volume.versions.size()));
    good = row.bind(7, static_cast<std::int64_t>(volume.service.seed)).run() && good;
  }
  return good;
}

bool Recovered_Store::install_ballast() {
  struct Run {
    std::string service;
    std::uint64_t first, pages, version;
  };
  std::vector<Run> runs;
  for (const auto& [number, volume] : volumes_)
    for (std::uint64_t page = 0; page < volume.versions.size(); ++page) {
      const std::uint64_t version = volume.versions[page];
      const bool goes_on = page > 0 && version == volume.versions[page - 1];
      if (version == 0) continue;
      if (goes_on)
        ++runs.back().pages;
      else
        runs.push_back({volume.service.name, page, 1, version});
    }
  // The next change goes on behind the newest one.
  std::sort(runs.begin(), runs.end(), [](const Run& left, const Run& right) { return left.version < right.version; });
  Statement clear = state_.sqlite().prepare("DELETE FROM ballast_changes WHERE db=?");
  bool good = clear.bind(1, database_).run();
  Statement row =
      state_.sqlite().prepare("INSERT INTO ballast_changes(db,service,first,pages,version) VALUES(?,?,?,?,?)");
  for (const Run& run : runs) {
    row.bind(1, database_).bind(2, run.service).bind(3, static_cast<std::int64_t>(run.first));
    row.bind(4, static_cast<std::int64_t>(run.pages)).bind(5, static_cast<std::int64_t>(run.version));
    good = row.run() && good;
  }
  return good;
}

bool Recovered_Store::forget_history(std::int64_t position) {
  bool good = true;
  for (const char* table : {"pages", "savepoints", "redo", "service_logs", "log_discards"}) {
    Statement clear = state_.sqlite().prepare(std::string("DELETE FROM ") + table + " WHERE db=?");
    good = clear.bind(1, database_).run() && good;
  }
  if (position == 0) return good;
  // The log is cleared, its positions go on.
  Statement mark = state_.sqlite().prepare("INSERT INTO redo VALUES(?,?,0,'')");
  return mark.bind(1, database_).bind(2, position).run() && good;
}

bool Recovered_Store::install(std::int64_t position) {
  tables_ = {};
  const std::string tables = state_.tables_file(database_);
  ::unlink((tables + "-journal").c_str());
  if (std::rename(path_.c_str(), tables.c_str()) != 0) return false;
  return install_services() && install_ballast() && forget_history(position);
}

}  // namespace standin
