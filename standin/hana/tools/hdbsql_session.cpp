#include "tools/hdbsql_session.h"

#include <signal.h>
#include <unistd.h>

#include <chrono>

#include "base/cluster.h"
#include "base/text.h"
#include "tools/hdbsql_output.h"

namespace standin {

namespace {
constexpr int not_connected = -10821;
constexpr int logon_refused = 10;
constexpr int connect_failed = -10709;
constexpr const char* cancel_phrase = "canceled by user";
}  // namespace

bool Hdbsql_Session::fail(int code, const std::string& text, const std::string& state) {
  last_code_ = code;
  std::fflush(out_);
  const bool to_stdout = errors_to_stdout_ && text.find(cancel_phrase) != std::string::npos;
  std::fprintf(to_stdout ? out_ : stderr, "* %d: %s%s%s\n", code, text.c_str(),
               state.empty() ? "" : " SQLSTATE: ", state.c_str());
  return false;
}

std::string Hdbsql_Session::port_of(const Connect_Options& connect) const {
  if (!connect.port.empty()) return connect.port;
  const std::string number = connect.instance.empty() ? "00" : connect.instance;
  return "3" + number + (upper(connect.database) == "SYSTEMDB" ? "13" : "15");
}

std::string Hdbsql_Session::socket_of(const std::string& host) const {
  for (const Cluster_Host& other : hosts_of(layout_))
    if (other.name == host) return layout_of(layout_, other).state("socket");
  return layout_.state("socket");
}

bool Hdbsql_Session::connect(const Connect_Options& connect, bool told) {
  tried_ = true;
  connection_.reset();
  connect_ = connect;
  if (!connect.key.empty()) return fail(-10104, "Invalid value for KEY (" + connect.key + ")", "HY000");
  const std::string port = port_of(connect);
  const std::string refused =
      "Connection failed (RTE:[89006] System call 'connect' failed, rc=111:Connection refused (" +
      (connect.host.empty() ? "localhost" : connect.host) + ":" + port + "))";
  const bool own = port.size() == 5 && port.substr(1, 2) == layout_.number;
  if (own) connection_ = connect_to(socket_of(connect.host));
  if (!connection_.valid()) return fail(connect_failed, refused, "HY000");
  std::optional<Message> answer;
  if (send_message(connection_.get(), {"LOGON", connect.database, connect.user, connect.password, port}))
    answer = receive_message(connection_.get());
  if (!answer || (*answer)[0] == "E") {
    connection_.reset();
    if (!answer) return fail(connect_failed, refused, "HY000");
    return fail(static_cast<int>(parse_number((*answer)[3]).value_or(2)), (*answer)[4], (*answer)[5]);
  }
  greeting_ = *answer;
  if (!greeting_[1].empty())
    std::fprintf(stderr, "Warning: * 431: user's password will expire within few days: %s SQLSTATE: 01010\n",
                 connect.user.c_str());
  if (told && !options_.no_remarks)
    std::fprintf(out_, "Connected to %s@%s:%s\n", greeting_[4].c_str(), greeting_[6].c_str(), port.c_str());
  return true;
}

bool Hdbsql_Session::status() {
  if (!connected()) return fail(not_connected, "Session not connected", "");
  const bool hana2 = !version_below(greeting_[7], "2.00");
  std::fprintf(out_, "host          : %s%s\n", greeting_[6].c_str(), hana2 ? "" : (":" + port_of(connect_)).c_str());
  if (hana2)
    std::fprintf(out_, "sid           : %s\ndbname        : %s\n", greeting_[4].c_str(), greeting_[5].c_str());
  else
    std::fprintf(out_, "database      : %s\n", greeting_[4].c_str());
  std::fprintf(out_, "user          : %s\nkernel version: %s\n", connect_.user.c_str(), greeting_[7].c_str());
  std::fprintf(
      out_,
      "SQLDBC version:        libSQLDBCHDB 2.20.020.1712178305\nautocommit    : %s\nlocale        : en_US.UTF-8\n"
      "input encoding: UTF8\n",
      options_.autocommit ? "ON" : "OFF");
  if (hana2) std::fprintf(out_, "sql port      : %s:%s\n", greeting_[6].c_str(), port_of(connect_).c_str());
  return true;
}

bool Hdbsql_Session::command(const std::string& line) {
  const std::size_t blank = line.find_first_of(" \t");
  const std::string name = line.substr(0, blank);
  const std::string rest = blank == std::string::npos ? std::string() : line.substr(blank + 1);
  if (name == "\\q") {
    quit_ = true;
    return true;
  }
  if (name == "\\c" || name == "\\connect") {
    Connect_Options wanted;
    if (!read_connect(rest, wanted)) {
      connection_.reset();
      tried_ = true;
      return fail(-10100, "Bad connect options (use -i ##,-n,-d,-u,-p,-U): \\c *******", "");
    }
    return connect(wanted, true);
  }
  if (name == "\\di") {
    connection_.reset();
    tried_ = true;
    return true;
  }
  if (name == "\\a") {
    options_.autocommit = upper(trim(rest)) != "OFF";
    return true;
  }
  if (name == "\\m" || name == "\\mu" || name == "\\pa" || name == "\\es" || name == "\\al" || name == "\\h")
    return true;
  if (name != "\\s") {
    std::fprintf(stderr, "Unknown command %s\n", name.c_str());
    last_code_ = 1;
    return false;
  }
  if (!connected() && !tried_ && options_.connect.given && !connect(options_.connect, false)) return false;
  return status();
}

bool Hdbsql_Session::obey(const std::string& directives) {
  for (const std::string& line : split(directives, '\n')) {
    const std::size_t equals = line.find('=');
    if (equals == std::string::npos) continue;
    const std::string key = line.substr(0, equals);
    const std::string value = line.substr(equals + 1);
    if (key == "die_hdbsql") ::kill(::getpid(), static_cast<int>(parse_number(value).value_or(SIGKILL)));
    if (key == "error_exit_zero") exit_zero_ = true;
    if (key == "cancel_text_on") errors_to_stdout_ = value == "stdout";
    if (key == "garbage") {
      std::fprintf(out_, "%s\n", value.c_str());
      return false;
    }
  }
  return true;
}

bool Hdbsql_Session::run(const std::string& statement) {
  const std::string text(trim(statement));
  if (text.empty()) return true;
  if (text.front() == '\\') return command(text);
  if (lower(text) == "quit" || lower(text) == "exit") {
    quit_ = true;
    return true;
  }
  if (!connected() && !tried_ && options_.connect.given && !connect(options_.connect, false)) return false;
  if (!connected() && !tried_ && !options_.input_file.empty()) {
    std::fprintf(stderr, "Single Sign-On authentication failed\n");
    last_code_ = logon_refused;
    return false;
  }
  if (!connected()) return fail(not_connected, "Session not connected", "");
  const auto begin = std::chrono::steady_clock::now();
  std::optional<Message> answer;
  if (send_message(connection_.get(), {"SQL", text, options_.autocommit ? "1" : "0"}))
    answer = receive_message(connection_.get());
  if (!answer || answer->size() < 4) {
    connection_.reset();
    return fail(-10807, "Connection down: [89006] System call 'recv' failed, rc=104:Connection reset by peer", "08006");
  }
  const double used = std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - begin).count();
  if (!obey((*answer)[1])) return true;
  if ((*answer)[0] == "E")
    return fail(static_cast<int>(parse_number((*answer)[3]).value_or(2)), (*answer)[4], (*answer)[5]);
  if ((*answer)[0] == "R")
    print_rows(options_, *answer, used, out_);
  else if (!options_.no_remarks)
    print_affected(*answer, used, out_);
  std::fflush(out_);
  return true;
}

}  // namespace standin
