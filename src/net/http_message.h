#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/secure_string.h"

namespace net {

/// Header fields in order; names compare without case. The value of an Authorization field is a secret: it is wiped
/// when it is replaced or released.
class Http_Headers {
 public:
  Http_Headers() = default;
  Http_Headers(const Http_Headers& other) = default;
  Http_Headers(Http_Headers&& other) noexcept = default;
  Http_Headers& operator=(Http_Headers other) noexcept;
  ~Http_Headers();

  void set(std::string_view name, std::string_view value);
  /// "Authorization: Bearer <key>".
  void set_bearer(const secure_string& key);
  /// Null when there is no such field.
  [[nodiscard]] const std::string* find(std::string_view name) const;
  [[nodiscard]] const std::vector<std::pair<std::string, std::string>>& all() const { return fields_; }

 private:
  std::vector<std::pair<std::string, std::string>> fields_;
};

/// Gives a body piece by piece. read returns the bytes stored, 0 at the end, -1 on failure (the exchange is then given
/// up and the peer sees a body that was cut, never one that looks whole).
class Body_Source {
 public:
  virtual ~Body_Source() = default;
  virtual ssize_t read(char* buffer, std::size_t size) = 0;
  /// Total size where it is known before.
  [[nodiscard]] virtual std::optional<std::uint64_t> size() const { return std::nullopt; }
};

/// Takes a body piece by piece; false gives the exchange up.
class Body_Sink {
 public:
  virtual ~Body_Sink() = default;
  virtual bool write(const char* data, std::size_t size) = 0;
};

/// The value of the Authorization field that shows `key`.
[[nodiscard]] secure_string bearer_value(const secure_string& key);

struct Http_Request {
  std::string method = "GET";
  std::string target;  ///< path with query, percent-encoded
  Http_Headers headers;
  std::string body;
  Body_Source* body_source = nullptr;  ///< when set, streamed instead of `body`; not owned
};

struct Http_Response {
  unsigned status = 0;
  Http_Headers headers;
  std::string body;
};

constexpr std::size_t http_body_limit_bytes = 16U << 20;

}  // namespace net
