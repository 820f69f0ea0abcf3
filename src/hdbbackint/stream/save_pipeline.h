#pragma once

#include <array>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "hdbbackint/stop_source.h"
#include "hdbbackint/stream/buffer.h"
#include "hdbbackint/stream/byte_sink.h"
#include "hdbbackint/stream/checksum.h"
#include "hdbbackint/stream/object_source.h"
#include "hdbbackint/stream/stream_limits.h"
#include "hdbbackint/stream/worker_pool.h"
#include "records/compression_method.h"

namespace hdbbackint {

/// What became of one stream.
struct Saved_Stream {
  Compression_Method method = COMPR_NONE;  ///< the one that was used
  std::uint64_t raw_bytes = 0;
  std::uint64_t stored_bytes = 0;
  std::string checksum;
};

/// Moves one object: blocks are read from the source by the calling thread, compressed by the worker pool, several at
/// once, and written to the sink in order by a thread that starts with the first block. Used once.
class Save_Pipeline {
 public:
  struct Options {
    Compression_Method method = COMPR_NONE;
    int level = 0;
    Throttle* source_throttle = nullptr;       ///< not owned; null: no limit
    Throttle* destination_throttle = nullptr;  ///< the same
  };
  /// Makes the place for the bytes once the method is known; null with a reason.
  using Open_Sink = std::function<std::unique_ptr<Byte_Sink>(Compression_Method method, std::string& error)>;

  /// `stop` is this object's own: the pipeline requests it when writing fails, so that reading ends too.
  Save_Pipeline(Object_Source& source, Open_Sink open_sink, Options options, Worker_Pool& workers, Stop_Source& stop);
  ~Save_Pipeline();
  Save_Pipeline(const Save_Pipeline&) = delete;
  Save_Pipeline& operator=(const Save_Pipeline&) = delete;

  /// True when the sink has taken the whole stream; it is then in sink(), not committed. False with the first failure
  /// in error(), the source closed.
  [[nodiscard]] bool run(Saved_Stream& result);
  [[nodiscard]] const std::string& error() const { return error_; }
  [[nodiscard]] Byte_Sink* sink() const { return sink_.get(); }

 private:
  enum class State { free, taken, ready };
  struct Slot {
    State state = State::free;
    Buffer raw;
    std::size_t raw_size = 0;
    Buffer compressed;
    std::size_t compressed_size = 0;
  };

  bool read_all();
  bool read_sample();
  bool read_block(Slot& slot, bool& at_end);
  bool start_writing();
  void hand_on(Slot& slot);
  Slot* wait_free(std::uint64_t number);
  void write_all();
  bool write_block(const Slot& slot);
  bool write_bytes(const char* data, std::size_t size);
  void fail(const std::string& why);
  void give_up(const std::string& why);
  [[nodiscard]] bool failed();

  Object_Source& source_;
  Open_Sink open_sink_;
  Options options_;
  Worker_Pool& workers_;
  Stop_Source& stop_;

  std::mutex mutex_;
  std::condition_variable changed_;
  std::array<Slot, slots_per_stream> slots_;  ///< their states are guarded by mutex_
  std::uint64_t blocks_ = 0;                  ///< handed on so far; guarded by mutex_
  bool read_whole_ = false;                   ///< guarded by mutex_
  bool failed_ = false;                       ///< guarded by mutex_
  std::size_t compressing_ = 0;               ///< tasks that still use a slot; guarded by mutex_
  std::string error_;                         ///< of the first failure; guarded by mutex_ while threads run

  std::unique_ptr<Byte_Sink> sink_;
  Compression_Method method_ = COMPR_NONE;
  Checksum checksum_;
  std::uint64_t raw_bytes_ = 0;
  std::uint64_t stored_bytes_ = 0;
  std::thread writer_;
};

}  // namespace hdbbackint
