#pragma once

#include <chrono>
#include <string>

#include "agent/backupd_client/http_session.h"
#include "json/value.h"

/// Why a request to backupd failed.
struct JSON_HTTP_Failure {
  unsigned status = 0;    ///< HTTP status of the last answer; 0: no whole answer came
  std::string code;       ///< the server's word for it ("conflict", "not_found"), empty without one
  std::string message;    ///< what, where and why, on one line
  unsigned attempts = 0;  ///< how often it was sent. After more than one, a 409 may be the echo of an earlier success.
};

/// Requests with JSON bodies to one server. A request is sent again, after a growing pause, when no answer came or the
/// server answered 5xx: at most retries_ times more, and never later than retry_timeout_ seconds after the first
/// attempt. Any other answer is final. Copies share the HTTP session. Requests may be made from any thread, reset not
/// meanwhile.
class JSON_HTTP_Session {
 public:
  enum { DEFAULT_RETRYS = 5, DEFAULT_RETRY_TIMEOUT = 300 };
  enum Flags : unsigned {
    FLAG_NONE = 0,
    FLAG_NO_STATUS_RETRY = 1,  ///< a 5xx answer is final too
  };

  /// A negative `retry_timeout` means no limit in time.
  explicit JSON_HTTP_Session(HTTP_Session_var session = {}, int retries = DEFAULT_RETRYS,
                             int retry_timeout = DEFAULT_RETRY_TIMEOUT, Flags flags = FLAG_NONE);

  void reset(HTTP_Session_var session = {});
  [[nodiscard]] const HTTP_Session_var& session() const { return session_; }
  [[nodiscard]] explicit operator bool() const { return session_ != nullptr; }
  [[nodiscard]] int retries() const { return retries_; }
  [[nodiscard]] int retry_timeout() const { return retry_timeout_; }

  /// `path` with query, percent-encoded, from "/". True on 2xx with the answer's document in `reply` (null when the
  /// answer has no body). False otherwise with `reply` null: with `failure` given the reason goes there and the caller
  /// reports it; without, it is logged here as an error.
  [[nodiscard]] bool get(const std::string& path, json_spirit::Value& reply,
                         JSON_HTTP_Failure* failure = nullptr) const;
  [[nodiscard]] bool post(const std::string& path, const json_spirit::Value& body, json_spirit::Value& reply,
                          JSON_HTTP_Failure* failure = nullptr) const;
  [[nodiscard]] bool put(const std::string& path, const json_spirit::Value& body, json_spirit::Value& reply,
                         JSON_HTTP_Failure* failure = nullptr) const;
  [[nodiscard]] bool patch(const std::string& path, const json_spirit::Value& body, json_spirit::Value& reply,
                           JSON_HTTP_Failure* failure = nullptr) const;
  /// DELETE.
  [[nodiscard]] bool del(const std::string& path, json_spirit::Value& reply,
                         JSON_HTTP_Failure* failure = nullptr) const;

 private:
  HTTP_Session_var session_;
  int retries_;
  int retry_timeout_;
  Flags flags_;

  [[nodiscard]] bool request(const char* method, const std::string& path, const json_spirit::Value* body,
                             json_spirit::Value& reply, JSON_HTTP_Failure* failure) const;
};
