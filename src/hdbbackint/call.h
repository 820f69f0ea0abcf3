#pragma once

#include <string>

#include "agent/backupd_client/agent_configuration.h"
#include "agent/backupd_client/http_session.h"
#include "hana/common/backint_catalog_helper.h"
#include "hdbbackint/command_line.h"
#include "hdbbackint/protocol/answer_file.h"
#include "hdbbackint/protocol/request.h"
#include "hdbbackint/protocol/user_id.h"
#include "hdbbackint/stop_source.h"

namespace hdbbackint {

/// One call of the program by HANA: what was asked, where the answers go, and the way to backupd. Shared by the threads
/// of the call; only the answers change.
struct Call {
  const Command_Line& command;
  const Request& request;
  User_Id user;  ///< empty when the command line names none
  Answer_File& answers;
  Stop_Source& stop;
  Agent_Configuration configuration;
  HTTP_Session_var session;

  /// A client of the records for one thread. Requests are tried again for `max_seconds_retry`.
  [[nodiscard]] sap_hana::Backint_Catalog_helper records(unsigned max_seconds_retry) const;
  /// The file records that the user of this call may see, on this host.
  [[nodiscard]] sap_hana::Backint_Catalog_helper::File_Query own_files() const;

  /// Answers "#ERROR" for an entry and tells why.
  void fail(const Request_Entry& entry, const std::string& why) const;
  /// The same for all entries, with one line.
  void fail_all(const std::string& why) const;
};

/// How long requests are tried again before a job's own setting is known.
constexpr unsigned default_seconds_retry = 60;

}  // namespace hdbbackint
