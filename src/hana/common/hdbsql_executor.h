#pragma once

#include <ace/Basic_Types.h>

#include <chrono>
#include <string>
#include <string_view>
#include <vector>

#include "hana/common/hana_records.h"
#include "hana/common/text_process_handler.h"
#include "job/job_log.h"
#include "platform/secure_string.h"

namespace sap_hana {

/// Why a statement did not succeed.
enum class HDBSQL_Failure {
  none,
  not_initialized,  ///< no successful init before
  bad_statement,    ///< the text cannot be given to hdbsql
  tool,             ///< hdbsql is missing, was killed, or failed without saying why
  connection,       ///< nobody answers
  logon,            ///< user or password refused
  statement         ///< the database refused the statement
};

/// How one statement ended.
struct HDBSQL_Outcome {
  HDBSQL_Failure failure = HDBSQL_Failure::none;
  int code = 0;         ///< HANA's error number, 0 when there is none
  std::string message;  ///< one line for people; never holds the password
  [[nodiscard]] bool ok() const { return failure == HDBSQL_Failure::none; }
};

/// Runs SQL statements, and hdbsql's own commands such as "\s", through hdbsql: one child process a statement.
///
/// The logon goes through the child's standard input. execute and run keep nothing in the object and may be called from
/// several threads at once; init may not run beside them.
class HDBSQL_Executor {
 public:
  /// `tool`: program to run instead of the instance's hdbsql: a name in the instance's directory of programs, or a
  /// path.
  explicit HDBSQL_Executor(const std::string& tool = {});

  /// Binds to a database of an installed instance. Looks the instance up, never logs on. An empty `database` is the
  /// system database, or the only one of a system without tenants. False, with a message, when the instance is not
  /// installed here or when a name or the password is empty or holds control characters.
  [[nodiscard]] bool init(const std::string& sid, const std::string& instance_name, const std::string& database,
                          const std::string& username, const secure_string& password);
  /// The same for an instance that the agent's registry knows by `instance_mgr_name`.
  [[nodiscard]] bool init(const std::string& instance_mgr_name, const std::string& database,
                          const std::string& username, const secure_string& password);
  /// The same for a database that was listed before; nothing is looked up.
  [[nodiscard]] bool init(const Database_Info& info, const std::string& username, const secure_string& password);
  [[nodiscard]] bool is_initialized() const { return initialize_; }
  /// For statements that somebody waits for: hdbsql is ended when it takes longer, and what HANA does with the
  /// statement is HANA's. 0, the default: no limit, as a backup takes as long as it takes.
  void time_limit(std::chrono::seconds limit) { time_limit_ = limit; }
  /// Another executor of the same database, for a question beside statements that have no limit.
  [[nodiscard]] HDBSQL_Executor with_time_limit(std::chrono::seconds limit) const;

  /// Runs one statement and blocks until hdbsql ends. `handler` (or null) is given every line; `log` (or null) receives
  /// this call's messages. True when the statement succeeded: hdbsql ended with 0 and reported no error.
  [[nodiscard]] bool execute(const std::string& sql, Text_Process_Handler* handler, ACE_Log_Msg_Callback_var log) const;
  /// The same with the output logged.
  [[nodiscard]] bool execute(const std::string& sql, ACE_Log_Msg_Callback_var log) const;
  /// The same as execute for callers that judge a failure themselves: a failure is told, not logged.
  [[nodiscard]] HDBSQL_Outcome run(const std::string& sql, Text_Process_Handler* handler,
                                   ACE_Log_Msg_Callback_var log) const;
  /// The same for a statement that holds `secret`, as it is or in double quotes: neither is in what is told or logged.
  [[nodiscard]] HDBSQL_Outcome run_secretly(const secure_string& sql, const secure_string& secret) const;

  [[nodiscard]] const std::string& sid() const { return sid_; }
  /// Database it is bound to; empty for a system without tenants.
  [[nodiscard]] const std::string& database() const { return database_; }
  [[nodiscard]] ACE_UINT16 instance_number() const { return instance_number_; }
  [[nodiscard]] const std::string& dir_executable() const { return dir_executable_; }
  [[nodiscard]] bool is_multi_container() const { return multi_container_; }
  [[nodiscard]] const std::string& host() const { return host_; }

 private:
  [[nodiscard]] bool bind(const System_Instance_Info& info, const std::string& database, const std::string& username,
                          const secure_string& password);
  [[nodiscard]] HDBSQL_Outcome run_tool(std::string_view sql, Text_Process_Handler* handler,
                                        const std::vector<secure_string>& secrets) const;
  [[nodiscard]] std::string tool_path() const;
  [[nodiscard]] std::string target() const;

  bool initialize_ = false;
  bool multi_container_ = false;
  std::string host_;
  ACE_UINT16 port_ = 0;  ///< 0: hdbsql finds it by the instance number
  std::string sid_;
  std::string database_;
  ACE_UINT16 instance_number_ = 0;
  std::string username_;
  secure_string password_;
  std::string tool_;
  std::string dir_executable_;
  std::chrono::seconds time_limit_{0};
};

/// How long a person's question to HANA may take, such as a logon that is checked or a list of databases: less than who
/// asks the agent waits for its answer.
constexpr std::chrono::seconds question_limit{60};

}  // namespace sap_hana
