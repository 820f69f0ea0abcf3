#include "server/session.h"

#include <signal.h>
#include <unistd.h>

#include <chrono>

#include "base/clock.h"
#include "base/text.h"
#include "engine/system_replication.h"

namespace standin {

namespace {

/// Answers to hdbsql: kind ("E" error, "R" rows, "A" count), directives (one "key=value" a line), server time in
/// microseconds, then the body.
class Session {
 public:
  Session(Instance& instance, int fd) : instance_(instance), fd_(fd) {}

  void serve() {
    while (auto message = receive_message(fd_)) {
      if (message->empty()) return;
      Message answer;
      if ((*message)[0] == "LOGON" && message->size() == 5)
        answer = logon(*message);
      else if ((*message)[0] == "SQL" && message->size() == 3)
        answer = statement((*message)[1], (*message)[2] == "1");
      else
        answer = ask(*message);
      if (answer.empty() || !send_message(fd_, answer)) return;
    }
  }

 private:
  static Message error(const Sql_Error& problem, const std::string& directives = {}) {
    return {"E", directives, "0", std::to_string(problem.code), problem.text, problem.state};
  }

  Message refused() {
    return error({-10709,
                  "Connection failed (RTE:[89006] System call 'connect' failed, rc=111:Connection refused (" +
                      instance_.layout().host + ":" + port_ + "))",
                  "HY000"});
  }

  /// The database of a name or of a port; empty when there is none that takes logons.
  std::string find_database(const std::string& name, const std::string& port) {
    for (const Database& database : state_.databases()) {
      if (database.status != "YES") continue;
      if (!name.empty() && upper(database.name) == upper(name)) return database.name;
      for (const Service& service : database.services)
        if (name.empty() && service.sql_port != 0 && std::to_string(service.sql_port) == port) return database.name;
    }
    return {};
  }

  Message logon(const Message& message) {
    statements_.reset();
    port_ = message[4];
    if (!instance_.takes_logons() || !state_.open(instance_.layout())) return refused();
    Faults& faults = instance_.faults();
    database_ = find_database(message[1], port_);
    if (database_.empty() || faults.take("nobody_listens", database_)) return refused();
    const Replication replication = load_replication(instance_.layout());
    if (replication.secondary() && !replication.read_access()) return refused();
    if (const auto fault = faults.take("refuse_logon", database_, message[2]))
      return error({static_cast<int>(parse_number(*fault).value_or(10)), "authentication failed", "28000"});
    if (faults.take("lock_account", database_, message[2])) return error(locked_error());
    if (auto problem = Accounts(state_).logon(database_, message[2], message[3])) return error(*problem);
    statements_ = std::make_unique<Statements>(instance_, state_, database_, message[2]);
    stops_ = state_.stops_of(database_);
    return {"A",
            faults.take("password_warning", database_) ? "warning431=1" : "",
            "0",
            "0",
            instance_.layout().sid,
            database_,
            instance_.layout().host,
            instance_.layout().version};
  }

  std::string directives_of(const std::string& sql) {
    Faults& faults = instance_.faults();
    std::string text;
    for (const char* key : {"die_hdbsql", "garbage", "error_exit_zero", "cancel_text_on"})
      if (const auto value = faults.take(key, database_, sql)) text += std::string(key) + "=" + *value + "\n";
    return text;
  }

  Message statement(const std::string& sql, bool autocommit) {
    if (!statements_) return error({-10821, "Session not connected"});
    if (has_ended()) return down();
    Faults& faults = instance_.faults();
    if (faults.take("die_server", database_, sql)) ::kill(::getpid(), SIGKILL);
    const std::string directives = directives_of(sql);
    constexpr std::int64_t for_ever_ms = 1000LL * 3600 * 24;
    if (const auto hang = faults.take("hang_statement", database_, sql))
      hang_for(parse_number(*hang).value_or(0) * 1000, for_ever_ms);
    faults.pause("slow_statement", 0, database_, sql, [this] { return instance_.phase() != Instance::running; });
    if (has_ended()) return down();
    if (const auto fail = faults.take("fail_statement", database_, sql)) {
      const std::size_t colon = fail->find(':');
      return error({static_cast<int>(parse_number(trim(fail->substr(0, colon))).value_or(2)),
                    colon == std::string::npos ? "general error" : std::string(trim(fail->substr(colon + 1)))},
                   directives);
    }
    const auto begin = std::chrono::steady_clock::now();
    Result result;
    const auto problem = statements_->run(sql, autocommit, result);
    if (problem) return error(*problem, directives);
    const auto used = std::chrono::steady_clock::now() - begin;
    Message answer{result.has_rows ? "R" : "A", directives,
                   std::to_string(std::chrono::duration_cast<std::chrono::microseconds>(used).count())};
    if (!result.has_rows) {
      answer.push_back(std::to_string(result.affected));
      return answer;
    }
    answer.push_back(std::to_string(result.columns.size()));
    for (const std::string& column : result.columns) answer.push_back(column);
    for (const auto& row : result.rows)
      for (const Cell& cell : row) answer.push_back(std::string(1, cell.type) + cell.text);
    return answer;
  }

  /// A stop of the database ends its sessions, whatever they wait for.
  bool has_ended() { return state_.stops_of(database_) != stops_; }
  Message down() {
    statements_.reset();
    return error(connection_down());
  }

  /// 0 hangs until the instance stops or nobody wants a hanging statement any more.
  void hang_for(std::int64_t ms, std::int64_t for_ever) {
    constexpr std::int64_t step_ms = 50;
    const std::int64_t limit = ms == 0 ? for_ever : ms;
    for (std::int64_t waited = 0; waited < limit && instance_.phase() == Instance::running; waited += step_ms) {
      if (!instance_.faults().stands("hang_statement")) return;
      sleep_ms(step_ms);
    }
  }

  Message ask(const Message& message) {
    if (message[0] == "STATE") {
      const char* const names[] = {"starting", "running", "stopping"};
      return {names[instance_.phase()], std::to_string(::getpid()), std::to_string(instance_.start_ms()), services()};
    }
    if (message[0] == "LOOKS") return {std::to_string(instance_.log_writer().looks())};
    if (message[0] == "STOP") {
      instance_.request_stop();
      return {"OK"};
    }
    return {};
  }

  /// "process,database" of each server process that runs.
  std::string services() {
    std::string text = "compileserver,\npreprocessor,\nwebdispatcher,\n";
    if (!instance_.serves_databases()) return text + "nameserver,\n";
    if (!state_.open(instance_.layout())) return text;
    for (const Database& database : state_.databases())
      if (database.status == "YES")
        for (const Service& service : database.services) text += service.name + "," + database.name + "\n";
    return text;
  }

  Instance& instance_;
  int fd_;
  System_State state_;
  std::string database_;
  std::string port_;
  std::int64_t stops_ = 0;  ///< of the database at the logon
  std::unique_ptr<Statements> statements_;
};

}  // namespace

void serve_connection(Instance& instance, int fd) { Session(instance, fd).serve(); }

}  // namespace standin
