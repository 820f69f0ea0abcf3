#pragma once

#include <atomic>
#include <functional>
#include <string>

#include "engine/volume.h"

namespace standin {

/// What happens to a stream on its way to its destination.
struct Stream_Watch {
  std::function<bool()> stopped;                   ///< the backup was cancelled or the reader has ended
  std::function<void(std::size_t)> transferred;    ///< bytes that were taken
  std::function<std::int64_t()> bytes_per_second;  ///< 0: as fast as it goes
};

struct Stream_Result {
  std::uint64_t bytes = 0;
  std::string sha256;
  bool complete = false;
};

/// Writes the whole stream to `fd`, which may be non-blocking.
Stream_Result write_stream(Volume_Stream& stream, int fd, const Stream_Watch& watch);
/// Opens a named pipe for writing once somebody reads it; invalid when `watch.stopped`.
Descriptor open_pipe(const std::string& path, const Stream_Watch& watch);

}  // namespace standin
