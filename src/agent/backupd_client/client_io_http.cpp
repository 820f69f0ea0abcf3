#include <chrono>
#include <optional>
#include <thread>

#include "agent/backupd_client/agent_configuration.h"
#include "agent/backupd_client/byte_handover.h"
#include "agent/backupd_client/client_io_transport.h"
#include "agent/backupd_client/http_session.h"
#include "json/value.h"
#include "net/http_transport.h"
#include "scrt/http_encode.h"
#include "scrt/numbers.h"

namespace {

constexpr std::chrono::seconds connect_timeout{30};
/// Bounds a request without progress; a pool's disk may be slow to sync what it was given.
constexpr std::chrono::seconds progress_timeout{300};
constexpr std::size_t handover_bytes = 1U << 20;

constexpr unsigned status_ok = 200;
constexpr unsigned status_multiple_choices = 300;
constexpr unsigned status_request_timeout = 408;
constexpr unsigned status_too_many_requests = 429;
constexpr unsigned status_server_error = 500;
constexpr unsigned status_pool_full = 507;

bool is_success(unsigned status) { return status >= status_ok && status < status_multiple_choices; }

bool is_transient(unsigned status) {
  if (status == status_pool_full) return false;
  return status >= status_server_error || status == status_request_timeout || status == status_too_many_requests;
}

bool is_transient(const net::Net_Error& error) {
  return error.kind == net::Net_Error::connect || error.kind == net::Net_Error::resolve ||
         error.kind == net::Net_Error::timeout || error.kind == net::Net_Error::closed;
}

/// The server's own words where it gave some.
std::string message_of(const net::Http_Response& response) {
  json_spirit::Value body;
  json_spirit::Object object;
  json_spirit::Object error;
  std::string message;
  if (!response.body.empty() && json_spirit::load_json(response.body, body) && body.is_object() &&
      json_spirit::object_get(body.get_obj(), "error", error) && json_spirit::object_get(error, "message", message) &&
      !message.empty()) {
    return message;
  }
  return "HTTP status " + std::to_string(response.status);
}

/// The outcome of one exchange as a failure; empty when it went well.
std::optional<Client_IO_Failure> failure_of(const std::string& what, bool answered, const net::Http_Response& response,
                                            const net::Net_Error& error) {
  if (!answered) return Client_IO_Failure{what + ": " + error.text, is_transient(error)};
  if (is_success(response.status)) return std::nullopt;
  return Client_IO_Failure{what + ": " + message_of(response), is_transient(response.status)};
}

/// An exchange of its own connection, run on its own thread while bytes pass through a handover.
class Streamed_Exchange {
 public:
  Streamed_Exchange(std::unique_ptr<net::Http_Connection> connection, net::Http_Request request)
      : connection_(std::move(connection)), request_(std::move(request)), bytes_(handover_bytes) {}
  ~Streamed_Exchange() { abandon(); }
  Streamed_Exchange(const Streamed_Exchange&) = delete;
  Streamed_Exchange& operator=(const Streamed_Exchange&) = delete;

  void start_sending() {
    request_.body_source = &source_;
    thread_ = std::thread([this] {
      answered_ = connection_->exchange(request_, response_, progress_timeout, error_);
      bytes_.close_reading();
    });
  }
  void start_receiving() {
    thread_ = std::thread([this] {
      answered_ = connection_->exchange(request_, response_, sink_, progress_timeout, error_);
      bytes_.finish(answered_ && is_success(response_.status));
    });
  }

  [[nodiscard]] Byte_Handover& bytes() { return bytes_; }
  /// Waits for the answer; empty when it is a success.
  std::optional<Client_IO_Failure> end(const std::string& what) {
    if (thread_.joinable()) thread_.join();
    return failure_of(what, answered_, response_, error_);
  }
  /// Gives the exchange up: the server sees a body that was cut.
  void abandon() {
    bytes_.finish(false);
    bytes_.close_reading();
    if (thread_.joinable()) thread_.join();
  }

 private:
  struct Source : net::Body_Source {
    explicit Source(Byte_Handover& from) : bytes(from) {}
    ssize_t read(char* buffer, std::size_t size) override { return bytes.pop(buffer, size); }
    Byte_Handover& bytes;
  };
  struct Sink : net::Body_Sink {
    explicit Sink(Byte_Handover& to) : bytes(to) {}
    bool write(const char* data, std::size_t size) override { return bytes.push(data, size); }
    Byte_Handover& bytes;
  };

  std::unique_ptr<net::Http_Connection> connection_;
  net::Http_Request request_;
  net::Http_Response response_;
  net::Net_Error error_;
  bool answered_ = false;
  Byte_Handover bytes_;
  Source source_{bytes_};
  Sink sink_{bytes_};
  std::thread thread_;
};

class Http_Writer : public Pool_Writer {
 public:
  Http_Writer(std::unique_ptr<Streamed_Exchange> exchange, std::string what)
      : exchange_(std::move(exchange)), what_(std::move(what)) {}

  bool write(const void* data, std::size_t size) override {
    if (!exchange_) return false;
    return exchange_->bytes().push(data, size) || end();
  }

  bool commit() override {
    if (!exchange_) return false;
    exchange_->bytes().finish(true);
    const std::optional<Client_IO_Failure> failure = exchange_->end(what_);
    exchange_.reset();
    if (failure) failure_ = *failure;
    return !failure;
  }

  [[nodiscard]] const std::string& error() const override { return failure_.text; }
  [[nodiscard]] bool transient() const override { return failure_.transient; }

 private:
  /// The server answered before it had everything: whatever it said, the object is not stored.
  bool end() {
    const std::optional<Client_IO_Failure> failure = exchange_->end(what_);
    exchange_.reset();
    failure_ = failure ? *failure : Client_IO_Failure{what_ + ": the server ended the transfer early", true};
    return false;
  }

  std::unique_ptr<Streamed_Exchange> exchange_;
  std::string what_;
  Client_IO_Failure failure_;
};

class Http_Reader : public Pool_Reader {
 public:
  Http_Reader(std::unique_ptr<Streamed_Exchange> exchange, std::string what, std::uint64_t size)
      : exchange_(std::move(exchange)), what_(std::move(what)), size_(size) {}

  ssize_t read(void* data, std::size_t size) override {
    if (!exchange_) return -1;
    const ssize_t got = exchange_->bytes().pop(data, size);
    if (got >= 0) return got;
    const std::optional<Client_IO_Failure> failure = exchange_->end(what_);
    exchange_.reset();
    failure_ = failure.value_or(Client_IO_Failure{what_ + ": the transfer was cut", true});
    return -1;
  }
  [[nodiscard]] std::uint64_t size() const override { return size_; }
  [[nodiscard]] const std::string& error() const override { return failure_.text; }
  [[nodiscard]] bool transient() const override { return failure_.transient; }

 private:
  std::unique_ptr<Streamed_Exchange> exchange_;
  std::string what_;
  std::uint64_t size_;
  Client_IO_Failure failure_;
};

class Http_Transport_IO : public Client_IO_Ex::Transport {
 public:
  Http_Transport_IO(net::Endpoint endpoint, std::string base)
      : endpoint_(std::move(endpoint)), base_(std::move(base)) {}

  bool connect() override {
    Agent_Configuration configuration;
    secure_string key;
    std::string error;
    if (!Agent_Configuration::load(configuration, error) || !configuration.load_access_key(key, error)) {
      return fail({"cannot use the storage pool at " + endpoint_.host + ": " + error, false});
    }
    session_ = std::make_unique<HTTP_Session>(endpoint_, std::move(key));
    std::vector<Pool_Entry> ignored;
    return get_dir("", ignored);
  }

  bool get_dir(const std::string& path, std::vector<Pool_Entry>& entries) override {
    net::Http_Response response;
    const std::string what = "cannot list " + name_of(path);
    if (!exchange("GET", target(path) + "?list", what, response)) return false;
    json_spirit::Value body;
    std::string error;
    if (!json_spirit::load_json(response.body, body, &error)) return fail({what + ": " + error, false});
    std::vector<Pool_Entry> found;
    try {
      for (const json_spirit::Value& row : json_spirit::object_require<json_spirit::Array>(body.get_obj(), "rows")) {
        Pool_Entry entry;
        entry.name = json_spirit::object_require<std::string>(row.get_obj(), "name");
        json_spirit::object_get(row.get_obj(), "directory", entry.directory);
        json_spirit::object_get(row.get_obj(), "size", entry.size);
        if (!entry.name.starts_with('.')) found.push_back(std::move(entry));
      }
    } catch (const json_spirit::Error& malformed) {
      return fail({what + ": " + malformed.what(), false});
    }
    entries = std::move(found);
    return true;
  }

  bool remove(const std::string& path) override {
    net::Http_Response response;
    return exchange("DELETE", target(path), "cannot remove " + name_of(path), response);
  }

  std::unique_ptr<Pool_Writer> create(const std::string& path) override {
    const std::string what = "cannot store " + name_of(path);
    if (exists(path)) {
      fail({what + ": it exists already", false});
      return nullptr;
    }
    std::unique_ptr<Streamed_Exchange> exchange = open_exchange("PUT", path, what);
    if (!exchange) return nullptr;
    exchange->start_sending();
    return std::make_unique<Http_Writer>(std::move(exchange), what);
  }

  std::unique_ptr<Pool_Reader> open(const std::string& path) override {
    const std::string what = "cannot read " + name_of(path);
    std::uint64_t size = 0;
    if (!head(path, what, size)) return nullptr;
    std::unique_ptr<Streamed_Exchange> exchange = open_exchange("GET", path, what);
    if (!exchange) return nullptr;
    exchange->start_receiving();
    return std::make_unique<Http_Reader>(std::move(exchange), what, size);
  }

  bool exists(const std::string& path) override {
    std::uint64_t size = 0;
    return head(path, "cannot find " + name_of(path), size);
  }

 private:
  [[nodiscard]] std::string target(const std::string& path) const {
    std::string text = base_ + "/";
    http_encode_string_i(path.c_str(), 0, std::back_inserter(text));
    return text;
  }
  [[nodiscard]] std::string name_of(const std::string& path) const {
    return "'" + path + "' of the storage pool at " + endpoint_.host;
  }

  bool exchange(const char* method, const std::string& where, const std::string& what, net::Http_Response& response) {
    net::Http_Request request;
    request.method = method;
    request.target = where;
    net::Net_Error error;
    const bool answered = session_->exchange(std::move(request), response, progress_timeout, error);
    const std::optional<Client_IO_Failure> failure = failure_of(what, answered, response, error);
    return !failure || fail(*failure);
  }

  bool head(const std::string& path, const std::string& what, std::uint64_t& size) {
    net::Http_Response response;
    if (!exchange("HEAD", target(path), what, response)) return false;
    const std::string* length = response.headers.find("Content-Length");
    if (length == nullptr || !parse_uint64(*length, size)) return fail({what + ": its size is not known", false});
    return true;
  }

  std::unique_ptr<Streamed_Exchange> open_exchange(const char* method, const std::string& path,
                                                   const std::string& what) {
    net::Net_Error error;
    std::unique_ptr<net::Http_Connection> connection = session_->connect(connect_timeout, error);
    if (!connection) {
      fail({what + ": " + error.text, is_transient(error)});
      return nullptr;
    }
    net::Http_Request request;
    request.method = method;
    request.target = target(path);
    session_->authorize(request);
    return std::make_unique<Streamed_Exchange>(std::move(connection), std::move(request));
  }

  net::Endpoint endpoint_;
  std::string base_;  ///< path of the pool's URL, without a trailing '/'
  std::unique_ptr<HTTP_Session> session_;
};

}  // namespace

std::unique_ptr<Client_IO_Ex::Transport> make_http_transport(const std::string& url, const Client_IO_Options& options) {
  net::Endpoint endpoint;
  if (!net::parse_endpoint(url, endpoint)) return nullptr;
  endpoint.ca_file = options.ca_file;
  const std::size_t path_at = url.find('/', url.find("://") + 3);
  std::string base = path_at == std::string::npos ? std::string() : url.substr(path_at);
  while (!base.empty() && base.back() == '/') base.pop_back();
  return std::make_unique<Http_Transport_IO>(std::move(endpoint), std::move(base));
}
