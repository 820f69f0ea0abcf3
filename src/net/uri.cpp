#include "net/uri.h"

#include <algorithm>
#include <charconv>
#include <limits>

namespace {

bool is_letter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
bool is_digit(char c) { return c >= '0' && c <= '9'; }

bool is_scheme(std::string_view text) {
  if (text.empty() || !is_letter(text.front())) return false;
  return std::all_of(text.begin(), text.end(),
                     [](char c) { return is_letter(c) || is_digit(c) || c == '+' || c == '-' || c == '.'; });
}

/// Blanks and control characters stand in no URI; bytes above 0x7f are let through as names of files.
bool is_clean(std::string_view text) {
  constexpr unsigned char last_control = 0x20;
  constexpr unsigned char delete_character = 0x7f;
  return std::all_of(text.begin(), text.end(), [](char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte > last_control && byte != delete_character;
  });
}

bool parse_port(std::string_view text, std::uint16_t& port) {
  unsigned value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size()) return false;
  if (value == 0 || value > std::numeric_limits<std::uint16_t>::max()) return false;
  port = static_cast<std::uint16_t>(value);
  return true;
}

/// Takes what stands before the first of `separators` off `text`; all of it when there is none.
std::string_view take_before(std::string_view& text, std::string_view separators) {
  const std::size_t end = std::min(text.find_first_of(separators), text.size());
  const std::string_view taken = text.substr(0, end);
  text.remove_prefix(end);
  return taken;
}

struct Authority {
  std::string_view username;
  std::string_view password;
  std::string_view host;
  std::uint16_t port = 0;
};

/// Splits "host", "host:port" or "[address]:port".
bool parse_host(std::string_view text, Authority& authority) {
  std::string_view rest;
  if (!text.empty() && text.front() == '[') {
    const std::size_t end = text.find(']');
    if (end == std::string_view::npos || end == 1) return false;
    authority.host = text.substr(1, end - 1);
    rest = text.substr(end + 1);
  } else {
    const std::size_t colon = std::min(text.find(':'), text.size());
    authority.host = text.substr(0, colon);
    rest = text.substr(colon);
  }
  if (rest.empty()) return true;
  return rest.front() == ':' && !authority.host.empty() && parse_port(rest.substr(1), authority.port);
}

bool parse_authority(std::string_view text, Authority& authority) {
  const std::size_t at = text.rfind('@');
  if (at != std::string_view::npos) {
    std::string_view user = text.substr(0, at);
    authority.username = take_before(user, ":");
    if (!user.empty()) authority.password = user.substr(1);
    text.remove_prefix(at + 1);
    if (text.empty()) return false;
  }
  return parse_host(text, authority);
}

}  // namespace

bool URI::parse(std::string_view text) {
  constexpr std::string_view scheme_end = "://";
  const std::size_t scheme = text.find(scheme_end);
  if (scheme == std::string_view::npos || !is_scheme(text.substr(0, scheme)) || !is_clean(text)) return false;
  std::string_view rest = text.substr(scheme + scheme_end.size());

  Authority authority;
  if (!parse_authority(take_before(rest, "/?#"), authority)) return false;

  URI parsed;
  parsed._scheme = text.substr(0, scheme);
  std::transform(parsed._scheme.begin(), parsed._scheme.end(), parsed._scheme.begin(),
                 [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
  parsed._host.assign_encoded(authority.host);
  parsed._port = authority.port;
  parsed._username.assign_encoded(authority.username);
  parsed._password.assign_encoded(authority.password);
  parsed._path.assign_encoded(take_before(rest, "?#"));
  if (!rest.empty() && rest.front() == '?') parsed._query = take_before(rest, "#").substr(1);
  if (!rest.empty()) parsed._fragment = rest.substr(1);
  *this = std::move(parsed);
  return true;
}

void URI::path(const std::string& text, bool encoded) {
  if (encoded)
    _path.assign_encoded(text);
  else
    _path.assign_decoded(text);
}

void URI::path_segments(std::vector<std::string>& segments, bool decode) const {
  segments.clear();
  std::string_view rest = _path.encoded_val_;
  while (!rest.empty()) {
    const std::string_view segment = take_before(rest, "/");
    if (!segment.empty()) segments.push_back(decode ? http_decode_string(segment) : std::string(segment));
    if (!rest.empty()) rest.remove_prefix(1);
  }
}
