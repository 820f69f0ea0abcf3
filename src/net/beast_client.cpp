#include <openssl/ssl.h>
#include <openssl/x509v3.h>

#include <boost/asio/connect.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ssl/context.hpp>

#include "net/beast_exchange.ipp"
#include "net/beast_transport.h"
#include "net/beast_web_socket.ipp"
#include "net/http_checks.h"
#include "platform/file_root.h"

namespace net {
namespace {

using tcp = asio::ip::tcp;

constexpr int http_1_1 = 11;
constexpr unsigned status_success = 200;
constexpr unsigned status_redirect = 300;
constexpr std::chrono::seconds early_answer_limit{5};

bool fail(Net_Error& error, Net_Error::Kind kind, std::string text) {
  error.kind = kind;
  error.text = std::move(text);
  return false;
}

std::string place(const Endpoint& endpoint) { return endpoint.host + ":" + std::to_string(endpoint.port); }

/// The Host field: the port only where it is not the scheme's own, brackets around an IPv6 address.
std::string host_field(const Endpoint& endpoint) {
  const std::string host = endpoint.host.find(':') == std::string::npos ? endpoint.host : "[" + endpoint.host + "]";
  return host + ":" + std::to_string(endpoint.port);
}

bool fail_stream(Net_Error& error, const Endpoint& endpoint, const std::string& what, beast::error_code cause) {
  if (cause == beast::error::timeout)
    return fail(error, Net_Error::timeout, what + " " + place(endpoint) + ": timed out");
  if (cause == http::error::end_of_stream || cause == http::error::partial_message || cause == asio::error::eof ||
      cause == asio::ssl::error::stream_truncated)
    return fail(error, Net_Error::closed, what + " " + place(endpoint) + ": the connection was closed before the end");
  const bool malformed = cause.category() == make_error_code(http::error::bad_version).category();
  return fail(error, malformed ? Net_Error::protocol : Net_Error::closed,
              what + " " + place(endpoint) + ": " + cause.message());
}

/// What one connection stands on. The loop must outlive the stream.
template <typename Stream>
struct Dialled {
  std::unique_ptr<asio::io_context> loop = std::make_unique<asio::io_context>(1);
  std::unique_ptr<asio::ssl::context> tls;
  std::unique_ptr<Stream> stream;
};

bool dial(asio::io_context& loop, Plain_Stream& stream, const Endpoint& endpoint, std::chrono::nanoseconds timeout,
          Net_Error& error) {
  beast::error_code cause;
  tcp::resolver resolver(loop);
  const auto places = resolver.resolve(endpoint.host, std::to_string(endpoint.port), cause);
  if (cause)
    return fail(error, Net_Error::resolve, "cannot find the address of " + endpoint.host + ": " + cause.message());

  stream.expires_after(timeout);
  cause = run_operation(loop, [&](Store_Outcome done) { stream.async_connect(places, done); });
  if (cause == beast::error::timeout)
    return fail(error, Net_Error::timeout, "cannot connect to " + place(endpoint) + ": timed out");
  if (cause) return fail(error, Net_Error::connect, "cannot connect to " + place(endpoint) + ": " + cause.message());
  stream.socket().set_option(tcp::no_delay(true), cause);
  return true;
}

/// Authorities and protocol versions: TLS 1.2 and later, the peer's certificate is always verified.
bool set_up_tls(asio::ssl::context& context, const Endpoint& endpoint, Net_Error& error) {
  beast::error_code cause;
  SSL_CTX_set_min_proto_version(context.native_handle(), TLS1_2_VERSION);
  context.set_verify_mode(asio::ssl::verify_peer, cause);
  if (endpoint.ca_file.empty())
    context.set_default_verify_paths(cause);
  else
    context.load_verify_file(platform::File_Root::current().real(endpoint.ca_file), cause);
  if (cause)
    return fail(error, Net_Error::tls,
                "cannot read the accepted authorities from " + endpoint.ca_file + ": " + cause.message());
  return true;
}

/// The name that the certificate must bear, an address as an address.
bool set_expected_name(SSL* ssl, const std::string& host) {
  beast::error_code not_an_address;
  (void)asio::ip::make_address(host, not_an_address);
  X509_VERIFY_PARAM* const parameters = SSL_get0_param(ssl);
  if (!not_an_address) return X509_VERIFY_PARAM_set1_ip_asc(parameters, host.c_str()) == 1;
  X509_VERIFY_PARAM_set_hostflags(parameters, X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS);
  return X509_VERIFY_PARAM_set1_host(parameters, host.c_str(), host.size()) == 1 &&
         SSL_set_tlsext_host_name(ssl, host.c_str()) == 1;
}

bool secure(asio::io_context& loop, Tls_Stream& stream, const Endpoint& endpoint, std::chrono::nanoseconds timeout,
            Net_Error& error) {
  SSL* const ssl = stream.native_handle();
  if (!set_expected_name(ssl, endpoint.host))
    return fail(error, Net_Error::tls, "cannot verify a host of the name " + endpoint.host);
  beast::get_lowest_layer(stream).expires_after(timeout);
  const beast::error_code cause =
      run_operation(loop, [&](Store_Outcome done) { stream.async_handshake(asio::ssl::stream_base::client, done); });
  if (!cause) return true;
  if (cause == beast::error::timeout)
    return fail(error, Net_Error::timeout, "TLS with " + place(endpoint) + ": timed out");
  const long verified = SSL_get_verify_result(ssl);
  return fail(error, Net_Error::tls,
              "TLS with " + place(endpoint) + ": " +
                  (verified == X509_V_OK
                       ? cause.message()
                       : std::string("the certificate is not accepted: ") + X509_verify_cert_error_string(verified)));
}

bool open_stream(Dialled<Plain_Stream>& dialled, const Endpoint& endpoint, std::chrono::nanoseconds timeout,
                 Net_Error& error) {
  dialled.stream = std::make_unique<Plain_Stream>(*dialled.loop);
  return dial(*dialled.loop, *dialled.stream, endpoint, timeout, error);
}

bool open_stream(Dialled<Tls_Stream>& dialled, const Endpoint& endpoint, std::chrono::nanoseconds timeout,
                 Net_Error& error) {
  dialled.tls = std::make_unique<asio::ssl::context>(asio::ssl::context::tls_client);
  if (!set_up_tls(*dialled.tls, endpoint, error)) return false;
  dialled.stream = std::make_unique<Tls_Stream>(*dialled.loop, *dialled.tls);
  return dial(*dialled.loop, dialled.stream->next_layer(), endpoint, timeout, error) &&
         secure(*dialled.loop, *dialled.stream, endpoint, timeout, error);
}

/// Text goes into the response, a streamed body into the caller's sink when the status tells success.
class Response_Sink final : public Body_Sink {
 public:
  Response_Sink(std::string& text, Body_Sink* streamed) : text_(text, http_body_limit_bytes), streamed_(streamed) {}
  bool write(const char* data, std::size_t size) override {
    return streamed_ != nullptr ? streamed_->write(data, size) : text_.write(data, size);
  }
  [[nodiscard]] bool streams() const { return streamed_ != nullptr; }

 private:
  String_Sink text_;
  Body_Sink* streamed_;
};

template <typename Stream>
class Beast_Connection final : public Http_Connection {
 public:
  Beast_Connection(Dialled<Stream> dialled, Endpoint endpoint)
      : dialled_(std::move(dialled)), endpoint_(std::move(endpoint)) {}

  bool exchange(const Http_Request& request, Http_Response& response, std::chrono::nanoseconds timeout,
                Net_Error& error) override {
    return exchange_i(request, response, nullptr, timeout, error);
  }
  bool exchange(const Http_Request& request, Http_Response& response, Body_Sink& sink, std::chrono::nanoseconds timeout,
                Net_Error& error) override {
    return exchange_i(request, response, &sink, timeout, error);
  }

 private:
  Dialled<Stream> dialled_;
  Endpoint endpoint_;
  beast::flat_buffer buffer_;
  bool open_ = true;

  bool exchange_i(const Http_Request& request, Http_Response& response, Body_Sink* sink,
                  std::chrono::nanoseconds timeout, Net_Error& error) {
    response = {};
    error = {};
    if (!open_) return fail(error, Net_Error::closed, "the connection to " + place(endpoint_) + " is closed");
    if (!is_method(request.method) || !is_target(request.target) || !are_fields(request.headers))
      return fail(error, Net_Error::protocol, "the request holds characters that HTTP does not allow");
    open_ = false;  // until the answer is there as a whole
    const Stream_Channel<Stream> channel{*dialled_.loop, *dialled_.stream, buffer_, timeout};
    bool reusable = true;
    const bool done = send(channel, request, reusable, error) &&
                      receive(channel, request.method == "HEAD", response, sink, reusable, error);
    open_ = done && reusable;
    if (!open_) beast::get_lowest_layer(*dialled_.stream).close();
    if (!done) response = {};
    return done;
  }

  /// A server may answer before it has taken the whole body, a refusal: the rest is then not sent and the answer is
  /// read; the connection ends with it.
  bool send(const Stream_Channel<Stream>& channel, const Http_Request& request, bool& reusable, Net_Error& error) {
    http::request<http::buffer_body> message;
    message.version(http_1_1);
    message.method_string(request.method);
    message.target(request.target);
    message.set(http::field::host, host_field(endpoint_));
    Body_Pieces pieces(request.body, request.body_source);
    fill_fields(message, request.headers, pieces.size());
    const Transfer sent = send_message(channel, message, pieces, [this] { return !answer_waits(); });
    wipe_authorization(message);
    if (sent.ok()) return true;
    reusable = false;
    if (sent.failed == Failed_Side::body)
      return fail(error, Net_Error::body, "the body of the request could not be read to its end");
    if (sent.error != beast::error::timeout) return true;
    return fail_stream(error, endpoint_, "sending to", sent.error);
  }

  /// Bytes on a plain connection can only be an answer; TLS has messages of its own.
  bool answer_waits() {
    if constexpr (std::is_same_v<Stream, Plain_Stream>) {
      beast::error_code ignored;
      return dialled_.stream->socket().available(ignored) > 0;
    } else {
      return false;
    }
  }

  bool receive(const Stream_Channel<Stream>& channel, bool head_only, Http_Response& response, Body_Sink* sink,
               bool& reusable, Net_Error& error) {
    for (;;) {
      http::response_parser<http::buffer_body> parser;
      parser.header_limit(head_limit_bytes);
      parser.body_limit(boost::none);
      parser.skip(head_only);
      const beast::error_code cause = receive_head(reusable ? channel : limited(channel), parser);
      if (cause) return fail_stream(error, endpoint_, "reading the answer of", cause);
      const auto status = parser.get().result_int();
      constexpr unsigned switching_protocols = 101;
      if (status < status_success && status != switching_protocols) continue;  // "100 Continue" and the like
      return receive_rest(channel, parser, response, sink, reusable, error);
    }
  }

  /// After sending has failed an answer is there already, or never comes.
  static Stream_Channel<Stream> limited(Stream_Channel<Stream> channel) {
    channel.stall_limit = std::min<std::chrono::nanoseconds>(channel.stall_limit, early_answer_limit);
    return channel;
  }

  bool receive_rest(const Stream_Channel<Stream>& channel, http::response_parser<http::buffer_body>& parser,
                    Http_Response& response, Body_Sink* sink, bool& reusable, Net_Error& error) {
    const std::string what = "reading the answer of";
    // The end of such a body could not be told from a cut.
    if (!parser.is_done() && parser.need_eof())
      return fail(error, Net_Error::protocol, what + " " + place(endpoint_) + ": its length is not given");
    const unsigned status = parser.get().result_int();
    const bool success = status >= status_success && status < status_redirect;
    Response_Sink target(response.body, success ? sink : nullptr);
    const Transfer received = receive_body(channel, parser, target);
    if (received.failed == Failed_Side::body)
      return fail(
          error, Net_Error::body,
          what + " " + place(endpoint_) + (target.streams() ? ": its receiver gave up" : ": its body is too large"));
    if (!received.ok()) return fail_stream(error, endpoint_, what, received.error);
    response.status = status;
    response.headers = copy_fields(parser.get());
    if (!parser.get().keep_alive()) reusable = false;
    return true;
  }
};

template <typename Stream>
std::unique_ptr<Http_Connection> make_connection(const Endpoint& endpoint, std::chrono::nanoseconds timeout,
                                                 Net_Error& error) {
  Dialled<Stream> dialled;
  if (!open_stream(dialled, endpoint, timeout, error)) return nullptr;
  return std::make_unique<Beast_Connection<Stream>>(std::move(dialled), endpoint);
}

/// Keeps the TLS context and the loop as long as the socket.
template <typename Stream>
class Client_Web_Socket final : public Web_Socket {
 public:
  Client_Web_Socket(std::unique_ptr<asio::ssl::context> tls, std::unique_ptr<asio::io_context> loop,
                    std::unique_ptr<websocket::stream<Stream>> stream)
      : tls_(std::move(tls)), loop_(std::move(loop)), socket_(*loop_, std::move(stream)) {}
  bool send(const std::string& text, Net_Error& error) override { return socket_.send(text, error); }
  bool receive(std::string& text, Net_Error& error) override { return socket_.receive(text, error); }
  void close() override { socket_.close(); }

 private:
  std::unique_ptr<asio::ssl::context> tls_;
  std::unique_ptr<asio::io_context> loop_;
  Beast_Web_Socket<Stream> socket_;
};

template <typename Stream>
std::unique_ptr<Web_Socket> make_web_socket(const Endpoint& endpoint, const std::string& target,
                                            const secure_string& bearer, std::chrono::nanoseconds timeout,
                                            Net_Error& error) {
  Dialled<Stream> dialled;
  if (!open_stream(dialled, endpoint, timeout, error)) return nullptr;
  auto stream = std::make_unique<websocket::stream<Stream>>(std::move(*dialled.stream));
  set_web_socket_options(*stream, timeout);
  stream->set_option(websocket::stream_base::decorator([&bearer](websocket::request_type& request) {
    if (!bearer.empty()) request.set(http::field::authorization, bearer_value(bearer).view());
  }));
  websocket::response_type answer;
  const beast::error_code cause = run_operation(
      *dialled.loop, [&](Store_Outcome done) { stream->async_handshake(answer, host_field(endpoint), target, done); });
  // The decorator refers to the caller's key.
  stream->set_option(websocket::stream_base::decorator([](websocket::request_type&) {}));
  if (cause == websocket::error::upgrade_declined) {
    fail(error, Net_Error::protocol,
         place(endpoint) + " refused the WebSocket: " + std::to_string(answer.result_int()) + " " +
             std::string(answer.reason().data(), answer.reason().size()));
    return nullptr;
  }
  if (cause) {
    fail_stream(error, endpoint, "opening a WebSocket to", cause);
    return nullptr;
  }
  return std::make_unique<Client_Web_Socket<Stream>>(std::move(dialled.tls), std::move(dialled.loop),
                                                     std::move(stream));
}

class Beast_Transport final : public Http_Transport {
 public:
  std::unique_ptr<Http_Connection> connect(const Endpoint& endpoint, std::chrono::nanoseconds timeout,
                                           Net_Error& error) override {
    error = {};
    return endpoint.tls ? make_connection<Tls_Stream>(endpoint, timeout, error)
                        : make_connection<Plain_Stream>(endpoint, timeout, error);
  }

  std::unique_ptr<Web_Socket> open_web_socket(const Endpoint& endpoint, const std::string& target,
                                              const secure_string& bearer, std::chrono::nanoseconds timeout,
                                              Net_Error& error) override {
    error = {};
    if (!is_target(target) || !is_field_value(bearer.view())) {
      fail(error, Net_Error::protocol, "the request holds characters that HTTP does not allow");
      return nullptr;
    }
    return endpoint.tls ? make_web_socket<Tls_Stream>(endpoint, target, bearer, timeout, error)
                        : make_web_socket<Plain_Stream>(endpoint, target, bearer, timeout, error);
  }
};

}  // namespace

Http_Transport& beast_transport() {
  static Beast_Transport transport;
  return transport;
}

}  // namespace net
