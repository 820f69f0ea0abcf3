#pragma once

namespace dorsal3 {

/// How the command ends. Documented in docs/man/dorsal3.1; a number never changes its meaning.
enum Exit_Code {
  exit_ok = 0,
  exit_failed = 1,  ///< the work was done and its result is bad: a failed job, a check or an object that is not good
  exit_usage = 2,   ///< the command line is wrong; nothing was asked of the server
  exit_configuration = 3,  ///< a configuration or key file is missing or unreadable
  exit_unreachable = 4,    ///< the server could not be reached, or it cannot reach the agent
  exit_refused = 5,        ///< the server refused the key, or the role may not do this
  exit_not_found = 6,      ///< the instance, database, set, job or pool does not exist
  exit_busy = 7,           ///< what is asked for runs already
  exit_protocol = 8,       ///< the server answered something this command does not understand
  exit_gap = 9,            ///< the chain of logs has a gap, or no full backup to begin at
  exit_interrupted = 130   ///< Ctrl-C; a started job goes on
};

}  // namespace dorsal3
