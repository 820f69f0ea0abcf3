#include "unit/backupd/set_history.h"

#include <gtest/gtest.h>

#include "scrt/time_text.h"
#include "scrt/uuid.h"

namespace backupd_test {

namespace {

constexpr char day[] = "2026-11-20 ";
constexpr int module_shift_seconds = 1;
constexpr int object_bytes = 1000;
constexpr int stored_bytes = 400;

std::time_t seconds_of(const std::string& clock) {
  std::time_t time = 0;
  EXPECT_TRUE(iso8601_to_posix_time((day + clock).c_str(), time)) << clock;
  return time;
}

json_spirit::Array objects_of(const Set_Line& line) {
  json_spirit::Array files;
  for (const std::string& name : line.files)
    files.emplace_back(
        json_spirit::Object{{"filename", name},
                            {"origin_path", "/usr/sap/HDB/SYS/global/hdb/backint/DB_" + line.database + "/" + name},
                            {"storage_path", stored_path(line, name)},
                            {"extern_backup_id", "ebid-" + line.name + "-" + name},
                            {"source_type", "PIPE"},
                            {"size", object_bytes},
                            {"storage_size", stored_bytes}});
  return files;
}

}  // namespace

std::string uuid_named(const std::string& name) { return uuid_v5("44444444-4444-4444-8444-444444444444", name); }

std::string time_at(const std::string& clock, int shift) { return posix_time_to_utc_text(seconds_of(clock) + shift); }

long backup_id_at(const std::string& clock) { return seconds_of(clock) * 1000; }

json_spirit::Object set_document(const Set_Line& line) {
  const long id = backup_id_at(line.begin);
  json_spirit::Array state;
  if (line.online) state.emplace_back("online");
  const int count = static_cast<int>(line.files.size());
  return {{"uuid", uuid_named(line.name)},
          {"module", "hana"},
          {"type", line.type},
          {"host_uuid", host_a},
          {"resource_uuid", resource_uuid},
          {"database", line.database},
          {"database_backup_id", id},
          {"lifeline", uuid_named(line.lifeline)},
          {"incarnation", uuid_named(line.base.empty() ? line.name : line.base)},
          {"start_time", time_at(line.begin, module_shift_seconds)},
          {"first_time", time_at(line.begin, module_shift_seconds)},
          {"last_time", time_at(line.end)},
          {"pool_uuid", pool_uuid},
          {"source_size", object_bytes * count},
          {"total_size", stored_bytes * count},
          {"files", objects_of(line)},
          {"storages", json_spirit::Array{json_spirit::Object{{"pool_uuid", pool_uuid},
                                                              {"upstream_pool_uuid", json_spirit::Value()},
                                                              {"state", state},
                                                              {"size", stored_bytes * count}}}}};
}

std::string stored_path(const Set_Line& line, const std::string& file) {
  return std::string(host_a) + "/land/" + line.database + "/" + std::to_string(backup_id_at(line.begin)) + "/" + file;
}

void insert_sets(backupd::Database& database, const std::vector<Set_Line>& lines, const std::string& resource) {
  EXPECT_TRUE(database.write([&](backupd::Sql_Session& session) {
    for (const Set_Line& line : lines) {
      const std::int64_t number = session.next_number("set");
      json_spirit::Object set = set_document(line);
      set["id"] = number;
      set["resource_uuid"] = resource;
      session.execute(
          "INSERT INTO sets (id, uuid, module, type, resource_uuid, database_name, database_backup_id, job_id, "
          "job_act_id, lifeline, start_time, source_size, total_size, document) "
          "VALUES (:a, :b, 'hana', :c, :d, :e, :f, '', '', :g, :h, 0, 0, :i)",
          {number, uuid_named(line.name), line.type, resource, line.database, std::int64_t{backup_id_at(line.begin)},
           uuid_named(line.lifeline), time_at(line.begin, module_shift_seconds), json_spirit::dump_json(set)});
    }
    return true;
  }));
}

std::string log_name(int volume, int first, int last) {
  return "log_backup_" + std::to_string(volume) + "_0_" + std::to_string(first) + "_" + std::to_string(last);
}

}  // namespace backupd_test
