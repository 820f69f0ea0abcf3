#pragma once

#include <memory>
#include <string>
#include <vector>

#include "agent/backupd_client/client_io_ex.h"

/// What went wrong last, and whether trying again may cure it.
struct Client_IO_Failure {
  std::string text;
  bool transient = false;
};

/// One way to reach a pool: what Client_IO_Ex does once it has checked the path. Paths are relative to the pool and
/// sound. Every operation that fails sets failure(). One thread.
struct Client_IO_Ex::Transport {
 public:
  virtual ~Transport() = default;
  [[nodiscard]] virtual bool connect() = 0;
  [[nodiscard]] virtual bool get_dir(const std::string& path, std::vector<Pool_Entry>& entries) = 0;
  [[nodiscard]] virtual bool remove(const std::string& path) = 0;
  [[nodiscard]] virtual std::unique_ptr<Pool_Writer> create(const std::string& path) = 0;
  [[nodiscard]] virtual std::unique_ptr<Pool_Reader> open(const std::string& path) = 0;
  [[nodiscard]] virtual bool exists(const std::string& path) = 0;

  [[nodiscard]] const Client_IO_Failure& failure() const { return failure_; }

 protected:
  /// Keeps the failure; false, so that it can be returned.
  bool fail(Client_IO_Failure failure) {
    failure_ = std::move(failure);
    return false;
  }

 private:
  Client_IO_Failure failure_;
};

/// Over the directory of a "file://" URL. Null when the URL names no absolute directory.
[[nodiscard]] std::unique_ptr<Client_IO_Ex::Transport> make_file_transport(const std::string& url);
/// Over backupd's streams. Null when the URL has no host.
[[nodiscard]] std::unique_ptr<Client_IO_Ex::Transport> make_http_transport(const std::string& url,
                                                                           const Client_IO_Options& options);
