#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "agent/backupd_client/client_io_ex.h"
#include "hdbbackint/stop_source.h"
#include "hdbbackint/stream/byte_input.h"
#include "hdbbackint/stream/retry_window.h"

namespace hdbbackint {

/// Reads one object of a pool. A failure that may pass is tried again for a time: the object is opened again and what
/// was given already is skipped. One thread.
class Resuming_Reader : public Byte_Input {
 public:
  Resuming_Reader(std::string url, std::string path, Client_IO_Options options, Stop_Source& stop);

  ssize_t read(char* data, std::size_t size) override;
  [[nodiscard]] const std::string& error() const override { return error_; }

 private:
  bool open();
  bool skip(std::uint64_t bytes);
  ssize_t read_once(char* data, std::size_t size);
  ssize_t fail(const std::string& why, bool transient);

  std::string url_;
  std::string path_;
  Client_IO_Options options_;
  Stop_Source& stop_;
  Retry_Window window_;
  std::unique_ptr<Client_IO_Ex> pool_;
  std::unique_ptr<Pool_Reader> reader_;
  std::uint64_t given_bytes_ = 0;
  std::string error_;
  bool transient_ = false;
};

}  // namespace hdbbackint
