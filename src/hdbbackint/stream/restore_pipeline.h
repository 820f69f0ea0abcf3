#pragma once

#include <array>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>

#include "hdbbackint/stop_source.h"
#include "hdbbackint/stream/buffer.h"
#include "hdbbackint/stream/byte_input.h"
#include "hdbbackint/stream/byte_sink.h"
#include "hdbbackint/stream/stream_limits.h"

namespace hdbbackint {

/// Moves one object back: a thread reads and decodes while the calling one checks and writes. The last block is written
/// only once size and checksum of the whole are right, so that a damaged object never looks complete to its reader.
/// Used once.
class Restore_Pipeline {
 public:
  struct Expected {
    std::uint64_t bytes = 0;
    std::string checksum;  ///< empty: not known
  };

  /// `stop` is this object's own: the pipeline requests it when writing fails.
  Restore_Pipeline(Byte_Input& input, Byte_Sink& output, Expected expected, Stop_Source& stop);

  /// False with the first failure in error().
  [[nodiscard]] bool run();
  [[nodiscard]] const std::string& error() const { return error_; }

 private:
  static constexpr std::size_t slot_count = 4;
  struct Slot {
    Buffer data;
    std::size_t size = 0;
  };

  void read_all();
  bool fill(Slot& slot, bool& at_end);
  bool write_all();
  bool wait_filled(std::uint64_t number, bool& last);
  bool check(std::uint64_t bytes, const std::string& checksum);
  void fail(const std::string& why);

  Byte_Input& input_;
  Byte_Sink& output_;
  Expected expected_;
  Stop_Source& stop_;

  std::mutex mutex_;
  std::condition_variable changed_;
  std::array<Slot, slot_count> slots_;
  std::uint64_t filled_ = 0;   ///< blocks read; guarded by mutex_
  std::uint64_t emptied_ = 0;  ///< blocks written; guarded by mutex_
  bool read_whole_ = false;    ///< guarded by mutex_
  bool failed_ = false;        ///< guarded by mutex_
  std::string error_;          ///< guarded by mutex_ while threads run
};

}  // namespace hdbbackint
