#pragma once

#include <string>
#include <vector>

#include "job/job_log.h"

/// Runs a user's script, given as a command line of words: no shell sees it. The first word is the absolute path of the
/// program. Standard error and, unless `drop_output`, standard output go line by line at information priority to the
/// log, and to `log` when it is not empty; an empty one leaves them to what the calling thread is bound to. True when
/// the exit code is 0, and for a command without any word; else false with one error line that says what happened.
///
/// A script has no time limit of its own. When the run of the calling thread is cancelled or aborted meanwhile, the
/// script gets SIGTERM, and SIGKILL 10 seconds later; the result is then false, with a warning. One that begins while
/// the run is completing, after its work, is ended by an abort only. What the script started itself is left to it.
[[nodiscard]] bool execute_script(const std::string& command, bool drop_output, ACE_Log_Msg_Callback_var log);

/// Splits a command line into words at blanks. '...' is taken as it stands; within "..." and outside of quotes a
/// backslash takes the next character as it is. Nothing is expanded. False when a quote or a backslash is left open.
[[nodiscard]] bool split_command_line(const std::string& command, std::vector<std::string>& words);
