#pragma once

namespace agentd {

/// Removes from the agent's whole state directory what processes that were cut off left beside the files they wrote:
/// it may hold the access key. Logs each file, and what could not be removed. For the agent's start, when it
/// holds the lock of its installation and before it writes there itself; links are not followed.
void remove_unfinished_writes();

}  // namespace agentd
