#include "backint/pipe_writer.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <vector>

#include "backint/sha256.h"
#include "base/clock.h"

namespace standin {

namespace {

constexpr std::size_t block_bytes = 1 << 20;
constexpr int poll_ms = 50;
constexpr std::int64_t slices_per_second = 10;

bool wait_writable(int fd, const Stream_Watch& watch) {
  for (;;) {
    if (watch.stopped()) return false;
    pollfd entry{fd, POLLOUT, 0};
    const int ready = ::poll(&entry, 1, poll_ms);
    if (ready < 0 && errno != EINTR) return false;
    if (ready > 0) return (entry.revents & POLLERR) == 0;
  }
}

/// The bytes that were taken before the reader went away or the backup was stopped.
std::size_t put(int fd, const char* data, std::size_t size, const Stream_Watch& watch) {
  std::size_t done = 0;
  while (done < size && !watch.stopped()) {
    const ssize_t written = ::write(fd, data + done, size - done);
    if (written > 0) {
      done += static_cast<std::size_t>(written);
      watch.transferred(static_cast<std::size_t>(written));
    } else if (written < 0 && errno == EAGAIN) {
      if (!wait_writable(fd, watch)) break;
    } else if (written < 0 && errno != EINTR) {
      break;
    }
  }
  return done;
}

}  // namespace

Stream_Result write_stream(Volume_Stream& stream, int fd, const Stream_Watch& watch) {
  Stream_Result result;
  Sha256 sum;
  std::vector<char> block(block_bytes);
  for (;;) {
    const std::int64_t rate = watch.bytes_per_second();
    std::size_t wanted = block_bytes;
    if (rate > 0) {
      const auto slice = static_cast<std::size_t>(rate / slices_per_second);
      wanted = std::clamp(slice - slice % page_bytes, page_bytes, block_bytes);
    }
    const auto size = stream.read(block.data(), wanted);
    if (!size) break;
    if (*size == 0) {
      result.complete = true;
      break;
    }
    const std::size_t done = put(fd, block.data(), *size, watch);
    sum.add(block.data(), done);
    result.bytes += done;
    if (done != *size) break;
    if (rate > 0) sleep_ms(static_cast<std::int64_t>(done) * 1000 / rate);
  }
  result.sha256 = sum.finish();
  return result;
}

Descriptor open_pipe(const std::string& path, const Stream_Watch& watch) {
  constexpr int retry_ms = 5;
  while (!watch.stopped()) {
    Descriptor pipe(::open(path.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC));
    if (pipe.valid()) return pipe;
    if (errno != ENXIO && errno != EINTR) break;
    sleep_ms(retry_ms);
  }
  return {};
}

}  // namespace standin
