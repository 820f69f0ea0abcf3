#include "hana/common/tenant_database_control.h"

#include <chrono>
#include <string_view>

#include "hana/common/hdbsql_general_text_handler.h"
#include "hana/common/hdbsql_input.h"
#include "hana/common/text_lines.h"
#include "platform/clock.h"
#include "platform/log.h"

namespace sap_hana {

namespace {

using std::chrono::seconds;

constexpr seconds poll_interval{10};
/// As long as HANA's own wait for the start of an instance.
constexpr seconds start_limit{2700};
constexpr seconds stop_limit{600};
constexpr std::size_t logged_message_bytes = 2048;

struct Action {
  const char* verb;            ///< for messages
  const char* keyword;         ///< of the statement
  std::string_view reached;    ///< ACTIVE_STATUS in the end
  std::string_view under_way;  ///< ACTIVE_STATUS meanwhile
  std::string_view done_text;  ///< how HANA says that it was so before
  seconds limit;
};

constexpr Action start_action{"start", "START", "YES", "STARTING", "already running", start_limit};
constexpr Action stop_action{"stop", "STOP", "NO", "STOPPING", "already stopped", stop_limit};

bool get_status(const HDBSQL_Executor& executor, const std::string& database, std::string& status) {
  HDBSQL_General_Text_Handler handler;
  const std::string sql = "select ACTIVE_STATUS from SYS.M_DATABASES where DATABASE_NAME=" + sql_literal(database);
  if (!executor.execute(sql, &handler, nullptr)) return false;
  if (last_value(handler, "ACTIVE_STATUS", status)) return true;
  D3_ERROR("HANA system %C has no database '%C'\n", executor.sid().c_str(),
           printable(database, logged_message_bytes).c_str());
  return false;
}

/// Waits while HANA is on the way; what it says else, or says for too long, is a failure.
bool wait_for_status(const HDBSQL_Executor& executor, const std::string& database, const Action& action) {
  platform::Clock& clock = platform::Clock::current();
  const auto until = clock.steady_now() + action.limit;
  std::string status;
  while (get_status(executor, database, status)) {
    if (status == action.reached) return true;
    if (status != action.under_way || clock.steady_now() >= until) {
      D3_ERROR("Database '%C' of HANA system %C did not %C: its status is '%C'\n",
               printable(database, logged_message_bytes).c_str(), executor.sid().c_str(), action.verb,
               printable(status, logged_message_bytes).c_str());
      return false;
    }
    clock.sleep_for(poll_interval);
  }
  return false;
}

bool change(const HDBSQL_Executor& executor, const std::string& database, const Action& action) {
  std::string status;
  if (!get_status(executor, database, status)) return false;
  if (status == action.reached) return true;
  if (status != action.under_way) {
    const std::string sql = std::string("ALTER SYSTEM ") + action.keyword + " DATABASE " + sql_identifier(database);
    const HDBSQL_Outcome outcome = executor.run(sql, nullptr, nullptr);
    // Somebody else may have been faster.
    if (!outcome.ok() && outcome.message.find(action.done_text) == std::string::npos) {
      D3_ERROR("Failed to %C database '%C' of HANA system %C: %C\n", action.verb,
               printable(database, logged_message_bytes).c_str(), executor.sid().c_str(), outcome.message.c_str());
      return false;
    }
    if (!outcome.ok()) return true;
  }
  return wait_for_status(executor, database, action);
}

}  // namespace

bool Tenant_Database_Controller::start(const std::string& database) {
  return change(executor_, database, start_action);
}

bool Tenant_Database_Controller::stop(const std::string& database) { return change(executor_, database, stop_action); }

}  // namespace sap_hana
