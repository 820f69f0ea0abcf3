#include "agent/backupd_client/json_http_session.h"

#include <algorithm>
#include <optional>

#include "platform/clock.h"
#include "platform/log.h"
#include "scrt/exponential_backoff_iterator.h"

using json_spirit::Value;
using std::chrono::nanoseconds;
using std::chrono::seconds;

namespace {

/// Longest time one attempt may go without progress.
constexpr seconds attempt_limit{60};
constexpr seconds shortest_attempt{1};
constexpr unsigned pause_slot_seconds = 1;
constexpr unsigned pause_cap_slots = 64;
constexpr std::size_t quoted_body_bytes = 200;

constexpr unsigned status_ok = 200;
constexpr unsigned status_redirect = 300;
constexpr unsigned status_server_error = 500;

/// How one attempt ended.
struct Attempt {
  bool ok = false;
  bool answered = false;
  unsigned status = 0;
  std::string code;
  std::string why;
};

/// What a refusing server says: its error document, else the beginning of what it sent.
void read_refusal(const net::Http_Response& response, Attempt& attempt) {
  attempt.why = std::to_string(response.status);
  Value document;
  json_spirit::Object error;
  std::string message;
  if (json_spirit::load_json(response.body, document) && document.is_object() &&
      json_spirit::object_get(document.get_obj(), "error", error)) {
    (void)json_spirit::object_get(error, "code", attempt.code);
    (void)json_spirit::object_get(error, "message", message);
  } else {
    message = platform::cut_for_log(response.body.substr(0, response.body.find_first_of("\r\n")), quoted_body_bytes);
  }
  if (!attempt.code.empty()) attempt.why += " " + attempt.code;
  if (!message.empty()) attempt.why += ": " + message;
}

void read_document(const net::Http_Response& response, Value& reply, Attempt& attempt) {
  attempt.ok = true;
  if (response.body.empty()) return;
  std::string why;
  if (json_spirit::load_json(response.body, reply, &why)) return;
  reply = Value();
  attempt.ok = false;
  attempt.why = "the answer is not JSON: " + why;
}

Attempt send_once(HTTP_Session& session, const net::Http_Request& request, nanoseconds limit, Value& reply) {
  Attempt attempt;
  net::Http_Response response;
  net::Net_Error error;
  if (!session.exchange(request, response, limit, error)) {
    attempt.why = error.text;
    return attempt;
  }
  attempt.answered = true;
  attempt.status = response.status;
  if (response.status >= status_ok && response.status < status_redirect)
    read_document(response, reply, attempt);
  else
    read_refusal(response, attempt);
  return attempt;
}

/// Time that is left for a request and its repetitions.
class Retry_Limit {
 public:
  explicit Retry_Limit(int retry_timeout) {
    if (retry_timeout >= 0) end_ = platform::Clock::current().steady_now() + seconds(retry_timeout);
  }
  [[nodiscard]] bool allows(nanoseconds pause) const {
    return !end_ || platform::Clock::current().steady_now() + pause < *end_;
  }
  /// For the next attempt; one that may only be made once has its full time.
  [[nodiscard]] nanoseconds for_attempt() const {
    if (!end_) return attempt_limit;
    const nanoseconds left = *end_ - platform::Clock::current().steady_now();
    if (left <= nanoseconds::zero()) return attempt_limit;
    return std::clamp<nanoseconds>(left, shortest_attempt, attempt_limit);
  }

 private:
  std::optional<std::chrono::steady_clock::time_point> end_;
};

bool report(const JSON_HTTP_Failure& reason, JSON_HTTP_Failure* failure) {
  if (failure != nullptr)
    *failure = reason;
  else
    D3_ERROR("%C\n", platform::cut_for_log(reason.message).c_str());
  return false;
}

}  // namespace

JSON_HTTP_Session::JSON_HTTP_Session(HTTP_Session_var session, int retries, int retry_timeout, Flags flags)
    : session_(std::move(session)), retries_(retries), retry_timeout_(retry_timeout), flags_(flags) {}

void JSON_HTTP_Session::reset(HTTP_Session_var session) { session_ = std::move(session); }

bool JSON_HTTP_Session::get(const std::string& path, Value& reply, JSON_HTTP_Failure* failure) const {
  return request("GET", path, nullptr, reply, failure);
}

bool JSON_HTTP_Session::post(const std::string& path, const Value& body, Value& reply,
                             JSON_HTTP_Failure* failure) const {
  return request("POST", path, &body, reply, failure);
}

bool JSON_HTTP_Session::put(const std::string& path, const Value& body, Value& reply,
                            JSON_HTTP_Failure* failure) const {
  return request("PUT", path, &body, reply, failure);
}

bool JSON_HTTP_Session::patch(const std::string& path, const Value& body, Value& reply,
                              JSON_HTTP_Failure* failure) const {
  return request("PATCH", path, &body, reply, failure);
}

bool JSON_HTTP_Session::del(const std::string& path, Value& reply, JSON_HTTP_Failure* failure) const {
  return request("DELETE", path, nullptr, reply, failure);
}

bool JSON_HTTP_Session::request(const char* method, const std::string& path, const Value* body, Value& reply,
                                JSON_HTTP_Failure* failure) const {
  reply = Value();
  JSON_HTTP_Failure reason;
  if (!session_) {
    reason.message = std::string(method) + " " + path + ": there is no session to backupd";
    return report(reason, failure);
  }
  net::Http_Request request;
  request.method = method;
  request.target = path;
  request.headers.set("Accept", "application/json");
  if (body != nullptr) {
    request.headers.set("Content-Type", "application/json");
    request.body = json_spirit::dump_json(*body);
  }

  const Retry_Limit limit(retry_timeout_);
  const auto retries = static_cast<unsigned>(std::max(retries_, 0));
  Exponential_Backoff_Iterator pause(pause_slot_seconds, retries, pause_cap_slots, false);
  for (reason.attempts = 1;; ++reason.attempts, ++pause) {
    const Attempt attempt = send_once(*session_, request, limit.for_attempt(), reply);
    if (attempt.ok) return true;
    reason.status = attempt.status;
    reason.code = attempt.code;
    reason.message = std::string(method) + " " + session_->url() + path + ": " + attempt.why;

    const bool again = !attempt.answered || (attempt.status >= status_server_error && flags_ != FLAG_NO_STATUS_RETRY);
    const seconds delay(pause.exhausted() ? 0 : *pause);
    if (!again || pause.exhausted() || !limit.allows(delay)) return report(reason, failure);
    D3_WARNING("%C; trying again in %d s\n", platform::cut_for_log(reason.message).c_str(),
               static_cast<int>(delay.count()));
    platform::Clock::current().sleep_for(delay);
  }
}
