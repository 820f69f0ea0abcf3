#include "log_backup_trail.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <memory>
#include <set>
#include <sstream>
#include <thread>

#include "processes.h"

namespace system_tests {

namespace fs = std::filesystem;

namespace {

constexpr const char* checksums_file = "/usr/sap/HDB/HDB00/standin/backup_checksums.tsv";
constexpr const char* pipes_folder = "/var/tmp/way_back";
constexpr const char* whole_list = "?limit=10000";
constexpr mode_t pipe_mode = 0600;
constexpr int poll_ms = 50;
/// Objects of one call of hdbbackint.
constexpr std::size_t objects_at_once = 40;

std::vector<std::string> split(const std::string& line, char separator) {
  std::vector<std::string> cells(1);
  for (const char c : line) {
    if (c == separator)
      cells.emplace_back();
    else if (c != '"' && c != '\n')
      cells.back() += c;
  }
  return cells;
}

json_spirit::Array rows_of(const Server::Rest_Answer& answer) {
  json_spirit::Value value;
  json_spirit::Array rows;
  EXPECT_EQ(answer.status, 200U) << answer.body;
  if (json_spirit::load_json(answer.body, value) && value.is_object())
    (void)json_spirit::object_get(value.get_obj(), "rows", rows);
  return rows;
}

/// The reading end of a pipe that hdbbackint restores into.
class Way_Back {
 public:
  explicit Way_Back(const std::string& path) {
    EXPECT_EQ(::mkfifo(path.c_str(), pipe_mode), 0) << path;
    file_ = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  }
  ~Way_Back() { ::close(file_); }
  Way_Back(const Way_Back&) = delete;
  Way_Back& operator=(const Way_Back&) = delete;
  [[nodiscard]] int file() const { return file_; }
  [[nodiscard]] const std::string& content() const { return content_; }
  void take() {
    std::array<char, 1U << 16> buffer{};
    for (ssize_t got = 0; (got = ::read(file_, buffer.data(), buffer.size())) > 0;)
      content_.append(buffer.data(), static_cast<std::size_t>(got));
  }

 private:
  int file_ = -1;
  std::string content_;
};

void drain_pipes(const std::vector<std::unique_ptr<Way_Back>>& pipes, const std::atomic<bool>& ended) {
  for (bool last_look = false; !last_look;) {
    last_look = ended;
    std::vector<pollfd> wanted;
    for (const auto& pipe : pipes) wanted.push_back({pipe->file(), POLLIN, 0});
    (void)::poll(wanted.data(), wanted.size(), poll_ms);
    for (const auto& pipe : pipes) pipe->take();
    pause_20_ms();
  }
}

}  // namespace

std::vector<Log_Backup> Log_Backup_Trail::listed() const {
  const Tool_Result result = host_.sql(
      "select c.DATABASE_NAME, c.BACKUP_ID, c.STATE_NAME, f.DESTINATION_TYPE_NAME, f.EXTERNAL_BACKUP_ID, "
      "f.DESTINATION_PATH from SYS_DATABASES.M_BACKUP_CATALOG c join SYS_DATABASES.M_BACKUP_CATALOG_FILES f on "
      "f.DATABASE_NAME = c.DATABASE_NAME and f.ENTRY_ID = c.ENTRY_ID where c.ENTRY_TYPE_NAME = 'log backup' order by "
      "c.BACKUP_ID");
  EXPECT_EQ(result.code, 0) << result.err;
  std::vector<Log_Backup> backups;
  std::istringstream lines(result.out);
  for (std::string line; std::getline(lines, line);) {
    const std::vector<std::string> cells = split(line, ',');
    if (cells.size() == 6) backups.push_back({cells[0], cells[1], cells[2], cells[3], cells[4], cells[5]});
  }
  return backups;
}

std::vector<Log_Backup> Log_Backup_Trail::saved() const {
  std::vector<Log_Backup> all = listed();
  std::erase_if(all, [](const Log_Backup& one) { return !one.saved(); });
  return all;
}

std::vector<Log_Backup_Trail::Set> Log_Backup_Trail::sets() const {
  std::vector<Set> sets;
  for (const json_spirit::Value& value : rows_of(server_.rest("GET", std::string("/sets") + whole_list))) {
    const json_spirit::Object& row = value.get_obj();
    Set set{
        text_of(row, "uuid"), text_of(row, "type"), text_of(row, "database"), text_of(row, "database_backup_id"), {}};
    if (set.type != "log" && set.type != "catalog") continue;
    json_spirit::Array files;
    (void)json_spirit::object_get(row, "files", files);
    for (const json_spirit::Value& file : files) set.ebids.push_back(text_of(file.get_obj(), "extern_backup_id"));
    sets.push_back(std::move(set));
  }
  return sets;
}

std::vector<json_spirit::Object> Log_Backup_Trail::queue(const std::string& database) const {
  std::vector<json_spirit::Object> waiting;
  for (const json_spirit::Value& row : rows_of(
           server_.rest("GET", "/backint/ondemand-runs?host_uuid=" + host_.uuid() + "&sid=HDB&database=" + database)))
    waiting.push_back(row.get_obj());
  return waiting;
}

std::size_t Log_Backup_Trail::drain(const std::string& database) const {
  const json_spirit::Object body{{"host_uuid", host_.uuid()}, {"sid", "HDB"}, {"database", database}};
  return rows_of(server_.rest("POST", "/backint/ondemand-runs/drain", json_spirit::dump_json(body))).size();
}

std::string Log_Backup_Trail::backup_of(const json_spirit::Object& row) const {
  const Server::Rest_Answer answer = server_.rest("GET", "/backint/jobs/" + text_of(row, "backint_job_uuid"));
  json_spirit::Value record;
  EXPECT_EQ(answer.status, 200U) << answer.body;
  if (!json_spirit::load_json(answer.body, record) || !record.is_object()) return {};
  return text_of(record.get_obj(), "database_backup_id");
}

std::map<std::string, std::string> Log_Backup_Trail::written() const {
  std::map<std::string, std::string> sums;
  std::istringstream lines(slurp(host_.real(checksums_file)));
  for (std::string line; std::getline(lines, line);) {
    // backup id, database, service, name, external id, bytes, SHA-256
    const std::vector<std::string> cells = split(line, '\t');
    if (cells.size() == 7) sums[cells[4]] = cells[6];
  }
  return sums;
}

std::map<std::string, std::string> Log_Backup_Trail::read_back(const std::vector<Log_Backup>& backups) const {
  std::map<std::string, std::string> sums;
  for (std::size_t from = 0; from < backups.size(); from += objects_at_once) {
    const std::size_t until = std::min(from + objects_at_once, backups.size());
    fs::create_directories(host_.real(pipes_folder));
    std::string input = "#SOFTWAREID \"backint 1.04\" \"HANA HDB server\"\n";
    std::vector<std::unique_ptr<Way_Back>> pipes;
    for (std::size_t i = from; i < until; ++i) {
      const std::string pipe = std::string(pipes_folder) + "/" + std::to_string(i);
      pipes.push_back(std::make_unique<Way_Back>(host_.real(pipe)));
      input += "#EBID \"" + backups[i].ebid + "\" \"" + backups[i].path + "\" \"" + pipe + "\"\n";
    }
    const std::string& database = backups[from].database;
    const std::string user = database == "SYSTEMDB" ? "HDB" : database + "@HDB";
    std::atomic<bool> ended{false};
    Tool_Result result;
    std::thread tool([&] {
      result = run_tool({host_.product().program("hdbbackint"), "-f", "restore", "-u", user}, input);
      ended = true;
    });
    drain_pipes(pipes, ended);
    tool.join();
    EXPECT_EQ(result.code, 0) << result.out << result.err;
    fs::remove_all(host_.real(pipes_folder));
    fs::create_directories(host_.real(pipes_folder));
    std::vector<std::string> command{"/usr/bin/sha256sum"};
    for (std::size_t i = from; i < until; ++i) {
      command.push_back(host_.real(pipes_folder) + "/" + backups[i].ebid);
      std::ofstream(command.back()) << pipes[i - from]->content();
    }
    std::istringstream lines(run_tool(command).out);
    for (std::string sum, path; lines >> sum >> path;) sums[path.substr(path.rfind('/') + 1)] = sum;
    fs::remove_all(host_.real(pipes_folder));
  }
  return sums;
}

std::vector<Log_Backup> Log_Backup_Trail::not_recorded() const {
  std::set<std::string> held;
  for (const Set& set : sets()) held.insert(set.ebids.begin(), set.ebids.end());
  std::vector<Log_Backup> missing = saved();
  std::erase_if(missing, [&](const Log_Backup& one) { return held.contains(one.ebid); });
  return missing;
}

void Log_Backup_Trail::expect_recorded_once() const {
  std::map<std::string, Log_Backup> by_ebid;
  for (const Log_Backup& one : saved()) by_ebid[one.ebid] = one;
  std::set<std::string> held;
  for (const Set& set : sets())
    for (const std::string& ebid : set.ebids) {
      ASSERT_TRUE(by_ebid.contains(ebid)) << "HANA did not save " << set.database << " " << set.backup_id;
      const Log_Backup& one = by_ebid[ebid];
      EXPECT_TRUE(held.insert(ebid).second) << "twice: " << one.name();
      EXPECT_EQ(set.database, one.database);
      EXPECT_EQ(set.backup_id, one.id);
      EXPECT_EQ(set.type, one.of_catalog() ? "catalog" : "log") << one.name();
    }
  for (const auto& [ebid, one] : by_ebid) EXPECT_TRUE(held.contains(ebid)) << "not recorded: " << one.name();
}

void Log_Backup_Trail::expect_nothing_owed(const std::vector<std::string>& databases) const {
  std::set<std::string> saved_ids;
  for (const Log_Backup& one : saved()) saved_ids.insert(one.database + " " + one.id);
  for (const std::string& database : databases)
    for (const json_spirit::Object& row : queue(database))
      EXPECT_FALSE(saved_ids.contains(database + " " + backup_of(row)))
          << json_spirit::dump_json(row) << " is owed though HANA has saved it";
}

void Log_Backup_Trail::expect_readable() const {
  const std::map<std::string, std::string> wanted = written();
  std::map<std::string, std::vector<Log_Backup>> of_database;
  for (const Log_Backup& one : saved()) of_database[one.database].push_back(one);
  for (const auto& [database, backups] : of_database) {
    const std::map<std::string, std::string> read = read_back(backups);
    for (const Log_Backup& one : backups) {
      ASSERT_TRUE(wanted.contains(one.ebid)) << one.name();
      ASSERT_TRUE(read.contains(one.ebid)) << one.name();
      EXPECT_EQ(read.at(one.ebid), wanted.at(one.ebid)) << one.name();
    }
  }
}

}  // namespace system_tests
