#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "backupd/jobs/activity_rows.h"
#include "json/value.h"

namespace backupd {

/// What a data backup needs to be tried on the next host when one declines it. Kept in the document of its run, and
/// taken out before the run is shown.
struct Run_Chain {
  enum Hand_Over {
    waiting,  ///< its agent was never asked
    sent,     ///< its agent is asked
    unsure,   ///< its agent was asked and may not have heard; it is asked again, nobody else is
    taken     ///< its agent said yes
  };

  json_spirit::Object options;    ///< of the start
  std::vector<std::string> left;  ///< hosts that were not asked yet, in order
  Hand_Over hand_over = waiting;
  bool stopped = false;  ///< somebody asked for the end: no further host is tried

  /// Empty for a run that is tried on one host only.
  [[nodiscard]] static std::optional<Run_Chain> of(const json_spirit::Object& document);
  void keep_in(json_spirit::Object& document) const;
};

/// The member of a run's document that holds its chain.
inline constexpr char run_chain_key[] = "chain";
inline constexpr char follows_key[] = "follows";
inline constexpr char followed_by_key[] = "followed_by";

/// Which of the hosts is asked next; none when nobody can be.
using Choose_Host = std::function<std::optional<std::size_t>(const std::vector<std::string>& hosts)>;

/// The document of a run that begins now.
[[nodiscard]] Activity_Row new_activity(const std::string& id, const std::string& def_id, const std::string& name,
                                        const std::string& host_uuid);

/// Names the first `count` hosts in the log of a run.
void tell_passed_over(Sql_Session& session, const std::string& run, const std::vector<std::string>& hosts,
                      std::size_t count);

/// Begins the next try of a run that was declined, in the transaction that ends it, so that nobody ever sees the one
/// without the other; it waits there to be handed over. Changes `declined` alone when nobody is left: the caller stores
/// it. True when a run was begun.
bool follow_declined_run(Sql_Session& session, Activity_Row& declined, const Choose_Host& choose);

}  // namespace backupd
