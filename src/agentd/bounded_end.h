#pragma once

#include <chrono>
#include <functional>

namespace agentd {

/// Does `work` on a thread of its own. False when it has not ended within `limit`: it then goes on, with what it
/// captured, until the process is left, which must be without unwinding.
[[nodiscard]] bool ends_within(std::chrono::nanoseconds limit, const std::function<void()>& work);

/// Waits for all threads that jobs have made, the detached ones of a stop or a rollback too. False when one of them
/// still runs after `limit`; the process must be left without unwinding then.
[[nodiscard]] bool job_threads_end_within(std::chrono::nanoseconds limit);

}  // namespace agentd
