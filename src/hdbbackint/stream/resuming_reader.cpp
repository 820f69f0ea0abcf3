#include "hdbbackint/stream/resuming_reader.h"

#include <algorithm>
#include <vector>

#include "platform/log.h"

namespace hdbbackint {

namespace {

constexpr std::size_t skip_buffer_bytes = 64U << 10;

}  // namespace

Resuming_Reader::Resuming_Reader(std::string url, std::string path, Client_IO_Options options, Stop_Source& stop)
    : url_(std::move(url)),
      path_(std::move(path)),
      options_(std::move(options)),
      stop_(stop),
      window_(options_.max_seconds_retry, stop) {}

ssize_t Resuming_Reader::read(char* data, std::size_t size) {
  for (;;) {
    if (stop_.requested()) return fail("stopped", false);
    const ssize_t got = read_once(data, size);
    if (got >= 0) {
      given_bytes_ += static_cast<std::uint64_t>(got);
      window_.reset();
      return got;
    }
    reader_.reset();
    if (!transient_ || !window_.wait()) return -1;
    D3_WARNING("Reading of %C is tried again: %C\n", path_.c_str(), platform::cut_for_log(error_).c_str());
  }
}

ssize_t Resuming_Reader::read_once(char* data, std::size_t size) {
  if (!reader_ && !open()) return -1;
  const ssize_t got = reader_->read(data, size);
  return got >= 0 ? got : fail(reader_->error(), reader_->transient());
}

bool Resuming_Reader::open() {
  pool_ = std::make_unique<Client_IO_Ex>(options_);
  if (pool_->connect(url_)) reader_ = pool_->open(path_);
  if (!reader_) return fail(pool_->error(), pool_->transient()) == 0;
  return skip(given_bytes_);
}

bool Resuming_Reader::skip(std::uint64_t bytes) {
  std::vector<char> ignored(bytes == 0 ? 0 : skip_buffer_bytes);
  while (bytes > 0) {
    const ssize_t got = reader_->read(ignored.data(), std::min<std::uint64_t>(bytes, ignored.size()));
    if (got < 0) return fail(reader_->error(), reader_->transient()) == 0;
    if (got == 0) return fail(path_ + " has become shorter", false) == 0;
    bytes -= static_cast<std::uint64_t>(got);
  }
  return true;
}

ssize_t Resuming_Reader::fail(const std::string& why, bool transient) {
  error_ = why;
  transient_ = transient;
  return -1;
}

}  // namespace hdbbackint
