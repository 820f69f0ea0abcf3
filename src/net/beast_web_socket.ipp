#pragma once

// Private to the two units over Beast: an open WebSocket, either end.

#include <boost/asio/post.hpp>
#include <boost/beast/websocket.hpp>
#include <boost/beast/websocket/ssl.hpp>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

#include "net/beast_exchange.ipp"
#include "net/http_transport.h"

namespace net {
namespace websocket = boost::beast::websocket;

/// A quiet peer is pinged after half of this and given up after all of it.
constexpr std::chrono::seconds web_socket_idle_limit{50};
/// Limit for opening, and for the farewell of close.
constexpr std::chrono::seconds web_socket_farewell_limit{2};
/// Messages that wait for receive; then the peer is read no further.
constexpr std::size_t inbox_limit_messages = 64;

template <typename Stream>
void set_web_socket_options(websocket::stream<Stream>& stream, std::chrono::nanoseconds handshake_limit) {
  beast::get_lowest_layer(stream).expires_never();
  websocket::stream_base::timeout limits{};
  limits.handshake_timeout = std::chrono::duration_cast<std::chrono::steady_clock::duration>(handshake_limit);
  limits.idle_timeout = web_socket_idle_limit;
  limits.keep_alive_pings = true;
  stream.set_option(limits);
  stream.read_message_max(http_body_limit_bytes);
  stream.text(true);
}

/// Owns the stream and a thread that runs its loop: Beast's stream belongs to one thread, ours may be sent to
/// from any. The thread sleeps while nothing comes and wakes to ping.
template <typename Stream>
class Beast_Web_Socket final : public Web_Socket {
 public:
  /// `stream` is open and uses `loop`, which nobody else runs and which outlives this object.
  Beast_Web_Socket(asio::io_context& loop, std::unique_ptr<websocket::stream<Stream>> stream)
      : loop_(loop), stream_(std::move(stream)) {
    set_web_socket_options(*stream_, web_socket_farewell_limit);
    loop_.restart();
    read_next();
    thread_ = std::thread([this] { run(); });
  }

  ~Beast_Web_Socket() override {
    close();
    thread_.join();
  }

  bool send(const std::string& text, Net_Error& error) override {
    Outgoing item{&text};
    std::unique_lock lock(mutex_);
    if (closing_ || ended_) return report(error);
    outbox_.push_back(&item);
    if (!writing_) {
      writing_ = true;
      asio::post(loop_, [this] { write_next(); });
    }
    changed_.wait(lock, [&] { return item.state != Outgoing::waiting || ended_; });
    return item.state == Outgoing::sent || report(error);
  }

  bool receive(std::string& text, Net_Error& error) override {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return !inbox_.empty() || closing_ || ended_; });
    if (inbox_.empty() || closing_) return report(error);
    text = std::move(inbox_.front());
    inbox_.pop_front();
    if (paused_) {
      paused_ = false;
      asio::post(loop_, [this] { read_next(); });
    }
    return true;
  }

  void close() override {
    const std::lock_guard lock(mutex_);
    if (closing_) return;
    closing_ = true;
    changed_.notify_all();
    asio::post(loop_, [this] { say_farewell(); });
  }

 private:
  struct Outgoing {
    enum State { waiting, sent, failed };
    const std::string* text;
    State state = waiting;
  };

  asio::io_context& loop_;
  std::unique_ptr<websocket::stream<Stream>> stream_;
  beast::flat_buffer buffer_;  // loop thread only
  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<std::string> inbox_;    // guarded by mutex_, as all below
  std::deque<Outgoing*> outbox_;     // items live on the senders' stacks until their state changes
  bool writing_ = false;
  bool paused_ = false;
  bool closing_ = false;
  bool ended_ = false;
  std::string reason_ = "the connection was closed";
  std::thread thread_;

  bool report(Net_Error& error) {
    error.kind = Net_Error::closed;
    error.text = reason_;
    return false;
  }

  void run() {
    loop_.run();
    const std::lock_guard lock(mutex_);
    ended_ = true;
    changed_.notify_all();
  }

  void read_next() {
    stream_->async_read(buffer_, [this](beast::error_code error, std::size_t) { on_read(error); });
  }

  void on_read(beast::error_code error) {
    if (error) {
      give_up(error);
      return;
    }
    {
      const std::lock_guard lock(mutex_);
      const auto data = buffer_.data();
      inbox_.emplace_back(static_cast<const char*>(data.data()), data.size());
      buffer_.clear();
      changed_.notify_all();
      if (inbox_.size() >= inbox_limit_messages) {
        paused_ = true;
        return;
      }
    }
    read_next();
  }

  void write_next() {
    const std::string* text = nullptr;
    {
      const std::lock_guard lock(mutex_);
      if (outbox_.empty()) {
        writing_ = false;
        return;
      }
      text = outbox_.front()->text;
    }
    stream_->async_write(asio::buffer(*text),
                         [this](beast::error_code error, std::size_t) { on_written(error); });
  }

  void on_written(beast::error_code error) {
    {
      const std::lock_guard lock(mutex_);
      outbox_.front()->state = error ? Outgoing::failed : Outgoing::sent;
      outbox_.pop_front();
      changed_.notify_all();
    }
    if (error)
      give_up(error);
    else
      write_next();
  }

  /// Nothing more comes or goes: the loop ends, and with it whoever waits.
  void give_up(beast::error_code error) {
    {
      const std::lock_guard lock(mutex_);
      if (!closing_) reason_ = describe(error);
    }
    end_loop();
  }

  void say_farewell() {
    stream_->async_close(websocket::close_code::normal, [this](beast::error_code) { end_loop(); });
  }

  /// The timer of the pings would keep the loop for up to half the idle limit: nobody waits for it.
  void end_loop() {
    beast::get_lowest_layer(*stream_).close();
    loop_.stop();
  }

  static std::string describe(beast::error_code error) {
    if (error == websocket::error::closed || error == asio::error::eof) return "the peer closed the connection";
    if (error == beast::error::timeout) return "the peer did not answer in time";
    return error.message();
  }
};

}  // namespace net
