#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "records/pool_info.h"

struct Client_IO_Options {
  unsigned max_seconds_retry = 0;  ///< how long a broken transfer is tried again
  std::string ca_file;
};

/// What a host's own configuration says about reaching pools.
void set_options_by_host(Client_IO_Options& options);
/// What a pool's record says. False when the pool cannot be used from here.
[[nodiscard]] bool set_options_by_pool(Client_IO_Options& options, const Pool_Info& pool);

struct Pool_Entry {
  std::string name;
  bool directory = false;
  std::uint64_t size = 0;
};

/// Writes one object of a pool. Nothing is visible under its name until commit has returned true; without a commit
/// the destructor leaves nothing behind. One thread.
class Pool_Writer {
 public:
  virtual ~Pool_Writer() = default;
  virtual bool write(const void* data, std::size_t size) = 0;
  /// Durable when it returns true.
  virtual bool commit() = 0;
  /// Of the last failure: what and why.
  [[nodiscard]] virtual const std::string& error() const = 0;
  /// The failure is one that trying again may cure (a broken connection, a server that restarts).
  [[nodiscard]] virtual bool transient() const = 0;
};

/// Reads one object of a pool from the beginning. One thread.
class Pool_Reader {
 public:
  virtual ~Pool_Reader() = default;
  /// Bytes read, 0 at the end, -1 on failure.
  virtual ssize_t read(void* data, std::size_t size) = 0;
  [[nodiscard]] virtual std::uint64_t size() const = 0;
  [[nodiscard]] virtual const std::string& error() const = 0;
  [[nodiscard]] virtual bool transient() const = 0;
};

/// A connection to one storage pool, over "file://" or "http[s]://" by the url. Paths are relative to the url, with
/// '/' between segments; an empty, "." or ".." segment is refused. Used by one thread; open as many as there are
/// streams.
class Client_IO_Ex {
 public:
  explicit Client_IO_Ex(Client_IO_Options options = {});
  ~Client_IO_Ex();
  Client_IO_Ex(const Client_IO_Ex&) = delete;
  Client_IO_Ex& operator=(const Client_IO_Ex&) = delete;

  /// False when the scheme is unknown, the pool is missing, or it cannot be reached.
  [[nodiscard]] bool connect(const std::string& url);
  /// Entries of a directory, by name; false when it does not exist.
  [[nodiscard]] bool get_dir(const std::string& path, std::vector<Pool_Entry>& entries);
  /// Removes an object or an empty directory; false when it does not exist.
  [[nodiscard]] bool remove(const std::string& path);
  /// Opens a new object; missing directories are made. Null when it exists or cannot be made.
  [[nodiscard]] std::unique_ptr<Pool_Writer> create(const std::string& path);
  [[nodiscard]] std::unique_ptr<Pool_Reader> open(const std::string& path);
  [[nodiscard]] bool exists(const std::string& path);
  /// Told how many bytes of the object have been stored so far.
  using Progress = std::function<void(std::uint64_t bytes)>;
  /// Copies one object into a local file (documented path, mode 0640), opened with `open_flags`, in blocks of
  /// `block_bytes`. False when it could not be had whole; the local file is then gone.
  [[nodiscard]] bool get_file(const std::string& path, const std::string& local_path, int open_flags,
                              std::size_t block_bytes, const Progress& progress = {});
  /// Of the last failure: what and why.
  [[nodiscard]] const std::string& error() const;
  [[nodiscard]] bool transient() const;

  struct Transport;

 private:
  [[nodiscard]] bool check(const std::string& path, bool root_allowed);
  bool keep_failure(bool ok);
  bool fail_locally(const std::string& what, const std::string& local_path);
  bool copy(Pool_Reader& reader, int descriptor, std::size_t block_bytes, const Progress& progress,
            const std::string& local_path);

  Client_IO_Options options_;
  std::unique_ptr<Transport> transport_;
  std::string error_;
  bool transient_ = false;
};
