#pragma once

// Private to the two units over Beast: what client and server share of moving one message over a stream. Operations
// are asynchronous underneath, so that they can be limited in time, and run on the caller's thread until done.

#include <algorithm>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ssl/stream.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/ssl.hpp>
#include <boost/beast/ssl/ssl_stream.hpp>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "net/http_message.h"
#include "platform/secure_string.h"

namespace net {
namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = boost::beast::http;
using Plain_Stream = beast::tcp_stream;
using Tls_Stream = beast::ssl_stream<beast::tcp_stream>;

constexpr std::size_t transfer_bytes = 1U << 20;
constexpr std::size_t smallest_transfer_bytes = 4096;
constexpr std::uint32_t head_limit_bytes = 64U << 10;

/// Outcome of an operation, written by its handler.
struct Store_Outcome {
  beast::error_code* outcome;
  template <typename... Rest>
  void operator()(beast::error_code error, Rest&&...) const {
    *outcome = error;
  }
};

/// Starts an operation through `start` and runs it to its end on this thread. What else the loop holds then (timers of
/// an operation that is over) is left to the next run.
template <typename Start>
beast::error_code run_operation(asio::io_context& loop, Start&& start) {
  beast::error_code outcome = asio::error::would_block;
  start(Store_Outcome{&outcome});
  loop.restart();
  while (outcome == asio::error::would_block && loop.run_one() > 0) {
  }
  return outcome;
}

enum class Failed_Side { none, stream, body };

/// How moving a message ended: on `body` our own source or sink gave up.
struct Transfer {
  Failed_Side failed = Failed_Side::none;
  beast::error_code error;
  [[nodiscard]] bool ok() const { return failed == Failed_Side::none; }
};

/// A stream with the loop that drives it, used by one thread at a time.
template <typename Stream>
struct Stream_Channel {
  asio::io_context& loop;
  Stream& stream;
  beast::flat_buffer& buffer;
  std::chrono::nanoseconds stall_limit;  ///< longest time without progress

  void expect_progress() const { beast::get_lowest_layer(stream).expires_after(stall_limit); }
};

/// Reads the message's head into `parser`; the whole head within the stall limit.
template <typename Stream, typename Parser>
beast::error_code receive_head(const Stream_Channel<Stream>& channel, Parser& parser) {
  channel.expect_progress();
  return run_operation(
      channel.loop, [&](Store_Outcome done) { http::async_read_header(channel.stream, channel.buffer, parser, done); });
}

/// Wipes what was read out of the buffer already, a request's head with its key; what is unread stays.
inline void wipe_consumed(beast::flat_buffer& buffer) {
  std::string unread = beast::buffers_to_string(buffer.data());
  buffer.consume(unread.size());
  const auto space = buffer.prepare(buffer.capacity());
  platform::wipe_memory(space.data(), space.size());
  if (unread.empty()) return;
  std::memcpy(space.data(), unread.data(), unread.size());
  buffer.commit(unread.size());
  // A request that follows at once has its key in it.
  platform::wipe_memory(unread.data(), unread.size());
}

/// As the buffer's own reserve, but the smaller memory is not given back with what was read.
inline void reserve_wiped(beast::flat_buffer& buffer, std::size_t size) {
  if (buffer.capacity() >= size) return;
  beast::flat_buffer larger;
  larger.reserve(size);
  larger.commit(asio::buffer_copy(larger.prepare(buffer.size()), buffer.data()));
  buffer.consume(buffer.size());
  wipe_consumed(buffer);
  buffer = std::move(larger);
}

/// Whether a body may hold secrets, so that no piece of it shall stay in memory that is given back.
enum class Traces { left, wiped };

/// Where the pieces of a body are read to, one after the other.
struct Piece_Memory {
  Piece_Memory(std::size_t a_size, Traces some_traces)
      : size(a_size), traces(some_traces), bytes(std::make_unique_for_overwrite<char[]>(a_size)) {}
  ~Piece_Memory() {
    if (traces == Traces::wiped) platform::wipe_memory(bytes.get(), size);
  }
  Piece_Memory(const Piece_Memory&) = delete;
  Piece_Memory& operator=(const Piece_Memory&) = delete;

  const std::size_t size;
  const Traces traces;
  const std::unique_ptr<char[]> bytes;
};

/// Reads the rest of a message whose head stands in `parser` into `sink`.
template <bool is_request, typename Stream>
Transfer receive_body(const Stream_Channel<Stream>& channel, http::parser<is_request, http::buffer_body>& parser,
                      Body_Sink& sink, Traces traces = Traces::left) {
  if (parser.is_done()) return {};
  const std::uint64_t length = parser.content_length().value_or(transfer_bytes);
  const std::size_t size = std::clamp<std::uint64_t>(length, smallest_transfer_bytes, transfer_bytes);
  const Piece_Memory piece(size, traces);
  reserve_wiped(channel.buffer, size);
  while (!parser.is_done()) {
    auto& body = parser.get().body();
    body.data = piece.bytes.get();
    body.size = size;
    channel.expect_progress();
    beast::error_code error = run_operation(
        channel.loop, [&](Store_Outcome done) { http::async_read_some(channel.stream, channel.buffer, parser, done); });
    if (error == http::error::need_buffer) error = {};
    const std::size_t got = size - body.size;
    if (got > 0 && !sink.write(piece.bytes.get(), got)) return {Failed_Side::body, {}};
    if (error) return {Failed_Side::stream, error};
  }
  return {};
}

/// Gives the pieces of a message's body: those of `text`, or of `source` when it is set.
class Body_Pieces {
 public:
  Body_Pieces(std::string_view text, Body_Source* source) : text_(text), source_(source) {
    if (source_ != nullptr) rest_ = source_->size();
  }

  /// Size of the whole body where it is known.
  [[nodiscard]] std::optional<std::uint64_t> size() const { return source_ != nullptr ? rest_ : text_.size(); }

  /// Puts the next piece into `body`, or marks its end. False when the source fails or gives less than it promised.
  [[nodiscard]] bool next(http::buffer_body::value_type& body) {
    body.more = false;
    body.data = nullptr;
    body.size = 0;
    if (source_ == nullptr) {
      if (!text_.empty()) set(body, text_.data(), text_.size(), false);
      return true;
    }
    if (rest_ && *rest_ == 0) return true;
    if (!buffer_) buffer_ = std::make_unique_for_overwrite<char[]>(transfer_bytes);
    const std::size_t wanted = rest_ ? std::min<std::uint64_t>(*rest_, transfer_bytes) : transfer_bytes;
    const ssize_t got = source_->read(buffer_.get(), wanted);
    if (got < 0 || (got == 0 && rest_)) return false;
    if (got == 0) return true;
    const auto taken = static_cast<std::size_t>(got);
    if (rest_) *rest_ -= taken;
    set(body, buffer_.get(), taken, !rest_ || *rest_ > 0);
    return true;
  }

 private:
  std::string_view text_;
  Body_Source* source_;
  std::optional<std::uint64_t> rest_;
  std::unique_ptr<char[]> buffer_;

  static void set(http::buffer_body::value_type& body, const char* data, std::size_t size, bool more) {
    // Beast asks for a changeable pointer and only reads through it.
    body.data = const_cast<char*>(data);
    body.size = size;
    body.more = more;
  }
};

/// Sends `message` with the pieces of `pieces`. `go_on` is asked between pieces; false ends the sending as a failure of
/// the stream.
template <bool is_request, typename Stream, typename Go_On>
Transfer send_message(const Stream_Channel<Stream>& channel, http::message<is_request, http::buffer_body>& message,
                      Body_Pieces& pieces, Go_On&& go_on) {
  http::serializer<is_request, http::buffer_body> serializer(message);
  while (!serializer.is_done()) {
    if (!pieces.next(message.body())) return {Failed_Side::body, {}};
    beast::error_code error;
    while (!serializer.is_done()) {
      channel.expect_progress();
      error = run_operation(channel.loop,
                            [&](Store_Outcome done) { http::async_write_some(channel.stream, serializer, done); });
      if (error) break;
    }
    if (!error) return {};
    if (error != http::error::need_buffer) return {Failed_Side::stream, error};
    if (!go_on()) return {Failed_Side::stream, asio::error::operation_aborted};
  }
  return {};
}

/// Sends the head alone: the answer to HEAD.
template <typename Stream>
Transfer send_head(const Stream_Channel<Stream>& channel, http::response<http::buffer_body>& message) {
  http::response_serializer<http::buffer_body> serializer(message);
  channel.expect_progress();
  const beast::error_code error = run_operation(
      channel.loop, [&](Store_Outcome done) { http::async_write_header(channel.stream, serializer, done); });
  return error ? Transfer{Failed_Side::stream, error} : Transfer{};
}

/// Collects a body up to a limit. What a text that grew gives back is wiped.
class String_Sink final : public Body_Sink {
 public:
  String_Sink(std::string& text, std::size_t limit) : text_(text), limit_(limit) {}
  bool write(const char* data, std::size_t size) override {
    if (size > limit_ - text_.size()) return false;
    if (size > text_.capacity() - text_.size()) grow(text_.size() + size);
    text_.append(data, size);
    return true;
  }

 private:
  void grow(std::size_t needed) {
    std::string larger;
    larger.reserve(std::max(needed, 2 * text_.capacity()));
    larger.append(text_);
    platform::wipe_memory(text_.data(), text_.size());
    text_.swap(larger);
  }

  std::string& text_;
  std::size_t limit_;
};

/// The message's own copy of the key. What TLS and the kernel keep of it on the way is theirs.
inline void wipe_authorization(http::request<http::buffer_body>& message) {
  const auto value = message[http::field::authorization];
  // Read-only for the sake of the parser; nobody reads this field any more.
  platform::wipe_memory(const_cast<char*>(value.data()), value.size());
}

/// Copies the fields of a message that was read.
template <typename Fields>
Http_Headers copy_fields(const Fields& fields) {
  Http_Headers headers;
  for (const auto& field : fields)
    headers.set(std::string_view(field.name_string().data(), field.name_string().size()),
                std::string_view(field.value().data(), field.value().size()));
  return headers;
}

/// Writes ours into a message, and how its body is delimited.
template <bool is_request>
void fill_fields(http::message<is_request, http::buffer_body>& message, const Http_Headers& headers,
                 const std::optional<std::uint64_t>& size) {
  for (const auto& [name, value] : headers.all()) message.set(name, value);
  if (size)
    message.content_length(*size);
  else
    message.chunked(true);
}

}  // namespace net
