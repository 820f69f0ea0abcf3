#include "hdbbackint/call.h"

#include <algorithm>
#include <limits>

#include "hdbbackint/console.h"

namespace hdbbackint {

namespace {

/// The time decides, never the count.
constexpr int retries_without_bound = 1'000'000;

void answer_error(Answer_File& answers, Function function, const Request_Entry& entry) {
  // A saved object has no id yet, and a restored one is known by its name.
  const bool by_id = function == Function::inquire || function == Function::remove;
  answers.error(by_id ? entry.ebid : std::string(), entry.name);
}

}  // namespace

sap_hana::Backint_Catalog_helper Call::records(unsigned max_seconds_retry) const {
  const auto seconds = static_cast<int>(std::min<unsigned>(max_seconds_retry, std::numeric_limits<int>::max()));
  JSON_HTTP_Session requests(session, retries_without_bound, seconds);
  sap_hana::Backint_Catalog_helper helper;
  (void)helper.init(requests);
  return helper;
}

sap_hana::Backint_Catalog_helper::File_Query Call::own_files() const {
  sap_hana::Backint_Catalog_helper::File_Query query;
  query.host_uuid = configuration.host_uuid;
  query.sid = user.sid;
  query.database = user.database;
  return query;
}

void Call::fail(const Request_Entry& entry, const std::string& why) const {
  answer_error(answers, command.function, entry);
  const std::string what = entry.name.empty() ? entry.ebid : entry.name;
  report_failure(what.empty() ? why : what + ": " + why);
}

void Call::fail_all(const std::string& why) const {
  for (const Request_Entry& entry : request.entries) answer_error(answers, command.function, entry);
  report_failure(why);
}

}  // namespace hdbbackint
