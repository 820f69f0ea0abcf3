#include "server/recovery_run.h"

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <thread>

#include "base/clock.h"
#include "base/text.h"
#include "catalog/backup_log.h"
#include "engine/redo_log.h"
#include "server/configuration.h"
#include "server/log_stream.h"
#include "server/recovery_streams.h"

namespace standin {

namespace {

constexpr std::int64_t ms_per_second = 1000;
constexpr const char* catalog_name = "/log_backup_0_0_0_0";
constexpr const char* data_setting = "data_backup_parameter_file";
constexpr const char* log_setting = "log_backup_parameter_file";
constexpr const char* catalog_setting = "catalog_backup_parameter_file";
constexpr const char* complete_level = "COMPLETE";
constexpr int strategy_error = 449;
constexpr int recovery_error = 448;
constexpr const char* delivered_channels = "64";
constexpr std::int64_t no_parent = -1;

std::string level_of(const std::string& type) {
  if (type == incremental_backup) return "INCREMENTAL";
  return type == differential_backup ? "DIFFERENTIAL" : complete_level;
}

}  // namespace

/// A data backup as it is read: by the catalog's entry, or by the names that its prefix makes.
struct Recovery_Run::Data_Backup {
  std::optional<Catalog_Image::Entry> entry;
  std::string prefix;
  std::string level = complete_level;
  std::int64_t backup_id = 0;
  std::int64_t redo = 0;
  std::vector<Topology_Service> services;

  [[nodiscard]] std::vector<Recovery_Object> objects(int volume, int parts) const {
    std::vector<Recovery_Object> found;
    if (entry) {
      for (const auto& file : entry->files)
        if (file.source_id == volume) found.push_back(object_of(file));
      return found;
    }
    for (int part = 1; part <= parts; ++part) {
      Recovery_Object object;
      object.written_as = prefix + "_databackup_" + std::to_string(volume) + "_" + std::to_string(part);
      found.push_back(object);
    }
    return found;
  }
};

Recovery_Run::Recovery_Run(System_State& state, Faults& faults, const Recovery_Request& request, std::string database,
                           std::int64_t id, std::function<bool()> canceled)
    : state_(state),
      layout_(state.layout()),
      faults_(faults),
      request_(request),
      database_(std::move(database)),
      id_(id),
      canceled_(std::move(canceled)),
      store_(state, database_) {}

Recovery_Run::~Recovery_Run() = default;

void Recovery_Run::log(const char* level, const std::string& text) const {
  append_backup_log(layout_, database_, now_ms(), id_, level, "RECOVERY", text);
}

Recovery_Run::Failure Recovery_Run::no_strategy(const std::string& why) {
  return Sql_Error{strategy_error, "recovery strategy could not be determined: " + why};
}

Recovery_Run::Failure Recovery_Run::not_completed(const std::string& why) {
  return Sql_Error{recovery_error, "recovery could not be completed: " + why};
}

Recovery_Run::Failure Recovery_Run::fault(const char* stage, int code) {
  if (faults_.take("die_server_in_recovery", database_, stage)) ::kill(::getpid(), SIGKILL);
  faults_.pause("recovery_slow_ms", 0, database_, stage, canceled_);
  const auto wanted = faults_.take("recovery_fails", database_, stage);
  if (wanted) return code == strategy_error ? no_strategy(*wanted) : not_completed(*wanted);
  if (canceled_()) return code == strategy_error ? no_strategy("canceled") : not_completed("The recovery was canceled");
  return std::nullopt;
}

std::optional<Sql_Error> Recovery_Run::execute() {
  log("INFO", "RECOVER DATA started");
  log("INFO", "command: " + request_.text);
  const Failure failure = work();
  if (!failure) {
    log("INFO", "RECOVER DATA finished successfully" + reached_text());
    return std::nullopt;
  }
  const std::size_t colon = failure->text.find(": ");
  log("ERROR", "RECOVER DATA finished with error: [" + std::to_string(failure->code) + "] " +
                   failure->text.substr(0, colon) + ", " + failure->text.substr(colon + 2));
  return failure;
}

Recovery_Run::Failure Recovery_Run::work() {
  locate_source();
  if (auto failure = read_catalog()) return failure;
  if (auto failure = choose()) return failure;
  if (request_.kind == Recovery_Request::until_timestamp)
    if (auto failure = check_access()) return failure;
  if (auto failure = read_first_topology()) return failure;
  if (auto failure = restore_data()) return failure;
  if (auto failure = replay_logs()) return failure;
  return install();
}

void Recovery_Run::locate_source() {
  const bool by_second = faults_.take("recover_until", database_).value_or("second") != "instant";
  limit_ms_ = request_.until_seconds * ms_per_second + (by_second ? ms_per_second - 1 : 0);
  source_.system = layout_;
  source_.database = database_;
  if (!request_.source_database.empty()) {
    source_.system.sid = request_.source_sid;
    source_.database = request_.source_database;
    if (faults_.take("source_container", database_).value_or("multi") == "single") source_.system.mode = "single";
  }
  in_place_ = source_.system.sid == layout_.sid && source_.database == database_;
  source_.directory = source_.system.backint_directory(source_.database);
  source_.user_id = backint_user_id(source_.system, source_.database);
  if (in_place_) return;
  if (faults_.take("source_names", database_).value_or("source") == "target")
    source_.pipe_directory = layout_.backint_directory(database_);
  if (faults_.take("source_user", database_).value_or("source") == "target")
    source_.user_id = backint_user_id(layout_, database_);
}

Recovery_Run::Failure Recovery_Run::read_catalog() {
  objects_ = std::make_unique<Recovery_Objects>(layout_, faults_, database_, source_, canceled_);
  if (auto failure = fault("catalog", strategy_error)) return failure;
  bool good = true;
  if (!request_.backint_catalog) {
    catalog_ = parse_catalog(Catalog(state_).text(database_), good);
    catalog_found_ = true;
    return std::nullopt;
  }
  std::vector<Recovery_Object> objects(1);
  objects.front().written_as = source_.directory + catalog_name;
  Text_Stream stream;
  const std::string error =
      objects_->read(objects, catalog_setting,
                     [&](std::size_t, const char* data, std::size_t size) { return stream.reader.take(data, size); });
  if (!error.empty()) return no_strategy("[110089] the backup catalog cannot be read, " + error);
  catalog_found_ = objects.front().found;
  if (!catalog_found_ && request_.kind != Recovery_Request::full_by_prefix)
    return no_strategy("[110089] there is no backup catalog " + objects.front().written_as);
  if (!catalog_found_) return std::nullopt;
  const auto text = stream.text();
  if (!text || stream.reader.header("kind") != "CATALOG")
    return no_strategy("[110089] the backup catalog is damaged: " + stream.reader.problem());
  catalog_ = parse_catalog(*text, good);
  return good ? std::nullopt : no_strategy("[110089] the backup catalog is damaged");
}

Recovery_Run::Failure Recovery_Run::choose() {
  if (auto failure = fault("strategy", strategy_error)) return failure;
  if (request_.kind == Recovery_Request::full_by_prefix) return choose_by_prefix();
  const bool until = request_.kind == Recovery_Request::until_timestamp;
  const std::string problem =
      find_strategy(catalog_, {request_.backup_id, until, until && !request_.ignore_deltas, limit_ms_}, plan_);
  if (!problem.empty()) return no_strategy(problem);
  for (const Catalog_Image::Entry& entry : plan_.data) {
    Data_Backup backup;
    backup.entry = entry;
    backup.level = level_of(entry.type);
    backup.backup_id = entry.backup_id;
    backups_.push_back(std::move(backup));
  }
  branch_ = plan_.data.back().branch;
  return std::nullopt;
}

Recovery_Run::Failure Recovery_Run::choose_by_prefix() {
  Data_Backup backup;
  backup.prefix = request_.prefix.starts_with('/') ? request_.prefix : source_.directory + "/" + request_.prefix;
  const std::string problem = read_topology(backup);
  if (!problem.empty()) return no_strategy(problem);
  const auto* const known = catalog_.data_backup(backup.backup_id);
  branch_ = known != nullptr ? known->branch : no_parent;
  backups_.push_back(std::move(backup));
  return std::nullopt;
}

Recovery_Run::Failure Recovery_Run::check_access() {
  if (auto failure = fault("check", strategy_error)) return failure;
  std::vector<Recovery_Object> objects;
  for (const Catalog_Image::Entry& entry : plan_.data)
    for (const auto& file : entry.files) objects.push_back(object_of(file));
  for (const auto& [volume, pieces] : plan_.logs)
    for (const Log_Piece& piece : pieces) objects.push_back(object_of(piece.file));
  const std::string problem = objects_->check_access(objects, data_setting);
  return problem.empty() ? std::nullopt : no_strategy(problem);
}

bool Recovery_Run::takes(const Topology_Service& service) const {
  // A single container's name server has no place in a tenant.
  return !layout_.multi() || database_ == system_database || service.name != "nameserver";
}

std::string Recovery_Run::read_topology(Data_Backup& backup) {
  auto objects = backup.objects(0, 1);
  if (objects.empty()) return "[110097] the data backup has no topology";
  Volume_Reader reader([](std::uint64_t, bool, const char*) { return false; });
  const std::string error = objects_->read(
      objects, data_setting, [&](std::size_t, const char* data, std::size_t size) { return reader.take(data, size); });
  if (!error.empty()) return "[110097] the topology cannot be read, " + error;
  if (!objects.front().found) return "[110090] there is no complete data backup " + objects.front().written_as;
  backup.services = parse_topology(reader.headers());
  if (!reader.finish() || backup.services.empty()) return "[110097] the topology is damaged: " + reader.problem();
  if (backup.entry && reader.number("backup_id") != backup.backup_id)
    return "[110097] the topology is another backup's";
  if (reader.header("kind") != backup.level) return "[110090] the backup is no complete data backup";
  backup.backup_id = reader.number("backup_id");
  backup.redo = reader.number("redo_position");
  return {};
}

Recovery_Run::Failure Recovery_Run::read_first_topology() {
  if (auto failure = fault("topology", strategy_error)) return failure;
  if (request_.kind == Recovery_Request::full_by_prefix) return std::nullopt;
  const std::string problem = read_topology(backups_.front());
  return problem.empty() ? std::nullopt : no_strategy(problem);
}

Recovery_Run::Failure Recovery_Run::restore_data() {
  // From here on nothing is left of what the database was.
  if (!state_.set_broken(database_, true)) return not_completed("[2] the database's state cannot be written");
  if (auto failure = fault("data", recovery_error)) return failure;
  for (std::size_t i = 0; i < backups_.size(); ++i) {
    if (i > 0) {
      if (auto failure = fault("delta", recovery_error)) return failure;
      if (std::string problem = read_topology(backups_[i]); !problem.empty()) return not_completed(problem);
    }
    if (auto failure = restore_backup(backups_[i], i == 0)) return failure;
    position_ = backups_[i].redo;
  }
  const std::string problem = store_.complete();
  return problem.empty() ? std::nullopt : not_completed("[110604] " + problem);
}

Recovery_Run::Failure Recovery_Run::restore_backup(Data_Backup& backup, bool first) {
  std::vector<Topology_Service> taken;
  std::copy_if(backup.services.begin(), backup.services.end(), std::back_inserter(taken),
               [this](const Topology_Service& service) { return takes(service); });
  if (first ? !store_.begin(taken) : !store_.same_services(taken))
    return not_completed("[110604] the services of the backup cannot be put in place");
  std::vector<std::string> errors(backup.services.size());
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < backup.services.size(); ++i)
    threads.emplace_back([&, i] { errors[i] = restore_service(backup, backup.services[i]); });
  for (std::thread& thread : threads) thread.join();
  for (const std::string& error : errors)
    if (!error.empty()) return not_completed(error);
  return std::nullopt;
}

std::string Recovery_Run::restore_service(const Data_Backup& backup, const Topology_Service& service) {
  auto objects = backup.objects(service.volume, service.parts);
  const bool taken = takes(service);
  std::vector<Volume_Reader> readers;
  for (std::size_t i = 0; i < objects.size(); ++i)
    readers.emplace_back([this, taken, &service](std::uint64_t number, bool ballast, const char* page) {
      return !taken || store_.take_page(service.volume, number, ballast, page);
    });
  const std::string name =
      "service: " + service.name + ", " + layout_.host + ", volume: " + std::to_string(service.volume);
  std::string error = objects_->read(objects, data_setting, [&](std::size_t i, const char* data, std::size_t size) {
    return readers[i].take(data, size);
  });
  if (error.empty() && static_cast<int>(objects.size()) != service.parts)
    error = "[110604] the catalog does not name all parts of volume " + std::to_string(service.volume);
  for (std::size_t i = 0; i < objects.size() && error.empty(); ++i) {
    if (!objects[i].found)
      error = "[110096] " + objects[i].written_as + " was not found";
    else if (!readers[i].finish())
      error = "[110602] " + objects[i].written_as + ": " + readers[i].problem();
    else if (readers[i].number("backup_id") != backup.backup_id || readers[i].number("volume") != service.volume)
      error = "[110602] " + objects[i].written_as + " belongs to another backup";
  }
  if (error.empty()) log("INFO", "progress of " + name + ", 100%");
  log(error.empty() ? "INFO" : "ERROR",
      "state of " + name + ", " + (error.empty() ? "RecoveryPrepared" : "RecoveryError"));
  return error;
}

Recovery_Run::Failure Recovery_Run::replay_logs() {
  if (request_.kind != Recovery_Request::until_timestamp) return std::nullopt;
  if (auto failure = fault("redo", recovery_error)) return failure;
  for (const auto& [volume, pieces] : plan_.logs)
    if (auto failure = replay_volume(pieces)) return failure;
  // A volume whose log ends earlier ends it for all.
  if (!target_reached_) position_ = std::max(position_, plan_.position);
  return std::nullopt;
}

Recovery_Run::Failure Recovery_Run::replay_volume(const std::vector<Log_Piece>& pieces) {
  const std::string configured =
      setting_of(layout_, database_, "backup", "max_recovery_backint_channels", delivered_channels);
  const auto channels = static_cast<std::size_t>(std::max<std::int64_t>(parse_number(configured).value_or(1), 1));
  for (std::size_t first = 0; first < pieces.size(); first += channels) {
    const std::size_t count = std::min(channels, pieces.size() - first);
    std::vector<Recovery_Object> objects;
    std::vector<Text_Stream> streams(count);
    for (std::size_t i = 0; i < count; ++i) objects.push_back(object_of(pieces[first + i].file));
    const std::string error = objects_->read(
        objects, log_setting,
        [&](std::size_t i, const char* data, std::size_t size) { return streams[i].reader.take(data, size); });
    if (!error.empty()) return not_completed(error);
    for (std::size_t i = 0; i < count; ++i) {
      const Log_Piece& piece = pieces[first + i];
      const auto text = streams[i].text();
      if (!objects[i].found) return not_completed("[110096] " + piece.file.path + " was not found");
      const Volume_Reader& reader = streams[i].reader;
      if (!text || reader.number("first") != piece.log.first || reader.number("last") != piece.log.last ||
          reader.header("kind") != "LOG")
        return not_completed("[110602] " + piece.file.path + " is damaged: " + reader.problem());
      if (auto failure = replay_piece(piece, *text)) return failure;
    }
  }
  return std::nullopt;
}

Recovery_Run::Failure Recovery_Run::replay_piece(const Log_Piece& piece, const std::string& text) {
  for (const Log_Entry& entry : parse_log_text(text)) {
    if (target_reached_) return std::nullopt;
    if (entry.position <= position_) continue;
    if (entry.position > plan_.position) return std::nullopt;
    if (entry.commit_ms > limit_ms_) {
      target_reached_ = true;
      return std::nullopt;
    }
    if (!entry.statement.empty())
      if (const auto problem = store_.replay(entry.statement))
        return not_completed("[110605] the log of " + piece.file.path + " cannot be replayed at position " +
                             std::to_string(entry.position) + ": " + problem->text);
    position_ = entry.position;
    branch_ = piece.branch;
  }
  return std::nullopt;
}

std::string Recovery_Run::reached_text() const {
  if (request_.kind != Recovery_Request::until_timestamp) return {};
  const std::int64_t target = request_.until_seconds * ms_per_second;
  const std::int64_t reached = std::min(plan_.short_at_ms.value_or(target), target);
  return ", reached timestamp " + log_time_text(reached) + ", reached log position " + std::to_string(position_);
}

Recovery_Run::Failure Recovery_Run::install() {
  if (auto failure = fault("end", recovery_error)) return failure;
  bool good = state_.sqlite().execute("BEGIN IMMEDIATE");
  good = good && store_.install(position_) && install_history() && state_.set_broken(database_, false);
  good = state_.sqlite().execute(good ? "COMMIT" : "ROLLBACK") && good;
  return good ? std::nullopt : not_completed("[2] the database cannot be written");
}

bool Recovery_Run::install_history() {
  const bool kept = in_place_ && catalog_found_;
  if (!replace_catalog(state_, database_, kept ? catalog_ : Catalog_Image{})) return false;
  if (!add_branch(state_, database_, {id_, kept ? branch_ : no_parent, position_})) return false;
  if (!kept) return true;
  // Its log backups go on, beside those of the branch that it leaves.
  Redo_Log redo(state_, database_);
  const auto database = state_.database(database_);
  if (!database) return false;
  return std::all_of(database->services.begin(), database->services.end(), [&](const Service& service) {
    return redo.begin({service.name, position_, position_, 0, now_ms()});
  });
}

}  // namespace standin
