#include "agentd/restore/recovery_log.h"

#include <algorithm>
#include <fstream>
#include <istream>
#include <vector>

#include "agentd/jobs/job_table.h"
#include "platform/file_root.h"
#include "platform/files.h"
#include "platform/log.h"
#include "scrt/time_text.h"

namespace agentd {

namespace {

constexpr std::size_t time_length = 25;
constexpr int words_to_id = 3;
constexpr std::string_view component = " RECOVERY ";
constexpr std::string_view begin_text = "RECOVER DATA started";
constexpr std::string_view end_text = "RECOVER DATA finished";
constexpr std::string_view good_end_text = "RECOVER DATA finished successfully";
constexpr std::string_view command_text = "command: ";
constexpr std::string_view reached_text = "reached timestamp ";
constexpr const char* system_database = "SYSTEMDB";

std::string utc_of(std::string_view zoned) {
  std::time_t time = 0;
  return hana_time_to_posix_time(std::string(zoned.substr(0, time_length)).c_str(), time) ? posix_time_to_utc_text(time)
                                                                                          : std::string();
}

/// Before the component stand the time, the process, the id and the level.
std::string id_of(std::string_view head) {
  std::string_view word;
  for (int i = 0; i < words_to_id; ++i) {
    head.remove_prefix(std::min(head.find_first_not_of(' '), head.size()));
    word = head.substr(0, head.find(' '));
    head.remove_prefix(word.size());
  }
  return std::string(word);
}

void take_line(std::string_view line, std::optional<Logged_Recovery>& recovery) {
  const std::size_t at = line.find(component);
  if (at == std::string_view::npos || at < time_length) return;
  const std::string_view text = line.substr(at + component.size());
  if (text.starts_with(begin_text)) {
    recovery.emplace();
    recovery->started = utc_of(line);
    recovery->id = id_of(line.substr(0, at));
  } else if (recovery && text.starts_with(command_text)) {
    recovery->command = text.substr(command_text.size());
  } else if (recovery && text.starts_with(end_text)) {
    recovery->ended = utc_of(line);
    recovery->successful = text.starts_with(good_end_text);
    recovery->message = text;
    const std::size_t reached = text.find(reached_text);
    if (reached != std::string_view::npos) recovery->reached_time = utc_of(text.substr(reached + reached_text.size()));
  }
}

/// Names go into a path: "<SID>_HDB<NN>" and a plain database name.
bool is_plain(const std::string& text) {
  return std::all_of(text.begin(), text.end(),
                     [](char c) { return (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_'; });
}

/// Each host of the instance has a folder of its own; the one with the newest recovery counts. False, with a message,
/// when a log is there and cannot be read to its end: `unreadable` is its path.
bool find_newest(const std::string& instance_directory, const std::string& database,
                 std::optional<Logged_Recovery>& newest, std::string& unreadable) {
  std::vector<std::string> hosts;
  if (!platform::list_directory(instance_directory, hosts)) return true;
  const bool tenant = !database.empty() && database != system_database;
  for (const std::string& host : hosts) {
    const std::string path =
        instance_directory + "/" + host + "/trace/" + (tenant ? "DB_" + database + "/" : "") + "backup.log";
    if (!platform::is_regular_file(path.c_str())) continue;
    // It grows for years, so that it is not taken into memory.
    std::ifstream log(platform::File_Root::current().real(path));
    auto found = last_recovery(log);
    if (!log.eof()) {
      D3_ERROR("Failed to read HANA's log '%C': %m\n", path.c_str());
      unreadable = path;
      return false;
    }
    if (found && (!newest || newest->started < found->started)) newest = std::move(found);
  }
  return true;
}

}  // namespace

std::optional<Logged_Recovery> last_recovery(std::istream& log) {
  std::optional<Logged_Recovery> recovery;
  for (std::string line; std::getline(log, line);) take_line(line, recovery);
  return recovery;
}

JSON_RPC_Answer tell_last_recovery(const json_spirit::Object& params) {
  std::string name;
  std::string database;
  const bool given = json_spirit::object_get(params, "name", name);
  (void)json_spirit::object_get(params, "database", database);
  const std::size_t separator = name.find('_');
  if (!given || separator == std::string::npos || !is_plain(name) || !is_plain(database))
    return refusal_answer(JSON_RPC_E_INVALID_PARAMS, "\"name\" of an instance and a plain \"database\" are needed");
  std::optional<Logged_Recovery> recovery;
  std::string unreadable;
  if (!find_newest("/usr/sap/" + name.substr(0, separator) + "/" + name.substr(separator + 1), database, recovery,
                   unreadable))
    return refusal_answer(JSON_RPC_E_INTERNAL, "HANA's log '" + unreadable + "' cannot be read; see the agent's log");
  JSON_RPC_Answer answer;
  answer.ok = true;
  json_spirit::Object result{{"found", recovery.has_value()}};
  if (recovery) {
    result["id"] = recovery->id;
    result["started"] = recovery->started;
    result["command"] = recovery->command;
    result["ended"] = recovery->ended;
    result["successful"] = recovery->successful;
    result["reached_time"] = recovery->reached_time;
    result["message"] = recovery->message;
  }
  answer.result = std::move(result);
  return answer;
}

}  // namespace agentd
