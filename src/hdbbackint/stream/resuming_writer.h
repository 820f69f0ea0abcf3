#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <string>

#include "agent/backupd_client/client_io_ex.h"
#include "hdbbackint/stop_source.h"
#include "hdbbackint/stream/byte_sink.h"
#include "hdbbackint/stream/retry_window.h"

namespace hdbbackint {

/// Where and how an object is stored.
struct Pool_Target {
  std::string url;
  std::string path;
  Client_IO_Options options;                 ///< with max_seconds_retry
  std::uint64_t resumption_buffer_size = 0;  ///< bytes
};

/// Writes one object to a pool. A failure that may pass is tried again for a time, from the bytes that are still held:
/// pools cannot append, so a transfer can begin again as long as the whole object so far fits into the resumption
/// buffer. Without a commit nothing stays on the pool. One thread.
class Resuming_Writer : public Byte_Sink {
 public:
  Resuming_Writer(Pool_Target target, Stop_Source& stop);

  bool write(const char* data, std::size_t size) override;
  /// Durable when it returns true.
  [[nodiscard]] bool commit();
  [[nodiscard]] const std::string& error() const override { return error_; }

 private:
  void keep(const char* data, std::size_t size);
  bool open();
  bool write_once(const char* data, std::size_t size);
  bool replay();
  bool recover();
  bool commit_once();
  bool was_committed();

  Pool_Target target_;
  Stop_Source& stop_;
  Retry_Window window_;
  std::unique_ptr<Client_IO_Ex> pool_;
  std::unique_ptr<Pool_Writer> writer_;  ///< null before the first byte and after a failure
  std::deque<std::string> kept_;         ///< everything written so far, while it fits
  std::uint64_t kept_bytes_ = 0;
  bool start_is_kept_ = true;
  std::uint64_t total_bytes_ = 0;
  std::string error_;
  bool transient_ = false;
};

}  // namespace hdbbackint
