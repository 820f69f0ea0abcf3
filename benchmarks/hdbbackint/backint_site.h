#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "net/http_server.h"
#include "support/memory_backupd.h"

namespace benchmarks {

inline constexpr std::size_t mib = 1U << 20;

/// Median and both ends of some figures; `values` has at least one.
struct Spread {
  double median = 0;
  double smallest = 0;
  double largest = 0;
};
[[nodiscard]] Spread spread_of(std::vector<double> values);

/// 64 MiB of pages as a database writes them: half of each repeats, half does not.
[[nodiscard]] std::string database_like_pattern();

/// Writes `bytes` of the repeated pattern into a named pipe. `before_end` is called when all is written and the reader
/// does not yet see the end.
void feed_pipe(const std::string& pipe, const std::string& pattern, std::size_t bytes,
               const std::function<void()>& before_end = {});

/// hdbbackint as installed below a folder of its own, with a pool in a directory of the same disk and a server for
/// its records on loopback. The folder goes with the object. Not for several threads.
class Backint_Site {
 public:
  /// `disk` is the folder to measure on. A site that cannot be made ends the program with a message.
  Backint_Site(const std::filesystem::path& disk, const std::string& name, const std::string& program_file);
  ~Backint_Site();
  Backint_Site(const Backint_Site&) = delete;
  Backint_Site& operator=(const Backint_Site&) = delete;

  /// The job that every backup here belongs to, from now on with this method, at level 1.
  void use_compression(const char* method);
  /// A new named pipe. hdbbackint knows it as "/tmp/<name>".
  /// The result is where it really is.
  [[nodiscard]] std::string make_pipe(const std::string& name) const;
  /// Where it really is.
  [[nodiscard]] std::string pipe(const std::string& name) const { return (root_ / "tmp" / name).string(); }
  /// Leaves the request's lines where the command of `function` reads them.
  [[nodiscard]] std::vector<std::string> command(const std::string& function, const std::string& request) const;
  /// The line that ties a backup to the job.
  [[nodiscard]] static std::string tool_option();

  [[nodiscard]] std::filesystem::path pool() const { return root_ / "pool"; }
  [[nodiscard]] std::string error_file() const { return (root_ / "tmp/err").string(); }
  [[nodiscard]] const support::Memory_Backupd& records() const { return server_; }
  void empty_pool() const;

 private:
  std::filesystem::path root_;
  std::string program_;
  support::Memory_Backupd server_{"the-key"};
  net::Http_Server listener_{server_, {}};
};

}  // namespace benchmarks
