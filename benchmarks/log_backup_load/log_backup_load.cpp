// How many log backups agent and backupd record: the real programs, with the module, below one temporary root and over
// loopback; HANA's tools answer at once. First the load of an instance (200 databases with 3 services each, a log of
// each a minute: ten a second), then all at once.
//
//   log_backup_load [seconds of steady load] [log backups at once] [folder]

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <numeric>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "net/http_transport.h"
#include "scrt/uuid.h"
#include "system/host.h"
#include "system/server.h"

namespace {

namespace fs = std::filesystem;
using namespace system_tests;
using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

constexpr int databases = 200;
constexpr int services = 3;
constexpr double minute_seconds = 60;
constexpr double logs_a_second = databases * services / minute_seconds;
constexpr double logs_a_day = logs_a_second * 24 * 3600;
constexpr int default_steady_seconds = 40;
constexpr int default_burst = 600;
constexpr std::int64_t full_backup_id = 1700000000000;
constexpr std::chrono::milliseconds look{100};
constexpr std::chrono::seconds request_limit{30};
constexpr std::chrono::seconds drain_limit{120};

[[noreturn]] void give_up(const std::string& why) { throw std::runtime_error(why); }

std::string database_name(int number) {
  if (number == 0) return "SYSTEMDB";
  char name[16];
  std::snprintf(name, sizeof name, "TN%03d", number);
  return name;
}

/// What /proc tells of a program.
struct Usage {
  double resident_mib = 0;
  double highest_mib = 0;
  double processor_seconds = 0;
  std::size_t descriptors = 0;
};

Usage usage_of(const std::string& root, const std::string& program) {
  Usage usage;
  const auto pids = pids_below(root, program);
  if (pids.size() != 1) return usage;
  const std::string folder = "/proc/" + std::to_string(pids.front());
  std::istringstream status(slurp(folder + "/status"));
  constexpr double kib_in_mib = 1024;
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with("VmRSS:")) usage.resident_mib = std::strtod(line.c_str() + 6, nullptr) / kib_in_mib;
    if (line.starts_with("VmHWM:")) usage.highest_mib = std::strtod(line.c_str() + 6, nullptr) / kib_in_mib;
  }
  const std::string stat = slurp(folder + "/stat");
  std::istringstream fields(stat.substr(stat.rfind(')') + 2));
  std::string field;
  // User and system time are the 12th and 13th field behind the name.
  for (int i = 1; i <= 13 && fields >> field; ++i)
    if (i >= 12) usage.processor_seconds += std::strtod(field.c_str(), nullptr) / double(::sysconf(_SC_CLK_TCK));
  for (const auto& entry : fs::directory_iterator(folder + "/fd")) usage.descriptors += entry.exists() ? 1 : 0;
  return usage;
}

/// Speaks to backupd as hdbbackint of the host does.
class Writer {
 public:
  Writer(const Server& server, const Host& host) : host_(host) {
    net::Net_Error error;
    if (!net::parse_endpoint(server.url(), endpoint_)) give_up("no address");
    key_ = slurp(host.real(configuration_directory) + "/agent.key");
    key_.erase(key_.find_last_not_of('\n') + 1);
  }

  json_spirit::Object request(const std::string& method, const std::string& path,
                              const json_spirit::Object& body = {}) {
    net::Net_Error error;
    if (!connection_) connection_ = net::Http_Transport::current().connect(endpoint_, request_limit, error);
    net::Http_Request request;
    net::Http_Response response;
    request.method = method;
    request.target = "/q5/r/v2" + path;
    if (!body.empty()) request.body = json_spirit::dump_json(body);
    if (!body.empty()) request.headers.set("Content-Type", "application/json");
    request.headers.set("Authorization", "Bearer " + key_);
    if (!connection_ || !connection_->exchange(request, response, request_limit, error))
      give_up(method + " " + path + ": " + error.text);
    json_spirit::Value value;
    if (response.status / 100 != 2 || !json_spirit::load_json(response.body, value) || !value.is_object())
      give_up(method + " " + path + ": " + response.body);
    return value.get_obj();
  }

  /// The record of a backup that HANA began by itself, its object and that it was the last one: the uuid.
  std::string save_log(const std::string& definition, const std::string& pool, int database, std::int64_t backup_id) {
    const std::string uuid = make_uuid();
    json_spirit::Object job = this->job(uuid, pool, database, backup_id, "log");
    job["extended_attrs"] = json_spirit::Object{{"job_definition_uuid", definition}};
    request("POST", "/backint/on-demand-jobs", job);
    const std::string name = "log_backup_2_0_" + std::to_string(backup_id) + "_" + std::to_string(backup_id + 1);
    request("POST", "/backint/jobs/" + uuid + "/files",
            {{"files", json_spirit::Array{file(uuid, pool, database, backup_id, name)}}, {"last", true}});
    return uuid;
  }
  /// A full backup as its run leaves it.
  void save_full(const std::string& resource, const std::string& pool, int database) {
    const std::string uuid = make_uuid();
    const std::string run = make_uuid();
    json_spirit::Object job = this->job(uuid, pool, database, full_backup_id, "full");
    job["job_act_id"] = run;
    request("POST", "/backint/jobs", job);
    json_spirit::Object object = file(uuid, pool, database, full_backup_id, "x_databackup_2_1");
    request("POST", "/backint/jobs/" + uuid + "/files", {{"files", json_spirit::Array{object}}});
    const json_spirit::Object in_set{{"filename", object["filename"]},
                                     {"origin_path", object["origin_path"]},
                                     {"storage_path", object["storage_path"]},
                                     {"extern_backup_id", object["extern_backup_id"]},
                                     {"source_type", "PIPE"},
                                     {"size", 1},
                                     {"storage_size", 1}};
    const std::string time = "2023-11-14 22:00:00";
    request("POST", "/sets",
            {{"uuid", uuid},
             {"module", "hana"},
             {"type", "full"},
             {"job_name", "full"},
             {"job_id", ""},
             {"job_act_id", run},
             {"host_uuid", host_.uuid()},
             {"resource_uuid", resource},
             {"database", database_name(database)},
             {"database_backup_id", full_backup_id},
             {"pool_uuid", pool},
             {"lifeline", make_uuid()},
             {"incarnation", uuid},
             {"start_time", time},
             {"first_time", time},
             {"last_time", time},
             {"source_size", 1},
             {"total_size", 1},
             {"files", json_spirit::Array{in_set}},
             {"storages", json_spirit::Array{json_spirit::Object{{"pool_uuid", pool}, {"size", 1}}}}});
  }

 private:
  json_spirit::Object job(const std::string& uuid, const std::string& pool, int database, std::int64_t backup_id,
                          const char* type) const {
    return {{"uuid", uuid},
            {"host_uuid", host_.uuid()},
            {"job_act_id", ""},
            {"type", type},
            {"location", "file:///srv/pool"},
            {"database", database_name(database)},
            {"database_backup_id", backup_id},
            {"compression", "none"},
            {"compression_level", 0},
            {"sid", "HDB"},
            {"pool_uuid", pool},
            {"landscape_id", "land"}};
  }
  json_spirit::Object file(const std::string& uuid, const std::string& pool, int database, std::int64_t backup_id,
                           const std::string& name) const {
    return {{"info_uuid", uuid},
            {"filename", name},
            {"origin_path", "/usr/sap/HDB/SYS/global/hdb/backint/DB_" + database_name(database) + "/" + name},
            {"size", 1},
            {"storage_size", 1},
            {"extern_backup_id", make_uuid()},
            {"source_type", "PIPE"},
            {"pool_uuid", pool},
            {"storage_path",
             host_.uuid() + "/land/" + database_name(database) + "/" + std::to_string(backup_id) + "/" + name},
            {"backup_time", "2023-11-14 22:13:20"},
            {"location", "file:///srv/pool"},
            {"database_backup_id", backup_id},
            {"compression", "none"},
            {"checksum", ""}};
  }

  const Host& host_;
  net::Endpoint endpoint_;
  std::string key_;
  std::unique_ptr<net::Http_Connection> connection_;
};

/// Both programs with one instance of all databases.
class Load {
 public:
  explicit Load(const std::string& root) : root_(root), server_(root), host_(root) {}
  ~Load() {
    host_.shut_down();
    if (server_.started()) server_.stop(SIGTERM);
  }

  void set_up() {
    host_.product().install();
    server_.start();
    host_.join(server_);
    host_.install_hana({.tenants = {}, .data_mb = 1});
    replace_tools();
    host_.start_agent(server_);
    expect(server_.dorsal3({"discover"}), "discover");
    expect(server_.dorsal3({"logon", "HDB_HDB00", "--user", "SYSTEM"}, "manager\n"), "logon");
    expect(server_.dorsal3({"pools", "--add", "main", "--directory", "/srv/pool"}), "pools");
    writer_ = std::make_unique<Writer>(server_, host_);
    resource_ = first_row("/resources", "uuid");
    pool_ = first_row("/pools", "uuid");
    const json_spirit::Object definition{
        {"name", "logs"},
        {"type", "backup"},
        {"subtype", "log"},
        {"module", "hana"},
        {"host_uuid", host_.uuid()},
        {"source",
         json_spirit::Object{{"id", resource_}, {"name", "HDB_HDB00"}, {"entries", json_spirit::Array{"hana/HDB00"}}}},
        {"target", json_spirit::Object{{"pool_uuid", pool_}}}};
    const auto stored = server_.rest("POST", "/job-definitions", json_spirit::dump_json(definition));
    json_spirit::Value value;
    if (!json_spirit::load_json(stored.body, value) || stored.status / 100 != 2) give_up(stored.body);
    definition_ = text_of(value.get_obj(), "id");
    for (int i = 0; i < databases; ++i) writer_->save_full(resource_, pool_, i);
  }

  struct Result {
    std::vector<double> seconds;  ///< from #SAVED to the set, sorted
    double all_seconds = 0;
    std::size_t most_waiting = 0;
    std::map<std::string, std::size_t> calls;
    Usage agent_before, agent_after, server_before, server_after;
  };

  /// `count` log backups, `rate` a second (0: at once), until all are recorded.
  Result run(int count, double rate) {
    Result result;
    result.agent_before = usage_of(root_, "dorsal3-agent");
    result.server_before = usage_of(root_, "dorsal3-backupd");
    const auto calls = count_calls();
    const auto begin = Clock::now();
    std::map<std::string, Clock::time_point> open;
    int sent = 0;
    while (sent < count || !open.empty()) {
      const auto next_look = Clock::now() + look;
      while (sent < count && begin + Seconds_to(sent, rate) <= Clock::now() && Clock::now() < next_look) {
        // Each minute the logs of all services; the services of one database come apart.
        const std::string uuid = writer_->save_log(definition_, pool_, sent % databases, full_backup_id + ++last_id_);
        open.emplace(uuid, Clock::now());
        ++sent;
      }
      std::this_thread::sleep_until(next_look);
      take_recorded(open, result);
      result.most_waiting = std::max(result.most_waiting, open.size());
      if (Clock::now() - begin > Seconds_to(count, rate) + drain_limit)
        give_up(std::to_string(open.size()) + " log backups are not recorded; see " + root_ + "/log");
    }
    result.all_seconds = Seconds(Clock::now() - begin).count();
    result.agent_after = usage_of(root_, "dorsal3-agent");
    result.server_after = usage_of(root_, "dorsal3-backupd");
    for (const auto& [name, number] : count_calls()) result.calls[name] = number - calls.at(name);
    std::sort(result.seconds.begin(), result.seconds.end());
    return result;
  }

 private:
  static Clock::duration Seconds_to(int number, double rate) {
    return std::chrono::duration_cast<Clock::duration>(Seconds(rate == 0 ? 0 : number / rate));
  }
  static void expect(const Tool_Result& result, const char* what) {
    if (result.code != 0) give_up(std::string(what) + ": " + result.out + result.err);
  }
  std::string first_row(const std::string& path, const std::string& key) {
    json_spirit::Array rows;
    (void)json_spirit::object_get(writer_->request("GET", path), "rows", rows);
    if (rows.empty()) give_up("nothing at " + path);
    return text_of(rows.front().get_obj(), key);
  }
  /// The stand-in's tools would take longer than what is measured.
  void replace_tools() const {
    for (const auto& entry : fs::recursive_directory_iterator(host_.real("/usr/sap"))) {
      const std::string name = entry.path().filename();
      if (name != "hdbsql" && name != "hdbnsutil" && name != "sapcontrol") continue;
      const fs::path path = entry.path();
      fs::remove(path);
      fs::copy_file(ANSWERING_TOOL_FILE, path);
      tools_.push_back(path);
    }
    if (tools_.size() < 3) give_up("the tools of the instance are not where they should be");
  }
  [[nodiscard]] std::map<std::string, std::size_t> count_calls() const {
    std::map<std::string, std::size_t> calls;
    for (const fs::path& tool : tools_) {
      std::error_code none;
      const auto size = fs::file_size(tool.string() + ".calls", none);
      calls[tool.filename()] += none ? 0 : size;
    }
    return calls;
  }
  /// What is in the queue no more is in its set.
  void take_recorded(std::map<std::string, Clock::time_point>& open, Result& result) {
    json_spirit::Array rows;
    (void)json_spirit::object_get(writer_->request("GET", "/backint/ondemand-runs?limit=10000"), "rows", rows);
    const auto now = Clock::now();
    std::map<std::string, Clock::time_point> left;
    for (const json_spirit::Value& row : rows) {
      const std::string uuid = text_of(row.get_obj(), "backint_job_uuid");
      if (text_of(row.get_obj(), "tries") != "0") give_up("a run failed; see " + root_ + "/log");
      if (const auto found = open.find(uuid); found != open.end()) left.insert(*found);
    }
    for (const auto& [uuid, since] : open)
      if (!left.contains(uuid)) result.seconds.push_back(Seconds(now - since).count());
    open.swap(left);
  }

  const std::string root_;
  Server server_;
  Host host_;
  std::unique_ptr<Writer> writer_;
  std::string resource_, pool_, definition_;
  std::int64_t last_id_ = 0;
  mutable std::vector<fs::path> tools_;
};

void print_usage(const char* name, const Usage& before, const Usage& after, double seconds, std::size_t runs) {
  std::printf(
      "  %-8s %5.1f MiB resident (highest %.1f, before %.1f), %zu descriptors (before %zu), "
      "%.0f %% of a processor, %.1f ms of it a run\n",
      name, after.resident_mib, after.highest_mib, before.resident_mib, after.descriptors, before.descriptors,
      100 * (after.processor_seconds - before.processor_seconds) / seconds,
      1000 * (after.processor_seconds - before.processor_seconds) / double(runs));
}

void print(const char* title, const Load::Result& result) {
  const std::size_t runs = result.seconds.size();
  std::printf("%s\n  %zu log backups in %.1f s: %.0f a minute; at most %zu waited at once\n", title, runs,
              result.all_seconds, double(runs) * minute_seconds / result.all_seconds, result.most_waiting);
  std::printf("  from #SAVED to the saved set: p50 %.2f s, p99 %.2f s, longest %.2f s (looked at every 0.1 s)\n",
              result.seconds[runs / 2], result.seconds[runs * 99 / 100], result.seconds.back());
  std::printf("  processes spawned a run:");
  for (const auto& [name, calls] : result.calls) std::printf(" %s %.2f", name.c_str(), double(calls) / double(runs));
  std::printf("\n");
  print_usage("agent", result.agent_before, result.agent_after, result.all_seconds, runs);
  print_usage("backupd", result.server_before, result.server_after, result.all_seconds, runs);
}

int number_argument(int argc, char** argv, int place, int otherwise) {
  const int given = argc > place ? std::atoi(argv[place]) : 0;
  return given > 0 ? given : otherwise;
}

void measure(const std::string& folder, int steady_seconds, int burst) {
  Load load(folder);
  load.set_up();
  const auto steady = load.run(static_cast<int>(steady_seconds * logs_a_second), logs_a_second);
  print("ten log backups a second: 200 databases, 3 services each, a log of each a minute", steady);
  const auto all = load.run(burst, 0);
  print("as many as can be recorded", all);
  std::printf("  a day's %.0f log backups take %.1f hours at this speed\n", logs_a_day,
              logs_a_day / (double(all.seconds.size()) / all.all_seconds) / 3600);
}

}  // namespace

int main(int argc, char** argv) {
  const int steady_seconds = number_argument(argc, argv, 1, default_steady_seconds);
  const int burst = number_argument(argc, argv, 2, default_burst);
  std::string folder = std::string(argc > 3 ? argv[3] : "/tmp") + "/log_backup_load.XXXXXX";
  if (::mkdtemp(folder.data()) == nullptr) {
    std::perror(folder.c_str());
    return 1;
  }
  try {
    measure(folder, steady_seconds, burst);
  } catch (const std::exception& problem) {
    std::fprintf(stderr, "log_backup_load: %s\n", problem.what());
    return 1;
  }
  fs::remove_all(folder);
  return 0;
}
