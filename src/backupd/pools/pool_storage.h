#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "backupd/outcome.h"
#include "backupd/pools/pool_store.h"
#include "json/value.h"
#include "net/http_message.h"

namespace backupd {

/// Documented directory of a pool's objects, "" when it is not a directory of a file system.
[[nodiscard]] std::string pool_directory(const Pool& pool);

/// Makes the directory of a pool that this server serves.
[[nodiscard]] Outcome prepare_pool(const Pool& pool);

/// Keeps the objects of pools in directories. A path is a list of decoded segments; an empty, ".", ".." or hidden
/// segment, one with '/' or a null byte, and a symbolic link on the way are refused, so that no path leaves its pool.
/// Nothing is visible under its name before it is whole and durable. Any thread.
class Pool_Storage {
 public:
  using Path = std::vector<std::string>;
  /// Streams what arrives into the sink; false when it was cut.
  using Receive = std::function<bool(net::Body_Sink& sink)>;

  [[nodiscard]] Outcome put(const Pool& pool, const Path& path, const Receive& receive);
  [[nodiscard]] Outcome open(const Pool& pool, const Path& path, std::unique_ptr<net::Body_Source>& content);
  [[nodiscard]] Outcome size(const Pool& pool, const Path& path, std::uint64_t& bytes);
  /// A file, or an empty directory.
  [[nodiscard]] Outcome remove(const Pool& pool, const Path& path);
  /// Rows {"name", "directory", "size"} in order of names. An empty path is the pool itself.
  [[nodiscard]] Outcome list(const Pool& pool, const Path& path, json_spirit::Array& rows);
  enum class Removal {
    done,
    in_use,  ///< an object is on its way into it; nothing was removed
    failed   ///< logged; what could not be removed is left
  };
  /// Removes a directory with the files in it, unless one of them is being written. Directories below it are left, and
  /// it with them.
  [[nodiscard]] Removal remove_dataset(const Pool& pool, const Path& path);
  /// Removes what uploads left behind that a crash cut. For the start, before anything is stored.
  void remove_leftovers(const Pool& pool);

 private:
  class Upload;

  [[nodiscard]] std::uint64_t used_bytes(const Pool& pool);
  void add_used(const Pool& pool, std::int64_t bytes);

  std::mutex mutex_;
  std::map<std::string, std::uint64_t> used_;  ///< of pools with a limit, counted once and kept up to date; by mutex_
};

}  // namespace backupd
