#include "backupd/restore/restore_selection.h"

#include <algorithm>
#include <map>
#include <set>
#include <tuple>
#include <vector>

#include "backupd/store/list_query.h"
#include "records/log_positions.h"
#include "scrt/time_text.h"

namespace backupd {

namespace {

using Document = std::optional<json_spirit::Object>;

constexpr const char* all_types[] = {"full", "incremental", "differential", "log", "catalog"};
/// Logs lie in sets of these types: one that holds a catalog too is named after it.
constexpr const char* log_types[] = {"log", "catalog"};
/// Sets that are read at a time.
constexpr std::int64_t page_sets = 32;

constexpr char of_lifeline[] =
    "FROM sets WHERE resource_uuid = :a AND lifeline = :b AND database_name = :c AND type = :d ";

std::string text_of(const json_spirit::Object& object, const char* key) {
  std::string text;
  json_spirit::object_get(object, key, text);
  return text;
}

/// That of the newest set begun by the time, whatever its type.
std::string lifeline_at(Sql_Session& session, const Restore_Point& point) {
  std::tuple<std::string, std::int64_t, std::string> newest;
  for (const char* type : all_types) {
    const auto row = session.first(
        "SELECT start_time, id, lifeline FROM sets WHERE resource_uuid = :a AND database_name = :b AND type = :c AND "
        "start_time <= :d ORDER BY start_time DESC, id DESC LIMIT 1",
        {point.resource_uuid, point.database, std::string(type), point.time}, 3);
    if (row) newest = std::max(newest, {row->text(0), row->number(1), row->text(2)});
  }
  return std::get<2>(newest);
}

/// A log backup as a catalog knows it or not.
struct Log_Share {
  std::string start_time;
  std::string last_time;
  std::int64_t backup_id = 0;
};

/// Log sets of one type in one direction of time, from the point's time on.
class Log_Walk {
 public:
  enum class Direction { back, forth };
  Log_Walk(Sql_Session& session, const Restore_Point& point, const char* type, Direction direction)
      : session_(session), point_(point), type_(type), direction_(direction) {}

  /// The next page of them; false at the end.
  bool next(std::vector<json_spirit::Object>& sets, std::vector<std::int64_t>& backup_ids) {
    static const std::string back =
        std::string("SELECT document, database_backup_id ") + of_lifeline +
        "AND start_time < :e AND database_backup_id >= :f ORDER BY start_time DESC, id DESC LIMIT :g OFFSET :h";
    static const std::string forth =
        std::string("SELECT document, database_backup_id ") + of_lifeline +
        "AND start_time >= :e AND database_backup_id >= :f ORDER BY start_time ASC, id ASC LIMIT :g OFFSET :h";
    sets.clear();
    backup_ids.clear();
    for (const Sql_Row& row : session_.query(direction_ == Direction::back ? back : forth,
                                             {point_.resource_uuid, point_.lifeline, point_.database, type_,
                                              point_.time, point_.database_backup_id, page_sets, offset_},
                                             2)) {
      sets.push_back(stored_object(row.text(0)));
      backup_ids.push_back(row.number(1));
    }
    offset_ += static_cast<std::int64_t>(sets.size());
    return !sets.empty();
  }

 private:
  Sql_Session& session_;
  const Restore_Point& point_;
  const std::string type_;
  const Direction direction_;
  std::int64_t offset_ = 0;
};

std::set<std::uint64_t> volumes_in(const json_spirit::Object& set) {
  std::set<std::uint64_t> volumes;
  json_spirit::Array files;
  json_spirit::object_get(set, "files", files);
  for (const json_spirit::Value& file : files)
    if (file.is_object())
      if (const auto name = Log_Name::parse(text_of(file.get_obj(), "filename"))) volumes.insert(name->volume);
  return volumes;
}

/// HANA's log backup holds what was committed before it began, up to the end of the segment that it saves. Records tell
/// whole seconds, and a begin is recorded one later than HANA's: so a log surely holds the whole second of the time
/// when it is recorded with a begin that is so much later.
constexpr std::time_t holding_seconds = 2;

std::string later(const std::string& text, std::time_t seconds) {
  std::time_t time = 0;
  return iso8601_to_posix_time(text.c_str(), time) ? posix_time_to_utc_text(time + seconds) : text;
}

/// Finds for each volume the first log backup that holds the time.
class Log_Reach {
 public:
  Log_Reach(Sql_Session& session, Restore_Point point) : session_(session), point_(std::move(point)) {
    point_.time = later(point_.time, holding_seconds);
    look_at_full();
    known_ = !volumes_.empty();
    // Where the full backup does not tell, the logs around the time tell which volumes there are.
    std::vector<Log_Walk> walks;
    for (const char* type : log_types) {
      if (!known_) look_back(type);
      walks.emplace_back(session_, point_, type, Log_Walk::Direction::forth);
    }
    if (!known_)
      for (Log_Walk& walk : walks) look_on(walk);
    for (Log_Walk& walk : walks)
      while (!complete() && look_on(walk)) continue;
  }

  /// Whether every volume has one. Without any volume there is nothing to go by.
  [[nodiscard]] bool complete() const { return first_.size() == volumes_.size(); }
  [[nodiscard]] const std::map<std::uint64_t, Log_Share>& first() const { return first_; }

 private:
  void look_at_full() {
    const auto row = session_.first(
        "SELECT document FROM sets WHERE resource_uuid = :a AND database_name = :b AND database_backup_id = :c AND "
        "type = 'full' AND lifeline = :d LIMIT 1",
        {point_.resource_uuid, point_.database, point_.database_backup_id, point_.lifeline}, 1);
    json_spirit::Array files;
    if (row) json_spirit::object_get(stored_object(row->text(0)), "files", files);
    for (const json_spirit::Value& file : files)
      if (file.is_object())
        if (const auto volume = data_volume(text_of(file.get_obj(), "filename")); volume && *volume != 0)
          volumes_.insert(*volume);
  }

  void look_back(const char* type) {
    std::vector<json_spirit::Object> sets;
    std::vector<std::int64_t> ids;
    Log_Walk walk(session_, point_, type, Log_Walk::Direction::back);
    if (!walk.next(sets, ids)) return;
    for (const json_spirit::Object& set : sets)
      for (const std::uint64_t volume : volumes_in(set)) volumes_.insert(volume);
  }

  bool look_on(Log_Walk& walk) {
    std::vector<json_spirit::Object> sets;
    std::vector<std::int64_t> ids;
    if (!walk.next(sets, ids)) return false;
    for (std::size_t i = 0; i < sets.size(); ++i)
      for (const std::uint64_t volume : volumes_in(sets[i])) {
        if (known_ && !volumes_.contains(volume)) continue;
        volumes_.insert(volume);
        const Log_Share share{text_of(sets[i], "start_time"), text_of(sets[i], "last_time"), ids[i]};
        const auto [found, added] = first_.emplace(volume, share);
        if (!added && share.start_time < found->second.start_time) found->second = share;
      }
    return true;
  }

  Sql_Session& session_;
  Restore_Point point_;
  bool known_ = false;  ///< the full backup told the volumes; others are not recovered by logs
  std::set<std::uint64_t> volumes_;
  std::map<std::uint64_t, Log_Share> first_;
};

/// Services save their logs side by side, so a catalog may begin while one of them goes on. It surely knows the log
/// when its record begins more than a second after the log's end.
std::string known_after(const std::string& last_time) { return later(last_time, 1); }

Document find_catalog_by(Sql_Session& session, const Restore_Point& point) {
  const Log_Reach reach(session, point);
  if (!reach.complete()) return std::nullopt;
  std::int64_t from_id = point.database_backup_id;
  std::string ended;
  for (const auto& [volume, log] : reach.first()) {
    from_id = std::max(from_id, log.backup_id);
    ended = std::max(ended, known_after(log.last_time));
  }
  const auto row = session.first(
      std::string("SELECT document ") + of_lifeline +
          "AND start_time >= :e AND start_time > :f AND database_backup_id >= :g "
          "ORDER BY start_time ASC, id ASC LIMIT 1",
      {point.resource_uuid, point.lifeline, point.database, std::string("catalog"), point.time, ended, from_id}, 1);
  if (!row) return std::nullopt;
  return stored_object(row->text(0));
}

Document find_newest_catalog(Sql_Session& session, const Restore_Point& point) {
  const auto row = session.first(
      std::string("SELECT document ") + of_lifeline +
          "AND database_backup_id >= :e ORDER BY start_time DESC, id DESC LIMIT 1",
      {point.resource_uuid, point.lifeline, point.database, std::string("catalog"), point.database_backup_id}, 1);
  if (!row) return std::nullopt;
  return stored_object(row->text(0));
}

void put_catalog_first(json_spirit::Object& set) {
  json_spirit::Array files;
  if (!json_spirit::object_get(set, "files", files)) return;
  std::stable_partition(files.begin(), files.end(), [](const json_spirit::Value& file) {
    return file.is_object() && is_catalog_name(text_of(file.get_obj(), "filename"));
  });
  set["files"] = std::move(files);
}

}  // namespace

std::string primary_pool(const json_spirit::Object& set) {
  json_spirit::Array storages;
  json_spirit::object_get(set, "storages", storages);
  for (const json_spirit::Value& value : storages) {
    if (!value.is_object()) continue;
    const json_spirit::Object& storage = value.get_obj();
    const json_spirit::Value* const upstream = storage.find("upstream_pool_uuid");
    json_spirit::Array state;
    // A storage without a state is one that the set is gone from.
    if (upstream != nullptr && upstream->is_null() && json_spirit::object_get(storage, "state", state) &&
        !state.empty())
      return text_of(storage, "pool_uuid");
  }
  return {};
}

bool is_usable(const json_spirit::Object& set) { return !primary_pool(set).empty(); }

std::optional<json_spirit::Object> select_full(Sql_Session& session, const Restore_Point& point) {
  constexpr std::int64_t page = 16;
  const std::string lifeline = point.lifeline.empty() ? lifeline_at(session, point) : point.lifeline;
  if (lifeline.empty()) return std::nullopt;
  for (std::int64_t offset = 0;; offset += page) {
    const Sql_Rows rows = session.query(
        std::string("SELECT document ") + of_lifeline +
            "AND start_time <= :e ORDER BY start_time DESC, id DESC LIMIT :f OFFSET :g",
        {point.resource_uuid, lifeline, point.database, std::string("full"), point.time, page, offset}, 1);
    if (rows.empty()) return std::nullopt;
    for (const Sql_Row& row : rows)
      if (json_spirit::Object set = stored_object(row.text(0)); is_usable(set)) return set;
  }
}

std::optional<json_spirit::Object> select_catalog(Sql_Session& session, const Restore_Point& point) {
  Document set = find_catalog_by(session, point);
  if (!set) set = find_newest_catalog(session, point);
  if (set) put_catalog_first(*set);
  return set;
}

}  // namespace backupd
