#include <openssl/ssl.h>
#include <sys/socket.h>

#include <atomic>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ssl/context.hpp>
#include <list>

#include "net/beast_exchange.ipp"
#include "net/beast_web_socket.ipp"
#include "net/http_checks.h"
#include "net/http_server.h"
#include "net/open_connections.h"
#include "platform/clock.h"
#include "platform/file_root.h"
#include "platform/log.h"

namespace net {
namespace {

using tcp = asio::ip::tcp;

constexpr int http_1_1 = 11;
constexpr std::chrono::seconds idle_limit{60};  ///< between requests, and for a whole head
constexpr std::chrono::seconds body_stall_limit{60};
constexpr std::chrono::seconds tls_limit{10};
constexpr std::chrono::seconds linger_limit{2};
constexpr std::chrono::seconds stop_limit{5};
constexpr std::chrono::milliseconds accept_pause{200};
/// A rest of a body that is read away to keep the connection.
constexpr std::size_t drain_limit_bytes = 256U << 10;
constexpr std::size_t usual_head_bytes = 8U << 10;
/// Connections at once for each of Server_Options::workers.
constexpr std::size_t connections_per_worker = 32;

constexpr unsigned status_bad_request = 400;
constexpr unsigned status_not_found = 404;
constexpr unsigned status_too_large_head = 431;
constexpr unsigned status_internal = 500;
constexpr unsigned status_unavailable = 503;

Http_Response refusal(unsigned status, const char* code, const char* message) {
  Http_Response response;
  response.status = status;
  response.headers.set("Content-Type", "application/json");
  response.body = std::string(R"({"error":{"code":")") + code + R"(","message":")" + message + "\"}}";
  return response;
}

template <typename Stream>
class Beast_Exchange final : public Server_Exchange {
 public:
  using Parser = http::request_parser<http::buffer_body>;

  Beast_Exchange(const Stream_Channel<Stream>& channel, Parser& parser, std::string peer)
      : channel_(channel),
        parser_(parser),
        method_(parser.get().method_string()),
        target_(parser.get().target()),
        headers_(copy_fields(parser.get())),
        peer_(std::move(peer)),
        keep_alive_(parser.get().keep_alive()) {
    wipe_authorization(parser.get());
  }

  const std::string& method() const override { return method_; }
  const std::string& target() const override { return target_; }
  const Http_Headers& headers() const override { return headers_; }
  std::string peer_address() const override { return peer_; }

  bool read_body(std::string& body, std::size_t limit) override {
    body.clear();
    const std::uint64_t length = parser_.content_length().value_or(0);
    if (length > limit) return false;
    body.reserve(length);
    String_Sink sink(body, limit);
    if (receive(sink, Traces::wiped)) return true;
    platform::wipe_memory(body.data(), body.size());
    body.clear();
    return false;
  }

  bool read_body(Body_Sink& sink) override { return receive(sink, Traces::left); }

  void respond(const Http_Response& response) override { send(response, {response.body, nullptr}); }
  void respond(const Http_Response& head, Body_Source& body) override { send(head, {{}, &body}); }

  /// The handler failed: whatever it had answered, the connection does not go on.
  void answer_failure() {
    if (!responded_) respond(refusal(status_internal, "internal", "the request could not be handled"));
    keep_alive_ = false;
  }

  /// Ends the connection behind an answer.
  void close() {
    if (sent_) linger();
  }

  /// Makes the answer's end certain. False when the connection cannot be used any more.
  bool finish() {
    if (!responded_) respond(refusal(status_internal, "internal", "the server gave no answer"));
    if (!sent_) return false;
    if (!broken_ && !parser_.is_done() &&
        parser_.content_length_remaining().value_or(drain_limit_bytes + 1) <= drain_limit_bytes && !awaits_continue()) {
      Discard rest;
      broken_ = !receive_body(channel_, parser_, rest).ok();
    }
    if (keep_alive_ && !broken_ && parser_.is_done()) return true;
    linger();
    return false;
  }

 private:
  struct Discard final : Body_Sink {
    bool write(const char*, std::size_t) override { return true; }
  };

  const Stream_Channel<Stream>& channel_;
  Parser& parser_;
  std::string method_;
  std::string target_;
  Http_Headers headers_;
  std::string peer_;
  bool keep_alive_;
  bool broken_ = false;  ///< the rest of the body cannot be read
  bool responded_ = false;
  bool sent_ = false;       ///< the whole answer
  bool continued_ = false;  ///< the client was told to send its body

  [[nodiscard]] bool receive(Body_Sink& sink, Traces traces) {
    if (broken_) return false;
    ask_for_body();
    broken_ = broken_ || !receive_body(channel_, parser_, sink, traces).ok();
    return !broken_;
  }

  [[nodiscard]] bool awaits_continue() const {
    const std::string* const expect = headers_.find("Expect");
    return expect != nullptr && beast::iequals(*expect, "100-continue") && !continued_;
  }

  void ask_for_body() {
    if (!awaits_continue() || parser_.is_done()) return;
    continued_ = true;
    http::response<http::buffer_body> message(http::status::continue_, http_1_1);
    broken_ = !send_head(channel_, message).ok();
  }

  void send(const Http_Response& head, Body_Pieces pieces) {
    if (responded_) {
      D3_EMERGENCY("A second answer to %C %C was dropped\n", method_.c_str(), target_.c_str());
      return;
    }
    responded_ = true;
    if (!are_fields(head.headers)) {
      D3_ERROR("The answer to %C %C held characters that HTTP does not allow\n", method_.c_str(), target_.c_str());
      return;
    }
    http::response<http::buffer_body> message;
    message.version(http_1_1);
    message.result(head.status);
    fill_fields(message, head.headers, pieces.size());
    // An answer to HEAD tells the length of what GET would give.
    const bool head_only = method_ == "HEAD";
    if (const std::string* length = head.headers.find("Content-Length"); head_only && length != nullptr)
      message.set(http::field::content_length, *length);
    message.keep_alive(keep_alive_);
    sent_ = head_only ? send_head(channel_, message).ok()
                      : send_message(channel_, message, pieces, [] { return true; }).ok();
  }

  /// Closing with unread bytes would make the kernel reset the connection, and the answer might never be read.
  void linger() {
    auto& lowest = beast::get_lowest_layer(channel_.stream);
    beast::error_code ignored;
    lowest.socket().shutdown(tcp::socket::shutdown_send, ignored);
    lowest.expires_after(linger_limit);
    const auto waste = std::make_unique_for_overwrite<char[]>(transfer_bytes);
    beast::error_code error;
    while (!error)
      error = run_operation(channel_.loop, [&](Store_Outcome done) {
        lowest.async_read_some(asio::buffer(waste.get(), transfer_bytes), done);
      });
  }
};

}  // namespace

struct Http_Server::Impl {
  /// A connection as accepted. Its loop goes last: what was made of the socket refers to it.
  struct Accepted {
    asio::io_context loop{1};
    tcp::socket socket{loop};
  };
  struct Session {
    std::thread thread;
    std::atomic<bool> ended{false};
  };

  Http_Handler& handler;
  Server_Options options;
  asio::io_context accept_loop{1};
  tcp::acceptor acceptor{accept_loop};
  std::unique_ptr<asio::ssl::context> tls;
  Open_Connections connections;
  platform::Wait_Event stopping;
  std::thread accept_thread;
  std::list<Session> sessions;  ///< accept thread only; after it has ended, stop
  unsigned short port = 0;

  Impl(Http_Handler& a_handler, Server_Options some_options) : handler(a_handler), options(std::move(some_options)) {}

  bool listen(std::string& error) {
    beast::error_code cause;
    const auto address = asio::ip::make_address(options.address, cause);
    if (cause) {
      error = "'" + options.address + "' is not an IP address";
      return false;
    }
    const tcp::endpoint place(address, options.port);
    acceptor.open(place.protocol(), cause);
    if (!cause) acceptor.set_option(asio::socket_base::reuse_address(true), cause);
    if (!cause) acceptor.bind(place, cause);
    if (!cause) acceptor.listen(asio::socket_base::max_listen_connections, cause);
    if (cause) {
      error = "cannot listen on " + options.address + " port " + std::to_string(options.port) + ": " + cause.message();
      return false;
    }
    port = acceptor.local_endpoint(cause).port();
    return true;
  }

  bool set_up_tls(std::string& error) {
    if (options.certificate_file.empty()) return true;
    const platform::File_Root& root = platform::File_Root::current();
    tls = std::make_unique<asio::ssl::context>(asio::ssl::context::tls_server);
    SSL_CTX_set_min_proto_version(tls->native_handle(), TLS1_2_VERSION);
    beast::error_code cause;
    tls->use_certificate_chain_file(root.real(options.certificate_file), cause);
    if (cause) {
      error = "cannot use the certificate " + options.certificate_file + ": " + cause.message();
      return false;
    }
    tls->use_private_key_file(root.real(options.private_key_file), asio::ssl::context::pem, cause);
    if (cause) {
      error = "cannot use the private key " + options.private_key_file + ": " + cause.message();
      return false;
    }
    return true;
  }

  void accept_all() {
    while (!stopping.is_set()) {
      try {
        auto accepted = std::make_unique<Accepted>();
        acceptor.accept(accepted->socket);
        if (stopping.is_set()) return;
        reap();
        begin_session(std::move(accepted));
      } catch (const std::exception& caught) {
        if (stopping.is_set()) return;
        // Out of descriptors, threads or memory: what is open goes on, new ones wait a little.
        D3_WARNING("Cannot accept a connection on port %d: %C\n", static_cast<int>(port), caught.what());
        (void)platform::Clock::current().wait_for(stopping, accept_pause);
      }
    }
  }

  void reap() {
    sessions.remove_if([](Session& session) {
      if (!session.ended) return false;
      session.thread.join();
      return true;
    });
  }

  void begin_session(std::unique_ptr<Accepted> accepted) {
    const bool full = sessions.size() >= options.workers * connections_per_worker;
    Session& session = sessions.emplace_back();
    try {
      session.thread = std::thread([this, &session, full, accepted = std::move(accepted)]() mutable {
        serve_accepted(*accepted, full);
        accepted.reset();
        session.ended = true;
      });
    } catch (...) {
      sessions.pop_back();
      throw;
    }
  }

  void serve_accepted(Accepted& accepted, bool full) {
    const int descriptor = accepted.socket.native_handle();
    if (!connections.add(descriptor)) return;
    beast::error_code ignored;
    accepted.socket.set_option(tcp::no_delay(true), ignored);
    if (!tls) {
      Plain_Stream stream(std::move(accepted.socket));
      serve_stream(accepted.loop, stream, descriptor, full);
      return;
    }
    Tls_Stream stream(std::move(accepted.socket), *tls);
    beast::get_lowest_layer(stream).expires_after(tls_limit);
    const beast::error_code cause = run_operation(
        accepted.loop, [&](Store_Outcome done) { stream.async_handshake(asio::ssl::stream_base::server, done); });
    if (cause)
      connections.remove(descriptor);
    else
      serve_stream(accepted.loop, stream, descriptor, full);
  }

  template <typename Stream>
  void serve_stream(asio::io_context& loop, Stream& stream, int descriptor, bool full) {
    beast::error_code ignored;
    const std::string peer = beast::get_lowest_layer(stream).socket().remote_endpoint(ignored).address().to_string();
    beast::flat_buffer buffer;
    // One that grew would leave a part of the head behind, and with it the key.
    buffer.reserve(usual_head_bytes);
    bool open = true;
    while (open) {
      const Stream_Channel<Stream> channel{loop, stream, buffer, idle_limit};
      http::request_parser<http::buffer_body> parser;
      parser.header_limit(head_limit_bytes);
      parser.body_limit(boost::none);
      const beast::error_code cause = receive_head(channel, parser);
      if (cause) {
        refuse_head(channel, parser, peer, cause);
        break;
      }
      wipe_consumed(buffer);
      if (!connections.begin(descriptor)) break;
      if (beast::websocket::is_upgrade(parser.get()) && !full) {
        serve_web_socket(channel, parser, peer, descriptor);
        return;
      }
      open = serve_request(channel, parser, peer, full) && !full;
      open = connections.end(descriptor) && open;
    }
    // The last body, or a head that was refused.
    buffer.consume(buffer.size());
    wipe_consumed(buffer);
    connections.remove(descriptor);
    beast::get_lowest_layer(stream).close();
  }

  template <typename Stream>
  void refuse_head(const Stream_Channel<Stream>& channel, http::request_parser<http::buffer_body>& parser,
                   const std::string& peer, beast::error_code cause) {
    const bool too_large = cause == http::error::header_limit;
    const bool malformed = cause.category() == make_error_code(http::error::bad_version).category() &&
                           cause != http::error::end_of_stream && cause != http::error::partial_message;
    if (!malformed) return;
    Beast_Exchange<Stream> exchange(channel, parser, peer);
    exchange.respond(too_large ? refusal(status_too_large_head, "too_large", "the head of the request is too large")
                               : refusal(status_bad_request, "bad_request", "the request is not HTTP"));
    exchange.close();
  }

  template <typename Stream>
  bool serve_request(const Stream_Channel<Stream>& idle_channel, http::request_parser<http::buffer_body>& parser,
                     const std::string& peer, bool full) {
    Stream_Channel<Stream> channel = idle_channel;
    channel.stall_limit = body_stall_limit;
    Beast_Exchange<Stream> exchange(channel, parser, peer);
    if (full) {
      exchange.respond(refusal(status_unavailable, "unavailable", "too many connections; try again"));
      return exchange.finish();
    }
    try {
      handler.handle(exchange);
    } catch (const std::exception& caught) {
      D3_ERROR("Handling %C %C failed: %C\n", exchange.method().c_str(),
               platform::cut_for_log(exchange.target()).c_str(), caught.what());
      exchange.answer_failure();
    }
    return exchange.finish();
  }

  Http_Handler::Serve ask_handler(http::request_parser<http::buffer_body>& parser, unsigned& status) {
    const std::string target(parser.get().target());
    const Http_Headers headers = copy_fields(parser.get());
    wipe_authorization(parser.get());
    try {
      return handler.accept_web_socket(target, headers, status);
    } catch (const std::exception& caught) {
      D3_ERROR("Accepting a WebSocket at %C failed: %C\n", platform::cut_for_log(target).c_str(), caught.what());
      status = status_internal;
      return {};
    }
  }

  template <typename Stream>
  void serve_web_socket(const Stream_Channel<Stream>& channel, http::request_parser<http::buffer_body>& parser,
                        const std::string& peer, int descriptor) {
    unsigned status = status_not_found;
    const Http_Handler::Serve serve = ask_handler(parser, status);
    if (!serve) {
      Beast_Exchange<Stream> exchange(channel, parser, peer);
      exchange.respond(refusal(status, "refused", "the WebSocket is not accepted"));
      exchange.close();
      connections.remove(descriptor);
      return;
    }
    auto upgraded = std::make_unique<websocket::stream<Stream>>(std::move(channel.stream));
    set_web_socket_options(*upgraded, tls_limit);
    const beast::error_code cause =
        run_operation(channel.loop, [&](Store_Outcome done) { upgraded->async_accept(parser.get(), done); });
    if (cause) {
      connections.remove(descriptor);
      return;
    }
    Beast_Web_Socket<Stream> socket(channel.loop, std::move(upgraded));
    if (!connections.add(socket, descriptor)) return;
    run_serve(serve, socket);
    connections.remove(socket);
  }

  static void run_serve(const Http_Handler::Serve& serve, Web_Socket& socket) {
    try {
      serve(socket);
    } catch (const std::exception& caught) {
      D3_ERROR("Serving a WebSocket failed: %C\n", caught.what());
    }
  }

  void stop() {
    if (!accept_thread.joinable()) return;
    stopping.set();
    ::shutdown(acceptor.native_handle(), SHUT_RDWR);  // wakes accept
    accept_thread.join();
    connections.stop_idle();
    (void)platform::Clock::current().wait_for(connections.quiet(), stop_limit);
    connections.stop_busy();
    for (Session& session : sessions) session.thread.join();
    sessions.clear();
    beast::error_code ignored;
    acceptor.close(ignored);
  }
};

Http_Server::Http_Server(Http_Handler& handler, Server_Options options)
    : impl_(std::make_unique<Impl>(handler, std::move(options))) {}

Http_Server::~Http_Server() { stop(); }

bool Http_Server::start(std::string& error) {
  if (!impl_->set_up_tls(error) || !impl_->listen(error)) return false;
  impl_->accept_thread = std::thread([this] { impl_->accept_all(); });
  return true;
}

unsigned short Http_Server::port() const { return impl_->port; }

void Http_Server::stop() { impl_->stop(); }

}  // namespace net
