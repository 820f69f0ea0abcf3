#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "hdbbackint/stop_source.h"
#include "hdbbackint/stream/byte_sink.h"
#include "platform/unique_descriptor.h"
#include "records/rate_limits.h"

namespace hdbbackint {

/// The account of bytes of one job, kept in a small file so that all processes of the job draw from it:
/// "/var/opt/tarvex/dorsal3/agent/rate/<job uuid>". Where the file cannot be used the limits hold for this process
/// alone. Any thread.
class Shared_Rate {
 public:
  enum Direction { from_source, to_destination, directions };

  /// `job_uuid` empty: for this process alone.
  explicit Shared_Rate(const std::string& job_uuid);

  /// Books `bytes` (at most 1 GiB) at `bytes_per_second` (not 0) and returns how long to wait before they may move.
  /// What is booked adds up exactly: rounding and late wake-ups do not change the rate in the long run.
  [[nodiscard]] std::chrono::nanoseconds book(Direction direction, std::uint64_t bytes, std::uint64_t bytes_per_second);

 private:
  struct Account {
    std::int64_t free_at_ns = 0;         ///< steady time at which all that was booked is paid for
    std::uint64_t remainder = 0;         ///< of the last division, so that no part of a nanosecond is lost
    std::uint64_t bytes_per_second = 0;  ///< to which the remainder belongs
  };
  using Accounts = std::array<Account, directions>;

  void open(const std::string& job_uuid);
  bool load();
  void store();

  std::mutex mutex_;
  platform::Unique_Descriptor file_;  ///< guarded by mutex_, its content by a lock on the file
  Accounts accounts_;                 ///< guarded by mutex_
};

/// The limits of one direction, by the local time of day, drawn from the job's account.
class Rate_Throttle : public Throttle {
 public:
  Rate_Throttle(Shared_Rate& account, Shared_Rate::Direction direction, const std::vector<Rate_Control_Entry>& entries,
                Stop_Source& stop)
      : account_(account), direction_(direction), entries_(entries), stop_(stop) {}
  bool take(std::size_t bytes) override;

 private:
  Shared_Rate& account_;
  Shared_Rate::Direction direction_;
  const std::vector<Rate_Control_Entry>& entries_;
  Stop_Source& stop_;
};

}  // namespace hdbbackint
