#include "support/fake_http_transport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>

#include "net/http_checks.h"
#include "platform/log.h"
#include "support/memory_web_socket.h"

namespace support {
namespace {

constexpr std::size_t piece_bytes = 64U << 10;
constexpr unsigned status_success = 200;
constexpr unsigned status_redirect = 300;
constexpr unsigned status_internal = 500;

bool fail(net::Net_Error& error, net::Net_Error::Kind kind, const char* text) {
  error.kind = kind;
  error.text = text;
  return false;
}

/// One exchange seen from the server, fed from the client's request.
class Memory_Exchange final : public net::Server_Exchange {
 public:
  Memory_Exchange(const net::Http_Request& request, const Http_Fault& fault, net::Http_Response& response,
                  net::Body_Sink* sink)
      : request_(request), fault_(fault), response_(response), sink_(sink), headers_(request.headers) {
    if (request.body_source == nullptr)
      headers_.set("Content-Length", std::to_string(request.body.size()));
    else if (const auto size = request.body_source->size())
      headers_.set("Content-Length", std::to_string(*size));
  }

  const std::string& method() const override { return request_.method; }
  const std::string& target() const override { return request_.target; }
  const net::Http_Headers& headers() const override { return headers_; }
  std::string peer_address() const override { return "127.0.0.1"; }

  bool read_body(std::string& body, std::size_t limit) override {
    struct Limited final : net::Body_Sink {
      std::string& text;
      std::size_t limit;
      Limited(std::string& a_text, std::size_t a_limit) : text(a_text), limit(a_limit) {}
      bool write(const char* data, std::size_t size) override {
        if (size > limit - text.size()) return false;
        text.append(data, size);
        return true;
      }
    };
    body.clear();
    Limited sink(body, limit);
    if (read_body(sink)) return true;
    body.clear();
    return false;
  }

  bool read_body(net::Body_Sink& sink) override {
    if (request_.body_source == nullptr) return take(request_.body.data(), request_.body.size(), sink);
    std::vector<char> piece(piece_bytes);
    std::optional<std::uint64_t> rest = request_.body_source->size();
    while (!rest || *rest > 0) {
      const std::size_t wanted = rest ? std::min<std::uint64_t>(*rest, piece_bytes) : piece_bytes;
      const ssize_t got = request_.body_source->read(piece.data(), wanted);
      if (got < 0 || (got == 0 && rest)) {
        source_failed = true;
        return false;
      }
      if (got == 0) return true;
      if (rest) *rest -= static_cast<std::uint64_t>(got);
      if (!take(piece.data(), static_cast<std::size_t>(got), sink)) return false;
    }
    return true;
  }

  void respond(const net::Http_Response& response) override {
    begin(response, response.body.size());
    if (request_.method != "HEAD") (void)give(response.body.data(), response.body.size());
  }

  void respond(const net::Http_Response& head, net::Body_Source& body) override {
    std::optional<std::uint64_t> rest = body.size();
    begin(head, rest);
    if (request_.method == "HEAD") return;
    std::vector<char> piece(piece_bytes);
    while (!rest || *rest > 0) {
      const std::size_t wanted = rest ? std::min<std::uint64_t>(*rest, piece_bytes) : piece_bytes;
      const ssize_t got = body.read(piece.data(), wanted);
      if (got < 0 || (got == 0 && rest)) {
        reply_cut = true;
        return;
      }
      if (got == 0) return;
      if (rest) *rest -= static_cast<std::uint64_t>(got);
      if (!give(piece.data(), static_cast<std::size_t>(got))) return;
    }
  }

  std::string seen;  ///< the body that the handler read
  bool responded = false;
  bool source_failed = false;
  bool request_cut = false;
  bool reply_cut = false;
  bool sink_failed = false;

 private:
  const net::Http_Request& request_;
  const Http_Fault& fault_;
  net::Http_Response& response_;
  net::Body_Sink* sink_;
  net::Http_Headers headers_;
  std::size_t taken_ = 0;
  std::size_t given_ = 0;
  bool streams_ = false;

  bool take(const char* data, std::size_t size, net::Body_Sink& sink) {
    const std::size_t allowed =
        fault_.kind == Http_Fault::cut_request ? fault_.bytes - std::min(taken_, fault_.bytes) : size;
    const std::size_t passed = std::min(allowed, size);
    taken_ += passed;
    if (seen.size() < net::http_body_limit_bytes) seen.append(data, passed);
    if (passed > 0 && !sink.write(data, passed)) return false;
    if (passed == size) return true;
    request_cut = true;
    return false;
  }

  void begin(const net::Http_Response& head, std::optional<std::uint64_t> size) {
    if (responded) {
      ADD_FAILURE() << "second answer to " << request_.method << " " << request_.target;
      return;
    }
    responded = true;
    response_.status = head.status;
    response_.headers = head.headers;
    const bool told = request_.method == "HEAD" && head.headers.find("Content-Length") != nullptr;
    if (size && !told) response_.headers.set("Content-Length", std::to_string(*size));
    streams_ = sink_ != nullptr && head.status >= status_success && head.status < status_redirect;
  }

  bool give(const char* data, std::size_t size) {
    const std::size_t allowed =
        fault_.kind == Http_Fault::cut_reply ? fault_.bytes - std::min(given_, fault_.bytes) : size;
    const std::size_t passed = std::min(allowed, size);
    given_ += passed;
    if (streams_) {
      if (passed > 0 && !sink_->write(data, passed)) {
        sink_failed = true;
        return false;
      }
    } else if (response_.body.size() + passed > net::http_body_limit_bytes) {
      sink_failed = true;
      return false;
    } else {
      response_.body.append(data, passed);
    }
    if (passed == size) return true;
    reply_cut = true;
    return false;
  }
};

}  // namespace

class Fake_Http_Transport::Connection final : public net::Http_Connection {
 public:
  explicit Connection(Fake_Http_Transport& transport) : transport_(transport), generation_(transport.generation()) {}

  bool exchange(const net::Http_Request& request, net::Http_Response& response, std::chrono::nanoseconds,
                net::Net_Error& error) override {
    return exchange_i(request, response, nullptr, error);
  }
  bool exchange(const net::Http_Request& request, net::Http_Response& response, net::Body_Sink& sink,
                std::chrono::nanoseconds, net::Net_Error& error) override {
    return exchange_i(request, response, &sink, error);
  }

 private:
  Fake_Http_Transport& transport_;
  unsigned generation_;
  bool open_ = true;

  bool exchange_i(const net::Http_Request& request, net::Http_Response& response, net::Body_Sink* sink,
                  net::Net_Error& error) {
    response = {};
    error = {};
    if (!open_) return fail(error, net::Net_Error::closed, "the connection is closed");
    if (!net::is_method(request.method) || !net::is_target(request.target) || !net::are_fields(request.headers))
      return fail(error, net::Net_Error::protocol, "the request holds characters that HTTP does not allow");
    open_ = false;
    if (generation_ != transport_.generation())
      return fail(error, net::Net_Error::closed, "the connection was closed before the end");
    const Http_Fault fault = transport_.take_fault();
    if (fault.kind == Http_Fault::lose_request)
      return fail(error, net::Net_Error::closed, "the connection was closed before the end");
    open_ = carry_out(request, fault, response, sink, error);
    if (!open_) response = {};
    return open_;
  }

  bool carry_out(const net::Http_Request& request, const Http_Fault& fault, net::Http_Response& response,
                 net::Body_Sink* sink, net::Net_Error& error) {
    if (fault.kind == Http_Fault::answer) {
      transport_.note({request.method, request.target, request.headers, request.body});
      response.status = fault.status;
      response.body = fault.body;
      return true;
    }
    Memory_Exchange exchange(request, fault, response, sink);
    try {
      transport_.handler_.handle(exchange);
    } catch (const std::exception& caught) {
      D3_ERROR("Handling %C %C failed: %C\n", request.method.c_str(), request.target.c_str(), caught.what());
      response = {};
      response.status = status_internal;
      exchange.responded = true;
    }
    transport_.note({request.method, request.target, request.headers, exchange.seen});
    if (exchange.source_failed)
      return fail(error, net::Net_Error::body, "the body of the request could not be read to its end");
    if (!exchange.responded) response.status = status_internal;
    if (exchange.sink_failed) return fail(error, net::Net_Error::body, "the receiver gave up");
    if (exchange.request_cut || exchange.reply_cut || fault.kind == Http_Fault::lose_reply)
      return fail(error, net::Net_Error::closed, "the connection was closed before the end");
    return true;
  }
};

Fake_Http_Transport::Fake_Http_Transport(net::Http_Handler& handler) : handler_(handler), scope_(*this) {}

Fake_Http_Transport::~Fake_Http_Transport() {
  close_web_sockets();
  for (std::thread& thread : threads_) thread.join();
}

std::unique_ptr<net::Http_Connection> Fake_Http_Transport::connect(const net::Endpoint& endpoint,
                                                                   std::chrono::nanoseconds, net::Net_Error& error) {
  error = {};
  if (!take_connection(endpoint, error)) return nullptr;
  return std::make_unique<Connection>(*this);
}

std::unique_ptr<net::Web_Socket> Fake_Http_Transport::open_web_socket(const net::Endpoint& endpoint,
                                                                      const std::string& target,
                                                                      const secure_string& bearer,
                                                                      std::chrono::nanoseconds, net::Net_Error& error) {
  error = {};
  if (!take_connection(endpoint, error)) return nullptr;
  net::Http_Headers headers;
  if (!bearer.empty()) headers.set("Authorization", "Bearer " + std::string(bearer.view()));
  constexpr unsigned not_found = 404;
  unsigned status = not_found;
  net::Http_Handler::Serve serve = handler_.accept_web_socket(target, headers, status);
  if (!serve) {
    error.kind = net::Net_Error::protocol;
    error.text = "the WebSocket was refused: " + std::to_string(status);
    return nullptr;
  }
  auto [near, far] = make_web_socket_pair();
  const std::lock_guard lock(mutex_);
  std::shared_ptr<net::Web_Socket> served = std::move(far);
  served_.push_back(served);
  threads_.emplace_back([serve = std::move(serve), served] {
    serve(*served);
    served->close();
  });
  return std::move(near);
}

void Fake_Http_Transport::refuse_connections(unsigned times) {
  const std::lock_guard lock(mutex_);
  refusals_ = times;
}

void Fake_Http_Transport::fault(const Http_Fault& fault, unsigned times, unsigned skip) {
  const std::lock_guard lock(mutex_);
  faults_.insert(faults_.end(), skip, Http_Fault());
  faults_.insert(faults_.end(), times, fault);
}

void Fake_Http_Transport::close_kept_connections() {
  const std::lock_guard lock(mutex_);
  ++generation_;
}

void Fake_Http_Transport::close_web_sockets() {
  const std::lock_guard lock(mutex_);
  for (const auto& socket : served_) socket->close();
}

std::vector<Seen_Request> Fake_Http_Transport::requests() const {
  const std::lock_guard lock(mutex_);
  return requests_;
}

std::vector<net::Endpoint> Fake_Http_Transport::connections() const {
  const std::lock_guard lock(mutex_);
  return connections_;
}

void Fake_Http_Transport::forget() {
  const std::lock_guard lock(mutex_);
  requests_.clear();
  connections_.clear();
}

bool Fake_Http_Transport::take_connection(const net::Endpoint& endpoint, net::Net_Error& error) {
  const std::lock_guard lock(mutex_);
  connections_.push_back(endpoint);
  if (refusals_ == 0) return true;
  --refusals_;
  return fail(error, net::Net_Error::connect, "Connection refused");
}

Http_Fault Fake_Http_Transport::take_fault() {
  const std::lock_guard lock(mutex_);
  if (faults_.empty()) return {};
  Http_Fault fault = faults_.front();
  faults_.pop_front();
  return fault;
}

unsigned Fake_Http_Transport::generation() const {
  const std::lock_guard lock(mutex_);
  return generation_;
}

void Fake_Http_Transport::note(Seen_Request request) {
  const std::lock_guard lock(mutex_);
  requests_.push_back(std::move(request));
}

Scripted_Http_Handler::~Scripted_Http_Handler() {
  for (const Step& step : steps_) ADD_FAILURE() << "expected request never came: " << step.request << " " << step.body;
}

void Scripted_Http_Handler::expect(const std::string& method, const std::string& target, const std::string& body,
                                   unsigned status, const std::string& answer) {
  const std::lock_guard lock(mutex_);
  net::Http_Response response;
  response.status = status;
  response.body = answer;
  steps_.push_back({method + " " + target, body, std::move(response)});
}

void Scripted_Http_Handler::handle(net::Server_Exchange& exchange) {
  std::string body;
  (void)exchange.read_body(body);
  const std::string request = exchange.method() + " " + exchange.target();
  Step step;
  {
    const std::lock_guard lock(mutex_);
    if (!steps_.empty()) {
      step = steps_.front();
      steps_.pop_front();
    }
  }
  EXPECT_EQ(request, step.request);
  if (step.body != "*") {
    EXPECT_EQ(body, step.body) << request;
  }
  if (request != step.request) step.answer.status = status_internal;
  exchange.respond(step.answer);
}

net::Http_Handler::Serve Scripted_Http_Handler::accept_web_socket(const std::string&, const net::Http_Headers&,
                                                                  unsigned&) {
  return {};
}

}  // namespace support
