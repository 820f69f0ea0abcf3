#include "hdbbackint/stream/shared_rate.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>

#include "hdbbackint/paths.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "platform/log.h"
#include "platform/product_paths.h"

namespace hdbbackint {

namespace {

using namespace std::chrono_literals;

constexpr mode_t rate_directory_mode = 0770;
constexpr mode_t rate_file_mode = 0660;
/// Time that was not used may be made up for to this extent.
constexpr std::chrono::nanoseconds burst = 100ms;
/// Nobody books further ahead: such an account is left from before a restart of the host.
constexpr std::chrono::nanoseconds furthest_booking = 24h;
/// A stream books a quarter of a second at a time, so that the limits of the next hour of the day are soon met.
constexpr std::uint64_t bookings_per_second = 4;
constexpr std::uint64_t smallest_booking_bytes = 1;
/// So that the arithmetic in nanoseconds stays within 64 bits.
constexpr std::uint64_t largest_booking_bytes = 1U << 30;
constexpr std::uint64_t nanoseconds_per_second = 1'000'000'000;
/// Accounts of jobs that have ended are in nobody's way; the next job removes them after this time.
constexpr std::time_t stale_after_seconds = 7 * 24 * 3600;

std::string rate_directory() { return platform::product_paths::backint_rate_directory(); }

void remove_stale_accounts() {
  std::vector<std::string> names;
  if (!platform::list_directory(rate_directory(), names)) return;
  for (const std::string& name : names) {
    const std::string path = rate_directory() + "/" + name;
    struct stat status {};
    const bool known = ::stat(real_path(path).c_str(), &status) == 0;
    if (known && platform::Clock::current().wall_seconds() - status.st_mtime > stale_after_seconds) {
      (void)platform::remove_file(path);
    }
  }
}

unsigned local_second_of_day() {
  const std::time_t now = platform::Clock::current().wall_seconds();
  std::tm local{};
  ::localtime_r(&now, &local);
  return static_cast<unsigned>((local.tm_hour * 60 + local.tm_min) * 60 + local.tm_sec);
}

}  // namespace

Shared_Rate::Shared_Rate(const std::string& job_uuid) {
  if (!job_uuid.empty()) open(job_uuid);
}

void Shared_Rate::open(const std::string& job_uuid) {
  const std::string path = rate_directory() + "/" + platform::encode_file_name(job_uuid);
  remove_stale_accounts();
  if (platform::mkdir_p(rate_directory().c_str(), rate_directory_mode) == 0) {
    file_.reset(::open(real_path(path).c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, rate_file_mode));
  }
  if (!file_.valid()) {
    D3_WARNING("Rate limits hold for this process alone, cannot open %C: %C\n", path.c_str(), std::strerror(errno));
  }
}

std::chrono::nanoseconds Shared_Rate::book(Direction direction, std::uint64_t bytes, std::uint64_t bytes_per_second) {
  const std::lock_guard<std::mutex> guard(mutex_);
  const bool locked = file_.valid() && ::flock(file_.get(), LOCK_EX) == 0;
  if (locked) load();
  const std::int64_t now = std::chrono::nanoseconds(platform::Clock::current().steady_now().time_since_epoch()).count();
  Account& account = accounts_[direction];
  if (account.free_at_ns > now + furthest_booking.count()) account.free_at_ns = now;
  account.free_at_ns = std::max(account.free_at_ns, now - burst.count());
  const std::int64_t wait = std::max<std::int64_t>(account.free_at_ns - now, 0);
  if (account.bytes_per_second != bytes_per_second) account.remainder = 0;
  account.bytes_per_second = bytes_per_second;
  const std::uint64_t cost = bytes * nanoseconds_per_second + account.remainder;
  account.free_at_ns += static_cast<std::int64_t>(cost / bytes_per_second);
  account.remainder = cost % bytes_per_second;
  if (locked) {
    store();
    ::flock(file_.get(), LOCK_UN);
  }
  return std::chrono::nanoseconds(wait);
}

/// A new file, or one of another size, has nothing booked.
bool Shared_Rate::load() {
  Accounts stored;
  if (::pread(file_.get(), stored.data(), sizeof stored, 0) != static_cast<ssize_t>(sizeof stored)) return false;
  accounts_ = stored;
  return true;
}

void Shared_Rate::store() {
  // A write that fails leaves the account as another process knows it; ours goes on in memory.
  [[maybe_unused]] const ssize_t written = ::pwrite(file_.get(), accounts_.data(), sizeof accounts_, 0);
}

bool Rate_Throttle::take(std::size_t bytes) {
  std::uint64_t left = bytes;
  while (left > 0 && !stop_.requested()) {
    const std::uint64_t limit = Rate_Limits::limit_at(entries_, local_second_of_day());
    if (limit == 0) return true;
    const std::uint64_t wanted = std::max(limit / bookings_per_second, smallest_booking_bytes);
    const std::uint64_t part = std::min({left, wanted, largest_booking_bytes});
    const std::chrono::nanoseconds wait = account_.book(direction_, part, limit);
    if (wait > 0ns && !stop_.wait(wait)) return false;
    left -= part;
  }
  return !stop_.requested();
}

}  // namespace hdbbackint
