#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "net/http_string.h"

/// A URI taken apart. Not shared between threads while one writes.
class URI {
 public:
  URI() = default;
  /// Reads "scheme://[user[:password]@]host[:port]/path[?query][#fragment]"; false when it is not one.
  [[nodiscard]] bool parse(std::string_view text);

  /// Sets the path; `encoded` tells whether `text` is percent-encoded already.
  void path(const std::string& text, bool encoded);
  /// The path's segments, decoded when `decode`. A leading slash and empty segments are dropped.
  void path_segments(std::vector<std::string>& segments, bool decode = true) const;

  [[nodiscard]] const std::string& scheme() const { return _scheme; }
  [[nodiscard]] const HTTP_String& host() const { return _host; }
  [[nodiscard]] std::uint16_t port() const { return _port; }
  [[nodiscard]] const HTTP_String& path() const { return _path; }
  [[nodiscard]] const std::string& query() const { return _query; }

 private:
  std::string _scheme;
  HTTP_String _host;
  std::uint16_t _port = 0;
  HTTP_String _username;
  HTTP_String _password;
  HTTP_String _path;
  std::string _query;
  std::string _fragment;
};
