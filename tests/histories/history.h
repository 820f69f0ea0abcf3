#pragma once

#include <iosfwd>
#include <string>
#include <vector>

namespace histories {

/// Something that happens to a database: a tenant of a system, beside another one.
struct Step {
  enum class What {
    commit,           ///< a key gets a value of its own, or is deleted
    commit_at_begin,  ///< behind a full backup, in the second at which its record begins
    full,
    differential,
    incremental,
    logs,      ///< HANA saves its log
    to_files,  ///< HANA makes a full backup by itself, into files
    pool,      ///< data backups go to the other pool from here on
    lose_log,  ///< a log that was saved is gone from the pool
    restore,   ///< in place, to a target
    other,     ///< what follows happens to the other tenant, until the next such step
    copy,      ///< into another tenant, to a target; the history goes on there
  };
  What what = What::commit;
  unsigned choice = 0;  ///< which key, which target
};

/// Which of the moments and sets that a history offers is asked for, counted round.
struct Wish {
  unsigned choice = 0;
  bool ignore_delta = false;
};

struct History {
  unsigned begin = 0;  ///< which time of the day
  std::vector<Step> steps;
  std::vector<Wish> questions;  ///< only a plan is asked for
  Wish end;                     ///< the restore at the end
};

std::ostream& operator<<(std::ostream& out, const Step& step);
std::ostream& operator<<(std::ostream& out, const Wish& wish);
std::ostream& operator<<(std::ostream& out, const History& history);

}  // namespace histories
